#include "Engine/Scene/BoxCoordinates.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace oxbeam {

// Sides are numbered by axis, those that face backwards from 3.
static unsigned sideFacing(const R3& n) {
    const float a = std::fabs(n.x), b = std::fabs(n.y), c = std::fabs(n.z);
    const unsigned axis = a >= b && a >= c ? 0 : b >= c ? 1 : 2;
    return n[axis] < 0.0f ? axis + 3 : axis;
}

static R2 coordinatesOn(unsigned side, const R3& p) {
    const float sign = side < 3 ? 1.0f : -1.0f;
    switch (side % 3) {
    case 0: return {-sign * p.z, p.y};
    case 1: return {p.x, -sign * p.z};
    default: return {sign * p.x, p.y};
    }
}

namespace {

// The vertices of a mesh, of which a side takes the first that is free, or a copy.
class SideVertices {
public:
    explicit SideVertices(MeshData& mesh, float side)
        : m_mesh(mesh), m_perUnit(1.0f / side), m_own(mesh.positions.size(), free()), m_taken(mesh.positions.size()) {
        mesh.texCoords.assign(mesh.positions.size(), R2());
    }

    bool has(unsigned vertex) const { return vertex < m_own.size(); }

    unsigned of(unsigned vertex, unsigned side) {
        unsigned& own = m_own[vertex][side];
        if (own != None) return own;
        own = m_taken[vertex] ? copy(vertex) : vertex;
        m_taken[vertex] = true;
        m_mesh.texCoords[own] = coordinatesOn(side, m_perUnit * m_mesh.positions[vertex]);
        return own;
    }

private:
    static constexpr unsigned None = ~0u;

    static std::array<unsigned, 6> free() { return {None, None, None, None, None, None}; }

    unsigned copy(unsigned vertex) {
        m_mesh.positions.push_back(R3(m_mesh.positions[vertex]));
        if (!m_mesh.normals.empty()) m_mesh.normals.push_back(R3(m_mesh.normals[vertex]));
        if (!m_mesh.colors.empty()) m_mesh.colors.push_back(R3(m_mesh.colors[vertex]));
        m_mesh.texCoords.emplace_back();
        return static_cast<unsigned>(m_mesh.positions.size() - 1);
    }

    MeshData& m_mesh;
    float m_perUnit;
    std::vector<std::array<unsigned, 6>> m_own;  // by the original vertex
    std::vector<bool> m_taken;
};

}  // namespace

void giveBoxCoordinates(MeshData& mesh, float side) {
    SideVertices vertices(mesh, side);
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        unsigned* corner = &mesh.indices[i];
        if (!vertices.has(std::max({corner[0], corner[1], corner[2]}))) continue;  // which is reported elsewhere
        const R3 a = mesh.positions[corner[0]];
        const unsigned facing = sideFacing(Cross(mesh.positions[corner[1]] - a, mesh.positions[corner[2]] - a));
        for (unsigned k = 0; k < 3; ++k) corner[k] = vertices.of(corner[k], facing);
    }
}

}  // namespace oxbeam
