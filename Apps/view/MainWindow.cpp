#include "Apps/view/MainWindow.h"

#include "Engine/Diagnostics/Error.h"

#include <backends/imgui_impl_sdl.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>

namespace oxbeam {

static constexpr const char* FontFile = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// Pixels for each of the units that SDL counts in.
static float densityOf(SDL_Window* window) {
    int drawn = 0, logical = 0;
    if (SDL_GetWindowFlags(window) & SDL_WINDOW_OPENGL)
        SDL_GL_GetDrawableSize(window, &drawn, nullptr);
    else if (SDL_Renderer* renderer = SDL_GetRenderer(window))
        SDL_GetRendererOutputSize(renderer, &drawn, nullptr);
    SDL_GetWindowSize(window, &logical, nullptr);
    return drawn > logical && logical > 0 ? static_cast<float>(drawn) / static_cast<float>(logical) : 1.0f;
}

// Beyond what SDL scales by itself: by the dots per inch of the screen, where it tells them.
static float scaleOf(SDL_Window* window) {
    float dots = 0.0f;
    if (densityOf(window) > 1.0f || SDL_GetDisplayDPI(SDL_GetWindowDisplayIndex(window), nullptr, &dots, nullptr) != 0)
        return 1.0f;
    return std::clamp(std::round(2.0f * dots / 96.0f) / 2.0f, 1.0f, 4.0f);
}

// Drivers that show nothing to anybody are there for those who name them.
static void startVideo() {
    static const std::set<std::string> unseen = {"offscreen", "dummy", "evdev"};
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS,
                "1");  // who ends the process does not want to be asked about unsaved edits
    const bool started = SDL_Init(SDL_INIT_VIDEO) == 0;
    if (started && (SDL_getenv("SDL_VIDEODRIVER") || !unseen.contains(SDL_GetCurrentVideoDriver()))) return;
    const std::string why = started ? "neither X nor Wayland answers" : SDL_GetError();
    SDL_Quit();
    throw Error(ExitStatus::Usage, "there is no display: " + why + "; `oxbeam render` makes a picture without one");
}

MainWindow::MainWindow(const std::string& title, unsigned width, unsigned height, bool light,
                       std::optional<float> scale) {
    startVideo();
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 0);
    const auto open = [&](Uint32 flags) {
        return SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, static_cast<int>(width),
                                static_cast<int>(height), flags | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI);
    };
    IMGUI_CHECKVERSION();
    ImGui::CreateContext();
    ImGui::GetIO().IniFilename = nullptr;
    if ((m_window = open(SDL_WINDOW_OPENGL))) m_display = openGlDisplay(m_window);
    if (!m_display) {
        if (m_window) SDL_DestroyWindow(m_window);
        if ((m_window = open(0))) m_display = plainDisplay(m_window);
    }
    if (!m_display) throw Error(ExitStatus::Usage, std::string("cannot open a window: ") + SDL_GetError());
    m_scale = scale ? *scale : scaleOf(m_window);
    const float density = densityOf(m_window);
    if (std::filesystem::exists(FontFile))
        ImGui::GetIO().Fonts->AddFontFromFileTTF(FontFile, std::round(15.0f * m_scale * density));
    ImGui::GetIO().FontGlobalScale = 1.0f / density;
    setLight(light);
    SDL_StartTextInput();
}

MainWindow::~MainWindow() {
    m_display.reset();
    ImGui::DestroyContext();
    if (m_window) SDL_DestroyWindow(m_window);
    SDL_Quit();
}

void MainWindow::setLight(bool light) {
    m_light = light;
    ImGuiStyle style;
    (light ? ImGui::StyleColorsLight : ImGui::StyleColorsDark)(&style);
    style.WindowRounding = style.FrameRounding = 3.0f;
    style.WindowBorderSize = 0.0f;
    if (light) {  // else a field is hardly told from what it lies on, nor what is marked read
        style.FrameBorderSize = 1.0f;
        style.Colors[ImGuiCol_Border] = {0.0f, 0.0f, 0.0f, 0.2f};
        style.Colors[ImGuiCol_PlotHistogram] = {0.75f, 0.4f, 0.0f, 1.0f};
    }
    style.ScaleAllSizes(m_scale);
    ImGui::GetStyle() = style;
}

// The interface would ask where the pointer is instead, and never hear of one that a script moves.
void MainWindow::follow(const SDL_Event& event) {
    const auto button = [](Uint8 b) { return b == SDL_BUTTON_LEFT ? 0 : b == SDL_BUTTON_RIGHT ? 1 : 2; };
    if (event.type == SDL_MOUSEMOTION)
        m_pointer = {static_cast<float>(event.motion.x), static_cast<float>(event.motion.y)};
    if (event.type == SDL_MOUSEBUTTONDOWN)
        m_down[button(event.button.button)] = m_pressed[button(event.button.button)] = true;
    if (event.type == SDL_MOUSEBUTTONUP) m_down[button(event.button.button)] = false;
}

void MainWindow::handleEvents(const std::function<void(const SDL_Event&)>& handle) {
    for (SDL_Event event; SDL_PollEvent(&event);) {
        follow(event);
        ImGui_ImplSDL2_ProcessEvent(&event);
        handle(event);
        if (event.type == SDL_DROPFILE || event.type == SDL_DROPTEXT) SDL_free(event.drop.file);
    }
}

void MainWindow::newFrame() {
    m_display->newFrame();
    ImGuiIO& io = ImGui::GetIO();
    io.MousePos = m_pointer;
    for (int i = 0; i < 3; ++i) {
        io.MouseDown[i] = m_down[i] || m_pressed[i];
        m_pressed[i] = false;
    }
    ImGui::NewFrame();
}

void MainWindow::draw(const std::function<void(Display&)>& look) {
    ImGui::Render();
    m_display->draw(ImGui::GetDrawData(),
                    m_light ? ImVec4(0.75f, 0.75f, 0.76f, 1.0f) : ImVec4(0.11f, 0.11f, 0.12f, 1.0f));
    look(*m_display);
    m_display->present();
}

}  // namespace oxbeam
