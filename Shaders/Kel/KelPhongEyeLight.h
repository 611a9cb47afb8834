// Phong surface with a headlight: a light of its own that shines from the camera along the view, so that a model is lit
// wherever one looks. Back faces are lit like front faces.
#pragma once

#include "KelPhong.h"

#include <memory>

class KelDirectionalLight;

class KelPhongEyeLightShader : public KelPhongShader {
public:
    R3 intensity;                                  // of the eye light
    bool m_cameraOffset = false;                   // tilt the eye light off the line of sight
    std::unique_ptr<KelDirectionalLight> m_light;  // made by Init, aimed by NewFrame

    KelPhongEyeLightShader();
    ~KelPhongEyeLightShader() override;

    void NewFrame() override;
    void Register() override;
    void Init() override;
    Oxvoid computeNormal(OxState* state, R3& shdNormal) override;
    int getNumLights() override;
    OxLight* getLight(int i) override;
};
