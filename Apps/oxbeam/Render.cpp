#include "Apps/oxbeam/Checkpointing.h"
#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/StandardOutput.h"

#include <fmt/format.h>

#include <iostream>
#include <memory>

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

static void writePicture(const RenderCommand& command, FileSink* standardOutput, const Film& film,
                         const ImageOptions& options) {
    const Window& window = film.window();
    if (!standardOutput) return writeImage(command.output, window.width(), window.height(), film.pixels(), options);
    writeImage(*standardOutput, pictureName(command), window.width(), window.height(), film.pixels(), options);
    standardOutput->finish();
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
    checkRenderArguments(command, registry);
    const std::unique_ptr<FileSink> standardOutput =
        toStandardOutput(command) ? std::make_unique<StandardOutput>() : nullptr;
    stopOnSignals();
    prepareToWrite(pictureName(command));
    if (!command.checkpoint.empty()) prepareToWrite(command.checkpoint);
    Times times;
    if (!command.size.empty()) reservePicture(command, parseSize(command.size));  // known before anything is loaded

    Stopwatch loading;
    auto [world, options, threads] = prepare(command, registry);
    if (!world) return ExitStatus::BadScene;
    if (stopWanted()) return stoppedStatus();
    if (options.alpha) checkAlpha(command);
    const MemoryCharge writingMemory = reservePicture(command, world->image);
    const Inputs inputs = recordsInputs(command) ? inputsOf(command, *world, options) : Inputs();
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

    const WorthWaitingFor picture;
    Stopwatch rendering;
    bool saved = true;
    const auto conclude = [&, &world = world, &options = options, &threads = threads](const RenderResult& result) {
        times.render = rendering.seconds();
        sayRendered(result, options, times.render, threads, progress);
        warnOfBadResults(result.statistics);
        if (!result.failure) warnOfPicture(*world, result, command.output);
        if (!result.statistics.packetsRefused.empty() && !command.quiet)
            std::cerr << fmt::format("oxbeam: note: --packets has no effect: {}\n", result.statistics.packetsRefused);

        Stopwatch writing;
        const Window& window = result.film.window();
        const ImageOptions description = pictureOptions(command, *world, inputs, result.film, saving.seconds());
        saved = saving.save(result.film, result.statistics);
        writePicture(command, standardOutput.get(), result.film, description);
        times.write = writing.seconds();
        progress.step(fmt::format("wrote {} ({} x {})", toStandardOutput(command) ? "standard output" : command.output,
                                  window.width(), window.height()));
        if (!command.stats.empty()) writeStatistics(command.stats, *world, result, times, threads);
    };
    options.ended = conclude;
    const RenderResult result = renderOrResume(*world, workers, options, saving, progress, std::move(begun));
    conclude(result);
    if (result.failure) std::rethrow_exception(result.failure);
    if (!saved)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("the checkpoint '{}' could not be saved at the end", command.checkpoint));
    return leave(result.complete ? ExitStatus::Done : stoppedStatus());
}

ExitStatus runCheck(const RenderCommand& command, const Registry& registry) {
    SceneFileOptions options;
    options.set = command.set;
    options.importing = importLimits(command.importLimit);
    const auto world = load(command.scene, options, registry, false);
    if (!world) return ExitStatus::BadScene;
    std::cout << fmt::format("{}: no errors; {}\n", command.scene, contents(*world));
    return ExitStatus::Done;
}

}  // namespace oxbeam
