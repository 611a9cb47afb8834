// Record of a programmable BRDF, passed through between host and shaders.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

struct ProgBRDF {
    Oxuint inputFlags = 0;
    Oxuint outputFlags = 0;
    R3 position;
    R3 normal;
    R3 direction;
    R3 diffuse;
    R3 emitance;
    R3 specular;
};
