// Offers an object under a name that the host's own light has.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxShader.h"

OX_EXPORT_OBJECT(OxPointLight, OxShader)
