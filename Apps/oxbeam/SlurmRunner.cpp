// Parts as tasks of Slurm's array jobs, and a job that merges them.
#include "Apps/oxbeam/ChildProcess.h"
#include "Apps/oxbeam/Farm.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/PartRunner.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Hash.h"
#include "Engine/System/Stopwatch.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

constexpr const char* From = "Slurm, Debian's package 'slurm-client',";

// What a scheduler does with a task that is lost, as one whose node goes down, is begun again by who farms; what a part
// ends with, the task deals with itself. Files bear the jobs' name: of a farm that was killed, some may still be at work.
class SlurmRunner : public PartRunner {
public:
    SlurmRunner(const FarmCommand& command, const Job& job)
        : m_command(command), m_job(job), m_submit(requireProgram("sbatch", From)),
          m_queue(requireProgram("squeue", From)), m_cancel(requireProgram("scancel", From)),
          m_control(requireProgram("scontrol", From)), m_log(job.work() / "slurm.log"),
          m_name(fmt::format("oxbeam-{:08x}-{}", static_cast<std::uint32_t>(hashOf(job.folder.string())), getpid())) {}
    ~SlurmRunner() override;
    SlurmRunner(const SlurmRunner&) = delete;
    SlurmRunner& operator=(const SlurmRunner&) = delete;

    void begin(const std::vector<unsigned>& parts) override;
    bool atWork() override;
    void stop() override;
    std::vector<unsigned> ended() const override;
    fs::path log() const override { return m_log; }
    std::optional<int> mergeStatus() const override;

private:
    std::string submit(const std::vector<std::string>& words) const;
    std::vector<std::string> common() const;
    std::size_t longestArray() const;
    void writeScripts(const std::vector<unsigned>& parts) const;
    fs::path file(const char* name) const { return m_job.work() / fmt::format("{}.{}", m_name, name); }

    const FarmCommand& m_command;
    const Job& m_job;
    fs::path m_submit, m_queue, m_cancel, m_control, m_log;
    std::string m_name;  // of the jobs
    Stopwatch m_looked;
    bool m_atWork = false;
};

constexpr std::array Files = {"task", "merge", "parts", "ended", "merged"};

// Nothing is left in the queue, whatever went wrong.
SlurmRunner::~SlurmRunner() {
    std::error_code none;
    try {
        if (m_atWork) answerOf(m_cancel, {"--name=" + m_name}, m_log);
        for (const char* name : Files) fs::remove(file(name), none);
    } catch (const std::exception&) {  // there is no more to be done
    }
}

// Its number; throws Error(InputOutput) where the scheduler does not take it.
std::string SlurmRunner::submit(const std::vector<std::string>& words) const {
    const Answer answer = answerOf(m_submit, words, m_log);
    if (answer.status != 0)
        throw Error(ExitStatus::InputOutput, fmt::format("sbatch ended with status {}; see '{}': {}", answer.status,
                                                         m_log.string(), lastLineOf(m_log)));
    return answer.text.substr(0, answer.text.find_first_of(";\n"));
}

// Numbers of tasks stay below this, which a site sets.
std::size_t SlurmRunner::longestArray() const {
    constexpr std::string_view name = "MaxArraySize";
    const std::string text = answerOf(m_control, {"show", "config"}, m_log).text;
    const auto found = text.find(name), value = text.find_first_of("0123456789", found);
    if (found == text.npos || value == text.npos) return 1000;
    return std::max<std::size_t>(2, std::stoul(text.substr(value, 9))) - 1;
}

static const char* const TaskScript = R"(#!/bin/sh
# A task of an array: one part, tried until it is done. $1: tasks of the arrays before.
part=$(sed -n "$(($1 + SLURM_ARRAY_TASK_ID))p" {list})
try=0
while :; do
    {limit}{part} "$part"{options}
    status=$?
    [ $status -eq 0 ] && exit 0
    # What is wrong with the scene or a package is so at every try.
    [ $status -ge 2 ] && [ $status -le 4 ] && break
    [ $((try += 1)) -gt {retries} ] && break
done
echo "$part" >>{ended}
exit $status
)";

static const char* const MergeScript = R"(#!/bin/sh
{merge}
echo $? >{status}
)";

void SlurmRunner::writeScripts(const std::vector<unsigned>& parts) const {
    std::vector<std::string> words = partWords(m_command, m_job, "", m_command.threads);
    const auto number = std::ranges::find(words, std::string());
    const std::vector<std::string> after(number + 1, words.end());
    words.erase(number, words.end());
    words.insert(words.begin(), thisProgram());
    const std::string limit =
        m_command.timeLimit ? fmt::format("timeout --kill-after={} {} ", SavingSeconds, *m_command.timeLimit) : "";
    storeFile(file("task"),
              fmt::format(fmt::runtime(std::string(TaskScript)), fmt::arg("list", shellText({file("parts")})),
                          fmt::arg("limit", limit), fmt::arg("part", shellText(words)),
                          fmt::arg("options", after.empty() ? "" : ' ' + shellText(after)),
                          fmt::arg("retries", m_command.retries), fmt::arg("ended", shellText({file("ended")}))));
    const MergeCommand& m = m_command.merge;
    std::vector<std::string> merge = {thisProgram(), "merge", m_job.folder, "-o", fs::absolute(m.output)};
    if (!m.stats.empty()) merge.insert(merge.end(), {"--stats", fs::absolute(m.stats)});
    if (m.force) merge.push_back("--force");
    if (!m_command.memoryLimit.empty()) merge.insert(merge.end(), {"--memory-limit", m_command.memoryLimit});
    storeFile(file("merge"), fmt::format(fmt::runtime(std::string(MergeScript)), fmt::arg("merge", shellText(merge)),
                                         fmt::arg("status", shellText({file("merged")}))));
    storeFile(file("parts"), fmt::format("{}\n", fmt::join(parts, "\n")));
}

// A file's name where % stands for something, unless there is a backslash in it, which then does.
static std::string pattern(const fs::path& file) {
    const char mark = file.string().find('\\') == std::string::npos ? '%' : '\\';
    std::string text;
    for (const char c : file.string()) text.append(c == mark ? 2 : 1, c);
    return text;
}

std::vector<std::string> SlurmRunner::common() const {
    return {"--parsable", "--job-name=" + m_name, "--open-mode=append", "--chdir=/", "--output=" + pattern(m_log)};
}

void SlurmRunner::begin(const std::vector<unsigned>& parts) {
    std::error_code none;
    for (const char* name : {"ended", "merged"}) fs::remove(file(name), none);
    writeScripts(parts);
    std::vector<std::string> arrays;
    const std::size_t longest = longestArray();
    for (std::size_t first = 0; first < parts.size(); first += longest) {
        std::vector<std::string> words = common();
        const std::string most = m_command.jobs ? fmt::format("%{}", *m_command.jobs) : "";
        words.push_back(fmt::format("--array=1-{}{}", std::min(longest, parts.size() - first), most));
        // A part has a machine to itself unless it is said how many threads it is to have.
        words.push_back(m_command.threads ? fmt::format("--cpus-per-task={}", *m_command.threads) : "--exclusive");
        words.insert(words.end(), {file("task"), std::to_string(first)});
        arrays.push_back(submit(words));
        m_atWork = true;
    }
    std::vector<std::string> words = common();
    words.insert(words.end(), {fmt::format("--dependency=afterany:{}", fmt::join(arrays, ":")), file("merge")});
    submit(words);
    m_looked = Stopwatch();
}

// A scheduler that does not answer is asked again.
bool SlurmRunner::atWork() {
    if (!m_atWork || m_looked.seconds() < 1.0) return m_atWork;
    const Answer queue = answerOf(m_queue, {"--noheader", "--name=" + m_name, "--format=%i"}, m_log);
    m_looked = Stopwatch();
    if (queue.status == 0 && queue.text.find_first_of("0123456789") == queue.text.npos) m_atWork = false;
    return m_atWork;
}

void SlurmRunner::stop() {
    answerOf(m_cancel, {"--name=" + m_name}, m_log);
    while (atWork()) usleep(100'000);
}

// Without those that are done.
std::vector<unsigned> SlurmRunner::ended() const {
    std::ifstream stream(file("ended"));
    return {std::istream_iterator<unsigned>(stream), {}};
}

std::optional<int> SlurmRunner::mergeStatus() const {
    std::ifstream stream(file("merged"));
    int status = 0;
    return stream >> status ? std::optional(status) : std::nullopt;
}

}  // namespace

std::unique_ptr<PartRunner> slurmRunner(const FarmCommand& command, const Job& job) {
    return std::make_unique<SlurmRunner>(command, job);
}

}  // namespace oxbeam
