// Parts by GNU parallel: on this machine, and on others by ssh.
#include "Apps/oxbeam/ChildProcess.h"
#include "Apps/oxbeam/Farm.h"
#include "Apps/oxbeam/Metadata.h"
#include "Apps/oxbeam/PartRunner.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/System/StoredFile.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

class ParallelRunner : public PartRunner {
public:
    ParallelRunner(const FarmCommand& command, const Job& job)
        : m_command(command), m_job(job),
          m_program(programOnPath("parallel", "GNU parallel, Debian's package 'parallel',")),
          m_log(job.work() / "parallel.log") {
        if (!answerOf(m_program, {"--version"}, m_log).text.starts_with("GNU parallel"))
            throw Error(ExitStatus::InputOutput,
                        fmt::format("'{}' is not GNU parallel, but another program of that name", m_program.string()));
    }

    void begin(const std::vector<unsigned>& parts) override;
    bool atWork() override { return m_process && !m_process->ended(); }
    void stop() override;

private:
    const FarmCommand& m_command;
    const Job& m_job;
    fs::path m_program, m_log;
    std::optional<ChildProcess> m_process;
};

// Commands are handed over as texts for a shell, which nothing else is done to, with an end that no path can contain.
void ParallelRunner::begin(const std::vector<unsigned>& parts) {
    const unsigned jobs = m_command.jobs.value_or(1);
    std::optional<unsigned> threads = m_command.threads;
    if (!threads && jobs > 1 && m_command.hosts.empty()) threads = std::max(1u, threadBudget().rendering / jobs);
    std::string commands;
    for (const unsigned part : parts) {
        std::vector<std::string> words = partWords(m_command, m_job, std::to_string(part), threads);
        words.insert(words.begin(), thisProgram());
        commands += shellText(words) + '\0';
    }
    const fs::path list = m_job.work() / "parallel.commands";
    storeFile(list, commands);
    std::vector<std::string> words = {"--null",
                                      "--arg-file",
                                      list,
                                      "--jobs",
                                      std::to_string(jobs),
                                      "--retries",
                                      std::to_string(m_command.retries + 1),
                                      "--joblog",
                                      m_job.work() / "parallel.jobs"};
    if (m_command.timeLimit) words.insert(words.end(), {"--timeout", std::to_string(*m_command.timeLimit)});
    if (!m_command.hosts.empty()) words.insert(words.end(), {"--sshlogin", m_command.hosts});
    m_process.emplace(m_program, words, m_log);
}

// At the first signal it begins no more parts, at the second it has those at work end.
void ParallelRunner::stop() {
    for (int i = 0; i < 2; ++i) m_process->signal(SIGTERM);
    m_process->wait();
}

}  // namespace

std::unique_ptr<PartRunner> parallelRunner(const FarmCommand& command, const Job& job) {
    return std::make_unique<ParallelRunner>(command, job);
}

}  // namespace oxbeam
