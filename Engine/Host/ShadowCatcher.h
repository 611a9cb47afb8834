// A surface that is not seen, but for the shadows on it: the ground under a model that stands in a photograph (P. Debevec,
// "Rendering synthetic objects into real scenes", 1998).
#pragma once

#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxShader.h"
#include "Primitives/Vec.h"

namespace oxbeam {

class OXBEAM_API ShadowCatcher : public OxShader {
public:
    float shadowIntensity = 1.0f;  // from 0, no shadows, to 1: as dark as the light that is missing makes them

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    // What the environment shows there, times the share of the lights' light that arrives.
    Oxvoid Shade(OxState* state) override;
    // It is not there.
    bool LightTransparency(OxState* state) override;

private:
    class Turn;
    bool aim(OxLight* light, OxState* state, OxState& shadow, const R3& point, const R3& normal, R3& arriving) const;
    R3 litShare(OxState* state, const R3& point, const R3& normal) const;

    OxShader* m_standIn = nullptr;  // shown to the lights, which may take any surface for one of their package's
};

}  // namespace oxbeam
