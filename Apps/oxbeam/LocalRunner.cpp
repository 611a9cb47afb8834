// Parts as processes of this machine.
#include "Apps/oxbeam/ChildProcess.h"
#include "Apps/oxbeam/Farm.h"
#include "Apps/oxbeam/PartRunner.h"
#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/System/Stopwatch.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <iostream>
#include <map>

namespace oxbeam {

namespace {

class LocalRunner : public PartRunner {
public:
    LocalRunner(const FarmCommand& command, const Job& job)
        : m_command(command), m_job(job), m_jobs(command.jobs.value_or(1)), m_threads(command.threads) {
        if (!m_threads && m_jobs > 1) m_threads = std::max(1u, threadBudget().rendering / m_jobs);
    }

    void begin(const std::vector<unsigned>& parts) override {
        m_waiting.assign(parts.begin(), parts.end());
        m_tries.clear();
        m_ended.clear();
    }
    bool atWork() override;
    void stop() override;
    std::vector<unsigned> ended() const override { return m_ended; }

private:
    struct Try {
        unsigned part;
        ChildProcess process;
        Stopwatch clock = {};
        bool asked = false;  // to end
    };

    std::vector<std::string> wordsOf(unsigned part) const;
    std::string log(unsigned part) const { return m_job.work() / fmt::format("{}.log", part); }
    void start(unsigned part);
    void end(unsigned part, int status);
    void limit(Try& one) const;

    const FarmCommand& m_command;
    const Job& m_job;
    unsigned m_jobs;
    std::optional<unsigned> m_threads;
    std::deque<unsigned> m_waiting;
    std::vector<Try> m_atWork;
    std::vector<unsigned> m_ended;
    std::map<unsigned, unsigned> m_tries;
};

// What a process may take by default is shared by those that are at work together.
std::vector<std::string> LocalRunner::wordsOf(unsigned part) const {
    std::vector<std::string> words = partWords(m_command, m_job, std::to_string(part), m_threads);
    const auto bytes = memoryLimit().bytes;
    if (m_jobs > 1 && m_command.memoryLimit.empty() && bytes)
        words.insert(words.end(), {"--memory-limit", std::to_string(*bytes / m_jobs)});
    return words;
}

void LocalRunner::start(unsigned part) {
    m_atWork.push_back({part, ChildProcess(thisProgram(), wordsOf(part), log(part))});
    ++m_tries[part];
}

// A wrong command line, scene or package is so at every try, and of every part.
void LocalRunner::end(unsigned part, int status) {
    if (status == 0) return m_ended.push_back(part);
    const bool hopeless = status >= 2 && status <= 4, again = !hopeless && m_tries[part] <= m_command.retries;
    std::cerr << printable(fmt::format("oxbeam: warning: part {} ended with status {}{}; see '{}': {}", part, status,
                                       again ? " and is tried again" : "", log(part), lastLineOf(log(part))))
              << '\n';
    if (again) return m_waiting.push_back(part);
    m_ended.push_back(part);
    if (!hopeless) return;
    m_ended.insert(m_ended.end(), m_waiting.begin(), m_waiting.end());
    m_waiting.clear();
}

// One that was stopped has to go on to be able to save.
void LocalRunner::limit(Try& one) const {
    if (!m_command.timeLimit || one.clock.seconds() < *m_command.timeLimit) return;
    if (one.clock.seconds() > *m_command.timeLimit + SavingSeconds) return one.process.signal(SIGKILL);
    if (one.asked) return;
    one.asked = true;
    one.process.signal(SIGTERM);
    one.process.signal(SIGCONT);
}

bool LocalRunner::atWork() {
    for (std::size_t i = 0; i < m_atWork.size();) {
        limit(m_atWork[i]);
        if (const auto status = m_atWork[i].process.ended()) {
            const unsigned part = m_atWork[i].part;
            m_atWork.erase(m_atWork.begin() + static_cast<std::ptrdiff_t>(i));
            end(part, *status);
        } else {
            ++i;
        }
    }
    for (; m_atWork.size() < m_jobs && !m_waiting.empty(); m_waiting.pop_front()) start(m_waiting.front());
    return !m_atWork.empty();
}

void LocalRunner::stop() {
    for (Try& one : m_atWork) one.process.signal(SIGTERM), one.process.signal(SIGCONT);
    for (Try& one : m_atWork) one.process.wait();
    m_atWork.clear();
    m_waiting.clear();
}

}  // namespace

std::unique_ptr<PartRunner> localRunner(const FarmCommand& command, const Job& job) {
    return std::make_unique<LocalRunner>(command, job);
}

}  // namespace oxbeam
