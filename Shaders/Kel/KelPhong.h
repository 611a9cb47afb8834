// General surface: ambient, diffuse, specular and emitted light, texture, bump map, reflection and transparency.
//
// B. T. Phong, "Illumination for computer generated pictures" (1975), in its reflection-vector form without
// normalisation; secondary rays after T. Whitted, "An improved illumination model for shaded display" (1980).
#pragma once

#include "KelShader.h"
#include "Primitives/ISSEVec4.h"

#include <vector>

class KelPhongShader : public KelShader {
public:
    float ambientIntensity = 0.0f;  // ambient light is this much of the diffuse colour
    R3 diffuseColor;
    R3 specularColor;
    R3 emissiveColor;
    R3 reflectiveColor;      // filter of the reflected colour; black: no reflection
    R3 transparentColor;     // filter of the transmitted colour; black: opaque
    float shininess = 0.0f;  // exponent of the highlight
    Oxint texture = -1;      // of the diffuse colour; -1: none
    Oxint m_bumpMapTexture = -1;
    float isReflective = 0.0f;   // luminance of reflectiveColor; derived each frame, as all that follows
    float isTransparent = 0.0f;  // luminance of transparentColor
    const std::vector<OxLight*>* lights = nullptr;  // the scene's; not owned
    float exponent = 0.0f;                          // of the glossy lobe: e to the power of shininess

    char* GetShaderInfo() override;
    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid Shade(OxState* state) override;
    Oxvoid Shade4(OxState4& state4) override;
    Oxvoid EvalBRDF(ProgBRDF& brdf, OxState& state) override;
    bool LightTransparency(OxState* state) override;

    // The steps that derived shaders replace. alpha: transparency that comes from the texture, 0 opaque.
    virtual Oxvoid computeTransparency(OxState* state, R3& shadeColor, float alpha);
    virtual Oxvoid computeReflectivity(OxState* state, R3& shadeColor, const R3& shdNormal);
    virtual Oxvoid computeNormal(OxState* state, R3& shdNormal);
    virtual int getNumLights();
    virtual OxLight* getLight(int i);

    // Shades with a given diffuse colour, which the texture changes in place. The ray's origin must be the hit
    // position already.
    Oxvoid Shade(OxState* state, R3& diffuse, R3& shdNormal, R3& origin);
    // Four primary hits at once, for previews: ambient, emitted, diffuse and specular light with hard shadows. No
    // texture, bump map, reflection, transparency or wireframe; lights shine as if their intensity were one, and the
    // highlight differs from that of single rays. Without lights the packet's colours are left alone.
    Oxvoid Shade4(OxState4& state4, ISSEVec4& diffuse, ISSEVec4& shdNormal, ISSEVec4& origin);

protected:
    // LightTransparency blocks all light in this frame. Valid after its NewFrame.
    bool isOpaque() const;

private:
    // Applies the texture to the diffuse colour; answers the texture's transparency at the hit.
    float applyTexture(OxState* state, R3& diffuse, Oxuint model);
    // What the lights of a hit have in common.
    struct Lit {
        const R3 &diffuse, &shdNormal;
        R3 reflectedView;
        bool testShadows, softShadows, replaceFragment;
    };
    // Adds one light, using `shadow` for its ray. In replace mode answers true when the loop over the lights is over.
    bool addLight(OxState* state, OxState* shadow, OxLight* light, const Lit& lit, R3& shadeColor);
    float highlight(float cosViewLight) const;
    // Adds light number i to four colours, using `shadow` for its rays.
    void addLight4(OxState4& shadow, int i, const ISSEVec4& diffuse, const ISSEVec4& shdNormal, const ISSEVec4& view,
                   ISSEVec4& origin, ISSEVec4& color);
};
