#include "Engine/Scene/Flattening.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

namespace {

using Vector = std::array<double, 3>;

double dot(const Vector& a, const Vector& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Vector cross(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

Vector longestCross(const std::array<Vector, 3>& v) {
    const std::array<Vector, 3> crosses = {cross(v[0], v[1]), cross(v[1], v[2]), cross(v[2], v[0])};
    return *std::max_element(crosses.begin(), crosses.end(),
                             [](const Vector& a, const Vector& b) { return dot(a, a) < dot(b, b); });
}

// Directions that differ by no more than the rounding of what led to them are one: what is placed moves by a millionth of
// its size, within the plane that it is flattened to.
constexpr double Steps = 1 << 20;

std::optional<std::array<int, 3>> stepsOf(Vector v) {
    const double length = std::sqrt(dot(v, v));
    if (!(length > 0.0) || !std::isfinite(length)) return std::nullopt;
    // Either way along it is the same direction.
    const double* largest =
        std::max_element(v.begin(), v.end(), [](double a, double b) { return std::fabs(a) < std::fabs(b); });
    const double scale = std::copysign(Steps, *largest) / length;
    return std::array{static_cast<int>(std::lround(v[0] * scale)), static_cast<int>(std::lround(v[1] * scale)),
                      static_cast<int>(std::lround(v[2] * scale))};
}

}  // namespace

std::optional<Flattening> flatteningOf(const Matrix& meshToWorld) {
    std::array<Vector, 3> rows, columns;
    double largest = 0.0;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) {
            rows[i][j] = columns[j][i] = double{meshToWorld.m[i][j]};
            largest = std::max(largest, std::fabs(rows[i][j]));
        }
    // Across all rows is what vanishes; across all columns is what nothing is placed along.
    const auto direction = stepsOf(longestCross(rows));
    Vector across = longestCross(columns);
    const double area = std::sqrt(dot(across, across));
    if (!direction || !(area > 0.0) || !std::isfinite(area)) return std::nullopt;

    Vector n = {double((*direction)[0]), double((*direction)[1]), double((*direction)[2])};
    const double length = std::sqrt(dot(n, n));
    for (double& component : n) component /= length;
    const double determinant = dot(rows[0], cross(rows[1], rows[2]));
    // As long as what else is placed, so that the placement can be undone; on the side that keeps its handedness.
    for (double& component : across) component *= 1.0 / std::sqrt(area);
    const Vector t = std::fabs(n[0]) < 0.5 ? Vector{1, 0, 0} : Vector{0, 1, 0};
    const Vector u = cross(n, t), v = cross(n, u);  // with n, a right-handed frame
    const auto placed = [&](const Vector& w) { return Vector{dot(rows[0], w), dot(rows[1], w), dot(rows[2], w)}; };
    if ((dot(cross(placed(u), placed(v)), across) < 0.0) != (determinant < 0.0))
        for (double& component : across) component = -component;

    Flattening result{*direction, {}, meshToWorld};
    const Vector left = placed(n);
    for (unsigned i = 0; i < 3; ++i) {
        if (std::fabs(left[i]) > 4.0 / Steps * largest) return std::nullopt;
        for (unsigned j = 0; j < 3; ++j) {
            result.flatten.m[i][j] = static_cast<float>((i == j ? 1.0 : 0.0) - n[i] * n[j]);
            result.place.m[i][j] = static_cast<float>(rows[i][j] + (across[i] - left[i]) * n[j]);
        }
    }
    return result;
}

}  // namespace oxbeam
