#include "Apps/oxbeam/Part.h"

#include "Apps/oxbeam/Checkpointing.h"
#include "Apps/oxbeam/Frames.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/PartResult.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Engine/System/Hash.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

void addPart(CLI::App& app, PartCommand& command) {
    CLI::App* c = app.add_subcommand("part", "Render one part of a picture that was split, or the rest of it");
    c->add_option("DIR", command.job, "JOB/NUMBER, or the job's folder")->required();
    c->add_option("NUMBER", command.number, "Which part, where the folder alone is given");
    addThreads(*c, command.threads);
    c->add_option("--checkpoint-every", command.checkpointEvery, "Seconds between two saves, instead of 30")
        ->type_name("SECONDS");
    addMemoryLimit(*c);
    addQuiet(*c, command.quiet);
}

namespace {

struct Chosen {
    fs::path folder;
    std::string number;
};

// "JOB/7", or "JOB" and "7".
Chosen chosenBy(const PartCommand& command) {
    if (!command.number.empty()) return {command.job, command.number};
    const fs::path given = fs::path(command.job).lexically_normal();
    const fs::path named = given.has_filename() ? given : given.parent_path();
    if (fs::exists(named / "job.json"))
        throw Error(ExitStatus::Usage, fmt::format("'{0}' is the job: expected {0}/NUMBER", named.string()));
    return {named.has_parent_path() ? named.parent_path() : fs::path("."), named.filename()};
}

const JobPart& partOf(const Job& job, const std::string& number) {
    unsigned n = 0;
    const auto [end, problem] = std::from_chars(number.data(), number.data() + number.size(), n);
    if (problem != std::errc() || end != number.data() + number.size() || n < 1 || n > job.parts.size())
        throw Error(ExitStatus::Usage, fmt::format("part '{}' of '{}': expected a number from 1 to {}", number,
                                                   job.folder.string(), job.parts.size()));
    return job.parts[n - 1];
}

// What is left over of a part is kept by machine: processes of one machine keep out of each other's way by locks, which
// network file systems promise to no others.
std::string machineName() {
    std::string boot;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> boot;
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    return fmt::format("{:08x}", static_cast<std::uint32_t>(hashOf(boot + host)));
}

// A result that is of no use is rendered again.
bool isDone(const Job& job, const JobPart& part, JobFrame frame) {
    if (!fs::exists(job.result(part.number, frame))) return false;
    try {
        PartResult(job, part, frame).film();
        return true;
    } catch (const BadResult& e) {
        std::cerr << fmt::format("oxbeam: warning: {}; it is rendered again\n", printable(e.what()));
        return false;
    }
}

std::uint64_t samplesOf(const Film& film) {
    std::uint64_t sum = 0;
    for (const Film::Pixel& pixel : film.sums()) sum += pixel.samples;
    return sum;
}

// What all films of a part are made with.
struct PartStudio {
    const Job& job;
    const JobPart& part;
    ProgressLine& progress;
    World& world;
    RenderOptions options;
    Workers workers;
};

// One film: of a part of a picture, or of a whole frame.
class PartFilm {
public:
    PartFilm(PartStudio& studio, const RenderCommand& command, const Inputs& inputs, JobFrame frame, double loading)
        : m_studio(studio), m_job(studio.job), m_frame(frame), m_name(Job::nameOf(studio.part.number, frame)),
          m_command(command), m_inputs(inputs), m_options(studio.options), m_saving(m_command, studio.world, m_inputs) {
        m_times.load = loading;
        m_checkpoint = m_job.work() / fmt::format("{}.{}.exr", m_name, machineName());
        m_command.checkpoint = m_checkpoint;
        checkWritable(m_checkpoint);
        m_saving.addTo = [this](Attributes& attributes, const RenderStatistics& counted) {
            const PictureFacts facts = factsOf(m_command, m_studio.world, m_inputs, m_saving.seconds());
            attributes[PartRecordName] = recordText({facts, statistics(counted)});
        };
    }
    PartFilm(const PartFilm&) = delete;
    PartFilm& operator=(const PartFilm&) = delete;

    ExitStatus render();

private:
    std::vector<fs::path> leftovers() const;
    std::optional<Begun> begun();
    RenderResult rendered(std::optional<Begun> begin);
    nlohmann::ordered_json statistics(const RenderStatistics& counted) const;
    void finish(const RenderResult& result);

    PartStudio& m_studio;
    const Job& m_job;
    JobFrame m_frame;
    std::string m_name;
    RenderCommand m_command;
    const Inputs& m_inputs;
    RenderOptions m_options;
    Checkpointing m_saving;
    fs::path m_checkpoint;
    Times m_times;
    Stopwatch m_clock;
    bool m_complete = false;
    nlohmann::ordered_json m_before;  // statistics of earlier tries
};

// Of earlier tries, on whatever machine.
std::vector<fs::path> PartFilm::leftovers() const {
    std::vector<fs::path> found;
    std::error_code problem;
    for (const auto& entry : fs::directory_iterator(m_job.work(), problem))
        if (const std::string name = entry.path().filename(); name.starts_with(m_name + '.') && name.ends_with(".exr"))
            found.push_back(entry.path());
    return found;
}

// From where the one is that got furthest. What cannot be gone on with is no loss but of time.
std::optional<Begun> PartFilm::begun() {
    std::optional<Begun> best;
    for (const fs::path& file : leftovers()) try {
            Checkpoint checkpoint(file);
            Begun some = m_saving.begunIn(checkpoint, m_options);
            if (best && samplesOf(best->film) >= samplesOf(some.film)) continue;
            m_before = recordFrom(checkpoint.text(PartRecordName)).statistics;
            best.emplace(std::move(some));
            m_saving.follow(checkpoint);
        } catch (const std::exception& e) {
            if (fs::exists(file))  // or whoever ended with the part meanwhile has taken it away
                std::cerr << fmt::format("oxbeam: warning: not gone on with: {}\n", printable(e.what()));
        }
    return best;
}

nlohmann::ordered_json PartFilm::statistics(const RenderStatistics& counted) const {
    Times times = m_times;
    times.render = m_clock.seconds();
    nlohmann::ordered_json sum = m_before;
    addStatistics(sum, statisticsOf(m_studio.world, counted, m_complete, times, m_studio.workers.threads()));
    sum["complete"] = m_complete;
    return sum;
}

// Under names of its own first: of two processes that end with the part, either may be the last. They are not those of
// leftovers, which the other takes away.
void PartFilm::finish(const RenderResult& result) {
    const fs::path own = m_job.work() / fmt::format("done-{}-{}", m_checkpoint.stem().string(), getpid());
    m_command.checkpoint = own.string() + ".exr";
    if (!m_saving.save(result.film, result.statistics)) throw cannotWrite(m_command.checkpoint, "the part is not done");
    const unsigned part = m_studio.part.number;
    storeFile(own.string() + ".json", statistics(result.statistics).dump(2) + '\n');
    fs::rename(own.string() + ".json", m_job.statistics(part, m_frame));
    fs::rename(m_command.checkpoint, m_job.result(part, m_frame));
    std::error_code unimportant;
    for (const fs::path& file : leftovers()) fs::remove(file, unimportant);
}

RenderResult PartFilm::rendered(std::optional<Begun> begin) {
    World& world = m_studio.world;
    m_saving.attachTo(m_options);
    m_options.progress = [&](const Progress& p) { m_studio.progress.update(p); };
    m_options.ended = [&](const RenderResult& result) { m_saving.save(result.film, result.statistics); };
    m_clock = Stopwatch();
    m_saving.start();
    return begin ? oxbeam::render(world, m_studio.workers, m_options, std::move(*begin))
                 : oxbeam::render(world, m_studio.workers, m_options);
}

ExitStatus PartFilm::render() {
    std::optional<Begun> begin = begun();
    Stopwatch building;
    build(m_studio.world, m_studio.workers, m_command.isa);
    m_times.build = building.seconds();
    if (stopWanted()) return stoppedStatus();
    m_studio.progress.step(fmt::format("loaded and built in {:.2f} s{}", m_times.load + m_times.build,
                                       begin ? fmt::format("; going on after {} passes", begin->film.passes()) : ""));
    const WorthWaitingFor film;
    const RenderResult result = rendered(std::move(begin));
    m_complete = result.complete;
    m_studio.progress.step(fmt::format("part {}{}: {} {} of {} passes in {:.2f} s", m_studio.part.number,
                                       m_frame ? fmt::format(", frame {}", *m_frame) : "",
                                       m_complete ? "rendered" : "stopped after", result.statistics.passes,
                                       m_job.samples, m_clock.seconds()));
    warnOfBadResults(result.statistics);
    if (m_complete)
        finish(result);
    else if (!m_saving.save(result.film, result.statistics) && !result.failure)
        throw cannotWrite(m_checkpoint, "what was rendered of the part is lost");
    if (result.failure) std::rethrow_exception(result.failure);
    return m_complete ? ExitStatus::Done : stoppedStatus();
}

void requireSameJob(const Job& job, const JobPart& part, const Inputs& inputs) {
    const Differences found = differencesOf(job.inputs, sharedInputs(inputs));
    if (!found.words.empty())
        throw Error(found.status, fmt::format("part {} cannot be rendered here, where not all is as it was split: {}",
                                              part.number, fmt::join(found.words, "; ")));
}

RenderCommand commandOf(const Job& job, const JobPart& part, const PartCommand& command) {
    RenderCommand made = job.picture();
    const Window& w = part.crop;
    if (part.frames.empty()) made.crop = fmt::format("{},{},{},{}", w.x0, w.y0, w.x1, w.y1);
    made.threads = command.threads;
    made.quiet = command.quiet;
    made.checkpointEvery = command.checkpointEvery;
    return made;
}

// Every film begins with the same random numbers, as if it were the only one.
ExitStatus renderFilms(const Job& job, const JobPart& part, const std::vector<JobFrame>& wanted,
                       const RenderCommand& command, const Registry& registry, ProgressLine& progress) {
    Stopwatch loading;
    Prepared prepared = prepare(command, registry);
    if (!prepared.world) return ExitStatus::BadScene;
    if (stopWanted()) return stoppedStatus();
    World& world = *prepared.world;
    Frames frames(command, world);
    Inputs inputs = inputsOf(command, world, prepared.options);
    for (const auto& [name, value] : frames.inputs(0)) inputs[name] = value;
    requireSameJob(job, part, inputs);
    PartStudio studio{job, part, progress, world, std::move(prepared.options), Workers(prepared.threads)};
    const RandomState random = randomState();
    double loaded = loading.seconds();
    for (const JobFrame& frame : wanted) {
        RandomState begin = random;
        seed48(begin.data());
        RenderCommand one = command;
        if (frame) one.frame = *frame, inputs["--frames"] = std::to_string(*frame);
        frames.show(frame.value_or(frames.numbers().front()));
        const ExitStatus status = PartFilm(studio, one, inputs, frame, std::exchange(loaded, 0.0)).render();
        if (status != ExitStatus::Done) return status;
    }
    progress.step(fmt::format("part {} is done: {}", part.number, job.result(part.number, wanted.back()).string()));
    return ExitStatus::Done;
}

}  // namespace

ExitStatus runPart(const PartCommand& command, const Registry& registry) {
    const Chosen chosen = chosenBy(command);
    const Job job = readJob(chosen.folder);
    const JobPart& part = partOf(job, chosen.number);
    if (!(command.checkpointEvery >= 1.0))
        throw Error(ExitStatus::Usage,
                    fmt::format("--checkpoint-every {:g}: expected at least 1 second", command.checkpointEvery));
    ProgressLine progress(command.quiet);
    stopOnSignals();
    std::vector<JobFrame> wanted = framesOf(part);
    const fs::path last = job.result(part.number, wanted.back());
    std::erase_if(wanted, [&](const JobFrame& frame) { return isDone(job, part, frame); });
    if (wanted.empty()) {
        progress.step(fmt::format("part {} was done before: {}", part.number, last.string()));
        return ExitStatus::Done;
    }
    makeFolders(job);
    return leave(renderFilms(job, part, wanted, commandOf(job, part, command), registry, progress));
}

}  // namespace oxbeam
