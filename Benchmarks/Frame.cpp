// Whole frames against the bare traversal kernel: the engine renders, and Embree alone traces the very rays that the
// engine traced, tile by tile on the same threads. Both in one process, turn by turn, so that what the machine does
// besides falls on both. Prints JSON; the ratios are what counts.
#include "Benchmarks/BareRay.h"
#include "Benchmarks/KernelSettings.h"
#include "Benchmarks/Recording.h"
#include "Benchmarks/Scenes.h"
#include "Benchmarks/Timing.h"
#include "Engine/Scene/EmbreeIntersector.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

using namespace oxbeam;
using namespace oxbeam::bench;

namespace {

// How the kernel is asked about shadow rays: for the nearest hit, which the engine needs to ask a transparent occluder,
// or for any.
enum class ShadowQuery { Nearest, Any };

void traceBare(RTCScene scene, const TracedRay& ray, ShadowQuery shadows) {
    RTCRayHit query = queryOf(ray);
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    if (shadows == ShadowQuery::Any && ray.kind == RAY_SHADOW)
        rtcOccluded1(scene, &context, &query.ray);
    else
        rtcIntersect1(scene, &context, &query);
}

double frameTime(World& world, Workers& workers, const RenderOptions& options = {}) {
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

struct Settings {
    unsigned turns = 7, threads = 2;
    ImageSize size;
};

// The comparisons, each of scenes of its own.
class Comparisons {
public:
    explicit Comparisons(const Settings& settings)
        : m_turns(settings.turns), m_size(settings.size), m_one(1), m_all(settings.threads) {}

    Json engineToBare(ShadowQuery shadows, bool allThreads = false) {
        PlainScene scene(false);
        return toBare(scene, shadows, allThreads ? m_all : m_one);
    }

    Json richToBare(bool allThreads) {
        RichScene scene;
        return toBare(scene, ShadowQuery::Nearest, allThreads ? m_all : m_one);
    }

    // Several frames at a time: a processor that has slept for a turn takes a while to wake up.
    Json speedUpByThreads() {
        PlainScene scene(false);
        prepare(scene);
        const auto several = [&](Workers& workers) {
            return [&] {
                double sum = 0.0;
                for (unsigned i = 0; i < 4; ++i) sum += frameTime(scene, workers);
                return 0.25 * sum;
            };
        };
        return compare(m_turns, several(m_one), "one_thread_s", several(m_all), "all_threads_s");
    }

    Json speedUpByPackets() {
        PlainScene scene(true);
        prepare(scene);
        RenderOptions packets;
        packets.packets = true;
        return compare(
            m_turns, [&] { return frameTime(scene, m_one); }, "single_rays_s",
            [&] { return frameTime(scene, m_one, packets); }, "packets_s");
    }

    Json layersToNone(World&& scene) {
        prepare(scene);
        RenderOptions plain, layers;
        plain.samples = layers.samples = 4;
        layers.aovs = true;
        return compare(
            m_turns, [&] { return frameTime(scene, m_one, layers); }, "layers_s",
            [&] { return frameTime(scene, m_one, plain); }, "none_s");
    }

    Json kernel() {
        PlainScene scene(false);
        prepare(scene);
        return kernelSettings(scene.geometry.scene(), Recording(scene), m_turns);
    }

private:
    void prepare(World& world) {
        world.image = m_size;
        m_all.within([&] { world.geometry.build(); });
        frameTime(world, m_all);
    }

    Json toBare(World& world, ShadowQuery shadows, Workers& workers) {
        prepare(world);
        const Recording recording(world);
        Json json = {{"triangles", world.geometry.triangles()}, {"rays", recording.rays.size()}};
        json.update(compare(
            m_turns, [&] { return frameTime(world, workers); }, "engine_s",
            [&] { return bareTime(world, workers, recording, shadows); }, "bare_s"));
        return json;
    }

    unsigned m_turns;
    ImageSize m_size;
    Workers m_one, m_all;
};

using Measure = std::function<Json(Comparisons&)>;

const std::vector<std::pair<std::string, Measure>>& comparisons() {
    static const std::vector<std::pair<std::string, Measure>> all = {
        {"engine_to_bare", [](Comparisons& c) { return c.engineToBare(ShadowQuery::Nearest); }},
        {"engine_to_bare_any_hit_shadows", [](Comparisons& c) { return c.engineToBare(ShadowQuery::Any); }},
        {"engine_to_bare_all_threads", [](Comparisons& c) { return c.engineToBare(ShadowQuery::Nearest, true); }},
        {"rich_to_bare", [](Comparisons& c) { return c.richToBare(false); }},
        {"rich_to_bare_all_threads", [](Comparisons& c) { return c.richToBare(true); }},
        {"speed_up_by_threads", [](Comparisons& c) { return c.speedUpByThreads(); }},
        {"speed_up_by_packets", [](Comparisons& c) { return c.speedUpByPackets(); }},
        {"layers_to_none", [](Comparisons& c) { return c.layersToNone(PlainScene(false)); }},
        {"rich_layers_to_none", [](Comparisons& c) { return c.layersToNone(RichScene()); }},
        {"kernel_settings", [](Comparisons& c) { return c.kernel(); }}};
    return all;
}

// `only`: one of the comparisons; all where it is empty.
Json run(const Settings& settings, const std::string& only) {
    Json json = {{"width", settings.size.width},
                 {"height", settings.size.height},
                 {"turns", settings.turns},
                 {"threads", settings.threads}};
    Comparisons each(settings);
    for (const auto& [name, measure] : comparisons())
        if (only.empty() || only == name) json[name] = measure(each);
    return json;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Times whole frames of the engine against the bare traversal kernel, and prints JSON.");
    Settings settings;
    app.add_option("--turns", settings.turns, "Times that each comparison is made")->capture_default_str();
    app.add_option("--threads", settings.threads, "Threads of the comparisons on several")->capture_default_str();
    app.add_option("--width", settings.size.width)->capture_default_str();
    app.add_option("--height", settings.size.height)->capture_default_str();
    std::string only;
    std::vector<std::string> names;
    for (const auto& [name, measure] : comparisons()) names.push_back(name);
    app.add_option("--only", only, "A single comparison")->check(CLI::IsMember(names));
    CLI11_PARSE(app, argc, argv);
    std::cout << run(settings, only).dump(2) << '\n';
}
