// What the services cost that every ray calls, one at a time.
#include "Engine/Textures/Texture.h"
#include "KelFresnel.h"
#include "KelFunctions.h"
#include "Oxbeam/FastOxS4.h"
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

void lightEvaluation(benchmark::State& run) {
    OxState state = setting().hit(0), shadow;
    kelInitState(&state, &shadow);
    R3 point(0, 0, 1);
    OxLight* light = setting().world.lights[0];
    auto* shader = static_cast<KelShader*>(&setting().surface);
    for (auto _ : run) benchmark::DoNotOptimize(oxsIlluminate(light, &shadow, point, &shadow, shader));
}
BENCHMARK(lightEvaluation);

void fresnelLookUp(benchmark::State& run) {
    const FesnelTermBufferTyp1 table(1.5f);
    float cosine = 0.0f;
    for (auto _ : run) {
        benchmark::DoNotOptimize(table.fresnelTerm(cosine, 0));
        cosine = cosine < 0.98f ? cosine + 0.013f : 0.0f;
    }
}
BENCHMARK(fresnelLookUp);

// Four rays from one point, shot together; the packet helpers take it from there.
struct PacketHit {
    ISSERay4 ray;
    ISSEIntersection4 hit;
    OxState4 state;

    explicit PacketHit(unsigned i) {
        state.ray4 = &ray;
        state.hit4 = &hit;
        for (unsigned lane = 0; lane < 4; ++lane) {
            const OxState single = setting().ray(i + lane);
            ray.origin.setLane(lane, single.ray.origin);
            ray.direction.setLane(lane, single.ray.direction);
            state.intersector = single.intersector;
        }
        oxs4Init(state);
    }
};

void shootPacket(benchmark::State& run) {
    unsigned i = 0;
    for (auto _ : run) {
        PacketHit packet(i += 4);
        benchmark::DoNotOptimize(packet.state.intersector->Intersect4(packet.state));
    }
}
BENCHMARK(shootPacket);

void packetGeometryAndNormals(benchmark::State& run) {
    PacketHit packet(32 * 64 + 32);
    packet.state.intersector->Intersect4(packet.state);
    ISSEVec4 position;
    for (auto _ : run) {
        oxs4LoadGeometry(packet.state);
        oxsGetHitPosition4(packet.state, position);
        ISSEVec4 normal = packet.hit.normal;
        oxs4FindShadingNormal(packet.state, normal);
        benchmark::DoNotOptimize(normal);
        benchmark::DoNotOptimize(position);
    }
}
BENCHMARK(packetGeometryAndNormals);

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
