// The picture while it is being rendered.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <vector>

namespace oxbeam {

// Part of the picture, in pixels; the second corner lies outside.
struct Window {
    unsigned x0 = 0, y0 = 0, x1 = 0, y1 = 0;

    unsigned width() const { return x1 - x0; }
    unsigned height() const { return y1 - y0; }
    bool contains(unsigned x, unsigned y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
    bool overlaps(const Window& w) const { return w.x0 < x1 && x0 < w.x1 && w.y0 < y1 && y0 < w.y1; }
};

// Sums up samples. Each pixel belongs to one thread at a time.
class OXBEAM_API Film {
public:
    explicit Film(const Window& window)
        : m_window(window), m_sums(std::size_t{window.width()} * window.height()), m_samples(m_sums.size()) {}

    const Window& window() const { return m_window; }
    // (x, y) in the full picture.
    void add(unsigned x, unsigned y, const R3& color) {
        const std::size_t i = std::size_t{y - m_window.y0} * m_window.width() + (x - m_window.x0);
        m_sums[i] += color;
        ++m_samples[i];
    }
    // Mean of each pixel's samples, row by row from the top; black where there is none.
    std::vector<R3> pixels() const {
        std::vector<R3> result(m_sums.size());
        for (std::size_t i = 0; i < result.size(); ++i)
            if (m_samples[i]) result[i] = m_sums[i] * (1.0f / static_cast<float>(m_samples[i]));
        return result;
    }

private:
    Window m_window;
    std::vector<R3> m_sums;
    std::vector<unsigned> m_samples;
};

}  // namespace oxbeam
