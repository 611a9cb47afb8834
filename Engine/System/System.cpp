#include "Engine/System/System.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Render/Workers.h"
#include "Oxbeam/OxRenderingObject.h"

#include <OpenImageIO/imageio.h>
#include <embree3/rtcore.h>
#include <fmt/format.h>
#include <oneapi/tbb/version.h>

#define TOML_HEADER_ONLY 0
#include <toml++/toml.h>

#include <dlfcn.h>
#include <sched.h>

#include <algorithm>
#include <fstream>
#include <thread>

namespace oxbeam {

static std::string dotted(unsigned major, unsigned minor, unsigned patch) {
    return fmt::format("{}.{}.{}", major, minor, patch);
}

static std::string embreeVersion() {
    RTCDevice device = rtcNewDevice("threads=1");
    const auto part = [&](RTCDeviceProperty property) {
        return static_cast<unsigned>(rtcGetDeviceProperty(device, property));
    };
    std::string version = dotted(part(RTC_DEVICE_PROPERTY_VERSION_MAJOR), part(RTC_DEVICE_PROPERTY_VERSION_MINOR),
                                 part(RTC_DEVICE_PROPERTY_VERSION_PATCH));
    rtcReleaseDevice(device);
    return version;
}

std::vector<LibraryVersion> libraryVersions() {
    const auto oiio = static_cast<unsigned>(OIIO::openimageio_version());
    return {{"Embree", embreeVersion()},
            {"oneTBB", TBB_runtime_version()},
            {"OpenImageIO", dotted(oiio / 10000, oiio / 100 % 100, oiio % 100)},
            {"Assimp", importReport(ModelProgram).version},
            {"toml++", dotted(TOML_LIB_MAJOR, TOML_LIB_MINOR, TOML_LIB_PATCH)}};
}

std::vector<ReaderReport> readerReports() {
    std::vector<ReaderReport> reports;
    for (const char* program : {ModelProgram, PictureProgram}) {
        const ImportReport said = importReport(program);
        reports.push_back({program, said.confinement.empty() ? std::vector{said.version} : said.confinement});
    }
    return reports;
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
