// Options that several subcommands have alike.
#pragma once

#include "Apps/oxbeam/Commands.h"

#include <CLI/CLI.hpp>

namespace oxbeam {

inline void addUp(CLI::App& c, ModelCommand& m) {
    c.add_option("--up", m.up, "Of a model: which of its axes is up, instead of what the file or its format says")
        ->type_name("x|y|z|-x|-y|-z");
}

inline void addImportLimit(CLI::App& c, std::optional<unsigned>& seconds) {
    c.add_option("--import-limit", seconds, "What reading a model may take, instead of 20 and more for a large file")
        ->type_name("SECONDS");
}

}  // namespace oxbeam
