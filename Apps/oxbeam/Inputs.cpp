#include "Apps/oxbeam/Inputs.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/Versions.h"
#include "Engine/Host/HostObjects.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/System/Hash.h"
#include "Engine/System/System.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

static const std::string PackagePrefix = "package ";

static std::string hex(std::uint64_t hash) { return fmt::format("{:016x}", hash); }

static void addOptions(const RenderCommand& command, const World& world, const RenderOptions& options, Inputs& inputs) {
    const ModelCommand& m = command.model;
    const Window crop = options.crop.value_or(Window{0, 0, world.image.width, world.image.height});
    inputs["--size"] = fmt::format("{}x{}", world.image.width, world.image.height);
    inputs["--crop"] = fmt::format("{},{},{},{}", crop.x0, crop.y0, crop.x1, crop.y1);
    inputs["--camera"] = command.camera;
    inputs["--set"] = fmt::format("{}", fmt::join(command.set, " "));
    inputs["--background"] = backgroundNames()[world.transparentBackground];
    inputs["--filter"] = pixelFilterNames()[world.filter.kind];
    inputs["--filter-width"] = fmt::format("{}", world.filter.width);
    inputs["--packets"] = options.packets ? "on" : "off";
    inputs["--isa"] = command.isa.empty() ? SceneGeometry::defaultIsa() : command.isa;
    inputs["--shader"] = m.shader;
    inputs["--environment"] = m.environment;
    inputs["--rotate-environment"] = fmt::format("{}", m.rotateEnvironment);
    inputs["--view"] = m.view.name;
    inputs["--azimuth"] = m.view.azimuth ? fmt::format("{}", *m.view.azimuth) : "";
    inputs["--elevation"] = m.view.elevation ? fmt::format("{}", *m.view.elevation) : "";
    inputs["--zoom"] = fmt::format("{}", m.view.zoom);
    inputs["--ground"] = m.ground;
    inputs["--color"] = m.color;
    inputs["--texture"] = m.texture;
    inputs["--up"] = m.up;
}

bool recordsInputs(const RenderCommand& command) { return !command.checkpoint.empty() || isExr(pictureName(command)); }

// Files are named as seen from the scene, so that all of it can be moved to another place.
Inputs inputsOf(const RenderCommand& command, const World& world, const RenderOptions& options) {
    Inputs inputs;
    const fs::path scene = fs::absolute(command.scene).lexically_normal();
    inputs[fmt::format("scene '{}'", scene.filename().string())] = hex(hashOfFile(scene));
    for (const auto& [file, hash] : world.files)
        if (file != scene)
            inputs[fmt::format("file '{}'", file.lexically_relative(scene.parent_path()).string())] = hex(hash);
        else
            inputs["model"] = hex(hash);  // with the files that it refers to
    for (const std::string& package : world.packages())
        if (package != HostPackage)
            inputs[PackagePrefix + fs::path(package).filename().string()] = hex(hashOfFile(package));
    std::string engine = fmt::format("{} ({})", OXBEAM_VERSION, hex(hashOfFile(engineLibrary())));
    for (const LibraryVersion& library : libraryVersions())
        engine += fmt::format(", {} {}", library.name, library.version);
    inputs["engine"] = engine;
    addOptions(command, world, options, inputs);
    return inputs;
}

std::string inputsText(const Inputs& inputs) {
    return nlohmann::json(inputs).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Inputs sharedInputs(Inputs inputs) {
    inputs.erase("--crop");
    inputs.erase("--frames");
    for (const char* name : {"--environment", "--texture"}) inputs[name] = fs::path(inputs[name]).filename().string();
    std::string& isa = inputs["--isa"];
    if (isa == "sse2" || isa == "sse4.2" || isa == "avx") isa = "sse2, sse4.2 or avx";
    return inputs;
}

std::string hashOfInputs(const Inputs& inputs) { return hex(hashOf(inputsText(inputs))); }

std::string packagesAmong(const Inputs& inputs) {
    std::vector<std::string> packages;
    for (const auto& [name, value] : inputs)
        if (name.starts_with(PackagePrefix))
            packages.push_back(fmt::format("{} {}", name.substr(PackagePrefix.size()), value));
    return fmt::format("{}", fmt::join(packages, ", "));
}

static std::string valueOf(const Inputs& inputs, const std::string& name) {
    const auto found = inputs.find(name);
    return found == inputs.end() || found->second.empty() ? "not given" : found->second;
}

static bool isOption(const std::string& name) { return name.starts_with("--"); }

// Options are said with both values; of contents, hashes would tell nobody anything.
static std::string difference(const std::string& name, const Inputs& then, const Inputs& now) {
    if (isOption(name)) return fmt::format("{} was {} and is {}", name, valueOf(then, name), valueOf(now, name));
    const char* how = !then.contains(name) ? "is new" : !now.contains(name) ? "is gone" : "has changed";
    return fmt::format("{} {}", name, how);
}

Differences differencesOf(const Inputs& then, const Inputs& now) {
    Inputs all = then;
    all.insert(now.begin(), now.end());
    Differences found;
    for (const auto& [name, either] : all) {
        if (valueOf(then, name) == valueOf(now, name)) continue;
        found.words.push_back(difference(name, then, now));
        if (!isOption(name)) found.status = ExitStatus::BadScene;
    }
    return found;
}

Inputs inputsFrom(const std::string& text) { return nlohmann::json::parse(text).get<Inputs>(); }

void requireSameInputs(const std::string& savedText, const Inputs& now, const std::string& checkpoint) {
    Inputs then;
    try {
        then = inputsFrom(savedText);
    } catch (const nlohmann::json::exception&) {
        throw Error(ExitStatus::InputOutput,
                    fmt::format("checkpoint '{}' is damaged: what it was made from cannot be read", checkpoint));
    }
    const Differences found = differencesOf(then, now);
    if (found.words.empty()) return;
    throw Error(found.status, fmt::format("cannot resume from '{}', which is of another picture: {}", checkpoint,
                                          fmt::join(found.words, "; ")));
}

}  // namespace oxbeam
