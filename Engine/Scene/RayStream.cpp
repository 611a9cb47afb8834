#include "Engine/Scene/RayStream.h"

#include "Engine/Scene/EmbreeIntersector.h"

#include <algorithm>

namespace oxbeam {

// Some milliseconds' worth, so that a stop is soon.
static constexpr std::size_t RaysAtOnce = 8192;

void intersect(const SceneGeometry& geometry, Workers& workers, const RayStream& rays, const StreamHits& hits,
               const std::atomic<bool>* stop) {
    const auto& intersector = static_cast<const EmbreeIntersector&>(geometry.intersector());
    const std::size_t count = rays.directions.size();
    const auto parts = static_cast<unsigned>((count + RaysAtOnce - 1) / RaysAtOnce);
    workers.run(parts, [&](unsigned, unsigned part) {
        if (stop && stop->load(std::memory_order_relaxed)) return;
        const std::size_t first = part * RaysAtOnce;
        intersector.intersect(rays, first, std::min(RaysAtOnce, count - first), hits);
    });
}

}  // namespace oxbeam
