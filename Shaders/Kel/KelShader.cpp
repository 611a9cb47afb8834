#include "KelShader.h"

#include "FastKel.h"
#include "Oxbeam/OxFunctions.h"

void KelShader::Init() {
    m_wireframe = 0;
    m_thickness = -1.0f;
    m_glossySurfaces = 0;
    m_fuzzyLights = 0;
    m_softShadows = 0;
    m_receiveShadow = 0;
    m_numFuzzySamples = 1;
}

void KelShader::Register() {
    oxsDeclareMember(this, "thickness", m_thickness);
    oxsDeclareMember(this, "wireframe", m_wireframe);
    oxsDeclareMember(this, "glossySurfaces", m_glossySurfaces);
    oxsDeclareMember(this, "fuzzyLights", m_fuzzyLights);
    oxsDeclareMember(this, "receiveShadow", m_receiveShadow);
    oxsDeclareMember(this, "softShadows", m_softShadows);
    oxsDeclareMember(this, "numFuzzySamples", m_numFuzzySamples);
}

bool KelShader::receiveShadow(OxState* state) { return m_receiveShadow || kelReceiveShadow(state); }

bool KelShader::receiveShadow() { return m_receiveShadow || kelReceiveShadow(static_cast<KelRenderingObject*>(m_ro)); }

bool KelShader::wireframe(OxState* state) { return m_wireframe || kelWireframe(state); }

bool KelShader::glossySurfaces(OxState* state) { return m_glossySurfaces || kelGlossySurfaces(state); }

bool KelShader::fuzzyLights(OxState* state) { return m_fuzzyLights || kelFuzzyLights(state); }

bool KelShader::softShadows(OxState* state) { return m_softShadows || kelSoftShadows(state); }

int KelShader::numFuzzySamples(OxState* state) {
    const int global = kelNumFuzzySamples(state);
    return m_numFuzzySamples > global ? m_numFuzzySamples : global;
}

// Edge length times barycentric weight is not the distance to the edge, but it is cheap and thins out the border
// where triangles are small.
bool KelShader::hitBorder(OxState* state) {
    R2 uv;
    oxsGetUV(state, uv);
    const float w = 1.0f - uv.x - uv.y;
    R3 a, b, c;
    oxGetTriangleVertices(oxGetObject(oxGetInstance(oxsInstanceID(state))), oxsTriangleID(state), &a, &b, &c);
    const float ab = Length(a - b), ac = Length(a - c), bc = Length(b - c);
    const bool relative = m_thickness < 0.0f;
    const bool inHole = ab * uv.x > (relative ? 0.01f * ab : m_thickness) &&
                        ac * w > (relative ? 0.01f * ac : m_thickness) &&
                        bc * uv.y > (relative ? 0.01f * bc : m_thickness);
    return !inHole;
}

bool KelShader::shadeHole(OxState* state) {
    if (!wireframe(state) || hitBorder(state)) return false;
    oxsReturnColor(state, kelGetTransparentIntensity(state, 1.0f));
    return true;
}

bool KelShader::mayHaveHoles() const {
    const auto* settings = dynamic_cast<const KelRenderingObject*>(m_ro);
    return m_wireframe || !settings || settings->wireframe();
}

void KelShader::expectShadowRays(const std::type_info& type) const {
    const auto* settings = dynamic_cast<const KelRenderingObject*>(m_ro);
    if (!settings || !(m_receiveShadow || settings->receiveShadow())) return;
    if (m_softShadows || m_fuzzyLights || settings->softShadows() || settings->fuzzyLights()) return;
    const int offset = static_cast<int>(settings->getRayEpsilon());  // as kelShadowRay has it
    oxsExpectShadowRays(this, type, static_cast<float>(offset));
}

bool KelShader::lightPasses(OxState* shadow, OxLight* light) {
    return lightPasses(shadow, light, softShadows(shadow) && !fuzzyLights(shadow));
}

bool KelShader::lightPasses(OxState* shadow, OxLight* light, bool soft) {
    bool blocks = false;
    const auto shoot = [&](OxState* ray) { return oxsShootShadowRay(ray, blocks); };
    const bool hit = soft ? kelShootJittered(shadow, light, shoot) : shoot(shadow);
    return !hit || (!blocks && oxsGetShader(shadow)->LightTransparency(shadow));
}

bool KelShader::checkWireFrameLightTransparency(OxState* state, bool& transparent) {
    transparent = false;
    if (!wireframe(state) || hitBorder(state)) return false;
    KelRayDepthGuard guard(*static_cast<KelRay*>(oxsGetPrivatePtr(state)));
    R3 color;
    if (kelLightTransparency(state, color, 1.0f)) {
        oxsReturnColor(state, color);
        transparent = true;
    }
    return true;
}

bool KelShader::LightTransparency(OxState* state) {
    bool transparent;
    checkWireFrameLightTransparency(state, transparent);
    return transparent;
}
