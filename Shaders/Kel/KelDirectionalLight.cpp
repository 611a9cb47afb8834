#include "KelDirectionalLight.h"

#include "KelShader.h"
#include "Oxbeam/OxExport.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Kel</package>"
    "<id>KelDirectionalLight</id>"
    "<longname>Kel based directional light</longname>"
    "<parameter>"
    "<id>direction</id>"
    "<longname>Light Direction</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><direction/></interpretation>"
    "<default>0 0 1</default>"
    "</parameter>"
    "<parameter>"
    "<id>intensity</id>"
    "<alias>radiance</alias>"
    "<alias>emission</alias>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "</parameter>"
    " </ShaderInfo>";

KelDirectionalLight::KelDirectionalLight() { KelDirectionalLight::Init(); }

char* KelDirectionalLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelDirectionalLight::Init() {
    OxDirectionalLight::Init();
    KelLight::Init();
    fuzzyness = 0.1f;
}

void KelDirectionalLight::Register() {
    Init();
    oxsDeclareMember(this, "direction", direction);
    oxsDeclareMember(this, "radiance", intensity);
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "emission", intensity);
    oxsDeclareMember(this, "castShadow", castShadow);
    oxsDeclareMember(this, "fuzzyness", fuzzyness);
}

void KelDirectionalLight::NewFrame() {
    direction = Normalize(direction);
    setFrameAcross(direction, fuzzyness);
}

bool KelDirectionalLight::Illuminate(const R3&, R3& L, float& dist, R3& I, OxState* state, void* shader) {
    L = -direction;
    if (static_cast<KelShader*>(shader)->fuzzyLights(state)) deflect(state, L);
    I = intensity;
    dist = 1e20f;
    return true;
}

bool KelDirectionalLight::Illuminate4(const ISSEVec4&, ISSEVec4& L, sse_t& dist, ISSEVec4& I, OxState4&, void*) {
    L = ISSEVec4(-direction);
    I = ISSEVec4(intensity);
    dist = _mm_set1_ps(1e20f);
    return true;
}

bool KelDirectionalLight::deflect(OxState* state, R3& L) { return deflectDirection(state, L); }

bool KelDirectionalLight::deflectRay(OxState* state) { return deflectRayDirection(state); }

OX_EXPORT_OBJECT(KelDirectionalLight, KelDirectionalLight)
