// What surfaces have said of light that meets them, and of the light that they ask for.
//
// A surface that lets light through has a say in what passes, so that a shadow ray must find the nearest hit, and ask it.
// In a frame in which all that casts shadows blocks light, any hit will do, which is found sooner. And where a surface
// has said how its shadow rays run, those of neighbouring pixels can be traced together before it asks for them.
#pragma once

#include <unordered_map>
#include <unordered_set>

class OxShader;

namespace oxbeam {

class EmbreeIntersector;

struct ShadowPromises {
    static ShadowPromises current;  // of the process' one session

    bool begun = false;                                  // NewFrame runs: promises are taken
    std::unordered_set<const OxShader*> blocking;        // for this frame
    std::unordered_map<const OxShader*, float> offsets;  // of those that have said how their shadow rays run
    const EmbreeIntersector* kernel = nullptr;           // where any hit of this one's will do, else null
};

}  // namespace oxbeam
