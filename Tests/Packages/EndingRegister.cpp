#include "Tiny.h"

#include <cstdlib>

struct EndingRegister : Tiny {
    void Register() override { std::exit(7); }
};

OX_EXPORT_OBJECT(EndingRegister, EndingRegister)
