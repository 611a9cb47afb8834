// Pinhole camera.
#pragma once

#include "Oxbeam/OxCamera.h"
#include "Primitives/ISSEVec4.h"

class OXBEAM_API OxPerspectiveCamera : public OxCamera {
public:
    R3 lookAt{0.0f, 0.0f, -1.0f};
    R3 lookUp{0.0f, 1.0f, 0.0f};

    char* GetShaderInfo() override;
    void InitCamera(const R3& position, const R3& lookAt, const R3& lookUp, unsigned imgSizeX, unsigned imgSizeY,
                    float left, float right, float bottom, float top, float distance) override;
    bool InitPrimaryRay(OxState* state, int x, int y, const float* pattern) const override;
    bool InitPrimaryRays(int x, int y, unsigned width, const float* patternX, const float* patternY,
                         const float* maxDist, ISSERay4* ray4) const override;

    // Of unit length, through a place in the picture, in pixels from its left top corner.
    R3 direction(float x, float y) const { return Normalize(m_corner + x * m_stepX + y * m_stepY); }
    // The same through four places.
    ISSEVec4 directions(sse_t x, sse_t y) const {
        return Normalize(ISSEVec4(m_corner) + x * ISSEVec4(m_stepX) + y * ISSEVec4(m_stepY));
    }

private:
    R3 m_corner;  // from the eye to the left top corner of the window
    R3 m_stepX;   // from one pixel to the next
    R3 m_stepY;
};
