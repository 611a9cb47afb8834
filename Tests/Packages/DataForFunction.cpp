#include "Oxbeam/OxTypes.h"

extern "C" OXBEAM_API int NewDataForFunctionLoadableObject();
int NewDataForFunctionLoadableObject() { return 0; }
extern "C" OXBEAM_API int Register_DataForFunction_LoadableObject;
int Register_DataForFunction_LoadableObject = 1;
