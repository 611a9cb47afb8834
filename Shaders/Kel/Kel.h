// The package's record of a ray: how deep it is, how much it still weighs, and the thread's random numbers.
#pragma once

#include "Oxbeam/OxSampler.h"
#include "Oxbeam/OxTypes.h"

class KelRenderingObject;

// Travels with a ray through the host's private pointer. A record for a child ray is a copy on the stack; copies
// share the sampler and never own it.
//
// On cache lines of its own: threads write to theirs at every ray, and they lie side by side.
struct alignas(64) KelRay {
    KelRenderingObject* m_ro = nullptr;  // the rendering object that the record belongs to
    Oxuint depth = 0;                    // 0 for a primary ray
    Oxuint insideFlag = 0;               // nonzero inside a refracting body
    Oxfloat opacity = 1.0f;              // weight of this ray's contribution to the pixel
    Oxuint pattern = 0;                  // reserved for interleaved sampling; travels along unused
    OxSampler* sampler = nullptr;        // made by the first setSeed
    bool m_deleteSampler = true;         // the record owns the sampler

    OXBEAM_API explicit KelRay(OxSampler* sampler = nullptr);
    OXBEAM_API KelRay(const KelRay& other);
    OXBEAM_API KelRay& operator=(const KelRay& other);
    OXBEAM_API ~KelRay();

    // Back to a primary ray's values; pattern and sampler stay.
    void init() {
        depth = 0;
        insideFlag = 0;
        opacity = 1.0f;
    }
    OXBEAM_API void setSeed(unsigned seed);
    // Replaces the sampler, which is then owned as the former one was.
    OXBEAM_API void setSampler(OxSampler* newSampler);
    void setRo(KelRenderingObject* ro) { m_ro = ro; }
    // Next random number in [0, 1) of a dimension; 0 before the first setSeed.
    float getSample(int dimension) { return sampler ? sampler->nextSample(dimension) : 0.0f; }
};

// Raises a record's depth for a scope, for shaders that go on tracing with the record itself instead of a copy.
class KelRayDepthGuard {
public:
    explicit KelRayDepthGuard(KelRay& ray) : m_ray(ray) { ++m_ray.depth; }
    ~KelRayDepthGuard() { --m_ray.depth; }
    KelRayDepthGuard(const KelRayDepthGuard&) = delete;
    KelRayDepthGuard& operator=(const KelRayDepthGuard&) = delete;

private:
    KelRay& m_ray;
};
