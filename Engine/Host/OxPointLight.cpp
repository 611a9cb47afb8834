#include "Oxbeam/OxPointLight.h"

#include "Engine/Host/HostObjects.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Oxbeam</package>"
    "<id>OxPointLight</id>"
    "<longname>Point light</longname>"
    "<parameter>"
    "<id>position</id>"
    "<longname>Position</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><position/></interpretation>"
    "<default>0 0 0</default>"
    "<help>Where the light is, in world space.</help>"
    "</parameter>"
    "<parameter>"
    "<id>intensity</id>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>Colour and strength of the light; divided by the attenuation.</help>"
    "</parameter>"
    "<parameter>"
    "<id>atten0</id>"
    "<longname>Constant attenuation</longname>"
    "<type>float</type>"
    "<default>0.000000001</default>"
    "<help>Attenuation is atten0 + atten1 * distance + atten2 * distance * distance.</help>"
    "</parameter>"
    "<parameter>"
    "<id>atten1</id>"
    "<longname>Linear attenuation</longname>"
    "<type>float</type>"
    "<default>0</default>"
    "</parameter>"
    "<parameter>"
    "<id>atten2</id>"
    "<longname>Quadratic attenuation</longname>"
    "<type>float</type>"
    "<default>1</default>"
    "</parameter>"
    " </ShaderInfo>";

OxPointLight::OxPointLight() { OxPointLight::Init(); }

char* OxPointLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void OxPointLight::Init() {
    type = OX_POINT_LIGHT;
    position = zeroVector;
    intensity = White;
    atten0 = 1e-9f;
    atten1 = 0.0f;
    atten2 = 1.0f;
}

void OxPointLight::Register() {
    Init();
    oxsDeclareMember(this, "atten0", atten0);
    oxsDeclareMember(this, "atten1", atten1);
    oxsDeclareMember(this, "atten2", atten2);
    oxsDeclareMember(this, "position", position);
    oxsDeclareMember(this, "intensity", intensity);
}

void OxPointLight::NewFrame() {}

bool OxPointLight::Illuminate(const R3& P, R3& L, float& dist, R3& I, OxState*, void*) {
    const R3 D = position - P;
    const float d2 = Dot(D, D);
    dist = std::sqrt(d2);
    L = D / dist;
    I = intensity * (1.0f / (atten0 + atten1 * dist + atten2 * d2));
    return true;
}

void OxPointLight::SamplePosition(R3& p, float, float) const { p = position; }

void OxPointLight::SampleDirection(R3& d, float s, float t) const { d = oxbeam::uniformSphere(s, t); }

void OxPointLight::GetIWE(const R3&, const R3&, R3& I) const { I = intensity; }

R3 OxPointLight::GetNormal(const R3&) const { return R3(0.0f, 0.0f, 1.0f); }

void OxPointLight::AsPointLight(R3& p, R3& I, float& radius) const {
    p = position;
    I = intensity;
    radius = 0.0f;
}

void OxPointLight::EstimateImportance(float& a, float& b) const { a = b = 1.0f; }
