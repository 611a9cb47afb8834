#include "Engine/Render/PixelBlocks.h"

#include "Engine/Scene/EmbreeIntersector.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"

#include <algorithm>

namespace oxbeam {

PixelBlocks::PixelBlocks(const OxPerspectiveCamera& camera, const Session& session)
    : m_camera(camera), m_session(session), m_kernel(dynamic_cast<EmbreeIntersector*>(&session.intersector())) {}

void PixelBlocks::shoot(R2 place, const Window& tile, unsigned y, Rows& rows) const {
    const unsigned width = tile.x1 - tile.x0, height = std::min(tile.y1 - y, 2u);
    // One to copy from: whoever copies a state that has just been written waits for its parts to reach the cache.
    const OxState blank = m_session.stateWithoutRecord();
    const sse_t lane = _mm_set_ps(3.0f, 2.0f, 1.0f, 0.0f), placeX = _mm_set1_ps(place.x);
    for (unsigned left = 0; left < width; left += 4) {
        const sse_t column = _mm_add_ps(_mm_set1_ps(static_cast<float>(tile.x0 + left)), lane);
        EmbreeIntersector::Block block{m_camera.position, {}};
        for (unsigned row = 0; row < height; ++row) {
            const sse_t placeY = _mm_set1_ps(static_cast<float>(y + row) + place.y);
            block.directions[row] = m_camera.directions(_mm_add_ps(column, placeX), placeY);
            for (unsigned k = 0; k < 4 && left + k < width; ++k) {
                OxState& state = rows[row][left + k];
                state = blank;
                oxsSetRay(&state, m_camera.position, block.directions[row].lane(k), RayInfinity);
                if (m_kernel)
                    block.states[4 * row + k] = &state;
                else
                    oxsShootRay(&state);
            }
        }
        if (m_kernel) m_kernel->intersect(block);
    }
    if (m_kernel) ThreadRecord::mine().countRays(RAY_PRIMARY, width * height);
}

}  // namespace oxbeam
