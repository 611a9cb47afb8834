// The libraries that the engine is built on.
#pragma once

#include <string>
#include <vector>

namespace oxbeam {

struct LibraryVersion {
    std::string name;
    std::string version;  // as the library that is loaded says it, or why there is none
};

std::vector<LibraryVersion> libraryVersions();

}  // namespace oxbeam
