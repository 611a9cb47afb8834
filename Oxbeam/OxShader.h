// Base of surface and environment shaders.
#pragma once

#include "Oxbeam/OxLoadableObject.h"

struct OxState;
struct OxState4;
struct ProgBRDF;
class OxRenderingObject;

class OXBEAM_API OxShader : public OxLoadableObject {
public:
    // Set by the host before the first frame; not owned.
    OxRenderingObject* m_ro = nullptr;

    // Shades the hit (or, for an environment shader, the miss) in the state and hands the colour back with
    // oxsReturnColor. Called concurrently from all rendering threads.
    virtual Oxvoid Shade(OxState* state);
    virtual Oxvoid Shade4(OxState4& state4);
    virtual Oxvoid EvalBRDF(ProgBRDF& brdf, OxState& state);
    // Asked by a shadow ray that hit this surface: true lets the light through, with its colour as it arrives in
    // the state; false blocks it.
    virtual bool LightTransparency(OxState* state);
};
