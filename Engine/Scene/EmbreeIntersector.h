// Ray traversal by Embree 3 (I. Wald et al., "Embree: a kernel framework for efficient CPU ray tracing", 2014).
#pragma once

#include "Engine/Scene/RayStream.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Oxbeam/OxScene.h"

#include <sys/types.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <vector>

struct RTCDeviceTy;
struct RTCSceneTy;
struct RTCGeometryTy;
struct RTCRayHit8;

namespace oxbeam {

struct HitPoint;

// The kernel's device, and what all structures on it take beside the meshes.
struct EmbreeDevice {
    RTCDeviceTy* handle = nullptr;
    std::atomic<ssize_t> bytes{0};

    // Throws Error(Usage) where this processor does not know the instruction set, Error(InputOutput) where the machine
    // lacks memory or threads.
    static EmbreeDevice& of(const std::string& isa);
};

class EmbreeIntersector final : public Intersector {
public:
    // Throws Error(Usage) where Embree or this processor does not know the instruction set, Error(InputOutput) where the
    // machine lacks memory or threads.
    explicit EmbreeIntersector(const std::string& isa);
    ~EmbreeIntersector() override;
    EmbreeIntersector(const EmbreeIntersector&) = delete;
    EmbreeIntersector& operator=(const EmbreeIntersector&) = delete;

    // The widest set of those that give the same hits.
    static std::string defaultIsa();

    // A mesh can be instanced with this transformation: it has an inverse that does not blow rays up beyond what can be
    // traced, and is found in single precision. Instances moved to others are not hit.
    static bool canInstance(const Matrix& meshToWorld);

    // Builds the structure over the scene, which must stay where it is; of two levels from the start where something will
    // move. Throws Interruption soon after `stop` is set; then this is of no more use.
    Bounds build(const Scene& scene, bool twoLevels = false, const std::atomic<bool>* stop = nullptr);

    // ---- Changes, while nothing is traced. Those before `commit` need it.

    // An instance is new or has moved. Whatever was built as one stays as it is, and becomes one of the instances of a
    // structure of two levels: only what changes gets a structure of its own, and is hidden in the other.
    void update(unsigned instance);
    // Builds the structure that `update` will want, which is what takes time. Comes before all of them, so that everything is
    // as it was where this throws, Interruption soon after `stop` is set.
    void prepareUpdate(unsigned instance, const std::atomic<bool>* stop);
    void remove(unsigned instance);
    // Brings the upper level up to date.
    void commit();
    void setVisibility(unsigned instance, Oxuint mask);
    // No instance has the object any more, or it is to have other vertices. Whether those that it had may go; the part
    // that was built as one may refer to them.
    bool release(unsigned object);
    bool hasTwoLevels() const { return m_whole != nullptr; }
    // What moved or came, and has a structure of its own for that.
    bool isApart(unsigned instance) const { return instance < m_apart.size() && m_apart[instance]; }

    // Neighbouring primary rays: from one point, without end, four in each of two rows of pixels.
    struct Block {
        R3 origin;
        std::array<ISSEVec4, 2> directions;
        std::array<OxState*, 8> states{};  // of the same rays, set but for the hit; null where there is none
    };
    // What Intersect finds for each of them, in less time: neighbours take the same way through the structure. Where two
    // triangles lie in the same place, or a ray goes through an edge, the two may find another of them.
    void intersect(const Block& block);
    // Some rays of a stream. Those that cannot be traced hit nothing.
    void intersect(const RayStream& rays, std::size_t first, std::size_t count, const StreamHits& hits) const;
    // What Intersect4 finds for two packets of primary rays side by side, in less time than one after the other.
    void intersect(OxState4& first, OxState4& second);
    // Whether anything is hit, in less time than it takes to find the nearest.
    bool occluded(const Ray& ray) const;
    // Of eight shadow rays that take much the same way: which of them hit something, as bits. `lanes` are those to be
    // traced; those that cannot be are taken out.
    unsigned occluded(const std::array<ISSERay4, 2>& rays, unsigned& lanes) const;

    bool Intersect(OxState& state) override;
    bool Intersect4(OxState4& state4) override;
    void Occluded4(OxState4& state4) override;

    // For measurements against the bare kernel.
    RTCSceneTy* root() const { return m_root; }
    // Memory that the structure takes beside the meshes.
    std::size_t bytes() const {
        return static_cast<std::size_t>(std::max<ssize_t>(m_device->bytes - m_bytesBefore, 0));
    }

private:
    // The kernel's word for what a ray hits.
    struct Found {
        unsigned geometry, instance, triangle;
    };

    bool read(const Ray& ray, sse_t& origin, sse_t& direction) const;
    void fillBlock(RTCRayHit8& query, const Block& block, const Ray& any, int (&valid)[8]) const;
    bool fillEight(RTCRayHit8& query, const RayStream& rays, std::size_t first, unsigned count, int (&valid)[8]) const;
    void takeHit(const RTCRayHit8& query, unsigned lane, const StreamHits& hits, std::size_t ray) const;
    void takeHit(OxState& state, const Found& ids, sse_t origin, sse_t direction, const HitPoint& found) const;
    template <class Query>
    bool takeHits(OxState4& state4, const Query& query, unsigned lane) const;
    RTCSceneTy* newScene();
    void commitScene(RTCSceneTy* scene) const;
    RTCGeometryTy* newMesh(const ABSP& mesh) const;
    RTCSceneTy* objectScene(unsigned object);
    void attach(unsigned instance, bool inWhole);
    void attachApart(unsigned instance);
    void attachWhole();
    void divide();
    void place(unsigned instance);

    EmbreeDevice* m_device = nullptr;
    ssize_t m_bytesBefore = 0;      // of structures that were there already
    RTCSceneTy* m_root = nullptr;   // what is traced
    RTCSceneTy* m_whole = nullptr;  // what was built as one, once there are two levels
    unsigned m_worldSpace =
        ~0u;  // what a hit on a mesh in world space has for its instance: none, or that of the whole
    std::vector<RTCSceneTy*> m_objectScenes;   // of instanced objects, else null
    std::vector<RTCGeometryTy*> m_geometries;  // by instance, null where there is none
    std::vector<bool> m_apart;                 // the geometry is in the upper level
    std::vector<bool> m_inWhole;               // by object
    const Scene* m_scene = nullptr;
    const std::atomic<bool>* m_stop = nullptr;  // while meshes' structures are built
    const Instance* const* m_instances = nullptr;
    float m_farthestOut = 0.0f;  // largest coordinate of a ray that can be traced
};

}  // namespace oxbeam
