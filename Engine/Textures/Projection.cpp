#include "Engine/Textures/Projection.h"

#include "Engine/System/MemoryBudget.h"
#include "Engine/System/Workers.h"
#include "Oxbeam/OxRenderingObject.h"
#include "Sampling/AngularMap.h"

#include <algorithm>
#include <cmath>

namespace oxbeam {

static R3 look(const Texture& equirectangular, const R3& direction, float turn) {
    const R3 d = Normalize(direction);
    const float s = 0.5f + std::atan2(d.x, -d.z) * (0.5f / 3.14159265f) + turn * (1.0f / 360.0f);
    const float t = 0.5f + std::asin(std::clamp(d.y, -1.0f, 1.0f)) * (1.0f / 3.14159265f);
    return equirectangular.lookUp(s, t, OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_LINEAR).rgb();
}

// Fills a picture by a direction for every place (s, t), averaging a grid of places in each texel: as many as keep
// nothing of the original from being skipped where it is denser.
template <class DirectionAt>
static std::unique_ptr<Texture> fill(const Texture& from, float turn, unsigned width, unsigned height, unsigned grid,
                                     DirectionAt directionAt) {
    const float perCell = 1.0f / static_cast<float>(grid);
    const std::uint64_t count = std::uint64_t{3} * width * height;
    requireMemory(MemoryUse::Textures, count * sizeof(float), "an environment's picture, laid out anew,");
    std::vector<float> texels(count);
    Workers(std::min(availableThreads(), OxRenderingObject::MaxThreads)).run(height, [&](unsigned, unsigned y) {
        for (unsigned x = 0; x < width; ++x) {
            R3 sum = Black;
            for (unsigned i = 0; i < grid * grid; ++i) {
                const unsigned column = i % grid, row = i / grid;
                const float dx = (static_cast<float>(column) + 0.5f) * perCell;
                const float dy = (static_cast<float>(row) + 0.5f) * perCell;
                sum += look(from,
                            directionAt((static_cast<float>(x) + dx) / static_cast<float>(width),
                                        (static_cast<float>(y) + dy) / static_cast<float>(height)),
                            turn);
            }
            for (unsigned c = 0; c < 3; ++c) texels[3 * (std::size_t{y} * width + x) + c] = sum[c] * perCell * perCell;
        }
    });
    return std::make_unique<Texture>(width, height, 3, std::move(texels), ColorSpace::Linear);
}

// A map of as many texels a side as the picture is wide has them as close as the picture does at its equator.
std::unique_ptr<Texture> toAngularMap(const Texture& from, float turn) {
    constexpr unsigned fine = 2048, most = 8192;
    const unsigned own = std::max(from.width(), 2 * from.height());
    const unsigned side = std::clamp(own, std::min(8 * own, fine), most);
    return fill(from, turn, side, side, side < 2 * own ? 2 : 1, [](float s, float t) {
        R3 direction(0.0f, 0.0f, -1.0f);  // the rim, and what look-ups near it blend in from outside
        AngularMapDirection(s, t, direction);
        return direction;
    });
}

// The inverse of how the cubic environment places its faces: each reads its third of the width and quarter of the height
// forwards or backwards. A place in the empty parts of the cross continues the face that it is nearest to, so that
// look-ups at the cross' edge blend in what lies beyond.
static R3 crossDirection(float s, float t) {
    const float column = 3.0f * s, row = 4.0f * t;
    const auto face = [](float u) { return 2.0f * u - 1.0f; };
    // How far the place is from the column of four faces, and from the row of three.
    const float fromColumn = std::max({0.0f, 1.0f - column, column - 2.0f});
    const float fromRow = std::max({0.0f, 2.0f - row, row - 3.0f});
    if (fromRow <= fromColumn && column < 1.0f) return {face(3.0f - row), face(1.0f - column), 1.0f};     // +z
    if (fromRow <= fromColumn && column > 2.0f) return {-face(row - 2.0f), -face(3.0f - column), -1.0f};  // -z
    if (row >= 3.0f) return {face(row - 3.0f), 1.0f, face(2.0f - column)};                                // +y
    if (row >= 2.0f) return {-1.0f, -face(3.0f - row), -face(column - 1.0f)};                             // -x
    if (row >= 1.0f) return {-face(row - 1.0f), -1.0f, -face(column - 1.0f)};                             // -y
    return {1.0f, face(1.0f - row), face(2.0f - column)};                                                 // +x
}

std::unique_ptr<Texture> toVerticalCross(const Texture& from, float turn) {
    // Where faces meet that are no neighbours, look-ups blend them over the width of a texel: small texels keep the seam
    // from showing.
    const unsigned face = std::min(2 * from.height(), 1024u);
    return fill(from, turn, 3 * face, 4 * face, (from.height() + 2 * face - 1) / (2 * face), crossDirection);
}

}  // namespace oxbeam
