#include "Tiny.h"

#include <cstdlib>

struct Crashing : Tiny {
    R3* m_nowhere = nullptr;

    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, *static_cast<R3* volatile&>(m_nowhere)); }
};

OX_EXPORT_OBJECT(Crashing, Crashing)

struct Aborting : Tiny {
    Oxvoid Shade(OxState*) override { std::abort(); }
};

OX_EXPORT_OBJECT(Aborting, Aborting)
