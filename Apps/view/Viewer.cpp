#include "Apps/view/Viewer.h"

#include "Apps/view/Script.h"
#include "Apps/view/StatusBar.h"
#include "Engine/Output/ImageFile.h"

#include <imgui_stdlib.h>

#include <fmt/format.h>

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace oxbeam {

Viewer::Viewer(const ViewCommand& command)
    : m_command(command), m_window("oxbeam", 1280, 800, command.theme == "light", command.scale), m_document(m_thread),
      m_panel(m_document, [this](const std::string& said) { say(said); }) {
    m_panel.chooseTexture = [this](const std::string& path) {
        const std::filesystem::path scene = m_command.render.scene;
        m_chooser.open("Texture", scene.parent_path(), isPicture,
                       [this, path](const std::filesystem::path& file) { addPicture(file, path); });
    };
    if (!command.render.scene.empty()) m_loader.load({m_command});
    if (!command.script.empty()) m_script = std::make_unique<Script>(command.script);
}

Viewer::~Viewer() { m_loader.giveUp(); }

void Viewer::say(const std::string& message) {
    constexpr std::size_t most = 500;
    if (m_messages.size() == most) m_messages.erase(m_messages.begin());
    m_messages.push_back(message);
    m_redraw = 3;
}

// Nothing is drawn while nothing happens: the processors are for the picture.
void Viewer::run() {
    while (m_open) {
        follow();
        if (const std::exception_ptr failure = m_thread.failure()) std::rethrow_exception(failure);
        if (m_script && !m_script->step(*this)) return;
        const int patience = m_script || m_redraw > 0 || !m_held.empty() ? 1 : 12;
        m_window.waitForEvent(patience);
        m_window.handleEvents([this](const SDL_Event& event) { handle(event); });
        if (m_redraw > 0 || !m_held.empty()) frame();
    }
}

// How often this thread has slept, as for a lock or a disc; while others have the processor, it does not.
static long sleeps() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

// What the other threads have made, and what is wanted of them.
void Viewer::follow() {
    const Stopwatch clock;
    const long before = sleeps();
    fly();
    if (std::exchange(m_eyeMoved, false)) m_document.setEye(m_eye);
    for (const std::string& message : m_thread.takeMessages()) say(message);
    followFiles();
    followPictures();
    if (const auto scene = m_thread.scene(); scene != m_scene) {
        m_scene = scene;
        m_redraw = 3;
    }
    if (!(m_look.tone == m_document.tone())) m_look.tone = m_document.tone();
    m_thread.developer().setLook(m_look);
    followCompared();
    if (const auto shown = m_thread.developer().latest(); shown != m_shown) {
        m_shown = shown;
        m_redraw = std::max(m_redraw, 1);
        if (!m_kept.empty() && m_kept.back().revision == m_document.revision()) picture(m_kept.back());
    }
    if (sleeps() != before) m_longestWait = std::max(m_longestWait, clock.seconds());
}

void Viewer::frame() {
    --m_redraw;
    const std::string& scene = m_command.render.scene;
    const std::string title =
        scene.empty() ? "oxbeam" : fmt::format("{}{} - oxbeam", m_document.isDirty() ? "* " : "", scene);
    if (title != m_title) m_window.setTitle(m_title = title);
    m_window.newFrame();
    place();
    upload();
    draw();
    m_window.draw([&](Display& display) {
        if (m_screenshot.empty()) return;
        const Pixels pixels = display.read();
        std::vector<R3> colors;
        colors.reserve(pixels.rgb.size() / 3);
        const auto light = [](std::uint8_t value) {
            const float v = static_cast<float>(value) / 255.0f;
            return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f);
        };
        for (std::size_t i = 0; i + 2 < pixels.rgb.size(); i += 3)
            colors.emplace_back(light(pixels.rgb[i]), light(pixels.rgb[i + 1]), light(pixels.rgb[i + 2]));
        writeImage(m_screenshot, pixels.width, pixels.height, colors);
        m_screenshot.clear();
    });
}

// ---- The picture

static float barHeight() { return 2.2f * ImGui::GetFontSize(); }
static float panelWidth() { return 25.0f * ImGui::GetFontSize(); }

// x, y, width, height
ImVec4 Viewer::pictureArea() const {
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    return {0.0f, 0.0f, std::max(1.0f, size.x - (m_panelOpen ? panelWidth() : 0.0f)),
            std::max(1.0f, size.y - barHeight())};
}

// Where the picture is in the window.
void Viewer::place() {
    if (!m_scene) return;
    const ImVec4 area = pictureArea();
    const auto width = static_cast<float>(m_scene->image.width), height = static_cast<float>(m_scene->image.height);
    const ImVec2 middle(0.5f * area.z, 0.5f * area.w);
    m_pixel = m_zoom > 0.0f ? m_zoom : std::min(area.z / width, area.w / height);
    if (m_zoom == 0.0f) m_center = {0.5f * width, 0.5f * height};
    m_origin = {std::floor(middle.x - m_pixel * m_center.x), std::floor(middle.y - m_pixel * m_center.y)};
}

ImVec2 Viewer::toWindow(float x, float y) const { return {m_origin.x + m_pixel * x, m_origin.y + m_pixel * y}; }

ImVec2 Viewer::toPicture(const ImVec2& at) const {
    return {(at.x - m_origin.x) / m_pixel, (at.y - m_origin.y) / m_pixel};
}

// With the outline of what is picked.
void Viewer::upload() {
    const auto outlined = m_pick ? std::optional(m_pick->instance) : std::nullopt;
    if (!m_shown || (m_shown->serial == m_uploaded && outlined == m_outlined)) return;
    m_uploaded = m_shown->serial;
    m_outlined = outlined;
    if (std::exchange(m_lastFrame, m_shown->frame.number) != m_shown->frame.number) ++m_updates;
    const bool smooth = m_shown->coarse() || m_zoom < 2.0f;
    if (!outlined) {
        m_texture =
            m_window.display().picture(Display::Main, m_shown->width, m_shown->height, m_shown->rgba.data(), smooth);
        return;
    }
    std::vector<std::uint8_t> rgba = m_shown->rgba;
    for (const auto& [x, y] : outlineOf(*m_shown, *outlined)) {
        std::uint8_t* pixel = &rgba[4 * (std::size_t{y} * m_shown->width + x)];
        pixel[0] = 255, pixel[1] = 165, pixel[2] = 30;
    }
    m_texture = m_window.display().picture(Display::Main, m_shown->width, m_shown->height, rgba.data(), smooth);
}

void Viewer::drawPicture() {
    const ImVec4 area = pictureArea();
    ImDrawList& draw = *ImGui::GetBackgroundDrawList();
    if (!m_scene && m_command.render.scene.empty() && !m_loader.isBusy()) return drawStart();
    if (!m_scene || !m_shown || !m_texture) {
        const char* text = "loading ...";
        const ImVec2 size = ImGui::CalcTextSize(text);
        draw.AddText({0.5f * (area.z - size.x), 0.5f * (area.w - size.y)}, ImGui::GetColorU32(ImGuiCol_Text), text);
        return;
    }
    draw.PushClipRect({area.x, area.y}, {area.x + area.z, area.y + area.w});
    const auto width = static_cast<float>(m_scene->image.width), height = static_cast<float>(m_scene->image.height);
    draw.AddImage(m_texture, m_origin, {m_origin.x + m_pixel * width, m_origin.y + m_pixel * height});
    drawCompared();
    if (m_handles) drawHandles();
    const float size = 2.6f * ImGui::GetFontSize();
    drawAxes(m_eye, {area.x + 1.8f * size, area.y + area.w - 1.8f * size}, size);
    if (m_histogram)
        drawHistogram(*m_shown, {area.x + area.z - 8.0f * size, area.y + area.w - 4.5f * size},
                      {7.6f * size, 4.0f * size});
    if (showsHint()) {
        const float unit = ImGui::GetFontSize();
        draw.AddText({area.x + 0.5f * unit, area.y + 0.3f * unit}, IM_COL32(255, 255, 255, 200),
                     "drag to turn, wheel to come nearer, click to pick; F1 lists all keys");
    }
    draw.PopClipRect();
}

// ---- What lies around and over it

static std::string describePixel(const Shown& shown, const SceneInfo& scene, const ImVec2& at) {
    const auto light = lightAt(shown, at.x, at.y);
    if (!light) return {};
    const auto pick = pickAt(shown, scene, at.x, at.y);
    return fmt::format("({}, {})  {:.4g}  {:.4g}  {:.4g}  {}", static_cast<int>(at.x), static_cast<int>(at.y), light->x,
                       light->y, light->z, pick ? pick->object : "");
}

void Viewer::draw() {
    drawPicture();
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    if (m_panelOpen && m_scene)
        m_panel.draw(*m_scene, {size.x - panelWidth(), 0.0f}, {panelWidth(), size.y - barHeight()});
    const bool points = m_scene && m_shown && overPicture(m_pointer.x, m_pointer.y);
    const std::string layer =
        m_look.shows == Shows::Color ? "" : showsNames()[static_cast<std::size_t>(m_look.shows)] + "  ";
    drawStatusBar({0.0f, size.y - barHeight()}, {size.x, barHeight()}, m_thread.pulse(),
                  layer + (points ? describePixel(*m_shown, *m_scene, toPicture(m_pointer)) : ""),
                  m_messages.empty() ? "" : m_messages.back());
    drawKept();
    if (m_pick) drawPick(*m_pick, {8.0f, 2.0f * ImGui::GetFontSize()});
    if (m_help) drawHelp(m_help);
    if (m_messagesOpen) drawMessages(m_messages, m_messagesOpen);
    drawQuestions();
    m_chooser.draw();
}

void Viewer::drawQuestions() {
    if (m_closing) ImGui::OpenPopup("Unsaved changes");
    if (ImGui::BeginPopupModal("Unsaved changes", nullptr, ImGuiWindowFlags_AlwaysAutoResize)) {
        ImGui::TextUnformatted("The scene has been changed.");
        const bool save = ImGui::Button("Save"), discard = (ImGui::SameLine(), ImGui::Button("Discard"));
        const bool stay = (ImGui::SameLine(), ImGui::Button("Cancel")) || ImGui::IsKeyPressed(SDL_SCANCODE_ESCAPE);
        if (save) m_closing = false, perform(Action::Save, 0);
        const bool goOn = discard || (save && !m_document.isDirty());
        if (goOn && m_wantedFile)
            openFile(*m_wantedFile);
        else if (goOn)
            m_open = false;
        if (save || discard || stay) m_closing = false, m_wantedFile.reset(), ImGui::CloseCurrentPopup();
        ImGui::EndPopup();
    }
    if (!m_savingAs) return;
    ImGui::OpenPopup("Save as");
    if (ImGui::BeginPopupModal("Save as", nullptr, ImGuiWindowFlags_AlwaysAutoResize)) {
        if (ImGui::IsWindowAppearing()) ImGui::SetKeyboardFocusHere();
        const bool entered = ImGui::InputText("file", &*m_savingAs, ImGuiInputTextFlags_EnterReturnsTrue);
        const bool wanted = ImGui::Button("Save") || entered;
        const bool not_wanted =
            (ImGui::SameLine(), ImGui::Button("Cancel")) || ImGui::IsKeyPressed(SDL_SCANCODE_ESCAPE);
        if (wanted) save(*m_savingAs);
        if (wanted || not_wanted) m_savingAs.reset(), ImGui::CloseCurrentPopup();
        ImGui::EndPopup();
    }
}

}  // namespace oxbeam
