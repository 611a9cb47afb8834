#include "Engine/Provenance/Provenance.h"

#include "Engine/Host/HostObjects.h"
#include "Engine/SceneFile/UpAxis.h"
#include "Engine/System/Hash.h"
#include "Engine/System/System.h"
#include "Engine/System/Workers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

static const std::string PackagePrefix = "package ";

std::string hashText(std::uint64_t hash) { return fmt::format("{:016x}", hash); }

// Files are named as seen from the scene, so that all of it can be moved to another place.
static void addFiles(Inputs& inputs, const fs::path& scene, const World& world) {
    inputs[fmt::format("scene '{}'", scene.filename().string())] = hashText(hashOfFile(scene));
    for (const auto& [file, hash] : world.files)
        if (file != scene)
            inputs[fmt::format("file '{}'", file.lexically_relative(scene.parent_path()).string())] = hashText(hash);
        else
            inputs["model"] = hashText(hash);  // with the files that it refers to
}

static std::string textOf(const std::optional<float>& number) { return number ? fmt::format("{}", *number) : ""; }

static void addModelOptions(Inputs& inputs, const ModelSceneOptions& model) {
    inputs["--shader"] = model.shader;
    inputs["--environment"] = model.environment;
    inputs["--rotate-environment"] = fmt::format("{}", model.environmentTurn);
    inputs["--view"] = model.view.name;
    inputs["--azimuth"] = textOf(model.view.azimuth);
    inputs["--elevation"] = textOf(model.view.elevation);
    inputs["--zoom"] = fmt::format("{}", model.view.zoom);
    inputs["--ground"] = model.ground ? "shadow" : "none";
    inputs["--color"] = model.color ? fmt::format("{},{},{}", model.color->x, model.color->y, model.color->z) : "";
    inputs["--texture"] = model.texture;
    inputs["--up"] = model.up ? AxisNames[*model.up] : "";
    inputs["--background"] = model.background;
}

Inputs inputsOf(const fs::path& scene, const SceneFileOptions& asked, const World& world) {
    Inputs inputs;
    addFiles(inputs, fs::absolute(scene).lexically_normal(), world);
    inputs["--camera"] = asked.camera;
    inputs["--set"] = fmt::format("{}", fmt::join(asked.set, " "));
    addModelOptions(inputs, asked.model);
    return inputs;
}

// A file that is loaded stays what it was.
static const std::string& engineHash() {
    static const std::string hash = hashText(hashOfFile(engineLibrary()));
    return hash;
}

static std::string engineOf(const World& world) {
    std::string engine = fmt::format("{} ({}), Embree {}, oneTBB {}, toml++ {}", OXBEAM_VERSION, engineHash(),
                                     embreeVersion(), schedulerVersion(), tomlVersion());
    for (const auto& [library, version] : world.readers) engine += fmt::format(", {} {}", library, version);
    return engine;
}

void addRendering(Inputs& inputs, const World& world, const RenderOptions& options, const std::string& isa) {
    const Window crop = options.crop.value_or(Window{0, 0, world.image.width, world.image.height});
    inputs["--size"] = fmt::format("{}x{}", world.image.width, world.image.height);
    inputs["--crop"] = fmt::format("{},{},{},{}", crop.x0, crop.y0, crop.x1, crop.y1);
    std::string& background = inputs["--background"];  // a model's may be a colour
    if (background.empty() || options.alpha) background = backgroundNames()[options.alpha];
    inputs["--filter"] = pixelFilterNames()[world.filter.kind];
    inputs["--filter-width"] = fmt::format("{}", world.filter.width);
    inputs["--packets"] = options.packets ? "on" : "off";
    inputs["--isa"] = isa;
    for (const std::string& package : world.packages())
        if (package != HostPackage)
            inputs[PackagePrefix + fs::path(package).filename().string()] = hashText(hashOfFile(package));
    inputs["engine"] = engineOf(world);
}

namespace {

class StateHash {
public:
    void add(std::string_view text) {
        m_hash = hashOf(std::as_bytes(std::span(text)), m_hash);
        addBits(text.size());
    }
    template <class T>
    void addBits(const T& value) {
        m_hash = hashOf(std::as_bytes(std::span(&value, 1)), m_hash);
    }
    std::uint64_t hash() const { return m_hash; }

private:
    std::uint64_t m_hash = 0;
};

void addObject(StateHash& state, const Places& places, const Place& place) {
    state.add(place.path);
    state.add(place.object->name);
    for (const ParameterDeclaration& p : place.object->parameters) {
        const std::string path = place.path + '.' + p.id;
        if (!places.isSet(path)) continue;
        state.add(p.id);
        state.add(textOf(places.get(path)));
    }
}

void addPlaced(StateHash& state, const SceneGeometry& geometry, const Placed& placed) {
    state.add(placed.place);
    state.addBits(placed.toWorld.m);
    for (const Placed::Part& part : placed.parts) {
        const Instance& instance = *geometry.scene().instances[part.instance];
        state.addBits(part.instance);
        state.addBits(instance.shaderBias);
        state.addBits(instance.visibilityMask);
    }
}

}  // namespace

std::uint64_t stateOf(const World& world) {
    StateHash state;
    for (const Place& place : world.places.all()) addObject(state, world.places, place);
    for (const Placed& placed : world.placements.all()) addPlaced(state, world.geometry, placed);
    state.add(world.places.placeOf(world.camera));
    const View& view = world.view ? *world.view : View();
    for (const R3& v : {view.position, view.lookAt, view.lookUp, R3(world.fov, world.view ? 1.0f : 0.0f, 0.0f)})
        state.addBits(std::array{v.x, v.y, v.z});
    return state.hash();
}

std::string inputsText(const Inputs& inputs) {
    return nlohmann::json(inputs).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Names and hashes.
static std::string packagesAmong(const Inputs& inputs) {
    std::vector<std::string> packages;
    for (const auto& [name, value] : inputs)
        if (name.starts_with(PackagePrefix))
            packages.push_back(fmt::format("{} {}", name.substr(PackagePrefix.size()), value));
    return fmt::format("{}", fmt::join(packages, ", "));
}

std::string software() { return "oxbeam " OXBEAM_VERSION; }

Attributes attributesOf(const ViewMatrices& view, const Making& making) {
    return {
        {"Software", software()},
        {"worldToCamera", view.worldToCamera},
        {"worldToNDC", view.worldToNDC},
        {"oxbeam:command", making.command},
        {"oxbeam:sceneHash", hashText(hashOf(inputsText(making.inputs)))},
        {"oxbeam:samples", static_cast<int>(making.passes)},
        {"oxbeam:renderTime", static_cast<float>(making.seconds)},
        {"oxbeam:packages", packagesAmong(making.inputs)},
        {"oxbeam:engine", making.inputs.at("engine")},
    };
}

// "1" is the first object, since 0 stands for none.
std::string objectNames(const World& world) {
    nlohmann::ordered_json names = nlohmann::ordered_json::object();
    for (unsigned i = 0; i < world.geometry.instanceCount(); ++i)
        if (world.geometry.isThere(i)) names[std::to_string(i + 1)] = world.objectName(i);
    return names.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace oxbeam
