#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/SceneFile/UpAxis.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

// "0.8,0.2,0.1".
static R3 parseColor(const std::string& text) {
    R3 c;
    char rest;
    const auto share = [](float v) { return v >= 0.0f && v <= 1.0f; };
    if (std::sscanf(text.c_str(), "%f,%f,%f%c", &c.x, &c.y, &c.z, &rest) != 3 || !share(c.x) || !share(c.y) ||
        !share(c.z))
        throw Error(ExitStatus::Usage,
                    fmt::format("--color {}: expected red, green and blue from 0 to 1, as in 0.8,0.2,0.1", text));
    return c;
}

ModelSceneOptions modelSceneOptions(const ModelCommand& command, const std::string& size) {
    if (command.ground != "shadow" && command.ground != "none")
        throw Error(ExitStatus::Usage, fmt::format("--ground {}: expected shadow or none", command.ground));
    const auto up = std::find(AxisNames.begin(), AxisNames.end(), command.up);
    if (up == AxisNames.end() && !command.up.empty())
        throw Error(ExitStatus::Usage, fmt::format("--up {}: expected one of {}{}", command.up,
                                                   fmt::join(AxisNames, ", "), didYouMean(command.up, AxisNames)));
    if (!command.environment.empty()) checkInput(command.environment);
    if (!std::isfinite(command.rotateEnvironment))
        throw Error(ExitStatus::Usage, "--rotate-environment: expected a number of degrees");
    ModelSceneOptions options;
    options.shader = command.shader;
    options.environment = command.environment;
    options.environmentTurn = command.rotateEnvironment;
    options.background = command.background;
    options.view = command.view;
    options.ground = command.ground == "shadow";
    if (!command.color.empty()) options.color = parseColor(command.color);
    if (!command.texture.empty()) checkInput(command.texture);
    options.texture = command.texture;
    if (up != AxisNames.end()) options.up = static_cast<Model::Axis>(up - AxisNames.begin());
    options.keepMaterials = command.keepMaterials;
    if (!size.empty()) options.size = parseSize(size);
    return options;
}

ImportLimits importLimits(const std::optional<unsigned>& seconds) {
    constexpr unsigned most = 86400;
    if (!seconds) return {};
    if (*seconds < 1 || *seconds > most)
        throw Error(ExitStatus::Usage, fmt::format("--import-limit {}: expected 1 to {} seconds", *seconds, most));
    return ImportLimits().lifted(*seconds);
}

ExitStatus runScene(const SceneCommand& command, const Registry& registry) {
    checkInput(command.model);
    if (isSceneFile(command.model))
        throw Error(ExitStatus::Usage, fmt::format("'{}' is a scene file already; expected a model", command.model));
    NamedFiles outputs;
    if (!command.output.empty()) {
        checkWritable(command.output);
        outputs = {{"--output", command.output}};
        requireApart(outputs, inputsOf(command.model, command.options, registry));
    }
    SceneAssets assets(importLimits(command.importLimit));
    Diagnostics diagnostics;
    const std::string text =
        describeModelScene(command.model, fs::path(command.output).parent_path(),
                           modelSceneOptions(command.options, command.size), registry, assets, diagnostics);
    for (const Diagnostic& d : diagnostics.sorted()) std::cerr << d.text() << '\n';
    requireApart(outputs, inputsOf(assets.files()));
    if (command.output.empty()) {
        std::cout << text;
    } else {
        storeFile(command.output, text);
        std::cerr << fmt::format("wrote {}\n", command.output);
    }
    return ExitStatus::Done;
}

}  // namespace oxbeam
