// Where to look at a model from, and how to light it.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// All vertices that triangles use, where `toScene` and the parts' own transformations put them. Those that no ray
// reaches are left out.
std::vector<R3> visiblePoints(const Model& model, const Matrix& toScene);

// Where a camera stands that looks at the model, in degrees: 0, 0 is straight in front of it, 90, 0 on its right as the
// viewer sees it, 0, 90 above it.
struct ViewAngles {
    float azimuth = 0.0f;
    float elevation = 0.0f;  // from -90 to 90
};

// How a model is to be looked at, as it stands on a command line.
struct ViewChoice {
    std::string name;                         // one of viewNames(); or nothing for the first
    std::optional<float> azimuth, elevation;  // in place of the named view's
    float zoom = 1.0f;                        // 2: twice as large in the picture
    std::string camera;                       // of the file's: its name, or "file" for the first; or nothing

    bool namesDirection() const { return !name.empty() || azimuth || elevation; }
};

// What is no view of any model, or contradicts itself: throws Error(Usage), naming the option.
void checkView(const ViewChoice& choice);
OXBEAM_API const std::vector<std::string>& viewNames();
// Of a view that has been checked.
ViewAngles anglesOf(const ViewChoice& choice);

// The nearest camera in a direction that has every point in its picture, with a margin.
View frame(const std::vector<R3>& points, const ViewAngles& angles, float fov, const ImageSize& image);
// Whether the points fill a line at most in that view: a flat thing seen from its edge.
bool edgeOn(const std::vector<R3>& points, const ViewAngles& angles);
// The field of view, in degrees, in which everything is as many times as large.
float zoomed(float fov, float zoom);
// Whether any of the points can be seen.
bool sees(const View& view, float fov, const ImageSize& image, const std::vector<R3>& points);

}  // namespace oxbeam
