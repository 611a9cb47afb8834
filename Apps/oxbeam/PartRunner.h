// What has parts rendered somewhere: on this machine, by GNU parallel, or by Slurm.
#pragma once

#include "Apps/oxbeam/Job.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

struct FarmCommand;

// In which a part that is asked to end saves what it has; then it is killed.
inline constexpr unsigned SavingSeconds = 10;

class PartRunner {
public:
    virtual ~PartRunner() = default;
    // Has these parts rendered, each tried again where it fails; none before may still be at work.
    virtual void begin(const std::vector<unsigned>& parts) = 0;
    // To be called a few times a second: looks after them. False: all have ended, in one way or another.
    virtual bool atWork() = 0;
    // Ends them, after they have saved what they have; returns when that is so.
    virtual void stop() = 0;
    // Parts that have been tried to the end: done, or as often as they may be, or where no other try would help. What is
    // neither there nor among these was lost.
    virtual std::vector<unsigned> ended() const = 0;
    // What tells why some of those are not done; nothing where that was said.
    virtual std::filesystem::path log() const { return {}; }
    // How a merge ended that was done along with the parts; nothing where there is none.
    virtual std::optional<int> mergeStatus() const { return std::nullopt; }
};

std::unique_ptr<PartRunner> localRunner(const FarmCommand& command, const Job& job);
std::unique_ptr<PartRunner> parallelRunner(const FarmCommand& command, const Job& job);
std::unique_ptr<PartRunner> slurmRunner(const FarmCommand& command, const Job& job);

// The command line that renders a part, as words after the program's name. `threads` of none: every processor.
std::vector<std::string> partWords(const FarmCommand& command, const Job& job, const std::string& part,
                                   const std::optional<unsigned>& threads);

}  // namespace oxbeam
