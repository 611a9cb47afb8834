#include "Engine/System/Workers.h"

#include <oneapi/tbb/version.h>

#include <pmmintrin.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <optional>

// oneTBB schedules; under the thread sanitizer, which cannot see through the stock library, plain threads do.
#ifdef OXBEAM_PLAIN_THREADS
#include <atomic>
#include <exception>
#include <mutex>
#include <sched.h>
#include <thread>
#include <vector>
#else
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/task_arena.h>
#endif

namespace oxbeam {

// Flushes denormals on the calling thread for a scope. Each item sets it for itself, whoever made its thread.
class FlushDenormals {
public:
    FlushDenormals() : m_saved(_mm_getcsr()) { _mm_setcsr(m_saved | _MM_FLUSH_ZERO_ON | _MM_DENORMALS_ZERO_ON); }
    ~FlushDenormals() { _mm_setcsr(m_saved); }
    FlushDenormals(const FlushDenormals&) = delete;
    FlushDenormals& operator=(const FlushDenormals&) = delete;

private:
    unsigned m_saved;
};

#ifdef OXBEAM_PLAIN_THREADS

struct Workers::Arena {
    unsigned threads;
};

Workers::Workers(unsigned threads) : m_arena(new Arena{threads}) {}

void Workers::run(unsigned items, const std::function<void(unsigned, unsigned)>& work) {
    std::atomic<unsigned> next{0};
    std::exception_ptr failure;
    std::mutex mutex;
    const auto loop = [&](unsigned thread) {
        const FlushDenormals flush;
        try {
            for (unsigned item; (item = next++) < items;) work(thread, item);
        } catch (...) {
            const std::scoped_lock lock(mutex);
            if (!failure) failure = std::current_exception();
            next = items;
        }
    };
    std::vector<std::jthread> others;
    for (unsigned thread = 1; thread < m_arena->threads; ++thread) others.emplace_back(loop, thread);
    loop(0);
    others.clear();
    if (failure) std::rethrow_exception(failure);
}

void Workers::within(const std::function<void()>& work) { work(); }

static unsigned processors() {
    cpu_set_t set;
    return sched_getaffinity(0, sizeof set, &set) == 0 ? static_cast<unsigned>(CPU_COUNT(&set)) : 1u;
}

#else

// The scheduler makes no more threads than there are processors unless it is told that more are wanted. Of several
// such words the smallest counts, so that none is said without need.
struct Workers::Arena {
    unsigned threads;
    std::optional<tbb::global_control> more;
    tbb::task_arena arena{static_cast<int>(threads)};

    explicit Arena(unsigned wanted) : threads(wanted) {
        if (wanted > static_cast<unsigned>(tbb::info::default_concurrency()))
            more.emplace(tbb::global_control::max_allowed_parallelism, wanted);
    }
};

Workers::Workers(unsigned threads) : m_arena(new Arena(threads)) {}

void Workers::run(unsigned items, const std::function<void(unsigned, unsigned)>& work) {
    m_arena->arena.execute([&] {
        tbb::parallel_for(
            0u, items,
            [&](unsigned item) {
                const FlushDenormals flush;
                work(static_cast<unsigned>(tbb::this_task_arena::current_thread_index()), item);
            },
            tbb::simple_partitioner());
    });
}

void Workers::within(const std::function<void()>& work) { m_arena->arena.execute(work); }

static unsigned processors() { return static_cast<unsigned>(tbb::info::default_concurrency()); }

#endif

Workers::~Workers() = default;

unsigned Workers::threads() const { return m_arena->threads; }

// "max 100000" or "150000 100000": microseconds granted of each period.
std::optional<double> processorQuota() {
    std::ifstream file("/sys/fs/cgroup/cpu.max");
    double granted = 0.0, period = 0.0;
    if (!(file >> granted >> period) || !(period > 0.0)) return std::nullopt;
    return granted / period;
}

// The scheduler sees the processors of the machine, not the share of them that a control group grants.
unsigned availableThreads() {
    const double share = std::ceil(std::max(1.0, processorQuota().value_or(1e6)));
    return std::max(1u, std::min(processors(), static_cast<unsigned>(std::min(share, 1e6))));
}

std::string schedulerVersion() { return TBB_runtime_version(); }

}  // namespace oxbeam
