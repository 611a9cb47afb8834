#include "KelDOFCamera.h"

#include "Kel.h"
#include "Oxbeam/OxExport.h"
#include "Oxbeam/OxFunctions.h"

#include <limits>

static const char ShaderInfo[] =
    "<?xml version=\"1.0\" ?>"
    "<ShaderInfo>"
    "<type>camera</type>"
    "<package>Kel</package>"
    "<id>KelDOFCamera</id>"
    "<longname>KelDOFCamera</longname>"
    "<parameter>"
    "<id>focalDistance</id>"
    "<type>float</type>"
    "<size>1</size>"
    "<default>2.6</default>"
    "</parameter>"
    "<parameter>"
    "<id>focalLength</id>"
    "<type>float</type>"
    "<size>1</size>"
    "<default>0.7</default>"
    "</parameter>"
    "<parameter>"
    "<id>lensRadius</id>"
    "<type>float</type>"
    "<size>1</size>"
    "<default>0.08</default>"
    "</parameter>"
    "<parameter>"
    "<id>focalLengthFromCamera</id>"
    "<type>bool</type>"
    "<default>true</default>"
    "</parameter>"
    " </ShaderInfo>";

KelDOFCamera::~KelDOFCamera() = default;

char* KelDOFCamera::GetShaderInfo() { return const_cast<char*>(ShaderInfo); }

void KelDOFCamera::Init() {
    focalLength = 0.7f;
    focalDistance = 2.6f;
    lensRadius = 0.08f;
    focalLengthFromCamera = 1;
}

void KelDOFCamera::Register() {
    Init();
    oxsDeclareMember(this, "focalLength", focalLength);
    oxsDeclareMember(this, "focalDistance", focalDistance);
    oxsDeclareMember(this, "lensRadius", lensRadius);
    oxsDeclareMember(this, "focalLengthFromCamera", focalLengthFromCamera);
}

void KelDOFCamera::InitCamera(const R3& eye, const R3& at, const R3& up, unsigned imgSizeX, unsigned imgSizeY,
                              float left, float right, float bottom, float top, float imageDistance) {
    position = eye;
    lookAt = at;
    lookUp = up;
    sizeX = imgSizeX;
    sizeY = imgSizeY;
    zAxis = Normalize(lookAt - position);
    xAxis = -Normalize(Cross(zAxis, lookUp));
    yAxis = Normalize(Cross(zAxis, xAxis));
    distance = focalLengthFromCamera ? imageDistance : focalLength;
    imgPlaneOrigin = distance * zAxis - left * xAxis + top * yAxis;
    const float perX = 1.0f / static_cast<float>(sizeX), perY = 1.0f / static_cast<float>(sizeY);
    cxAxis = xAxis * (left - right) * perX;
    cyAxis = yAxis * (bottom - top) * perY;
}

bool KelDOFCamera::InitPrimaryRay(OxState* state, int x, int y, const float* pattern) const {
    const float dx = static_cast<float>(x) + pattern[0];
    const float dy = static_cast<float>(y) + pattern[1];
    KelRay& record = *static_cast<KelRay*>(oxsGetPrivatePtr(state));
    float lx, ly;
    do {
        lx = 2.0f * record.getSample(0) - 1.0f;
        ly = 2.0f * record.getSample(1) - 1.0f;
    } while (lx * lx + ly * ly >= 1.0f);
    lx *= lensRadius;
    ly *= lensRadius;
    const R3 lensPos = position + lx * xAxis + ly * yAxis;
    const R3 filmPos = imgPlaneOrigin + dx * cxAxis + dy * cyAxis;
    const R3 focusPoint = position + filmPos * (focalDistance / distance);
    oxsSetRay(state, lensPos, Normalize(focusPoint - lensPos), std::numeric_limits<float>::infinity());
    state->ray.clippedNear = 0.0f;
    state->ray.clippedFar = std::numeric_limits<float>::infinity();
    return true;
}

void KelDOFCamera::setFocalDistance(float newDistance) { focalDistance = newDistance; }

OX_EXPORT_OBJECT(KelDOFCamera, KelDOFCamera)
