// Handles at a point, by which it is dragged along an axis of the world, or on a plane of two.
#pragma once

#include "Apps/view/Navigation.h"

#include <imgui.h>

#include <array>
#include <functional>
#include <optional>

namespace oxbeam {

// Of which axes it changes; Screen: on the plane through the point that lies as the picture does.
enum class Handle { None, X, Y, Z, YZ, ZX, XY, Screen };

class Gizmo {
public:
    // Where a point of the world is in the window; nothing behind the eye.
    using ToWindow = std::function<std::optional<ImVec2>(const R3&)>;

    // Around a point; `length` is that of its arrows, in the world. What would be seen from its end is left out.
    Gizmo(const R3& at, float length, const Eye& eye, const ToWindow& toWindow);

    // That the pointer is on; `reach` in pixels of the window.
    Handle handleAt(const ImVec2& pointer, float reach) const;
    // The one that is held or pointed at is told apart.
    void draw(Handle chosen, float thickness) const;

private:
    using Corners = std::array<ImVec2, 4>;

    std::optional<ImVec2> m_origin;
    std::array<std::optional<ImVec2>, 3> m_tips;      // of x, y, z
    std::array<std::optional<Corners>, 3> m_squares;  // across x, y, z
};

// How far a point goes that is dragged by a handle, where the pointer went from one way of the eye to another.
R3 dragged(Handle handle, const R3& at, const Eye& eye, const R3& from, const R3& to);

}  // namespace oxbeam
