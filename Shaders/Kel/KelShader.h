// Base of the package's surface and environment shaders: quality switches of a single shader, and wireframes.
#pragma once

#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxShader.h"
#include "Primitives/Vec.h"

#include <typeinfo>

struct OxState;

// A shader's switch can turn a feature on for its surface, never off where it is on for the whole picture; in the
// same way the number of samples can only be raised. A shader's switch is on when nonzero, the global one when
// exactly 1.
class OXBEAM_API KelShader : public OxShader {
public:
    Oxint m_wireframe = 0;       // draw only the borders of triangles
    float m_thickness = -1.0f;   // of the borders; negative: 1% of the length of each edge
    Oxint m_glossySurfaces = 0;  // blurred reflections
    Oxint m_fuzzyLights = 0;     // lights with an extent
    Oxint m_softShadows = 0;
    Oxint m_receiveShadow = 0;
    Oxint m_numFuzzySamples = 1;  // samples of fuzzy lights and glossy reflections

    void Register() override;
    void Init() override;
    bool LightTransparency(OxState* state) override;

    // The settings in force for this shader. All but the second assert that the state has a rendering object; the
    // second reads the shader's own, which must be set.
    virtual bool receiveShadow(OxState* state);
    virtual bool receiveShadow();
    virtual bool wireframe(OxState* state);
    virtual bool glossySurfaces(OxState* state);
    virtual bool fuzzyLights(OxState* state);
    virtual bool softShadows(OxState* state);
    virtual int numFuzzySamples(OxState* state);
    // The hit lies on its triangle's border, not in the hole that a wireframe leaves.
    virtual bool hitBorder(OxState* state);

    // The rule for light that meets a wireframe. False: not a wireframe, or its border was hit; the shader decides
    // by itself. True: `transparent` is the answer, and if that is true the light's colour is in the state.
    bool checkWireFrameLightTransparency(OxState* state, bool& transparent);

protected:
    // In this frame; for NewFrame, where no state tells.
    bool mayHaveHoles() const;
    // For NewFrame of a class whose shadow rays are kelShadowRay's: tells the host, where they are not jittered.
    void expectShadowRays(const std::type_info& type) const;
    // If the hit lies in the hole of a wireframe: hands back what is seen through it and answers true.
    bool shadeHole(OxState* state);
    // Shoots a shadow ray and asks the occluder, if any, whether the light passes. False: the light is blocked.
    bool lightPasses(OxState* shadow, OxLight* light);
    // The same where the caller knows whether its shadows are soft.
    bool lightPasses(OxState* shadow, OxLight* light, bool soft);
};
