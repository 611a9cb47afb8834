#include "Engine/World/Turntable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace oxbeam {

template <class Use>
static void eachCorner(const World& world, const std::vector<unsigned>& instances, Use use) {
    const SceneGeometry& geometry = world.geometry;
    for (const unsigned i : instances) {
        const Instance& instance = *geometry.scene().instances[i];
        const auto& mesh = static_cast<const ABSP&>(*geometry.scene().objects[instance.object]);
        for (const Oxuint vertex : mesh.indices) {
            const R3& p = mesh.positions[vertex];
            use(instance.hasXfm ? TransformPoint(instance.meshToWorldXfm, p) : p);
        }
    }
}

static R3 axisOf(const View& view) {
    const R3 forward = Normalize(view.lookAt - view.position), &up = view.lookUp;
    const R3 size(std::fabs(up.x), std::fabs(up.y), std::fabs(up.z));
    const bool vertical = std::fabs(forward.y) > 0.99f;
    const unsigned nearest = vertical || size.y >= std::max(size.x, size.z) ? 1 : size.x > size.z ? 0 : 2;
    R3 axis;
    axis[nearest] = !vertical && up[nearest] < 0.0f ? -1.0f : 1.0f;
    return axis;
}

// What one stands on or within is looked at from no side: floors, rooms, skies. From steeply above, that is everything.
static bool isAround(const Bounds& box, const View& view, const R3& axis) {
    if (std::fabs(Dot(Normalize(view.lookAt - view.position), axis)) > 0.9f) return false;
    bool around = true;
    for (unsigned i = 0; i < 3; ++i)
        around = around && (axis[i] != 0.0f || (view.position[i] > box.lower[i] && view.position[i] < box.upper[i]));
    return around;
}

Turntable::Turntable(const World& world, float zoom) {
    const SceneGeometry& geometry = world.geometry;
    std::vector<unsigned> all, seen;
    std::vector<Bounds> boxes(geometry.instanceCount());
    Bounds whole, bounds;
    for (unsigned i = 0; i < boxes.size(); ++i) {
        if (!geometry.isThere(i) || geometry.isEndless(i)) continue;
        all.push_back(i);
        whole.add(boxes[i] = geometry.instanceBounds(i));
    }
    m_view = world.view ? *world.view : world.framingView(whole);
    m_axis = axisOf(m_view);
    for (const unsigned i : all)
        if (!isAround(boxes[i], m_view, m_axis)) seen.push_back(i);
    if (seen.empty()) seen = all;
    for (const unsigned i : seen) bounds.add(boxes[i]);
    m_middle = bounds.empty ? R3() : bounds.center();
    if (!bounds.empty) fit(world, seen, zoom);
}

// Each border of the picture is a plane through the eye. A corner that goes round stays on the right side of it if the
// farthest point of its circle does: h dot(axis, g) + r |g across the axis|, for a corner at height h and radius r.
void Turntable::fit(const World& world, const std::vector<unsigned>& instances, float zoom) {
    constexpr float margin = 0.86f;
    const R3 forward = Normalize(m_view.lookAt - m_view.position);
    const R3 right = Normalize(Cross(forward, m_view.lookUp)), up = Cross(right, forward);
    const R2 window = world.imageWindow();
    const std::array<R3, 2> along = {right, up};
    const std::array<float, 2> tan = {margin * zoom * window.x, margin * zoom * window.y};
    struct Border {
        float rise = 0.0f, spread = 0.0f, most = -std::numeric_limits<float>::infinity();
    };
    const auto border = [&](const R3& g) {
        const float rise = Dot(m_axis, g);
        return Border{rise, Length(g - rise * m_axis)};
    };
    std::array<Border, 5> borders;  // most and least along each, and nearest to the eye
    for (unsigned i = 0; i < 2; ++i) {
        borders[2 * i] = border(along[i] / tan[i] - forward);
        borders[2 * i + 1] = border(-along[i] / tan[i] - forward);
    }
    borders[4] = border(-forward);
    eachCorner(world, instances, [&](const R3& p) {
        const R3 d = p - m_middle;
        const float h = Dot(d, m_axis), r = Length(d - h * m_axis);
        for (Border& b : borders) b.most = std::max(b.most, h * b.rise + r * b.spread);
    });
    float distance = 1.001f * borders[4].most;  // never within
    R3 offset;
    for (unsigned i = 0; i < 2; ++i) {
        const float most = borders[2 * i].most, least = borders[2 * i + 1].most;
        distance = std::max(distance, 0.5f * (most + least));
        offset += (0.5f * (most - least) * tan[i]) * along[i];
    }
    distance = std::max(distance, 1e-6f);
    m_view.position = m_middle + offset - distance * forward;
    m_view.lookAt = m_middle + offset;
    if (!(Length(m_view.lookAt - m_view.position) > 0.0f)) m_view.lookAt = m_view.position + forward;
}

View Turntable::at(double turns) const {
    const double angle = 2.0 * 3.14159265358979323846 * turns;
    const auto c = static_cast<float>(std::cos(angle)), s = static_cast<float>(std::sin(angle));
    const auto turned = [&](const R3& v) {
        const float h = Dot(m_axis, v);
        return h * m_axis + c * (v - h * m_axis) + s * Cross(m_axis, v);
    };
    if (turns == 0.0) return m_view;
    return {m_middle + turned(m_view.position - m_middle), m_middle + turned(m_view.lookAt - m_middle),
            turned(m_view.lookUp)};
}

}  // namespace oxbeam
