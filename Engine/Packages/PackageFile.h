// What the file of a package tells before anything of it is loaded: loading runs its code.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace oxbeam {

struct PackageFile {
    std::filesystem::path path;
    std::string fault;  // why it is no package that could be loaded; nothing where it is one
    std::set<std::string>
        objects;                 // <Name>s of the Register_<Name>_LoadableObject that it exports, as far as it is read
    bool namesKnown = false;     // these are all
    bool saysInterface = false;  // which version of the interface it was built for; that is this host's
    std::uint64_t hash = 0;      // of its content
};

// Reads a shared library's table of dynamic symbols, which is there in a stripped one too. Never waits and never fails:
// what is no such file, or a damaged one, is a fault.
OXBEAM_API PackageFile readPackageFile(const std::filesystem::path& path);

}  // namespace oxbeam
