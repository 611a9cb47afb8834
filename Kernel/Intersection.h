// What a hit is, alone and in a packet of four.
#pragma once

#include "Primitives/ISSEVec4.h"
#include "Primitives/Vec.h"

// Values of `tri` that name no triangle.
enum : int { TRI_NONE = -1, TRI_MARKED = -2 };  // no hit; a hit that environments show in red

struct Intersection {
    int tri = TRI_NONE;  // triangle of the object
    float dist = 0.0f;   // along the ray, in units of its direction's length
    float u = 0.0f;      // barycentric weights of the triangle's first, second and third vertex
    float v = 0.0f;
    float w = 0.0f;
    R3 normal;            // geometric normal in world space, neither normalised nor turned
    R2 txtCoord;          // valid after oxsLoadGeometry
    void* ptr = nullptr;  // unused by the engine
    int inst = -1;        // instance
};

struct ISSEIntersection4 {
    float dist[4] = {};
    int tri[4] = {TRI_NONE, TRI_NONE, TRI_NONE, TRI_NONE};
    float u[4] = {};
    float v[4] = {};
    int inst[4] = {-1, -1, -1, -1};
    int c_inst[4] = {-1, -1, -1, -1};
    ISSEVec4 normal;
    float w[4] = {};
    void* ptr[4] = {};
};
