// Phong surface whose diffuse colour is darkened where nearby geometry closes off the sky above it.
//
// S. Zhukov, A. Iones and G. Kronin, "An ambient light illumination model" (1998), by Monte Carlo over the hemisphere.
#pragma once

#include "KelPhong.h"

// Draws from the process-wide generator: pictures differ from run to run where there are several threads.
class KelAmbientOcclusionShader : public KelPhongShader {
public:
    Oxint samples = 2;           // hemisphere rays per hit
    float maxDistance = 500.0f;  // hits nearer than this count, in world units

    char* GetShaderInfo() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;

private:
    // 1 where nothing is in the way, lower the more and the steeper rays are blocked.
    float openness(OxState* state, const R3& origin, const R3& shdNormal) const;
};
