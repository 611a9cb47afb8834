#include "Apps/view/Navigation.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

static constexpr float Degrees = 3.14159265f / 180.0f;

Eye Eye::of(const View& view, float fov) { return {view, fov, view.lookAt, Normalize(view.lookUp)}; }

// O. Rodrigues' formula; the axis has unit length.
static R3 rotated(const R3& v, const R3& axis, float angle) {
    const float c = std::cos(angle), s = std::sin(angle);
    return c * v + s * Cross(axis, v) + (1.0f - c) * Dot(axis, v) * axis;
}

// Up stays up: the eye is turned about the world's vertical, then about its own horizontal, and never over the top. Where
// it looks straight down, its right side still says which way it stands.
void Eye::rotate(const R3& center, float toRight, float upwards) {
    constexpr float margin = 0.5f * Degrees;
    const R3 side = rotated(right(), up, -toRight);
    const float above = std::acos(std::clamp(Dot(forward(), up), -1.0f, 1.0f));
    const float tilt = std::clamp(above + upwards, margin, 180.0f * Degrees - margin) - above;
    const auto turned = [&](const R3& v) { return rotated(rotated(v, up, -toRight), side, -tilt); };
    view.position = center + turned(view.position - center);
    view.lookAt = center + turned(view.lookAt - center);
    pivot = center + turned(pivot - center);
    view.lookUp = up;
}

void Eye::orbit(float toRight, float upwards) { rotate(pivot, toRight, upwards); }

void Eye::turn(float toRight, float upwards) { rotate(view.position, toRight, -upwards); }

void Eye::move(const R3& by) {
    view.position += by;
    view.lookAt += by;
}

void Eye::pan(float toRight, float downwards) {
    const float height = 2.0f * distance() * std::tan(0.5f * fov * Degrees);
    const R3 by = height * (downwards * upwards() - toRight * right());
    move(by);
    pivot += by;
}

// The point that is looked at keeps away from the eye, or there would be no direction.
void Eye::dolly(float factor) {
    const R3 by = (1.0f - factor) * (pivot - view.position), way = forward();
    view.position += by;
    view.lookAt = view.position + std::max(distance(), 1e-6f) * way;
}

void Eye::fly(const R3& way) {
    const R3 by = way.x * right() + way.y * upwards() + way.z * forward();
    move(by);
    pivot += by;
}

void Eye::frame(const Bounds& bounds, const ImageSize& image) {
    if (bounds.empty) return;
    const float aspect = static_cast<float>(image.width) / static_cast<float>(image.height);
    const float half = 0.5f * fov * Degrees, narrow = aspect < 1.0f ? std::atan(std::tan(half) * aspect) : half;
    const R3 way = forward();
    pivot = view.lookAt = bounds.center();
    view.position = pivot - std::max(bounds.radius(), 1e-6f) / std::sin(narrow) * way;
}

void Eye::lookFrom(const std::string& viewName, const Bounds& bounds, const ImageSize& image) {
    ViewChoice choice;
    choice.name = viewName;
    const ViewAngles angles = anglesOf(choice);
    const float a = angles.azimuth * Degrees, e = angles.elevation * Degrees;
    const R3 from(std::sin(a) * std::cos(e), std::sin(e), std::cos(a) * std::cos(e));
    up = {0.0f, 1.0f, 0.0f};
    const bool vertical = std::fabs(angles.elevation) > 89.0f;
    view.lookUp = vertical ? R3(0.0f, 0.0f, angles.elevation > 0.0f ? -1.0f : 1.0f) : up;
    view.position = R3();
    view.lookAt = -from;
    frame(bounds, image);
}

R3 Eye::pointAt(const R2& place, float depth, const ImageSize& image) const {
    const float y = std::tan(0.5f * fov * Degrees);
    const float x = y * static_cast<float>(image.width) / static_cast<float>(image.height);
    return view.position + depth * (forward() + place.x * x * right() - place.y * y * upwards());
}

R3 placeOf(const View& view, float fov, const ImageSize& image, const R3& point) {
    const Eye eye = Eye::of(view, fov);
    const float y = std::tan(0.5f * fov * Degrees);
    const float x = y * static_cast<float>(image.width) / static_cast<float>(image.height);
    const R3 d = point - view.position;
    const float depth = Dot(d, eye.forward());
    const float share = 1.0f / std::max(std::fabs(depth), 1e-20f);
    return {Dot(d, eye.right()) * share / x, -Dot(d, eye.upwards()) * share / y, depth};
}

}  // namespace oxbeam
