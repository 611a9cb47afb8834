#include "Apps/oxbeam/Doctor.h"

#include "Apps/oxbeam/Versions.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Packages/Registry.h"
#include "Engine/Scene/SceneGeometry.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/System/System.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <iostream>

namespace oxbeam {

namespace fs = std::filesystem;

// Columns of a name and what there is to say of it.
static void line(const std::string& name, const std::string& text) {
    std::cout << fmt::format("  {:<16}{}\n", name, text);
}

static void reportVersions() {
    std::cout << "versions\n";
    line("oxbeam", OXBEAM_VERSION);
    for (const LibraryVersion& library : libraryVersions()) line(library.name, library.version);
}

static void reportPackages(const std::vector<fs::path>& folders, const Registry& registry) {
    std::cout << "\npackages are looked for in\n";
    for (const fs::path& folder : folders)
        std::cout << fmt::format("  {}{}\n", folder.string(), fs::is_directory(folder) ? "" : " (does not exist)");
    std::cout << "\npackages\n";
    for (const fs::path& package : registry.packages()) {
        std::vector<std::string> names;
        for (const ObjectClass* object : registry.all())
            if (object->package == package) names.push_back(object->name);
        std::cout << fmt::format("  {}\n    {} objects: {}\n", package.string(), names.size(), fmt::join(names, ", "));
    }
    for (const BrokenPackage& package : registry.broken())
        std::cout << printable(fmt::format("  {}\n    broken: {}\n", package.path.string(), package.why));
    if (registry.packages().empty() && registry.broken().empty()) std::cout << "  none\n";
}

static void reportReaders() {
    std::cout << "\nreaders of models and pictures\n";
    for (const char* program : {ModelProgram, PictureProgram}) {
        const ImportReport reader = importReport(program);
        std::cout << fmt::format("  {}\n", program);
        for (const std::string& text : reader.confinement) std::cout << fmt::format("    {}\n", text);
        if (reader.confinement.empty()) std::cout << fmt::format("    {}\n", reader.version);  // why there is none
    }
}

static void reportProcessor() {
    const Processor cpu = processor();
    std::cout << "\nprocessor\n";
    line("model", cpu.model.empty() ? "unknown" : cpu.model);
    line("instructions", fmt::format("{}", fmt::join(cpu.isas, ", ")));
    line("traced with", SceneGeometry::defaultIsa() + ", unless --isa says otherwise");
}

static void reportThreads() {
    const ThreadBudget threads = threadBudget();
    std::cout << "\nthreads\n";
    line("hardware", std::to_string(threads.hardware));
    line("affinity", std::to_string(threads.affinity));
    line("quota", threads.quota ? fmt::format("{:g} (cpu.max)", *threads.quota) : "none (cpu.max)");
    line("rendering", fmt::format("{}, unless --threads says otherwise", threads.rendering));
}

static void reportMemory() {
    const MachineMemory memory = machineMemory();
    const MemoryLimit limit = memoryLimit();
    const auto text = [](const std::optional<std::uint64_t>& bytes) { return bytes ? memoryText(*bytes) : "none"; };
    std::cout << "\nmemory\n";
    line("machine", fmt::format("{}, {} available", memoryText(memory.physical), memoryText(memory.available)));
    line("control group", fmt::format("{} (memory.max, memory.limit_in_bytes)", text(memory.group)));
    line("address space", fmt::format("{} (ulimit -v)", text(memory.addresses)));
    line("limit", limit.chosen ? fmt::format("{}, by --memory-limit", text(limit.bytes))
                               : fmt::format("{}, {}% of the least of these, unless --memory-limit says otherwise",
                                             text(limit.bytes), MemorySharePercent));
}

ExitStatus runDoctor(const std::vector<fs::path>& packageFolders, const Registry& registry) {
    reportVersions();
    reportPackages(packageFolders, registry);
    reportProcessor();
    reportThreads();
    reportMemory();
    reportReaders();
    return registry.broken().empty() ? ExitStatus::Done : ExitStatus::BadPackage;
}

}  // namespace oxbeam
