// Values over time.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <string>
#include <vector>

namespace oxbeam {

// From one key to the next. Smooth goes through all keys without a corner and beyond none, and rests at the first and the
// last; In starts slowly and Out ends slowly.
enum class Interpolation : unsigned { Step, Linear, Smooth, In, Out };

// "step", "linear", "smooth", "in", "out".
OXBEAM_API const std::vector<std::string>& interpolationNames();

// What lies between two values.
enum class ValueSpace {
    Numbers,     // each by itself
    Directions,  // three numbers: along the sphere, whatever their lengths, which change in proportion
    Rotations  // three angles about x, then y, then z, in degrees: where one of them changes, that angle, so that it can
               // go round and round; where more do, the shorter way from the one rotation to the other
};

class OXBEAM_API Curve {
public:
    // One value at least, all of as many numbers, and as many times, in seconds and ascending.
    Curve(ValueSpace space, Interpolation interpolation, std::vector<double> times,
          std::vector<std::vector<double>> values);

    // Before the first key and after the last, the curve holds.
    std::vector<double> at(double seconds) const;

private:
    std::vector<double> smoothNumbers(std::size_t i, double share) const;
    double shareAlong(std::size_t i, double share) const;

    ValueSpace m_space;
    Interpolation m_interpolation;
    std::vector<double> m_times;
    std::vector<std::vector<double>> m_values;
    std::vector<std::vector<double>> m_slopes;  // by number and key: of smooth numbers, else of the way below
    std::vector<double> m_way;                  // by key: how far along all arcs it is
};

}  // namespace oxbeam
