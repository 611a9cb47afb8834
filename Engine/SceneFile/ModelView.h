// Where to look at a model from, and how to light it.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World/World.h"

#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// All vertices that triangles use, where `toScene` and the parts' own transformations put them. Those that no ray
// reaches are left out. They are made anew each time that they are gone through: a mesh can be placed very often.
class VisiblePoints {
public:
    VisiblePoints() = default;
    // The model must outlive it.
    VisiblePoints(const Model& model, const Matrix& toScene);

    // Everything is that much larger.
    void scale(float factor) {
        m_scale *= factor;
        m_any = factor * m_any;
    }
    // Calls `use` with every one of them; in the same order each time.
    template <class Use>
    void each(Use use) const;
    // Any of them; the origin where there is none.
    R3 any() const { return m_any; }

private:
    const Model* m_model = nullptr;
    Matrix m_toScene;
    float m_scale = 1.0f;
    R3 m_any;
    std::vector<std::vector<bool>> m_used;  // by mesh and vertex
};

template <class Use>
void VisiblePoints::each(Use use) const {
    constexpr float limit = 1e18f;
    if (!m_model) return;
    for (const ModelPart& part : m_model->parts) {
        const std::vector<R3>& positions = m_model->meshes[part.mesh].positions;
        const std::vector<bool>& used = m_used[part.mesh];
        const Matrix placement = m_toScene * part.meshToModel;
        for (std::size_t i = 0; i < used.size(); ++i) {
            if (!used[i]) continue;
            const R3 p = TransformPoint(placement, positions[i]);
            if (std::fabs(p.x) <= limit && std::fabs(p.y) <= limit && std::fabs(p.z) <= limit) use(m_scale * p);
        }
    }
}

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
OXBEAM_API ViewAngles anglesOf(const ViewChoice& choice);

// The nearest camera in a direction that has every point in its picture, with a margin.
View frame(const VisiblePoints& points, const ViewAngles& angles, float fov, const ImageSize& image);
// Whether the points fill a line at most in that view: a flat thing seen from its edge.
bool edgeOn(const VisiblePoints& points, const ViewAngles& angles);
// The field of view, in degrees, in which everything is as many times as large.
float zoomed(float fov, float zoom);
// Whether any of the points can be seen.
bool sees(const View& view, float fov, const ImageSize& image, const VisiblePoints& points);

}  // namespace oxbeam
