// The host's environment-map light with this package's directional lights behind it, so that fuzzy lights, soft shadows
// and the shadow switch hold for light from the environment too.
#pragma once

#include "Oxbeam/OxEnvMapLight.h"

class KelDirectionalLight;

class KelEnvElementarLight : public EnvElementarLight {
public:
    explicit KelEnvElementarLight(KelDirectionalLight* light);
};

class KelEnvMapLight : public OxEnvMapLight {
public:
    void Register() override;
    // The map itself lights nothing; only its elementary lights do.
    bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                    void* shader) override;
    EnvElementarLight* getNewElementarLight() override;
};
