// Polygon files (PLY), which the importer of the other formats reads without their triangle strips.
#pragma once

#include "Engine/Scene/MeshData.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

struct PlyFile {
    MeshData mesh;                      // normals, texture coordinates and colours where the file has them
    std::vector<std::string> warnings;  // of what it declares and does not hold
    std::string sample;                 // one triangle as such a file, with the same textures: for who reads materials
};

// Text or binary of either byte order. Polygons are cut into triangles, strips taken apart. Nothing comes back where
// the bytes are no such file, where it has no faces, or where it has materials of its own. Never throws for what they
// are, and keeps what can be read of a file that is cut off; reads nothing beyond the bytes, and no list is longer than
// they.
std::optional<PlyFile> parsePly(std::string_view bytes);
std::optional<PlyFile> readPly(const std::filesystem::path& file);

}  // namespace oxbeam
