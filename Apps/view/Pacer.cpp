#include "Apps/view/Pacer.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

unsigned Pacer::coarsest(const ImageSize& whole) {
    return std::max(1u, std::max(whole.width, whole.height) / LeastSide);
}

unsigned Pacer::divider(const ImageSize& whole) const {
    const unsigned most = coarsest(whole);
    if (m_whole == 0.0) return most;
    return std::clamp(static_cast<unsigned>(std::ceil(std::sqrt(m_whole / Goal))), 1u, most);
}

ImageSize Pacer::divided(const ImageSize& whole, unsigned divider) {
    const auto part = [&](unsigned side) { return std::max(1u, (side + divider / 2) / divider); };
    return {part(whole.width), part(whole.height)};
}

// What took longer counts at once; what went faster, by and by, or the size would flicker.
void Pacer::measured(unsigned divider, double seconds) {
    const double whole = seconds * divider * divider;
    m_whole = whole > m_whole ? whole : 0.8 * m_whole + 0.2 * whole;
}

}  // namespace oxbeam
