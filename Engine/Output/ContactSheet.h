// Many pictures on one, each with a label.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace oxbeam {

struct Sheet {
    unsigned width = 0, height = 0;
    std::vector<R3> pixels;  // linear, row by row from the top
};

// Lays pictures out in rows, each scaled down to fit a cell of the given size, labels underneath. Throws
// Error(InputOutput) for a picture that cannot be read.
class OXBEAM_API ContactSheet {
public:
    // For those who know that there will be one: loads what draws it, beside what else there is to do.
    static void prepare();

    // For so many pictures; those that are never added leave their cells empty.
    ContactSheet(unsigned count, unsigned columns, unsigned cellWidth, unsigned cellHeight);
    ~ContactSheet();

    void add(const std::filesystem::path& file, const std::string& label);
    // Linear colours, row by row from the top.
    void add(unsigned width, unsigned height, const std::vector<R3>& pixels, const std::string& label);
    Sheet sheet() const;

private:
    struct Paper;
    std::unique_ptr<Paper> m_paper;
};

}  // namespace oxbeam
