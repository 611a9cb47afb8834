// Services for packets of four rays, small enough to be compiled into every caller.
#pragma once

#include "Oxbeam/OxLight.h"
#include "Oxbeam/OxState.h"
#include "Oxbeam/OxTypes.h"

OX_SERVICE Oxvoid* oxsGetPrivatePtr4(OxState4& state) { return state.ray4->privatePtr; }
OX_SERVICE Oxvoid oxsSetPrivatePtr4(OxState4& state, Oxvoid* record) { state.ray4->privatePtr = record; }

OX_SERVICE Oxvoid oxsGetRayOrigin4(OxState4& state, ISSEVec4& origin) { origin = state.ray4->origin; }
OX_SERVICE Oxvoid oxsSetRayOrigin4(OxState4& state, ISSEVec4& origin) { state.ray4->origin = origin; }
OX_SERVICE Oxvoid oxsGetRayDirection4(OxState4& state, ISSEVec4& direction) { direction = state.ray4->direction; }

// Asks a light for four samples at once. True: the shadow packet holds the four rays from `pos` to the light and, as
// its colours, the intensities that arrive.
OX_SERVICE bool oxsIlluminate4(Oxvoid* light, OxState4& shadow, ISSEVec4& pos, OxState4& state, Oxvoid* userData) {
    ISSERay4& ray = *shadow.ray4;
    if (!static_cast<OxLight*>(light)->Illuminate4(pos, ray.direction, ray.maxDist, shadow.colors, state, userData))
        return false;
    ray.origin = pos;
    return true;
}
