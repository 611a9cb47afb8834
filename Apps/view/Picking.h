// What is seen at a pixel, by the layers of the film: no ray is shot for it.
#pragma once

#include "Apps/view/Developer.h"
#include "Apps/view/SceneInfo.h"

#include <optional>

namespace oxbeam {

struct Pick {
    unsigned instance = 0;
    std::string object, mesh, shader;  // the last is a place
    float distance = 0.0f;             // from the eye
    R3 position, normal;               // in the world
};

// Of a place in the picture, in pixels of its full size. Nothing where the environment is seen.
std::optional<Pick> pickAt(const Shown& shown, const SceneInfo& scene, float x, float y);
// The light at that pixel, linear, as the film has it.
std::optional<R3> lightAt(const Shown& shown, float x, float y);

// Where a picked object's outline runs: pixels of the shown picture that have it and a neighbour without.
std::vector<std::pair<unsigned, unsigned>> outlineOf(const Shown& shown, unsigned instance);

}  // namespace oxbeam
