// A mesh as it comes from a file, a shape or a program: flat arrays, not yet trusted.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Matrix.h"
#include "Primitives/Vec.h"

#include <string>
#include <vector>

namespace oxbeam {

struct MeshData {
    std::string name;
    std::vector<R3> positions;
    std::vector<R3> normals;  // per vertex, as all that follows; or empty
    std::vector<R2> texCoords;
    std::vector<R3> colors;
    std::vector<unsigned> indices;  // three a triangle
};

// Applies a transformation to positions and normals.
void transform(MeshData& mesh, const Matrix& matrix);

}  // namespace oxbeam
