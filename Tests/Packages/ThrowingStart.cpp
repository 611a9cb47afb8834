#include "Tiny.h"

#include <stdexcept>

// As it is loaded.
static const int licence = [] {
    throw std::runtime_error("no licence today");
    return 0;
}();

OX_EXPORT_OBJECT(ThrowingStart, Tiny)
