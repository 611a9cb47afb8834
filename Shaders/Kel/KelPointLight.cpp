#include "KelPointLight.h"

#include "Kel.h"
#include "KelShader.h"
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Kel</package>"
    "<id>KelPointLight</id>"
    "<longname>Kel based point light shader</longname>"
    "<parameter>"
    "<id>position</id>"
    "<longname>Position</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><position/></interpretation>"
    "<default>0 0 0</default>"
    "<help>The position of the light source</help>"
    "</parameter>"
    "<parameter>"
    "<id>intensity</id>"
    "<alias>emission</alias>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "</parameter>"
    "<parameter>"
    "<id>atten0</id>"
    "<id>atten</id>"
    "<longname>Constant Attenuation</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "</parameter>"
    "<parameter>"
    "<id>atten1</id>"
    "<longname>Linear Attenuation</longname>"
    "<type>float</type>"
    "<default>0</default>"
    "</parameter>"
    "<parameter>"
    "<id>atten2</id>"
    "<longname>Quadratic Attenuation</longname>"
    "<type>float</type>"
    "<default>0</default>"
    "</parameter>"
    " </ShaderInfo>";

KelPointLight::KelPointLight() { KelPointLight::Init(); }

char* KelPointLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelPointLight::Init() {
    OxPointLight::Init();
    KelLight::Init();
    fuzzyness = 0.1f;
}

void KelPointLight::Register() {
    Init();
    oxsDeclareMember(this, "atten0", atten0);
    oxsDeclareMember(this, "atten1", atten1);
    oxsDeclareMember(this, "atten2", atten2);
    oxsDeclareMember(this, "atten", atten0, 3 * sizeof(float));
    oxsDeclareMember(this, "position", position);
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "emission", intensity);
    oxsDeclareMember(this, "castShadow", castShadow);
}

// 0.001 keeps the intensity finite when all attenuation is switched off; the linear term costs a square root that
// most lights do not need.
bool KelPointLight::Illuminate(const R3& P, R3& L, float& dist, R3& I, OxState* state, void* shader) {
    R3 Q = position;
    if (static_cast<KelShader*>(shader)->fuzzyLights(state)) deflect(state, Q);
    const R3 D = Q - P;
    const float d2 = Dot(D, D);
    float a = 0.001f + atten0;
    if (atten1 >= 0.0001f) a += atten1 * std::sqrt(d2);
    a += atten2 * d2;
    dist = std::sqrt(d2);
    L = D / dist;
    I = intensity * (1.0f / a);
    return true;
}

bool KelPointLight::deflect(OxState* state, R3& p) {
    OxSampler* sampler = static_cast<KelRay*>(oxsGetPrivatePtr(state))->sampler;
    if (!sampler) return false;
    const float r1 = sampler->nextSample(0) - 0.5f;
    const float r2 = sampler->nextSample(1) - 0.5f;
    const float r3 = sampler->nextSample(2) - 0.5f;
    p += fuzzyness * ((r1 * u + r2 * v) + r3 * w);
    return true;
}

bool KelPointLight::deflectRay(OxState* state) {
    R3 Q = position;
    const bool ok = deflect(state, Q);
    R3 O;
    oxsGetRayOrigin(state, O);
    oxsSetRayDirection(state, Q - O);
    return ok;
}

OX_EXPORT_OBJECT(KelPointLight, KelPointLight)
