#include "KelLight.h"

#include "FastKel.h"
#include "Kel.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxLight.h"
#include "Sampling/Frame.h"

KelLight::KelLight() { KelLight::Init(); }

bool KelLight::CastShadow() { return castShadow != 0; }

void KelLight::Init() {
    u = R3(1.0f, 0.0f, 0.0f);
    v = R3(0.0f, 1.0f, 0.0f);
    w = R3(0.0f, 0.0f, 1.0f);
    castShadow = 1;
}

int KelLight::samples() { return 1; }

bool KelLight::deflectRay(OxState*) { return false; }

bool KelLight::deflect(OxState*, R3&) { return false; }

void KelLight::setFrameAcross(const R3& d, float extent) {
    u = Cross(SmallestAxis(d), d);
    v = Cross(d, u);
    u = extent * Normalize(u);
    v = extent * Normalize(v);
}

bool KelLight::deflectDirection(OxState* state, R3& direction) const {
    OxSampler* sampler = static_cast<KelRay*>(oxsGetPrivatePtr(state))->sampler;
    if (!sampler) return false;
    const float r1 = sampler->nextSample(0) - 0.5f;
    const float r2 = sampler->nextSample(1) - 0.5f;
    direction = Normalize(direction + (r1 * u + r2 * v));
    return true;
}

bool KelLight::deflectRayDirection(OxState* state) const {
    R3 direction;
    oxsGetRayDirection(state, direction);
    const bool ok = deflectDirection(state, direction);
    oxsSetRayDirection(state, direction);
    return ok;
}

// ---- Finding a KelLight

KelLightOffsets KelLightOffsets::instance;

KelLight* KelLightOffsets::find(OxLight* light) {
    const std::uint64_t table = *reinterpret_cast<const std::uintptr_t*>(light);
    auto* kelLight = dynamic_cast<KelLight*>(light);
    const auto distance = kelLight ? reinterpret_cast<char*>(kelLight) - reinterpret_cast<char*>(light) : 0;
    const bool fits = table >> 48 == 0 && distance == static_cast<std::int16_t>(distance);
    if (fits)
        m_known[table / 16 % Size].store(table << 16 | static_cast<std::uint16_t>(distance), std::memory_order_relaxed);
    return kelLight;
}
