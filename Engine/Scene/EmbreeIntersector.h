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
    // traced. Instances moved to others are not hit.
    static bool canInstance(const Matrix& meshToWorld);

    // Builds, or after instances have moved rebuilds, the structure over the scene, which must stay where it is.
    Bounds build(const Scene& scene);

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
    RTCGeometryTy* newMesh(const ABSP& mesh) const;
    RTCSceneTy* objectScene(unsigned object);
    void attach(unsigned instance);
    void place(unsigned instance);

    EmbreeDevice* m_device = nullptr;
    ssize_t m_bytesBefore = 0;  // of structures that were there already
    RTCSceneTy* m_root = nullptr;
    std::vector<RTCSceneTy*> m_objectScenes;   // of instanced objects, else null
    std::vector<RTCGeometryTy*> m_geometries;  // by instance
    const Scene* m_scene = nullptr;
    const Instance* const* m_instances = nullptr;
    float m_farthestOut = 0.0f;  // largest coordinate of a ray that can be traced
};

}  // namespace oxbeam
