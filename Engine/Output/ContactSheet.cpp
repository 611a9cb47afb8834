#include "Engine/Output/ContactSheet.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Output/PictureLibrary.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/Textures/TextureFile.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

static constexpr unsigned Margin = 12, LabelHeight = 28, LabelDepth = 9;

// A large picture is shrunk to some times the size of a cell, so that the filter which brings it to its final size still
// has all to do that can be seen.
static Sheet readPicture(TextureReader& reader, const std::filesystem::path& file, unsigned cellWidth,
                         unsigned cellHeight) {
    constexpr unsigned times = 4;
    const auto texture = reader.readReduced(file, times * cellWidth, times * cellHeight);  // refuses what is no picture
    const unsigned w = texture->width(), h = texture->height();
    Sheet picture{w, h, {}};
    picture.pixels.reserve(std::size_t{w} * h);
    for (unsigned y = 0; y < h; ++y)
        for (unsigned x = 0; x < w; ++x) {
            const float s = (static_cast<float>(x) + 0.5f) / static_cast<float>(w);
            const float t = (static_cast<float>(h - 1 - y) + 0.5f) / static_cast<float>(h);
            picture.pixels.push_back(
                texture->lookUp(s, t, OX_GL_CLAMP_TO_EDGE, OX_GL_CLAMP_TO_EDGE, OX_GL_NEAREST).rgb());
        }
    return picture;
}

struct ContactSheet::Paper {
    unsigned columns, cellWidth, cellHeight;
    unsigned next = 0;  // cell
    MemoryCharge memory;
    std::unique_ptr<SheetPaper> paper;
    TextureReader reader{};

    void add(const Sheet& picture, const std::string& label);
};

void ContactSheet::Paper::add(const Sheet& picture, const std::string& label) {
    const unsigned x = Margin + next % columns * (cellWidth + Margin);
    const unsigned y = Margin + next / columns * (cellHeight + LabelHeight + Margin);
    const SheetCell cell{static_cast<int>(x), static_cast<int>(y), static_cast<int>(cellWidth),
                         static_cast<int>(cellHeight), static_cast<int>(y + cellHeight + LabelHeight - LabelDepth)};
    if (const std::string why = paper->lay(picture, cell, label); !why.empty())
        throw Error(ExitStatus::InputOutput, fmt::format("cannot make a contact sheet: {}", why));
    ++next;
}

ContactSheet::ContactSheet(unsigned count, unsigned columns, unsigned cellWidth, unsigned cellHeight) {
    columns = std::max(1u, std::min(columns, count));
    const unsigned rows = (count + columns - 1) / columns;
    const unsigned width = Margin + columns * (cellWidth + Margin);
    const unsigned height = Margin + rows * (cellHeight + LabelHeight + Margin);
    // The paper, and the sheet that is made of it.
    MemoryCharge memory(MemoryUse::Picture, std::uint64_t{2} * sizeof(R3) * width * height,
                        fmt::format("a contact sheet of {} x {} pixels", width, height));
    m_paper.reset(new Paper{columns, cellWidth, cellHeight, 0, std::move(memory), nullptr});
    m_paper->paper = pictureLibrary().paper(width, height);
}

ContactSheet::~ContactSheet() = default;

void ContactSheet::prepare() { preparePictureLibrary(); }

void ContactSheet::add(const std::filesystem::path& file, const std::string& label) {
    m_paper->add(readPicture(m_paper->reader, file, m_paper->cellWidth, m_paper->cellHeight), label);
}

void ContactSheet::add(unsigned width, unsigned height, const std::vector<R3>& pixels, const std::string& label) {
    m_paper->add({width, height, pixels}, label);
}

Sheet ContactSheet::sheet() const { return m_paper->paper->sheet(); }

}  // namespace oxbeam
