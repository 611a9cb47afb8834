// How coarse pictures are while something moves, so that they come often enough.
#pragma once

#include "Engine/World/World.h"

namespace oxbeam {

class Pacer {
public:
    // Seconds between two pictures of something that moves.
    static constexpr double Goal = 1.0 / 33.0;
    // What the longer side of a picture has at least, in pixels.
    static constexpr unsigned LeastSide = 128;

    // What the sides of a picture are divided by; the coarsest where nothing has been measured yet.
    unsigned divider(const ImageSize& whole) const;
    static unsigned coarsest(const ImageSize& whole);
    static ImageSize divided(const ImageSize& whole, unsigned divider);
    // A picture with this divider took so long.
    void measured(unsigned divider, double seconds);

private:
    double m_whole = 0.0;  // seconds that a picture of full size takes; 0: unknown
};

}  // namespace oxbeam
