// The objects that the host brings along.
#pragma once

#include "Oxbeam/OxShader.h"
#include "Primitives/Vec.h"

#include <span>

namespace oxbeam {

inline constexpr float TwoPi = 6.28318530717958647692f;

// Direction uniform over the unit sphere for s, t uniform in [0, 1).
inline R3 uniformSphere(float s, float t) {
    const float r = 2.0f * std::sqrt(t * (1.0f - t));
    return {r * std::cos(TwoPi * s), r * std::sin(TwoPi * s), 1.0f - 2.0f * t};
}

// The environment of scenes that name none: one colour all around.
class OXBEAM_API Background : public OxShader {
public:
    R3 color;

    char* GetShaderInfo() override;
    void Register() override;
    Oxvoid Shade(OxState* state) override;
};

// What the host's own objects call their package; no file.
inline constexpr const char* HostPackage = "Oxbeam";

struct HostObject {
    const char* name;
    int (*registration)();
};

// The host's cameras, lights, environment and surface.
std::span<const HostObject> hostObjects();

}  // namespace oxbeam
