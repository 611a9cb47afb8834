#include "Apps/view/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace oxbeam {

std::pair<std::string, std::string> splitPath(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos) return {"", path};
    return {path.substr(0, dot), path.substr(dot + 1)};
}

static bool isLight(const ObjectInfo& object) { return object.place.starts_with("light."); }

std::vector<ObjectInfo> lightsAmong(const std::vector<ObjectInfo>& objects) {
    std::vector<ObjectInfo> lights;
    std::copy_if(objects.begin(), objects.end(), std::back_inserter(lights), isLight);
    return lights;
}

void Document::open(const SceneInfo& scene) {
    m_objects = m_savedObjects = scene.objects;
    m_textures = scene.textures;
    m_tone = m_savedTone = scene.tone;
    m_eye = Eye::of(scene.view, scene.fov);
    m_edits.clear();
    m_done = 0;
    m_saved = 0;
    m_moved = false;
}

const ObjectInfo* Document::object(const std::string& place) const {
    const auto found =
        std::find_if(m_objects.begin(), m_objects.end(), [&](const auto& o) { return o.place == place; });
    return found == m_objects.end() ? nullptr : &*found;
}

const ParameterState* Document::state(const std::string& path) const {
    const auto [place, id] = splitPath(path);
    const ObjectInfo* info = object(place);
    const ParameterDeclaration* p = info ? info->object->find(id) : nullptr;
    if (!p) return nullptr;
    return &info->values.at(p->id);
}

ParameterState& Document::at(const std::string& path) { return const_cast<ParameterState&>(*state(path)); }

// On an object of its own, so that the window knows at once what the rendering thread will say.
void Document::check(const std::string& path, const ParameterValue& value) const {
    const auto [place, id] = splitPath(path);
    const ObjectInfo* info = object(place);
    std::vector<std::string> places;
    for (const ObjectInfo& other : m_objects) places.push_back(other.place);
    if (!info) throw NoSuchName(fmt::format("the scene has no '{}'{}", place, didYouMean(place, places)));
    if (!info->object->find(id))
        throw NoSuchName(fmt::format("{} ({}) has no parameter '{}'{}", labelOf(place), info->object->name, id,
                                     didYouMean(id, info->object->parameterNames())));
    Diagnostics said;
    const auto texture = [&](const std::string& name) -> std::optional<int> {
        const bool own = place.starts_with("model.");  // whose names only the world knows
        if (!own && std::find(m_textures.begin(), m_textures.end(), name) == m_textures.end()) return std::nullopt;
        return 0;
    };
    const double* real = std::get_if<double>(&value.data);
    const auto* whole = std::get_if<std::int64_t>(&value.data);
    if (path == "render.recursionLimit" && whole && *whole > std::int64_t{MaxRecursionLimit})
        throw BadValue(fmt::format("'recursionLimit' must be from 0 to {}; deeper rays would run out of stack",
                                   MaxRecursionLimit));
    if (path == "render.rayEpsilon" && ((real && !(*real > 0.0)) || (whole && *whole <= 0)))
        throw BadValue("'rayEpsilon' must be positive");
    const std::unique_ptr<OxLoadableObject> tried = info->object->make();
    ParameterWriter writer(*info->object, labelOf(place), said, texture, m_textures);
    if (writer.write(*tried, id, {}, value)) return;
    for (const Diagnostic& diagnostic : said.sorted()) throw BadValue(diagnostic.message);
}

// ---- Edits

void Document::set(const std::string& path, const ParameterValue& value) {
    check(path, value);
    perform(ValueEdit{path, *state(path), {value, true}});
}

void Document::reset(const std::string& path) {
    const auto [place, id] = splitPath(path);
    const ObjectInfo* info = object(place);
    const ParameterDeclaration* p = info ? info->object->find(id) : nullptr;
    if (!p) throw NoSuchName(fmt::format("the scene has no '{}'", path));
    perform(ValueEdit{path, *state(path), {valueOf(*p, p->defaultBytes.data()), false}});
}

static ObjectInfo withDefaults(const std::string& place, const ObjectClass& object) {
    ObjectInfo info{place, &object, {}};
    for (const ParameterDeclaration& p : object.parameters)
        info.values[p.id] = {valueOf(p, p.defaultBytes.data()), false};
    return info;
}

// What was set and the other class knows too, it takes over, where it means the same there.
void Document::setClass(const std::string& place, const ObjectClass& object) {
    const ObjectInfo* before = this->object(place);
    if (!before || before->object == &object) return;
    ObjectInfo after = withDefaults(place, object);
    for (const auto& [id, state] : before->values) {
        const ParameterDeclaration *p = object.find(id), *was = before->object->find(id);
        if (state.set && p && p->id == id && p->size == was->size) after.values[id] = state;
    }
    perform(ClassEdit{*before, after});
}

void Document::addLight(const ObjectClass& object, const std::map<std::string, ParameterValue>& values) {
    const std::vector<ObjectInfo> before = lightsAmong(m_objects);
    std::vector<ObjectInfo> after = before;
    after.push_back(withDefaults(fmt::format("light.{}", before.size()), object));
    for (const auto& [id, value] : values)
        if (object.find(id)) after.back().values[object.find(id)->id] = {value, true};
    perform(LightsEdit{before, after});
}

void Document::removeLight(const std::string& place) {
    const std::vector<ObjectInfo> before = lightsAmong(m_objects);
    std::vector<ObjectInfo> after = before;
    std::erase_if(after, [&](const ObjectInfo& light) { return light.place == place; });
    if (after.size() == before.size()) throw NoSuchName(fmt::format("the scene has no '{}'", place));
    for (std::size_t i = 0; i < after.size(); ++i) after[i].place = fmt::format("light.{}", i);
    perform(LightsEdit{before, after});
}

void Document::setTone(const Tone& tone) {
    if (!(tone == m_tone)) perform(ToneEdit{m_tone, tone});
}

void Document::setEye(const Eye& eye) {
    m_eye = eye;
    m_moved = true;
    m_thread.change([view = eye.view, fov = eye.fov](Rendering& r) {
        r.world.view = view;
        r.world.fov = fov;
    });
}

// A drag is one step: what it began with, and what it ended with.
void Document::perform(Edit edit) {
    m_edits.resize(m_done);
    const auto* now = std::get_if<ValueEdit>(&edit);
    auto* last = m_saved != m_done && !m_edits.empty() ? std::get_if<ValueEdit>(&m_edits.back()) : nullptr;
    if (m_saved && *m_saved > m_done) m_saved.reset();  // there is no way back to what was saved
    apply(edit, true);
    if (m_merging && now && last && last->path == now->path) {
        last->after = now->after;
    } else {
        m_edits.push_back(std::move(edit));
        ++m_done;
    }
    m_merging = true;
}

void Document::undo() {
    if (!canUndo()) return;
    settle();
    apply(m_edits[--m_done], false);
}

void Document::redo() {
    if (!canRedo()) return;
    settle();
    apply(m_edits[m_done++], true);
}

// ---- What edits do

void Document::apply(const Edit& edit, bool forwards) {
    if (const auto* value = std::get_if<ValueEdit>(&edit))
        applyValue(value->path, forwards ? value->after : value->before);
    else if (const auto* object = std::get_if<ClassEdit>(&edit))
        applyObject(forwards ? object->after : object->before);
    else if (const auto* lights = std::get_if<LightsEdit>(&edit))
        applyLights(forwards ? lights->after : lights->before);
    else if (const auto* tone = std::get_if<ToneEdit>(&edit))
        m_tone = forwards ? tone->after : tone->before;
}

static void write(Places& places, const std::string& path, const ParameterState& state) {
    if (state.set)
        places.set(path, state.value);
    else
        places.reset(path);
}

void Document::applyValue(const std::string& path, const ParameterState& state) {
    at(path) = state;
    m_thread.change([path, state](Rendering& r) { write(r.world.places, path, state); });
}

static void writeAll(Places& places, const ObjectInfo& object) {
    for (const auto& [id, state] : object.values)
        if (state.set) write(places, object.place + '.' + id, state);
}

void Document::applyObject(const ObjectInfo& object) {
    for (ObjectInfo& own : m_objects)
        if (own.place == object.place) own = object;
    m_thread.rebuild([object](Rendering& r) {
        for (const ParameterDeclaration& p : r.world.places.classAt(object.place).parameters)
            r.world.places.reset(object.place + '.' + p.id);
        r.world.setClass(object.place, *object.object);
        writeAll(r.world.places, object);
    });
}

// From the first that differs on, all are made anew: their order counts.
void Document::applyLights(const std::vector<ObjectInfo>& lights) {
    const std::vector<ObjectInfo> before = lightsAmong(m_objects);
    std::size_t same = 0;
    while (same < std::min(before.size(), lights.size()) && before[same].object == lights[same].object &&
           before[same].values == lights[same].values)
        ++same;
    std::erase_if(m_objects, isLight);
    m_objects.insert(m_objects.end(), lights.begin(), lights.end());
    m_thread.rebuild([lights, same](Rendering& r) {
        while (r.world.lights.size() > same) r.world.removeLight(fmt::format("light.{}", r.world.lights.size() - 1));
        for (std::size_t i = same; i < lights.size(); ++i) {
            r.world.addLight(*lights[i].object);
            writeAll(r.world.places, lights[i]);
        }
    });
}

// ---- Saving

void Document::saved() {
    settle();
    m_saved = m_done;
    m_savedObjects = m_objects;
    m_savedTone = m_tone;
    m_moved = false;
}

bool Document::lightsDiffer() const {
    const std::vector<ObjectInfo> now = lightsAmong(m_objects), then = lightsAmong(m_savedObjects);
    return !std::equal(now.begin(), now.end(), then.begin(), then.end(),
                       [](const ObjectInfo& a, const ObjectInfo& b) { return a.object == b.object; });
}

}  // namespace oxbeam
