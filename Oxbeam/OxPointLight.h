// Isotropic emitter at one position, with constant, linear and quadratic attenuation.
#pragma once

#include "Oxbeam/OxLight.h"

class OXBEAM_API OxPointLight : public OxLight {
public:
    R3 position;
    R3 intensity{1.0f, 1.0f, 1.0f};
    float atten0 = 1e-9f;  // constant, linear and quadratic attenuation; inverse square by default
    float atten1 = 0.0f;
    float atten2 = 1.0f;

    OxPointLight();

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    void SamplePosition(R3& position, float s, float t) const override;
    void SampleDirection(R3& direction, float s, float t) const override;
    void GetIWE(const R3& position, const R3& direction, R3& intensity) const override;
    R3 GetNormal(const R3& position) const override;
    void AsPointLight(R3& position, R3& intensity, float& radius) const override;
    void EstimateImportance(float& a, float& b) const override;
};
