// Triangle mesh.
#pragma once

#include "Oxbeam/OxScene.h"

#include <string>
#include <vector>

// Per-vertex arrays are as long as there are vertices, or empty. Read-only once it is in a scene.
class OXBEAM_API ABSP final : public GeometryObject {
public:
    // Flags of a triangle.
    enum : Oxuint { HasTexCoords = 1u << 4 };

    std::string name;  // for messages
    Oxuint vertexCount = 0;
    std::vector<R3> positions;  // padded behind the last vertex: the traversal kernel reads 16 bytes at a time
    std::vector<R3> normals;    // of any length; none (zero) where the geometric normal is to be taken
    std::vector<R2> texCoords;
    std::vector<R3> colors;
    // Three a triangle, rotated: its third, first and second vertex, so that the traversal kernel's barycentric
    // weights (of the second and third vertex it knows) are the hit's u and v.
    std::vector<Oxuint> indices;

    Oxuint triangleCount() const { return static_cast<Oxuint>(indices.size() / 3); }

    Oxuint GetShaderId(const Intersection&) const override { return 0; }
    Oxuint GetShaderId4(const ISSEIntersection4&, unsigned) const override { return 0; }
    void GetTriangleVertices(int triangle, R3& a, R3& b, R3& c) const override;
    R3 GetNormal(int triangle, float u, float v) const override;
    R3 GetGeometricNormal(int triangle) const override;
    Oxuint triangleFlags(int) const { return texCoords.empty() ? 0u : HasTexCoords; }

    // A per-vertex attribute at a hit.
    template <class T>
    T interpolate(const std::vector<T>& attribute, int triangle, float u, float v) const {
        const Oxuint* corner = &indices[3 * static_cast<std::size_t>(triangle)];
        return (1.0f - u - v) * attribute[corner[0]] + u * attribute[corner[1]] + v * attribute[corner[2]];
    }
};
