// Where in and about a pixel its samples lie.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <string>
#include <vector>

namespace oxbeam {

// A reconstruction filter, the product of two equal ones along x and y. Samples are placed with its density and then
// count alike (M. Ernst, M. Stamminger, G. Greiner, "Filter importance sampling", 2006), so that no sample is of
// concern to any pixel but its own.
struct PixelFilter {
    // Gaussian: with a standard deviation of a sixth of the width, cut off at its ends.
    // BlackmanHarris: the window of four terms (F. Harris, "On the use of windows for harmonic analysis with the
    // discrete Fourier transform", 1978).
    enum Kind { Box, Gaussian, BlackmanHarris };

    Kind kind = Box;
    float width = 1.0f;  // all of it, in pixels

    // Moves a place that is uniform in the pixel, [0, 1) both ways, to one with the filter's density about the pixel's
    // middle. A box of width 1 leaves it where it is.
    OXBEAM_API R2 place(const R2& uniform) const;

    bool operator==(const PixelFilter&) const = default;
};

// Their names, in the order of the enumeration.
OXBEAM_API const std::vector<std::string>& pixelFilterNames();
// The width that a filter has where nobody says one.
OXBEAM_API float usualWidth(PixelFilter::Kind kind);
inline constexpr float LeastFilterWidth = 0.01f, MostFilterWidth = 32.0f;

}  // namespace oxbeam
