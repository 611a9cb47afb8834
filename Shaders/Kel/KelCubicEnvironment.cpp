#include "KelCubicEnvironment.h"

#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"

void KelCubicEnvironmentShader::Register() {
    Init();
    oxsDeclareMember(this, "texture", textureid);
    oxsDeclareMember(this, "texture0", textureid);
    oxsDeclareMember(this, "isVisible", isVisible);
}

void KelCubicEnvironmentShader::NewFrame() {}

// Place in the cross that a direction looks at. Each check overrides the ones before: where components are equal, y wins
// over z, and z over x. A direction that is not a number passes none of them, and looks at the corner.
static R2 placeInCross(const R3& D) {
    constexpr float third = 0.33333334f, twoThirds = 0.6666667f;
    const float ax = std::fabs(D.x), ay = std::fabs(D.y), az = std::fabs(D.z);
    int face = -1;
    float s = 0.0f, t = 0.0f;
    if (ax >= ay && ax >= az) {
        face = D.x > 0.0f ? 1 : 0;
        s = (D.z / D.x) * 0.5f + 0.5f;
        t = (D.y / D.x) * 0.5f + 0.5f;
    }
    if (az >= ax && az >= ay) {
        face = D.z > 0.0f ? 3 : 2;
        t = (D.x / D.z) * 0.5f + 0.5f;
        s = (D.y / D.z) * 0.5f + 0.5f;
    }
    if (ay >= ax && ay >= az) {
        face = D.y > 0.0f ? 5 : 4;
        t = (D.x / D.y) * 0.5f + 0.5f;
        s = (D.z / D.y) * 0.5f + 0.5f;
    }
    s *= third;
    t *= 0.25f;
    switch (face) {
    case 0: return {s + third, 0.75f - t};
    case 1: return {twoThirds - s, 0.25f - t};
    case 2: return {1.0f - s, t + 0.5f};
    case 3: return {third - s, 0.75f - t};
    case 4: return {s + third, t + 0.25f};
    case 5: return {twoThirds - s, t + 0.75f};
    default: return {s, t};
    }
}

Oxvoid KelCubicEnvironmentShader::Shade(OxState* state) {
    oxsReturnColor(state, White);
    if (textureid < 0) return;
    R3 D, texel;
    oxsGetRayDirection(state, D);
    const R2 st = placeInCross(D);
    oxsGetTexelByST(state, st.x, st.y, static_cast<Oxuint>(textureid), OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR,
                    OX_GL_REPLACE, texel);
    oxsReturnColor(state, texel);
}

OX_EXPORT_OBJECT(KelCubicEnvironment, KelCubicEnvironmentShader)
