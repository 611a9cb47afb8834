// Analysis of parts: colours a surface by how thick the material behind it is, on a rainbow scale. Where the thickness
// lies outside a band, the surface is plain Phong.
#pragma once

#include "KelPhong.h"

// Draws from the process-wide generator; with one sample the measurement is straight through, and the same every time.
class KelWallThicknessShader : public KelPhongShader {
public:
    Oxint samples = 2;         // rays per hit; the nearest hit counts
    float minDistance = 0.0f;  // the band, both bounds outside, in world units
    float maxDistance = 500.0f;
    float m_scaleDist = 1.0f;        // turns of the hue circle per unit of thickness
    float m_maxAngleDegree = 30.0f;  // half-opening angle of the cone of rays

    char* GetShaderInfo() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;

private:
    // The shortest way through the material within the cone; the largest float where there is no far side.
    float thickness(OxState* state, const R3& origin, const R3& inwards) const;
};
