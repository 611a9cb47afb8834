// Exports its object by hand, and does not say for which version of the interface.
#include "Tiny.h"

extern "C" OXBEAM_API OxLoadableObject* NewUnversionedLoadableObject();
extern "C" OXBEAM_API int Register_Unversioned_LoadableObject();

OxLoadableObject* NewUnversionedLoadableObject() { return oxNewObject<Tiny>(); }
int Register_Unversioned_LoadableObject() { return oxRegisterObject<Tiny>(&NewUnversionedLoadableObject); }
