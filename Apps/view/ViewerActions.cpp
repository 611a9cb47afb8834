#include "Apps/oxbeam/Metadata.h"
#include "Apps/view/Field.h"
#include "Apps/view/Saving.h"
#include "Apps/view/Viewer.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

void Viewer::setEye(const Eye& eye) {
    m_eye = eye;
    m_document.setEye(eye);
    m_thread.rest();
}

// A ground or a sky around everything would hide what is to be framed.
void Viewer::frameWhatIsPicked() {
    Bounds bounds = m_scene->bounds;
    if (m_pick) bounds = m_scene->instances[m_pick->instance].bounds;
    Eye eye = m_eye;
    eye.frame(bounds, m_scene->image);
    setEye(eye);
}

void Viewer::pickAtPointer(float x, float y) {
    m_light.reset();
    m_pick = pickAt(*m_shown, *m_scene, x, y);
    if (m_pick) m_panel.show(m_pick->shader);
}

// Along the way that the eye looks, which is how lenses count.
void Viewer::focusAt(const Pick& pick) {
    const std::string path = m_scene->camera + ".focalDistance";
    if (!m_document.state(path)) return say("the camera has no lens to focus");
    m_document.settle();
    m_document.set(path, {shortest(Dot(pick.position - m_eye.view.position, m_eye.forward())), {}});
    m_thread.rest();
}

void Viewer::copyCommand() {
    const std::string text = commandLine(m_command, m_document, *m_scene, "picture.png", m_scene->samples);
    SDL_SetClipboardText(text.c_str());
    say("copied: " + text);
}

// All of the picture, a pixel for a pixel, and four times as large: around what is under the pointer.
void Viewer::nextZoom() {
    const ImVec2 at = toPicture(m_pointer);
    if (overPicture(m_pointer.x, m_pointer.y)) m_center = at;
    m_zoom = m_zoom == 0.0f ? 1.0f : m_zoom < 4.0f ? 4.0f : 0.0f;
    m_uploaded = 0;
}

void Viewer::save(const std::string& file) try {
    saveScene(file, m_command, m_document, *m_scene);
    m_document.saved();
    if (!isSceneFile(m_command.render.scene)) m_command.render.model = {};  // it is in the scene now
    m_command.render.scene = file;
    m_loader.wrote(file);
    watchFiles();
    say(fmt::format("wrote {}", file));
} catch (const Error& e) {
    say(e.what());
}

void Viewer::writePicture(const std::string& file) {
    m_thread.atRest([this, file, scene = m_scene, document = m_document, command = m_command](Rendering& r) {
        if (r.loop.passes() == 0) throw Error(ExitStatus::Incomplete, "there is no picture to write");
        const std::string text = document.needsFile()
                                     ? "oxbeam view " + shellText({command.render.scene})  // and more, which none says
                                     : commandLine(command, document, *scene, file, r.loop.passes());
        oxbeam::writePicture(file, command, text, document.tone(), r);
        m_thread.say(fmt::format("wrote {} ({} passes)", file, r.loop.passes()));
    });
}

void Viewer::perform(Action action, SDL_Keycode code) try {
    using enum Action;
    if (!m_scene && action != Help && action != Quit && action != Theme && action != Open) return;
    Tone tone = m_document.tone();
    switch (action) {
    case Help: m_help = !m_help; break;
    case Frame: frameWhatIsPicked(); break;
    case View: {
        Eye eye = m_eye;
        eye.lookFrom(viewNames()[static_cast<std::size_t>(code - SDLK_1)], m_scene->bounds, m_scene->image);
        setEye(eye);
        break;
    }
    case Layer:
        m_look.shows = static_cast<Shows>((static_cast<unsigned>(m_look.shows) + 1) % showsNames().size());
        break;
    case ExposureDown:
    case ExposureUp:
        tone.exposure =
            std::clamp(static_cast<float>(shortest(tone.exposure + (action == ExposureUp ? 1.0f : -1.0f) / 3)),
                       -MostExposure, MostExposure);
        m_document.setTone(tone);
        break;
    case Curve:
        tone.curve = static_cast<ToneCurve>((static_cast<unsigned>(tone.curve) + 1) % toneCurveNames().size());
        m_document.setTone(tone);
        break;
    case Undo: m_document.undo(), m_thread.rest(); break;
    case Redo: m_document.redo(), m_thread.rest(); break;
    case Save:
        if (isSceneFile(m_command.render.scene)) return save(m_command.render.scene);
        [[fallthrough]];
    case SaveAs: m_savingAs = fs::path(m_command.render.scene).replace_extension(".toml").string(); break;
    case Picture: writePicture(nextPicture(m_command.render.scene).string()); break;
    case CopyCommand: copyCommand(); break;
    case ActualSize: nextZoom(); break;
    case Messages: m_messagesOpen = !m_messagesOpen; break;
    case Handles: m_handles = !m_handles; break;
    case Open: chooseScene(); break;
    case Keep: keep(); break;
    case Compare: compare(); break;
    case Delete:
        if (m_light) m_document.removeLight(std::exchange(m_light, std::nullopt)->place), m_thread.rest();
        break;
    case Action::Panel: m_panelOpen = !m_panelOpen; break;
    case Theme: m_window.setLight(!m_window.isLight()); break;
    case Histogram: m_histogram = !m_histogram; break;
    case Quit: {
        SDL_Event event{};
        event.type = SDL_QUIT;
        SDL_PushEvent(&event);
        break;
    }
    }
} catch (const Error& e) {
    say(e.what());
}

}  // namespace oxbeam
