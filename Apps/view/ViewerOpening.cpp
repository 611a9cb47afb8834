// Files that are opened or dropped: scenes and models to be shown, pictures to become textures or surroundings.
#include "Apps/view/Viewer.h"
#include "Engine/Textures/TextureFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Scenes and models

// Asks first about what would be lost.
void Viewer::wantFile(const std::string& file) {
    if (!m_document.isDirty()) return openFile(file);
    m_wantedFile = file;
    m_closing = true;
}

// What the command line said of the first scene's objects and view is not for others.
void Viewer::openFile(const std::string& file) {
    ViewCommand command = m_command;
    command.render.scene = file;
    command.render.model = {};
    command.render.set.clear();
    command.render.camera.clear();
    m_loader.load({command, false, false, {}, true});
}

void Viewer::chooseScene() {
    m_chooser.open(
        "Open", fs::path(m_command.render.scene).parent_path(), isSceneOrModel,
        [this](const fs::path& file) { wantFile(file.string()); }, m_remembered.files());
}

// Instead of a picture, where there is no scene: what was opened last.
void Viewer::drawStart() {
    const ImVec2 size = ImGui::GetIO().DisplaySize;
    ImGui::SetNextWindowPos({0.5f * size.x, 0.45f * size.y}, ImGuiCond_Always, {0.5f, 0.5f});
    ImGui::Begin("start", nullptr,
                 ImGuiWindowFlags_NoDecoration | ImGuiWindowFlags_NoMove | ImGuiWindowFlags_NoSavedSettings |
                     ImGuiWindowFlags_AlwaysAutoResize);
    ImGui::TextUnformatted("Drop a scene or a model here, or open one.");
    if (ImGui::Button("Open ...")) chooseScene();
    if (!m_remembered.files().empty()) {
        ImGui::Separator();
        ImGui::TextDisabled("opened last");
    }
    for (const std::string& file : m_remembered.files())
        if (ImGui::Selectable(file.c_str())) openFile(file);
    ImGui::End();
}

// ---- Pictures

// A picture of light lies around the scene, any other on the surface where it is dropped, or which is picked.
void Viewer::dropped(const std::string& file) {
    if (!isPicture(file)) return wantFile(file);
    if (!m_scene || !m_shown) return say("there is no scene yet for a picture");
    if (isLightPicture(file)) return addPicture(file, "environment");
    const ImVec2 at = toPicture(m_pointer);
    const auto under = pickAt(*m_shown, *m_scene, at.x, at.y);
    if (!under && !m_pick) return say("drop a picture onto a surface, or pick one first");
    addPicture(file, under ? under->shader : m_pick->shader);
}

// It is decoded beside all else.
void Viewer::addPicture(const fs::path& file, const std::string& place) {
    const auto read = [file]() -> std::shared_ptr<const Texture> { return loadTexture(file); };
    m_awaited.push_back(
        {{"", file, place == "environment", nullptr, false}, place, std::async(std::launch::async, read)});
}

void Viewer::followPictures() {
    for (std::size_t i = 0; i < m_awaited.size();) {
        if (m_awaited[i].picture.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            ++i;
            continue;
        }
        Awaited awaited = std::move(m_awaited[i]);
        m_awaited.erase(m_awaited.begin() + static_cast<std::ptrdiff_t>(i));
        try {
            awaited.texture.picture = awaited.picture.get();
            use(awaited.texture, awaited.place);
        } catch (const std::exception& e) {
            say(e.what());
        }
    }
}

// Of the names by which surfaces take their colour from a picture, else the first that takes any.
static std::string textureParameter(const ObjectInfo& object) {
    for (const char* name : {"texture", "texture0", "diffuseTexture", "baseColorTexture"})
        if (const ParameterDeclaration* p = object.object->find(name)) return p->id;
    for (const ParameterDeclaration& p : object.object->parameters)
        if (isTexture(p)) return p.id;
    return {};
}

void Viewer::use(const AddedTexture& texture, const std::string& place) {
    m_document.settle();
    std::string path = place;
    if (const ObjectInfo* object = m_document.object(place)) {
        const ObjectClass* sky = m_scene->registry->find("KelEnvironment");
        if (place == "environment" && textureParameter(*object).empty() && sky) m_document.setClass(place, *sky);
        const std::string id = textureParameter(*m_document.object(place));
        if (id.empty()) return say(fmt::format("{} takes no texture", labelOf(place)));
        path = place + '.' + id;
    } else if (!m_document.state(place)) {
        return say(fmt::format("the scene has no {} to put {} on", labelOf(place), texture.file.string()));
    }
    m_document.set(path, {m_document.addTexture(texture), {}});
    m_document.settle();
    m_thread.rest();
}

}  // namespace oxbeam
