// The package's ray services, for other packages that link against this one: settings in force, secondary rays,
// culling by contribution, and shadow rays. The package's own shaders include FastKel.h, which inlines them. The library has
// a copy of the services for packets too (Oxbeam/FastOxS4.h).
//
// Every OxState* that is a shaded ray's must have a KelRenderingObject as its m_ro and a KelRay as its private pointer.
// Where only m_ro is read, a missing one ends the process with an assertion, in release builds too. Colours are
// linear and unclamped.
#pragma once

#include "KelRenderingObject.h"
#include "KelShader.h"
#include "Oxbeam/OxState.h"

#if defined(KEL_EMIT_SERVICES)
#define KEL_SERVICE [[gnu::used]] inline OXBEAM_API
#else
#define KEL_SERVICE inline OXBEAM_API
#endif

// ---- Global settings in force

OXBEAM_API int kelNumFuzzySamples(OxState* state);
// The ray epsilon truncated to an integer: below 1 it moves no origin, and rays are kept off their own surface by
// their minimal hit distance alone.
OXBEAM_API int kelRayEpsilon(OxState* state);
OXBEAM_API int kelRecursionLimit(OxState* state);
OXBEAM_API bool kelFuzzyLights(OxState* state);
OXBEAM_API bool kelGlossySurfaces(OxState* state);
OXBEAM_API bool kelReceiveShadow(OxState* state);
OXBEAM_API bool kelReceiveShadow(KelRenderingObject* ro);  // ro is not checked
OXBEAM_API bool kelWireframe(OxState* state);
OXBEAM_API bool kelSoftShadows(OxState* state);

// ---- Secondary rays

// Makes `ref` a child of `state`. Hit, colour, object and instance are left as they are.
OXBEAM_API Oxvoid kelInitState(OxState* state, OxState* ref);
// Snell's law: D = direction of unit vector I refracted at a surface with unit normal N on I's side, from index b1
// into b2. False on total internal reflection; D is then untouched.
OXBEAM_API bool kelRefract(R3& D, const R3& I, const R3& N, float b1, float b2);
// Shoots the ray set up in `state` and shades what it meets. The second form tells the distance: that of the hit,
// or infinity.
OXBEAM_API Oxvoid kelDoTrace(OxState* state);
OXBEAM_API Oxvoid kelDoTrace(OxState* state, float& distance);
// The same, handing the colour back.
OXBEAM_API R3 kelTrace(OxState* state);
OXBEAM_API R3 kelTrace(OxState* state, float& distance);
// Sets `ref` up as the mirror ray about the shading normal n, or as the ray that goes straight on. `ref` carries the
// parent's record until the caller attaches another.
OXBEAM_API Oxvoid kelReflectionRay(OxState* state, OxState* ref, const R3& n);
OXBEAM_API Oxvoid kelTransparencyRay(OxState* state, OxState* ref);
// Sets `ref` up as the refracted ray, from index n1 into n2, or back where the record attached to `ref` says that
// the ray is inside; switchInside toggles that. False on total internal reflection: `ref` must not be traced.
OXBEAM_API bool kelRefractionRay(OxState* state, OxState* ref, const R3& n, float n1, float n2, bool switchInside);
// Hit distance over the length of the ray's direction: for unit directions, the way to the hit.
OXBEAM_API float kelGetHitDistance(OxState* state);

// ---- Culling by contribution

// Colour that arrives along the mirror direction, unweighted, or black where the ray is culled: where it would be
// as deep as the recursion limit, or its weight times the opacity of the ray's record does not exceed the reflective
// accuracy. A positive exponent averages numFuzzySamples rays of a power-cosine lobe; otherwise one mirror ray is
// traced. With traceDistance, distance becomes that of the (last) ray's hit.
OXBEAM_API R3 kelGetReflectiveIntensity(OxState* state, float& distance, float reflectivity, const R3& shdNormal,
                                        float exponent, bool traceDistance, int numFuzzySamples);
OXBEAM_API R3 kelGetReflectiveIntensity(OxState* state, float reflectivity, const R3& shdNormal, float shininess,
                                        int numFuzzySamples);
OXBEAM_API R3 kelGetReflectiveIntensity(OxState* state, float reflectivity, const R3& shdNormal, float shininess);
// The same along the refracted direction, culled by the refractive accuracy; black on total internal reflection.
OXBEAM_API R3 kelGetRefractiveIntensity(OxState* state, float& distance, float refractivity, const R3& shdNormal,
                                        float n1, float n2, bool switchInside, float exponent, int numFuzzySamples);
// The same straight on, culled by the transparent accuracy.
OXBEAM_API R3 kelGetTransparentIntensity(OxState* state, float transparency);

// ---- Shadow rays

// `light` is an OxLight* converted to void*; null and lights of other packages cast shadows.
OXBEAM_API bool kelCastShadow(Oxvoid* light);
// Sets `shadow` up as the ray from `state`'s origin to a light, with the light's intensity as its colour. False: the
// light does not reach the point, or lies behind the surface.
OXBEAM_API bool kelShadowRay(OxState* state, OxState* shadow, const R3& shdNormal, Oxvoid* light, KelShader* shader);
// The same for four rays: 1 in the lanes whose light lies in front of the surface, else 0.
OXBEAM_API sse_t kelShadowRay4(OxState4& state, OxState4& shadow, const ISSEVec4& shdNormal, Oxvoid* light,
                               KelShader* shader);
// Shoots a shadow ray, jittered for soft shadows; its direction is afterwards what it was. True: something was hit.
OXBEAM_API bool kelShootShadowRay(OxState* state, OxLight* light, KelShader* shader);
// For a surface of transparency alpha that a shadow ray has hit: sends the ray on to the light. True: the light
// arrives, coloured by the surfaces beyond. False: it is blocked, or the chain of surfaces is too long or too dark to
// matter. The second form tells the distance to the next surface, infinity if there is none, 0 if blocked.
OXBEAM_API bool kelLightTransparency(OxState* state, R3& color, float alpha);
OXBEAM_API bool kelLightTransparency(OxState* state, R3& color, float alpha, float& distance);
