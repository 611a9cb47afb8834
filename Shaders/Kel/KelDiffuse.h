// The cheapest surface: matte, lit by nothing but the angle between view and surface. For previews, and for objects
// that need only a readable silhouette.
#pragma once

#include "KelShader.h"

class KelDiffuseShader : public KelShader {
public:
    R3 diffuseColor;
    R3 emissiveColor;      // added unshaded
    Oxint textureID = -1;  // modulates all of it

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;
};
