// Parallel light from an infinite distance; a small disk in the sky where fuzzy lights are on.
#pragma once

#include "KelLight.h"
#include "Oxbeam/OxDirectionalLight.h"

class KelDirectionalLight : public OxDirectionalLight, public KelLight {
public:
    float fuzzyness = 0.1f;  // extent over which the direction is jittered; in u and v from the next frame on

    KelDirectionalLight();

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    bool Illuminate4(const ISSEVec4& position, ISSEVec4& direction, sse_t& distance, ISSEVec4& intensity,
                     OxState4& state, void* shader) override;
    bool deflect(OxState* state, R3& p) override;
    bool deflectRay(OxState* state) override;
};
