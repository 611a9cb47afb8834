// Ray traversal by Embree 3 (I. Wald et al., "Embree: a kernel framework for efficient CPU ray tracing", 2014).
#pragma once

#include "Engine/Scene/SceneGeometry.h"
#include "Oxbeam/OxScene.h"

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

struct RTCDeviceTy;
struct RTCSceneTy;
struct RTCGeometryTy;

namespace oxbeam {

class EmbreeIntersector final : public Intersector {
public:
    // Throws Error(Usage) where Embree or this processor does not know the instruction set.
    explicit EmbreeIntersector(const std::string& isa);
    ~EmbreeIntersector() override;
    EmbreeIntersector(const EmbreeIntersector&) = delete;
    EmbreeIntersector& operator=(const EmbreeIntersector&) = delete;

    // The widest set of those that give the same hits.
    static std::string defaultIsa();

    // A mesh can be instanced with this transformation: it has an inverse that does not blow rays up beyond what can be
    // traced, and is found in single precision. Instances moved to others are not hit.
    static bool canInstance(const Matrix& meshToWorld);

    // Builds, or after instances have moved rebuilds, the structure over the scene, which must stay where it is.
    Bounds build(const Scene& scene);

    bool Intersect(OxState& state) override;
    bool Intersect4(OxState4& state4) override;
    void Occluded4(OxState4& state4) override;

    // For measurements against the bare kernel.
    RTCSceneTy* root() const { return m_root; }
    // Memory that the structure takes beside the meshes.
    std::size_t bytes() const { return static_cast<std::size_t>(std::max<ssize_t>(m_bytes, 0)); }

private:
    RTCGeometryTy* newMesh(const ABSP& mesh) const;
    RTCSceneTy* objectScene(unsigned object);
    void attach(unsigned instance);
    void place(unsigned instance);

    RTCDeviceTy* m_device = nullptr;
    RTCSceneTy* m_root = nullptr;
    std::vector<RTCSceneTy*> m_objectScenes;   // of instanced objects, else null
    std::vector<RTCGeometryTy*> m_geometries;  // by instance
    const Scene* m_scene = nullptr;
    const Instance* const* m_instances = nullptr;
    float m_farthestOut = 0.0f;       // largest coordinate of a ray that can be traced
    std::atomic<ssize_t> m_bytes{0};  // of the structure
};

}  // namespace oxbeam
