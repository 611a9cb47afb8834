#include "KelDbgObjectID.h"

#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"

KelDbgObjectIDShader::~KelDbgObjectIDShader() = default;

void KelDbgObjectIDShader::Init() {
    rd = R3(0.5f, 0.5f, 0.5f);
    ed = Black;
    textureID = Ox_NOTEXTURE;
}

void KelDbgObjectIDShader::Register() {
    Init();
    oxsDeclareMember(this, "diffuseColor", rd);
    oxsDeclareMember(this, "emissiveColor", ed);
    oxsDeclareMember(this, "texture0", textureID);
}

// The id's bits are masked, not taken modulo: few colours, but the same ones in every scene.
Oxvoid KelDbgObjectIDShader::Shade(OxState* state) {
    static const R3 scale(1.0f / 11.0f, 1.0f / 13.0f, 1.0f / 17.0f);
    R3 N, D;
    oxsFindShadingNormal(state, N);
    oxsGetRayDirection(state, D);
    const float a = std::fabs(Dot(N, D));
    oxsLoadGeometry(state);
    const Oxuint id = state->object ? state->object->id : 0;
    const R3 F = R3(static_cast<float>(id & 11u), static_cast<float>(id & 13u), static_cast<float>(id & 17u)) * scale;
    R3 color = F * (a * 0.8f + 0.3f) + ed;
    if (textureID >= 0) oxsApplyTexture(state, static_cast<Oxuint>(textureID), color);
    oxsReturnColor(state, color);
}

bool KelDbgObjectIDShader::LightTransparency(OxState*) { return false; }

OX_EXPORT_OBJECT(KelDbgObjectID, KelDbgObjectIDShader)
