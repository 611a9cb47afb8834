// The picture while it is being rendered.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <span>
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
};

// What a primary ray tells beside its colour; as it is here, of one that hits nothing.
struct AovSample {
    R3 normal, albedo;
    float depth = std::numeric_limits<float>::infinity();  // along the way that the camera looks
    unsigned object = 0;                                   // number of the instance, from 1
};

// Sums up samples. Each pixel belongs to one thread at a time.
class OXBEAM_API Film {
public:
    struct Pixel {
        R3 sum;
        unsigned samples;
    };

    // Throws std::bad_alloc.
    explicit Film(const Window& window, bool withAovs = false)
        : m_window(window), m_pixels(zeros<Pixel>()), m_aovs(withAovs ? zeros<AovSample>() : nullptr) {}

    const Window& window() const { return m_window; }
    bool hasAovs() const { return m_aovs != nullptr; }
    // (x, y) in the full picture.
    void add(unsigned x, unsigned y, const R3& color) {
        Pixel& pixel = m_pixels[index(x, y)];
        pixel.sum += color;
        ++pixel.samples;
    }
    // Comes before the colour of the same sample. The first sample's depth and object are kept.
    void addAovs(unsigned x, unsigned y, const AovSample& sample) {
        AovSample& sum = m_aovs[index(x, y)];
        sum.normal += sample.normal;
        sum.albedo += sample.albedo;
        if (m_pixels[index(x, y)].samples == 0) sum.depth = sample.depth, sum.object = sample.object;
    }
    unsigned samplesAt(unsigned x, unsigned y) const { return m_pixels[index(x, y)].samples; }

    // Passes that all pixels have been through, and that any has.
    unsigned passes() const { return samples().first; }
    unsigned begunPasses() const { return samples().second; }
    // Mean of each pixel's samples, row by row from the top; black where there is none.
    std::vector<R3> pixels() const {
        std::vector<R3> result(m_window.size());
        for (std::size_t i = 0; i < result.size(); ++i) result[i] = m_pixels[i].sum * share(i);
        return result;
    }
    // What a pixel's sums are multiplied by.
    float share(std::size_t pixel) const {
        const unsigned samples = m_pixels[pixel].samples;
        return samples ? 1.0f / static_cast<float>(samples) : 0.0f;
    }

    // All that the film holds, row by row from the top; no AOVs where it keeps none.
    std::span<Pixel> sums() { return {m_pixels.get(), m_window.size()}; }
    std::span<const Pixel> sums() const { return {m_pixels.get(), m_window.size()}; }
    std::span<AovSample> aovSums() { return {m_aovs.get(), m_aovs ? m_window.size() : 0}; }
    std::span<const AovSample> aovSums() const { return {m_aovs.get(), m_aovs ? m_window.size() : 0}; }

private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    // Zeros that the system makes page by page where they are first written, on all threads, and not here on one.
    template <class T>
    T* zeros() const {
        void* memory = std::calloc(std::max<std::size_t>(m_window.size(), 1), sizeof(T));
        if (!memory) throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    std::size_t index(unsigned x, unsigned y) const {
        return std::size_t{y - m_window.y0} * m_window.width() + (x - m_window.x0);
    }
    std::pair<unsigned, unsigned> samples() const {
        const auto [least, most] = std::ranges::minmax_element(sums(), {}, &Pixel::samples);
        return {least->samples, most->samples};
    }

    Window m_window;
    std::unique_ptr<Pixel[], Free> m_pixels;
    std::unique_ptr<AovSample[], Free> m_aovs;
};

}  // namespace oxbeam
