// Where to look at a model from, and how to light it.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World.h"

#include <string>
#include <vector>

namespace oxbeam {

// All vertices that triangles use, where `toScene` and the parts' own transformations put them. Those that no ray
// reaches are left out.
std::vector<R3> visiblePoints(const Model& model, const Matrix& toScene);

inline const std::vector<std::string> ViewNames = {"iso", "front", "left", "top"};

// The nearest camera in the direction of a named view that has every point in its picture, with a margin.
View frame(const std::vector<R3>& points, const std::string& viewName, float fov, const ImageSize& image);
// Whether the points fill a line at most in that view: a flat thing seen from its edge.
bool edgeOn(const std::vector<R3>& points, const std::string& viewName);
// Whether any of the points can be seen.
bool sees(const View& view, float fov, const ImageSize& image, const std::vector<R3>& points);

}  // namespace oxbeam
