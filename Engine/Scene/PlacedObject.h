// A mesh as one of its placements shows it: packages that ask for vertices get the world's, however often it is placed.
#pragma once

#include "Oxbeam/ABSP.h"

namespace oxbeam {

// Mesh and instance must outlive it; it follows where the instance goes.
class PlacedObject final : public GeometryObject {
public:
    PlacedObject(const ABSP& mesh, const Instance& instance) : m_mesh(mesh), m_instance(instance) {}

    Oxuint GetShaderId(const Intersection& hit) const override { return m_mesh.GetShaderId(hit); }
    Oxuint GetShaderId4(const ISSEIntersection4& hit4, unsigned lane) const override {
        return m_mesh.GetShaderId4(hit4, lane);
    }
    void GetTriangleVertices(int triangle, R3& a, R3& b, R3& c) const override {
        m_mesh.GetTriangleVertices(triangle, a, b, c);
        for (R3* vertex : {&a, &b, &c}) *vertex = TransformPoint(m_instance.meshToWorldXfm, *vertex);
    }
    R3 GetNormal(int triangle, float u, float v) const override {
        return TransformVector(m_instance.normalXfm, m_mesh.GetNormal(triangle, u, v));
    }
    R3 GetGeometricNormal(int triangle) const override {
        return TransformVector(m_instance.normalXfm, m_mesh.GetGeometricNormal(triangle));
    }

private:
    const ABSP& m_mesh;
    const Instance& m_instance;
};

}  // namespace oxbeam
