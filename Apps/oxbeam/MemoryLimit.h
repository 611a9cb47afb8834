// `--memory-limit`.
#pragma once

namespace CLI {
class App;
}

namespace oxbeam {

void addMemoryLimit(CLI::App& subcommand);

}  // namespace oxbeam
