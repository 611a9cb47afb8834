#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"
#include "Engine/SceneFile/SceneFile.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Interruption

static std::atomic<bool> s_stop{false};
static std::atomic<int> s_signal{0};

// The first signal ends the rendering after the tiles at work; a second one ends the process at once.
static void onSignal(int number) {
    s_stop = true;
    s_signal = number;
    std::signal(number, SIG_DFL);
}

void stopOnSignals() {
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

bool stopWanted() { return s_stop; }

ExitStatus stoppedStatus() { return s_signal == SIGINT ? ExitStatus::Interrupted : ExitStatus::Incomplete; }

// ---- Arguments

// "1280x720". Nine digits at most: longer numbers would be taken modulo 2^32.
ImageSize parseSize(const std::string& text) {
    ImageSize size;
    char rest;
    if (text.find('-') != std::string::npos ||
        std::sscanf(text.c_str(), "%9ux%9u%c", &size.width, &size.height, &rest) != 2 ||
        std::min(size.width, size.height) < 1 || std::max(size.width, size.height) > MaxImageSide)
        throw Error(ExitStatus::Usage,
                    fmt::format("--size {}: expected WIDTHxHEIGHT, each from 1 to {}", text, MaxImageSide));
    return size;
}

static Window parseCrop(const std::string& text, const ImageSize& image) {
    Window w;
    char rest;
    if (text.find('-') != std::string::npos ||
        std::sscanf(text.c_str(), "%9u,%9u,%9u,%9u%c", &w.x0, &w.y0, &w.x1, &w.y1, &rest) != 4 || w.x0 >= w.x1 ||
        w.y0 >= w.y1 || w.x1 > image.width || w.y1 > image.height)
        throw Error(ExitStatus::Usage,
                    fmt::format("--crop {}: expected left,top,right,bottom within the picture of {} x "
                                "{} pixels",
                                text, image.width, image.height));
    return w;
}

void checkInput(const std::string& scene) {
    if (!fs::exists(scene)) throw Error(ExitStatus::InputOutput, fmt::format("{}: no such file", scene));
    if (!fs::is_regular_file(scene)) throw Error(ExitStatus::InputOutput, fmt::format("{}: not a regular file", scene));
    if (access(scene.c_str(), R_OK) != 0)
        throw Error(ExitStatus::InputOutput, fmt::format("{}: cannot be read", scene));
}

// What would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options) {
    checkImageFormat(file, options);
    checkWritable(file);
}

void checkWritable(const std::string& file) {
    if (fs::exists(file) && !fs::is_regular_file(file))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': it exists and is not a regular file", file));
    const fs::path folder = fs::path(file).has_parent_path() ? fs::path(file).parent_path() : fs::path(".");
    if (!fs::is_directory(folder))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': there is no directory '{}'", file, folder.string()));
    if (access(folder.c_str(), W_OK) != 0)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': directory '{}' is not writable", file, folder.string()));
}

static unsigned chooseThreads(const RenderCommand& command, const OxRenderingObject& ro) {
    constexpr unsigned most = OxRenderingObject::MaxThreads;
    if (command.threads && (*command.threads < 1 || *command.threads > most))
        throw Error(ExitStatus::Usage, fmt::format("--threads {}: expected 1 to {}; packages keep records for no more",
                                                   *command.threads, most));
    if (command.threads) return *command.threads;
    if (ro.m_multiThreading == 0) return 1;
    if (ro.m_numThreads > 0) return static_cast<unsigned>(ro.m_numThreads);
    return std::min(availableThreads(), most);
}

// They say how a scene is made around a model; a scene file says all that itself.
static void checkModelOptions(const RenderCommand& command) {
    const ModelCommand& m = command.model;
    const char* given = !m.shader.empty()        ? "--shader"
                        : !m.environment.empty() ? "--environment"
                        : !m.view.empty()        ? "--view"
                        : m.ground != "shadow"   ? "--ground"
                                                 : nullptr;
    if (given && isSceneFile(command.scene))
        throw Error(ExitStatus::Usage, fmt::format("{} is for models; '{}' is a scene file", given, command.scene));
}

// ---- Steps

// Nothing is said twice, not even of the many pictures of a sweep.
static void say(const Diagnostic& diagnostic) {
    static std::set<std::string> said;
    if (said.insert(diagnostic.text()).second) std::cerr << diagnostic.text() << '\n';
}

static std::unique_ptr<World> load(const std::string& scene, const SceneFileOptions& options, const Registry& registry,
                                   bool quiet) {
    checkInput(scene);
    Diagnostics diagnostics;
    auto world = loadScene(scene, registry, diagnostics, options);
    for (const Diagnostic& d : diagnostics.sorted())
        if (!quiet || d.severity != Severity::Note) say(d);
    return diagnostics.hasErrors() ? nullptr : std::move(world);
}

static void warnOfBadResults(const RenderStatistics& s) {
    if (s.refusedRays)
        std::cerr << fmt::format("oxbeam: warning: {} rays were not finite or too far out, and counted as misses\n",
                                 s.refusedRays);
    if (s.badSamples)
        std::cerr << fmt::format("oxbeam: warning: {} samples were not finite, and counted as black\n", s.badSamples);
}

struct Times {
    double load = 0.0, build = 0.0, render = 0.0, write = 0.0;
};

static void writeStatistics(const std::string& file, const World& world, const RenderResult& result, const Times& times,
                            unsigned threads) {
    const RenderStatistics& s = result.statistics;
    std::size_t dropped = 0;
    for (const DroppedTriangles& d : world.geometry.dropped()) dropped += d.total();
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const nlohmann::ordered_json json = {
        {"load_s", times.load},
        {"build_s", times.build},
        {"render_s", times.render},
        {"write_s", times.write},
        {"complete", result.complete},
        {"passes", s.passes},
        {"rays",
         {{"primary", s.rays.primary},
          {"shadow", s.rays.shadow},
          {"transparency", s.rays.transparency},
          {"refraction", s.rays.refraction},
          {"reflection", s.rays.reflection},
          {"other", s.rays.other},
          {"total", s.rays.total()}}},
        {"triangles", world.geometry.triangles()},
        {"lights", world.lights.size()},
        {"threads", threads},
        {"peak_bytes", static_cast<std::uint64_t>(usage.ru_maxrss) * 1024},
        {"dropped_triangles", dropped},
        {"refused_rays", s.refusedRays},
        {"bad_samples", s.badSamples},
    };
    std::ofstream stream(file);
    stream << json.dump(2) << '\n';
    if (!stream.flush()) throw Error(ExitStatus::InputOutput, fmt::format("cannot write '{}'", file));
}

// A scene with what the command line says of its picture.
struct Prepared {
    std::unique_ptr<World> world;
    RenderOptions options;
    unsigned threads = 1;
};

// Without a world where the scene is bad.
static Prepared prepare(const RenderCommand& command, const Registry& registry) {
    Prepared p;
    checkModelOptions(command);
    p.world = load(command.scene, {command.set, command.camera, modelSceneOptions(command.model, command.size)},
                   registry, command.quiet);
    if (!p.world) return p;
    if (!command.size.empty()) p.world->image = parseSize(command.size);
    const OxRenderingObject& ro = *p.world->renderingObject;
    p.options.samples = command.samples.value_or(static_cast<unsigned>(ro.m_samplesPerPixel));
    if (p.options.samples < 1 || p.options.samples > MaxSamples)
        throw Error(ExitStatus::Usage, fmt::format("--samples {}: expected 1 to {}", p.options.samples, MaxSamples));
    if (!command.crop.empty()) p.options.crop = parseCrop(command.crop, p.world->image);
    p.options.packets = command.packets;
    p.options.stop = &s_stop;
    p.threads = chooseThreads(command, ro);
    return p;
}

static void build(World& world, Workers& workers, const std::string& isa) {
    workers.within([&] { world.geometry.build(isa.empty() ? SceneGeometry::defaultIsa() : isa); });
}

static unsigned scaled(unsigned pixels, double scale) {
    return std::max(1u, static_cast<unsigned>(std::lround(pixels * scale)));
}

std::optional<Rendered> renderPicture(const RenderCommand& command, const Registry& registry, unsigned mostSide) {
    Prepared p = prepare(command, registry);
    if (!p.world) return std::nullopt;
    ImageSize& image = p.world->image;
    if (const double scale = mostSide / static_cast<double>(std::max(image.width, image.height));
        command.size.empty() && scale < 1.0)
        image = {scaled(image.width, scale), scaled(image.height, scale)};
    Workers workers(p.threads);
    build(*p.world, workers, command.isa);
    const RenderResult result = render(*p.world, workers, p.options);
    warnOfBadResults(result.statistics);
    return Rendered{image.width, image.height, result.film.pixels()};
}

ExitStatus runRender(const RenderCommand& command, const Registry& registry) {
    ProgressLine progress(command.quiet);
    const ImageOptions imageOptions{command.bits};
    checkOutput(command.output, imageOptions);
    if (!command.stats.empty() && fs::path(command.stats).has_parent_path() &&
        !fs::is_directory(fs::path(command.stats).parent_path()))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': there is no such directory", command.stats));
    stopOnSignals();
    Times times;

    Stopwatch loading;
    auto [world, options, threads] = prepare(command, registry);
    if (!world) return ExitStatus::BadScene;
    times.load = loading.seconds();
    progress.step(fmt::format("loaded {} in {:.2f} s: {} triangles, {} lights", command.scene, times.load,
                              world->geometry.triangles(), world->lights.size()));

    Stopwatch building;
    Workers workers(threads);
    build(*world, workers, command.isa);
    times.build = building.seconds();
    progress.step(fmt::format("built in {:.2f} s", times.build));
    if (s_stop) return stoppedStatus();

    Stopwatch rendering;
    options.progress = [&](const Progress& p) { progress.update(p); };
    const RenderResult result = render(*world, workers, options);
    times.render = rendering.seconds();
    const std::uint64_t rays = result.statistics.rays.total();
    progress.step(fmt::format("{} {} of {} passes in {:.2f} s on {} threads: {} rays, {:.2f} million/s",
                              result.complete ? "rendered" : "stopped after", result.statistics.passes, options.samples,
                              times.render, threads, rays, 1e-6 * static_cast<double>(rays) / times.render));
    warnOfBadResults(result.statistics);
    if (!result.statistics.packetsRefused.empty() && !command.quiet)
        std::cerr << fmt::format("oxbeam: note: --packets has no effect: {}\n", result.statistics.packetsRefused);

    Stopwatch writing;
    const Window& window = result.film.window();
    writeImage(command.output, window.width(), window.height(), result.film.pixels(), imageOptions);
    times.write = writing.seconds();
    progress.step(fmt::format("wrote {} ({} x {})", command.output, window.width(), window.height()));
    if (!command.stats.empty()) writeStatistics(command.stats, *world, result, times, threads);
    return result.complete ? ExitStatus::Done : stoppedStatus();
}

ExitStatus runCheck(const std::string& scene, const std::vector<std::string>& set, const Registry& registry) {
    const auto world = load(scene, {set, {}}, registry, false);
    if (!world) return ExitStatus::BadScene;
    std::cout << fmt::format("{}: no errors; {} triangles, {} lights\n", scene, world->geometry.triangles(),
                             world->lights.size());
    return ExitStatus::Done;
}

}  // namespace oxbeam
