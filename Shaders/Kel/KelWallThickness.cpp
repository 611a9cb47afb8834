#include "KelWallThickness.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"
#include "Sampling/Cone.h"

#include <cstdlib>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelWallThickness</id>"
    "<longname>Kel based wall thickness shader</longname>"
    " </ShaderInfo>";

char* KelWallThicknessShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelWallThicknessShader::Init() {
    KelPhongShader::Init();
    samples = 2;
    minDistance = 0.0f;
    maxDistance = 500.0f;
    m_maxAngleDegree = 30.0f;
    m_scaleDist = 1.0f;
}

void KelWallThicknessShader::Register() {
    KelPhongShader::Register();
    oxsDeclareMember(this, "samples", samples);
    oxsDeclareMember(this, "minDistance", minDistance);
    oxsDeclareMember(this, "maxDistance", maxDistance);
    oxsDeclareMember(this, "maxAngleDegree", m_maxAngleDegree);
    oxsDeclareMember(this, "scaleDistance", m_scaleDist);
}

// Hue h / 6 of a turn at full saturation and value. A negative remainder selects nothing: black.
static R3 hue(float h) {
    const int i = static_cast<int>(std::floor(h));
    const float f = h - static_cast<float>(i);
    switch (i % 6) {
    case 0: return {1.0f, f, 0.0f};
    case 1: return {1.0f - f, 1.0f, 0.0f};
    case 2: return {0.0f, 1.0f, f};
    case 3: return {0.0f, 1.0f - f, 1.0f};
    case 4: return {f, 0.0f, 1.0f};
    case 5: return {1.0f, 0.0f, 1.0f - f};
    default: return Black;
    }
}

Oxvoid KelWallThicknessShader::Shade(OxState* state) {
    R3 shdNormal, viewer, origin;
    computeNormal(state, shdNormal);
    oxsGetRayOrigin(state, viewer);
    oxsGetHitPosition(state, origin);
    oxsSetRayOrigin(state, origin);
    const float dist = thickness(state, origin, -shdNormal);
    if (!(maxDistance > dist) || !(dist > minDistance)) {
        oxsSetRayOrigin(state, viewer);  // plain shading finds the hit position by itself
        KelPhongShader::Shade(state);
        return;
    }
    const float t = dist * m_scaleDist;
    R3 diffuse = hue(t == 1.0f ? 0.0f : 6.0f * t);
    KelPhongShader::Shade(state, diffuse, shdNormal, origin);
}

// The first ray goes straight through; further ones only find shorter ways.
float KelWallThicknessShader::thickness(OxState* state, const R3& origin, const R3& inwards) const {
    OxState ambState;
    oxsInitState(state, &ambState);
    const float eps = static_cast<float>(kelRayEpsilon(state));
    const LocalFrame frame(inwards);
    float dist = std::numeric_limits<float>::max();
    for (int s = 0; s < samples; ++s) {
        R3 rayDirection = inwards;
        if (s > 0) {
            const double r1 = drand48();
            const double r2 = drand48();
            rayDirection = frame.toWorld(UniformCone(r1, r2, m_maxAngleDegree));
        }
        oxsSetRayDirection(&ambState, rayDirection);
        rayDirection = Normalize(rayDirection);
        oxsSetRayOrigin(&ambState, origin + eps * rayDirection);
        oxsSetRayMaxDistance(&ambState, std::numeric_limits<float>::infinity());
        oxsSetHitDistance(&ambState, std::numeric_limits<float>::infinity());
        if (!oxsShootRay(&ambState)) continue;
        const float hitDist = oxsGetHitDistance(&ambState);
        if (dist > hitDist) dist = hitDist;
    }
    return dist;
}

OX_EXPORT_OBJECT(KelWallThickness, KelWallThicknessShader)
