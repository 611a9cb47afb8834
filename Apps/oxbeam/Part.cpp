#include "Apps/oxbeam/Part.h"

#include "Apps/oxbeam/Checkpointing.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/PartResult.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/Hash.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <charconv>
#include <fstream>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

void addPart(CLI::App& app, PartCommand& command) {
    CLI::App* c = app.add_subcommand("part", "Render one part of a picture that was split, or the rest of it");
    c->add_option("DIR", command.job, "JOB/NUMBER, or the job's folder")->required();
    c->add_option("NUMBER", command.number, "Which part, where the folder alone is given");
    c->add_option("--threads", command.threads, "Rendering threads, 1 to 48; every processor by default")
        ->type_name("N");
    c->add_option("--checkpoint-every", command.checkpointEvery, "Seconds between two saves, instead of 30")
        ->type_name("SECONDS");
    addMemoryLimit(*c);
    c->add_flag("-q,--quiet", command.quiet, "Say nothing but errors and warnings");
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

class Rendering {
public:
    Rendering(const Job& job, const JobPart& part, const PartCommand& command, ProgressLine& progress)
        : m_job(job), m_part(part), m_progress(progress), m_command(job.picture()) {
        const Window& w = part.crop;
        m_command.crop = fmt::format("{},{},{},{}", w.x0, w.y0, w.x1, w.y1);
        m_command.threads = command.threads;
        m_command.quiet = command.quiet;
        m_command.checkpointEvery = command.checkpointEvery;
        for (const fs::path& folder : {job.work(), job.result(part.number).parent_path()})
            fs::create_directories(folder);
        m_checkpoint = job.work() / fmt::format("{}.{}.exr", part.number, machineName());
        m_command.checkpoint = m_checkpoint;
        checkWritable(m_checkpoint);
    }

    ExitStatus run(const Registry& registry);

private:
    void requireSameJob() const;
    std::vector<fs::path> leftovers() const;
    std::optional<Begun> begun(Checkpointing& saving, const RenderOptions& options);
    nlohmann::ordered_json statistics(const RenderStatistics& counted, bool complete) const;
    void finish(const RenderResult& result, Checkpointing& saving);

    const Job& m_job;
    const JobPart& m_part;
    ProgressLine& m_progress;
    RenderCommand m_command;
    fs::path m_checkpoint;
    Inputs m_inputs;
    std::unique_ptr<World> m_world;
    unsigned m_threads = 1;
    Times m_times;
    Stopwatch m_clock;
    nlohmann::ordered_json m_before;  // statistics of earlier tries
};

void Rendering::requireSameJob() const {
    const Differences found = differencesOf(m_job.inputs, sharedInputs(m_inputs));
    if (!found.words.empty())
        throw Error(found.status, fmt::format("part {} cannot be rendered here, where not all is as it was split: {}",
                                              m_part.number, fmt::join(found.words, "; ")));
}

// Of earlier tries, on whatever machine; those that got furthest are not known before they are read.
std::vector<fs::path> Rendering::leftovers() const {
    std::vector<fs::path> found;
    std::error_code problem;
    for (const auto& entry : fs::directory_iterator(m_job.work(), problem))
        if (const std::string name = entry.path().filename();
            name.starts_with(fmt::format("{}.", m_part.number)) && name.ends_with(".exr"))
            found.push_back(entry.path());
    return found;
}

static std::uint64_t samplesOf(const Film& film) {
    std::uint64_t sum = 0;
    for (const Film::Pixel& pixel : film.sums()) sum += pixel.samples;
    return sum;
}

// What cannot be gone on with is no loss but of time.
std::optional<Begun> Rendering::begun(Checkpointing& saving, const RenderOptions& options) {
    std::optional<Begun> best;
    for (const fs::path& file : leftovers()) try {
            Checkpoint checkpoint(file);
            Begun begun = saving.begunIn(checkpoint, options);
            if (best && samplesOf(best->film) >= samplesOf(begun.film)) continue;
            m_before = recordFrom(checkpoint.text(PartRecordName)).statistics;
            best.emplace(std::move(begun));
            saving.follow(checkpoint);
        } catch (const std::exception& e) {
            std::cerr << fmt::format("oxbeam: warning: not gone on with: {}\n", printable(e.what()));
        }
    return best;
}

nlohmann::ordered_json Rendering::statistics(const RenderStatistics& counted, bool complete) const {
    Times times = m_times;
    times.render = m_clock.seconds();
    nlohmann::ordered_json sum = m_before;
    addStatistics(sum, statisticsOf(*m_world, counted, complete, times, m_threads));
    sum["complete"] = complete;
    return sum;
}

// Under a name of its own first: of two processes that end with the part, either may be the last.
void Rendering::finish(const RenderResult& result, Checkpointing& saving) {
    const std::string own = m_checkpoint.stem().string() + '-' + std::to_string(getpid());
    m_command.checkpoint = m_job.work() / (own + ".exr");
    if (!saving.save(result.film, result.statistics)) throw cannotWrite(m_command.checkpoint, "the part is not done");
    storeFile(m_job.statistics(m_part.number), statistics(result.statistics, true).dump(2) + '\n');
    fs::rename(m_command.checkpoint, m_job.result(m_part.number));
    std::error_code unimportant;
    for (const fs::path& file : leftovers()) fs::remove(file, unimportant);
    m_progress.step(fmt::format("part {} is done: {}", m_part.number, m_job.result(m_part.number).string()));
}

ExitStatus Rendering::run(const Registry& registry) {
    Stopwatch loading;
    Prepared prepared = prepare(m_command, registry);
    if (!prepared.world) return ExitStatus::BadScene;
    m_world = std::move(prepared.world);
    m_threads = prepared.threads;
    RenderOptions& options = prepared.options;
    if (stopWanted()) return stoppedStatus();
    m_inputs = inputsOf(m_command, *m_world, options);
    requireSameJob();
    Checkpointing saving(m_command, *m_world, m_inputs);
    std::optional<Begun> begin = begun(saving, options);
    m_times.load = loading.seconds();

    Stopwatch building;
    Workers workers(m_threads);
    build(*m_world, workers, m_command.isa);
    m_times.build = building.seconds();
    if (stopWanted()) return stoppedStatus();
    m_progress.step(fmt::format("loaded and built in {:.2f} s{}", m_times.load + m_times.build,
                                begin ? fmt::format("; going on after {} passes", begin->film.passes()) : ""));

    const WorthWaitingFor film;
    bool complete = false;
    saving.addTo = [&](Attributes& attributes, const RenderStatistics& counted) {
        const PartRecord record{factsOf(m_command, *m_world, m_inputs, saving.seconds()),
                                statistics(counted, complete)};
        attributes[PartRecordName] = recordText(record);
    };
    saving.attachTo(options);
    options.progress = [&](const Progress& p) { m_progress.update(p); };
    options.ended = [&](const RenderResult& result) { saving.save(result.film, result.statistics); };
    m_clock = Stopwatch();
    saving.start();
    const RenderResult result =
        begin ? render(*m_world, workers, options, std::move(*begin)) : render(*m_world, workers, options);
    complete = result.complete;
    m_progress.step(fmt::format("part {}: {} {} of {} passes in {:.2f} s", m_part.number,
                                complete ? "rendered" : "stopped after", result.statistics.passes, m_job.samples,
                                m_clock.seconds()));
    warnOfBadResults(result.statistics);
    if (complete)
        finish(result, saving);
    else if (!saving.save(result.film, result.statistics) && !result.failure)
        throw cannotWrite(m_checkpoint, "what was rendered of the part is lost");
    if (result.failure) std::rethrow_exception(result.failure);
    return complete ? ExitStatus::Done : stoppedStatus();
}

// A result that is of no use is rendered again.
bool isDone(const Job& job, const JobPart& part) {
    if (!fs::exists(job.result(part.number))) return false;
    try {
        PartResult(job, part).film();
        return true;
    } catch (const BadResult& e) {
        std::cerr << fmt::format("oxbeam: warning: {}; the part is rendered again\n", printable(e.what()));
        return false;
    }
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
    if (isDone(job, part)) {
        progress.step(fmt::format("part {} was done before: {}", part.number, job.result(part.number).string()));
        return ExitStatus::Done;
    }
    return leave(Rendering(job, part, command, progress).run(registry));
}

}  // namespace oxbeam
