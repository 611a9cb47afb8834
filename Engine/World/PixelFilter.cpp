#include "Engine/World/PixelFilter.h"

#include <cmath>
#include <numbers>

namespace oxbeam {

const std::vector<std::string>& pixelFilterNames() {
    static const std::vector<std::string> names = {"box", "gaussian", "blackman-harris"};
    return names;
}

float usualWidth(PixelFilter::Kind kind) { return kind == PixelFilter::Box ? 1.0f : 3.0f; }

// Cumulative distributions over [-1/2, 1/2], as far as they differ from 1/2.
static double gaussian(double t) {
    constexpr double deviations = 6.0;  // within the width
    const auto half = [](double x) { return std::erf(x / std::numbers::sqrt2); };
    return 0.5 * half(deviations * t) / half(0.5 * deviations);
}

static double blackmanHarris(double t) {
    constexpr double a0 = 0.35875, a1 = 0.48829, a2 = 0.14128, a3 = 0.01168, turn = 2.0 * std::numbers::pi;
    const double waves =
        a1 * std::sin(turn * t) + a2 / 2.0 * std::sin(2.0 * turn * t) + a3 / 3.0 * std::sin(3.0 * turn * t);
    return t + waves / (turn * a0);
}

// Where an odd, growing function over [-1/2, 1/2] has a value.
static double inverse(double (*function)(double), double value) {
    double low = 0.0, high = 0.5;
    for (int i = 0; i < 48; ++i) {
        const double middle = 0.5 * (low + high);
        (function(middle) < std::fabs(value) ? low : high) = middle;
    }
    return std::copysign(0.5 * (low + high), value);
}

static float placeAlong(const PixelFilter& filter, float uniform) {
    const double value = static_cast<double>(uniform) - 0.5;
    const auto distribution = filter.kind == PixelFilter::Gaussian ? gaussian : blackmanHarris;
    const double t = filter.kind == PixelFilter::Box ? value : inverse(distribution, value);
    return static_cast<float>(0.5 + static_cast<double>(filter.width) * t);
}

R2 PixelFilter::place(const R2& uniform) const { return {placeAlong(*this, uniform.x), placeAlong(*this, uniform.y)}; }

}  // namespace oxbeam
