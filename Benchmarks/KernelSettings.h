// What the same bits on every processor cost, and what gives back how much.
#pragma once

#include "Benchmarks/Recording.h"
#include "Benchmarks/Timing.h"

namespace oxbeam::bench {

// Bare tracing of a frame's rays on one thread: by every instruction set from AVX on that this processor has, by robust
// and by fast traversal, with primary rays one by one and eight at a time. Medians of the times, taken in turn, and of
// their shares of the first's, which is how the engine asks for single rays. Every mesh of the scene must have been
// placed once.
Json kernelSettings(const ::Scene& scene, const Recording& recording, unsigned turns);

}  // namespace oxbeam::bench
