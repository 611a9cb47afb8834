// What the viewer does with files that come, or change while it looks at them.
#include "Apps/view/Rendering.h"
#include "Apps/view/Viewer.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace oxbeam {

// Whatever has changed and whatever has been loaded.
void Viewer::followFiles() {
    if (const FileWatch::Changes changes = m_watch.take(); !changes.empty())
        m_loader.load({m_command, true, changes.packages, changes.files});
    if (auto outcome = m_loader.take()) loaded(std::move(*outcome));
}

void Viewer::loaded(Loader::Outcome outcome) {
    for (const std::string& message : outcome.messages) say(message);
    if (outcome.failure) return notLoaded(outcome);
    if (!outcome.loaded) return;
    ++m_loads;
    const SceneInfo& info = outcome.loaded->info;
    std::vector<RenderThread::Posted> changes;
    if (outcome.request.again) {
        std::set<std::string> lost;
        changes = m_document.reopen(info, lost);
        if (!lost.empty()) say(fmt::format("changed here, and gone from the scene: {}", fmt::join(lost, ", ")));
        say(fmt::format("{} was loaded again", m_command.render.scene));
    } else {
        m_command = outcome.request.command;
        m_document.open(info);
        m_pick.reset();
        m_light.reset();
        m_kept.clear();
        m_compared.reset();
        m_zoom = 0.0f;
        m_remembered.opened(info.file);
    }
    m_eye = m_document.eye();
    m_look.tone = m_document.tone();
    m_thread.show(outcome.loaded, std::move(changes));
    m_scene = m_thread.scene();
    if (m_pick) pickAgain();
    watchFiles();
}

void Viewer::watchFiles() {
    std::vector<std::filesystem::path> files = m_scene->files;
    files.emplace_back(m_command.render.scene);
    m_watch.watch(files, packageFolders(m_command));
}

// Instances have other numbers; what has another name is another thing.
void Viewer::pickAgain() {
    const auto& instances = m_scene->instances;
    const auto same = std::find_if(instances.begin(), instances.end(), [&](const InstanceInfo& i) {
        return i.name == m_pick->object && i.mesh == m_pick->mesh;
    });
    if (same == instances.end()) return m_pick.reset();
    m_pick->instance = static_cast<unsigned>(same - instances.begin());
    m_pick->shader = same->shader;
}

// What was there before stays to be seen; without that, there is nothing to go on with.
void Viewer::notLoaded(const Loader::Outcome& outcome) {
    if (!m_scene && !outcome.request.command.render.scene.empty() && !outcome.request.later)
        std::rethrow_exception(outcome.failure);
    if (outcome.request.again) m_watch.watchAll();
    try {
        std::rethrow_exception(outcome.failure);
    } catch (const std::exception& e) {
        if (*e.what()) say(e.what());
    }
    const std::string& file = outcome.request.command.render.scene;
    say(outcome.request.again ? fmt::format("{} could not be loaded again: what is shown is as it was before", file)
                              : fmt::format("{} could not be opened", file));
}

}  // namespace oxbeam
