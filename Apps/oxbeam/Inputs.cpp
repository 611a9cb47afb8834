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

void requireSameInputs(const std::string& savedText, const Inputs& now, const std::string& checkpoint) {
    Inputs then;
    try {
        nlohmann::json::parse(savedText).get_to(then);
    } catch (const nlohmann::json::exception&) {
        throw Error(ExitStatus::InputOutput,
                    fmt::format("checkpoint '{}' is damaged: what it was made from cannot be read", checkpoint));
    }
    Inputs all = then;
    all.insert(now.begin(), now.end());
    std::vector<std::string> differences;
    bool optionsOnly = true;
    for (const auto& [name, either] : all) {
        if (valueOf(then, name) == valueOf(now, name)) continue;
        differences.push_back(difference(name, then, now));
        optionsOnly = optionsOnly && isOption(name);
    }
    if (differences.empty()) return;
    throw Error(optionsOnly ? ExitStatus::Usage : ExitStatus::BadScene,
                fmt::format("cannot resume from '{}', which is of another picture: {}", checkpoint,
                            fmt::join(differences, "; ")));
}

}  // namespace oxbeam
