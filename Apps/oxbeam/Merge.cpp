#include "Apps/oxbeam/Merge.h"

#include "Apps/oxbeam/Frames.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/OutputFiles.h"
#include "Apps/oxbeam/PartResult.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Engine/Output/Movie.h"
#include "Engine/System/Interruption.h"
#include "Engine/System/StoredFile.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iostream>
#include <set>

namespace oxbeam {

namespace fs = std::filesystem;

void addMerge(CLI::App& app, MergeCommand& command) {
    CLI::App* c = app.add_subcommand("merge", "Put the parts of a picture that was split together");
    c->add_option("DIR", command.job, "The job's folder")->required();
    c->add_option("-o,--output", command.output, MergeOutputHelp)->required()->type_name("FILE");
    c->add_option("--only", command.only, "Some frames of a sequence, as 0..99: others may merge the rest")
        ->type_name("FRAMES");
    c->add_option("--stats", command.stats, "Write times and counts of all parts to a JSON file")->type_name("FILE");
    c->add_flag("--force", command.force, "Also where an object's random numbers are the whole process'");
    addMemoryLimit(*c);
    addQuiet(*c, command.quiet);
}

namespace {

// Those of a job's frames that are to be merged; nothing for all, or where there are none. Throws Error(Usage).
std::optional<std::vector<unsigned>> framesToMerge(const std::string& only, const Job& job) {
    if (only.empty()) return std::nullopt;
    if (!job.isSequence()) throw Error(ExitStatus::Usage, "--only is for sequences; the job is of one picture");
    return onlyThose(job.frames(), only);
}

class Merging {
public:
    Merging(const MergeCommand& command, const Job& job)
        : m_command(command), m_job(job), m_picture(job.picture()), m_progress(command.quiet),
          m_only(framesToMerge(command.only, job)) {
        m_picture.output = command.output;
        m_picture.stats = command.stats;
    }

    Unmerged run();

private:
    void complain(ExitStatus status, const std::string& what);
    std::vector<JobFrame> wantedOf(const JobPart& part) const;
    bool isThere(const JobPart& part, JobFrame frame) const { return fs::exists(m_job.result(part.number, frame)); }
    bool isGood() const { return m_found.status == ExitStatus::Done; }
    void lookForMissing();
    void take(const JobPart& part, JobFrame frame);
    void lookForStrangers();
    void lookAtNumbers();
    void write(const RenderCommand& picture, PictureFacts facts, const Film& film);
    std::string written() const;
    void conclude();

    const MergeCommand& m_command;
    const Job& m_job;
    RenderCommand m_picture;
    ProgressLine m_progress;
    std::optional<std::vector<unsigned>> m_only;
    std::optional<Film> m_film;  // of the picture that is made of all
    std::unique_ptr<Movie> m_movie;
    std::size_t m_parts = 0, m_frames = 0;  // so far
    std::unique_ptr<PartResult> m_last;
    std::optional<PictureFacts> m_facts;
    double m_seconds = 0.0;
    nlohmann::ordered_json m_statistics;
    std::set<RandomState> m_numbers;  // after the parts
    bool m_saidNumbers = false;
    Unmerged m_found;
};

// The status is that of the first, but for parts that are only missing.
void Merging::complain(ExitStatus status, const std::string& what) {
    m_progress.clear();
    std::cerr << fmt::format("oxbeam: error: {}\n", printable(what));
    if (m_found.status == ExitStatus::Done || m_found.status == ExitStatus::Incomplete) m_found.status = status;
}

static void copyInto(Film& whole, const Film& part) {
    const Window& to = whole.window();
    const Window& w = part.window();
    const auto copy = [&](const auto& from, const auto& into) {
        if (from.empty()) return;
        for (unsigned y = 0; y < w.height(); ++y)
            std::ranges::copy(from.subspan(std::size_t{y} * w.width(), w.width()),
                              into.begin() + static_cast<std::ptrdiff_t>(std::size_t{w.y0 + y} * to.width() + w.x0));
    };
    copy(part.sums(), whole.sums());
    copy(part.aovSums(), whole.aovSums());
    copy(part.alphaSums(), whole.alphaSums());
}

// A frame is a picture of its own; it is written where all others are there.
void Merging::take(const JobPart& part, JobFrame frame) try {
    auto result = std::make_unique<PartResult>(m_job, part, frame, m_last.get());
    const Begun begun = result->film();
    const PartRecord& record = result->record();
    m_numbers.insert(begun.random);
    ++m_frames;
    if (m_film) copyInto(*m_film, begun.film);
    if (!m_film) lookAtNumbers();
    if (!m_film && isGood()) write(Frames::commandOf(m_picture, *frame), record.facts, begun.film);
    if (!m_facts) m_facts = record.facts;
    m_seconds += record.facts.seconds;
    addStatistics(m_statistics, record.statistics);
    m_last = std::move(result);
} catch (const BadResult& e) {
    static const char* const names[] = {"damaged", "foreign", "doubled"};
    complain(e.status(), fmt::format("part {} is {}: {}", part.number, names[e.kind()], e.what()));
    if (m_found.useless.empty() || m_found.useless.back() != part.number) m_found.useless.push_back(part.number);
    m_last.reset();
}

// Results that no part has, as of another job with more parts.
void Merging::lookForStrangers() {
    std::set<fs::path> known;
    for (const JobPart& part : m_job.parts)
        for (const JobFrame& frame : framesOf(part)) known.insert(m_job.result(part.number, frame));
    std::error_code missing;
    std::set<fs::path> strangers;
    for (const auto& entry : fs::directory_iterator(m_job.folder / "results", missing))
        if (entry.path().extension() == ".exr" && !known.contains(entry.path())) strangers.insert(entry.path());
    for (const fs::path& stranger : strangers)
        complain(ExitStatus::Usage, fmt::format("'{}' is foreign: the job, of {} parts, has none of it",
                                                stranger.string(), m_job.parts.size()));
}

// Numbers that are drawn once are the same for all, and some parts draw none.
void Merging::lookAtNumbers() {
    m_numbers.erase(randomState());
    if (m_command.force || m_saidNumbers || !(m_job.processNumbers || m_numbers.size() > 1)) return;
    m_saidNumbers = true;
    complain(ExitStatus::Usage,
             "an object of the scene draws random numbers that are the whole process', such as "
             "KelAmbientOcclusion and KelWallThickness: the parts are not those of one picture; --force "
             "merges them all the same");
}

void Merging::write(const RenderCommand& picture, PictureFacts facts, const Film& film) {
    const ImageSize& image = m_job.image;
    facts.inputs["--crop"] = fmt::format("0,0,{},{}", image.width, image.height);
    const ImageOptions description = pictureOptions(picture, facts, film);
    if (isMovie(picture.output) && !m_movie)
        m_movie = Movie::create(picture.output, image.width, image.height, picture.sequence.fps);
    if (m_movie)
        m_movie->add(film.pixels(), description);
    else
        writeImage(picture.output, image.width, image.height, film.pixels(), description);
}

std::string Merging::written() const {
    const auto& [width, height] = m_job.image;
    return m_job.isSequence() ? fmt::format("{} ({} frames of {} x {})", m_command.output, m_frames, width, height)
                              : fmt::format("{} ({} x {})", m_command.output, width, height);
}

void Merging::conclude() {
    if (m_film) {
        m_facts->seconds = m_seconds;
        write(m_picture, *m_facts, *m_film);
    }
    if (m_movie) m_movie->finish();
    m_statistics["parts"] = m_parts;
    if (!m_command.stats.empty()) storeFile(m_command.stats, m_statistics.dump(2) + '\n');
    m_progress.step(fmt::format("merged {} part{}: {} rays, {:.2f} s of rendering, {:.2f} s of loading and building",
                                m_parts, m_parts == 1 ? "" : "s", m_statistics["rays"]["total"].get<std::uint64_t>(),
                                m_statistics["render_s"].get<double>(),
                                m_statistics["load_s"].get<double>() + m_statistics["build_s"].get<double>()));
    m_progress.step("wrote " + written());
}

std::vector<JobFrame> Merging::wantedOf(const JobPart& part) const {
    std::vector<JobFrame> frames = framesOf(part);
    if (m_only)
        std::erase_if(frames, [&](const JobFrame& frame) { return !std::ranges::binary_search(*m_only, *frame); });
    return frames;
}

void Merging::lookForMissing() {
    std::vector<unsigned> missing;
    for (const JobPart& part : m_job.parts)
        if (!std::ranges::all_of(wantedOf(part), [&](const JobFrame& frame) { return isThere(part, frame); }))
            missing.push_back(part.number);
    if (missing.empty()) return;
    complain(ExitStatus::Incomplete,
             fmt::format("{} {} missing; 'oxbeam part {}' renders {}", partsText(missing),
                         missing.size() == 1 ? "is" : "are", shellText({m_job.folder / std::to_string(missing[0])}),
                         missing.size() == 1 ? "it" : "the first"));
}

Unmerged Merging::run() {
    const MemoryCharge writing = reservePicture(m_picture, m_job.image);
    if (!m_job.isSequence())
        m_film.emplace(Window{0, 0, m_job.image.width, m_job.image.height}, m_job.layers, m_job.alpha);
    lookForMissing();
    lookForStrangers();
    for (const JobPart& part : m_job.parts) {
        const std::vector<JobFrame> wanted = wantedOf(part);
        m_parts += wanted.empty() ? 0 : 1;
        for (const JobFrame& frame : wanted) {
            if (stopWanted()) throw Interruption("interrupted; the parts are as they were");
            if (isThere(part, frame)) take(part, frame);
        }
        m_progress.update(part.number / static_cast<double>(m_job.parts.size()), "merging");
    }
    lookAtNumbers();
    if (isGood()) conclude();
    return m_found;
}

}  // namespace

static void checkName(const MergeCommand& command, const Job& job) {
    const bool frames = hasFrame(command.output), movie = isMovie(command.output);
    const std::string why = frames && movie ? "one file holds all frames; expected no {frame}"
                            : job.isSequence()
                                ? frames || movie ? "" : fmt::format("the job's frames need {}", NamesOfFrames)
                            : frames || movie ? "the job is of one picture; expected a picture's name, without {frame}"
                                              : "";
    if (!why.empty()) throw Error(ExitStatus::Usage, fmt::format("-o '{}': {}", command.output, why));
}

// Whatever lies there is taken for a part's.
static void requireElsewhere(const std::string& output, const Job& job) {
    std::error_code problem;
    const fs::path results = fs::weakly_canonical(job.folder / "results", problem);
    if (storedAt(output).parent_path() == results)
        throw Error(ExitStatus::Usage,
                    fmt::format("-o '{}': '{}' is for the films of the parts alone", output, results.string()));
}

// Of a sequence, the first frame speaks for all.
void checkMergeOutput(const MergeCommand& command) {
    const Job job = readJob(command.job);
    checkName(command, job);
    RenderCommand picture = job.picture();
    picture.output = fileOfFrame(command.output, framesOf(job.parts.front()).front().value_or(0));
    if (isMovie(picture.output))
        checkMovie(picture.output, {picture.bits});
    else
        checkOutput(picture.output, {picture.bits});
    checkImageSize(picture.output, job.image.width, job.image.height);
    if (!command.stats.empty()) checkWritable(command.stats);
    if (job.alpha) checkAlpha(picture);
    NamedFiles inputs = {{"the job", job.folder / "job.json"}, {"the scene", picture.scene}};
    for (const JobPart& part : job.parts)
        for (const JobFrame& frame : framesOf(part)) inputs.push_back({"the part", job.result(part.number, frame)});
    NamedFiles outputs = {{"--output", picture.output}};
    if (!command.stats.empty()) outputs.push_back({"--stats", command.stats});
    requireApart(outputs, inputs);
    requireElsewhere(picture.output, job);
}

Unmerged tryMerge(const MergeCommand& command) {
    const Job job = readJob(command.job);
    return Merging(command, job).run();
}

ExitStatus runMerge(const MergeCommand& command) {
    stopOnSignals();
    checkMergeOutput(command);
    prepareToWrite(command.output);
    return tryMerge(command).status;
}

}  // namespace oxbeam
