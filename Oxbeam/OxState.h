// Shading state of one ray and of a packet of four rays.
#pragma once

#include "Kernel/Intersection.h"
#include "Kernel/Ray.h"
#include "Oxbeam/OxTypes.h"

class Intersector;
class GeometryObject;
struct Instance;
struct Scene;
class OxRenderingObject;

// One per ray being shaded, on the stack of the thread that shades it.
struct OxState {
    Intersector* intersector = nullptr;
    Intersection hit;
    Ray ray;
    R3 color;                                // the ray's result
    const GeometryObject* object = nullptr;  // of the hit
    const Instance* instance = nullptr;      // of the hit
    const Scene* scene = nullptr;
    OxRenderingObject* m_ro = nullptr;
};

struct OxState4 {
    Intersector* intersector = nullptr;
    ISSEVec4 colors;  // the four results
    ISSERay4* ray4 = nullptr;
    ISSEIntersection4* hit4 = nullptr;
    const GeometryObject* object[4] = {};
    const Instance* instance[4] = {};
    const Scene* scene[4] = {};
};
