#include "Tiny.h"

#include <stdexcept>

// The surface throws what is no exception of the library's, after it has shaded the upper part of the picture.
struct Throwing : Tiny {
    Oxvoid Shade(OxState* state) override {
        R3 position;
        oxsGetHitPosition(state, position);
        if (position.y < -0.5f) throw 42;
        oxsReturnColor(state, m_color);
    }
};

OX_EXPORT_OBJECT(Throwing, Throwing)

struct ThrowingFrame : Tiny {
    void NewFrame() override { throw std::out_of_range("no such frame"); }
};

OX_EXPORT_OBJECT(ThrowingFrame, ThrowingFrame)
