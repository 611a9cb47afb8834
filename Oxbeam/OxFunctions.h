// The services that packages call. "state" is the state of the ray being shaded. All run on the calling thread and
// return at once; none allocates, locks or throws, but for those that are for NewFrame alone.
#pragma once

#include "Oxbeam/OxContext.h"
#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxState.h"
#include "Oxbeam/OxTexture.h"
#include "Oxbeam/OxTypes.h"

#include <cmath>
#include <typeinfo>
#include <vector>

// ---- Setting up and shooting rays

// Makes `child` the state of a secondary ray of `parent`: same scene, rendering object and record, one deeper, kept
// off the surface by the ray epsilon. The caller sets the ray itself.
OXBEAM_API Oxvoid oxsInitState(const OxState* parent, OxState* child);

OX_SERVICE Oxvoid oxsSetRay(OxState* state, const R3& origin, const R3& direction, float maxDistance) {
    state->ray.origin = origin;
    state->ray.direction = direction;
    state->ray.maxDist = maxDistance;
}
OX_SERVICE Oxvoid oxsSetRayOrigin(OxState* state, const R3& origin) { state->ray.origin = origin; }
OX_SERVICE Oxvoid oxsSetRayDirection(OxState* state, const R3& direction) { state->ray.direction = direction; }
OX_SERVICE Oxvoid oxsGetRayOrigin(const OxState* state, R3& origin) { origin = state->ray.origin; }
OX_SERVICE Oxvoid oxsGetRayDirection(const OxState* state, R3& direction) { direction = state->ray.direction; }
OX_SERVICE Oxvoid oxsSetRayMaxDistance(OxState* state, float distance) { state->ray.maxDist = distance; }
OX_SERVICE float oxsGetRayMaxDistance(const OxState* state) { return state->ray.maxDist; }
OX_SERVICE Oxvoid oxsSetRayVisibility(OxState* state, Oxuint mask) { state->ray.visibilityMask = mask; }
OX_SERVICE Oxuint oxsGetRayVisibility(const OxState* state) { return state->ray.visibilityMask; }

// Traces the state's ray. True: the state's hit, object and instance describe the nearest hit. False: nothing was
// hit, and the hit's triangle is TRI_NONE.
OXBEAM_API bool oxsShootRay(OxState* state);
// Traces a shadow ray. As oxsShootRay, except in frames in which everything that casts shadows has promised to block
// light: `blocks` is then true, and of the hit the state knows nothing. Nobody needs to be asked for LightTransparency.
OXBEAM_API bool oxsShootShadowRay(OxState* state, bool& blocks);
// A surface's promise for this frame: light that meets it is blocked, wherever it does, as its LightTransparency would
// answer. It holds where the shader is exactly of this class: one that is derived from it inherits its NewFrame too, and
// may let light through. For NewFrame alone.
OXBEAM_API Oxvoid oxsBlockLight(const OxShader* shader, const std::type_info& type);
// What a surface says of the shadow rays that it will send in this frame, by oxsShootShadowRay, from where primary rays
// hit it (P): towards each of the frame's lights, at a distance d in direction L as oxsIlluminate tells them, from P +
// offset * L to d - 2 * offset, and with the smallest distance that oxsInitState sets. Those of neighbouring pixels are
// then traced together before they are asked for. A ray that comes out otherwise is traced as ever: what is wrong costs
// time and never a result, but nobody should say it whose rays are jittered. As with oxsBlockLight it holds for exactly
// this class, and is for NewFrame alone. The offset is at least 0.
OXBEAM_API Oxvoid oxsExpectShadowRays(const OxShader* shader, const std::type_info& type, float offset);
// Shades a ray that left the scene; the environment's colour is then the state's.
OXBEAM_API Oxvoid oxsShadeEnvironment(OxState* state);

// The colour of the state after shooting and shading.
OX_SERVICE Oxvoid oxsGetColor(const OxState* state, R3& color) { color = state->color; }
// Hands a ray's final colour back.
OX_SERVICE Oxvoid oxsReturnColor(OxState* state, const R3& color) { state->color = color; }

// ---- The hit

OX_SERVICE float oxsGetHitDistance(const OxState* state) { return state->hit.dist; }
OX_SERVICE Oxvoid oxsSetHitDistance(OxState* state, float distance) { state->hit.dist = distance; }
// Hit point in world space, as long as the ray is the one that was shot.
OX_SERVICE Oxvoid oxsGetHitPosition(const OxState* state, R3& position) {
    position = state->ray.origin + state->hit.dist * state->ray.direction;
}
// Barycentric weights of the triangle's first and second vertex.
OX_SERVICE Oxvoid oxsGetUV(const OxState* state, R2& uv) { uv = R2(state->hit.u, state->hit.v); }
OX_SERVICE int oxsInstanceID(const OxState* state) { return state->hit.inst; }
OX_SERVICE int oxsTriangleID(const OxState* state) { return state->hit.tri; }
// Fills in the hit's texture coordinates; everything else is there after shooting.
OXBEAM_API Oxvoid oxsLoadGeometry(OxState* state);
// Interpolated unit normal on the side that the ray comes from.
OXBEAM_API Oxvoid oxsFindShadingNormal(const OxState* state, R3& normal);
// The same, perturbed by a bump map (a normal map or a height map); unperturbed where the id names no texture.
OXBEAM_API Oxvoid oxsFindShadingBumpMapNormal(const OxState* state, R3& normal, Oxint textureId);
// Colours of the hit mesh's vertices. Without any, oxsInterpolateColor gives white.
OXBEAM_API bool oxsHasVertexColors(const OxState* state);
OXBEAM_API Oxvoid oxsInterpolateColor(const OxState* state, R3& color);
// The surface shader bound to the hit; never null after a hit.
OXBEAM_API OxShader* oxsGetShader(const OxState* state);

// Null where there is no such instance.
OXBEAM_API const Instance* oxGetInstance(int instanceID);
// What an instance shows, in world space.
OXBEAM_API const GeometryObject* oxGetObject(const Instance* instance);
// The triangle's vertices, in the world's space for an object of oxGetObject. All three are the origin where there is no
// such object.
OXBEAM_API Oxvoid oxGetTriangleVertices(const GeometryObject* object, int triangle, R3* a, R3* b, R3* c);

// ---- Directions

// Normalises a vector and turns it to the side that the ray comes from.
OX_SERVICE Oxvoid oxsNormalizeFaceForward(const OxState* state, R3& normal) {
    normal = Normalize(normal);
    if (Dot(state->ray.direction, normal) > 0.0f) normal = -normal;
}
// Mirror direction of a direction about a unit normal.
OX_SERVICE Oxvoid oxsReflect(R3& reflected, const R3& direction, const R3& normal) {
    reflected = direction - (2.0f * Dot(direction, normal)) * normal;
}

// ---- The package's record of the ray

OX_SERVICE Oxvoid oxsSetPrivatePtr(OxState* state, void* record) { state->ray.privatePtr = record; }
OX_SERVICE Oxvoid* oxsGetPrivatePtr(const OxState* state) { return state->ray.privatePtr; }

// ---- Textures

// Looks a texture up at the hit's texture coordinates and applies it to a colour by its texture model (OpenGL's
// texture environment): modulate multiplies. An id that names no texture leaves the colour alone.
OXBEAM_API Oxvoid oxsApplyTexture(const OxState* state, Oxuint textureId, R3& color);
OXBEAM_API Oxvoid oxsApplyTexture(const OxState* state, Oxuint textureId, RGBAFloat& color);
// Texel at (s, t); (0, 0) is the picture's left bottom corner. The state may be null. wrapS, wrapT, filter: OpenGL enumerants. mode: how
// the texel meets what `texel` holds (OX_GL_REPLACE: takes its place).
OXBEAM_API Oxvoid oxsGetTexelByST(const OxState* state, float s, float t, Oxuint textureId, Oxuint wrapS, Oxuint wrapT,
                                  Oxuint filter, Oxuint mode, R3& texel);
// Alpha at the hit; 1 where there is no texture or it has no alpha.
OXBEAM_API float oxsGetTexelAlphaValue(const OxState* state, Oxuint textureId);
// OpenGL enumerant; OX_GL_MODULATE where the id names no texture.
OXBEAM_API Oxuint oxsGetTextureModel(const OxState* state, Oxuint textureId);

// ---- Lights

// The frame's lights.
OXBEAM_API Oxvoid oxsGlobalLights(const std::vector<OxLight*>*& lights);
// The same as an array of handles; returns their number. A handle is an OxLight* converted to void*.
OXBEAM_API Oxuint oxsGlobalLights(Oxvoid*** lights);
// Adds a light to the frame's, for objects that bring lights of their own. Only while a frame is being prepared
// (NewFrame), before any surface reads the list; holds for that frame.
OXBEAM_API Oxvoid oxsAddLight(OxLight* light);
// Evaluates a light at a point. True: `shadow` holds the ray from the point to the light and, as its colour, the
// intensity that arrives; false: ray and colour are of no meaning. `state` is handed to the light (usually the shadow
// state again), `shader` the calling surface shader.
OX_SERVICE bool oxsIlluminate(Oxvoid* light, OxState* shadow, R3& point, OxState* state, Oxvoid* shader) {
    // Straight into the shadow state: where the light does not reach, nobody looks at what stands there.
    Ray& ray = shadow->ray;
    ray.direction = zeroVector;  // of lights that set none, as the distance and the intensity
    ray.maxDist = RayInfinity;
    shadow->color = Black;
    if (!static_cast<OxLight*>(light)->Illuminate(point, ray.direction, ray.maxDist, shadow->color, state, shader))
        return false;
    ray.origin = point;
    return true;
}

// ---- The frame

// The active camera, or null.
OXBEAM_API OxCamera* oxGetCamera();
// Pass that the calling thread renders; 0 for the first pass of a frame.
OXBEAM_API Oxuint oxGetSampleIndex();
