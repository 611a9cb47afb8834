// The package's side of every light: whether it casts shadows, and the extent over which its samples are jittered.
#pragma once

#include "Oxbeam/OxTypes.h"
#include "Primitives/Vec.h"

class OxLight;
struct OxState;

// Second base of the package's lights, beside the host's light class. The ray services reach it from an OxLight by a
// run-time cast, which fails harmlessly for lights that are not the package's.
//
// Jittering a light's sample point over an extent and averaging over passes makes penumbrae and wide highlights
// (R. Cook, T. Porter and L. Carpenter, "Distributed ray tracing", 1984).
class OXBEAM_API KelLight {
public:
    R3 u;  // jitter axes; their lengths are the extent along them
    R3 v;
    R3 w;
    Oxint castShadow;  // nonzero: the light casts shadows

    KelLight();

    virtual bool CastShadow();
    virtual void Init();
    // Samples that the light wants.
    virtual int samples();
    // Jitters the direction of a shadow ray; the answer is that of deflect.
    virtual bool deflectRay(OxState* state);
    // Jitters a point on the light or a direction towards it with the ray's random numbers. False: the ray's record
    // has none, and p is as it was.
    virtual bool deflect(OxState* state, R3& p);

protected:
    ~KelLight() = default;

    // For lights whose jitter turns the direction towards them: u and v across unit vector d, of length `extent`.
    void setFrameAcross(const R3& d, float extent);
    // Jitters a direction by u and v, to unit length; false, and untouched, without random numbers.
    bool deflectDirection(OxState* state, R3& direction) const;
    // Jitters the state's ray in that way.
    bool deflectRayDirection(OxState* state) const;
};
