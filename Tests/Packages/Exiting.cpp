#include "Tiny.h"

#include <cstdlib>

// After it has shaded the upper part of the picture; on all threads that come there.
struct Exiting : Tiny {
    Oxvoid Shade(OxState* state) override {
        R3 position;
        oxsGetHitPosition(state, position);
        if (position.y < -0.5f) std::exit(0);
        oxsReturnColor(state, m_color);
    }
};

OX_EXPORT_OBJECT(Exiting, Exiting)
