// Phong-like surface for scenes with many lights: every pass evaluates a few of them, and successive passes visit them
// all. Alpha textures cut out and let shine through.
//
// A. Keller and W. Heidrich, "Interleaved sampling" (2001).
#pragma once

#include "KelShader.h"
#include "Primitives/Vec.h"

#include <atomic>

class KelAlphaILS : public KelShader {
public:
    Oxfloat ambientIntensity = 0.2f;  // ambient light is this much of the surface colour
    R3 diffuseColor;
    R3 specularColor;
    R3 emissiveColor;
    R3 reflectiveColor;
    float exponent = 64.0f;     // of the highlight
    Oxint texture = -1;         // diffuse colour and alpha; negative: none
    float isReflective = 0.0f;  // luminance of reflectiveColor; derived each frame
    Oxvoid** light = nullptr;   // the scene's lights, refreshed by every Shade
    Oxuint lights = 0;          // how many of them can be chosen from
    Oxint samples = 4;          // lights per pass that are asked for
    int oldSamples = 4;         // what was last made the class's value
    int debugInt = 0;           // unused

    ~KelAlphaILS() override;

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;
    bool LightTransparency(OxState* state) override;

private:
    // Lights that every instance evaluates per pass; the last instance whose value has changed decides.
    static std::atomic<int> globalNumSamples;

    // The hit, as all lights see it.
    struct Surface {
        R3 color, normal, position;
    };

    Oxuint refreshLights();
    R3 sampleLights(OxState* state, const Surface& surface, Oxuint count);
    R3 evaluateLight(OxState* state, const Surface& surface, Oxvoid* handle, float weight);
};
