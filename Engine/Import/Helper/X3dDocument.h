// X3D files, whose importer takes no account of nodes that are used again.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace oxbeam {

struct X3dDocument {
    std::string text;        // the file with a copy of the node that it names in place of every USE
    std::size_t shapes = 0;  // that have surfaces
    bool tooLarge = false;   // not every copy was made, as there would be too many
};

// Nothing where the file is no XML.
std::optional<X3dDocument> readX3d(const std::filesystem::path& file);

}  // namespace oxbeam
