// The ray services, inlined into the package's shaders; KelFunctions.cpp exports a copy. What each does is said in
// KelFunctions.h.
#pragma once

#include "Kel.h"
#include "KelFunctions.h"
#include "KelLight.h"
#include "KelRenderingObject.h"
#include "KelShader.h"
#include "Oxbeam/FastOxS4.h"
#include "Oxbeam/OxFunctions.h"
#include "Sampling/Frame.h"
#include "Sampling/PowerCosine.h"

#include <atomic>
#include <cstdint>
#include <limits>

// What the standard assertion calls where it fails; its header hides it from release builds.
extern "C" [[noreturn]] void __assert_fail(  // NOLINT(bugprone-reserved-identifier)
    const char* expression, const char* file, unsigned line, const char* function) noexcept;

// A state without a rendering object is a programming error. The check must not vanish from release builds, where
// the standard macro does, so it calls what that macro calls.
inline KelRenderingObject* kelRequireRo(OxState* state, unsigned line, const char* function) {
    if (!state->m_ro) [[unlikely]]
        __assert_fail("ro", "FastKel.h", line, function);
    return static_cast<KelRenderingObject*>(state->m_ro);
}

KEL_SERVICE int kelNumFuzzySamples(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->getNumFuzzySamples();
}

KEL_SERVICE int kelRayEpsilon(OxState* state) {
    return static_cast<int>(kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->getRayEpsilon());
}

KEL_SERVICE int kelRecursionLimit(OxState* state) {
    return static_cast<int>(kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->getRecursionLimit());
}

KEL_SERVICE bool kelFuzzyLights(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->fuzzyLights();
}

KEL_SERVICE bool kelGlossySurfaces(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->glossySurfaces();
}

KEL_SERVICE bool kelReceiveShadow(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->receiveShadow();
}

KEL_SERVICE bool kelReceiveShadow(KelRenderingObject* ro) { return ro->receiveShadow(); }

KEL_SERVICE bool kelWireframe(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->wireframe();
}

KEL_SERVICE bool kelSoftShadows(OxState* state) {
    return kelRequireRo(state, __LINE__, __PRETTY_FUNCTION__)->softShadows();
}

inline KelRay& kelRecord(OxState* state) { return *static_cast<KelRay*>(oxsGetPrivatePtr(state)); }

// ---- Secondary rays

KEL_SERVICE Oxvoid kelInitState(OxState* state, OxState* ref) {
    ref->scene = state->scene;
    ref->intersector = state->intersector;
    ref->m_ro = state->m_ro;
    ref->ray.minHitDist = static_cast<KelRenderingObject*>(state->m_ro)->getRayEpsilon();
    ref->ray.depth = state->ray.depth + 1;
    ref->ray.privatePtr = state->ray.privatePtr;
    ref->ray.clippingMask = state->ray.clippingMask;
}

KEL_SERVICE bool kelRefract(R3& D, const R3& I, const R3& N, float b1, float b2) {
    const float IdotN = Dot(I, N);
    const float k = 1.0f - (b1 * b1) / (b2 * b2) * (1.0f - IdotN * IdotN);
    if (0.0f > k) return false;
    const float b1b2 = b1 / b2;
    D = b1b2 * I - (std::sqrt(k) + b1b2 * IdotN) * N;
    return true;
}

KEL_SERVICE float kelGetHitDistance(OxState* state) {
    R3 direction;
    oxsGetRayDirection(state, direction);
    return oxsGetHitDistance(state) / Length(direction);
}

KEL_SERVICE Oxvoid kelDoTrace(OxState* state) {
    if (oxsShootRay(state))
        oxsGetShader(state)->Shade(state);
    else
        oxsShadeEnvironment(state);
}

KEL_SERVICE Oxvoid kelDoTrace(OxState* state, float& distance) {
    if (oxsShootRay(state)) {
        distance = kelGetHitDistance(state);
        oxsGetShader(state)->Shade(state);
    } else {
        distance = std::numeric_limits<float>::infinity();
        oxsShadeEnvironment(state);
    }
}

KEL_SERVICE R3 kelTrace(OxState* state) {
    kelDoTrace(state);
    R3 color;
    oxsGetColor(state, color);
    return color;
}

KEL_SERVICE R3 kelTrace(OxState* state, float& distance) {
    kelDoTrace(state, distance);
    R3 color;
    oxsGetColor(state, color);
    return color;
}

// The last step of all three kinds of rays: the integer epsilon moves the origin along the new direction.
inline void kelSetSecondaryRay(OxState* state, OxState* ref, const R3& direction, RayKind kind) {
    R3 origin;
    oxsGetRayOrigin(state, origin);
    oxsSetRayVisibility(ref, kind);
    const float eps = static_cast<float>(kelRayEpsilon(state));
    oxsSetRay(ref, origin + eps * direction, direction, std::numeric_limits<float>::infinity());
}

KEL_SERVICE Oxvoid kelReflectionRay(OxState* state, OxState* ref, const R3& n) {
    kelInitState(state, ref);
    R3 direction, newdirection;
    oxsGetRayDirection(state, direction);
    oxsReflect(newdirection, direction, n);
    kelSetSecondaryRay(state, ref, newdirection, RAY_REFLECTION);
}

KEL_SERVICE Oxvoid kelTransparencyRay(OxState* state, OxState* ref) {
    kelInitState(state, ref);
    R3 direction;
    oxsGetRayDirection(state, direction);
    kelSetSecondaryRay(state, ref, direction, RAY_TRANSPARENCY);
}

KEL_SERVICE bool kelRefractionRay(OxState* state, OxState* ref, const R3& n, float n1, float n2, bool switchInside) {
    KelRay& record = kelRecord(ref);  // before kelInitState puts the parent's in its place
    kelInitState(state, ref);
    R3 direction, newdirection;
    oxsGetRayDirection(state, direction);
    const bool refractOK = record.insideFlag == 0 ? kelRefract(newdirection, direction, n, n1, n2)
                                                  : kelRefract(newdirection, direction, n, n2, n1);
    if (switchInside && refractOK) record.insideFlag = record.insideFlag == 0 ? 1 : 0;
    kelSetSecondaryRay(state, ref, newdirection, RAY_REFRACTION);
    return refractOK;
}

// ---- Culling by contribution

// A ray of this depth and weight matters: it is not too deep, and its contribution exceeds the accuracy of its kind.
inline bool kelMatters(OxState* state, Oxuint depth, float weight, float accuracy) {
    return depth < static_cast<Oxuint>(kelRecursionLimit(state)) && weight * kelRecord(state).opacity > accuracy;
}

// A child ray of the state's does. Most do not, and then no record is made for them.
inline bool kelChildMatters(OxState* state, float weight, float accuracy) {
    return kelMatters(state, kelRecord(state).depth + 1, weight, accuracy);
}

// The record of a child ray.
inline KelRay kelChildRecord(OxState* state) {
    KelRay child(kelRecord(state));
    ++child.depth;
    return child;
}

inline R3 kelTraceTransparency(OxState* state, float transparency) {
    KelRay child = kelChildRecord(state);
    OxState transparent;
    kelTransparencyRay(state, &transparent);
    child.opacity = transparency * child.opacity;
    oxsSetPrivatePtr(&transparent, &child);
    return kelTrace(&transparent);
}

// What is culled, as most rays are, costs its callers no call.
KEL_SERVICE R3 kelGetTransparentIntensity(OxState* state, float transparency) {
    if (!kelChildMatters(state, transparency, kelRecord(state).m_ro->m_transparentAccuracy)) return Black;
    return kelTraceTransparency(state, transparency);
}

inline R3 kelTraceReflection(OxState* state, float& distance, float reflectivity, const R3& shdNormal, float exponent,
                             bool traceDistance, int numFuzzySamples) {
    KelRay child = kelChildRecord(state);
    OxState reflect;
    kelReflectionRay(state, &reflect, shdNormal);
    child.opacity = reflectivity * child.opacity;
    oxsSetPrivatePtr(&reflect, &child);
    const auto trace = [&] { return traceDistance ? kelTrace(&reflect, distance) : kelTrace(&reflect); };
    if (!(exponent > 0.0f)) return trace();

    R3 refDirection;
    oxsGetRayDirection(&reflect, refDirection);
    const R3 across = Cross(refDirection, SmallestAxis(refDirection));
    const R3 u = Normalize(across);
    const R3 v = Normalize(Cross(across, refDirection));
    R3 c = Black;
    for (int i = 0; i < numFuzzySamples; ++i) {
        const float r1 = child.getSample(0);
        const float r2 = child.getSample(1);
        const R3 s = PowerCosine(r1, r2, exponent);
        const R3 sampled = s.x * v + s.y * u + s.z * refDirection;
        oxsSetRayDirection(&reflect, Dot(sampled, shdNormal) < 0.0f ? refDirection : sampled);
        c += trace();
    }
    return c * (1.0f / static_cast<float>(numFuzzySamples));
}

KEL_SERVICE R3 kelGetReflectiveIntensity(OxState* state, float& distance, float reflectivity, const R3& shdNormal,
                                         float exponent, bool traceDistance, int numFuzzySamples) {
    distance = 0.0f;
    if (!kelChildMatters(state, reflectivity, kelRecord(state).m_ro->m_reflectiveAccuracy)) return Black;
    return kelTraceReflection(state, distance, reflectivity, shdNormal, exponent, traceDistance, numFuzzySamples);
}

KEL_SERVICE R3 kelGetReflectiveIntensity(OxState* state, float reflectivity, const R3& shdNormal, float shininess,
                                         int numFuzzySamples) {
    float distance;
    return kelGetReflectiveIntensity(state, distance, reflectivity, shdNormal, shininess, false, numFuzzySamples);
}

KEL_SERVICE R3 kelGetReflectiveIntensity(OxState* state, float reflectivity, const R3& shdNormal, float shininess) {
    return kelGetReflectiveIntensity(state, reflectivity, shdNormal, shininess, 1);
}

KEL_SERVICE R3 kelGetRefractiveIntensity(OxState* state, float& distance, float refractivity, const R3& shdNormal,
                                         float n1, float n2, bool switchInside, float exponent, int numFuzzySamples) {
    distance = 0.0f;
    if (!kelChildMatters(state, refractivity, kelRecord(state).m_ro->m_refractiveAccuracy)) return Black;
    KelRay child = kelChildRecord(state);
    OxState refract;
    oxsSetPrivatePtr(&refract, &child);  // kelRefractionRay reads and toggles the inside flag of this record
    if (!kelRefractionRay(state, &refract, shdNormal, n1, n2, switchInside)) return Black;
    child.opacity = refractivity * child.opacity;
    oxsSetPrivatePtr(&refract, &child);
    if (!(exponent > 0.0f)) return kelTrace(&refract, distance);

    // The frame's axes keep their length, the sine of the angle to the normal: the lobe narrows towards the normal.
    R3 refDirection;
    oxsGetRayDirection(&refract, refDirection);
    const R3 u = Cross(refDirection, shdNormal);
    const R3 v = Cross(u, refDirection);
    refDirection = Normalize(refDirection);
    R3 c = Black;
    for (int i = 0; i < numFuzzySamples; ++i) {
        const float r1 = child.getSample(0);
        const float r2 = child.getSample(1);
        const R3 s = PowerCosine(r1, r2, exponent);
        oxsSetRayDirection(&refract, s.x * u + s.y * v + s.z * refDirection);
        c += kelTrace(&refract, distance);
    }
    return c * (1.0f / static_cast<float>(numFuzzySamples));
}

// ---- Shadow rays

// Remembers by class where the KelLight lies in a light. An entry is a single word, so that threads need no lock: the
// address of the class' table of virtual functions in the upper 48 bits, the distance in bytes in the lower 16.
class KelLightOffsets {
public:
    static KelLightOffsets instance;

    KelLight* kelLight(OxLight* light) {
        const auto table = *reinterpret_cast<const std::uintptr_t*>(light);
        const std::uint64_t known = m_known[table / 16 % Size].load(std::memory_order_relaxed);
        if (known >> 16 != table) [[unlikely]]
            return find(light);
        const auto distance = static_cast<std::int16_t>(known);
        return distance ? reinterpret_cast<KelLight*>(reinterpret_cast<char*>(light) + distance) : nullptr;
    }

private:
    static constexpr unsigned Size = 64;

    KelLight* find(OxLight* light);

    std::atomic<std::uint64_t> m_known[Size];
};

// Null where the light is not one of the package's. The same as a dynamic_cast, which costs as much as a short ray: how
// far a light's KelLight lies from its OxLight is the same for all lights of a class, and is found out once.
inline KelLight* kelAsKelLight(OxLight* light) { return light ? KelLightOffsets::instance.kelLight(light) : nullptr; }

KEL_SERVICE bool kelCastShadow(Oxvoid* light) {
    KelLight* kelLight = kelAsKelLight(static_cast<OxLight*>(light));
    return !kelLight || kelLight->CastShadow();
}

KEL_SERVICE bool kelShadowRay(OxState* state, OxState* shadow, const R3& shdNormal, Oxvoid* light, KelShader* shader) {
    kelInitState(state, shadow);
    R3 origin, direction;
    oxsGetRayOrigin(state, origin);
    if (!oxsIlluminate(light, shadow, origin, shadow, shader)) return false;
    oxsGetRayDirection(shadow, direction);
    if (!(Dot(direction, shdNormal) > 0.0f)) return false;
    oxsGetRayOrigin(shadow, origin);
    const float eps = static_cast<float>(kelRayEpsilon(state));
    oxsSetRay(shadow, origin + eps * direction, direction, oxsGetRayMaxDistance(shadow) - 2.0f * eps);
    oxsSetRayVisibility(shadow, RAY_SHADOW);
    return true;
}

KEL_SERVICE sse_t kelShadowRay4(OxState4& state, OxState4& shadow, const ISSEVec4& shdNormal, Oxvoid* light,
                                KelShader* shader) {
    sse_t res = _mm_setzero_ps();
    ISSEVec4 origin, direction;
    oxsGetRayOrigin4(state, origin);
    if (!oxsIlluminate4(light, shadow, origin, shadow, shader)) return res;
    oxsGetRayDirection4(shadow, direction);
    // A fixed epsilon, written straight into the packet: packets do without the rendering object.
    const sse_t eps = _mm_set1_ps(0.001f);
    for (int i = 0; i < 3; ++i)
        shadow.ray4->origin.t[i] = _mm_add_ps(shadow.ray4->origin.t[i], _mm_mul_ps(eps, direction.t[i]));
    for (unsigned i = 0; i < 4; ++i)
        if (Dot(shdNormal.lane(i), direction.lane(i)) > 0.0f) res[i] = 1.0f;
    return res;
}

// Shoots a shadow ray in a way of the caller's, jittered by a light of the package; its direction is afterwards what it
// was.
inline bool kelShootJittered(OxState* state, OxLight* light, const auto& shoot) {
    R3 direction;
    oxsGetRayDirection(state, direction);
    if (KelLight* kelLight = kelAsKelLight(light)) kelLight->deflectRay(state);
    const bool shot = shoot(state);
    oxsSetRayDirection(state, direction);
    return shot;
}

KEL_SERVICE bool kelShootShadowRay(OxState* state, OxLight* light, KelShader* shader) {
    const bool soft = shader->softShadows(state) && !shader->fuzzyLights(state);
    return soft ? kelShootJittered(state, light, oxsShootRay) : oxsShootRay(state);
}

KEL_SERVICE bool kelLightTransparency(OxState* state, R3& color, float alpha, float& distance) {
    const KelRay& record = kelRecord(state);
    color = Black;
    distance = 0.0f;
    if (!kelMatters(state, record.depth, alpha, record.m_ro->m_refractiveAccuracy)) return false;
    R3 position, direction;
    oxsGetHitPosition(state, position);
    oxsGetRayDirection(state, direction);
    const float eps = static_cast<float>(kelRayEpsilon(state));
    oxsSetRayOrigin(state, position + eps * direction);
    oxsSetRayMaxDistance(state, oxsGetRayMaxDistance(state) - oxsGetHitDistance(state) - eps);
    float next = std::numeric_limits<float>::infinity();
    if (oxsShootRay(state)) {
        next = oxsGetHitDistance(state);
        if (!oxsGetShader(state)->LightTransparency(state)) return false;
    }
    distance = next;
    oxsGetColor(state, color);
    return true;
}

KEL_SERVICE bool kelLightTransparency(OxState* state, R3& color, float alpha) {
    float distance;
    return kelLightTransparency(state, color, alpha, distance);
}
