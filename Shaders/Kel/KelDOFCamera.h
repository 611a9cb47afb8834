// Camera with depth of field: a thin lens that is sharp at one distance.
//
// M. Potmesil and I. Chakravarty, "A lens and aperture camera model for synthetic image generation" (1981).
#pragma once

#include "Oxbeam/OxCamera.h"

// Draws the place on the lens from the ray's record, which must be attached and seeded.
class KelDOFCamera : public OxCamera {
public:
    R3 position;  // centre of the lens; the base's own is not used
    R3 lookUp;
    R3 lookAt;
    R3 imgPlaneOrigin;            // from the eye to the window's left top corner, on the image plane
    Oxuint sizeX = 0, sizeY = 0;  // pixels
    R3 xAxis, yAxis, zAxis;       // to the left, upwards, and the way it looks
    R3 cxAxis, cyAxis;            // from one pixel to the next
    float focalLength = 0.0f;     // distance of the image plane when the host's is not taken
    float focalDistance = 0.0f;   // of the plane in focus
    float lensRadius = 0.0f;
    Oxuint focalLengthFromCamera = 0;  // nonzero: the host says how far away the image plane is
    float distance = 0.0f;             // of the image plane in use

    ~KelDOFCamera() override;

    char* GetShaderInfo() override;
    void Register() override;
    void Init() override;
    void InitCamera(const R3& position, const R3& lookAt, const R3& lookUp, unsigned imgSizeX, unsigned imgSizeY,
                    float left, float right, float bottom, float top, float distance) override;
    bool InitPrimaryRay(OxState* state, int x, int y, const float* pattern) const override;
    void setFocalDistance(float distance) override;
};
