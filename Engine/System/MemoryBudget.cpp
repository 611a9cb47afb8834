#include "Engine/System/MemoryBudget.h"

#include "Engine/Diagnostics/Error.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <numeric>
#include <utility>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- The machine

// "MemTotal:       24683520 kB"
static std::uint64_t memoryInfo(const std::string& name) {
    std::ifstream file("/proc/meminfo");
    std::uint64_t kibibytes = 0;
    for (std::string word; file >> word;)
        if (word == name && file >> kibibytes) return kibibytes * 1024;
    return 0;
}

static void lower(std::optional<std::uint64_t>& limit, const fs::path& file) {
    std::uint64_t bytes = 0;
    if (std::ifstream stream(file); stream >> bytes) limit = std::min(limit.value_or(bytes), bytes);
}

// The limits of a group hold for the groups within it. Within a container the file system shows its own group as the
// root, whatever it is called outside.
static void lowerByGroups(std::optional<std::uint64_t>& limit, const fs::path& root, fs::path group, const char* name) {
    lower(limit, root / name);
    for (; group.has_relative_path(); group = group.parent_path()) lower(limit, root / group.relative_path() / name);
}

// Lines of "0::/group" for version 2 and "4:memory:/group" for version 1; "max" and 2^63 rounded to pages: no limit.
static std::optional<std::uint64_t> groupLimit() {
    std::optional<std::uint64_t> limit;
    std::ifstream file("/proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        const auto first = line.find(':'), second = line.find(':', first + 1);
        if (second == std::string::npos) continue;
        const std::string controllers = ',' + line.substr(first + 1, second - first - 1) + ',';
        const fs::path group = line.substr(second + 1);
        if (controllers == ",,")
            lowerByGroups(limit, "/sys/fs/cgroup", group, "memory.max");
        else if (controllers.find(",memory,") != std::string::npos)
            lowerByGroups(limit, "/sys/fs/cgroup/memory", group, "memory.limit_in_bytes");
    }
    constexpr std::uint64_t none = std::uint64_t{1} << 62;
    return limit && *limit < none ? limit : std::nullopt;
}

MachineMemory machineMemory() {
    MachineMemory memory{memoryInfo("MemTotal:"), memoryInfo("MemAvailable:"), groupLimit(), std::nullopt};
    if (rlimit limit{}; getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
        memory.addresses = limit.rlim_cur;
    return memory;
}

std::uint64_t MachineMemory::granted() const {
    const std::uint64_t least = std::min(group.value_or(physical), addresses.value_or(physical));
    return physical == 0 ? least : std::min(physical, least);
}

// ---- The limit

namespace {

constexpr std::array<const char*, 5> UseNames = {"models as they are read", "meshes", "textures",
                                                 "the structure that rays are traced through", "the picture"};

struct Budget {
    std::mutex mutex;
    std::optional<MemoryLimit> limit;
    std::array<std::uint64_t, UseNames.size()> taken{};

    const MemoryLimit& limitInForce() {
        if (!limit) {
            const std::uint64_t granted = machineMemory().granted();
            limit.emplace();
            if (granted > 0) limit->bytes = granted / 100 * MemorySharePercent;
        }
        return *limit;
    }
    std::uint64_t total() const { return std::accumulate(taken.begin(), taken.end(), std::uint64_t{0}); }
    std::string list() const;
    std::string refusal(std::uint64_t bytes, std::string_view what) const;
};

std::string Budget::list() const {
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < taken.size(); ++i)
        if (taken[i] > 0) parts.push_back(fmt::format("{} {}", UseNames[i], memoryText(taken[i])));
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string Budget::refusal(std::uint64_t bytes, std::string_view what) const {
    const std::string already =
        total() == 0 ? "" : fmt::format(" beside {} that are taken ({})", memoryText(total()), list());
    const std::string share = limit->chosen ? "" : fmt::format(", {}% of the memory that there is", MemorySharePercent);
    return fmt::format("not enough memory: {} takes {}{}; the limit is {}{}; --memory-limit sets another", what,
                       memoryText(bytes), already, memoryText(limit->bytes.value_or(0)), share);
}

Budget& budget() {
    static auto& one = *new Budget;  // for charges that end after the statics do
    return one;
}

}  // namespace

MemoryLimit memoryLimit() {
    const std::scoped_lock lock(budget().mutex);
    return budget().limitInForce();
}

void setMemoryLimit(std::optional<std::uint64_t> bytes) {
    const std::scoped_lock lock(budget().mutex);
    budget().limit = MemoryLimit{bytes, true};
}

std::uint64_t memoryTaken(MemoryUse use) {
    const std::scoped_lock lock(budget().mutex);
    return budget().taken[static_cast<std::size_t>(use)];
}

// ---- Charges

MemoryCharge::MemoryCharge(MemoryUse use, std::uint64_t bytes, std::string_view what) : m_use(use), m_bytes(bytes) {
    Budget& b = budget();
    const std::scoped_lock lock(b.mutex);
    const auto& most = b.limitInForce().bytes;
    const std::uint64_t total = b.total();
    if (most && (total > *most || bytes > *most - total)) throw Error(ExitStatus::InputOutput, b.refusal(bytes, what));
    b.taken[static_cast<std::size_t>(use)] += bytes;
}

MemoryCharge::MemoryCharge(MemoryCharge&& other) noexcept
    : m_use(other.m_use), m_bytes(std::exchange(other.m_bytes, 0)) {}

MemoryCharge& MemoryCharge::operator=(MemoryCharge&& other) noexcept {
    std::swap(m_use, other.m_use);
    std::swap(m_bytes, other.m_bytes);
    other.shrinkTo(0);
    return *this;
}

MemoryCharge::~MemoryCharge() { shrinkTo(0); }

void MemoryCharge::add(MemoryCharge more) noexcept {
    if (m_bytes == 0) m_use = more.m_use;
    m_bytes += std::exchange(more.m_bytes, 0);
}

void MemoryCharge::shrinkTo(std::uint64_t bytes) noexcept {
    if (bytes >= m_bytes) return;
    const std::scoped_lock lock(budget().mutex);
    budget().taken[static_cast<std::size_t>(m_use)] -= m_bytes - bytes;
    m_bytes = bytes;
}

std::string memoryText(std::uint64_t bytes) {
    constexpr std::array units = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; value >= 1024.0 && unit + 1 < units.size(); ++unit) value /= 1024.0;
    return fmt::format("{:.{}f} {}", value, unit > 0 && value < 9.95 ? 1 : 0, units[unit]);
}

}  // namespace oxbeam
