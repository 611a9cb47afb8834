// What is being rendered, for the services that take no state.
#pragma once

#include "Oxbeam/OxScene.h"
#include "Oxbeam/OxTypes.h"

#include <vector>

class OxCamera;
class OxLight;
class OxShader;

// Fixed during a frame.
struct OXBEAM_API OxContext {
    static const OxContext* current;  // set by the host while it renders, else null

    const Scene* scene = nullptr;
    std::vector<OxShader*> shaders;  // by instance's shaderBias + object's shader id
    std::vector<OxLight*> lights;
    std::vector<Oxvoid*> lightHandles;  // the same lights, each an OxLight* converted to void*
    OxShader* environment = nullptr;    // never null while rendering
    OxCamera* camera = nullptr;
};
