// Spot light: a point emitter that shines into a cone and fades out linearly in the cosine of the angle.
#pragma once

#include "KelLight.h"
#include "Oxbeam/OxSpotLight.h"

// The host's sampling frame (axis1, axis2) is not kept up by this light.
class KelSpotLight : public OxSpotLight, public KelLight {
public:
    float fuzzyness = 0.1f;  // extent over which the direction is jittered; in u and v from the next frame on

    KelSpotLight();

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    bool deflect(OxState* state, R3& p) override;
    bool deflectRay(OxState* state) override;
};
