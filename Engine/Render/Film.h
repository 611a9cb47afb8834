// The picture while it is being rendered.
#pragma once

#include "Engine/System/MemoryBudget.h"
#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <sys/mman.h>
#include <xmmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

namespace oxbeam {

// Part of the picture, in pixels; the second corner lies outside.
struct Window {
    unsigned x0 = 0, y0 = 0, x1 = 0, y1 = 0;

    unsigned width() const { return x1 - x0; }
    unsigned height() const { return y1 - y0; }
    std::size_t size() const { return std::size_t{width()} * height(); }
    bool contains(unsigned x, unsigned y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
    bool overlaps(const Window& w) const { return w.x0 < x1 && x0 < w.x1 && w.y0 < y1 && y0 < w.y1; }
    // The part that two windows share, where they overlap.
    Window shared(const Window& w) const {
        return {std::max(x0, w.x0), std::max(y0, w.y0), std::min(x1, w.x1), std::min(y1, w.y1)};
    }
};

// What a primary ray tells beside its colour; as it is here, of one that hits nothing.
struct AovSample {
    R3 normal, albedo;
    float depth = std::numeric_limits<float>::infinity();  // along the way that the camera looks
    unsigned object = 0;                                   // number of the instance, from 1
};

// Sums up samples, whose colours are finite. Each pixel belongs to one thread at a time. Sums that would leave what a
// float holds stay at its largest number; so they do when a rendering goes on from a checkpoint.
class OXBEAM_API Film {
public:
    struct Pixel {
        R3 sum;
        unsigned samples;
    };

    // Of at least one pixel. Throws Error(InputOutput) where that takes more memory than the limit allows, and
    // std::bad_alloc.
    explicit Film(const Window& window, bool withAovs = false, bool withAlpha = false)
        : m_window(window), m_memory(MemoryUse::Picture, bytes(window, withAovs, withAlpha), describe(window)),
          m_pixels(zeros<Pixel>()), m_aovs(withAovs ? zeros<AovSample>() : Array<AovSample>()),
          m_alphas(withAlpha ? zeros<float>() : Array<float>()) {}

    static std::uint64_t bytes(const Window& window, bool withAovs, bool withAlpha) {
        return window.size() * (sizeof(Pixel) + (withAovs ? sizeof(AovSample) : 0) + (withAlpha ? sizeof(float) : 0));
    }
    // "a picture of 640 x 480 pixels"
    static std::string describe(const Window& window) {
        return "a picture of " + std::to_string(window.width()) + " x " + std::to_string(window.height()) + " pixels";
    }

    // With memory of its own.
    Film copy() const {
        Film other(m_window, hasAovs(), hasAlpha());
        std::ranges::copy(sums(), other.m_pixels.get());
        std::ranges::copy(aovSums(), other.m_aovs.get());
        std::ranges::copy(alphaSums(), other.m_alphas.get());
        other.m_developed = m_developed;
        return other;
    }

    const Window& window() const { return m_window; }
    bool hasAovs() const { return m_aovs != nullptr; }
    bool hasAlpha() const { return m_alphas != nullptr; }
    // (x, y) in the full picture.
    void add(unsigned x, unsigned y, const R3& color) {
        Pixel& pixel = m_pixels[index(x, y)];
        addTo(pixel.sum, color);
        ++pixel.samples;
    }
    // Of a row of pixels from (x, y) on, which have as many samples as each other; before the colours of the same samples.
    // The first samples' depths and objects are kept. A normal or albedo that is not finite counts as zero.
    void addAovs(unsigned x, unsigned y, std::span<const AovSample> row) {
        const std::size_t first = index(x, y);
        const bool blank = m_pixels[first].samples == 0;
        AovSample* to = &m_aovs[first];
        for (const AovSample& sample : row) {
            if (allFinite(sample)) [[likely]]
                addTo(*to++, sample, blank);
            else
                addTo(*to++, mended(sample), blank);
        }
    }
    void addAlpha(unsigned x, unsigned y, float alpha) { m_alphas[index(x, y)] += alpha; }
    unsigned samplesAt(unsigned x, unsigned y) const { return m_pixels[index(x, y)].samples; }

    // Passes that all pixels have been through, and that any has.
    unsigned passes() const;
    unsigned begunPasses() const;
    // Pixels of which a sum did not fit a float.
    std::uint64_t overflowed() const;
    // Mean of each pixel's samples, row by row from the top; black where there is none.
    std::vector<R3> pixels() const {
        std::vector<R3> result(m_window.size());
        for (std::size_t i = 0; i < result.size(); ++i) result[i] = m_pixels[i].sum * share(i);
        return result;
    }
    // Mean of a pixel's alphas, in [0, 1]; of a film that keeps them.
    float alpha(std::size_t pixel) const { return std::clamp(m_alphas[pixel] * share(pixel), 0.0f, 1.0f); }
    // What a pixel's sums are multiplied by.
    float share(std::size_t pixel) const {
        if (m_developed) return 1.0f;
        const unsigned samples = m_pixels[pixel].samples;
        return samples ? 1.0f / static_cast<float>(samples) : 0.0f;
    }

    // Turns sums into what they mean, where they are: whoever looks at the memory finds the picture in it. Nothing is
    // added any more, and everything else is as before, to the last bit.
    void develop();

    // All that the film holds, row by row from the top; no AOVs and alphas where it keeps none.
    std::span<Pixel> sums() { return {m_pixels.get(), m_window.size()}; }
    std::span<const Pixel> sums() const { return {m_pixels.get(), m_window.size()}; }
    std::span<AovSample> aovSums() { return {m_aovs.get(), m_aovs ? m_window.size() : 0}; }
    std::span<const AovSample> aovSums() const { return {m_aovs.get(), m_aovs ? m_window.size() : 0}; }
    std::span<float> alphaSums() { return {m_alphas.get(), m_alphas ? m_window.size() : 0}; }
    std::span<const float> alphaSums() const { return {m_alphas.get(), m_alphas ? m_window.size() : 0}; }

private:
    static constexpr float Most = std::numeric_limits<float>::max();

    static void addTo(R3& sum, const R3& sample) {
        sum += sample;
        if (!IsFinite(sum)) [[unlikely]]
            sum = R3(std::clamp(sum.x, -Most, Most), std::clamp(sum.y, -Most, Most), std::clamp(sum.z, -Most, Most));
    }
    // Normal and albedo, of numbers that lie as they do in memory.
    static bool allFinite(const AovSample& sample) {
        const auto* from = reinterpret_cast<const float*>(&sample);
        const auto finite = [](__m128 v) {
            return _mm_cmple_ps(_mm_andnot_ps(_mm_set1_ps(-0.0f), v), _mm_set1_ps(Most));
        };
        const __m128 low = finite(_mm_loadu_ps(from)), high = finite(_mm_loadu_ps(from + 4));
        return _mm_movemask_ps(_mm_and_ps(low, _mm_movelh_ps(high, high))) == 15;
    }
    static AovSample mended(AovSample sample) {
        if (!IsFinite(sample.normal)) sample.normal = R3();
        if (!IsFinite(sample.albedo)) sample.albedo = R3();
        return sample;
    }
    static void addTo(AovSample& sum, const AovSample& sample, bool blank) {
        static_assert(offsetof(AovSample, depth) == 24 && sizeof(AovSample) == 32);
        const auto* from = reinterpret_cast<const float*>(&sample);
        auto* to = reinterpret_cast<float*>(&sum);
        const __m128 added = _mm_loadu_ps(from + 4), before = _mm_loadu_ps(to + 4);
        const __m128 kept = blank ? added : before;  // its upper half: depth and object
        _mm_storeu_ps(to, sumOf(_mm_loadu_ps(to), _mm_loadu_ps(from)));
        _mm_storeu_ps(to + 4, _mm_shuffle_ps(sumOf(before, added), kept, _MM_SHUFFLE(3, 2, 1, 0)));
    }
    static __m128 sumOf(__m128 a, __m128 b) {
        return _mm_min_ps(_mm_max_ps(_mm_add_ps(a, b), _mm_set1_ps(-Most)), _mm_set1_ps(Most));
    }
    static bool atMost(const R3& sum) {
        return std::max({std::fabs(sum.x), std::fabs(sum.y), std::fabs(sum.z)}) >= Most;
    }

    struct Unmap {
        std::size_t bytes;
        void operator()(void* memory) const { munmap(memory, bytes); }
    };
    template <class T>
    using Array = std::unique_ptr<T[], Unmap>;

    // The system makes the zeros where they are first written, on all threads and not here on one; in pages as large
    // as it can, each of which is a fault.
    template <class T>
    Array<T> zeros() const {
        const std::size_t bytes = m_window.size() * sizeof(T);
        void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        madvise(memory, bytes, MADV_HUGEPAGE);
        return Array<T>(static_cast<T*>(memory), Unmap{bytes});
    }
    std::size_t index(unsigned x, unsigned y) const {
        return std::size_t{y - m_window.y0} * m_window.width() + (x - m_window.x0);
    }

    Window m_window;
    MemoryCharge m_memory;
    Array<Pixel> m_pixels;
    Array<AovSample> m_aovs;
    Array<float> m_alphas;
    bool m_developed = false;
};

// Of a film that is still blank only the first pixel is looked at: reading would make its pages.
inline unsigned Film::passes() const {
    unsigned least = ~0u;
    for (const Pixel& pixel : sums())
        if ((least = std::min(least, pixel.samples)) == 0) break;
    return least;
}

inline void Film::develop() {
    if (m_developed) return;
    for (std::size_t i = 0; i < m_window.size(); ++i) {
        if (m_alphas) m_alphas[i] = alpha(i);
        if (m_aovs) {
            m_aovs[i].normal = m_aovs[i].normal * share(i);
            m_aovs[i].albedo = m_aovs[i].albedo * share(i);
            if (m_pixels[i].samples == 0) m_aovs[i].depth = AovSample().depth;
        }
        m_pixels[i].sum = m_pixels[i].sum * share(i);
    }
    m_developed = true;
}

inline std::uint64_t Film::overflowed() const {
    std::uint64_t count = 0;
    for (std::size_t i = 0; i < m_window.size(); ++i)
        count += atMost(m_pixels[i].sum) || (m_aovs && (atMost(m_aovs[i].normal) || atMost(m_aovs[i].albedo)));
    return count;
}

inline unsigned Film::begunPasses() const { return std::ranges::max(sums(), {}, &Pixel::samples).samples; }

}  // namespace oxbeam
