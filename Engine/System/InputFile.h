// Whether a file is one that can be read.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <filesystem>
#include <string>

namespace oxbeam {

struct InputFile {
    enum State { Readable, Missing, NotRegular, Refused } state = Readable;
    std::string why = {};  // the system refuses it
};

// Before anything reads it: a pipe or a device would never end.
OXBEAM_API InputFile inputFile(const std::filesystem::path& file);

}  // namespace oxbeam
