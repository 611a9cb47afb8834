#include "KelAmbientOcclusion.h"

#include "FastKel.h"
#include "Oxbeam/OxExport.h"
#include "Sampling/Hemisphere.h"

#include <cstdlib>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>surface</type>"
    "<package>Kel</package>"
    "<id>KelAmbientOcclusion</id>"
    "<longname>Kel based ambient occlusion shader</longname>"
    " </ShaderInfo>";

char* KelAmbientOcclusionShader::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelAmbientOcclusionShader::Init() {
    KelPhongShader::Init();
    samples = 2;
    maxDistance = 500.0f;
}

void KelAmbientOcclusionShader::Register() {
    KelPhongShader::Register();
    oxsDeclareMember(this, "samples", samples);
    oxsDeclareMember(this, "maxDistance", maxDistance);
}

Oxvoid KelAmbientOcclusionShader::Shade(OxState* state) {
    R3 shdNormal, origin;
    computeNormal(state, shdNormal);
    oxsGetHitPosition(state, origin);
    oxsSetRayOrigin(state, origin);
    if (shadeHole(state)) return;
    R3 diffuse = openness(state, origin, shdNormal) * diffuseColor;
    KelPhongShader::Shade(state, diffuse, shdNormal, origin);
}

// The rays only ask how far away something is; no shader runs for them.
float KelAmbientOcclusionShader::openness(OxState* state, const R3& origin, const R3& shdNormal) const {
    OxState ambState;
    oxsInitState(state, &ambState);
    const float eps = static_cast<float>(kelRayEpsilon(state));
    const LocalFrame frame(shdNormal);
    float cosines = 0.0f;
    int hitRays = 0;
    for (int s = 0; s < samples; ++s) {
        const double r1 = drand48();
        const double r2 = drand48();
        R3 rayDirection = frame.toWorld(UniformHemisphere(r1, r2));
        oxsSetRayDirection(&ambState, rayDirection);
        rayDirection = Normalize(rayDirection);
        oxsSetRayOrigin(&ambState, origin + eps * rayDirection);
        oxsSetRayMaxDistance(&ambState, maxDistance);
        oxsSetHitDistance(&ambState, std::numeric_limits<float>::infinity());
        if (oxsShootRay(&ambState) && maxDistance > oxsGetHitDistance(&ambState)) {
            ++hitRays;
            cosines += Dot(rayDirection, shdNormal);
        }
    }
    return hitRays > 0 ? 1.0f - cosines / static_cast<float>(samples) : 1.0f;
}

OX_EXPORT_OBJECT(KelAmbientOcclusion, KelAmbientOcclusionShader)
