#include "Engine/System/System.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/Workers.h"
#include "Oxbeam/OxRenderingObject.h"

#include <dlfcn.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>
#include <thread>

namespace oxbeam {

namespace fs = std::filesystem;

fs::path programOnPath(const std::string& name) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path ? path : "");
    std::error_code problem;
    for (std::string folder; std::getline(folders, folder, ':');)
        if (fs::path file = fs::path(folder) / name;
            folder.starts_with('/') && access(file.c_str(), X_OK) == 0 && fs::is_regular_file(file, problem))
            return file;
    return {};
}

Processor processor() {
    Processor found;
    std::ifstream file("/proc/cpuinfo");
    for (std::string line; found.model.empty() && std::getline(file, line);)
        if (const auto colon = line.find(": "); line.starts_with("model name") && colon != std::string::npos)
            found.model = line.substr(colon + 2);
    const auto has = [&](bool supported, const char* isa) {
        if (supported) found.isas.emplace_back(isa);
    };
    has(__builtin_cpu_supports("sse2"), "sse2");
    has(__builtin_cpu_supports("sse4.2"), "sse4.2");
    has(__builtin_cpu_supports("avx"), "avx");
    has(__builtin_cpu_supports("avx2"), "avx2");
    has(__builtin_cpu_supports("avx512f"), "avx512");
    return found;
}

std::filesystem::path engineLibrary() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&engineLibrary), &info) == 0 || !info.dli_fname)
        throw Error(ExitStatus::InputOutput, "cannot find out where the library is");
    return std::filesystem::weakly_canonical(info.dli_fname);
}

ThreadBudget threadBudget() {
    cpu_set_t set;
    ThreadBudget budget;
    budget.hardware = std::max(1u, std::thread::hardware_concurrency());
    budget.affinity =
        sched_getaffinity(0, sizeof set, &set) == 0 ? static_cast<unsigned>(CPU_COUNT(&set)) : budget.hardware;
    budget.quota = processorQuota();
    budget.rendering = std::min(availableThreads(), OxRenderingObject::MaxThreads);
    return budget;
}

}  // namespace oxbeam
