// Base of lights.
#pragma once

#include "Oxbeam/OxLoadableObject.h"
#include "Primitives/ISSEVec4.h"
#include "Primitives/Vec.h"

struct OxState;
struct OxState4;

enum OxLightType : int { OX_POINT_LIGHT = 0, OX_DIRECTIONAL_LIGHT = 1, OX_SPOT_LIGHT = 2, OX_ENVIRONMENT_LIGHT = 3 };

class OXBEAM_API OxLight : public OxLoadableObject {
public:
    OxLightType type = OX_POINT_LIGHT;

    // Light arriving at `position`: the unit direction towards the light, its distance and the intensity that
    // arrives. False where the light does not reach the point; shadows are the caller's business. `state` is the
    // shadow ray's, `shader` the calling surface shader.
    virtual bool Illuminate(const R3& position, R3& direction, float& distance, R3& intensity, OxState* state,
                            void* shader);
    // The same for four points.
    virtual bool Illuminate4(const ISSEVec4& position, ISSEVec4& direction, sse_t& distance, ISSEVec4& intensity,
                             OxState4& state, void* shader);
    // A point on the light, and a direction in which it emits, for s, t uniform in [0, 1).
    virtual void SamplePosition(R3& position, float s, float t) const;
    virtual void SampleDirection(R3& direction, float s, float t) const;
    // Intensity emitted from `position` in `direction`, without distance attenuation.
    virtual void GetIWE(const R3& position, const R3& direction, R3& intensity) const;
    virtual R3 GetNormal(const R3& position) const;
    virtual float GetSampleProbability() const;
    // The light as a sphere: centre, intensity, radius.
    virtual void AsPointLight(R3& position, R3& intensity, float& radius) const;
    virtual void EstimateImportance(float& a, float& b) const;
    // Cosine of the half-angle of the cone that the light fills; 0 where it has none.
    virtual float GetIlluminanceAngle() const;
};
