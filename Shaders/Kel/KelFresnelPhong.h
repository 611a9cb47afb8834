// Phong surface under a clear coat, as on lacquered cars: towards grazing angles it turns into a mirror and its own
// colour fades.
#pragma once

#include "KelFresnel.h"
#include "KelPhong.h"

#include <memory>

class KelFresnelPhongShader : public KelPhongShader {
public:
    float bindex = 0.0f;  // index of refraction
    float bias = 0.0f;    // these three belong to method 3
    float index = 0.0f;
    float scale = 0.0f;
    Oxint fresnelMethod = 0;     // 1 exact, 2 Schlick, 3 empirical; others have no table and reflect nothing
    Oxint fresnelMethodSik = 0;  // the method that the table was made for; -1: none yet
    std::unique_ptr<GenericFresnelTermBuffer> fresnelBuffer;

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid computeReflectivity(OxState* state, R3& shadeColor, const R3& shdNormal) override;

private:
    // Replaces the table where the method has changed.
    void initFresnelTable();
};
