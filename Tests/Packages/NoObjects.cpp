// No package: what looks like a registration is not exported.
#include "Oxbeam/OxTypes.h"

extern "C" [[gnu::used]] int Register_Hidden_LoadableObject() { return 1; }
extern "C" OXBEAM_API int answer() { return 42; }
