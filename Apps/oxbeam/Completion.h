// Completion of the command line by the shell.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/Registry.h"

#include <string>

namespace CLI {
class App;
}

namespace oxbeam {

struct CompletionCommand {
    std::string shell;
    std::string scene;
};

// `completion`, and `complete`, which the script calls back for what only a scene file tells.
void addCompletion(CLI::App& app, CompletionCommand& command);

// Prints the shell's script. Subcommands, options and objects stand in it, so that they complete at once. What completes
// an option's value is told by the option itself, see there.
ExitStatus runCompletion(const CLI::App& app, const std::string& shell, const Registry& registry);

// Prints what can follow an option where it depends on the scene, a line each: "--set shader.body.shininess=". Silent
// about everything that is wrong with the scene.
ExitStatus runComplete(const std::string& scene, const Registry& registry);

}  // namespace oxbeam
