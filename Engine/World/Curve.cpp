#include "Engine/World/Curve.h"

#include "Engine/Scene/Quaternion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace oxbeam {

const std::vector<std::string>& interpolationNames() {
    static const std::vector<std::string> names = {"step", "linear", "smooth", "in", "out"};
    return names;
}

namespace {

using Numbers = std::vector<double>;

// Slopes of cubics through all keys that go beyond none (F. N. Fritsch and J. Butland, "A method for constructing local
// monotone piecewise cubic interpolants", 1984).
Numbers slopesThrough(const Numbers& times, const Numbers& values) {
    Numbers slopes(times.size(), 0.0);
    const auto steepness = [&](std::size_t i) { return (values[i + 1] - values[i]) / (times[i + 1] - times[i]); };
    for (std::size_t i = 1; i + 1 < times.size(); ++i) {
        const double before = steepness(i - 1), after = steepness(i);
        if (!(before * after > 0.0)) continue;
        const double h0 = times[i] - times[i - 1], h1 = times[i + 1] - times[i];
        const double w0 = 2.0 * h1 + h0, w1 = h1 + 2.0 * h0;
        slopes[i] = (w0 + w1) / (w0 / before + w1 / after);
    }
    return slopes;
}

double cubic(double from, double to, double slopeFrom, double slopeTo, double span, double u) {
    const double rest = 1.0 - u;
    return from * (1.0 + 2.0 * u) * rest * rest + to * u * u * (3.0 - 2.0 * u) +
           span * u * rest * (slopeFrom * rest - slopeTo * u);
}

double eased(Interpolation how, double u) {
    if (how == Interpolation::In) return u * u;
    if (how == Interpolation::Out) return u * (2.0 - u);
    return u;
}

double length(const Numbers& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

Numbers straight(const Numbers& a, const Numbers& b, double share) {
    Numbers between(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) between[i] = a[i] + share * (b[i] - a[i]);
    return between;
}

// ---- Directions

double angleBetween(const Numbers& a, const Numbers& b) {
    const double both = length(a) * length(b);
    if (!(both > 0.0)) return 0.0;
    return std::acos(std::clamp((a[0] * b[0] + a[1] * b[1] + a[2] * b[2]) / both, -1.0, 1.0));
}

Numbers scaled(Numbers v, double to) {
    const double factor = to / length(v);
    for (double& number : v) number *= factor;
    return v;
}

// To the opposite direction any way is as short: the one by the axis that is farthest from it.
Numbers aside(const Numbers& v) {
    const auto nearer = [](double a, double b) { return std::fabs(a) < std::fabs(b); };
    const auto axis = static_cast<std::size_t>(std::min_element(v.begin(), v.end(), nearer) - v.begin());
    Numbers side(3, 0.0);
    for (std::size_t i = 0; i < 3; ++i) side[i] = (i == axis ? 1.0 : 0.0) - v[axis] * v[i] / (length(v) * length(v));
    return side;
}

Numbers alongSphere(const Numbers& a, const Numbers& b, double share) {
    const double la = length(a), lb = length(b), angle = angleBetween(a, b);
    if (!(la > 0.0 && lb > 0.0)) return straight(a, b, share);
    if (angle > 3.14159) {
        const Numbers middle = scaled(aside(a), 0.5 * (la + lb));
        return share < 0.5 ? alongSphere(a, middle, 2.0 * share) : alongSphere(middle, b, 2.0 * share - 1.0);
    }
    const auto [from, to] = arcShares(angle, share);
    Numbers between(3);
    for (std::size_t i = 0; i < 3; ++i) between[i] = from * a[i] / la + to * b[i] / lb;
    return scaled(std::move(between), (1.0 - share) * la + share * lb);
}

// ---- Rotations

std::size_t anglesThatChange(const Numbers& a, const Numbers& b) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < 3; ++i) count += a[i] != b[i];
    return count;
}

Quaternion rotationOf(const Numbers& degrees) { return quaternionOf({degrees[0], degrees[1], degrees[2]}); }

Numbers alongRotation(const Numbers& a, const Numbers& b, double share) {
    if (anglesThatChange(a, b) <= 1) return straight(a, b, share);
    double degrees[3];
    degreesOf(slerp(rotationOf(a), rotationOf(b), share), degrees);
    return {degrees[0], degrees[1], degrees[2]};
}

double rotationBetween(const Numbers& a, const Numbers& b) {
    if (anglesThatChange(a, b) <= 1) return std::fabs(a[0] - b[0]) + std::fabs(a[1] - b[1]) + std::fabs(a[2] - b[2]);
    const double cosine = std::min(std::fabs(Dot(rotationOf(a), rotationOf(b))), 1.0);
    return 2.0 * std::acos(cosine) * 180.0 / 3.14159265358979323846;
}

}  // namespace

// ---- Curves

Curve::Curve(ValueSpace space, Interpolation interpolation, std::vector<double> times,
             std::vector<std::vector<double>> values)
    : m_space(space), m_interpolation(interpolation), m_times(std::move(times)), m_values(std::move(values)) {
    if (interpolation != Interpolation::Smooth) return;
    if (space == ValueSpace::Numbers) {
        for (std::size_t number = 0; number < m_values.front().size(); ++number) {
            Numbers own;
            for (const Numbers& value : m_values) own.push_back(value[number]);
            m_slopes.push_back(slopesThrough(m_times, own));
        }
        return;
    }
    m_way.push_back(0.0);
    for (std::size_t i = 1; i < m_values.size(); ++i)
        m_way.push_back(m_way.back() + (space == ValueSpace::Directions
                                            ? angleBetween(m_values[i - 1], m_values[i])
                                            : rotationBetween(m_values[i - 1], m_values[i])));
    m_slopes.push_back(slopesThrough(m_times, m_way));
}

std::vector<double> Curve::smoothNumbers(std::size_t i, double share) const {
    const Numbers &a = m_values[i], &b = m_values[i + 1];
    Numbers between(a.size());
    for (std::size_t n = 0; n < a.size(); ++n)
        between[n] =
            std::clamp(cubic(a[n], b[n], m_slopes[n][i], m_slopes[n][i + 1], m_times[i + 1] - m_times[i], share),
                       std::min(a[n], b[n]), std::max(a[n], b[n]));  // but for rounding it is
    return between;
}

// What goes along arcs goes along them without a jerk.
double Curve::shareAlong(std::size_t i, double share) const {
    const double arc = m_way[i + 1] - m_way[i];
    if (!(arc > 0.0)) return share;
    const double way =
        cubic(m_way[i], m_way[i + 1], m_slopes[0][i], m_slopes[0][i + 1], m_times[i + 1] - m_times[i], share);
    return std::clamp((way - m_way[i]) / arc, 0.0, 1.0);
}

std::vector<double> Curve::at(double seconds) const {
    const auto next = std::upper_bound(m_times.begin(), m_times.end(), seconds);
    if (next == m_times.begin()) return m_values.front();
    const auto i = static_cast<std::size_t>(next - m_times.begin()) - 1;
    if (next == m_times.end() || m_interpolation == Interpolation::Step || m_times[i] == seconds) return m_values[i];
    double share = (seconds - m_times[i]) / (m_times[i + 1] - m_times[i]);
    const bool smooth = m_interpolation == Interpolation::Smooth;
    if (smooth && m_space == ValueSpace::Numbers) return smoothNumbers(i, share);
    share = smooth ? shareAlong(i, share) : eased(m_interpolation, share);
    switch (m_space) {
    case ValueSpace::Directions: return alongSphere(m_values[i], m_values[i + 1], share);
    case ValueSpace::Rotations: return alongRotation(m_values[i], m_values[i + 1], share);
    default: return straight(m_values[i], m_values[i + 1], share);
    }
}

}  // namespace oxbeam
