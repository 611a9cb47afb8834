// Work on large arrays, shared out among threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace oxbeam {

inline constexpr std::size_t ChunkSize = std::size_t{1} << 16;

inline std::size_t chunkCount(std::size_t count) { return (count + ChunkSize - 1) / ChunkSize; }

// Calls use(chunk, begin, end) for all of 0 to `count`, chunk by chunk; small counts by the calling thread alone. What
// the chunks are does not depend on how many threads there are. Throws what the first of them throws.
template <class Use>
void inChunks(std::size_t count, Use use) {
    const std::size_t chunks = chunkCount(count);
    std::atomic<std::size_t> next = 0;
    std::exception_ptr problem;
    std::mutex problemMutex;
    const auto work = [&] {
        try {
            for (std::size_t chunk; (chunk = next++) < chunks;)
                use(chunk, chunk * ChunkSize, std::min(count, (chunk + 1) * ChunkSize));
        } catch (...) {
            const std::lock_guard lock(problemMutex);
            problem = std::current_exception();
            next = chunks;
        }
    };
    constexpr std::size_t most = 8;  // each takes addresses, of which this process has few
    const std::size_t threads = std::min({most, std::size_t{std::thread::hardware_concurrency()}, chunks});
    std::vector<std::jthread> others;
    try {
        others.reserve(threads);
        while (others.size() + 1 < threads) others.emplace_back(work);
    } catch (const std::system_error&) {
        // Then those that there are do it all.
    }
    work();
    others.clear();
    if (problem) std::rethrow_exception(problem);
}

}  // namespace oxbeam
