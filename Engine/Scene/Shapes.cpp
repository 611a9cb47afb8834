#include "Engine/Scene/Shapes.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

// Adds a square of side 2 with the given centre and axes, facing along their cross product.
static void addSquare(MeshData& mesh, const R3& center, const R3& right, const R3& up) {
    const auto first = static_cast<unsigned>(mesh.positions.size());
    for (const R2 corner : {R2(0.0f, 0.0f), R2(1.0f, 0.0f), R2(1.0f, 1.0f), R2(0.0f, 1.0f)}) {
        mesh.positions.push_back(center + (2.0f * corner.x - 1.0f) * right + (2.0f * corner.y - 1.0f) * up);
        mesh.texCoords.push_back(corner);
    }
    for (unsigned i : {0u, 1u, 2u, 0u, 2u, 3u}) mesh.indices.push_back(first + i);
}

MeshData planeMesh() {
    MeshData mesh;
    mesh.name = "plane";
    addSquare(mesh, R3(), R3(1, 0, 0), R3(0, 0, -1));
    return mesh;
}

// Squares around squares, each side of one joined to the same side of the next: no vertex lies on another's edge. It is the
// same whatever else the scene holds and wherever it is seen from, so that neither can change it. That it is level keeps
// rays' distances exact however large its triangles are; places on it are good to 4e-6 of how far away the point is. More
// and smaller steps cost every ray: factors of 4 were 10% of a frame, these are none.
MeshData groundMesh(const R3& point) {
    constexpr float innermost = 1e-3f, growth = 64.0f;
    constexpr unsigned squares = 9;
    MeshData mesh;
    mesh.name = "ground";
    mesh.indices = {0, 1, 2, 0, 2, 3};
    float side = innermost;
    for (unsigned square = 0; square < squares; ++square, side *= growth) {
        const auto first = static_cast<unsigned>(mesh.positions.size());
        for (const R2 corner : {R2(-1.0f, 1.0f), R2(1.0f, 1.0f), R2(1.0f, -1.0f), R2(-1.0f, -1.0f)}) {
            const R3 p = point + R3(side * corner.x, 0.0f, side * corner.y);
            mesh.positions.push_back(p);
            mesh.texCoords.emplace_back(p.x - point.x, point.z - p.z);
        }
        for (unsigned i = 0; i < 4 && square > 0; ++i) {
            const unsigned a = first + i, b = first + (i + 1) % 4;
            mesh.indices.insert(mesh.indices.end(), {a, b, b - 4, a, b - 4, a - 4});
        }
    }
    return mesh;
}

MeshData boxMesh() {
    MeshData mesh;
    mesh.name = "box";
    const R3 y(0, 1, 0);
    for (const R3& front : {R3(0, 0, 1), R3(1, 0, 0), R3(0, 0, -1), R3(-1, 0, 0)})
        addSquare(mesh, front, Cross(y, front), y);
    addSquare(mesh, y, R3(1, 0, 0), R3(0, 0, -1));
    addSquare(mesh, -y, R3(1, 0, 0), R3(0, 0, 1));
    return mesh;
}

MeshData sphereMesh(unsigned segments) {
    MeshData mesh;
    mesh.name = "sphere";
    const unsigned rings = segments / 2;
    for (unsigned ring = 0; ring <= rings; ++ring)
        for (unsigned segment = 0; segment <= segments; ++segment) {
            const R2 st(static_cast<float>(segment) / static_cast<float>(segments),
                        static_cast<float>(ring) / static_cast<float>(rings));
            // The seam and the poles meet exactly, or rays would find the gap.
            const double phi = 6.283185307179586 * (segment % segments) / segments;
            const double theta = 3.141592653589793 * (st.y - 0.5);
            const bool pole = ring == 0 || ring == rings;
            const R3 p =
                pole ? R3(0.0f, ring ? 1.0f : -1.0f, 0.0f)
                     : R3(static_cast<float>(std::cos(theta) * std::cos(phi)), static_cast<float>(std::sin(theta)),
                          static_cast<float>(-std::cos(theta) * std::sin(phi)));
            mesh.positions.push_back(p);
            mesh.normals.push_back(p);
            mesh.texCoords.push_back(st);
        }
    const unsigned row = segments + 1;
    for (unsigned ring = 0; ring < rings; ++ring)
        for (unsigned segment = 0; segment < segments; ++segment) {
            const unsigned a = ring * row + segment, b = a + 1, c = a + row + 1, d = a + row;
            if (ring > 0) mesh.indices.insert(mesh.indices.end(), {a, b, c});
            if (ring + 1 < rings) mesh.indices.insert(mesh.indices.end(), {a, c, d});
        }
    return mesh;
}

}  // namespace oxbeam
