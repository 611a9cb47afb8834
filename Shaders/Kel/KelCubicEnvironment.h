// Environment from a cube map in one picture: a vertical cross, 3 faces wide and 4 tall.
//
// N. Greene, "Environment mapping and other applications of world projections" (1986).
#pragma once

#include "KelShader.h"

class KelCubicEnvironmentShader : public KelShader {
public:
    Oxint textureid = -1;  // the cross; negative: none, and all is white
    Oxuint isVisible = 1;  // can be set, but nothing reads it

    void NewFrame() override;
    void Register() override;
    Oxvoid Shade(OxState* state) override;
};
