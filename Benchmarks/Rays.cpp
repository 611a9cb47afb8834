// Arrays of rays against the bare kernel's packets of the same rays: bench_rays SCENE. Prints JSON.
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/Scene/RayStream.h"
#include "Engine/SceneFile/SceneFile.h"

#include <CLI/CLI.hpp>
#include <embree3/rtcore.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <iostream>

using namespace oxbeam;

namespace {

double seconds(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Those of a pinhole where the scene's camera stands, row by row.
std::vector<R3> cameraRays(const World& world, std::size_t width, std::size_t height) {
    const View view = world.viewInForce();
    const R3 forward = Normalize(view.lookAt - view.position), right = Normalize(Cross(forward, view.lookUp));
    const R3 up = Cross(right, forward);
    const R2 half = world.imageWindow();
    std::vector<R3> rays;
    rays.reserve(width * height);
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) {
            const float s = (static_cast<float>(x) + 0.5f) / static_cast<float>(width) * 2.0f - 1.0f;
            const float t = 1.0f - (static_cast<float>(y) + 0.5f) / static_cast<float>(height) * 2.0f;
            rays.push_back(forward + s * half.x * right + t * half.y * up);
        }
    return rays;
}

// Eight neighbours at a time, of which nothing is kept but the distance.
void traceBare(RTCScene scene, const R3& origin, const R3* directions, float* distances) {
    alignas(32) int valid[8];
    RTCRayHit8 query;
    for (unsigned i = 0; i < 8; ++i) {
        valid[i] = -1;
        query.ray.org_x[i] = origin.x, query.ray.org_y[i] = origin.y, query.ray.org_z[i] = origin.z;
        query.ray.dir_x[i] = directions[i].x, query.ray.dir_y[i] = directions[i].y,
        query.ray.dir_z[i] = directions[i].z;
        query.ray.tnear[i] = query.ray.time[i] = 0.0f;
        query.ray.tfar[i] = RayInfinity;
        query.ray.mask[i] = RAY_PRIMARY;
        query.ray.id[i] = query.ray.flags[i] = 0;
        query.hit.geomID[i] = query.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
    }
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags = RTC_INTERSECT_CONTEXT_FLAG_COHERENT;
    rtcIntersect8(valid, scene, &context, &query);
    std::copy_n(query.ray.tfar, 8, distances);
}

nlohmann::ordered_json run(World& world, unsigned threads, unsigned turns, std::size_t millions) {
    Workers workers(threads);
    workers.within([&] { world.geometry.build(); });
    const std::size_t width = 8 * 512, height = millions * 1'000'000 / width;
    const std::vector<R3> directions = cameraRays(world, width, height);
    const R3 origin = world.viewInForce().position;
    std::vector<float> distance(directions.size());
    std::vector<unsigned> object(directions.size());
    std::vector<int> triangle(directions.size());
    std::vector<R3> normal(directions.size());
    const auto engine = [&] {
        intersect(world.geometry, workers, {{&origin, 1}, directions},
                  {distance.data(), object.data(), triangle.data(), normal.data()});
    };
    RTCScene scene = static_cast<EmbreeIntersector&>(world.geometry.intersector()).root();
    const auto bare = [&] {
        workers.run(static_cast<unsigned>(height), [&](unsigned, unsigned row) {
            for (std::size_t i = row * width; i < (row + 1) * width; i += 8)
                traceBare(scene, origin, &directions[i], &distance[i]);
        });
    };
    bare();
    engine();
    std::vector<double> ours, theirs, ratios;
    for (unsigned turn = 0; turn < turns; ++turn) {
        ours.push_back(seconds(engine));
        theirs.push_back(seconds(bare));
        ratios.push_back(ours.back() / theirs.back());
    }
    return {{"rays", directions.size()},
            {"threads", threads},
            {"engine_s", median(ours)},
            {"bare_s", median(theirs)},
            {"ratio", median(ratios)}};
}

}  // namespace

int main(int argc, char** argv) try {
    CLI::App app("Times arrays of a camera's rays against packets of the bare traversal kernel, and prints JSON.");
    std::string file;
    unsigned turns = 5, threads = 2;
    std::size_t millions = 10;
    app.add_option("SCENE", file, "A scene file")->required();
    app.add_option("--turns", turns, "Times that it is compared")->capture_default_str();
    app.add_option("--threads", threads)->capture_default_str();
    app.add_option("--millions", millions, "Of rays")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    Registry registry;
    registry.loadPackages(defaultPackageFolders());
    Diagnostics diagnostics;
    const std::unique_ptr<World> world = loadScene(file, registry, diagnostics);
    diagnostics.print(std::cerr);
    if (diagnostics.hasErrors()) return 3;
    std::cout << run(*world, threads, turns, millions).dump(2) << '\n';
    return 0;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
