#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

ModelSceneOptions modelSceneOptions(const ModelCommand& command, const std::string& size) {
    if (command.ground != "shadow" && command.ground != "none")
        throw Error(ExitStatus::Usage, fmt::format("--ground {}: expected shadow or none", command.ground));
    if (!command.environment.empty()) checkInput(command.environment);
    ModelSceneOptions options{command.shader, command.environment, command.view, command.ground == "shadow", {}};
    if (!size.empty()) options.size = parseSize(size);
    return options;
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
    SceneAssets assets;
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
