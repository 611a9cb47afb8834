#include "Apps/oxbeam/Inputs.h"

#include "Apps/oxbeam/RenderSteps.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <vector>

namespace oxbeam {

bool recordsInputs(const RenderCommand& command) { return !command.checkpoint.empty() || isExr(pictureName(command)); }

Inputs inputsOf(const RenderCommand& command, const World& world, const RenderOptions& options) {
    SceneFileOptions asked;
    asked.set = command.set;
    asked.camera = command.camera;
    asked.model = modelSceneOptions(command.model, command.size);
    Inputs inputs = inputsOf(command.scene, asked, world);
    addRendering(inputs, world, options, command.isa.empty() ? SceneGeometry::defaultIsa() : command.isa);
    return inputs;
}

Inputs sharedInputs(Inputs inputs) {
    inputs.erase("--crop");
    inputs.erase("--frames");
    for (const char* name : {"--environment", "--texture"})
        inputs[name] = std::filesystem::path(inputs[name]).filename().string();
    std::string& isa = inputs["--isa"];
    if (isa == "sse2" || isa == "sse4.2" || isa == "avx") isa = "sse2, sse4.2 or avx";
    return inputs;
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
