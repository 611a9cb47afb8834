// Clear or coloured glass: reflection and refraction in Fresnel's proportions, absorption along the way through the body.
//
// Secondary rays after T. Whitted, "An improved illumination model for shaded display" (1980). The body's colour takes
// over exponentially with the distance, as in Beer's law, but as a blend towards a colour.
#pragma once

#include "KelFresnel.h"
#include "KelShader.h"

#include <memory>

class KelGlasShader : public KelShader {
public:
    float reflectionFilterAmount = 0.0f;  // share of the reflected colour that reflectionFilter replaces
    R3 reflectionFilter;                  // tint of reflections
    float refractionFilterAmount = 0.0f;  // most that transmitted light is absorbed
    R3 refractionFilter;                  // colour of the body
    float reflectivity = 0.0f;            // added to the Fresnel reflectance; left alone by Init
    std::unique_ptr<FesnelTermBufferTyp1> fresnelBuffer;
    float bindex = 1.517f;  // index of refraction
    float scale = 1.0f;     // absorption length
    float shininess = 5.0f;
    Oxint noRefract = 0;  // nonzero: one layer of infinitely thin glass
    Oxint m_bumpMapTexture = -1;
    float exponent = 0.0f;  // of the glossy lobe: e to the power of shininess; derived each frame

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;
    bool LightTransparency(OxState* state) override;

private:
    // Share of the light that is absorbed on a way through the body, unclamped.
    float absorption(float distance) const;
};
