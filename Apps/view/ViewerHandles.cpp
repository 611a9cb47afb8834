// Handles of lights and of what is picked, by which they are dragged in the picture.
#include "Apps/view/Viewer.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace oxbeam {

static float reach() { return 0.8f * ImGui::GetFontSize(); }

std::optional<ImVec2> Viewer::seenAt(const R3& point) const {
    const R3 at = placeOf(m_eye.view, m_eye.fov, m_scene->image, point);
    if (!(at.z > 0.0f)) return std::nullopt;
    return toWindow(0.5f * (at.x + 1.0f) * static_cast<float>(m_scene->image.width),
                    0.5f * (at.y + 1.0f) * static_cast<float>(m_scene->image.height));
}

R3 Viewer::wayAt(const ImVec2& at) const {
    const ImVec2 pixel = toPicture(at);
    const R2 place(2.0f * pixel.x / static_cast<float>(m_scene->image.width) - 1.0f,
                   2.0f * pixel.y / static_cast<float>(m_scene->image.height) - 1.0f);
    return m_eye.pointAt(place, 1.0f, m_scene->image) - m_eye.view.position;
}

// The light whose handle was clicked, or the object that is picked, as they are now.
std::optional<Movable> Viewer::chosen() const {
    if (!m_light) return m_pick ? movableObject(m_document, *m_scene, m_pick->instance) : std::nullopt;
    for (const Movable& handle : lightHandles(m_document, *m_scene))
        if (handle.isSame(*m_light)) return handle;
    return std::nullopt;
}

std::optional<Movable> Viewer::lightAt(const ImVec2& at) const {
    for (const Movable& handle : lightHandles(m_document, *m_scene))
        if (const auto seen = seenAt(handle.at); seen && std::hypot(seen->x - at.x, seen->y - at.y) <= reach())
            return handle;
    return std::nullopt;
}

// As large in the window wherever it is.
Gizmo Viewer::gizmoOf(const Movable& what) const {
    const float depth = std::max(Dot(what.at - m_eye.view.position, m_eye.forward()), 1e-6f);
    const float unit = 2.0f * depth * std::tan(0.5f * m_eye.fov * 3.14159265f / 180.0f) /
                       (m_pixel * static_cast<float>(m_scene->image.height));
    return {what.at, 5.0f * ImGui::GetFontSize() * unit, m_eye, [this](const R3& point) { return seenAt(point); }};
}

void Viewer::drawHandles() {
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    const float radius = 0.45f * ImGui::GetFontSize();
    for (const Movable& handle : lightHandles(m_document, *m_scene)) {
        const auto at = seenAt(handle.at), from = seenAt(handle.light);
        const bool direction = handle.parameter == "direction";
        if (at && from && direction) draw.AddLine(*from, *at, IM_COL32(255, 225, 110, 150), 1.5f);
        if (!at) continue;
        draw.AddCircleFilled(*at, direction ? 0.7f * radius : radius, IM_COL32(255, 225, 110, 200));
        draw.AddCircle(*at, (direction ? 0.7f * radius : radius) + 1.0f, IM_COL32(40, 30, 0, 220), 0, 1.5f);
    }
    if (const auto what = chosen()) {
        const Gizmo gizmo = gizmoOf(*what);
        const bool held = m_drag == Drag::Move;
        gizmo.draw(held ? m_handle : gizmo.handleAt(m_pointer, reach()), 0.17f * ImGui::GetFontSize());
    }
}

// Answers whether there was something to take hold of.
bool Viewer::grab(const ImVec2& at) {
    m_grabbed.reset();
    if (!m_handles) return false;
    if (const auto what = chosen())
        if (m_handle = gizmoOf(*what).handleAt(at, reach()); m_handle != Handle::None) m_grabbed = what;
    if (const auto light = m_grabbed ? std::nullopt : lightAt(at)) {
        m_grabbed = m_light = light;
        m_handle = Handle::Screen;
        m_panel.show(light->place);
    }
    m_grabbedBy = wayAt(at);
    return m_grabbed.has_value();
}

void Viewer::dragGrabbed(const ImVec2& at) {
    moveTo(m_document, *m_scene, *m_grabbed,
           m_grabbed->at + dragged(m_handle, m_grabbed->at, m_eye, m_grabbedBy, wayAt(at)));
}

// The window learns where things are now.
void Viewer::letGo() {
    if (m_dragged && m_grabbed && m_grabbed->parameter.empty()) m_thread.rebuild([](Rendering&) {});
    m_grabbed.reset();
    m_thread.rest();
}

}  // namespace oxbeam
