// Primary rays of the host's own camera, of eight pixels at a time.
#pragma once

#include "Engine/Render/Film.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/Session.h"

#include <array>

class OxPerspectiveCamera;

namespace oxbeam {

class EmbreeIntersector;

class OXBEAM_API PixelBlocks {
public:
    // The camera must be exactly the host's own, whose rays draw no random numbers, so that they can be shot before
    // others are shaded.
    PixelBlocks(const OxPerspectiveCamera& camera, const Session& session);

    // The states of two rows of a tile, by row and column.
    using Rows = std::array<std::array<OxState, TileSize>, 2>;
    // Shoots the rays through the pixels of the rows y and y + 1 of a tile, which may end before. Their states have no
    // record yet. The blocks are those of the whole picture, whatever of it is kept: which rays a ray travels with
    // decides between triangles that lie in the same place.
    void shoot(R2 place, const Window& tile, unsigned y, Rows& rows) const;

private:
    const OxPerspectiveCamera& m_camera;
    const Session& m_session;
    EmbreeIntersector* m_kernel;  // null where something stands in for it, which is shown single rays
};

}  // namespace oxbeam
