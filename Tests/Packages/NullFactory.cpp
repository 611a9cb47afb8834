// The factory makes nothing.
#include "Oxbeam/OxLoadableObject.h"

extern "C" OXBEAM_API OxLoadableObject* NewNothingLoadableObject() { return nullptr; }
extern "C" OXBEAM_API int Register_Nothing_LoadableObject() {
    return oxsDefine_NewLoadableObject_Fct(&NewNothingLoadableObject);
}
