// The viewer: what the window shows, and what is done in it.
#pragma once

#include "Apps/view/Document.h"
#include "Apps/view/FileWatch.h"
#include "Apps/view/Keys.h"
#include "Apps/view/MainWindow.h"
#include "Apps/view/Panel.h"
#include "Apps/view/Picking.h"

#include <deque>
#include <set>

namespace oxbeam {

class Script;

class Viewer {
public:
    explicit Viewer(const ViewCommand& command);
    ~Viewer();

    // Until the window is closed or the script ends. Throws what there was no scene for, and what the script says.
    void run();

    // ---- What scripts ask for and do

    const SceneInfo* scene() const { return m_scene.get(); }
    const Shown* shown() const { return m_shown.get(); }
    const std::optional<Pick>& pick() const { return m_pick; }
    const Look& look() const { return m_look; }
    const std::vector<std::string>& messages() const { return m_messages; }
    const Panel& panel() const { return m_panel; }
    Panel& panel() { return m_panel; }
    Document& document() { return m_document; }
    RenderThread& thread() { return m_thread; }
    MainWindow& window() { return m_window; }
    // A place in the picture, in pixels of its full size, as one in the window, and the other way round.
    ImVec2 toWindow(float x, float y) const;
    ImVec2 toPicture(const ImVec2& at) const;
    bool asksToSave() const { return m_closing; }

    void save(const std::string& file);
    void writePicture(const std::string& file);
    void screenshot(const std::string& file) { m_screenshot = file; }
    bool hasScreenshot() const { return m_screenshot.empty(); }
    // What a script has done may show.
    void redraw() { m_redraw = 3; }

    // Pictures that were presented for the first time, by their frames, and the longest time in seconds that the window
    // took to speak with the other threads.
    std::uint64_t updates() const { return m_updates; }
    double longestWait() const { return m_longestWait; }

private:
    enum class Drag { None, Orbit, Pan, Turn, Light };

    // Viewer.cpp
    void frame();
    void follow();
    void place();
    void draw();
    void drawPicture();
    void drawHandles();
    void drawQuestions();
    void upload();
    void say(const std::string& message);
    ImVec4 pictureArea() const;

    // ViewerInput.cpp
    void handle(const SDL_Event& event);
    void pressed(const SDL_MouseButtonEvent& button);
    void released(const SDL_MouseButtonEvent& button);
    void moved(const SDL_MouseMotionEvent& motion);
    void scrolled(const SDL_MouseWheelEvent& wheel);
    void touched(const SDL_MultiGestureEvent& gesture);
    void keyed(const SDL_KeyboardEvent& key);
    void fly();
    void clicked(const SDL_MouseButtonEvent& button);
    void dragLight(float dx, float dy);
    bool overPicture(float x, float y) const;
    int lightAtPointer(float x, float y) const;

    // ViewerFiles.cpp
    void followFiles();
    void loaded(Loader::Outcome outcome);
    void notLoaded(const Loader::Outcome& outcome);
    void pickAgain();
    void watchFiles();

    // ViewerActions.cpp
    void perform(Action action, SDL_Keycode code);
    void setEye(const Eye& eye);
    void frameWhatIsPicked();
    void pickAtPointer(float x, float y);
    void focusAt(const Pick& pick);
    void copyCommand();
    void nextZoom();

    ViewCommand m_command;
    MainWindow m_window;
    Loader m_loader;
    FileWatch m_watch;
    RenderThread m_thread;
    Document m_document;
    Panel m_panel;
    std::unique_ptr<Script> m_script;
    std::shared_ptr<const SceneInfo> m_scene;
    std::shared_ptr<const Shown> m_shown;
    std::vector<std::string> m_messages;
    Look m_look;
    std::optional<Pick> m_pick;

    bool m_open = true, m_closing = false, m_help = false, m_panelOpen = true, m_histogram = false, m_handles = true;
    bool m_hint = true, m_messagesOpen = false;
    std::string m_title, m_screenshot;
    std::optional<std::string> m_savingAs;  // what stands in the field
    int m_redraw = 3;                       // frames that are to be drawn although nothing has happened

    // The picture in the window
    ImTextureID m_texture = nullptr;
    std::uint64_t m_uploaded = 0, m_updates = 0, m_lastFrame = 0;
    std::optional<unsigned> m_outlined;
    float m_zoom = 0.0f;  // pixels of the screen for one of the picture; 0: all of it
    ImVec2 m_center;      // of the picture, what is in the middle when zoomed
    ImVec2 m_origin;      // of the picture in the window
    float m_pixel = 1.0f;
    double m_longestWait = 0.0;

    // The pointer and the keys
    Drag m_drag = Drag::None;
    int m_light = -1;
    bool m_dragged = false, m_eyeMoved = false;
    ImVec2 m_pointer, m_pressedAt;
    std::set<SDL_Keycode> m_held;
    Uint64 m_flown = 0;  // when, in SDL's ticks
    Eye m_eye;
};

}  // namespace oxbeam
