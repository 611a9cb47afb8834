#include "Tiny.h"

#include <limits>

struct GivesNaN : Tiny {
    Oxvoid Shade(OxState* state) override {
        R3 position;
        oxsGetHitPosition(state, position);
        oxsReturnColor(state, position.x > 0.0f ? std::numeric_limits<float>::quiet_NaN() * m_color : m_color);
    }
};

OX_EXPORT_OBJECT(GivesNaN, GivesNaN)
