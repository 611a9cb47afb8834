// Placements that flatten what they place.
#pragma once

#include "Primitives/Matrix.h"

#include <array>
#include <optional>

namespace oxbeam {

// Such a placement taken apart: what flattens along one direction, then what places without flattening. However many
// placements flatten along the same direction, the first part is the same.
struct Flattening {
    std::array<int, 3> direction;  // the same for the same first part
    Matrix flatten, place;         // meshToWorld = place * flatten, to a millionth
};

// Nothing where it does not flatten, or flattens to less than a surface.
std::optional<Flattening> flatteningOf(const Matrix& meshToWorld);

}  // namespace oxbeam
