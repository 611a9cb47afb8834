// Objects on each of Kel's bases, which copy and assign its records.
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Shaders/Kel/KelFunctions.h"
#include "Shaders/Kel/KelLight.h"

class OnKelSettings : public KelRenderingObject {};

OX_EXPORT_OBJECT(OnKelSettings, OnKelSettings)

// Shines straight down, on everything alike.
class OnKelLamp : public OxLight, public KelLight {
public:
    void Init() override { KelLight::Init(); }
    void NewFrame() override { setFrameAcross(R3(0.0f, -1.0f, 0.0f), 0.1f); }
    bool Illuminate(const R3&, R3& direction, float& distance, R3& intensity, OxState*, void*) override {
        direction = R3(0.0f, 1.0f, 0.0f);
        distance = 100.0f;
        intensity = R3(0.25f, 0.25f, 0.25f);
        return true;
    }
    bool deflect(OxState* state, R3& direction) override { return deflectDirection(state, direction); }
    bool deflectRay(OxState* state) override { return deflectRayDirection(state); }
};

OX_EXPORT_OBJECT(OnKelLamp, OnKelLamp)

class OnKelSky : public KelShader {
public:
    Oxvoid Shade(OxState* state) override { oxsReturnColor(state, R3(0.2f, 0.4f, 0.6f)); }
};

OX_EXPORT_OBJECT(OnKelSky, OnKelSky)

// Half of what is behind, and the lights.
class OnKelVeil : public KelShader {
public:
    Oxvoid Shade(OxState* state) override {
        R3 position, normal;
        oxsGetHitPosition(state, position);
        oxsSetRayOrigin(state, position);
        if (shadeHole(state)) return;
        oxsFindShadingNormal(state, normal);
        KelRay first(*static_cast<KelRay*>(oxsGetPrivatePtr(state))), child;
        child = first;
        ++child.depth;
        child.opacity *= 0.5f;
        OxState behind;
        kelTransparencyRay(state, &behind);
        oxsSetPrivatePtr(&behind, &child);
        R3 color = 0.5f * kelTrace(&behind);
        Oxvoid** lights;
        const Oxuint count = oxsGlobalLights(&lights);
        for (Oxuint i = 0; i < count; ++i) {
            OxState shadow;
            if (!kelShadowRay(state, &shadow, normal, lights[i], this)) continue;
            if (kelCastShadow(lights[i]) && !lightPasses(&shadow, static_cast<OxLight*>(lights[i]))) continue;
            R3 light;
            oxsGetColor(&shadow, light);
            color += light;
        }
        oxsReturnColor(state, color);
    }
};

OX_EXPORT_OBJECT(OnKelVeil, OnKelVeil)
