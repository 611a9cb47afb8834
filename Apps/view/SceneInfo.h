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

// What stands in the scene: "mesh.0", "model.0".
struct PlacedInfo {
    std::string place;
    Matrix toWorld;
    std::vector<unsigned> instances;
    bool movable = true;
};

// A copy, taken when the scene was loaded or its objects became others.
struct SceneInfo {
    std::string file;
    std::vector<ObjectInfo> objects;
    std::vector<InstanceInfo> instances;  // by number
    std::vector<PlacedInfo> placements;
    std::vector<std::string> textures;  // the scene's own
    std::vector<const ObjectClass*> classes;
    const Registry* registry = nullptr;  // of which nothing changes any more
    Bounds bounds;
    ImageSize image;
    View view;
    bool framed = false;  // nobody has said the view: it is that of all there is
    float fov = 40.0f;
    Tone tone;
    std::string camera;  // the place of the one in force
    unsigned samples = 1;
    std::vector<std::filesystem::path> files;  // that were read for it
};

}  // namespace oxbeam
