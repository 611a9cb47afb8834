// A whole frame against the bare traversal kernel: the engine renders, and Embree alone traces the very rays that the
// engine traced, tile by tile on the same threads. Both in one process, turn by turn, so that what the machine does
// besides falls on both. Prints JSON; the ratios are what counts.
#include "Engine/Scene/EmbreeIntersector.h"
#include "Oxbeam/OxState.h"
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Tests/Support/TestWorld.h"

#include <CLI/CLI.hpp>
#include <embree3/rtcore.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

using namespace oxbeam;
using namespace oxbeam::test;

namespace {

// A unit sphere with bumps, and the normals that go with them.
MeshData bumpySphere(unsigned segments) {
    MeshData mesh = sphereMesh(segments);
    constexpr float height = 0.06f, waves = 9.0f;
    for (std::size_t i = 0; i < mesh.positions.size(); ++i) {
        const R3 p = mesh.positions[i];
        const R3 s(std::sin(waves * p.x), std::sin(waves * p.y), std::sin(waves * p.z));
        const R3 c(std::cos(waves * p.x), std::cos(waves * p.y), std::cos(waves * p.z));
        const float radius = 1.0f + height * s.x * s.y * s.z;
        const R3 slope = height * waves * R3(c.x * s.y * s.z, s.x * c.y * s.z, s.x * s.y * c.z);
        mesh.positions[i] = radius * p;
        mesh.normals[i] = Normalize(radius * p - (slope - Dot(slope, p) * p));
    }
    return mesh;
}

// The sphere on a mirroring floor under three lights, all with hard shadows. `packets`: one that packets can shade,
// with lights that answer them and without the mirror, which they leave out.
struct Scene : TestWorld {
    explicit Scene(bool packets) : TestWorld(R3(0.4f, 0.5f, 0.7f)) {
        view = View{R3(1.5f, 1.4f, 3.0f), R3(0, 0.2f, 0), R3(0, 1, 0)};
        ro().m_recursionLimit = 5;
        ro().m_receiveShadow = 1;
        KelPhongShader& ball = phong(R3(0.7f, 0.3f, 0.2f));
        ball.specularColor = R3(0.6f, 0.6f, 0.6f);
        ball.shininess = 40;
        add(bumpySphere(266), TranslationMatrix(R3(0, 1, 0)));
        KelPhongShader& floor = phong(R3(0.6f, 0.6f, 0.6f));
        if (!packets) floor.reflectiveColor = R3(0.3f, 0.3f, 0.3f);
        addSquare(R3(), R3(0, 1, 0), 10);
        for (const R3& place : {R3(4, 6, 4), R3(-5, 5, 3), R3(1, 7, -4)})
            if (packets)
                light<KelDirectionalLight>("KelDirectionalLight").direction = -place;
            else
                steadyLight(place, R3(0.4f, 0.4f, 0.4f));
    }
};

// What a ray was when it was traced.
struct TracedRay {
    R3 origin, direction;
    float tnear, tfar;
    Oxuint kind;
};

// Notes every ray that it hands on. For one thread.
class Recorder : public Intersector {
public:
    std::vector<TracedRay> rays;
    std::vector<std::size_t> tileEnds;

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

struct Recording {
    std::vector<TracedRay> rays;
    std::vector<std::size_t> tileEnds;

    explicit Recording(World& world) {
        Workers alone(1);
        Recorder recorder(world.geometry.intersector());
        RenderOptions options;
        options.intersector = &recorder;
        options.progress = [&](const Progress&) { tileEnds.push_back(recorder.rays.size()); };
        render(world, alone, options);
        rays = std::move(recorder.rays);
    }
};

// How the kernel is asked about shadow rays: for the nearest hit, which the engine needs to ask a transparent occluder,
// or for any.
enum class ShadowQuery { Nearest, Any };

void traceBare(RTCScene scene, const TracedRay& ray, ShadowQuery shadows) {
    RTCRayHit query;
    query.ray.org_x = ray.origin.x, query.ray.org_y = ray.origin.y, query.ray.org_z = ray.origin.z;
    query.ray.dir_x = ray.direction.x, query.ray.dir_y = ray.direction.y, query.ray.dir_z = ray.direction.z;
    query.ray.tnear = ray.tnear, query.ray.tfar = ray.tfar;
    query.ray.time = 0.0f;
    query.ray.mask = ray.kind;
    query.ray.id = query.ray.flags = 0;
    query.hit.geomID = query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    if (shadows == ShadowQuery::Any && ray.kind == RAY_SHADOW)
        rtcOccluded1(scene, &context, &query.ray);
    else
        rtcIntersect1(scene, &context, &query);
}

double seconds(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

double frameTime(World& world, Workers& workers, bool packets = false) {
    RenderOptions options;
    options.packets = packets;
    return seconds([&] { render(world, workers, options); });
}

double bareTime(World& world, Workers& workers, const Recording& recording, ShadowQuery shadows) {
    RTCScene scene = static_cast<EmbreeIntersector&>(world.geometry.intersector()).root();
    return seconds([&] {
        workers.run(static_cast<unsigned>(recording.tileEnds.size()), [&](unsigned, unsigned tile) {
            const std::size_t begin = tile == 0 ? 0 : recording.tileEnds[tile - 1];
            for (std::size_t i = begin; i < recording.tileEnds[tile]; ++i) traceBare(scene, recording.rays[i], shadows);
        });
    });
}

using Json = nlohmann::ordered_json;

// Medians of times taken in turn, and of the ratio of the first to the second of each turn.
Json compare(unsigned turns, const auto& first, const char* firstName, const auto& second, const char* secondName) {
    std::vector<double> a, b, ratios;
    for (unsigned turn = 0; turn < turns; ++turn) {
        a.push_back(first());
        b.push_back(second());
        ratios.push_back(a.back() / b.back());
    }
    return {{firstName, median(a)}, {secondName, median(b)}, {"ratio", median(ratios)}};
}

const std::vector<std::string> comparisons = {"engine_to_bare", "engine_to_bare_any_hit_shadows",
                                              "engine_to_bare_all_threads", "speed_up_by_threads",
                                              "speed_up_by_packets"};

// `only`: one of the comparisons; all where it is empty.
Json run(unsigned turns, unsigned threads, const ImageSize& size, const std::string& only) {
    Scene scene(false), flat(true);
    Workers one(1), all(threads);
    for (Scene* each : {&scene, &flat}) {
        each->image = size;
        all.within([&] { each->geometry.build(); });
        frameTime(*each, all);
    }
    const Recording recording(scene);
    const auto engine = [&](Workers& workers) { return [&] { return frameTime(scene, workers); }; };
    const auto bare = [&](Workers& workers, ShadowQuery shadows) {
        return [&workers, shadows, &scene, &recording] { return bareTime(scene, workers, recording, shadows); };
    };
    // Several frames at a time: a processor that has slept for a turn takes a while to wake up.
    const auto several = [&](Workers& workers) {
        return [&] {
            double sum = 0.0;
            for (unsigned i = 0; i < 4; ++i) sum += frameTime(scene, workers);
            return 0.25 * sum;
        };
    };
    const auto packets = [&] { return frameTime(flat, one, true); };
    const auto singles = [&] { return frameTime(flat, one); };
    Json json = {{"triangles", scene.geometry.triangles()},
                 {"rays", recording.rays.size()},
                 {"width", size.width},
                 {"height", size.height},
                 {"turns", turns},
                 {"threads", threads}};
    const std::vector<std::function<Json()>> measured = {
        [&] { return compare(turns, engine(one), "engine_s", bare(one, ShadowQuery::Nearest), "bare_s"); },
        [&] { return compare(turns, engine(one), "engine_s", bare(one, ShadowQuery::Any), "bare_s"); },
        [&] { return compare(turns, engine(all), "engine_s", bare(all, ShadowQuery::Nearest), "bare_s"); },
        [&] { return compare(turns, several(one), "one_thread_s", several(all), "all_threads_s"); },
        [&] { return compare(turns, singles, "single_rays_s", packets, "packets_s"); }};
    for (std::size_t i = 0; i < comparisons.size(); ++i)
        if (only.empty() || only == comparisons[i]) json[comparisons[i]] = measured[i]();
    return json;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times whole frames of the engine against the bare traversal kernel, and prints JSON.");
    unsigned turns = 7, threads = 2;
    ImageSize size;
    app.add_option("--turns", turns, "Times that each comparison is made")->capture_default_str();
    app.add_option("--threads", threads, "Threads of the comparisons on several")->capture_default_str();
    app.add_option("--width", size.width)->capture_default_str();
    app.add_option("--height", size.height)->capture_default_str();
    std::string only;
    app.add_option("--only", only, "A single comparison")->check(CLI::IsMember(comparisons));
    CLI11_PARSE(app, argc, argv);
    std::cout << run(turns, threads, size, only).dump(2) << '\n';
}
