// `oxbeam split`: a picture as a folder of parts, for many machines.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

struct SplitCommand {
    RenderCommand render;  // the scene, and what decides the picture
    std::vector<std::string> packagePaths;
    std::vector<std::string> options;  // those of the picture that were given, as words
    std::string folder;
    std::optional<unsigned> parts, machines;  // one of both
    bool pack = false;
};

void addSplit(CLI::App& app, SplitCommand& command);
ExitStatus runSplit(const SplitCommand& command, const Registry& registry);

}  // namespace oxbeam
