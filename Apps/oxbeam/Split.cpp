#include "Apps/oxbeam/Split.h"

#include "Apps/oxbeam/Cutting.h"
#include "Apps/oxbeam/Frames.h"
#include "Apps/oxbeam/Job.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/Packing.h"
#include "Apps/oxbeam/PictureOptions.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Engine/System/Hash.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

// So that machines which are faster than others, or come later, find something to do to the end.
static constexpr unsigned PartsPerMachine = 4;
static constexpr unsigned MostParts = 1'000'000;

void addSplit(CLI::App& app, SplitCommand& command) {
    RenderCommand& r = command.render;
    CLI::App* c = app.add_subcommand("split", "Cut a picture into parts for many machines, as a folder");
    c->add_option("SCENE", r.scene, "Scene file (.toml), or a model")->required();
    c->add_option("-o,--output", command.folder, "Folder to write, which is not there yet")
        ->required()
        ->type_name("DIR");
    c->add_option("--parts", command.parts, "How many parts")->type_name("N")->check(CLI::Range(1u, MostParts));
    c->add_option("--machines", command.machines, "For how many machines: four parts for each")
        ->type_name("N")
        ->check(CLI::Range(1u, MostParts / PartsPerMachine))
        ->excludes("--parts");
    c->add_flag("--pack", command.pack,
                "Copy the scene and all files that it reads into the folder, to carry it elsewhere");
    addPictureOptions(*c, r);
    c->add_option("--threads", r.threads, "Threads for this; every processor by default")->type_name("N");
    addMemoryLimit(*c);
    addQuiet(*c, r.quiet);
    c->callback([c, &command] { command.options = pictureWords(*c); });
}

namespace {

// That nothing is there that anybody could miss. Throws Error(Usage).
void requireNew(const fs::path& target, const std::string& given) {
    std::error_code problem;
    if (fs::exists(target / "job.json", problem))
        throw Error(ExitStatus::Usage, fmt::format("'{}' holds a job already; expected a new folder", given));
    const fs::file_type type = fs::symlink_status(target, problem).type();
    if (type != fs::file_type::not_found && (type != fs::file_type::directory || !fs::is_empty(target, problem)))
        throw Error(ExitStatus::Usage,
                    fmt::format("'{}' exists already and is no empty folder; expected a new one", given));
}

// The folder while it is made, beside its place; whoever finds it there finds all of it. Its name follows from the place's,
// so that what a killed process left is found and taken over; a lock tells it from what another one is making.
class NewFolder {
public:
    explicit NewFolder(const std::string& target)
        : m_target(fs::absolute(fs::path(target) / "").lexically_normal().parent_path()),
          m_made(m_target.parent_path() / fmt::format(".oxbeam-split-{:016x}", hashOf(m_target.filename().string()))) {
        requireNew(m_target, target);
        if (mkdir(m_made.c_str(), 0777) != 0 && errno != EEXIST) throw cannotWrite(target, strerror(errno));
        lock();
        for (const auto& left : fs::directory_iterator(m_made)) fs::remove_all(left);
    }
    ~NewFolder() {
        std::error_code problem;
        if (!m_done) fs::remove_all(m_made, problem);
        close(m_lock);
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;

    const fs::path& path() const { return m_made; }
    void finish() {
        std::error_code problem;
        fs::rename(m_made, m_target, problem);
        if (problem) throw cannotWrite(m_target, problem.message());
        m_done = true;
    }

private:
    // The lock is on the folder that bears the name; whoever was done meanwhile has renamed its own.
    void lock() {
        struct stat opened {
        }, named{};
        m_lock = open(m_made.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        const bool mine = m_lock >= 0 && (flock(m_lock, LOCK_EX | LOCK_NB) == 0 || cannotLock()) &&
                          fstat(m_lock, &opened) == 0 && stat(m_made.c_str(), &named) == 0 &&
                          opened.st_ino == named.st_ino;
        if (!mine)
            throw Error(ExitStatus::InputOutput, fmt::format("'{}' is being made by another process, in '{}'",
                                                             m_target.string(), m_made.string()));
    }
    // A file system without locks: what is there may be somebody's.
    bool cannotLock() const { return errno != EWOULDBLOCK && fs::is_empty(m_made); }

    fs::path m_target, m_made;
    int m_lock = -1;
    bool m_done = false;
};

bool isOfSequence(const std::vector<std::string>& words) {
    static const std::vector<std::string> names = {"--frames", "--only", "--turntable", "--animate",
                                                   "--clip",   "--fps",  "--duration"};
    return std::ranges::any_of(
        words, [](const std::string& word) { return std::ranges::count(names, word.substr(0, word.find('='))) > 0; });
}

fs::path absolute(const std::string& file) { return fs::absolute(file).lexically_normal(); }

class Splitting {
public:
    Splitting(const SplitCommand& command, const Registry& registry)
        : m_command(command), m_picture(command.render), m_registry(registry), m_progress(m_picture.quiet),
          m_folder(command.folder) {
        m_job.folder = m_folder.path();
        m_job.command = m_picture.text;
        m_job.options = command.options;
    }

    ExitStatus run();

private:
    void nameFiles();
    bool pack();
    void placeOption(const char* name, std::string& file, const std::map<fs::path, fs::path>& places);
    void describe(const World& world, const RenderOptions& options, const Frames& frames);
    void cut(World& world, unsigned threads, const Frames& frames);
    void cutSequence(const std::vector<unsigned>& frames, unsigned wanted);
    void write();

    const SplitCommand& m_command;
    RenderCommand m_picture;
    const Registry& m_registry;
    ProgressLine m_progress;
    NewFolder m_folder;
    Job m_job;
};

// "--texture=FILE" among the job's words, as a path that holds from now on.
void Splitting::placeOption(const char* name, std::string& file, const std::map<fs::path, fs::path>& places) {
    if (file.empty()) return;
    const auto found = places.find(absolute(file));
    file = found == places.end() ? absolute(file) : found->second;
    for (std::string& word : m_job.options)
        if (word.starts_with(std::string(name) + '='))
            word = fmt::format("{}={}", name,
                               m_command.pack ? fs::path(file).lexically_relative(m_job.folder).string() : file);
}

// Without packing, all files stay where they are.
void Splitting::nameFiles() {
    m_picture.scene = absolute(m_picture.scene);
    m_job.scene = m_picture.scene;
    placeOption("--environment", m_picture.model.environment, {});
    placeOption("--texture", m_picture.model.texture, {});
}

// False where the scene is bad.
bool Splitting::pack() {
    const Prepared original = prepare(m_picture, m_registry);
    if (!original.world) return false;
    const auto places = packFiles(absolute(m_picture.scene), original.world->files, m_job.folder / "scene");
    for (const auto& [file, place] : places)
        m_job.files[place.lexically_relative(m_job.folder)] = fmt::format("{:016x}", hashOfFile(place));
    m_picture.scene = places.at(absolute(m_picture.scene));
    m_job.scene = fs::path(m_picture.scene).lexically_relative(m_job.folder);
    placeOption("--environment", m_picture.model.environment, places);
    placeOption("--texture", m_picture.model.texture, places);
    m_progress.step(fmt::format("packed {} files", places.size()));
    return true;
}

void Splitting::describe(const World& world, const RenderOptions& options, const Frames& frames) {
    for (const auto& [file, hash] : world.files)
        if (m_command.pack && !m_job.files.contains(file.lexically_relative(m_job.folder)))
            throw Error(ExitStatus::BadScene, fmt::format("cannot pack the scene: it names '{}' in a way that holds on "
                                                          "this machine only; expected a path relative to the scene",
                                                          file.string()));
    m_job.image = world.image;
    m_job.samples = options.samples;
    m_job.layers = options.aovs;
    m_job.alpha = options.alpha;
    Inputs inputs = inputsOf(m_picture, world, options);
    for (const auto& [name, value] : frames.inputs(0)) inputs[name] = value;
    m_job.inputs = sharedInputs(inputs);
}

// What draws from the process' random numbers does so in a second picture, too; what has been made of some is made once.
void Splitting::cut(World& world, unsigned threads, const Frames& frames) {
    Workers workers(threads);
    build(world, workers, m_picture.isa);
    Stopwatch trying;
    const RandomState start = randomState();
    const TileCosts costs = tileCosts(world, workers, m_job.samples);
    if (const RandomState once = randomState(); once != start && !stopWanted()) {
        tileCosts(world, workers, m_job.samples);
        m_job.processNumbers = randomState() != once;
    }
    if (stopWanted()) return;
    const unsigned wanted = m_command.parts ? *m_command.parts : PartsPerMachine * m_command.machines.value_or(1);
    if (frames.isStill())
        for (const Cut& c : cutPicture(world.image, costs, wanted))
            m_job.parts.push_back({static_cast<unsigned>(m_job.parts.size() + 1), c.crop, c.share, {}});
    else
        cutSequence(frames.numbers(), wanted);
    m_progress.step(fmt::format("tried in {:.2f} s what the parts cost", trying.seconds()));
    if (m_job.parts.size() < wanted && !m_picture.quiet)
        std::cerr << fmt::format("oxbeam: note: {} parts instead of {}: the {}\n", m_job.parts.size(), wanted,
                                 frames.isStill() ? "picture has no more tiles" : "sequence has no more frames");
    if (m_job.processNumbers)
        std::cerr
            << "oxbeam: warning: an object of the scene draws random numbers that are the whole process', such as "
               "KelAmbientOcclusion and KelWallThickness: the parts will not be those of one picture, and merge asks "
               "for --force\n";
}

// Frames that follow each other, as many in each part; what they cost is taken to be alike.
void Splitting::cutSequence(const std::vector<unsigned>& frames, unsigned wanted) {
    const std::size_t all = frames.size(), parts = std::min<std::size_t>(wanted, all);
    const auto at = [&](std::size_t part) { return frames.begin() + static_cast<std::ptrdiff_t>(part * all / parts); };
    for (std::size_t i = 0; i < parts; ++i) {
        const std::vector<unsigned> some(at(i), at(i + 1));
        m_job.parts.push_back({static_cast<unsigned>(i + 1),
                               {0, 0, m_job.image.width, m_job.image.height},
                               static_cast<double>(some.size()) / static_cast<double>(all),
                               some});
    }
}

void Splitting::write() {
    makeFolders(m_job);
    std::vector<std::string> program = {"oxbeam"};
    for (const std::string& path : m_command.packagePaths)
        program.insert(program.end(), {"--package-path", absolute(path)});
    writeJob(m_job, shellText(program));
    m_folder.finish();
    m_progress.step(
        fmt::format("wrote {}: {} parts of a {} of {} x {} pixels", m_command.folder, m_job.parts.size(),
                    m_job.isSequence() ? fmt::format("sequence of {} frames", m_job.frames().size()) : "picture",
                    m_job.image.width, m_job.image.height));
}

ExitStatus Splitting::run() {
    if (isOfSequence(m_job.options)) m_picture.output = SequenceName;
    checkPictureOptions(m_picture);
    checkSequence(m_picture);
    stopOnSignals();
    if (!m_command.pack) nameFiles();
    if (m_command.pack && !pack()) return ExitStatus::BadScene;
    Prepared prepared = prepare(m_picture, m_registry);
    if (!prepared.world) return ExitStatus::BadScene;
    if (stopWanted()) return stoppedStatus();
    Frames frames(m_picture, *prepared.world);
    frames.show(frames.numbers().front());
    describe(*prepared.world, prepared.options, frames);
    cut(*prepared.world, prepared.threads, frames);
    if (stopWanted()) return stoppedStatus();
    write();
    return ExitStatus::Done;
}

}  // namespace

ExitStatus runSplit(const SplitCommand& command, const Registry& registry) {
    if (!command.parts && !command.machines)
        throw Error(ExitStatus::Usage, "split: expected --parts or --machines with a number");
    checkInput(command.render.scene);
    return Splitting(command, registry).run();
}

}  // namespace oxbeam
