// The registration throws, which the interface forbids.
#include "Oxbeam/OxLoadableObject.h"

#include <stdexcept>

extern "C" OXBEAM_API OxLoadableObject* NewThrowingLoadableObject() { return new OxLoadableObject; }
extern "C" OXBEAM_API int Register_Throwing_LoadableObject() { throw std::runtime_error("no licence today"); }
