// What the window knows of a world that belongs to the rendering thread.
#pragma once

#include "Engine/World/World.h"

#include <map>
#include <string>
#include <vector>

namespace oxbeam {

struct ParameterState {
    ParameterValue value;
    bool set = false;  // by anybody, if only to the default

    bool operator==(const ParameterState& other) const { return value.data == other.value.data && set == other.set; }
};

struct ObjectInfo {
    std::string place;
    const ObjectClass* object = nullptr;           // the registry's, which outlives every window
    std::map<std::string, ParameterState> values;  // by id
};

struct InstanceInfo {
    std::string name, mesh, shader;  // the shader's place
    Bounds bounds;
    bool endless = false;
};

// A copy, taken when the scene was loaded or its objects became others.
struct SceneInfo {
    std::string file;
    std::vector<ObjectInfo> objects;
    std::vector<InstanceInfo> instances;  // by number
    std::vector<std::string> textures;    // the scene's own
    std::vector<const ObjectClass*> classes;
    const Registry* registry = nullptr;  // of which nothing changes any more
    Bounds bounds;
    ImageSize image;
    View view;
    float fov = 40.0f;
    Tone tone;
    std::string camera;  // the place of the one in force
    unsigned samples = 1;
};

}  // namespace oxbeam
