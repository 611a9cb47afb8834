#include "Engine/Output/ContactSheet.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Textures/TextureFile.h"

#include <OpenImageIO/imagebufalgo.h>
#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

namespace {

constexpr unsigned Margin = 12, LabelHeight = 28;
constexpr float Paper[] = {0.9f, 0.9f, 0.9f}, Ink[] = {0.01f, 0.01f, 0.01f};

// A picture as linear floats of three channels, top row first.
OIIO::ImageBuf readPicture(const std::filesystem::path& file) {
    const auto texture = loadTexture(file);  // decodes, and refuses what is no picture
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
    return OIIO::ImageBufAlgo::resize(picture, "", 0.0f, OIIO::ROI(0, newWidth, 0, newHeight, 0, 1, 0, 3));
}

}  // namespace

Sheet contactSheet(const std::vector<LabelledPicture>& pictures, unsigned columns, unsigned cellWidth,
                   unsigned cellHeight) {
    const auto count = static_cast<unsigned>(pictures.size());
    columns = std::max(1u, std::min(columns, count));
    const unsigned rows = (count + columns - 1) / columns;
    const unsigned stepX = cellWidth + Margin, stepY = cellHeight + LabelHeight + Margin;
    Sheet sheet{Margin + columns * stepX, Margin + rows * stepY, {}};
    OIIO::ImageBuf paper(
        OIIO::ImageSpec(static_cast<int>(sheet.width), static_cast<int>(sheet.height), 3, OIIO::TypeDesc::FLOAT));
    OIIO::ImageBufAlgo::fill(paper, Paper);
    for (unsigned i = 0; i < count; ++i) {
        const OIIO::ImageBuf picture = fitted(readPicture(pictures[i].file), cellWidth, cellHeight);
        const auto x = static_cast<int>(Margin + i % columns * stepX),
                   y = static_cast<int>(Margin + i / columns * stepY);
        const int left = x + (static_cast<int>(cellWidth) - picture.spec().width) / 2;
        const int top = y + static_cast<int>(cellHeight) - picture.spec().height;
        const bool drawn = OIIO::ImageBufAlgo::paste(paper, left, top, 0, 0, picture) &&
                           OIIO::ImageBufAlgo::render_text(
                               paper, x + static_cast<int>(cellWidth) / 2,
                               y + static_cast<int>(cellHeight) + static_cast<int>(LabelHeight) - 9, pictures[i].label,
                               15, "DejaVuSans", Ink, OIIO::ImageBufAlgo::TextAlignX::Center);
        if (!drawn)
            throw Error(ExitStatus::InputOutput, fmt::format("cannot make a contact sheet: {}", paper.geterror()));
    }
    sheet.pixels.resize(std::size_t{sheet.width} * sheet.height);
    paper.get_pixels(paper.roi(), OIIO::TypeDesc::FLOAT, sheet.pixels.data());
    return sheet;
}

}  // namespace oxbeam
