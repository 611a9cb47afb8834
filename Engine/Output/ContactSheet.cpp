#include "Engine/Output/ContactSheet.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/MemoryBudget.h"
#include "Engine/Textures/TextureFile.h"

#include <OpenImageIO/imagebufalgo.h>
#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

namespace {

constexpr unsigned Margin = 12, LabelHeight = 28;
constexpr int LargestFont = 15, SmallestFont = 8;
constexpr const char* Font = "DejaVuSans";
constexpr float PaperColor[] = {0.9f, 0.9f, 0.9f}, Ink[] = {0.01f, 0.01f, 0.01f};

// A picture as linear floats of three channels, top row first; a large one shrunk to some times the size of a cell, so
// that the filter which brings it to its final size still has all to do that can be seen.
OIIO::ImageBuf readPicture(TextureReader& reader, const std::filesystem::path& file, unsigned cellWidth,
                           unsigned cellHeight) {
    constexpr unsigned times = 4;
    const auto texture = reader.readReduced(file, times * cellWidth, times * cellHeight);  // refuses what is no picture
    const auto w = static_cast<int>(texture->width()), h = static_cast<int>(texture->height());
    OIIO::ImageBuf picture(OIIO::ImageSpec(w, h, 3, OIIO::TypeDesc::FLOAT));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float s = (static_cast<float>(x) + 0.5f) / static_cast<float>(w);
            const float t = (static_cast<float>(h - 1 - y) + 0.5f) / static_cast<float>(h);
            const RGBAFloat c = texture->lookUp(s, t, OX_GL_CLAMP_TO_EDGE, OX_GL_CLAMP_TO_EDGE, OX_GL_NEAREST);
            const float pixel[] = {c.r, c.g, c.b};
            picture.setpixel(x, y, 0, pixel);
        }
    return picture;
}

// The largest size of a picture's shape that fits a cell; pictures are not enlarged.
OIIO::ImageBuf fitted(const OIIO::ImageBuf& picture, unsigned cellWidth, unsigned cellHeight) {
    const int w = picture.spec().width, h = picture.spec().height;
    const double scale = std::min({1.0, static_cast<double>(cellWidth) / w, static_cast<double>(cellHeight) / h});
    const int newWidth = std::max(1, static_cast<int>(w * scale)), newHeight = std::max(1, static_cast<int>(h * scale));
    if (newWidth == w && newHeight == h) return picture;
    return OIIO::ImageBufAlgo::resize(picture, "", 0.0f, OIIO::ROI(0, newWidth, 0, newHeight, 0, 1, 0, 3));
}

// The largest size of text that a label is readable in and that fits the cell, if any does.
int fontSize(const std::string& label, unsigned cellWidth) {
    int size = LargestFont;
    while (size > SmallestFont &&
           OIIO::ImageBufAlgo::text_size(label, size, Font).width() > static_cast<int>(cellWidth))
        --size;
    return size;
}

}  // namespace

struct ContactSheet::Paper {
    unsigned columns, cellWidth, cellHeight;
    unsigned next = 0;  // cell
    MemoryCharge memory;
    OIIO::ImageBuf paper;
    TextureReader reader{};

    void add(const OIIO::ImageBuf& original, const std::string& label);
};

void ContactSheet::Paper::add(const OIIO::ImageBuf& original, const std::string& label) {
    const OIIO::ImageBuf picture = fitted(original, cellWidth, cellHeight);
    const auto w = static_cast<int>(cellWidth), h = static_cast<int>(cellHeight);
    const auto x = static_cast<int>(Margin + next % columns * (cellWidth + Margin));
    const auto y = static_cast<int>(Margin + next / columns * (cellHeight + LabelHeight + Margin));
    const int left = x + (w - picture.spec().width) / 2, top = y + h - picture.spec().height;
    const bool drawn =
        OIIO::ImageBufAlgo::paste(paper, left, top, 0, 0, picture) &&
        OIIO::ImageBufAlgo::render_text(paper, x + w / 2, y + h + static_cast<int>(LabelHeight) - 9, label,
                                        fontSize(label, cellWidth), Font, Ink, OIIO::ImageBufAlgo::TextAlignX::Center);
    if (!drawn) throw Error(ExitStatus::InputOutput, fmt::format("cannot make a contact sheet: {}", paper.geterror()));
    ++next;
}

ContactSheet::ContactSheet(unsigned count, unsigned columns, unsigned cellWidth, unsigned cellHeight) {
    columns = std::max(1u, std::min(columns, count));
    const unsigned rows = (count + columns - 1) / columns;
    const auto width = static_cast<int>(Margin + columns * (cellWidth + Margin));
    const auto height = static_cast<int>(Margin + rows * (cellHeight + LabelHeight + Margin));
    // The paper, and the sheet that is made of it.
    MemoryCharge memory(MemoryUse::Picture,
                        std::uint64_t{2} * sizeof(R3) * static_cast<unsigned>(width) * static_cast<unsigned>(height),
                        fmt::format("a contact sheet of {} x {} pixels", width, height));
    m_paper.reset(new Paper{columns, cellWidth, cellHeight, 0, std::move(memory),
                            OIIO::ImageBuf(OIIO::ImageSpec(width, height, 3, OIIO::TypeDesc::FLOAT))});
    OIIO::ImageBufAlgo::fill(m_paper->paper, PaperColor);
}

ContactSheet::~ContactSheet() = default;

void ContactSheet::add(const std::filesystem::path& file, const std::string& label) {
    m_paper->add(readPicture(m_paper->reader, file, m_paper->cellWidth, m_paper->cellHeight), label);
}

void ContactSheet::add(unsigned width, unsigned height, const std::vector<R3>& pixels, const std::string& label) {
    OIIO::ImageBuf picture(
        OIIO::ImageSpec(static_cast<int>(width), static_cast<int>(height), 3, OIIO::TypeDesc::FLOAT));
    picture.set_pixels(picture.roi(), OIIO::TypeDesc::FLOAT, pixels.data());
    m_paper->add(picture, label);
}

Sheet ContactSheet::sheet() const {
    const OIIO::ImageSpec& spec = m_paper->paper.spec();
    Sheet sheet{static_cast<unsigned>(spec.width), static_cast<unsigned>(spec.height), {}};
    sheet.pixels.resize(std::size_t{sheet.width} * sheet.height);
    m_paper->paper.get_pixels(m_paper->paper.roi(), OIIO::TypeDesc::FLOAT, sheet.pixels.data());
    return sheet;
}

}  // namespace oxbeam
