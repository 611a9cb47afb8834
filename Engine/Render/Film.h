// The picture while it is being rendered.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <sys/mman.h>

#include <algorithm>
#include <memory>
#include <new>
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
    // Of at least one pixel. Throws std::bad_alloc.
    explicit Film(const Window& window)
        : m_window(window), m_pixels(zeroPages(size()), Unmap{size() * sizeof(Pixel)}) {}

    const Window& window() const { return m_window; }
    // (x, y) in the full picture.
    void add(unsigned x, unsigned y, const R3& color) {
        Pixel& pixel = m_pixels[std::size_t{y - m_window.y0} * m_window.width() + (x - m_window.x0)];
        pixel.sum += color;
        ++pixel.samples;
    }
    // Mean of each pixel's samples, row by row from the top; black where there is none.
    std::vector<R3> pixels() const {
        std::vector<R3> result(size());
        for (std::size_t i = 0; i < result.size(); ++i)
            if (m_pixels[i].samples) result[i] = m_pixels[i].sum * (1.0f / static_cast<float>(m_pixels[i].samples));
        return result;
    }

private:
    struct Pixel {
        R3 sum;
        unsigned samples;
    };
    struct Unmap {
        std::size_t bytes;
        void operator()(void* memory) const { munmap(memory, bytes); }
    };

    // The system makes the zeros where they are first written, on all threads and not here on one; in pages as large
    // as it can, each of which is a fault.
    static Pixel* zeroPages(std::size_t count) {
        const std::size_t bytes = count * sizeof(Pixel);
        void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) throw std::bad_alloc();
        madvise(memory, bytes, MADV_HUGEPAGE);
        return static_cast<Pixel*>(memory);
    }

    std::size_t size() const { return std::size_t{m_window.width()} * m_window.height(); }

    Window m_window;
    std::unique_ptr<Pixel[], Unmap> m_pixels;
};

}  // namespace oxbeam
