#include "KelSpotLight.h"

#include "KelShader.h"
#include "Oxbeam/OxExport.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Kel</package>"
    "<id>KelSpotLight</id>"
    "<longname>Kel based spot light source</longname>"
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
    "<alias>ed</alias>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "</parameter>"
    "<parameter>"
    "<id>direction</id>"
    "<longname>Direction</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><direction/></interpretation>"
    "<default>0 -1 0</default>"
    "</parameter>"
    "<parameter>"
    "<id>atten0</id>"
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
    "<parameter>"
    "<id>minAngle</id>"
    "<longname>MinAngle</longname>"
    "<type>float</type>"
    "<default>0</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1.570796327</upperbound>"
    "</parameter>"
    "<parameter>"
    "<id>maxAngle</id>"
    "<longname>MaxAngle</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1.570796327</upperbound>"
    "</parameter>"
    " </ShaderInfo>";

KelSpotLight::KelSpotLight() { KelSpotLight::Init(); }

char* KelSpotLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

// The type is the host's constructor's business.
void KelSpotLight::Init() {
    OxSpotLight::Init();
    KelLight::Init();
    fuzzyness = 0.1f;
}

void KelSpotLight::Register() {
    Init();
    oxsDeclareMember(this, "atten0", atten0);
    oxsDeclareMember(this, "atten1", atten1);
    oxsDeclareMember(this, "atten2", atten2);
    oxsDeclareMember(this, "position", position);
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "direction", direction);
    oxsDeclareMember(this, "minAngle", minAngle);
    oxsDeclareMember(this, "maxAngle", maxAngle);
    oxsDeclareMember(this, "angle", maxAngle);
    oxsDeclareMember(this, "castShadow", castShadow);
    oxsDeclareMember(this, "fuzzyness", fuzzyness);
}

void KelSpotLight::NewFrame() {
    direction = Normalize(direction);
    setFrameAcross(direction, fuzzyness);
    updateCone();
}

// The cone is tested with the jittered direction: points near its edge flicker between lit and unlit from sample to
// sample, which softens the edge.
bool KelSpotLight::Illuminate(const R3& P, R3& L, float& dist, R3& I, OxState* state, void* shader) {
    const R3 D = position - P;
    const float d2 = Dot(D, D);
    dist = std::sqrt(d2);
    L = D / dist;
    if (static_cast<KelShader*>(shader)->fuzzyLights(state)) deflect(state, L);
    I = Black;
    const float c = -Dot(direction, L);
    if (cos_maxAngle > c) return false;
    const float a = (dist * atten1 + atten0) + d2 * atten2;
    I = intensity * (1.0f / a);
    if (c > cos_minAngle) return true;
    I *= (c - cos_maxAngle) * cos_factor;
    return true;
}

bool KelSpotLight::deflect(OxState* state, R3& L) { return deflectDirection(state, L); }

bool KelSpotLight::deflectRay(OxState* state) { return deflectRayDirection(state); }

OX_EXPORT_OBJECT(KelSpotLight, KelSpotLight)
