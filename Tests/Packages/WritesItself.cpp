#include "Tiny.h"

struct WritesItself : Tiny {
    void Register() override {
        Tiny::Register();
        oxsDeclareMember(this, "number", m_number);
    }
    Oxvoid Shade(OxState* state) override {
        m_number = oxsTriangleID(state);
        oxsReturnColor(state, m_color);
    }
};

OX_EXPORT_OBJECT(WritesItself, WritesItself)
