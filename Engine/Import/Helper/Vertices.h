// Which vertices of a mesh are the same.
#pragma once

#include "Engine/Scene/MeshData.h"

#include <cstddef>
#include <vector>

namespace oxbeam {

// For each position the first that equals it, bit for bit but for the sign of zero. In linear time.
std::vector<unsigned> firstAtSamePlace(const std::vector<R3>& positions);

// Leaves one vertex of all that agree in everything, and none that no triangle uses. In linear time. Answers how many
// of the vertices were of the latter kind.
std::size_t joinVertices(MeshData& mesh);

}  // namespace oxbeam
