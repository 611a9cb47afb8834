#include "Apps/oxbeam/Checkpointing.h"
#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"

#include <fmt/format.h>

#include <iostream>

namespace oxbeam {

// From nothing, or from what was saved. Takes the time.
static RenderResult renderOrResume(World& world, Workers& workers, RenderOptions& options, Checkpointing& saving,
                                   ProgressLine& progress, std::optional<Begun> begun) {
    saving.attachTo(options);
    options.progress = [&](const Progress& p) { progress.update(p); };
    saving.start();
    return begun ? render(world, workers, options, std::move(*begun)) : render(world, workers, options);
}

static void sayRendered(const RenderResult& result, const RenderOptions& options, double seconds, unsigned threads,
                        ProgressLine& progress) {
    const std::uint64_t rays = result.statistics.rays.total();
    const bool untilTimeEnds = options.seconds && options.samples == MaxSamples;
    progress.step(fmt::format("{} {}{} passes in {:.2f} s on {} threads: {} rays, {:.2f} million/s",
                              result.complete ? "rendered" : "stopped after", result.statistics.passes,
                              untilTimeEnds ? "" : fmt::format(" of {}", options.samples), seconds, threads, rays,
                              1e-6 * static_cast<double>(rays) / seconds));
}

// What there is to be seen of a world, in words.
static std::string contents(const World& world) {
    const auto some = [](std::uint64_t number, const char* what) {
        return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
    };
    return some(world.geometry.triangles(), "triangle") + ", " + some(world.lights.size(), "light");
}

ExitStatus runRender(const RenderCommand& command, const Registry& registry) {
    ProgressLine progress(command.quiet);
    checkRenderArguments(command);
    stopOnSignals();
    Times times;

    Stopwatch loading;
    auto [world, options, threads] = prepare(command, registry);
    if (!world) return ExitStatus::BadScene;
    const Inputs inputs = inputsOf(command, *world, options);
    Checkpointing saving(command, *world, inputs);
    std::optional<Begun> begun = saving.begun(options);
    times.load = loading.seconds();
    progress.step(fmt::format("loaded {} in {:.2f} s: {}", command.scene, times.load, contents(*world)));

    Stopwatch building;
    Workers workers(threads);
    build(*world, workers, command.isa);
    times.build = building.seconds();
    progress.step(fmt::format("built in {:.2f} s", times.build));
    warnOfEye(*world);
    if (stopWanted()) return stoppedStatus();
    if (begun) progress.step(fmt::format("resumed from {} after {} passes", command.checkpoint, begun->film.passes()));

    Stopwatch rendering;
    const RenderResult result = renderOrResume(*world, workers, options, saving, progress, std::move(begun));
    times.render = rendering.seconds();
    sayRendered(result, options, times.render, threads, progress);
    warnOfBadResults(result.statistics);
    warnOfPicture(*world, result, command.output);
    if (!result.statistics.packetsRefused.empty() && !command.quiet)
        std::cerr << fmt::format("oxbeam: note: --packets has no effect: {}\n", result.statistics.packetsRefused);

    Stopwatch writing;
    const Window& window = result.film.window();
    const ImageOptions picture = pictureOptions(command, *world, inputs, result.film, saving.seconds());
    const bool saved = saving.save(result.film);
    writeImage(command.output, window.width(), window.height(), result.film.pixels(), picture);
    times.write = writing.seconds();
    progress.step(fmt::format("wrote {} ({} x {})", command.output, window.width(), window.height()));
    if (!command.stats.empty()) writeStatistics(command.stats, *world, result, times, threads);
    if (!saved)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("the checkpoint '{}' could not be saved at the end", command.checkpoint));
    return result.complete ? ExitStatus::Done : stoppedStatus();
}

ExitStatus runCheck(const std::string& scene, const std::vector<std::string>& set, const Registry& registry) {
    const auto world = load(scene, {set, {}}, registry, false);
    if (!world) return ExitStatus::BadScene;
    std::cout << fmt::format("{}: no errors; {}\n", scene, contents(*world));
    return ExitStatus::Done;
}

}  // namespace oxbeam
