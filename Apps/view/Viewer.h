// The viewer: what the window shows, and what is done in it.
#pragma once

#include "Apps/view/Document.h"
#include "Apps/view/FileChooser.h"
#include "Apps/view/FileWatch.h"
#include "Apps/view/Gizmo.h"
#include "Apps/view/Keys.h"
#include "Apps/view/MainWindow.h"
#include "Apps/view/Movable.h"
#include "Apps/view/Panel.h"
#include "Apps/view/Picking.h"
#include "Apps/view/Remembered.h"

#include <deque>
#include <future>
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
    // Of the state that is compared with.
    const Shown* other() const { return m_other.get(); }
    std::size_t keptCount() const { return m_kept.size(); }
    const std::vector<std::string>& recentFiles() const { return m_remembered.files(); }
    bool showsHint() const { return !m_remembered.knowsHint(); }
    // There is no scene, and none is being loaded.
    bool isIdle() const { return !m_scene && !m_loader.isBusy(); }
    bool choosesFile() const { return m_chooser.isOpen(); }
    void bringBack(std::size_t kept);
    const Look& look() const { return m_look; }
    const std::vector<std::string>& messages() const { return m_messages; }
    const Panel& panel() const { return m_panel; }
    Panel& panel() { return m_panel; }
    const Document& document() const { return m_document; }
    Document& document() { return m_document; }
    RenderThread& thread() { return m_thread; }
    const MainWindow& window() const { return m_window; }
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
    unsigned loads() const { return m_loads; }

private:
    enum class Drag { None, Orbit, Pan, Turn, Move, Divider };

    // Viewer.cpp
    void frame();
    void follow();
    void place();
    void draw();
    void drawPicture();
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
    bool overPicture(float x, float y) const;

    // ViewerHandles.cpp
    void drawHandles();
    bool grab(const ImVec2& at);
    void dragGrabbed(const ImVec2& at);
    void letGo();
    std::optional<Movable> chosen() const;
    std::optional<Movable> lightAt(const ImVec2& at) const;
    Gizmo gizmoOf(const Movable& what) const;
    std::optional<ImVec2> seenAt(const R3& point) const;
    R3 wayAt(const ImVec2& at) const;

    // ViewerCompare.cpp
    struct Kept;
    void keep();
    void picture(Kept& kept) const;
    void compare();
    void followCompared();
    void drawCompared();
    void drawKept();
    void forget(std::size_t number);
    float dividerX() const;

    // ViewerFiles.cpp
    void followFiles();
    void loaded(Loader::Outcome outcome);
    void notLoaded(const Loader::Outcome& outcome);
    void pickAgain();
    void watchFiles();

    // ViewerOpening.cpp
    void wantFile(const std::string& file);
    void openFile(const std::string& file);
    void chooseScene();
    void dropped(const std::string& file);
    void addPicture(const std::filesystem::path& file, const std::string& place);
    void followPictures();
    void use(const AddedTexture& texture, const std::string& place);
    void drawStart();

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
    Remembered m_remembered;
    FileChooser m_chooser;
    std::optional<std::string> m_wantedFile;  // to be opened when nothing is unsaved any more
    struct Awaited {
        AddedTexture texture;
        std::string place;  // of an object, or of a parameter
        std::future<std::shared_ptr<const Texture>> picture;
    };
    std::vector<Awaited> m_awaited;
    Look m_look;
    std::optional<Pick> m_pick;

    bool m_open = true, m_closing = false, m_help = false, m_panelOpen = true, m_histogram = false, m_handles = true;
    bool m_messagesOpen = false;
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
    unsigned m_loads = 0;  // scenes that came to be shown

    // States that were kept: their pictures, and the one that is compared with what there is now
    struct Kept {
        unsigned width = 0, height = 0;
        std::vector<std::uint8_t> rgba;
        ImTextureID texture = nullptr;
        std::uint64_t revision = 0;  // of the document: its latest picture counts
    };
    std::vector<Kept> m_kept;  // as the document has the states
    std::optional<std::size_t> m_compared;
    std::uint64_t m_comparedRevision = 0, m_otherUploaded = 0;
    std::shared_ptr<const Shown> m_other;
    ImTextureID m_otherTexture = nullptr;
    float m_divider = 0.5f;  // share of the picture's width that shows the other

    // The pointer and the keys
    Drag m_drag = Drag::None;
    std::optional<Movable> m_light, m_grabbed;  // whose handle was clicked; what is being dragged,
    Handle m_handle = Handle::None;             // by which handle,
    R3 m_grabbedBy;                             // and from which way of the eye
    bool m_dragged = false, m_eyeMoved = false;
    ImVec2 m_pointer, m_pressedAt;
    std::set<SDL_Keycode> m_held;
    Uint64 m_flown = 0;  // when, in SDL's ticks
    Eye m_eye;
};

}  // namespace oxbeam
