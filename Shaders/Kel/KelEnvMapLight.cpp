#include "KelEnvMapLight.h"

#include "KelDirectionalLight.h"
#include "Oxbeam/OxExport.h"

KelEnvElementarLight::KelEnvElementarLight(KelDirectionalLight* light) : EnvElementarLight(light) {}

void KelEnvMapLight::Register() {
    OxEnvMapLight::Register();
    Init();
}

bool KelEnvMapLight::Illuminate(const R3&, R3&, float&, R3&, OxState*, void*) { return false; }

EnvElementarLight* KelEnvMapLight::getNewElementarLight() { return new KelEnvElementarLight(new KelDirectionalLight); }

OX_EXPORT_OBJECT(KelEnvMapLight, KelEnvMapLight)
