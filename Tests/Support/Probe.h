// Stand-ins that tell what the code under test does with them.
#pragma once

#include "Engine/Textures/Texture.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxSampler.h"
#include "Oxbeam/OxShader.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <utility>
#include <vector>

inline void PrintTo(const R3& v, std::ostream* out) { *out << '(' << v.x << ", " << v.y << ", " << v.z << ')'; }

namespace oxbeam::test {

inline constexpr float Radian = 0.0174532925f;  // of a degree

inline void expectNear(const R3& actual, const R3& expected, float tolerance = 1e-5f) {
    EXPECT_NEAR(actual.x, expected.x, tolerance) << testing::PrintToString(actual);
    EXPECT_NEAR(actual.y, expected.y, tolerance) << testing::PrintToString(actual);
    EXPECT_NEAR(actual.z, expected.z, tolerance) << testing::PrintToString(actual);
}

// A picture from a function of (s, t), linear.
template <class ColorAt>
std::unique_ptr<Texture> painted(unsigned width, unsigned height, ColorAt colorAt) {
    std::vector<float> texels;
    for (unsigned i = 0; i < width * height; ++i) {
        const R3 color = colorAt((static_cast<float>(i % width) + 0.5f) / static_cast<float>(width),
                                 (static_cast<float>(i / width) + 0.5f) / static_cast<float>(height));
        texels.insert(texels.end(), {color.x, color.y, color.z});
    }
    return std::make_unique<Texture>(width, height, 3, std::move(texels), ColorSpace::Linear);
}

// A glowing surface that notes every ray it shades and every shadow ray that asks it.
struct Probe : OxShader {
    struct Seen {
        Ray ray;
        Oxuint depth, insideFlag;  // of the ray's record
        float opacity;
        const OxSampler* sampler;
    };

    R3 color = White;
    bool transparent = false;  // what it answers to light
    std::vector<Seen> seen;

    Oxvoid Shade(OxState* state) override {
        note(state);
        oxsReturnColor(state, color);
    }
    bool LightTransparency(OxState* state) override {
        note(state);
        return transparent;
    }

private:
    void note(OxState* state) {
        const auto& record = *static_cast<KelRay*>(oxsGetPrivatePtr(state));
        seen.push_back({state->ray, record.depth, record.insideFlag, record.opacity, record.sampler});
    }
};

// Random numbers that are none: those of a list, over and over.
struct ScriptedSampler : OxSampler {
    std::vector<float> numbers;
    std::vector<int> dimensions;  // asked for so far

    explicit ScriptedSampler(std::vector<float> script) : numbers(std::move(script)) {}

    OxSampler* clone() const override { return new ScriptedSampler(*this); }
    float nextSample(int dimension) override {
        dimensions.push_back(dimension);
        return numbers[(dimensions.size() - 1) % numbers.size()];
    }
    void setSeed(unsigned) override {}
};

// Makes a rendering thread draw from a list. The sampler belongs to the rendering object.
inline ScriptedSampler& script(KelRenderingObject& ro, std::vector<float> numbers) {
    auto* sampler = new ScriptedSampler(std::move(numbers));
    delete std::exchange(ro.m_rays[0].sampler, sampler);
    return *sampler;
}

// A level probe at height 0, and whatever else is added.
struct ProbeWorld : TestWorld {
    explicit ProbeWorld(const R3& background = Black) : TestWorld(background) {
        own<Probe>();
        addSquare(R3(), R3(0, 1, 0));
    }

    // State of a ray that came down onto the probe's origin, so many degrees off the normal, in the xy plane.
    OxState arrival(float degrees = 0.0f) {
        const R3 direction(std::sin(degrees * Radian), -std::cos(degrees * Radian), 0);
        return hit(-3.0f * direction, direction);
    }
};

}  // namespace oxbeam::test
