#include "Apps/oxbeam/Commands.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/SceneFile/UpAxis.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

ModelSceneOptions modelSceneOptions(const ModelCommand& command, const std::string& size) {
    if (command.ground != "shadow" && command.ground != "none")
        throw Error(ExitStatus::Usage, fmt::format("--ground {}: expected shadow or none", command.ground));
    const auto up = std::find(AxisNames.begin(), AxisNames.end(), command.up);
    if (up == AxisNames.end() && !command.up.empty())
        throw Error(ExitStatus::Usage, fmt::format("--up {}: expected one of {}{}", command.up,
                                                   fmt::join(AxisNames, ", "), didYouMean(command.up, AxisNames)));
    if (!command.environment.empty()) checkInput(command.environment);
    ModelSceneOptions options{command.shader, command.environment, command.view, command.ground == "shadow", {}, {}};
    if (up != AxisNames.end()) options.up = static_cast<Model::Axis>(up - AxisNames.begin());
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
    if (!command.output.empty()) checkWritable(command.output);
    SceneAssets assets(importLimits(command.importLimit));
    Diagnostics diagnostics;
    const std::string text =
        describeModelScene(command.model, fs::path(command.output).parent_path(),
                           modelSceneOptions(command.options, command.size), registry, assets, diagnostics);
    for (const Diagnostic& d : diagnostics.sorted()) std::cerr << d.text() << '\n';
    if (command.output.empty()) {
        std::cout << text;
    } else {
        storeFile(command.output, {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
        std::cerr << fmt::format("wrote {}\n", command.output);
    }
    return ExitStatus::Done;
}

}  // namespace oxbeam
