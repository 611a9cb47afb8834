// What the engine runs on: libraries, processor, and how much of it.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

struct LibraryVersion {
    std::string name;
    std::string version;  // as the library that is loaded says it, or why there is none
};

OXBEAM_API std::vector<LibraryVersion> libraryVersions();

// How a program that reads others' files is confined while it does, as it says itself.
struct ReaderReport {
    std::string program;
    std::vector<std::string> confinement;  // "name: text"
};

OXBEAM_API std::vector<ReaderReport> readerReports();

// The file that the engine was loaded from.
OXBEAM_API std::filesystem::path engineLibrary();

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
