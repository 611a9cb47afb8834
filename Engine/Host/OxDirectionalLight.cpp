#include "Oxbeam/OxDirectionalLight.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Oxbeam</package>"
    "<id>OxDirectionalLight</id>"
    "<longname>Directional light</longname>"
    "<parameter>"
    "<id>direction</id>"
    "<longname>Direction</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><direction/></interpretation>"
    "<default>0 0 1</default>"
    "<help>The way the light travels, of any length.</help>"
    "</parameter>"
    "<parameter>"
    "<id>intensity</id>"
    "<longname>Intensity</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><color/></interpretation>"
    "<default>1 1 1</default>"
    "<help>Colour and strength of the light; the same at every distance.</help>"
    "</parameter>"
    " </ShaderInfo>";

OxDirectionalLight::OxDirectionalLight() { OxDirectionalLight::Init(); }

char* OxDirectionalLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void OxDirectionalLight::Init() {
    type = OX_DIRECTIONAL_LIGHT;
    direction = R3(0.0f, 0.0f, 1.0f);
    intensity = White;
}

void OxDirectionalLight::Register() {
    Init();
    oxsDeclareMember(this, "direction", direction);
    oxsDeclareMember(this, "intensity", intensity);
}

void OxDirectionalLight::NewFrame() { direction = Normalize(direction); }

bool OxDirectionalLight::Illuminate(const R3&, R3& L, float& dist, R3& I, OxState*, void*) {
    L = -direction;
    dist = 1e20f;
    I = intensity;
    return true;
}

void OxDirectionalLight::SampleDirection(R3& d, float, float) const { d = direction; }

void OxDirectionalLight::GetIWE(const R3&, const R3&, R3& I) const { I = intensity; }

R3 OxDirectionalLight::GetNormal(const R3&) const { return R3(0.0f, 0.0f, 1.0f); }
