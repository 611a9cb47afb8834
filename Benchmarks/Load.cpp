// Loading a large mesh: how much memory the process takes at most, against that of the mesh's arrays and of the traversal
// structure, and how much faster the structure is built on all threads. Prints JSON. Peaks are those of the process, so
// that each measurement is a process of its own.
#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/Scene/Shapes.h"
#include "Engine/System/Workers.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <iostream>

using namespace oxbeam;

static std::size_t peakBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

int main(int argc, char** argv) {
    CLI::App app("Measures memory and time of loading a sphere of many triangles.");
    double triangles = 5e6;
    unsigned threads = availableThreads();
    app.add_option("--triangles", triangles)->capture_default_str();
    app.add_option("--threads", threads, "Threads to build on")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    Workers workers(threads);
    SceneGeometry geometry;
    const std::size_t before = peakBytes();
    MeshData mesh = sphereMesh(static_cast<unsigned>(std::sqrt(triangles)) + 1);
    const std::size_t generated = peakBytes() - before;
    geometry.addInstance(geometry.addMesh(std::move(mesh)), Matrix(), 0);
    const auto start = std::chrono::steady_clock::now();
    workers.within([&] { geometry.build(); });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const std::size_t structure = static_cast<EmbreeIntersector&>(geometry.intersector()).bytes();
    const std::size_t arrays = geometry.meshBytes(), peak = peakBytes() - before;
    const nlohmann::ordered_json json = {
        {"triangles", geometry.triangles()},
        {"threads", threads},
        {"build_s", seconds},
        {"array_bytes", arrays},
        {"structure_bytes", structure},
        {"peak_bytes_after_generation", generated},
        {"peak_bytes", peak},
        {"ratio", static_cast<double>(peak) / static_cast<double>(arrays + structure)}};
    std::cout << json.dump(2) << '\n';
}
