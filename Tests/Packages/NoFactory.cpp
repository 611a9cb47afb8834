// Registers an object whose factory is missing.
#include "Oxbeam/OxTypes.h"

extern "C" OXBEAM_API int Register_Orphan_LoadableObject() { return 1; }
