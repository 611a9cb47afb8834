// The process that reads models: `oxbeam-import`, which stands beside the library.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

// What the process may take.
inline constexpr unsigned ImportSeconds = 20;
inline constexpr std::size_t ImportBytes = std::size_t{4} << 30;

struct ImportOutcome {
    std::vector<std::byte> bytes;  // what it handed back
    std::string failure;           // how it ended, if not well: "took longer than 20 s"
};

// Reads one file in a new process. Throws Error(InputOutput) where there is no such program or no process.
ImportOutcome runImport(const std::filesystem::path& file);

}  // namespace oxbeam
