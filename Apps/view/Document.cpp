#include "Apps/view/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace oxbeam {

void Document::open(const SceneInfo& scene) {
    m_now = m_saved = State::of(scene);
    m_textures = scene.textures;
    m_eye = Eye::of(scene.view, scene.fov);
    m_fileView = scene.view;
    m_kept.clear();
    m_added.clear();
    ++m_revision;
    m_edits.clear();
    m_done = 0;
    m_savedAt = 0;
    m_moved = false;
}

// On an object of its own, so that the window knows at once what the rendering thread will say.
void Document::check(const std::string& path, const ParameterValue& value) const {
    const auto parts = splitPath(path);
    const auto &place = parts.first, &id = parts.second;
    const ObjectInfo* info = object(place);
    std::vector<std::string> places;
    for (const ObjectInfo& other : objects()) places.push_back(other.place);
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
    State after = m_now;
    ObjectInfo& changed = *std::find_if(after.objects.begin(), after.objects.end(),
                                        [&](const ObjectInfo& o) { return o.place == place; });
    changed = withDefaults(place, object);
    for (const auto& [id, state] : before->values) {
        const ParameterDeclaration *p = object.find(id), *was = before->object->find(id);
        if (state.set && p && p->id == id && p->size == was->size) changed.values[id] = state;
    }
    become(after);
}

void Document::addLight(const ObjectClass& object, const std::map<std::string, ParameterValue>& values) {
    State after = m_now;
    ObjectInfo light = withDefaults(fmt::format("light.{}", lightsAmong(objects()).size()), object);
    for (const auto& [id, value] : values)
        if (const ParameterDeclaration* p = object.find(id)) light.values[p->id] = {value, true};
    after.objects.push_back(light);
    become(after);
}

void Document::removeLight(const std::string& place) {
    State after = m_now;
    std::vector<ObjectInfo> lights = lightsAmong(objects());
    if (std::erase_if(lights, [&](const ObjectInfo& light) { return light.place == place; }) == 0)
        throw NoSuchName(fmt::format("the scene has no '{}'", place));
    for (std::size_t i = 0; i < lights.size(); ++i) lights[i].place = fmt::format("light.{}", i);
    replaceLights(after.objects, lights);
    become(after);
}

RenderThread::Posted AddedTexture::change() const {
    return {[*this](Rendering& r) {
        auto texture = std::make_unique<Texture>(*picture);
        TextureNames::Named& named = r.world.textureNames.define("", name);
        named.use.applyTo(*texture);
        if (surroundings) {
            texture->dropNegative();
            named.turn = 0.0f;
        }
        named.id = r.world.textures.add(std::move(texture));
    }};
}

std::string Document::addTexture(AddedTexture texture) {
    const std::string stem = texture.file.stem().string();
    texture.name = stem;
    for (int i = 2; std::find(m_textures.begin(), m_textures.end(), texture.name) != m_textures.end(); ++i)
        texture.name = fmt::format("{}-{}", stem, i);
    m_thread.post(texture.change());
    m_textures.push_back(texture.name);
    m_added.push_back(texture);
    return texture.name;
}

bool Document::uses(const AddedTexture& texture) const {
    const auto is = [&](const auto& value) {
        return value.second.value.data == decltype(value.second.value.data)(texture.name);
    };
    return std::any_of(objects().begin(), objects().end(), [&](const ObjectInfo& object) {
        return std::any_of(object.values.begin(), object.values.end(), is);
    });
}

void Document::setTone(const Tone& tone) {
    if (!(tone == m_now.tone)) perform(ToneEdit{m_now.tone, tone});
}

void Document::move(const std::string& place, const Matrix& toWorld) {
    const auto placed = m_now.placements.find(place);
    if (placed == m_now.placements.end()) throw NoSuchName(fmt::format("the scene has no '{}'", place));
    if (!(placed->second == toWorld)) perform(PlacementEdit{place, placed->second, toWorld});
}

void Document::become(const State& state) {
    if (state == m_now) return;
    settle();
    perform(StateEdit{std::make_shared<State>(m_now), std::make_shared<State>(state)});
    settle();
}

void Document::setEye(const Eye& eye) {
    m_eye = eye;
    m_moved = true;
    m_thread.change([view = eye.view, fov = eye.fov](Rendering& r) {
        r.world.view = view;
        r.world.fov = fov;
    });
}

// The later of two edits of one thing in the earlier.
template <class Edit>
static bool merge(auto& earlier, const auto& later, std::string Edit::*what) {
    auto* last = std::get_if<Edit>(&earlier);
    const auto* next = std::get_if<Edit>(&later);
    if (!last || !next || last->*what != next->*what) return false;
    last->after = next->after;
    return true;
}

// As many steps can be undone; those before are forgotten, or memory would go on growing.
static constexpr std::size_t MostEdits = 500;

// A drag is one step: what it began with, and what it ended with.
void Document::perform(Edit edit) {
    m_edits.resize(m_done);
    if (m_savedAt && *m_savedAt > m_done) m_savedAt.reset();  // there is no way back to what was saved
    apply(edit, true);
    const bool mayMerge = m_merging && m_savedAt != m_done && !m_edits.empty();
    const bool merged = mayMerge && (merge(m_edits.back(), edit, &ValueEdit::path) ||
                                     merge(m_edits.back(), edit, &PlacementEdit::place));
    if (!merged) {
        m_edits.push_back(std::move(edit));
        ++m_done;
    }
    m_merging = true;
    if (m_edits.size() <= MostEdits) return;
    m_edits.erase(m_edits.begin());
    --m_done;
    if (m_savedAt && (*m_savedAt)-- == 0) m_savedAt.reset();
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
    ++m_revision;
    if (const auto* value = std::get_if<ValueEdit>(&edit)) {
        const ParameterState& state = forwards ? value->after : value->before;
        const_cast<ParameterState&>(*m_now.value(value->path)) = state;
        m_thread.post(valueChange(value->path, state));
    } else if (const auto* placement = std::get_if<PlacementEdit>(&edit)) {
        const Matrix& toWorld = forwards ? placement->after : placement->before;
        m_now.placements[placement->place] = toWorld;
        m_thread.post(placementChange(placement->place, toWorld));
    } else if (const auto* tone = std::get_if<ToneEdit>(&edit)) {
        m_now.tone = forwards ? tone->after : tone->before;
    } else {
        const auto& states = std::get<StateEdit>(edit);
        const State& state = forwards ? *states.after : *states.before;
        for (const RenderThread::Posted& change : differences(m_now, state)) m_thread.post(change);
        m_now = state;
    }
}

// ---- A file that has changed

// False: there is no such thing any more.
bool Document::rebase(Edit& edit, Rebase& rebase, const State& now) const {
    if (auto* value = std::get_if<ValueEdit>(&edit)) {
        value->before = rebase.value(value->path, value->before);
        value->after = rebase.value(value->path, value->after);
        return now.value(value->path) != nullptr;
    }
    if (auto* placement = std::get_if<PlacementEdit>(&edit)) {
        placement->before = rebase.placement(placement->place, placement->before);
        placement->after = rebase.placement(placement->place, placement->after);
        return now.placements.contains(placement->place);
    }
    if (auto* tone = std::get_if<ToneEdit>(&edit)) {
        tone->before = rebase.tone(tone->before);
        tone->after = rebase.tone(tone->after);
        return true;
    }
    auto& states = std::get<StateEdit>(edit);
    states.before = std::make_shared<State>(rebase.of(*states.before));
    states.after = std::make_shared<State>(rebase.of(*states.after));
    return true;
}

static bool same(const View& a, const View& b) {
    return a.position == b.position && a.lookAt == b.lookAt && a.lookUp == b.lookUp;
}

// The view stays, unless nobody has moved it and the file says another.
std::vector<RenderThread::Posted> Document::reopen(const SceneInfo& scene, std::set<std::string>& lost) {
    settle();
    const State file = State::of(scene), was = m_saved;
    Rebase rebase(was, file, *scene.registry);
    State now = rebase.of(m_now);
    lost = rebase.lost;
    std::vector<Edit> edits;
    std::size_t done = m_done;
    for (std::size_t i = 0; i < m_edits.size(); ++i) {
        Edit edit = m_edits[i];
        if (this->rebase(edit, rebase, now)) {
            edits.push_back(std::move(edit));
            continue;
        }
        if (i < m_done) --done;
        if (m_savedAt && i < *m_savedAt) --*m_savedAt;
    }
    m_edits = std::move(edits);
    m_done = done;
    for (State& kept : m_kept) kept = rebase.of(kept);
    ++m_revision;
    m_now = std::move(now);
    m_saved = file;
    m_textures = scene.textures;
    std::vector<RenderThread::Posted> changes;
    for (AddedTexture& added : m_added) {
        added.inFile = std::find(m_textures.begin(), m_textures.end(), added.name) != m_textures.end();
        if (added.inFile) continue;
        m_textures.push_back(added.name);
        changes.push_back(added.change());
    }
    for (RenderThread::Posted& change : differences(m_saved, m_now)) changes.push_back(std::move(change));
    const bool viewed = scene.framed || same(scene.view, m_fileView);
    m_fileView = scene.view;
    if (!m_moved && !viewed) m_eye = Eye::of(scene.view, scene.fov);
    if (m_moved || !same(m_eye.view, scene.view))
        changes.push_back({[view = m_eye.view, fov = m_eye.fov](Rendering& r) {
            r.world.view = view;
            r.world.fov = fov;
        }});
    return changes;
}

// ---- Saving

void Document::saved() {
    settle();
    m_savedAt = m_done;
    m_saved = m_now;
    for (AddedTexture& added : m_added) added.inFile = added.inFile || uses(added);
    m_fileView = m_eye.view;
    m_moved = false;
}

bool Document::needsFile() const {
    const auto missing = [&](const AddedTexture& added) { return !added.inFile && uses(added); };
    return std::any_of(m_added.begin(), m_added.end(), missing) ||
           !sameKinds(lightsAmong(m_now.objects), lightsAmong(m_saved.objects)) ||
           m_now.placements != m_saved.placements;
}

}  // namespace oxbeam
