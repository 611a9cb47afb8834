#include "Apps/view/Movable.h"

#include "Apps/view/Field.h"

#include <algorithm>

namespace oxbeam {

static std::optional<R3> vectorIn(const ObjectInfo& object, const std::string& id) {
    const auto found = object.values.find(id);
    if (found == object.values.end()) return std::nullopt;
    const auto* numbers = std::get_if<std::vector<ParameterValue::Number>>(&found->second.value.data);
    if (!numbers || numbers->size() != 3) return std::nullopt;
    R3 value;
    for (unsigned i = 0; i < 3; ++i)
        value[i] = std::visit([](auto number) { return static_cast<float>(number); }, (*numbers)[i]);
    return value;
}

static R3 middleOf(const SceneInfo& scene) { return scene.bounds.empty ? R3() : scene.bounds.center(); }

static float sizeOf(const SceneInfo& scene) {
    return scene.bounds.empty ? 1.0f : std::max(scene.bounds.radius(), 1e-6f);
}

static std::optional<Movable> directionHandle(const ObjectInfo& light, const SceneInfo& scene) {
    const auto way = vectorIn(light, "direction");
    if (!way || !(Length(*way) > 0.0f)) return std::nullopt;
    const auto position = vectorIn(light, "position");
    const R3 from = position ? *position : middleOf(scene);
    const float reach = position ? 0.4f : -1.1f;
    return Movable{light.place, "direction", from + reach * sizeOf(scene) * Normalize(*way), from, {}};
}

std::vector<Movable> lightHandles(const Document& document, const SceneInfo& scene) {
    std::vector<Movable> handles;
    for (const ObjectInfo& light : document.objects()) {
        if (!light.place.starts_with("light.")) continue;
        if (const auto position = vectorIn(light, "position"))
            handles.push_back({light.place, "position", *position, *position, {}});
        if (auto direction = directionHandle(light, scene)) handles.push_back(std::move(*direction));
    }
    return handles;
}

// Of all parts together, which have as much weight as they are large.
static R3 middleOf(const SceneInfo& scene, const std::vector<unsigned>& parts) {
    R3 sum;
    float weights = 0.0f;
    for (const unsigned part : parts) {
        const float weight = std::max(scene.instances[part].bounds.radius(), 1e-20f);
        sum += weight * scene.instances[part].bounds.center();
        weights += weight;
    }
    return sum * (1.0f / std::max(weights, 1e-20f));
}

static R3 translationOf(const Matrix& m) { return {m.m[0][3], m.m[1][3], m.m[2][3]}; }

std::optional<Movable> movableObject(const Document& document, const SceneInfo& scene, unsigned instance) {
    const auto has = [&](const PlacedInfo& placed) {
        return placed.movable && std::count(placed.instances.begin(), placed.instances.end(), instance) > 0;
    };
    const auto placed = std::find_if(scene.placements.begin(), scene.placements.end(), has);
    if (placed == scene.placements.end()) return std::nullopt;
    const auto now = document.now().placements.find(placed->place);
    if (now == document.now().placements.end()) return std::nullopt;
    const R3 moved = translationOf(now->second) - translationOf(placed->toWorld);
    return Movable{placed->place, "", middleOf(scene, placed->instances) + moved, {}, now->second};
}

static ParameterValue valueAt(const R3& v) {
    return {std::vector<ParameterValue::Number>{shortest(v.x), shortest(v.y), shortest(v.z)}, {}};
}

void moveTo(Document& document, const SceneInfo& scene, const Movable& what, const R3& to) {
    if (!IsFinite(to)) return;
    if (what.parameter.empty()) {
        Matrix moved = what.toWorld;
        for (unsigned i = 0; i < 3; ++i) moved.m[i][3] += to[i] - what.at[i];
        return document.move(what.place, moved);
    }
    if (what.parameter == "position") return document.set(what.place + ".position", valueAt(to));
    const ObjectInfo* light = document.object(what.place);
    const bool stands = light && vectorIn(*light, "position");
    const R3 way = stands ? to - what.light : what.light - to;
    if (Length(way) > 1e-6f * sizeOf(scene)) document.set(what.place + ".direction", valueAt(Normalize(way)));
}

}  // namespace oxbeam
