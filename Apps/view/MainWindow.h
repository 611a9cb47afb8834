// The window, and what its pointer and keys do, as events tell it.
#pragma once

#include "Apps/view/Display.h"

#include <functional>
#include <optional>
#include <string>

namespace oxbeam {

class MainWindow {
public:
    // `scale` instead of what the screen asks for. Throws Error(Usage) where there is no display.
    MainWindow(const std::string& title, unsigned width, unsigned height, bool light, std::optional<float> scale);
    ~MainWindow();
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    void setTitle(const std::string& title) { SDL_SetWindowTitle(m_window, title.c_str()); }
    void resize(int width, int height) { SDL_SetWindowSize(m_window, width, height); }
    void setLight(bool light);
    bool isLight() const { return m_light; }
    // Hands all events on, those that the interface makes use of as well.
    void handleEvents(const std::function<void(const SDL_Event&)>& handle);
    // Waits for one, but no longer than this.
    void waitForEvent(int milliseconds) { SDL_WaitEventTimeout(nullptr, milliseconds); }

    void newFrame();
    // Ends the frame and draws it. `look` may read the pixels before they are presented.
    void draw(const std::function<void(Display&)>& look);
    Display& display() const { return *m_display; }
    // Of everything, on screens with many pixels.
    float scale() const { return m_scale; }

private:
    void follow(const SDL_Event& event);

    SDL_Window* m_window = nullptr;
    std::unique_ptr<Display> m_display;
    bool m_light = false;
    float m_scale = 1.0f;
    ImVec2 m_pointer{-1.0f, -1.0f};
    bool m_down[3] = {}, m_pressed[3] = {};  // left, right, middle; pressed since the last frame
};

}  // namespace oxbeam
