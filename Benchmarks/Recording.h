// The rays of a frame, written down to be traced again with nothing else done.
#pragma once

#include "Engine/Render/Renderer.h"

#include <vector>

namespace oxbeam::bench {

// What a ray was when it was traced.
struct TracedRay {
    R3 origin, direction;
    float tnear, tfar;
    Oxuint kind;
};

// Of one pass, tile by tile as one thread renders them.
struct Recording {
    std::vector<TracedRay> rays;
    std::vector<std::size_t> tileEnds;

    explicit Recording(World& world);
};

}  // namespace oxbeam::bench
