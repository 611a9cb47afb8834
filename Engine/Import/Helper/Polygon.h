// Polygons cut into triangles.
#pragma once

#include "Primitives/Vec.h"

#include <array>
#include <vector>

namespace oxbeam {

// Triangles of a simple polygon, as numbers of its corners, by cutting off its ears [G. Meisters: Polygons Have Ears.
// American Mathematical Monthly 82, 1975]. One that is not simple, flat or small (256 corners) still is covered
// somehow. `triangles` is cleared first.
void triangulate(const std::vector<R3>& polygon, std::vector<std::array<unsigned, 3>>& triangles);

}  // namespace oxbeam
