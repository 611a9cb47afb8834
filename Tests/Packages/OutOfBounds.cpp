#include "Tiny.h"

static const char Info[] =
    "<?xml version=\"1.0\" ?><ShaderInfo><type>surface</type><package>OutOfBounds</package><id>OutOfBounds</id>"
    "<parameter><id>number</id><type>int</type><default>1</default><lowerbound>0</lowerbound>"
    "<upperbound>1000000</upperbound></parameter> </ShaderInfo>";

// Trusts a value to be a small one.
struct OutOfBounds : Tiny {
    char* GetShaderInfo() override { return const_cast<char*>(Info); }
    void Register() override {
        Tiny::Register();
        oxsDeclareMember(this, "number", m_number);
    }
    Oxvoid Shade(OxState* state) override {
        const volatile float* const table = &m_color.x;
        oxsReturnColor(state, m_number > 1 ? table[1u << 20 | static_cast<unsigned>(m_number)] * m_color : m_color);
    }
};

OX_EXPORT_OBJECT(OutOfBounds, OutOfBounds)
