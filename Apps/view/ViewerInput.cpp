#include "Apps/view/Field.h"
#include "Apps/view/Viewer.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

// A press that goes no farther is a click.
static constexpr float Slack = 4.0f;

bool Viewer::overPicture(float x, float y) const {
    const ImVec4 area = pictureArea();
    return x >= area.x && x < area.x + area.z && y >= area.y && y < area.y + area.w &&
           !ImGui::IsPopupOpen("", ImGuiPopupFlags_AnyPopup);
}

// What turns or moves the picture is seen in the next one, and draws nothing before.
static bool isSeenInPicture(const SDL_Event& event, bool turning) { return turning && event.type == SDL_MOUSEMOTION; }

void Viewer::handle(const SDL_Event& event) {
    const bool turning = m_drag == Drag::Orbit || m_drag == Drag::Pan || m_drag == Drag::Turn;
    if (!isSeenInPicture(event, turning)) m_redraw = 3;
    switch (event.type) {
    case SDL_QUIT:
        m_wantedFile.reset();
        m_closing = m_document.isDirty();
        m_open = m_closing;
        break;
    case SDL_DROPFILE: dropped(event.drop.file); break;
    case SDL_MOUSEBUTTONDOWN: pressed(event.button); break;
    case SDL_MOUSEBUTTONUP: released(event.button); break;
    case SDL_MOUSEMOTION: moved(event.motion); break;
    case SDL_MOUSEWHEEL: scrolled(event.wheel); break;
    case SDL_MULTIGESTURE: touched(event.mgesture); break;
    case SDL_KEYDOWN: keyed(event.key); break;
    case SDL_KEYUP:
        if (m_held.erase(event.key.keysym.sym) && m_held.empty()) m_thread.rest();
        break;
    default: break;
    }
}

// ---- The pointer

void Viewer::pressed(const SDL_MouseButtonEvent& button) {
    m_pointer = m_pressedAt = {static_cast<float>(button.x), static_cast<float>(button.y)};
    m_dragged = false;
    if (!m_scene || !overPicture(m_pointer.x, m_pointer.y) || ImGui::GetIO().WantCaptureMouse) return;
    m_remembered.learnHint();
    const bool shift = SDL_GetModState() & KMOD_SHIFT;
    const bool left = button.button == SDL_BUTTON_LEFT;
    const bool divider = left && m_compared && std::fabs(m_pointer.x - dividerX()) <= 2.0f * Slack;
    m_document.settle();
    m_drag = divider                              ? Drag::Divider
             : left && !shift && grab(m_pointer)  ? Drag::Move
             : button.button == SDL_BUTTON_RIGHT  ? Drag::Turn
             : button.button == SDL_BUTTON_MIDDLE ? Drag::Pan
             : shift                              ? Drag::Pan
                                                  : Drag::Orbit;
}

void Viewer::released(const SDL_MouseButtonEvent& button) {
    const Drag drag = std::exchange(m_drag, Drag::None);
    m_document.settle();
    if (drag == Drag::None) return m_thread.rest();
    if (drag == Drag::Divider) return;
    if (drag == Drag::Move) {
        letGo();
    } else if (m_dragged) {
        if (std::exchange(m_eyeMoved, false)) m_document.setEye(m_eye);
        m_thread.rest();
    } else if (button.button == SDL_BUTTON_LEFT) {
        clicked(button);
    }
}

// Half a turn for the width of the picture.
void Viewer::moved(const SDL_MouseMotionEvent& motion) {
    const ImVec2 now(static_cast<float>(motion.x), static_cast<float>(motion.y));
    const float dx = now.x - m_pointer.x, dy = now.y - m_pointer.y;
    m_pointer = now;
    if (m_drag == Drag::None) return;
    if (!m_dragged && std::hypot(now.x - m_pressedAt.x, now.y - m_pressedAt.y) < Slack) return;
    m_dragged = true;
    const float height = m_pixel * static_cast<float>(m_scene->image.height);
    const float angle = 3.14159265f / (m_pixel * static_cast<float>(m_scene->image.width));
    if (m_drag == Drag::Move) return dragGrabbed(now);
    if (m_drag == Drag::Divider) {
        const float width = m_pixel * static_cast<float>(m_scene->image.width);
        m_divider = std::clamp((now.x - m_origin.x) / width, 0.0f, 1.0f);
        return;
    }
    if (m_drag == Drag::Orbit) m_eye.orbit(angle * dx, angle * dy);
    if (m_drag == Drag::Turn) m_eye.turn(angle * dx, -angle * dy);
    if (m_drag == Drag::Pan) m_eye.pan(dx / height, dy / height);
    m_eyeMoved = true;
}

void Viewer::scrolled(const SDL_MouseWheelEvent& wheel) {
    if (!m_scene || !overPicture(m_pointer.x, m_pointer.y) || ImGui::GetIO().WantCaptureMouse) return;
    m_remembered.learnHint();
    if (SDL_GetModState() & KMOD_SHIFT)
        m_eye.pan(0.05f * wheel.preciseX, 0.05f * wheel.preciseY);
    else
        m_eye.dolly(std::pow(0.9f, wheel.preciseY));
    if (wheel.preciseX != 0.0f && !(SDL_GetModState() & KMOD_SHIFT)) m_eye.orbit(-0.05f * wheel.preciseX, 0.0f);
    m_eyeMoved = true;
}

void Viewer::touched(const SDL_MultiGestureEvent& gesture) {
    if (!m_scene || gesture.numFingers != 2) return;
    m_drag = Drag::None;  // which the first finger has begun
    m_eye.dolly(std::exp(-3.0f * gesture.dDist));
    m_eyeMoved = true;
}

void Viewer::clicked(const SDL_MouseButtonEvent& button) {
    if (!m_shown) return;
    const ImVec2 at = toPicture(m_pointer);
    const auto pick = pickAt(*m_shown, *m_scene, at.x, at.y);
    if (SDL_GetModState() & KMOD_SHIFT) {
        if (pick) focusAt(*pick);
    } else if (button.clicks == 2) {
        if (pick) m_eye.pivot = pick->position;
    } else {
        pickAtPointer(at.x, at.y);
    }
}

// ---- Keys

static bool isFlying(SDL_Keycode code) {
    static const std::set<SDL_Keycode> keys = {SDLK_w, SDLK_a, SDLK_s, SDLK_d, SDLK_e, SDLK_q};
    return keys.contains(code);
}

void Viewer::keyed(const SDL_KeyboardEvent& key) {
    if (ImGui::GetIO().WantTextInput || m_closing || m_savingAs || m_chooser.isOpen()) return;
    if (key.keysym.sym != SDLK_F1 && m_scene) m_remembered.learnHint();
    const bool control = key.keysym.mod & (KMOD_CTRL | KMOD_GUI);
    if (key.keysym.sym == SDLK_ESCAPE) m_help = false, m_pick.reset(), m_light.reset();
    if (!control && isFlying(key.keysym.sym) && m_scene) {
        if (m_held.empty()) m_flown = SDL_GetTicks64();
        m_held.insert(key.keysym.sym);
        return;
    }
    if (const Key* known = keyFor(key.keysym)) perform(known->action, key.keysym.sym);
}

// Through the scene in three seconds.
void Viewer::fly() {
    if (m_held.empty()) return;
    const Uint64 now = SDL_GetTicks64();
    const float seconds = std::min(0.1f, 0.001f * static_cast<float>(now - std::exchange(m_flown, now)));
    const auto along = [&](SDL_Keycode forwards, SDL_Keycode backwards) {
        return static_cast<float>(m_held.contains(forwards)) - static_cast<float>(m_held.contains(backwards));
    };
    const float radius = m_scene->bounds.empty ? 1.0f : std::min(m_scene->bounds.radius(), 10.0f * m_eye.distance());
    m_eye.fly(0.6f * radius * seconds * R3(along(SDLK_d, SDLK_a), along(SDLK_e, SDLK_q), along(SDLK_w, SDLK_s)));
    m_eyeMoved = true;
}

}  // namespace oxbeam
