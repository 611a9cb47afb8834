// Many pictures on one, each with a label.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

struct LabelledPicture {
    std::filesystem::path file;
    std::string label;
};

struct Sheet {
    unsigned width = 0, height = 0;
    std::vector<R3> pixels;  // linear, row by row from the top
};

// Lays pictures out in rows, each scaled down to fit a cell of the given size, labels underneath. Throws
// Error(InputOutput) for a picture that cannot be read.
OXBEAM_API Sheet contactSheet(const std::vector<LabelledPicture>& pictures, unsigned columns, unsigned cellWidth,
                              unsigned cellHeight);

}  // namespace oxbeam
