#include "Engine/World/Tone.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

const std::vector<std::string>& toneCurveNames() {
    static const std::vector<std::string> names = {"none", "filmic", "neutral"};
    return names;
}

static float filmic(float x) { return std::min(1.0f, x * (2.51f * x + 0.03f) / (x * (2.43f * x + 0.59f) + 0.14f)); }

// Takes away what a dielectric reflects at normal incidence, so that base colours come out as they are; compresses the
// peak beyond `start`, and fades towards white as it does.
static R3 neutral(R3 c) {
    constexpr float reflected = 0.04f, start = 0.8f - reflected, desaturation = 0.15f;
    const float least = std::min({c.x, c.y, c.z});
    c -= White * (least < 2.0f * reflected ? least - least * least / (4.0f * reflected) : reflected);
    const float peak = std::max({c.x, c.y, c.z});
    if (peak < start) return c;
    constexpr float room = 1.0f - start;
    const float newPeak = 1.0f - room * room / (peak + room - start);
    const float kept = 1.0f / (desaturation * (peak - newPeak) + 1.0f);
    return c * (newPeak / peak * kept) + White * (newPeak * (1.0f - kept));
}

R3 toned(const R3& light, const Tone& tone) {
    const R3 exposed = light * std::exp2(tone.exposure);
    if (tone.curve == ToneCurve::None) return exposed;
    const auto bounded = [](float v) { return v > 0.0f ? std::min(v, 1e6f) : 0.0f; };  // as far as squares are exact
    const R3 c(bounded(exposed.x), bounded(exposed.y), bounded(exposed.z));
    return tone.curve == ToneCurve::Filmic ? R3(filmic(c.x), filmic(c.y), filmic(c.z)) : neutral(c);
}

}  // namespace oxbeam
