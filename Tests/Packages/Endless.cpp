#include "Tiny.h"

// Calls itself without end.
struct Endless : Tiny {
    Oxvoid Shade(OxState* state) override {
        OxState child = *state;
        ++child.ray.depth;
        oxsGetShader(state)->Shade(&child);
        oxsReturnColor(state, child.color + m_color);
    }
};

OX_EXPORT_OBJECT(Endless, Endless)

struct Hanging : Tiny {
    Oxvoid Shade(OxState*) override {
        for (volatile bool always = true; always;) {
        }
    }
};

OX_EXPORT_OBJECT(Hanging, Hanging)
