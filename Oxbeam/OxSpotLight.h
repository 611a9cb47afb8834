// Point emitter that shines into a cone, fading out between an inner and an outer angle.
#pragma once

#include "Oxbeam/OxLight.h"

class OXBEAM_API OxSpotLight : public OxLight {
public:
    R3 position;
    R3 intensity{1.0f, 1.0f, 1.0f};
    R3 direction{0.0f, -1.0f, 0.0f};  // cone axis, the way the light shines; normalised by NewFrame
    float minAngle = 0.17453292f;     // half-angle of full illumination, radians (10 degrees)
    float maxAngle = 0.2617994f;      // half-angle at which it has faded to nothing, radians (15 degrees)
    float cos_minAngle = 0.0f;        // derived from the angles
    float cos_maxAngle = 0.0f;
    float cos_factor = 0.0f;  // 1 / (cos_minAngle - cos_maxAngle)
    float atten0 = 2.0f;      // constant, linear and quadratic attenuation
    float atten1 = 0.0f;
    float atten2 = 0.0f;
    R3 axis1;  // frame across the axis, for sampling
    R3 axis2;

    OxSpotLight();

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
    float GetIlluminanceAngle() const override;

protected:
    // The host-side defaults, and the cosines from the angles.
    void setDefaults();
    void updateCone();
};
