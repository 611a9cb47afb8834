// The geometry of a scene: meshes and their placements, and the structure that rays are traced through.
#pragma once

#include "Engine/Scene/MeshData.h"
#include "Engine/System/MemoryBudget.h"
#include "Oxbeam/ABSP.h"
#include "Oxbeam/OxScene.h"

#include <atomic>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace oxbeam {

class EmbreeIntersector;

// How what is traced is built.
struct StructureStatistics {
    unsigned placements = 0;  // all that are there
    unsigned inWhole = 0;     // built as one, each in the world's own space
    unsigned instanced = 0;   // of meshes with structures of their own
    unsigned apart = 0;       // of those that were built as one, or would have been, what has moved or come since
    bool twoLevels = false;   // because something has
    std::size_t hiddenTriangles = 0;  // of what has moved or gone, in what was built as one
};

// Triangles that were left out of a mesh.
struct DroppedTriangles {
    std::size_t badVertices = 0;  // NaN, infinite, or so far out that no ray reaches them
    std::size_t badIndices = 0;   // beyond the mesh's vertices
    std::size_t withoutArea = 0;  // which nobody misses

    std::size_t total() const { return badVertices + badIndices; }
};

struct Bounds {
    R3 lower, upper;
    bool empty = true;

    void add(const R3& point);
    void add(const Bounds& other);

    R3 center() const { return 0.5f * (lower + upper); }
    float radius() const { return 0.5f * Length(upper - lower); }
};

class OXBEAM_API SceneGeometry {
public:
    SceneGeometry();
    ~SceneGeometry();

    // Meshes that are added get ids whose lowest five bits differ as much as can be, instead of ids in order.
    bool distinctIds = false;
    // Placements may come, go and move after preparing; meshes keep for that what preparing makes another of them.
    bool changeable = true;

    // Takes a mesh over; its number is what instances refer to. What is charged beyond the memory that may be taken is
    // Error(InputOutput), here and wherever meshes are copied or the structure is built.
    unsigned addMesh(MeshData mesh);
    // Places a mesh. `shader` is the number of its shader in the context's list. A mesh that is placed once and not
    // movable gets its transformation baked in. What is movable is built as one that has moved, so that all that comes of
    // it is the same wherever it has been before; flattened, it is not seen.
    unsigned addInstance(unsigned mesh, const Matrix& meshToWorld, unsigned shader, Oxuint visibilityMask = RAY_ALL,
                         bool movable = false);
    // A ground that goes on beyond any horizon: it counts for no bounds, so that nothing follows its size.
    void makeEndless(unsigned instance) { m_endless.insert(instance); }
    bool isEndless(unsigned instance) const { return m_endless.contains(instance); }

    // ---- Changes, also after the structure is built; they take effect with the next build, which costs what they must.
    // Nobody may be tracing. Numbers of instances and meshes stay; those of what is gone are not used again.

    // It is not baked from now on, so that it can move on.
    void moveInstance(unsigned instance, const Matrix& meshToWorld);
    void setVisibility(unsigned instance, Oxuint mask);
    void setShader(unsigned instance, unsigned shader);
    // With its mesh where no other instance has that.
    void removeInstance(unsigned instance);
    // Ids go by this order of meshes, which is else that of their numbers.
    void orderMeshes(std::vector<unsigned> meshes) { m_order = std::move(meshes); }
    bool isMovable(unsigned instance) const { return m_movable[instance]; }
    bool isThere(unsigned instance) const { return instance < m_instances.size() && m_instances[instance]; }
    // That was added, though a flattened instance has a copy.
    unsigned meshOf(unsigned instance) const { return m_origins[m_instances[instance]->object]; }

    // Validates the meshes and bakes transformations in: those of the meshes that are placed once so far.
    void prepare();
    // Charges the memory that the structure will take, so that a scene which is too large is known to be before it is
    // built. After prepare.
    void reserveStructure();
    // Prepares if that is yet to be done, and builds the structure on all threads that the caller's arena has. When
    // something has changed, it does what that asks for, and else nothing. `isa` is the instruction set to trace with: "sse2", "sse4.2", "avx",
    // "avx2" or "avx512". The first three find the same triangles; the last two may find another where two lie in the
    // same place or a ray goes through an edge. Points on triangles have the same bits with all. Once `stop` is set, it ends
    // soon in an Interruption; nothing is built or changed then, and all can be later.
    void build(const std::string& isa = defaultIsa(), const std::atomic<bool>* stop = nullptr);
    static std::string defaultIsa();

    const Scene& scene() const { return m_scene; }
    // Valid after build.
    Intersector& intersector() const;
    const Bounds& bounds() const { return m_bounds; }
    // Of one instance in world space; valid after prepare.
    Bounds instanceBounds(unsigned instance) const;
    StructureStatistics structure() const;
    // By mesh number, valid after prepare.
    const std::vector<DroppedTriangles>& dropped() const { return m_dropped; }
    // The mesh that one was copied from when the geometry was prepared; itself where it was added.
    unsigned meshOrigin(unsigned mesh) const { return m_origins[mesh]; }
    const std::string& meshName(unsigned mesh) const { return m_meshes[mesh]->name; }
    std::size_t meshTriangles(unsigned mesh) const { return m_meshes[mesh]->indices.size() / 3; }
    std::size_t triangles() const;  // as traced: a mesh counts once for each of its instances
    std::size_t meshBytes() const;  // of the meshes' arrays
    std::size_t meshCount() const { return m_meshes.size(); }
    std::size_t instanceCount() const { return m_instances.size(); }

private:
    std::vector<Instance*> onlyPlacements() const;
    void takeOver(unsigned mesh, Instance* owner);
    void giveBack(unsigned mesh);
    void giveBackChanged();
    void letGo(unsigned mesh);
    void removeMesh(unsigned mesh);
    void numberMeshes();
    Bounds boxOf(unsigned instance) const;
    void update(const std::atomic<bool>* stop);
    void showPlaced();
    void findBounds();
    unsigned copyMesh(unsigned mesh, const Matrix& matrix);
    void copyFlattened();
    std::size_t structureTriangles() const;

    // Arrays that a mesh had when the structure was built; what was built as one may refer to them.
    struct Built {
        std::vector<R3> positions;
        std::vector<Oxuint> indices;
        MemoryCharge memory;
    };

    std::vector<MemoryCharge> m_memory;  // by mesh
    MemoryCharge m_structureMemory;
    std::vector<std::unique_ptr<MeshData>> m_data;  // until they are prepared, which turns them into objects
    std::vector<MeshData> m_own;                    // by mesh: those arrays that were others before it was prepared
    std::vector<Built> m_built;
    std::vector<std::unique_ptr<ABSP>> m_meshes;
    std::vector<std::unique_ptr<Instance>> m_instances;
    std::vector<std::unique_ptr<GeometryObject>> m_placed;  // by instance, where it has a transformation
    std::vector<Matrix> m_toWorld;                          // by instance, as asked for
    std::vector<bool> m_movable;                            // by instance: never baked
    std::vector<bool> m_distinct;                           // by mesh
    std::set<unsigned> m_endless;
    std::vector<unsigned> m_origins;
    std::vector<unsigned> m_order;
    std::vector<bool> m_baked;                   // by mesh: into its only placement
    std::set<unsigned> m_moved;                  // instances
    std::size_t m_prepared = 0;                  // instances that have been
    std::set<unsigned> m_changed;                // instances, since the structure was built
    bool m_gone = false;                         // some have
    std::set<unsigned> m_removed;                // meshes
    std::size_t m_firstBuilt = 0;                // instances that were there when the structure was built,
    std::size_t m_builtTriangles = 0;            // and the triangles that were built as one
    std::vector<std::optional<Bounds>> m_boxes;  // by instance, where they were asked for
    std::vector<DroppedTriangles> m_dropped;
    Scene m_scene;
    Bounds m_bounds;
    std::unique_ptr<EmbreeIntersector> m_intersector;
};

// Of Embree, as the library that is loaded says it.
OXBEAM_API std::string embreeVersion();

}  // namespace oxbeam
