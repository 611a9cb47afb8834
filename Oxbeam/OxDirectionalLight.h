// Parallel light from an infinite distance.
#pragma once

#include "Oxbeam/OxLight.h"

class OXBEAM_API OxDirectionalLight : public OxLight {
public:
    R3 direction{0.0f, 0.0f, 1.0f};  // in which the light travels; normalised by NewFrame
    R3 intensity{1.0f, 1.0f, 1.0f};

    OxDirectionalLight();

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    void SampleDirection(R3& direction, float s, float t) const override;
    void GetIWE(const R3& position, const R3& direction, R3& intensity) const override;
    R3 GetNormal(const R3& position) const override;
};
