#include "Apps/oxbeam/Checkpointing.h"
#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Frames.h"
#include "Apps/oxbeam/Inputs.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/Output/Movie.h"
#include "Engine/System/StandardOutput.h"

#include <fmt/format.h>

#include <filesystem>
#include <future>
#include <iostream>
#include <memory>

namespace oxbeam {

// What there is to be seen of a world, in words.
static std::string contents(const World& world) {
    const auto some = [](std::uint64_t number, const char* what) {
        return fmt::format("{} {}{}", number, what, number == 1 ? "" : "s");
    };
    return some(world.geometry.triangles(), "triangle") + ", " + some(world.lights.size(), "light");
}

namespace {

// What all pictures of a call are made with.
struct Studio {
    ProgressLine& progress;
    World& world;
    RenderOptions options;
    Workers workers;
    FileSink* standardOutput;                // or null
    std::unique_ptr<Movie> movie = nullptr;  // that all pictures go into, or null
    std::future<void> writing = {};          // a frame, while the next is rendered

    // Throws what went wrong with it.
    void finishWriting() {
        if (writing.valid()) writing.get();
    }
};

// One picture: a still, or a frame of a sequence.
class Picture {
public:
    Picture(const RenderCommand& command, Studio& studio, const Inputs& inputs, double loading)
        : m_command(command), m_studio(studio), m_options(studio.options), m_inputs(inputs),
          m_saving(m_command, studio.world, m_inputs) {
        m_times.load = loading;
    }

    // Finds what it goes on from. Throws where it cannot.
    void begin() { m_begun = m_saving.begun(m_options); }
    // Nothing of a frame is written before it is complete.
    ExitStatus render();
    bool written() const { return m_written; }
    const Times& times() const { return m_times; }

private:
    void say(const std::string& what) {
        if (!m_command.frame) m_studio.progress.step(what);
    }
    void conclude(const RenderResult& result);
    void sayRendered(const RenderResult& result);
    void write(const RenderResult& result);

    const RenderCommand& m_command;
    Studio& m_studio;
    RenderOptions m_options;
    const Inputs& m_inputs;
    Checkpointing m_saving;
    std::optional<Begun> m_begun;
    Times m_times;
    bool m_saved = true, m_written = false;
};

void Picture::sayRendered(const RenderResult& result) {
    const std::uint64_t rays = result.statistics.rays.total();
    const bool untilTimeEnds = m_options.seconds && m_options.samples == MaxSamples;
    say(fmt::format("{} {}{} passes in {:.2f} s on {} threads: {} rays, {:.2f} million/s",
                    result.complete ? "rendered" : "stopped after", result.statistics.passes,
                    untilTimeEnds ? "" : fmt::format(" of {}", m_options.samples), m_times.render,
                    m_studio.workers.threads(), rays, 1e-6 * static_cast<double>(rays) / m_times.render));
}

void Picture::conclude(const RenderResult& result) {
    sayRendered(result);
    warnOfBadResults(result.statistics);
    if (!result.failure) warnOfPicture(m_studio.world, result, m_command.output);
    m_saved = m_saving.save(result.film, result.statistics);
    m_studio.finishWriting();
    if (m_command.frame && !result.complete) return;
    write(result);
    m_written = true;
    const Window& window = result.film.window();
    say(fmt::format("wrote {} ({} x {})", toStandardOutput(m_command) ? "standard output" : m_command.output,
                    window.width(), window.height()));
}

// What needs no more of the film than its colours is written while the next frame is rendered.
void Picture::write(const RenderResult& result) {
    const Film& film = result.film;
    const ImageOptions description = pictureOptions(m_command, m_studio.world, m_inputs, film, m_saving.seconds());
    const std::string counts = !m_command.stats.empty() ? statisticsText(m_command, m_studio.world, result, m_times,
                                                                         m_studio.workers.threads())
                                                        : "";
    const bool meanwhile = m_command.frame && description.layers.empty() && !description.alpha;
    if (isMovie(m_command.output) && !m_studio.movie)
        m_studio.movie =
            Movie::create(m_command.output, film.window().width(), film.window().height(), m_command.sequence.fps);
    auto put = [description, counts, command = m_command, window = film.window(), pixels = film.pixels(),
                sink = m_studio.standardOutput, movie = m_studio.movie.get()] {
        const WorthWaitingFor picture;
        const Stopwatch writing;
        if (movie)
            movie->add(pixels, description);
        else if (sink)
            writeImage(*sink, pictureName(command), window.width(), window.height(), pixels, description);
        else
            writeImage(command.output, window.width(), window.height(), pixels, description);
        if (sink) sink->finish();
        if (!command.stats.empty()) writeStatistics(command.stats, counts, writing.seconds());
    };
    if (meanwhile)
        m_studio.writing = std::async(std::launch::async, std::move(put));
    else
        put();
}

ExitStatus Picture::render() {
    Stopwatch building;
    build(m_studio.world, m_studio.workers, m_command.isa);
    m_times.build = building.seconds();
    say(fmt::format("built in {:.2f} s", m_times.build));
    warnOfEye(m_studio.world);
    if (stopWanted()) return stoppedStatus();
    if (m_begun)
        m_studio.progress.step(
            fmt::format("resumed from {} after {} passes", m_command.checkpoint, m_begun->film.passes()));
    const WorthWaitingFor picture;
    m_saving.attachTo(m_options);
    m_options.progress = [&](const Progress& p) { m_studio.progress.update(p); };
    m_saving.start();
    Stopwatch rendering;
    const auto ended = [&](const RenderResult& result) {
        m_times.render = rendering.seconds();
        conclude(result);
    };
    m_options.ended = ended;
    World& world = m_studio.world;
    const RenderResult result = m_begun ? oxbeam::render(world, m_studio.workers, m_options, std::move(*m_begun))
                                        : oxbeam::render(world, m_studio.workers, m_options);
    ended(result);
    static bool said = false;
    if (!result.statistics.packetsRefused.empty() && !m_command.quiet && !std::exchange(said, true))
        std::cerr << fmt::format("oxbeam: note: --packets has no effect: {}\n", result.statistics.packetsRefused);
    if (result.failure) std::rethrow_exception(result.failure);
    if (!m_saved)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("the checkpoint '{}' could not be saved at the end", m_command.checkpoint));
    return result.complete ? ExitStatus::Done : stoppedStatus();
}

// ---- Sequences

// The frames that are to be rendered; of all of them the files are none that are read.
std::vector<unsigned> framesToRender(const RenderCommand& command, const Frames& frames, const World& world) {
    std::vector<unsigned> wanted;
    const NamedFiles read = inputsOf(world.files);
    for (const unsigned number : frames.numbers()) {
        const RenderCommand one = Frames::commandOf(command, number);
        requireApart(outputsOf(one), read);
        if (!command.sequence.missing || !std::filesystem::exists(one.output)) wanted.push_back(number);
    }
    return wanted;
}

ExitStatus renderFrames(const RenderCommand& command, Frames& frames, Studio& studio, const Inputs& inputs,
                        double loading) {
    const std::vector<unsigned> wanted = framesToRender(command, frames, studio.world);
    const auto all = static_cast<unsigned>(frames.numbers().size());
    if (const auto there = all - static_cast<unsigned>(wanted.size()))
        studio.progress.step(fmt::format("{} of {} frames are there", there, all));
    const RandomState random = randomState();
    studio.progress.expect(static_cast<unsigned>(wanted.size()));
    for (unsigned done = 0; done < wanted.size(); ++done) {
        if (stopWanted()) return stoppedStatus();
        const RenderCommand one = Frames::commandOf(command, wanted[done]);
        Inputs own = inputs;
        if (!inputs.empty())
            for (const auto& [name, value] : frames.inputs(wanted[done])) own[name] = value;
        RandomState begin = random;
        seed48(begin.data());
        frames.show(wanted[done]);
        Picture picture(one, studio, own, done == 0 ? loading : 0.0);
        picture.begin();
        const ExitStatus status = picture.render();
        if (!picture.written()) return status;
        studio.progress.frameDone(fmt::format("frame {} ({} of {}): rendered in {:.2f} s{}", wanted[done], done + 1,
                                              wanted.size(), picture.times().render,
                                              studio.movie ? "" : fmt::format(", to {}", one.output)));
        if (status != ExitStatus::Done) return status;
    }
    studio.finishWriting();
    if (!studio.movie) return ExitStatus::Done;
    const WorthWaitingFor file;
    studio.movie->finish();
    studio.progress.step(fmt::format("wrote {} ({} frames)", command.output, wanted.size()));
    return ExitStatus::Done;
}

}  // namespace

ExitStatus runRender(const RenderCommand& command, const Registry& registry) {
    ProgressLine progress(command.quiet);
    checkSequence(command);
    checkRenderArguments(command, registry);
    const std::unique_ptr<FileSink> standardOutput =
        toStandardOutput(command) ? std::make_unique<StandardOutput>() : nullptr;
    stopOnSignals();
    prepareToWrite(pictureName(command));
    if (!command.checkpoint.empty()) prepareToWrite(command.checkpoint);
    if (!command.size.empty()) reservePicture(command, parseSize(command.size));  // known before anything is loaded

    Stopwatch loading;
    auto [world, options, threads] = prepare(command, registry);
    if (!world) return ExitStatus::BadScene;
    if (stopWanted()) return stoppedStatus();
    if (options.alpha) checkAlpha(command);
    Frames frames(command, *world);
    const MemoryCharge writingMemory = reservePicture(command, world->image);
    const Inputs inputs = recordsInputs(command) ? inputsOf(command, *world, options) : Inputs();
    Studio studio{progress, *world, std::move(options), Workers(threads), standardOutput.get(), nullptr, {}};
    std::optional<Picture> still;
    if (frames.isStill()) still.emplace(command, studio, inputs, loading.seconds()).begin();
    const double loaded = loading.seconds();
    progress.step(fmt::format("loaded {} in {:.2f} s: {}", command.scene, loaded, contents(*world)));
    if (!still) {
        const ExitStatus status = renderFrames(command, frames, studio, inputs, loaded);
        studio.finishWriting();
        studio.movie.reset();  // which takes away what is half, where it was not finished
        return leave(status);
    }
    frames.show(frames.numbers().front());
    return leave(still->render());
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
