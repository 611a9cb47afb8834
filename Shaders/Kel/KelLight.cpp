#include "KelLight.h"

KelLight::KelLight() { KelLight::Init(); }

bool KelLight::CastShadow() { return castShadow != 0; }

void KelLight::Init() {
    u = R3(1.0f, 0.0f, 0.0f);
    v = R3(0.0f, 1.0f, 0.0f);
    w = R3(0.0f, 0.0f, 1.0f);
    castShadow = 1;
}

int KelLight::samples() { return 1; }

bool KelLight::deflectRay(OxState*) { return false; }

bool KelLight::deflect(OxState*, R3&) { return false; }
