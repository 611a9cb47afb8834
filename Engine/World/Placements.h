// What stands in a scene, by the names "mesh.0" and "model.0": the tables of a scene file in their order.
#pragma once

#include "Engine/Scene/SceneGeometry.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

// Turned up and scaled first, then rotated about x, y and z, then moved.
struct Placing {
    Matrix turnUp;
    R3 scale{1.0f, 1.0f, 1.0f}, rotate, translate;  // degrees

    OXBEAM_API Matrix matrix() const;
};

// One mesh, or all parts of a model's file, that are placed together.
struct Placed {
    struct Part {
        unsigned instance = 0;  // of the geometry
        Matrix toPlaced;        // from the mesh's own space
    };

    std::string place;
    Matrix toWorld;
    std::vector<Part> parts;
    bool movable = true;             // a ground without end is not
    std::optional<Placing> by = {};  // what the transformation is made of, where that is known
};

// The kinds of rays that a placement can be visible to, in the order of RayKind's bits.
OXBEAM_API const std::vector<std::string>& rayKindNames();

// Changes belong between frames and to the thread that renders; they take effect with the geometry's next build. All throw
// NoSuchName for a place that is not there.
class OXBEAM_API Placements {
public:
    explicit Placements(SceneGeometry& geometry) : m_geometry(geometry) {}

    const std::vector<Placed>& all() const { return m_placements; }
    const Placed& at(std::string_view place) const;

    // Costs a new top level of the structure that rays are traced through; the first time also a structure of its own for
    // what was part of the whole until then; and one each time where it is flattened to a plane, or was. Throws BadValue
    // for a ground, and where the geometry is not changeable; what came into it as movable can always be moved.
    void move(std::string_view place, const Matrix& toWorld);
    // The same by what the transformation is made of.
    void placeBy(std::string_view place, const Placing& by);
    // Moves the parts, each to where it is to be in the space of what is placed.
    void pose(std::string_view place, const std::vector<Matrix>& toPlaced);
    // Kinds of rays, as RayKind has them, that hit it; costs nothing.
    void setVisibility(std::string_view place, Oxuint mask);
    // By the shader's number (World::shaderNumber); costs nothing.
    void setShader(std::string_view place, unsigned shader);
    // Those after it are counted anew: "mesh.2" becomes "mesh.1". A mesh that stands nowhere any more goes too; one that
    // stands once from now on costs a structure.
    void remove(std::string_view place);
    // A mesh of its own, or one more placement of the meshes at another place, with their shaders. Answers its place:
    // "mesh.N" with the next number. Costs a structure for meshes that stood once or nowhere, and a top level. Throws as
    // `move` does.
    std::string addMesh(MeshData mesh, unsigned shader, const Matrix& toWorld = {}, Oxuint visibility = RAY_ALL);
    std::string addAgain(std::string_view place, const Matrix& toWorld);

    // What somebody has put into the geometry.
    void add(Placed placement) { m_placements.push_back(std::move(placement)); }

private:
    Placed& find(std::string_view place);
    void requireMovable(const Placed& placement, const char* what) const;
    std::string nextMesh() const;
    void orderMeshes();

    SceneGeometry& m_geometry;
    std::vector<Placed> m_placements;
};

}  // namespace oxbeam
