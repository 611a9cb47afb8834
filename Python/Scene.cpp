// Scenes: loading, closing, what they are made of.
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/SceneFile/UpAxis.h"
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

// Of a model that stands in for a scene file; a scene file says all that itself.
static ModelSceneOptions modelOptionsFrom(const py::dict& given) {
    ModelSceneOptions options;
    const auto take = [&given]<class T>(const char* name, T& to) { takeFrom(given, name, to); };
    std::optional<std::array<float, 3>> color;
    std::optional<std::string> up;
    take("shader", options.shader);
    take("environment", options.environment);
    take("rotate_environment", options.environmentTurn);
    take("background", options.background);
    take("view", options.view.name);
    take("azimuth", options.view.azimuth);
    take("elevation", options.view.elevation);
    take("zoom", options.view.zoom);
    take("ground", options.ground);
    take("color", color);
    take("texture", options.texture);
    take("up", up);
    if (up) options.up = static_cast<Model::Axis>(indexOf("up", *up, AxisNames));
    if (!color) return options;
    for (const float share : *color)
        if (!(share >= 0.0f && share <= 1.0f)) throw py::value_error("color: expected red, green and blue from 0 to 1");
    options.color = R3((*color)[0], (*color)[1], (*color)[2]);
    return options;
}

static ImportLimits importLimitsFrom(const std::optional<std::int64_t>& seconds) {
    constexpr std::int64_t most = 86400;
    if (!seconds) return {};
    if (*seconds < 1 || *seconds > most)
        throw py::value_error(fmt::format("import_limit: expected 1 to {} seconds, not {}", most, *seconds));
    return ImportLimits().lifted(static_cast<unsigned>(*seconds));
}

static SceneFileOptions optionsFrom(const py::dict& set, const py::dict& given) {
    SceneFileOptions options;
    options.set = settingsFrom(set);
    options.model = modelOptionsFrom(given);
    std::optional<std::int64_t> seconds;
    std::optional<std::array<std::int64_t, 2>> size;
    takeFrom(given, "camera", options.camera);
    takeFrom(given, "import_limit", seconds);
    takeFrom(given, "size", size);
    options.importing = importLimitsFrom(seconds);
    if (size) options.model.size = imageSizeFrom(*size);
    return options;
}

static Scene load(const std::filesystem::path& file, const py::dict& set, const py::dict& given) {
    const SceneFileOptions options = optionsFrom(set, given);
    const bool isScene = isSceneFile(file);
    if (isScene && !options.model.background.empty())
        indexOf("background", options.model.background, backgroundNames());
    const Registry& objects = registry();
    Diagnostics diagnostics;
    std::unique_ptr<World> world;
    Inputs inputs;
    {
        const Turn turn;
        const auto work = [&] {
            world = loadScene(file, objects, diagnostics, options);
            inputs = inputsOf(file, options, *world);
        };
        try {
            runAside(work, Turn::stop());
        } catch (const Error& e) {  // arguments have no dashes here
            const std::string_view what = e.what();
            throw Error(e.status(), std::string(what.substr(what.starts_with("--") ? 2 : 0)));
        }
    }
    if (diagnostics.hasErrors()) throw BadScene(diagnostics);
    if (options.model.size) world->image = *options.model.size;
    if (const std::string& background = options.model.background; !background.empty())
        world->transparentBackground = background == backgroundNames()[1];
    world->geometry.reserveStructure();
    warn(diagnostics);
    return std::make_shared<SceneState>(file.string(), std::move(world), std::move(inputs));
}

// A name need not be UTF-8.
static py::str file(const SceneState& scene) {
    return py::reinterpret_steal<py::str>(PyUnicode_DecodeFSDefault(scene.file().c_str()));
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

static R3 pointFrom(const char* name, const py::object& given) {
    const auto [x, y, z] = argument<std::array<float, 3>>(name, given);
    if (!IsFinite(R3(x, y, z))) throw py::value_error(fmt::format("{}: expected finite numbers", name));
    return {x, y, z};
}

static void setView(SceneState& scene, const py::object& from, const py::object& to, const py::object& up,
                    const py::object& angle) {
    const View view{pointFrom("position", from), pointFrom("look_at", to), pointFrom("look_up", up)};
    const auto fov = argument<float>("fov", angle);
    if (!(fov > 0.0f && fov < 180.0f))
        throw py::value_error(fmt::format("fov: expected more than 0 and less than 180 degrees, not {:g}", fov));
    const R3 forward = view.lookAt - view.position, right = Cross(forward, view.lookUp);
    if (!(Length(forward) > 0.0f)) throw py::value_error("look_at: expected a point away from the position");
    if (!(Length(right) > 1e-6f * Length(forward) * Length(view.lookUp)))  // as in scene files
        throw py::value_error("look_up: expected a direction across the way that the camera looks");
    World& world = scene.world();
    world.view = view;
    world.fov = fov;
}

void bindScene(py::module_& module) {
    SceneClass scene(module, "Scene", withoutNew());
    scene.def("close", &SceneState::close)
        .def_property_readonly("file", &file)
        .def_property_readonly("is_open", &SceneState::isOpen)
        .def_readonly("last", &SceneState::last)
        .def("places", &places)
        .def("instances", &instances)
        .def("view", &view)
        .def("set_view", &setView);
    bindParameters(scene);
    bindPlacements(scene);
    bindRender(scene);
    bindIntersect(scene);
    bindTextures(scene);
    bindImage(scene);
    module.def("load", &load);
    module.def("place_meant", &placeMeant);
    module.def("is_scene_file", [](const std::filesystem::path& file) { return isSceneFile(file); });
}

}  // namespace oxbeam::python
