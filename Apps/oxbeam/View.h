// `oxbeam view`: the viewer, which is a program of its own beside this one.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

struct ViewCommand {
    std::vector<std::string> packagePaths;
    RenderCommand render;  // the scene or nothing, and what is said of its picture
    std::string script;    // file, or nothing
    std::string theme = "dark";
    std::optional<float> scale;  // of the interface, instead of what the screen asks for
};

// The options, of the subcommand and of the program alike.
void addViewOptions(CLI::App& app, ViewCommand& command);
void addView(CLI::App& app, ViewCommand& command);

// Becomes the viewer, with the arguments of the subcommand. Returns only where there is none, by throwing Error(Usage).
ExitStatus runView(int argc, char** argv);

}  // namespace oxbeam
