// Debugging aid: every object in a flat false colour made from its id.
#pragma once

#include "Oxbeam/OxShader.h"
#include "Primitives/Vec.h"

class KelDbgObjectIDShader : public OxShader {
public:
    R3 rd;                 // can be set, but nothing shows it
    R3 ed;                 // added to the false colour
    Oxint textureID = -1;  // modulates all of it; negative: none

    ~KelDbgObjectIDShader() override;

    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;
    bool LightTransparency(OxState* state) override;
};
