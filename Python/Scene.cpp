// Scenes: loading, closing, what they are made of.
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/System/Interruption.h"
#include "Python/Aside.h"
#include "Python/Errors.h"
#include "Python/Packages.h"
#include "Python/SceneState.h"
#include "Python/Values.h"

#include <fmt/format.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <set>

namespace oxbeam::python {

World& SceneState::world() const {
    if (!m_world) throw Closed("the scene is closed");
    if (m_used) throw std::logic_error("the scene is at work; nothing of it can be asked or changed until that ends");
    return *m_world;
}

void SceneState::close() {
    if (m_used) throw std::logic_error("the scene is at work, and cannot be closed until that ends");
    m_world.reset();
}

// "PLACE.PARAM=VALUE", as scene files have values.
static std::vector<std::string> settingsFrom(const py::dict& set) {
    std::vector<std::string> settings;
    for (const auto& [place, value] : set)
        settings.push_back(fmt::format("{}={}", place.cast<std::string>(), textOf(valueFrom(value))));
    return settings;
}

static Scene load(const std::filesystem::path& file, const py::dict& set, const std::string& camera) {
    static std::atomic<bool> stop{false};  // of whoever has the turn
    SceneFileOptions options;
    options.set = settingsFrom(set);
    options.camera = camera;
    const Registry& objects = registry();
    Diagnostics diagnostics;
    std::unique_ptr<World> world;
    {
        const Turn turn;
        stop = false;
        interruptBy(stop);
        runAside([&] { world = loadScene(file, objects, diagnostics, options); }, stop);
    }
    if (diagnostics.hasErrors()) throw BadScene(diagnostics);
    world->geometry.reserveStructure();
    warn(diagnostics);
    return std::make_shared<SceneState>(file.string(), std::move(world));
}

// Objects first, then what stands in the scene.
static std::vector<std::string> places(const SceneState& scene) {
    std::vector<std::string> names;
    for (const Place& place : scene.world().places.all()) names.push_back(place.path);
    for (const Placed& placed : scene.world().placements.all()) names.push_back(placed.place);
    return names;
}

// By their numbers, as pictures and hits have them.
static py::dict instances(const SceneState& scene) {
    const World& world = scene.world();
    py::dict names;
    for (unsigned i = 0; i < world.geometry.instanceCount(); ++i)
        if (world.geometry.isThere(i)) names[py::int_(i + 1)] = py::str(printable(world.objectName(i)));
    return names;
}

static py::tuple tupleOf(const R3& v) { return py::make_tuple(v.x, v.y, v.z); }

static py::tuple view(const SceneState& scene) {
    const View view = scene.world().viewInForce();
    return py::make_tuple(tupleOf(view.position), tupleOf(view.lookAt), tupleOf(view.lookUp), scene.world().fov);
}

static R3 pointFrom(const std::array<float, 3>& v) {
    const R3 point(v[0], v[1], v[2]);
    if (!IsFinite(point)) throw py::value_error("expected finite numbers for a view");
    return point;
}

static void setView(SceneState& scene, const std::array<float, 3>& position, const std::array<float, 3>& lookAt,
                    const std::array<float, 3>& lookUp, float fov) {
    if (!(fov > 0.0f && fov < 180.0f))
        throw py::value_error("expected an angle of more than 0 and less than 180 degrees");
    const View view{pointFrom(position), pointFrom(lookAt), pointFrom(lookUp)};
    if (!(Length(Cross(view.lookAt - view.position, view.lookUp)) > 0.0f))
        throw py::value_error("expected a view to somewhere, and not straight up or down");
    World& world = scene.world();
    world.view = view;
    world.fov = fov;
}

static py::tuple size(const SceneState& scene) {
    return py::make_tuple(scene.world().image.width, scene.world().image.height);
}

void bindScene(py::module_& module) {
    SceneClass scene(module, "Scene");
    scene.def("close", &SceneState::close)
        .def_property_readonly("file", &SceneState::file)
        .def_property_readonly("is_open", &SceneState::isOpen)
        .def_readonly("last", &SceneState::last)
        .def("places", &places)
        .def("instances", &instances)
        .def("size", &size)
        .def("view", &view)
        .def("set_view", &setView);
    bindParameters(scene);
    bindPlacements(scene);
    bindRender(scene);
    bindIntersect(scene);
    module.def("load", &load);
}

}  // namespace oxbeam::python
