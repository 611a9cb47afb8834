#include "Engine/Host/ShadowCatcher.h"

#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxRenderingObject.h"

#include <algorithm>

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

bool ShadowCatcher::LightTransparency(OxState*) { return true; }

// Each light counts by its cosine, like on a matt surface. Where none reaches the point nothing can be missing.
R3 ShadowCatcher::litShare(OxState* state, const R3& point, const R3& normal) const {
    const float epsilon = m_ro->m_rayEpsilon;
    R3 from = point, without, with;
    if (!m_standIn) return White;
    for (OxLight* light : OxContext::current->lights) {
        OxState shadow;
        oxsInitState(state, &shadow);
        if (!oxsIlluminate(light, &shadow, from, &shadow, m_standIn)) continue;
        const R3 L = Normalize(shadow.ray.direction);
        const float cosine = Dot(L, normal);
        if (!(cosine > 0.0f)) continue;
        without += cosine * shadow.color;
        oxsSetRay(&shadow, point + epsilon * normal, L, oxsGetRayMaxDistance(&shadow) - 2.0f * epsilon);
        oxsSetRayVisibility(&shadow, RAY_SHADOW);
        if (!oxsShootRay(&shadow) || oxsGetShader(&shadow)->LightTransparency(&shadow)) with += cosine * shadow.color;
    }
    R3 share = White;
    for (unsigned i = 0; i < 3; ++i)
        if (without[i] > 0.0f) share[i] = std::clamp(with[i] / without[i], 0.0f, 1.0f);
    return share;
}

}  // namespace oxbeam
