#include "Apps/view/State.h"

#include <fmt/format.h>

#include <algorithm>

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

void replaceLights(std::vector<ObjectInfo>& objects, const std::vector<ObjectInfo>& lights) {
    std::erase_if(objects, isLight);
    objects.insert(objects.end(), lights.begin(), lights.end());
}

bool sameKinds(const std::vector<ObjectInfo>& a, const std::vector<ObjectInfo>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const ObjectInfo& one, const ObjectInfo& other) {
        return one.object->name == other.object->name;
    });
}

bool operator==(const ObjectInfo& a, const ObjectInfo& b) {
    return a.place == b.place && a.object == b.object && a.values == b.values;
}

bool operator==(const State& a, const State& b) {
    return a.objects == b.objects && a.placements == b.placements && a.tone == b.tone;
}

State State::of(const SceneInfo& scene) {
    State state{scene.objects, {}, scene.tone};
    for (const PlacedInfo& placed : scene.placements) state.placements[placed.place] = placed.toWorld;
    return state;
}

const ObjectInfo* State::object(const std::string& place) const {
    const auto found = std::find_if(objects.begin(), objects.end(), [&](const auto& o) { return o.place == place; });
    return found == objects.end() ? nullptr : &*found;
}

const ParameterState* State::value(const std::string& path) const {
    const auto [place, id] = splitPath(path);
    const ObjectInfo* info = object(place);
    const ParameterDeclaration* p = info ? info->object->find(id) : nullptr;
    return p ? &info->values.at(p->id) : nullptr;
}

// ---- Differences

static void write(Places& places, const std::string& path, const ParameterState& state) {
    if (state.set)
        places.set(path, state.value);
    else
        places.reset(path);
}

static void writeAll(Places& places, const ObjectInfo& object) {
    for (const auto& [id, state] : object.values)
        if (state.set) write(places, object.place + '.' + id, state);
}

RenderThread::Posted valueChange(const std::string& path, const ParameterState& state) {
    return {[path, state](Rendering& r) { write(r.world.places, path, state); }};
}

RenderThread::Posted placementChange(const std::string& place, const Matrix& toWorld) {
    return {[place, toWorld](Rendering& r) { r.world.placements.move(place, toWorld); }};
}

static RenderThread::Posted classChange(const ObjectInfo& object) {
    const auto change = [object](Rendering& r) {
        for (const ParameterDeclaration& p : r.world.places.classAt(object.place).parameters)
            r.world.places.reset(object.place + '.' + p.id);
        r.world.setClass(object.place, *object.object);
        writeAll(r.world.places, object);
    };
    return {change, true};
}

// From the first that is another on, all are made anew: their order counts.
static RenderThread::Posted lightsChange(const std::vector<ObjectInfo>& before, const std::vector<ObjectInfo>& lights) {
    const auto differ = std::mismatch(before.begin(), before.end(), lights.begin(), lights.end(),
                                      [](const auto& a, const auto& b) { return a.object == b.object; });
    const auto same = static_cast<std::size_t>(differ.second - lights.begin());
    const auto change = [lights, same](Rendering& r) {
        while (r.world.lights.size() > same) r.world.removeLight(fmt::format("light.{}", r.world.lights.size() - 1));
        for (std::size_t i = same; i < lights.size(); ++i) {
            r.world.addLight(*lights[i].object);
            writeAll(r.world.places, lights[i]);
        }
    };
    return {change, true};
}

static void addValues(const ObjectInfo& from, const ObjectInfo& to, std::vector<RenderThread::Posted>& changes) {
    for (const auto& [id, state] : to.values)
        if (const auto was = from.values.find(id); was == from.values.end() || !(was->second == state))
            changes.push_back(valueChange(to.place + '.' + id, state));
}

// Lights that come or go may be whole new ones; what else differs of those before them is written first.
std::vector<RenderThread::Posted> differences(const State& from, const State& to) {
    std::vector<RenderThread::Posted> changes;
    const std::vector<ObjectInfo> before = lightsAmong(from.objects), lights = lightsAmong(to.objects);
    const bool kinds = before.size() == lights.size();
    for (const ObjectInfo& object : to.objects) {
        const ObjectInfo* was = from.object(object.place);
        if (was && was->object == object.object)
            addValues(*was, object, changes);
        else if (was && (kinds || !isLight(object)))
            changes.push_back(classChange(object));
    }
    if (!kinds) changes.push_back(lightsChange(before, lights));
    for (const auto& [place, toWorld] : to.placements)
        if (const auto was = from.placements.find(place); was != from.placements.end() && !(was->second == toWorld))
            changes.push_back(placementChange(place, toWorld));
    return changes;
}

// ---- A file that has changed

// The class of that name today.
const ObjectClass* Rebase::classNow(const ObjectInfo& object) {
    const ObjectInfo *was = m_was.object(object.place), *now = m_now.object(object.place);
    if (was && now && was->object->name == object.object->name) return now->object;
    const ObjectClass* found = m_registry.find(object.object->name);
    if (!found) lost.insert(labelOf(object.place) + " (" + object.object->name + ")");
    return found ? found : now ? now->object : nullptr;
}

static bool fits(const ObjectClass& object, const std::string& id, const ParameterState& state) {
    const ParameterDeclaration* p = object.find(id);
    if (!p || p->id != id || !state.set) return p && p->id == id;
    Diagnostics unsaid;
    const std::unique_ptr<OxLoadableObject> tried = object.make();
    return ParameterWriter(object, "", unsaid, [](const std::string&) { return 0; }).write(*tried, id, {}, state.value);
}

// Of its own are the values that are not those of the file before, and all where it is of a class of its own.
ObjectInfo Rebase::object(const ObjectInfo& object) {
    const ObjectInfo *was = m_was.object(object.place), *now = m_now.object(object.place);
    const bool own = !was || was->object->name != object.object->name;
    ObjectInfo result{object.place, classNow(object), {}};
    if (!result.object) return result;
    for (const ParameterDeclaration& p : result.object->parameters)
        result.values[p.id] = {valueOf(p, p.defaultBytes.data()), false};
    if (now && now->object == result.object) result.values = now->values;
    for (const auto& [id, state] : object.values) {
        const auto before = own ? object.values.end() : was->values.find(id);
        if (!own && before != was->values.end() && before->second == state) continue;
        if (own && !state.set) continue;
        if (fits(*result.object, id, state))
            result.values[id] = state;
        else
            lost.insert(object.place + '.' + id);
    }
    return result;
}

static void renumber(std::vector<ObjectInfo>& lights) {
    for (std::size_t i = 0; i < lights.size(); ++i) lights[i].place = fmt::format("light.{}", i);
}

// Where lights have come or gone in the file and here, those of the file stand first.
std::vector<ObjectInfo> Rebase::lights(const std::vector<ObjectInfo>& lights) {
    const std::vector<ObjectInfo> was = lightsAmong(m_was.objects), now = lightsAmong(m_now.objects);
    std::vector<ObjectInfo> result;
    const bool sameFile = sameKinds(was, now);
    if (!sameFile) result = now;
    const std::size_t first = sameFile ? 0 : was.size();
    for (std::size_t i = 0; i < (sameFile ? 0 : std::min({first, lights.size(), now.size()})); ++i)
        if (lights[i].object->name == now[i].object->name) result[i] = object(lights[i]);
    if (!sameFile && lights.size() < was.size()) lost.insert("lights that were deleted");
    for (std::size_t i = first; i < lights.size(); ++i)
        if (ObjectInfo light = object(lights[i]); light.object) result.push_back(std::move(light));
    renumber(result);
    return result;
}

ParameterState Rebase::value(const std::string& path, const ParameterState& state) const {
    const ParameterState *was = m_was.value(path), *now = m_now.value(path);
    return was && now && *was == state ? *now : state;
}

Matrix Rebase::placement(const std::string& place, const Matrix& toWorld) const {
    const auto was = m_was.placements.find(place), now = m_now.placements.find(place);
    const bool both = was != m_was.placements.end() && now != m_now.placements.end();
    return both && was->second == toWorld ? now->second : toWorld;
}

State Rebase::of(const State& state) {
    State result = m_now;
    for (ObjectInfo& own : result.objects) {
        const ObjectInfo* before = state.object(own.place);
        if (before && !isLight(own)) own = object(*before);
    }
    for (const ObjectInfo& gone : state.objects)
        if (const ObjectInfo* was = m_was.object(gone.place); !m_now.object(gone.place) && was && !isLight(gone))
            for (const auto& [id, value] : gone.values)
                if (was->object != gone.object || !(was->values.at(id) == value)) lost.insert(gone.place + '.' + id);
    replaceLights(result.objects, lights(lightsAmong(state.objects)));
    for (const auto& [place, toWorld] : state.placements) {
        const auto now = result.placements.find(place);
        if (now != result.placements.end())
            now->second = placement(place, toWorld);
        else if (const auto was = m_was.placements.find(place);
                 was != m_was.placements.end() && !(was->second == toWorld))
            lost.insert(place);
    }
    result.tone = tone(state.tone);
    return result;
}

}  // namespace oxbeam
