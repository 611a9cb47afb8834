#include "Apps/oxbeam/RenderSteps.h"

#include "Apps/oxbeam/Frames.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Engine/Render/Advice.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <map>
#include <set>

namespace oxbeam {

// Nothing is said twice, not even of the many pictures of a sweep.
static void print(const Diagnostic& diagnostic) {
    static std::set<std::string> said;
    if (said.insert(diagnostic.text()).second) std::cerr << diagnostic.text() << '\n';
}

std::unique_ptr<World> load(const std::string& scene, const SceneFileOptions& options, const Registry& registry,
                            bool quiet, const Say& say) {
    checkInput(scene);
    for (const std::string& setting : options.set)
        if (setting.find('=') == std::string::npos)
            throw Error(
                ExitStatus::Usage,
                fmt::format("--set {}: expected PLACE.PARAM=VALUE, for example shader.table.shininess=64", setting));
    Diagnostics diagnostics;
    auto world = loadScene(scene, registry, diagnostics, options);
    if (!diagnostics.hasErrors() && world->geometry.triangles() == 0)
        diagnostics.warning({scene, 0, 0}, "has no triangles; the picture shows nothing but the environment");
    for (const Diagnostic& d : diagnostics.sorted())
        if (!quiet || d.severity != Severity::Note) (say ? say : Say(print))(d);
    if (diagnostics.packageToBlame()) throw Error(ExitStatus::BadPackage, "the scene needs a package that is broken");
    if (diagnostics.hasErrors()) return nullptr;
    world->geometry.reserveStructure();
    return world;
}

// ": 30 of KelPhong, 2 of KelEnvironment", the most first.
static std::string givers(const RenderStatistics& s) {
    std::multimap<std::uint64_t, std::string, std::greater<>> byCount;
    for (const auto& [name, count] : s.badSamplesOf) byCount.emplace(count, name.empty() ? "unknown objects" : name);
    std::vector<std::string> words;
    for (const auto& [count, name] : byCount) words.push_back(fmt::format("{} of {}", count, name));
    return words.empty() ? "" : fmt::format(": {}", fmt::join(words, ", "));
}

void warnOfBadResults(const RenderStatistics& s) {
    if (s.refusedRays)
        std::cerr << fmt::format("oxbeam: warning: {} rays were not finite or too far out, and counted as misses\n",
                                 s.refusedRays);
    if (s.badSamples)
        std::cerr << fmt::format("oxbeam: warning: {} samples were not finite, and counted as black{}\n", s.badSamples,
                                 givers(s));
    if (s.overflowedPixels)
        std::cerr << fmt::format(
            "oxbeam: warning: the samples of {} pixels add up to more than a number holds, and were "
            "limited to that\n",
            s.overflowedPixels);
}

static void warn(const std::optional<std::string>& advice) {
    static std::set<std::string> said;  // of one of many frames
    if (advice && said.insert(*advice).second) std::cerr << fmt::format("oxbeam: warning: {}\n", *advice);
}

void warnOfEye(const World& world) { warn(adviceOnEye(world)); }

// Formats that hold more than white are shown by programs that choose what is white.
void warnOfPicture(World& world, const RenderResult& result, const std::string& output) {
    const bool clips = !isExr(output) && !output.ends_with(".hdr");
    std::function<R3(const R3&)> shown;
    if (clips) shown = [&](const R3& color) { return toned(color, world.tone); };
    warn(adviceOnPicture(world, result.film, shown));
}

// Of the process so far.
static std::uint64_t peakBytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

nlohmann::ordered_json statisticsOf(const World& world, const RenderStatistics& s, bool complete, const Times& times,
                                    unsigned threads) {
    std::size_t dropped = 0;
    for (const DroppedTriangles& d : world.geometry.dropped()) dropped += d.total();
    const StructureStatistics structure = world.geometry.structure();
    return {
        {"load_s", times.load},
        {"build_s", times.build},
        {"render_s", times.render},
        {"write_s", times.write},
        {"complete", complete},
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
        {"structure",
         {{"placements", structure.placements},
          {"in_whole", structure.inWhole},
          {"instanced", structure.instanced},
          {"apart", structure.apart},
          {"two_levels", structure.twoLevels},
          {"hidden_triangles", structure.hiddenTriangles}}},
        {"lights", world.lights.size()},
        {"threads", threads},
        {"peak_bytes", peakBytes()},
        {"dropped_triangles", dropped},
        {"refused_rays", s.refusedRays},
        {"bad_samples", s.badSamples},
        {"bad_samples_of", s.badSamplesOf},
        {"overflowed_pixels", s.overflowedPixels},
    };
}

std::string statisticsText(const RenderCommand& command, const World& world, const RenderResult& result,
                           const Times& times, unsigned threads) {
    nlohmann::ordered_json json = statisticsOf(world, result.statistics, result.complete, times, threads);
    if (command.frame) json["frame"] = *command.frame;
    return json.dump();
}

void writeStatistics(const std::string& file, const std::string& statistics, double writing) {
    auto json = nlohmann::ordered_json::parse(statistics);
    json["write_s"] = writing;
    json["peak_bytes"] = peakBytes();
    storeFile(file, json.dump(2) + '\n');
}

// All but the number of samples, which the film has anyway.
static bool needFilm(const std::vector<Aov>& aovs) {
    return std::any_of(aovs.begin(), aovs.end(), [](Aov aov) { return aov != Aov::Samples; });
}

MemoryCharge reservePicture(const RenderCommand& command, const ImageSize& image) {
    const Window window =
        command.crop.empty() ? Window{0, 0, image.width, image.height} : parseCrop(command.crop, image);
    checkImageSize(pictureName(command), window.width(), window.height());
    const std::vector<Aov> aovs = parseAovs(command.aov);
    // The colours and what they are encoded to; with layers, those, all pixel by pixel, and the file.
    constexpr std::uint64_t colors = 2 * sizeof(R3), layers = 3 * sizeof(AovSample);
    const bool transparent = command.model.background == backgroundNames()[1];
    const std::uint64_t writing = window.size() * (aovs.empty() ? colors : colors + layers);
    MemoryCharge memory(MemoryUse::Picture, Film::bytes(window, needFilm(aovs), transparent) + writing,
                        Film::describe(window));
    memory.shrinkTo(writing);
    return memory;
}

void choosePicture(const RenderCommand& command, World& world) {
    if (!command.size.empty()) world.image = parseSize(command.size);
    if (command.exposure) world.tone.exposure = *command.exposure;
    if (const auto curve = parseWord("--tone", command.tone, toneCurveNames()))
        world.tone.curve = static_cast<ToneCurve>(*curve);
    if (!command.model.background.empty())
        world.transparentBackground = command.model.background == backgroundNames()[1];
    if (const auto kind = parseWord("--filter", command.filter, pixelFilterNames())) {
        world.filter.kind = static_cast<PixelFilter::Kind>(*kind);
        world.filter.width = usualWidth(world.filter.kind);
    }
    if (command.filterWidth) world.filter.width = *command.filterWidth;
}

Prepared prepare(const RenderCommand& command, const Registry& registry, bool changeable, const Say& say) {
    Prepared p;
    checkModelOptions(command);
    p.world = load(command.scene,
                   {.set = command.set,
                    .camera = command.camera,
                    .model = modelSceneOptions(command.model, command.size),
                    .importing = importLimits(command.importLimit),
                    .changeable = changeable,
                    .animate = command.sequence.animate,
                    .clip = command.sequence.clip},
                   registry, command.quiet, say);
    if (!p.world) return p;
    requireApart(outputsOf(command), inputsOf(p.world->files));
    choosePicture(command, *p.world);
    const OxRenderingObject& ro = *p.world->renderingObject;
    // Where there is a time to be filled, nobody asked for the scene's own number.
    const unsigned otherwise = command.seconds ? MaxSamples : static_cast<unsigned>(ro.m_samplesPerPixel);
    p.options.samples = command.samples.value_or(otherwise);
    p.options.seconds = command.seconds;
    if (p.options.samples < 1 || p.options.samples > MaxSamples)
        throw Error(ExitStatus::Usage, fmt::format("--samples {}: expected 1 to {}", p.options.samples, MaxSamples));
    if (!command.crop.empty()) p.options.crop = parseCrop(command.crop, p.world->image);
    p.options.packets = command.packets;
    const std::vector<Aov> aovs = parseAovs(command.aov);
    p.options.aovs = needFilm(aovs);
    p.options.alpha = p.world->transparentBackground;
    p.options.stop = &stopFlag();
    p.threads = chooseThreads(command, ro);
    return p;
}

void build(World& world, Workers& workers, const std::string& isa) {
    workers.within([&] { world.geometry.build(isa.empty() ? SceneGeometry::defaultIsa() : isa); });
}

static unsigned scaled(unsigned pixels, double scale) {
    return std::max(1u, static_cast<unsigned>(std::lround(pixels * scale)));
}

std::optional<Rendered> renderPicture(const RenderCommand& command, const Registry& registry, unsigned mostSide,
                                      const std::function<void()>& ended) {
    Prepared p = prepare(command, registry);
    if (!p.world) return std::nullopt;
    ImageSize& image = p.world->image;
    if (const double scale = mostSide / static_cast<double>(std::max(image.width, image.height));
        command.size.empty() && scale < 1.0)
        image = {scaled(image.width, scale), scaled(image.height, scale)};
    p.options.alpha = false;  // what a picture is laid on here, it hides
    Frames frames(command, *p.world);
    frames.show(frames.numbers().front());  // of what moves, how it begins
    p.options.ended = [&](const RenderResult&) { ended(); };
    Workers workers(p.threads);
    build(*p.world, workers, command.isa);
    const WorthWaitingFor waited;
    const RenderResult result = render(*p.world, workers, p.options);
    if (result.failure) std::rethrow_exception(result.failure);
    warnOfBadResults(result.statistics);
    Rendered picture{image.width, image.height, result.film.pixels()};
    for (R3& pixel : picture.pixels) pixel = toned(pixel, p.world->tone);
    return picture;
}

}  // namespace oxbeam
