// A mesh as it comes from a file, a shape or a program: flat arrays, not yet trusted.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Matrix.h"
#include "Primitives/Vec.h"

#include <string>
#include <utility>
#include <vector>

namespace oxbeam {

struct MeshData {
    std::string name;
    std::vector<R3> positions;
    std::vector<R3> normals;  // per vertex, as all that follows; or empty
    std::vector<R2> texCoords;
    std::vector<R3> colors;
    std::vector<unsigned> indices;  // three a triangle

    // Gives back all memory but the name's.
    void clear() { *this = {std::move(name), {}, {}, {}, {}, {}}; }
};

// Of the arrays of a mesh, before or after a scene has taken it over.
template <class Mesh>
std::size_t bytesOfMesh(const Mesh& mesh) {
    const auto bytes = [](const auto& array) { return array.size() * sizeof(array[0]); };
    return bytes(mesh.positions) + bytes(mesh.normals) + bytes(mesh.texCoords) + bytes(mesh.colors) +
           bytes(mesh.indices);
}

// What stretches over less than a surface is never hit. In double precision, so that no area is too small to tell.
inline bool hasArea(const R3& a, const R3& b, const R3& c) {
    const double u[] = {double{b.x} - a.x, double{b.y} - a.y, double{b.z} - a.z};
    const double v[] = {double{c.x} - a.x, double{c.y} - a.y, double{c.z} - a.z};
    return u[1] * v[2] != u[2] * v[1] || u[2] * v[0] != u[0] * v[2] || u[0] * v[1] != u[1] * v[0];
}

// Applies a transformation to positions and normals.
void transform(MeshData& mesh, const Matrix& matrix);

}  // namespace oxbeam
