// `oxbeam sweep`: one scene with many values of a parameter or two, on one contact sheet.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

struct SweepCommand {
    RenderCommand render;  // its settings are those of one value, and those that are swept
    unsigned columns = 4;  // of a sweep over one parameter
};

void addSweep(CLI::App& app, SweepCommand& command);
ExitStatus runSweep(const SweepCommand& command, const Registry& registry);

}  // namespace oxbeam
