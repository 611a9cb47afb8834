// Parts by GNU parallel: on this machine, and on others by ssh.
#include "Apps/oxbeam/ChildProcess.h"
#include "Apps/oxbeam/Farm.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/PartRunner.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Stopwatch.h"
#include "Engine/System/StoredFile.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

class ParallelRunner : public PartRunner {
public:
    ParallelRunner(const FarmCommand& command, const Job& job)
        : m_command(command), m_job(job),
          m_program(requireProgram("parallel", "GNU parallel, Debian's package 'parallel',")),
          m_log(job.work() / "parallel.log") {
        if (!answerOf(m_program, {"--version"}, m_log).text.starts_with("GNU parallel"))
            throw Error(ExitStatus::InputOutput,
                        fmt::format("'{}' is not GNU parallel, but another program of that name", m_program.string()));
    }

    void begin(const std::vector<unsigned>& parts) override;
    bool atWork() override { return m_process && !m_process->ended(); }
    void stop() override;
    std::vector<unsigned> ended() const override;
    fs::path log() const override { return m_log; }

private:
    fs::path jobs() const { return m_job.work() / "parallel.jobs"; }

    const FarmCommand& m_command;
    const Job& m_job;
    fs::path m_program, m_log;
    std::vector<unsigned> m_parts;
    std::optional<ChildProcess> m_process;
};

// Commands are handed over as texts for a shell, which nothing else is done to, with an end that no path can contain.
void ParallelRunner::begin(const std::vector<unsigned>& parts) {
    const unsigned atOnce = m_command.jobs.value_or(1);
    std::optional<unsigned> threads = m_command.threads;
    if (!threads && atOnce > 1 && m_command.hosts.empty()) threads = std::max(1u, threadBudget().rendering / atOnce);
    std::string commands;
    m_parts = parts;
    std::error_code none;
    fs::remove(jobs(), none);
    for (const unsigned part : parts) {
        std::vector<std::string> words = partWords(m_command, m_job, std::to_string(part), threads);
        words.insert(words.begin(), thisProgram());
        commands += shellText(words) + '\0';
    }
    const fs::path list = m_job.work() / "parallel.commands";
    storeFile(list, commands);
    std::vector<std::string> words = {"--null", "--arg-file", list, "--jobs", std::to_string(atOnce), "--retries",
                                      std::to_string(m_command.retries + 1), "--joblog", jobs(),
                                      "--line-buffer",  // so that the log says what is going on
                                      // One that was stopped has to go on to be able to save.
                                      "--termseq", fmt::format("TERM,0,CONT,{},KILL,25", 1000 * SavingSeconds)};
    if (m_command.timeLimit) words.insert(words.end(), {"--timeout", std::to_string(*m_command.timeLimit)});
    if (!m_command.hosts.empty()) words.insert(words.end(), {"--sshlogin", m_command.hosts});
    m_process.emplace(m_program, words, m_log);
}

// It begins no more parts, and has those at work end. While it starts it minds neither signal; when it does, the same once
// more would have the parts end without saving.
void ParallelRunner::stop() {
    while (atWork()) {
        m_process->signal(SIGHUP);
        m_process->signal(SIGTERM);
        for (const Stopwatch asked; atWork() && asked.seconds() < 2 * SavingSeconds;) usleep(10'000);
    }
}

// Its list of those that have ended, by their places in what it was given, after a line of titles.
std::vector<unsigned> ParallelRunner::ended() const {
    std::vector<unsigned> parts;
    std::ifstream stream(jobs());
    for (std::string line; std::getline(stream, line);)
        if (const auto place = std::strtoul(line.c_str(), nullptr, 10); place >= 1 && place <= m_parts.size())
            parts.push_back(m_parts[place - 1]);
    return parts;
}

}  // namespace

std::unique_ptr<PartRunner> parallelRunner(const FarmCommand& command, const Job& job) {
    return std::make_unique<ParallelRunner>(command, job);
}

}  // namespace oxbeam
