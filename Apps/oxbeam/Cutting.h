// Cutting a picture into parts of about equal cost.
#pragma once

#include "Engine/Render/Renderer.h"
#include "Engine/System/Workers.h"
#include "Engine/World/World.h"

#include <vector>

namespace oxbeam {

// What the tiles of a picture are expected to cost, row by row; in rays, so that the same picture is always cut alike.
struct TileCosts {
    unsigned across = 0, down = 0;
    std::vector<double> costs;
};

// Renders one pass of a picture so small that it costs about a fiftieth of so many passes of the whole. The world's
// geometry is built; its size is as before afterwards.
TileCosts tileCosts(World& world, Workers& workers, unsigned samples);

// A part of the picture and its share of the costs.
struct Cut {
    Window crop;
    double share;
};

// As many rectangles of whole tiles, which cover the picture; as many as there are tiles where more are wanted.
std::vector<Cut> cutPicture(const ImageSize& image, const TileCosts& costs, unsigned parts);

}  // namespace oxbeam
