// Base of cameras: they make the primary rays.
#pragma once

#include "Oxbeam/OxLoadableObject.h"
#include "Primitives/Vec.h"

struct ISSERay4;
struct OxState;

class OXBEAM_API OxCamera : public OxLoadableObject {
public:
    R3 position;

    // Sets the view. The image window spans left..right and bottom..top on a plane `distance` in front of the
    // eye; pixel (0, 0) is its left top corner, x runs to the right and y downwards.
    virtual void InitCamera(const R3& position, const R3& lookAt, const R3& lookUp, unsigned imgSizeX,
                            unsigned imgSizeY, float left, float right, float bottom, float top, float distance);
    // Makes the ray through pixel (x, y); pattern[0], pattern[1] in [0, 1) are the sample's place in the pixel.
    // The ray's package record is attached before the call. False: there is no ray for this sample.
    virtual bool InitPrimaryRay(OxState* state, int x, int y, const float* pattern) const;
    virtual void setFocalDistance(float distance);
    // Four rays at once, for a block of pixels that starts at (x, y) and is `width` pixels wide (1, 2 or 4), row
    // by row; patternX, patternY and maxDist hold four values each. False: this camera makes single rays only.
    virtual bool InitPrimaryRays(int x, int y, unsigned width, const float* patternX, const float* patternY,
                                 const float* maxDist, ISSERay4* ray4) const;
};
