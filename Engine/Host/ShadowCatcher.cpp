#include "Engine/Host/ShadowCatcher.h"

#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxRenderingObject.h"

#include <algorithm>
#include <vector>

namespace oxbeam {

static const char ShadowCatcherInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Oxbeam</package>"
    "<id>OxShadowCatcher</id>"
    "<longname>Shadow catcher</longname>"
    "<parameter>"
    "<id>shadowIntensity</id>"
    "<longname>Shadow Intensity</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "<bounds><min>0</min><max>1</max></bounds>"
    "<help>How dark the shadows are: 1, as dark as the light that is missing makes them; 0, not at all.</help>"
    "</parameter>"
    " </ShaderInfo>";

char* ShadowCatcher::GetShaderInfo() { return const_cast<char*>(ShadowCatcherInfo); }

void ShadowCatcher::Register() {
    Init();
    oxsDeclareMember(this, "shadowIntensity", shadowIntensity);
}

// Lights ask the surface that they light for its settings, and know the surfaces of their own package: another surface of
// the scene speaks for this one. Where there is none, nothing throws a shadow either.
void ShadowCatcher::NewFrame() {
    const auto& shaders = OxContext::current->shaders;
    const auto other = std::find_if(shaders.begin(), shaders.end(),
                                    [](const OxShader* s) { return !dynamic_cast<const ShadowCatcher*>(s); });
    m_standIn = other != shaders.end() ? *other : nullptr;
}

Oxvoid ShadowCatcher::Shade(OxState* state) {
    R3 point, normal = state->hit.normal;
    oxsGetHitPosition(state, point);
    oxsNormalizeFaceForward(state, normal);
    OxState beyond;
    oxsInitState(state, &beyond);
    beyond.ray = state->ray;
    oxsShadeEnvironment(&beyond);
    const R3 share = White - shadowIntensity * (White - litShare(state, point, normal));
    oxsReturnColor(state, beyond.color * share);
}

// The light passes and goes on to what lies beyond. A step too small to leave the point would be taken for ever.
bool ShadowCatcher::LightTransparency(OxState* state) {
    const float distance = oxsGetHitDistance(state), epsilon = m_ro->m_rayEpsilon;
    if (!(distance > 0.0f)) return true;
    R3 point;
    oxsGetHitPosition(state, point);
    oxsSetRayOrigin(state, point + epsilon * state->ray.direction);
    oxsSetRayMaxDistance(state, oxsGetRayMaxDistance(state) - distance - epsilon);
    return !oxsShootRay(state) || oxsGetShader(state)->LightTransparency(state);
}

// Lights that are each a small part of all take turns: a pass asks every so-many-th of them for shadows, which speak for
// the others. A photograph's lights are many, and most of a picture is ground.
class ShadowCatcher::Turn {
public:
    Turn(std::size_t lights, const R3& whole)
        : m_stride(static_cast<unsigned>((lights + PerPass - 1) / PerPass)), m_phase(oxGetSampleIndex() % m_stride),
          m_large(Intensity(whole) / PerPass) {}

    // What a light of a share counts for; 0: it is not its turn.
    float weight(std::size_t light, const R3& share) const {
        if (Intensity(share) > m_large) return 1.0f;
        return light % m_stride == m_phase ? static_cast<float>(m_stride) : 0.0f;
    }

private:
    static constexpr unsigned PerPass = 8;
    unsigned m_stride, m_phase;
    float m_large;
};

// A light's ray from a point of the ground; false where it does not come from above.
bool ShadowCatcher::aim(OxLight* light, OxState* state, OxState& shadow, const R3& point, const R3& normal,
                        R3& arriving) const {
    R3 from = point;
    oxsInitState(state, &shadow);
    if (!oxsIlluminate(light, &shadow, from, &shadow, m_standIn)) return false;
    const R3 L = Normalize(shadow.ray.direction);
    const float cosine = Dot(L, normal), epsilon = m_ro->m_rayEpsilon;
    arriving = cosine * shadow.color;
    oxsSetRay(&shadow, point + epsilon * normal, L, oxsGetRayMaxDistance(&shadow) - 2.0f * epsilon);
    oxsSetRayVisibility(&shadow, RAY_SHADOW);
    return cosine > 0.0f;
}

// Each light counts by its cosine, like on a matt surface. Where none reaches the point nothing can be missing.
R3 ShadowCatcher::litShare(OxState* state, const R3& point, const R3& normal) const {
    const std::vector<OxLight*>& lights = OxContext::current->lights;
    if (!m_standIn || lights.empty()) return White;
    R3 whole, missing, arriving;
    for (OxLight* light : lights)
        if (OxState shadow; aim(light, state, shadow, point, normal, arriving)) whole += arriving;
    const Turn turn(lights.size(), whole);
    for (std::size_t i = 0; i < lights.size(); ++i) {
        OxState shadow;
        if (!aim(lights[i], state, shadow, point, normal, arriving)) continue;
        const float weight = turn.weight(i, arriving);
        bool blocks;
        if (weight == 0.0f || !oxsShootShadowRay(&shadow, blocks)) continue;
        const float cosine = Dot(shadow.ray.direction, normal);
        const bool through = !blocks && oxsGetShader(&shadow)->LightTransparency(&shadow);
        missing += weight * (through ? arriving - cosine * shadow.color : arriving);
    }
    R3 share = White;
    for (unsigned i = 0; i < 3; ++i)
        if (whole[i] > 0.0f) share[i] = std::clamp(1.0f - missing[i] / whole[i], 0.0f, 1.0f);
    return share;
}

}  // namespace oxbeam
