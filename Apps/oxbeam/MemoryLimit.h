// `--memory-limit`.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace oxbeam {

// `given`: where to keep it as it was said, for other processes to be told; or null.
void addMemoryLimit(CLI::App& subcommand, std::string* given = nullptr);

}  // namespace oxbeam
