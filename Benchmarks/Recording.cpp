#include "Benchmarks/Recording.h"

#include "Oxbeam/OxState.h"

#include <algorithm>

namespace oxbeam::bench {

namespace {

// Notes every ray that it hands on. For one thread.
class Recorder : public Intersector {
public:
    std::vector<TracedRay> rays;

    explicit Recorder(Intersector& real) : m_real(real) {}

    bool Intersect(OxState& state) override {
        const Ray& ray = state.ray;
        rays.push_back(
            {ray.origin, ray.direction, std::max(ray.minHitDist, ray.minDist), ray.maxDist, ray.visibilityMask});
        return m_real.Intersect(state);
    }
    bool Intersect4(OxState4& state4) override { return m_real.Intersect4(state4); }
    void Occluded4(OxState4& state4) override { m_real.Occluded4(state4); }

private:
    Intersector& m_real;
};

}  // namespace

Recording::Recording(World& world) {
    Workers alone(1);
    Recorder recorder(world.geometry.intersector());
    RenderOptions options;
    options.intersector = &recorder;
    options.progress = [&](const Progress&) { tileEnds.push_back(recorder.rays.size()); };
    render(world, alone, options);
    rays = std::move(recorder.rays);
}

}  // namespace oxbeam::bench
