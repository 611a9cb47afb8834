// Many rays at once, from wherever they start: where they hit, for programs that measure and shade nothing.
#pragma once

#include "Engine/System/Workers.h"
#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <atomic>
#include <span>

namespace oxbeam {

class SceneGeometry;

// Each goes on without end, and meets what cameras see.
struct RayStream {
    std::span<const R3> origins;     // one for each direction, or one for all
    std::span<const R3> directions;  // of any length
};

// Arrays of the caller's, as long as there are directions.
struct StreamHits {
    float* distance = nullptr;   // in lengths of the direction; infinity where nothing is hit
    unsigned* object = nullptr;  // number of the instance from 1, as the picture's layer has it; 0: nothing is hit
    int* triangle = nullptr;     // of the mesh, from 0; -1: nothing is hit
    R3* normal = nullptr;        // of the triangle's plane, of unit length, by the order of its corners; zero: none
};

// Of a geometry that is built. Distances are of the same bits on every processor, but not always the last of those that
// pictures have. A ray that is not finite, or absurdly far out, hits nothing. Neighbours that take about the same way are
// faster. Ends early once `stop` is set, with a part of the hits written.
OXBEAM_API void intersect(const SceneGeometry& geometry, Workers& workers, const RayStream& rays,
                          const StreamHits& hits, const std::atomic<bool>* stop = nullptr);

}  // namespace oxbeam
