// Which of a model's axes is up, and the turn that brings it there.
#pragma once

#include "Engine/Import/ModelFile.h"

#include <string>
#include <vector>

namespace oxbeam {

inline const std::vector<std::string> AxisNames = {"x", "y", "z", "-x", "-y", "-z"};  // as Model::Axis has them

// Without the rounding of sines. Turns about z, and for z itself about x.
inline Matrix turnUp(unsigned axis) {
    Matrix turn;
    const float sign = axis < 3 ? 1.0f : -1.0f;
    const auto row = [&](unsigned i, float x, float y, float z) {
        turn.m[i][0] = x, turn.m[i][1] = y, turn.m[i][2] = z;
    };
    switch (axis % 3) {
    case Model::X: row(0, 0.0f, -sign, 0.0f), row(1, sign, 0.0f, 0.0f); break;
    case Model::Y: row(0, sign, 0.0f, 0.0f), row(1, 0.0f, sign, 0.0f); break;
    default: row(1, 0.0f, 0.0f, sign), row(2, 0.0f, -sign, 0.0f);
    }
    return turn;
}

}  // namespace oxbeam
