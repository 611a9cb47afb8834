// `oxbeam farm`: all parts of a picture on one machine or many, and the picture.
#pragma once

#include "Apps/oxbeam/Merge.h"

namespace oxbeam {

struct FarmCommand {
    MergeCommand merge;
    std::vector<std::string> packagePaths;
    std::string on = "local";
    unsigned retries = 3;
    std::string hosts;             // as GNU parallel takes them, or nothing for this machine
    std::optional<unsigned> jobs;  // parts at a time, on each machine; of Slurm, on all of them
    std::optional<unsigned> threads;
    std::optional<unsigned> timeLimit;  // seconds, of a try
    std::string memoryLimit;            // of each process, or nothing
};

void addFarm(CLI::App& app, FarmCommand& command);
ExitStatus runFarm(const FarmCommand& command);

}  // namespace oxbeam
