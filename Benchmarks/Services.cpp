// What the services cost that every ray calls, one at a time.
#include "Engine/Textures/Texture.h"
#include "KelFunctions.h"
#include "Oxbeam/OxFunctions.h"
#include "Tests/Support/TestWorld.h"

#include <benchmark/benchmark.h>

#include <cmath>

using namespace oxbeam;
using namespace oxbeam::test;

namespace {

// A shaded, shadowed sphere on a floor under three lights.
struct Setting {
    TestWorld world;
    KelPhongShader& surface;
    Session& session;

    Setting() : surface(world.phong()), session(build()) {}

    Session& build() {
        surface.m_receiveShadow = 1;
        surface.specularColor = R3(0.5f, 0.5f, 0.5f);
        world.add(sphereMesh(256));
        world.addSquare(R3(0, -1, 0), R3(0, 1, 0));
        for (const float x : {-3.0f, 0.0f, 3.0f}) world.pointLight(R3(x, 4, 4), R3(10, 10, 10));
        return world.session();
    }

    // Rays from one point to a grid of places on the sphere's disk.
    OxState ray(unsigned i) const {
        OxState state = session.primaryState();
        state.ray.origin = R3(0, 0, 5);
        const float x = static_cast<float>(i % 64) / 64.0f - 0.5f, y = static_cast<float>(i / 64 % 64) / 64.0f - 0.5f;
        state.ray.direction = Normalize(R3(x, y, 0) - state.ray.origin);
        return state;
    }

    // A state whose ray has hit the sphere.
    OxState hit(unsigned i) const {
        OxState state = ray(i);
        oxsShootRay(&state);
        return state;
    }
};

Setting& setting() {
    static Setting one;
    return one;
}

void shootRay(benchmark::State& run) {
    unsigned i = 0;
    for (auto _ : run) {
        OxState state = setting().ray(i++);
        benchmark::DoNotOptimize(oxsShootRay(&state));
    }
}
BENCHMARK(shootRay);

void shadingNormal(benchmark::State& run) {
    const OxState state = setting().hit(0);
    R3 normal;
    for (auto _ : run) {
        oxsFindShadingNormal(&state, normal);
        benchmark::DoNotOptimize(normal);
    }
}
BENCHMARK(shadingNormal);

void shadePhong(benchmark::State& run) {
    unsigned i = 0;
    for (auto _ : run) {
        OxState state = setting().ray(i++);
        benchmark::DoNotOptimize(Session::trace(state));
    }
}
BENCHMARK(shadePhong);

void reflection(benchmark::State& run) {
    OxState state = setting().hit(0);
    oxsSetRayOrigin(&state, R3(0, 0, 1));
    const auto reflectivity = static_cast<float>(run.range(0)) / 100.0f;
    for (auto _ : run) benchmark::DoNotOptimize(kelGetReflectiveIntensity(&state, reflectivity, R3(0, 0, 1), 0.0f));
}
BENCHMARK(reflection)->ArgName("percent")->Arg(10)->Arg(50);  // culled and traced

void textureLookUp(benchmark::State& run) {
    const Texture texture(512, 512, 4, std::vector<std::uint8_t>(512 * 512 * 4, 200), ColorSpace::SRGB);
    float s = 0.0f;
    for (auto _ : run) {
        benchmark::DoNotOptimize(texture.lookUp(s, 0.3f));
        s += 0.37f;
    }
}
BENCHMARK(textureLookUp);

}  // namespace
