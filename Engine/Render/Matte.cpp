#include "Engine/Render/Matte.h"

#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxSampler.h"

#include <cmath>
#include <optional>

namespace oxbeam {

namespace {

// The straight rays of the primary ray that a thread is shading.
struct Straight {
    R3 direction;
    float backdrop = 0.0f;  // its brightness
    bool left = false;      // one has left the scene
};

// See ThreadRecord.cpp.
[[gnu::tls_model("initial-exec")]] thread_local constinit Straight s_straight;

}  // namespace

bool Matte::Nothing::Intersect(OxState& state) {
    state.hit.tri = TRI_NONE;
    return false;
}

// How much of the environment's own light is left where shadows fall onto it.
float Matte::passed(OxState& state) {
    OxState unshadowed = state;
    unshadowed.intersector = &m_nothing;
    m_environment->Shade(&state);
    m_environment->Shade(&unshadowed);
    const float left = Intensity(state.color) / Intensity(unshadowed.color);
    return left >= 0.0f && left < 1.0f ? left : 1.0f;
}

// Shadows are asked for in both shadings, so that both draw the same random numbers.
Oxvoid Matte::Shade(OxState* state) {
    Straight& straight = s_straight;
    constexpr Oxuint onwards = RAY_PRIMARY | RAY_TRANSPARENCY;  // primary: a surface that shows what is behind it
    if (!(state->ray.visibilityMask & onwards) || state->ray.direction != straight.direction)
        return m_environment->Shade(state);
    straight.left = true;
    oxsReturnColor(state, White * (passed(*state) * straight.backdrop));
}

Matte::Sample Matte::shade(OxState& state, const Session& session, const PrimarySample& sample) {
    if (state.hit.tri < 0) return {Black, 1.0f - passed(state)};
    const OxState shot = state;
    OxMersenneTwisterSampler* numbers = ThreadRecord::mine().sampler;
    const std::optional before = numbers ? std::optional(*numbers) : std::nullopt;
    s_straight = {shot.ray.direction};
    const R3 color = Session::shade(state);
    if (!s_straight.left) return {color};

    state = shot;
    session.attachRecord(state, sample.thread, sample.pass);
    if (numbers) *numbers = *before;
    s_straight.backdrop = 1.0f;
    const R3 through = Session::shade(state) - color;
    const float alpha = 1.0f - (through.x + through.y + through.z) / 3.0f;
    return {color, std::isfinite(alpha) ? alpha : 1.0f};
}

}  // namespace oxbeam
