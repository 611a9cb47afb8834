// The values that a parameter takes in a sweep.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/World/Places.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

struct SweepValue {
    std::string text;   // as --set takes it
    std::string label;  // for people: with the name of an enumeration's item
};

struct SweptSetting {
    std::string path;  // "shader.table.shininess"
    std::vector<SweepValue> values;
};

// Pictures along one parameter where nobody says how many.
inline constexpr unsigned DefaultSweepSteps = 6;
inline constexpr unsigned MaxSweepSteps = 64;

// What "PLACE.PARAM=A..B/N", "PLACE.PARAM=a,b,c" and "PLACE.PARAM" stand for; nothing where the text is an ordinary
// setting of one value. A and B may be lists. Without values the parameter's declaration tells them. Steps are
// logarithmic where the declaration says so. Throws Error(Usage) or, for a place that is not there, Error(BadScene).
std::optional<SweptSetting> sweptSetting(const std::string& text, const std::vector<Place>& places);

}  // namespace oxbeam
