#include "Apps/view/Gizmo.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

static R3 axis(unsigned i) { return {i == 0 ? 1.0f : 0.0f, i == 1 ? 1.0f : 0.0f, i == 2 ? 1.0f : 0.0f}; }

static constexpr std::array<ImU32, 3> Colors = {IM_COL32(235, 80, 70, 255), IM_COL32(95, 200, 80, 255),
                                                IM_COL32(85, 140, 245, 255)};
static constexpr ImU32 Chosen = IM_COL32(255, 220, 90, 255);
// Arrows that come within this of the eye's way cannot be aimed with, nor planes that it nearly lies in.
static constexpr float Steepest = 0.97f, Flattest = 0.12f;

Gizmo::Gizmo(const R3& at, float length, const Eye& eye, const ToWindow& toWindow) : m_origin(toWindow(at)) {
    const R3 way = Normalize(at - eye.view.position);
    for (unsigned i = 0; i < 3; ++i) {
        const float along = std::fabs(Dot(way, axis(i)));
        if (along < Steepest) m_tips[i] = toWindow(at + length * axis(i));
        if (along < Flattest) continue;
        const R3 u = 0.25f * length * axis((i + 1) % 3), v = 0.25f * length * axis((i + 2) % 3);
        const std::array<R3, 4> corners = {at + u + v, at + 2.0f * u + v, at + 2.0f * u + 2.0f * v, at + u + 2.0f * v};
        Corners square;
        bool seen = true;
        for (unsigned c = 0; c < 4; ++c) {
            const auto corner = toWindow(corners[c]);
            seen = seen && corner;
            if (corner) square[c] = *corner;
        }
        if (seen) m_squares[i] = square;
    }
}

static float distance(const ImVec2& p, const ImVec2& a, const ImVec2& b) {
    const ImVec2 d(b.x - a.x, b.y - a.y);
    const float square = std::max(d.x * d.x + d.y * d.y, 1e-6f);
    const float t = std::clamp(((p.x - a.x) * d.x + (p.y - a.y) * d.y) / square, 0.0f, 1.0f);
    return std::hypot(p.x - a.x - t * d.x, p.y - a.y - t * d.y);
}

// On one side of all edges.
static bool within(const ImVec2& p, const std::array<ImVec2, 4>& corners) {
    int left = 0;
    for (unsigned i = 0; i < 4; ++i) {
        const ImVec2 &a = corners[i], &b = corners[(i + 1) % 4];
        left += (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x) > 0.0f;
    }
    return left == 0 || left == 4;
}

Handle Gizmo::handleAt(const ImVec2& pointer, float reach) const {
    if (!m_origin) return Handle::None;
    for (unsigned i = 0; i < 3; ++i)
        if (m_squares[i] && within(pointer, *m_squares[i])) return static_cast<Handle>(4 + i);
    if (std::hypot(pointer.x - m_origin->x, pointer.y - m_origin->y) <= 0.7f * reach) return Handle::Screen;
    for (unsigned i = 0; i < 3; ++i)
        if (m_tips[i] && distance(pointer, *m_origin, *m_tips[i]) <= 0.6f * reach) return static_cast<Handle>(1 + i);
    return Handle::None;
}

void Gizmo::draw(Handle chosen, float thickness) const {
    if (!m_origin) return;
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    for (unsigned i = 0; i < 3; ++i) {
        const ImU32 color = chosen == static_cast<Handle>(4 + i) ? Chosen : Colors[i];
        if (!m_squares[i]) continue;
        draw.AddConvexPolyFilled(m_squares[i]->data(), 4, (color & ~IM_COL32_A_MASK) | (110u << IM_COL32_A_SHIFT));
        draw.AddPolyline(m_squares[i]->data(), 4, color, ImDrawFlags_Closed, 0.4f * thickness);
    }
    for (unsigned i = 0; i < 3; ++i) {
        const ImU32 color = chosen == static_cast<Handle>(1 + i) ? Chosen : Colors[i];
        if (!m_tips[i]) continue;
        draw.AddLine(*m_origin, *m_tips[i], color, thickness);
        draw.AddCircleFilled(*m_tips[i], 1.8f * thickness, color);
    }
    draw.AddCircleFilled(*m_origin, 2.0f * thickness, chosen == Handle::Screen ? Chosen : IM_COL32(240, 240, 240, 230));
}

// Where a way of the eye meets a plane through a point; nothing where it runs along it or away from it.
static std::optional<R3> onPlane(const R3& at, const R3& normal, const R3& eye, const R3& way) {
    const float slope = Dot(normal, way);
    if (std::fabs(slope) < 1e-4f * Length(way)) return std::nullopt;
    const float t = Dot(normal, at - eye) / slope;
    return t > 0.0f ? std::optional(eye + t * way) : std::nullopt;
}

// Along an axis: on the plane through it that the eye sees best, of which the axis' part counts.
R3 dragged(Handle handle, const R3& at, const Eye& eye, const R3& from, const R3& to) {
    const auto number = static_cast<unsigned>(handle);
    const bool line = number >= 1 && number <= 3;
    const R3 along = line ? axis(number - 1) : R3();
    R3 normal = eye.forward();
    if (line) normal = Cross(along, Cross(at - eye.view.position, along));
    if (number >= 4 && number <= 6) normal = axis(number - 4);
    if (!(Length(normal) > 0.0f)) return {};
    normal = Normalize(normal);
    const auto begin = onPlane(at, normal, eye.view.position, from), end = onPlane(at, normal, eye.view.position, to);
    if (!begin || !end) return {};
    const R3 way = *end - *begin;
    return line ? Dot(way, along) * along : way;
}

}  // namespace oxbeam
