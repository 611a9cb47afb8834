#include "Apps/oxbeam/Farm.h"

#include "Apps/oxbeam/ChildProcess.h"
#include "Apps/oxbeam/MemoryLimit.h"
#include "Apps/oxbeam/PartRunner.h"
#include "Apps/oxbeam/Progress.h"
#include "Apps/oxbeam/RenderSteps.h"
#include "Apps/oxbeam/SharedOptions.h"
#include "Engine/Diagnostics/Diagnostics.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <set>
#include <thread>

namespace oxbeam {

namespace fs = std::filesystem;

void addFarm(CLI::App& app, FarmCommand& command) {
    CLI::App* c = app.add_subcommand("farm", "Render all parts of a picture that was split, here or on many machines");
    c->add_option("DIR", command.merge.job, "The job's folder")->required();
    c->add_option("-o,--output", command.merge.output, MergeOutputHelp)->required()->type_name("FILE");
    c->add_option("--on", command.on, "Who runs the parts: this machine, GNU parallel here or on hosts, or Slurm")
        ->type_name("local|parallel|slurm");
    c->add_option("--hosts", command.hosts,
                  "With parallel: machines that see the folder at the same place, as its "
                  "--sshlogin takes them")
        ->type_name("HOST[,HOST...]");
    c->add_option("--retries", command.retries, "How often a part is tried again, instead of 3 times")
        ->type_name("N")
        ->check(CLI::Range(0u, 1000u));
    c->add_option("--time-limit", command.timeLimit, "What one try at a part may take; what it has by then is kept")
        ->type_name("SECONDS")
        ->check(CLI::Range(1u, 1u << 30));
    c->add_option("--jobs", command.jobs, "Parts at a time, instead of one on each machine; with slurm, in all")
        ->type_name("N")
        ->check(CLI::Range(1u, 4096u));
    c->add_option("--threads", command.threads,
                  "Threads of a part; by default those of the machine, shared by its parts")
        ->type_name("N")
        ->check(CLI::Range(1u, 48u));
    c->add_option("--stats", command.merge.stats, "Write times and counts of all parts to a JSON file")
        ->type_name("FILE");
    c->add_flag("--force", command.merge.force, "Also where an object's random numbers are the whole process'");
    addMemoryLimit(*c, &command.memoryLimit);
    addQuiet(*c, command.merge.quiet);
}

std::vector<std::string> partWords(const FarmCommand& command, const Job& job, const std::string& part,
                                   const std::optional<unsigned>& threads) {
    std::vector<std::string> words;
    for (const std::string& path : command.packagePaths)
        words.insert(words.end(), {"--package-path", fs::absolute(path).string()});
    words.insert(words.end(), {"part", job.folder.string(), part});
    if (threads) words.insert(words.end(), {"--threads", std::to_string(*threads)});
    if (!command.memoryLimit.empty()) words.insert(words.end(), {"--memory-limit", command.memoryLimit});
    return words;
}

namespace {

class Farming {
public:
    explicit Farming(const FarmCommand& command)
        : m_command(command), m_job(readJob(command.merge.job)), m_progress(command.merge.quiet) {
        makeFolders(m_job);
    }

    ExitStatus run();

private:
    std::unique_ptr<PartRunner> runner() const;
    bool round(PartRunner& runner, const std::vector<unsigned>& parts);
    double shareWithout(const std::vector<unsigned>& missing) const;
    void tell(bool atOnce);
    std::vector<unsigned> lostBy(const PartRunner& runner) const;
    Unmerged merge(const PartRunner& runner) const;

    const FarmCommand& m_command;
    Job m_job;
    ProgressLine m_progress;
    Stopwatch m_clock;
    double m_looked = 0.0, m_pause = 0.2;  // seconds
    std::size_t m_said = 0;                // parts done
};

std::unique_ptr<PartRunner> Farming::runner() const {
    const std::vector<std::string> names = {"local", "parallel", "slurm"};
    const unsigned which = parseWord("--on", m_command.on, names).value_or(0);
    if (!m_command.hosts.empty() && which != 1)
        throw Error(ExitStatus::Usage, fmt::format("--hosts is for --on parallel, not {}", m_command.on));
    return which == 0   ? localRunner(m_command, m_job)
           : which == 1 ? parallelRunner(m_command, m_job)
                        : slurmRunner(m_command, m_job);
}

double Farming::shareWithout(const std::vector<unsigned>& missing) const {
    double done = 1.0;
    for (const unsigned part : missing) done -= m_job.parts[part - 1].share;
    return std::clamp(done, 0.0, 1.0);
}

// Looks at the folder for a tenth of the time at most, however slow its file system is.
void Farming::tell(bool atOnce) {
    if (!atOnce && m_clock.seconds() - m_looked < m_pause) return;
    m_looked = m_clock.seconds();
    const std::vector<unsigned> missing = partsWithoutResult(m_job);
    m_pause = std::max(0.2, 10.0 * (m_clock.seconds() - m_looked));
    const std::size_t all = m_job.parts.size(), finished = all - missing.size();
    const std::string what = fmt::format("{} of {} parts", finished, all);
    m_progress.update(shareWithout(missing), what);
    m_looked = m_clock.seconds();
    if (finished * 10 / all == m_said * 10 / all) return;  // a tenth of them more
    m_said = finished;
    m_progress.note(what + " are done");
}

// False where somebody wishes to stop.
bool Farming::round(PartRunner& runner, const std::vector<unsigned>& parts) {
    runner.begin(parts);
    while (runner.atWork()) {
        if (stopWanted()) {
            runner.stop();
            return false;
        }
        tell(false);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    tell(true);
    m_progress.clear();  // warnings may follow
    return true;
}

// What has failed is said, and not tried again.
std::vector<unsigned> Farming::lostBy(const PartRunner& runner) const {
    const std::vector<unsigned> missing = partsWithoutResult(m_job), all = runner.ended();
    const std::set<unsigned> ended(all.begin(), all.end());
    std::vector<unsigned> failed, lost;
    for (const unsigned part : missing) (ended.contains(part) ? failed : lost).push_back(part);
    if (!failed.empty() && !runner.log().empty())
        std::cerr << printable(fmt::format("oxbeam: warning: failed: {}; see '{}': {}", partsText(failed),
                                           runner.log().string(), lastLineOf(runner.log())))
                  << '\n';
    return lost;
}

Unmerged Farming::merge(const PartRunner& runner) const {
    if (runner.mergeStatus() == 0) return {};
    return tryMerge(m_command.merge);
}

// What a runner loses, as tasks that are cancelled, is begun again, and so is what turns out to be of no use.
ExitStatus Farming::run() {
    const std::unique_ptr<PartRunner> parts = runner();
    std::vector<unsigned> todo = partsWithoutResult(m_job);
    m_said = m_job.parts.size() - todo.size();
    if (m_said > 0) m_progress.step(fmt::format("{} of {} parts were done before", m_said, m_job.parts.size()));
    m_progress.begin(shareWithout(todo));
    for (unsigned left = m_command.retries;; --left) {
        if (!todo.empty() && !round(*parts, todo)) return stoppedStatus();
        todo = lostBy(*parts);
        if (!todo.empty() && left > 0) {
            m_progress.note("still missing: " + partsText(todo));
            continue;
        }
        const Unmerged unmerged = merge(*parts);
        if (unmerged.status == ExitStatus::Done || unmerged.useless.empty() || left == 0) return unmerged.status;
        todo = unmerged.useless;
        m_progress.note("to be rendered again: " + partsText(todo));
    }
}

}  // namespace

ExitStatus runFarm(const FarmCommand& command) {
    stopOnSignals();
    checkMergeOutput(command.merge);
    const WorthWaitingFor parts;
    return Farming(command).run();
}

}  // namespace oxbeam
