#include "Apps/view/Saving.h"

#include "Apps/oxbeam/Inputs.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/view/Field.h"
#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- What has changed

static std::vector<std::string> namesOf(const ObjectClass& object, const std::string& id) {
    std::vector<std::string> names = {id};
    if (const ParameterDeclaration* p = object.find(id)) {
        names.insert(names.end(), p->aliases.begin(), p->aliases.end());
        if (p->info) names.insert(names.end(), p->info->ids.begin(), p->info->ids.end());
    }
    return names;
}

static std::string textOf(const R3& v) {
    return textOf(ParameterValue{std::vector<ParameterValue::Number>{shortest(v.x), shortest(v.y), shortest(v.z)}, {}});
}

// Between two objects at one place, as edits of its table.
static void compare(const ObjectInfo& before, const ObjectInfo& now, std::vector<SceneEdit>& edits) {
    if (before.object != now.object)
        edits.push_back({now.place, {"object"}, textOf(ParameterValue{now.object->name, {}})});
    for (const auto& [id, state] : before.values) {
        const auto kept = now.values.find(id);
        if (state.set && (kept == now.values.end() || !kept->second.set))
            edits.push_back({now.place, namesOf(*before.object, id), std::nullopt});
    }
    for (const auto& [id, state] : now.values) {
        const auto was = before.values.find(id);
        if (state.set && (was == before.values.end() || !(was->second == state)))
            edits.push_back({now.place, namesOf(*now.object, id), textOf(state.value)});
    }
}

// The focus of a lens is kept as the distance that it is, whatever the scene has said it by.
static void addView(const Document& document, const SceneInfo& scene, std::vector<SceneEdit>& edits) {
    const Eye& eye = document.eye();
    edits.push_back({scene.camera, {"position"}, textOf(eye.view.position)});
    edits.push_back({scene.camera, {"lookAt"}, textOf(eye.view.lookAt)});
    if (!(eye.view.lookUp == View().lookUp)) edits.push_back({scene.camera, {"lookUp"}, textOf(eye.view.lookUp)});
}

static void addFocus(const Document& document, const SceneInfo& scene, std::vector<SceneEdit>& edits) {
    const std::string path = scene.camera + ".focalDistance";
    const ParameterState* focus = document.state(path);
    if (!focus || !focus->set) return;
    edits.push_back({scene.camera, {"focus"}, std::nullopt});
    edits.push_back({scene.camera, {"focalDistance"}, textOf(focus->value)});
}

static void addTone(const Document& document, std::vector<SceneEdit>& edits) {
    const Tone &before = document.fileState().tone, &now = document.tone();
    if (before.exposure != now.exposure)
        edits.push_back({"image", {"exposure"}, textOf(ParameterValue{shortest(now.exposure), {}})});
    if (before.curve != now.curve)
        edits.push_back(
            {"image", {"tone"}, textOf(ParameterValue{toneCurveNames()[static_cast<std::size_t>(now.curve)], {}})});
}

static std::vector<SceneEdit> changesOf(const Document& document, const SceneInfo& scene,
                                        const std::vector<ObjectInfo>& before) {
    std::vector<SceneEdit> edits;
    for (const ObjectInfo& now : document.objects()) {
        const auto was =
            std::find_if(before.begin(), before.end(), [&](const auto& o) { return o.place == now.place; });
        if (was != before.end()) compare(*was, now, edits);
    }
    if (document.isMoved()) addView(document, scene, edits);
    const ObjectInfo* camera = document.object(scene.camera);
    const bool refocused = std::any_of(edits.begin(), edits.end(), [&](const SceneEdit& edit) {
        return camera && edit.place == scene.camera && edit.names.front() == "focalDistance";
    });
    if (refocused) addFocus(document, scene, edits);
    addTone(document, edits);
    return edits;
}

// ---- The scene's file

// Lists get as many entries as there are lights. One that went is the first that is no more as it was.
static std::string withLights(std::string text, const Document& document, std::vector<ObjectInfo>& before) {
    const std::vector<ObjectInfo> now = lightsAmong(document.objects());
    std::vector<ObjectInfo> then = lightsAmong(before);
    std::erase_if(before, [](const ObjectInfo& o) { return o.place.starts_with("light."); });
    while (then.size() > now.size()) {
        std::size_t gone = 0;
        while (gone < now.size() && then[gone].object == now[gone].object && then[gone].values == now[gone].values)
            ++gone;
        text = withoutEntry(text, "light", gone);
        then.erase(then.begin() + static_cast<std::ptrdiff_t>(gone));
    }
    while (then.size() < now.size()) {
        text = withEntry(text, "light");
        then.push_back({"", nullptr, {}});
    }
    for (std::size_t i = 0; i < then.size(); ++i) then[i].place = now[i].place;
    before.insert(before.end(), then.begin(), then.end());
    return text;
}

// Named as seen from the scene's folder where that is no way up and down again.
static std::string withTextures(std::string text, const Document& document, const fs::path& folder) {
    for (const AddedTexture& added : document.addedTextures()) {
        if (added.inFile || !document.uses(added)) continue;
        const fs::path file = fs::absolute(added.file), near = file.lexically_proximate(folder);
        const std::string named = near.begin()->string() == ".." ? file.string() : near.string();
        const std::string place = "texture." + added.name;
        text = edited(text, {place, {"file"}, textOf(ParameterValue{named, {}})});
        if (added.surroundings) text = edited(text, {place, {"projection"}, "\"equirectangular\""});
    }
    return text;
}

std::string withChanges(const std::string& original, const Document& document, const SceneInfo& scene,
                        const fs::path& folder) {
    std::vector<ObjectInfo> before = document.fileState().objects;
    std::string text = withTextures(withLights(original, document, before), document, folder);
    for (const SceneEdit& edit : changesOf(document, scene, before)) text = edited(text, edit);
    const auto& placed = document.fileState().placements;
    for (const auto& [place, toWorld] : document.now().placements)
        if (const auto was = placed.find(place); was != placed.end() && !(was->second == toWorld))
            text = withTranslation(text, place, {toWorld.m[0][3], toWorld.m[1][3], toWorld.m[2][3]});
    return text;
}

static std::string readText(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    if (!stream) throw Error(ExitStatus::InputOutput, fmt::format("{}: cannot be read", file.string()));
    return text;
}

// Files are named as seen from the scene, so that a copy has to stand beside it.
void saveScene(const fs::path& file, const ViewCommand& command, const Document& document, const SceneInfo& scene) {
    std::string text;
    if (isSceneFile(command.render.scene)) {
        if (fs::absolute(file).parent_path() != fs::absolute(command.render.scene).parent_path())
            throw Error(ExitStatus::Usage, fmt::format("'{}': expected a file beside the scene, which names others as "
                                                       "seen from there",
                                                       file.string()));
        text = readText(command.render.scene);
    } else {
        Diagnostics unsaid;  // it was said when the model was opened
        ModelSceneOptions options = modelSceneOptions(command.render.model, command.render.size);
        options.view.camera = command.render.camera;
        SceneAssets assets(importLimits(command.render.importLimit));
        text = describeModelScene(command.render.scene, file.parent_path(), options, *scene.registry, assets, unsaid);
    }
    storeFile(file, withChanges(text, document, scene, fs::absolute(file).parent_path()));
}

// ---- Others

static std::string plainPath(const SceneEdit& edit) { return fmt::format("{}.{}", edit.place, edit.names.front()); }

std::string commandLine(const ViewCommand& command, const Document& document, const SceneInfo& scene,
                        const std::string& picture, unsigned samples) {
    if (document.needsFile())
        throw Error(ExitStatus::Usage,
                    "lights have come or gone, something was moved, or a texture was added, which no command line "
                    "says; save the scene first");
    const RenderCommand& r = command.render;
    std::vector<std::string> words = {"oxbeam"};
    const auto add = [&](std::initializer_list<std::string> more) { words.insert(words.end(), more); };
    for (const std::string& path : command.packagePaths) add({"--package-path", path});
    add({"render", r.scene, "-o", picture, "--size", fmt::format("{}x{}", scene.image.width, scene.image.height),
         "--samples", std::to_string(samples)});
    if (!r.camera.empty()) add({"--camera", r.camera});
    const ModelCommand& m = r.model;
    const std::pair<const char*, std::string> texts[] = {{"--shader", m.shader},
                                                         {"--environment", m.environment},
                                                         {"--background", m.background},
                                                         {"--view", m.view.name},
                                                         {"--color", m.color},
                                                         {"--texture", m.texture},
                                                         {"--up", m.up},
                                                         {"--ground", m.ground == "shadow" ? "" : m.ground}};
    for (const auto& [option, value] : texts)
        if (!value.empty()) add({option, value});
    const auto number = [&](const char* option, float value) { add({option, fmt::format("{}", value)}); };
    if (m.rotateEnvironment != 0.0f) number("--rotate-environment", m.rotateEnvironment);
    if (m.view.azimuth) number("--azimuth", *m.view.azimuth);
    if (m.view.elevation) number("--elevation", *m.view.elevation);
    if (m.view.zoom != 1.0f) number("--zoom", m.view.zoom);
    for (const std::string& setting : r.set) add({"--set", setting});
    for (const SceneEdit& edit : changesOf(document, scene, document.fileState().objects))
        if (edit.value) add({"--set", plainPath(edit) + '=' + *edit.value});
    return shellText(words);
}

void writePicture(const fs::path& file, const ViewCommand& command, const std::string& text, const Tone& tone,
                  const Rendering& rendering) {
    RenderCommand said = command.render;
    said.text = text;
    said.output = file;
    rendering.world.tone = tone;
    RenderOptions options;
    options.samples = rendering.loop.passes();
    const Film& film = rendering.loop.film();
    const Inputs inputs = inputsOf(said, rendering.world, options);
    const ImageOptions description = pictureOptions(said, rendering.world, inputs, film, rendering.seconds);
    checkImageFormat(file, description);
    writeImage(file, film.window().width(), film.window().height(), film.pixels(), description);
}

fs::path nextPicture(const std::string& scene) {
    const std::string stem = fs::path(scene).stem().string();
    for (unsigned i = 1;; ++i)
        if (fs::path file = fmt::format("{}-{}.png", stem, i); !fs::exists(file)) return file;
}

}  // namespace oxbeam
