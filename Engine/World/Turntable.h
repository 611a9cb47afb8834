// A view that goes round what stands in a world.
#pragma once

#include "Engine/World/World.h"

#include <vector>

namespace oxbeam {

// From the side and the height that the world's view has, and so far away that everything is in the picture all the way
// round. It turns about the vertical axis: y, or the coordinate axis that is nearest to where the view's own up points
// where that is another and the view is not from above or below.
class OXBEAM_API Turntable {
public:
    // Of a world whose geometry is prepared, as it stands now. Grounds without end count for nothing, nor does what the
    // world's eye stands on or within: floors, rooms, skies. Everything is `zoom` times as large as it fits.
    explicit Turntable(const World& world, float zoom = 1.0f);

    // After a part of a turn, counterclockwise as seen from above.
    View at(double turns) const;

private:
    void fit(const World& world, const std::vector<unsigned>& instances, float zoom);

    R3 m_middle, m_axis;
    View m_view;  // before any turn
};

}  // namespace oxbeam
