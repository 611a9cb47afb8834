// The services for packets that Kel's library exports: declared here, not inlined from their header.
#include "Oxbeam/OxState.h"

#include <cstdio>

class OxShader;

Oxvoid oxs4Init(OxState4& state4);
Oxvoid oxs4LoadGeometry(OxState4& state4);
Oxvoid oxs4FindShadingNormal(OxState4& state4, ISSEVec4& normal4);
Oxvoid oxs4GetShader(OxState4& state4, OxShader** shader4, const OxShader* background);
Oxvoid oxs4ApplyTexture(OxState4& state4, ISSEIntersection4& hit4, unsigned int* textureId, ISSEVec4& color4);
bool oxsIlluminate4(Oxvoid* light, OxState4& shadow, ISSEVec4& pos, OxState4& state, Oxvoid* userData);
Oxvoid oxsReflect4(ISSEVec4& newDirection, const ISSEVec4& oldDirection, const ISSEVec4& normal);
Oxvoid* oxsGetPrivatePtr4(OxState4& state);
Oxvoid oxsSetPrivatePtr4(OxState4& state, Oxvoid* record);
Oxvoid oxsGetRayOrigin4(OxState4& state, ISSEVec4& origin);
Oxvoid oxsSetRayOrigin4(OxState4& state, ISSEVec4& origin);
Oxvoid oxsGetRayDirection4(OxState4& state, ISSEVec4& direction);
Oxvoid oxsSetRay4(OxState4& state, const ISSEVec4& origin, const ISSEVec4& direction, sse_t maxDist);
Oxvoid oxsGetHitPosition4(OxState4& state, ISSEVec4& position);

int main() {
    // Of those that need a host, that they are there.
    void* volatile const there[] = {reinterpret_cast<void*>(&oxs4Init), reinterpret_cast<void*>(&oxs4LoadGeometry),
                                    reinterpret_cast<void*>(&oxs4GetShader), reinterpret_cast<void*>(&oxs4ApplyTexture),
                                    reinterpret_cast<void*>(&oxsIlluminate4)};
    for (void* function : there)
        if (!function) return 1;

    ISSERay4 ray;
    ISSEIntersection4 hit;
    OxState4 state;
    state.ray4 = &ray;
    state.hit4 = &hit;
    ISSEVec4 origin, direction, normal, found;
    for (unsigned i = 0; i < 4; ++i) {
        origin.setLane(i, R3(static_cast<float>(i), 0.0f, 0.0f));
        direction.setLane(i, R3(0.0f, 0.0f, -1.0f));
        normal.setLane(i, R3(0.0f, 0.0f, i < 2 ? 2.0f : -2.0f));
        hit.dist[i] = 3.0f;
        hit.tri[i] = -1;
    }
    oxsSetRay4(state, origin, direction, _mm_set1_ps(9.0f));
    oxsSetPrivatePtr4(state, &hit);
    bool good = oxsGetPrivatePtr4(state) == &hit;
    oxsGetHitPosition4(state, found);
    good = good && found.lane(2) == R3(2.0f, 0.0f, -3.0f);
    oxs4FindShadingNormal(state, normal);  // towards the rays, and of unit length
    for (unsigned i = 0; i < 4; ++i) good = good && Length(normal.lane(i) - R3(0.0f, 0.0f, 1.0f)) < 1e-6f;
    oxsGetRayDirection4(state, direction);
    oxsReflect4(found, direction, normal);  // which takes the square of the cosine off
    good = good && Length(found.lane(3) - R3(0.0f, 0.0f, -2.0f)) < 1e-6f;
    oxsSetRayOrigin4(state, direction);
    oxsGetRayOrigin4(state, found);
    good = good && found.lane(1) == direction.lane(1);
    std::puts(good ? "all well" : "a packet service gives something else");
    return good ? 0 : 1;
}
