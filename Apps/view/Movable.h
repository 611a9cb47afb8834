// What can be dragged about in the picture: objects, and where lights stand and shine.
#pragma once

#include "Apps/view/Document.h"

namespace oxbeam {

struct Movable {
    std::string place;      // "mesh.0", "light.1"
    std::string parameter;  // of a light: "position" or "direction"; nothing of what stands in the scene
    R3 at;                  // where it is dragged by
    R3 light;               // of a direction: where its line comes from or goes to
    Matrix toWorld;         // of what stands in the scene

    bool isSame(const Movable& other) const { return place == other.place && parameter == other.parameter; }
};

// Lights have a handle where they stand, and one for the way they shine: before them, or, where they stand nowhere, beside
// the scene on the side that they shine from.
std::vector<Movable> lightHandles(const Document& document, const SceneInfo& scene);
// What an instance belongs to, by its middle; nothing where it is without end.
std::optional<Movable> movableObject(const Document& document, const SceneInfo& scene, unsigned instance);
// Takes it to a place, as an edit.
void moveTo(Document& document, const SceneInfo& scene, const Movable& what, const R3& to);

}  // namespace oxbeam
