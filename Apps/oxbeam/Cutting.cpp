#include "Apps/oxbeam/Cutting.h"

#include "Apps/oxbeam/RenderSteps.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace oxbeam {

static unsigned tilesAlong(unsigned pixels) { return (pixels + TileSize - 1) / TileSize; }

// ---- Costs

// How many times smaller the picture is rendered, along each side: a pass of it is a fiftieth of all passes.
static double shrinking(unsigned samples) { return std::clamp(std::sqrt(50.0 / samples), 1.0, 8.0); }

static ImageSize shrunk(const ImageSize& image, double times) {
    const auto side = [&](unsigned pixels) { return std::max(1u, static_cast<unsigned>(std::lround(pixels / times))); };
    return {side(image.width), side(image.height)};
}

static double pixelsOf(unsigned tileX, unsigned tileY, const ImageSize& image) {
    return static_cast<double>(std::min(TileSize, image.width - tileX * TileSize)) *
           std::min(TileSize, image.height - tileY * TileSize);
}

// Every tile costs what its pixels do in the small picture's tile in which its middle lies.
static TileCosts spread(const std::vector<std::uint64_t>& rays, const ImageSize& small, const ImageSize& image) {
    TileCosts all{tilesAlong(image.width), tilesAlong(image.height), {}};
    const auto within = [](unsigned tile, unsigned pixels, unsigned smallPixels) {
        const double middle = std::min((tile + 0.5) * TileSize, static_cast<double>(pixels));
        return std::min(static_cast<unsigned>(middle * smallPixels / pixels), smallPixels - 1) / TileSize;
    };
    for (unsigned y = 0; y < all.down; ++y)
        for (unsigned x = 0; x < all.across; ++x) {
            const unsigned smallX = within(x, image.width, small.width), smallY = within(y, image.height, small.height);
            const auto found = static_cast<double>(rays[std::size_t{smallY} * tilesAlong(small.width) + smallX]);
            all.costs.push_back(found * pixelsOf(x, y, image) / pixelsOf(smallX, smallY, small));
        }
    return all;
}

TileCosts tileCosts(World& world, Workers& workers, unsigned samples) {
    const ImageSize image = world.image;
    std::vector<std::uint64_t> rays;
    RenderOptions options;
    options.stop = &stopFlag();
    options.tileRays = &rays;
    world.image = shrunk(image, shrinking(samples));
    const ImageSize small = world.image;
    const RenderResult result = render(world, workers, options);
    world.image = image;
    if (result.failure) std::rethrow_exception(result.failure);
    return spread(rays, small, image);
}

// ---- Cuts

namespace {

// Rectangles of tiles and their costs, by sums over all that lies above and to the left.
class Plan {
public:
    explicit Plan(const TileCosts& costs) : m_row(costs.across + 1), m_sums(m_row * (costs.down + 1)) {
        for (unsigned y = 0; y < costs.down; ++y)
            for (unsigned x = 0; x < costs.across; ++x)
                at(x + 1, y + 1) = std::max(costs.costs[std::size_t{y} * costs.across + x], 1e-9) + at(x, y + 1) +
                                   at(x + 1, y) - at(x, y);
    }

    double cost(const Window& w) const { return at(w.x1, w.y1) - at(w.x0, w.y1) - at(w.x1, w.y0) + at(w.x0, w.y0); }

private:
    double& at(unsigned x, unsigned y) { return m_sums[y * m_row + x]; }
    double at(unsigned x, unsigned y) const { return m_sums[y * m_row + x]; }

    std::size_t m_row;
    std::vector<double> m_sums;
};

struct Halves {
    Window one, other;
    unsigned partsOfOne = 0;
    double dearest = std::numeric_limits<double>::infinity();  // a part of either
};

// Across the longer side, where the parts of both halves are most alike; a half is a third of the parts at least.
Halves halve(const Plan& plan, const Window& tiles, unsigned parts) {
    const bool wide = tiles.width() >= tiles.height();
    Halves best;
    for (unsigned at = 1; at < (wide ? tiles.width() : tiles.height()); ++at) {
        Halves h{tiles, tiles};
        (wide ? h.one.x1 : h.one.y1) = (wide ? h.other.x0 : h.other.y0) = (wide ? tiles.x0 : tiles.y0) + at;
        const double cost = plan.cost(h.one), rest = plan.cost(h.other);
        const std::size_t third = std::max(parts / 3, 1u), room = h.one.size(), otherRoom = h.other.size();
        const std::size_t least = std::max(third, parts > otherRoom ? parts - otherRoom : 0);
        const std::size_t most = std::min(parts - third, room);
        if (least > most) continue;
        const auto wished = static_cast<std::size_t>(std::lround(parts * cost / (cost + rest)));
        h.partsOfOne = static_cast<unsigned>(std::clamp(wished, least, most));
        h.dearest = std::max(cost / h.partsOfOne, rest / (parts - h.partsOfOne));
        if (h.dearest < best.dearest) best = h;
    }
    return best;
}

void cut(const Plan& plan, const Window& tiles, unsigned parts, std::vector<Window>& found) {
    if (parts == 1) return found.push_back(tiles);
    const Halves h = halve(plan, tiles, parts);
    cut(plan, h.one, h.partsOfOne, found);
    cut(plan, h.other, parts - h.partsOfOne, found);
}

}  // namespace

std::vector<Cut> cutPicture(const ImageSize& image, const TileCosts& costs, unsigned parts) {
    const Plan plan(costs);
    const Window all{0, 0, costs.across, costs.down};
    std::vector<Window> found;
    cut(plan, all, static_cast<unsigned>(std::min<std::size_t>(parts, all.size())), found);
    std::vector<Cut> cuts;
    cuts.reserve(found.size());
    for (const Window& w : found)
        cuts.push_back({{w.x0 * TileSize, w.y0 * TileSize, std::min(w.x1 * TileSize, image.width),
                         std::min(w.y1 * TileSize, image.height)},
                        plan.cost(w) / plan.cost(all)});
    return cuts;
}

}  // namespace oxbeam
