// What a pixel shows of the things in the scene, and how much it lets through to what is laid behind the picture.
#pragma once

#include "Engine/Render/Session.h"
#include "Oxbeam/OxScene.h"
#include "Oxbeam/OxShader.h"

namespace oxbeam {

// Stands in for the environment of a session. Straight rays - those from the eye, and those of the eye's or the
// transparency kind that go on in their direction, through holes, clear texels and transparent surfaces - find nothing there; all others
// find the environment. What arrives along a straight ray is told by a second shading before a white backdrop, with the
// same random numbers: whatever the surfaces on its way make of the light, the difference is the share of the backdrop
// (A. R. Smith, J. F. Blinn, "Blue screen matting", 1996).
//
// Where the environment shows a shadow, of it remains the share by which it is darker than without.
class OXBEAM_API Matte : public OxShader {
public:
    // Follows where the pointer does.
    explicit Matte(OxShader* const& environment) : m_environment(environment) {}

    struct Sample {
        R3 color;            // of the things alone, as much as is seen of them
        float alpha = 1.0f;  // finite; 1: nothing behind them is seen
    };
    // Along a primary ray that has its record and was shot, in a session in which this stands in for the environment.
    Sample shade(OxState& state, const Session& session, const PrimarySample& sample);

    Oxvoid Shade(OxState* state) override;

private:
    // A scene without anything in it.
    struct Nothing : Intersector {
        bool Intersect(OxState& state) override;
        bool Intersect4(OxState4&) override { return false; }
        void Occluded4(OxState4&) override {}
    };

    float passed(OxState& state);

    OxShader* const& m_environment;
    Nothing m_nothing;
};

}  // namespace oxbeam
