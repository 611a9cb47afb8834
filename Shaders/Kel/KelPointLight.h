// Point light with inverse-square falloff; a small box light where fuzzy lights are on.
#pragma once

#include "KelLight.h"
#include "Oxbeam/OxPointLight.h"

class KelPointLight : public OxPointLight, public KelLight {
public:
    float fuzzyness = 0.1f;  // edge length of the box over which the position is jittered

    KelPointLight();

    char* GetShaderInfo() override;
    void Register() override;
    void Init() override;
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    bool deflect(OxState* state, R3& p) override;
    bool deflectRay(OxState* state) override;
};
