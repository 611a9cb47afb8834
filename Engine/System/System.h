// What the engine runs on: its own file, the processor, and how much of it.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// The file that the engine was loaded from.
OXBEAM_API std::filesystem::path engineLibrary();

// Where a program is; nothing where it is nowhere. Never in the working folder, whatever the path says.
OXBEAM_API std::filesystem::path programOnPath(const std::string& name);

struct Processor {
    std::string model;
    std::vector<std::string> isas;  // that it has, of those that can be traced with
};

OXBEAM_API Processor processor();

struct ThreadBudget {
    unsigned hardware = 1;        // threads of the machine
    unsigned affinity = 1;        // that this process may run on
    std::optional<double> quota;  // processors' worth of time that the control group grants; nothing: no limit
    unsigned rendering = 1;       // threads that are rendered with unless told otherwise
};

OXBEAM_API ThreadBudget threadBudget();

}  // namespace oxbeam
