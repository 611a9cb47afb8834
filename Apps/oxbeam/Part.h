// `oxbeam part`: one part of a picture that was split.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

struct PartCommand {
    std::string job;     // its folder, or folder/NUMBER
    std::string number;  // or nothing
    std::optional<unsigned> threads;
    double checkpointEvery = 30.0;  // seconds
    bool quiet = false;
};

void addPart(CLI::App& app, PartCommand& command);
ExitStatus runPart(const PartCommand& command, const Registry& registry);

}  // namespace oxbeam
