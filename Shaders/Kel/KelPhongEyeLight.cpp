#include "KelPhongEyeLight.h"

#include "KelDirectionalLight.h"
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"

KelPhongEyeLightShader::KelPhongEyeLightShader() = default;

KelPhongEyeLightShader::~KelPhongEyeLightShader() = default;

void KelPhongEyeLightShader::Init() {
    KelPhongShader::Init();
    intensity = White;
    m_light = std::make_unique<KelDirectionalLight>();
}

void KelPhongEyeLightShader::Register() {
    KelPhongShader::Register();
    oxsDeclareMember(this, "intensity", intensity);
    oxsDeclareMember(this, "cameraOffset", m_cameraOffset);
}

// A camera that has no look-at point leaves the eye light as it was.
void KelPhongEyeLightShader::NewFrame() {
    KelPhongShader::NewFrame();
    const auto* camera = dynamic_cast<const OxPerspectiveCamera*>(oxGetCamera());
    if (!camera) return;
    R3 direction = camera->lookAt - camera->position;
    if (m_cameraOffset) direction += R3(0.2f, -0.2f, 0.0f);
    m_light->direction = direction;
    m_light->intensity = intensity;
    m_light->NewFrame();
}

Oxvoid KelPhongEyeLightShader::computeNormal(OxState* state, R3& shdNormal) {
    KelPhongShader::computeNormal(state, shdNormal);
    oxsNormalizeFaceForward(state, shdNormal);
}

// The eye light comes last. Without a light list there is no light at all, although getLight would give it.
int KelPhongEyeLightShader::getNumLights() { return lights ? static_cast<int>(lights->size()) + 1 : 0; }

OxLight* KelPhongEyeLightShader::getLight(int i) {
    if (!lights || i >= static_cast<int>(lights->size())) return m_light.get();
    return (*lights)[static_cast<unsigned>(i)];
}

OX_EXPORT_OBJECT(KelPhongEyeLight, KelPhongEyeLightShader)
