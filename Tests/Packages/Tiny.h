// What the bad packages are made of: a surface that would be good but for one thing.
#pragma once

#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxShader.h"

class Tiny : public OxShader {
public:
    R3 m_color;
    Oxint m_number;

    void Init() override {
        m_color = R3(0.5f, 0.25f, 0.125f);
        m_number = 1;
    }
    void Register() override {
        Init();
        oxsDeclareMember(this, "color", m_color);
    }
    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, m_color); }
};
