// Which surfaces block light, whatever of them a shadow ray hits.
//
// A surface that lets light through has a say in what passes, so that a shadow ray must find the nearest hit, and ask it.
// In a frame in which all that casts shadows blocks light, any hit will do, which is found sooner.
#pragma once

#include <unordered_set>

class OxShader;

namespace oxbeam {

class EmbreeIntersector;

struct LightBlockers {
    static LightBlockers current;  // of the process' one session

    bool begun = false;                            // NewFrame runs: promises are taken
    std::unordered_set<const OxShader*> promised;  // for this frame
    const EmbreeIntersector* kernel = nullptr;     // where any hit of this one's will do, else null
};

}  // namespace oxbeam
