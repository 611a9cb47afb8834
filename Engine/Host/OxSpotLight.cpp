#include "Oxbeam/OxSpotLight.h"

#include "Engine/Host/HostObjects.h"
#include "Sampling/Frame.h"

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>light</type>"
    "<package>Oxbeam</package>"
    "<id>OxSpotLight</id>"
    "<longname>Spot light</longname>"
    "<parameter>"
    "<id>position</id>"
    "<longname>Position</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><position/></interpretation>"
    "<default>0 0 0</default>"
    "<help>Apex of the cone, in world space.</help>"
    "</parameter>"
    "<parameter>"
    "<id>direction</id>"
    "<longname>Direction</longname>"
    "<type>float</type>"
    "<size>3</size>"
    "<interpretation><direction/></interpretation>"
    "<default>0 -1 0</default>"
    "<help>Axis of the cone, the way the light shines, of any length.</help>"
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
    "<id>minAngle</id>"
    "<longname>Inner angle</longname>"
    "<type>float</type>"
    "<default>0.17453292</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1.570796327</upperbound>"
    "<help>Half-angle of full illumination, in radians.</help>"
    "</parameter>"
    "<parameter>"
    "<id>maxAngle</id>"
    "<longname>Outer angle</longname>"
    "<type>float</type>"
    "<default>0.2617994</default>"
    "<lowerbound>0</lowerbound>"
    "<upperbound>1.570796327</upperbound>"
    "<help>Half-angle at which the light has faded to nothing, in radians.</help>"
    "</parameter>"
    "<parameter>"
    "<id>atten0</id>"
    "<longname>Constant attenuation</longname>"
    "<type>float</type>"
    "<default>2</default>"
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
    "<default>0</default>"
    "</parameter>"
    " </ShaderInfo>";

OxSpotLight::OxSpotLight() { OxSpotLight::Init(); }

char* OxSpotLight::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void OxSpotLight::Init() { setDefaults(); }

void OxSpotLight::setDefaults() {
    type = OX_SPOT_LIGHT;
    atten0 = 2.0f;
    atten1 = atten2 = 0.0f;
    intensity = White;
    direction = R3(0.0f, -1.0f, 0.0f);
    position = zeroVector;
    minAngle = 0.17453292f;
    maxAngle = 0.2617994f;
    updateCone();
}

void OxSpotLight::updateCone() {
    cos_minAngle = std::cos(minAngle);
    cos_maxAngle = std::cos(maxAngle);
    cos_factor = 1.0f / (cos_minAngle - cos_maxAngle);
}

void OxSpotLight::Register() {
    Init();
    oxsDeclareMember(this, "atten0", atten0);
    oxsDeclareMember(this, "atten1", atten1);
    oxsDeclareMember(this, "atten2", atten2);
    oxsDeclareMember(this, "position", position);
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "direction", direction);
    oxsDeclareMember(this, "minAngle", minAngle);
    oxsDeclareMember(this, "maxAngle", maxAngle);
}

void OxSpotLight::NewFrame() {
    direction = Normalize(direction);
    axis1 = Normalize(Cross(SmallestAxis(direction), direction));
    axis2 = Cross(direction, axis1);
    updateCone();
}

bool OxSpotLight::Illuminate(const R3& P, R3& L, float& dist, R3& I, OxState*, void*) {
    const R3 D = position - P;
    const float d2 = Dot(D, D);
    dist = std::sqrt(d2);
    L = D / dist;
    I = Black;
    const float c = -Dot(direction, L);
    if (cos_maxAngle > c) return false;
    I = intensity * (1.0f / ((dist * atten1 + atten0) + d2 * atten2));
    if (c <= cos_minAngle) I *= (c - cos_maxAngle) * cos_factor;
    return true;
}

void OxSpotLight::SamplePosition(R3& p, float, float) const { p = position; }

// Uniform over the cone's solid angle.
void OxSpotLight::SampleDirection(R3& d, float s, float t) const {
    const float cosTheta = 1.0f - t * (1.0f - cos_maxAngle);
    const float sinTheta = std::sqrt(1.0f - cosTheta * cosTheta);
    const float phi = oxbeam::TwoPi * s;
    d = (std::cos(phi) * sinTheta) * axis1 + (std::sin(phi) * sinTheta) * axis2 + cosTheta * direction;
}

void OxSpotLight::GetIWE(const R3&, const R3& d, R3& I) const {
    const float c = Dot(direction, Normalize(d));
    const float fade = c > cos_minAngle ? 1.0f : (c - cos_maxAngle) * cos_factor;
    I = cos_maxAngle > c ? Black : intensity * fade;
}

R3 OxSpotLight::GetNormal(const R3&) const { return direction; }

void OxSpotLight::AsPointLight(R3& p, R3& I, float& radius) const {
    p = position;
    I = intensity;
    radius = 0.0f;
}

void OxSpotLight::EstimateImportance(float& a, float& b) const { a = b = Max(intensity); }

float OxSpotLight::GetIlluminanceAngle() const { return cos_maxAngle; }
