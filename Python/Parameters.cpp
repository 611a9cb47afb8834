// The objects of a scene by their places, and their parameters by name.
#include "Python/Aside.h"
#include "Python/Packages.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <pybind11/stl.h>

namespace oxbeam::python {

static std::string pathOf(const std::string& place, const std::string& parameter) { return place + '.' + parameter; }

static const std::string& classAt(const SceneState& scene, const std::string& place) {
    return scene.world().places.classAt(place).name;
}

static py::object get(const SceneState& scene, const std::string& place, const std::string& parameter) {
    const Places& places = scene.world().places;
    const std::string path = pathOf(place, parameter);
    return toPython(places.declaration(path), places.get(path));
}

// What lies outside the declared bounds is refused, and is as it was.
static void setWithin(Places& places, const std::string& path, const ParameterValue& value) {
    const bool wasSet = places.isSet(path);
    const ParameterValue before = places.get(path);
    const std::vector<std::string> warnings = places.set(path, value);
    if (warnings.empty()) return;
    if (wasSet)
        places.set(path, before);
    else
        places.reset(path);
    throw BadValue(fmt::format("{}", fmt::join(warnings, "; ")));
}

// None is no texture, and nothing else. What has no document may be one.
static ParameterValue valueFor(const Places& places, const std::string& path, py::handle object) {
    const ParameterDeclaration& p = places.declaration(path);
    if (object.is_none() && p.info && !isTexture(p))
        throw BadValue(fmt::format("'{}' is None, which is for textures; expected {}", path, describeType(p)));
    return valueFrom(object);
}

static void set(SceneState& scene, const std::string& place, const std::string& parameter, const py::object& object) {
    Places& places = scene.world().places;
    const std::string path = pathOf(place, parameter);
    setWithin(places, path, valueFor(places, path, object));
}

static void reset(SceneState& scene, const std::string& place, const std::string& parameter) {
    scene.world().places.reset(pathOf(place, parameter));
}

static bool isSet(const SceneState& scene, const std::string& place, const std::string& parameter) {
    return scene.world().places.isSet(pathOf(place, parameter));
}

static void setClass(SceneState& scene, const std::string& place, const std::string& object) {
    const ObjectClass& kind = objectClass(object);
    const Turn turn;
    scene.world().setClass(place, kind);
}

// ---- More objects

// "light", or "shader.NAME" of a new name. Throws BadValue for what cannot stand there.
static void requireRoom(const World& world, const std::string& place, const ObjectClass& object) {
    const bool light = place == "light";
    if (!light && (!place.starts_with("shader.") || place.size() == 7))
        throw BadValue(fmt::format("'{}' is nothing that can be added; expected 'light' or 'shader.NAME'", place));
    if (place.find('.', 7) != std::string::npos) throw BadValue("a shader's name has no dot in it: '" + place + "'");
    if (world.places.has(place)) throw BadValue(fmt::format("the scene has a '{}' already", place));
    const std::vector<ObjectKind>& kinds = kindsAt(light ? "light.0" : place);
    if (std::find(kinds.begin(), kinds.end(), object.kind) == kinds.end())
        throw BadValue(fmt::format("'{}' is {}; expected {}", object.name, oneOf(object.kind), oneOf(kinds.front())));
}

static void setAll(Places& places, const std::string& place, const py::dict& values) {
    for (const auto& [name, value] : values) {
        const std::string path = pathOf(place, name.cast<std::string>());
        setWithin(places, path, valueFor(places, path, value));
    }
}

// Tried out on one that stands nowhere, so that a wrong value leaves nothing behind.
static std::string add(SceneState& scene, const std::string& place, const std::string& name, const py::dict& values) {
    const ObjectClass& object = objectClass(name);
    const Turn turn;
    World& world = scene.world();
    requireRoom(world, place, object);
    const bool light = place == "light";
    std::string added = light ? fmt::format("light.{}", world.lights.size()) : place;
    Places trial(world.textureNames);
    trial.add(added, object);
    setAll(trial, added, values);
    if (light)
        world.addLight(object);
    else
        world.addShader(object, added);
    setAll(world.places, added, values);
    return added;
}

static void remove(SceneState& scene, const std::string& place) {
    World& world = scene.world();
    if (place.starts_with("light.")) {
        world.removeLight(place);
    } else if (place.starts_with("mesh.") || (place.starts_with("model.") && !world.places.has(place))) {
        for (const Placed::Part& part : world.placements.at(place).parts) scene.forget(objectNote(part.instance));
        world.placements.remove(place);
    } else {
        throw BadValue(
            fmt::format("{} cannot be removed; lights, meshes and models can",
                        world.places.has(place) ? "'" + place + "'" : "what is not there, '" + place + "',"));
    }
}

void bindParameters(SceneClass& scene) {
    scene.def("class_at", &classAt)
        .def("get", &get)
        .def("set", &set)
        .def("reset", &reset)
        .def("is_set", &isSet)
        .def("set_class", &setClass)
        .def("add", &add)
        .def("remove", &remove);
}

}  // namespace oxbeam::python
