// Where to look at a model from, and how to light it.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/World.h"

#include <cmath>
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

inline const std::vector<std::string> ViewNames = {"iso", "front", "left", "top"};

// The nearest camera in the direction of a named view that has every point in its picture, with a margin.
View frame(const VisiblePoints& points, const std::string& viewName, float fov, const ImageSize& image);
// Whether the points fill a line at most in that view: a flat thing seen from its edge.
bool edgeOn(const VisiblePoints& points, const std::string& viewName);
// Whether any of the points can be seen.
bool sees(const View& view, float fov, const ImageSize& image, const VisiblePoints& points);

}  // namespace oxbeam
