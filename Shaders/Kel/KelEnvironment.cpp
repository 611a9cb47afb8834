#include "KelEnvironment.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"
#include "Sampling/AngularMap.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>environment</type>"
    "<package>Kel</package>"
    "<id>KelEnvironment</id>"
    "<longname>Spherical Environment Map</longname>"
    "<parameter>"
    "<id>texture</id>"
    "<alias>texture0</alias>"
    "<longname>Environment Map Texture</longname>"
    "<type>int</type>"
    "<interpretation><texture/></interpretation>"
    "<help>The environment map to use. Only maps in mirrored ball (i.e. spherical environment maps) are "
    "supported.</help>"
    "</parameter>"
    "<parameter>"
    "<id>upDirection</id>"
    "<longname>Orientation</longname>"
    "<type>int</type>"
    "<interpretation><enum> "
    "<item><key>0</key><value>x-Axis</value></item>"
    "<item><key>1</key><value>y-Axis</value></item>"
    "<item><key>2</key><value>z-Axis</value></item>"
    "</enum></interpretation>"
    "<default>1</default>"
    "<help>Switch the orientation of the map.</help>"
    "</parameter>"
    "<parameter>"
    "<id>visibleForDirect</id>"
    "<longname>Visible For Primary</longname>"
    "<type>bool</type>"
    "<default>true</default>"
    "<help>Switch the environment texture on / off for primary rays. If switched off, the background color will be "
    "visible instead.</help>"
    "</parameter>"
    "<parameter>"
    "<id>visibleForReflections</id>"
    "<longname>Visible for reflected rays</longname>"
    "<type>bool</type>"
    "<default>true</default>"
    "<help>Makes Env Map visible for reflected rays. If switched off, the background color will be visible "
    "instead.</help>"
    "</parameter>"
    "<parameter>"
    "<id>visibleForRefractions</id>"
    "<longname>Visible for refracted rays</longname>"
    "<type>bool</type>"
    "<default>true</default>"
    "<help>Makes Env Map visible for refracted rays. If switched off, the background color will be visible "
    "instead.</help>"
    "</parameter>"
    "<parameter>"
    "<id>visibleForTransparency</id>"
    "<longname>Visible for transparent rays</longname>"
    "<type>bool</type>"
    "<default>true</default>"
    "<help>Makes Environment Map visible for transparency rays. If switched off, the background color will be visible "
    "through the transparent object</help>"
    "</parameter>"
    "<parameter>"
    "<id>color</id>"
    "<alias>backgroundColor</alias>"
    "<alias>BackgroundColor</alias>"
    "<longname>Background Color</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>0 0 0</default>"
    "<lowerbound>0 0 0</lowerbound>"
    "<upperbound>1 1 1</upperbound>"
    "<help>If the texture is switched off for some rays (i.e. Visible for Direct Rays, Visible in Reflections or "
    "Visible in Refractions is turned off), this color will appear as a substitute color for the texture. If no "
    "texture "
    "is found or the file is invalid it will also be used.</help>"
    "</parameter>"
    "<parameter>"
    "<id>scale</id>"
    "<longname>Texture Intensity Multiplier</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "<lowerbound>0.0001</lowerbound>"
    "<upperbound>100</upperbound>"
    "<logarithmic><base>10</base><intermediate>true</intermediate></logarithmic>"
    "<help>scales the intensity of the environment texture. Use it to adjust the brightness when a hdri texture is too "
    "dark or too bright.</help>"
    "</parameter>"
    " </ShaderInfo>";

KelEnvironmentShader::KelEnvironmentShader() { updateIndex(); }

char* KelEnvironmentShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

// Init is the base's: this shader's own defaults come from its constructor.
void KelEnvironmentShader::Register() {
    KelShader::Register();
    Init();
    oxsDeclareMember(this, "texture", textureid);
    oxsDeclareMember(this, "upDirection", upDirection);
    oxsDeclareMember(this, "visibleForDirect", visiblePrimary);
    oxsDeclareMember(this, "visibleForReflections", visibleReflections);
    oxsDeclareMember(this, "visibleForRefractions", visibleRefractions);
    oxsDeclareMember(this, "visibleForTransparency", visibleTransparent);
    oxsDeclareMember(this, "color", color);
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "scale", scale);
    oxsDeclareMember(this, "shadowPlaneOrigin", shadowPlaneOrigin);
    oxsDeclareMember(this, "shadowPlaneNormal", shadowPlaneNormal);
    oxsDeclareMember(this, "shadowIntensity", shadowIntensity);
    oxsDeclareMember(this, "numEnvLights", m_envLights);
}

void KelEnvironmentShader::updateIndex() {
    const AngularMapFrame frame = AngularMapFrame::of(upDirection);
    for (int i = 0; i < 3; ++i) {
        vIndex[i] = frame.axis[i];
        sIndex[i] = frame.sign[i];
    }
}

void KelEnvironmentShader::NewFrame() {
    updateIndex();
    shadowPlaneNormal = Normalize(shadowPlaneNormal);
    checkEnvLighting();
    visibleMask = (visiblePrimary ? RAY_PRIMARY : 0u) | (visibleReflections ? RAY_REFLECTION : 0u) |
                  (visibleRefractions ? RAY_REFRACTION : 0u) | (visibleTransparent ? RAY_TRANSPARENCY : 0u);
}

void KelEnvironmentShader::checkEnvLighting() {
    if (m_envLights < 0 || textureid == Ox_NOTEXTURE) return;
    if (!m_envLightShader) m_envLightShader = std::make_unique<KelEnvMapLight>();
    if (m_envLightShader->textureId() != textureid) m_envLightShader->setTextureId(textureid);
    m_envLightShader->setNumLights(m_envLights);
    m_envLightShader->intensity = intensity;
    m_envLightShader->setUpDirection(upDirection);
    m_envLightShader->NewFrame();
}

Oxvoid KelEnvironmentShader::Shade(OxState* state) {
    oxsReturnColor(state, color);
    if (oxsTriangleID(state) == TRI_MARKED) return oxsReturnColor(state, Red);
    if (textureid < 0) return;
    R3 D, texel;
    oxsGetRayDirection(state, D);
    if ((visibleMask & oxsGetRayVisibility(state)) == 0) return;
    const float a = sIndex[0] * D[vIndex[0]], b = sIndex[1] * D[vIndex[1]], c = sIndex[2] * D[vIndex[2]];
    const float r = std::acos(c) * 0.31831723f / std::sqrt(a * a + b * b);
    const float s = (a * r + 1.0f) * 0.5f, t = (b * r + 1.0f) * 0.5f;
    oxsGetTexelByST(state, s, t, static_cast<Oxuint>(textureid), OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR,
                    OX_GL_REPLACE, texel);
    const R3 seen = texel * scale;
    oxsReturnColor(state, seen);
    if (m_receiveShadow != 0) oxsReturnColor(state, shadowed(state, seen));
}

Oxvoid KelEnvironmentShader::Shade4(OxState4& state4) {
    if (textureid < 0) return;
    const ISSEVec4& D = state4.ray4->direction;
    const sse_t across = _mm_rsqrt_ps(_mm_add_ps(_mm_mul_ps(D.t[0], D.t[0]), _mm_mul_ps(D.t[1], D.t[1])));
    for (unsigned i = 0; i < 4; ++i) {
        const R3 d = D.lane(i);
        const float r = 0.31831723f * std::acos(d.z) * across[i];
        R3 texel;
        oxsGetTexelByST(nullptr, (d.x * r + 1.0f) * 0.5f, (d.y * r + 1.0f) * 0.5f, static_cast<Oxuint>(textureid),
                        OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR, OX_GL_REPLACE, texel);
        state4.colors.setLane(i, texel * scale);
    }
}

// The map's colour where the ray meets the shadow plane, darkened by what stands between that point and the lights.
R3 KelEnvironmentShader::shadowed(OxState* state, const R3& seen) {
    const R3& N = shadowPlaneNormal;
    R3 O, D;
    oxsGetRayOrigin(state, O);
    oxsGetRayDirection(state, D);
    D = Normalize(D);
    const float t = Dot(shadowPlaneOrigin - O, N) / Dot(D, N);
    if (t < 0.0f) return seen;
    const R3 X = O + t * D;
    OxState shadow;
    oxsInitState(state, &shadow);
    oxsSetPrivatePtr(&shadow, oxsGetPrivatePtr(state));
    oxsSetRayOrigin(state, X);

    PlaneLight sum;
    const std::vector<OxLight*>* lights = nullptr;
    oxsGlobalLights(lights);
    for (OxLight* light : *lights) addPlaneLight(state, &shadow, X, N, light, sum);
    if (!sum.any || !sum.shadowed) return seen;
    const R3 U = sum.unoccluded - White, S = sum.arriving - White;
    const float k = shadowIntensity / (10.0f * shadowIntensity);
    return seen * ((S * k + U * (1.0f - shadowIntensity)) / U);
}

void KelEnvironmentShader::addPlaneLight(OxState* state, OxState* shadow, const R3& X, const R3& N, OxLight* light,
                                         PlaneLight& sum) {
    kelInitState(state, shadow);
    R3 point = X, L, E;
    if (!oxsIlluminate(light, shadow, point, shadow, static_cast<KelShader*>(this))) return;
    oxsGetRayDirection(shadow, L);
    if (!(Dot(L, N) > 0.0f)) return;
    const float eps = static_cast<float>(kelRayEpsilon(state));
    oxsSetRay(shadow, X + eps * L, L, oxsGetRayMaxDistance(shadow) - 2.0f * eps);
    oxsSetRayVisibility(shadow, RAY_SHADOW);
    oxsSetRayOrigin(shadow, X + eps * N);
    sum.any = true;
    oxsGetColor(shadow, E);
    const float cosTheta = Dot(Normalize(L), N);
    sum.unoccluded += E * cosTheta;
    if (!kelShootShadowRay(shadow, light, this)) {
        sum.arriving += E * cosTheta;
        return;
    }
    sum.shadowed = true;
    if (!oxsGetShader(shadow)->LightTransparency(shadow)) return;
    oxsGetColor(shadow, E);
    sum.arriving += E * cosTheta;
}

OX_EXPORT_OBJECT(KelEnvironment, KelEnvironmentShader)
