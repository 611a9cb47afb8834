#include "Tiny.h"

#include <cstdlib>

struct Exiting : Tiny {
    Oxvoid Shade(OxState*) override { std::exit(0); }
};

OX_EXPORT_OBJECT(Exiting, Exiting)
