// Rounding to the integers of a file.
#pragma once

#include "Oxbeam/OxTypes.h"

namespace oxbeam {

// Where in (0, 1) a pixel rounds up: an even pattern over the plane (M. Roberts, "The unreasonable effectiveness of
// quasirandom sequences", 2018), the same for all colours, so that greys stay grey.
OXBEAM_API float ditherThreshold(unsigned x, unsigned y);
// A value of at least 0 as one of the two integers about it, by its threshold; one that is an integer but for rounding
// errors stays that integer.
OXBEAM_API unsigned dithered(float value, float threshold);

}  // namespace oxbeam
