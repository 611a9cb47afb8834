// Geometry as packages see it: a scene of instances of objects.
#pragma once

#include "Kernel/Intersection.h"
#include "Kernel/Ray.h"
#include "Oxbeam/OxTypes.h"
#include "Primitives/Matrix.h"

#include <vector>

struct OxState;
struct OxState4;

// Something that rays can hit.
class OXBEAM_API GeometryObject {
public:
    Oxuint id = 0;  // no other object has it

    virtual ~GeometryObject();
    // Number of the hit's shader among the object's own; an instance's shaderBias is added to it.
    virtual Oxuint GetShaderId(const Intersection& hit) const = 0;
    virtual Oxuint GetShaderId4(const ISSEIntersection4& hit4, unsigned lane) const = 0;
    // The three vertices of a triangle, in object space, which is the world's for an object that a placement shows.
    virtual void GetTriangleVertices(int triangle, R3& a, R3& b, R3& c) const = 0;
    // Interpolated normal at a hit, in object space and of any length; the geometric one where the object has no
    // vertex normals.
    virtual R3 GetNormal(int triangle, float u, float v) const = 0;
    // Normal of the triangle's plane, in object space and of any length.
    virtual R3 GetGeometricNormal(int triangle) const = 0;
};

// One placement of an object in the scene.
struct Instance {
    Oxuint object = 0;                // index in Scene::objects
    Oxuint shaderBias = 0;            // number of its first shader in the context's list
    Oxuint visibilityMask = RAY_ALL;  // kinds of rays that can hit it
    int hasXfm = 0;                   // 0: the object's vertices are in world space already
    Matrix meshToWorldXfm;
    Matrix normalXfm;                        // turns object-space normals into world space, up to their length
    const GeometryObject* placed = nullptr;  // the object in world space; null where it is that already
};

struct Scene {
    std::vector<const Instance*> instances;
    std::vector<const GeometryObject*> objects;
};

// Finds hits. A ray that no hit can be found for (NaN or absurd origin or direction) is a miss, and is counted.
class OXBEAM_API Intersector {
public:
    virtual ~Intersector();
    // The nearest hit on the state's ray, written to the state; false if there is none.
    virtual bool Intersect(OxState& state) = 0;
    // The nearest hits of four primary rays, written to the packet's hit record; false if there is none at all.
    virtual bool Intersect4(OxState4& state4) = 0;
    // Whether anything blocks four shadow rays within their distances: the hit record's triangle becomes 0 in the lanes
    // that are blocked, and stays as it is in the others.
    virtual void Occluded4(OxState4& state4) = 0;
};
