// Which shading object shows a model's material, with which parameters.
#pragma once

#include "Engine/Import/ModelFile.h"
#include "Engine/Packages/Registry.h"

#include <string>
#include <utility>
#include <vector>

namespace oxbeam {

// A material, and what the scene made of its textures: their names there, or nothing.
struct Surface {
    const ModelMaterial& material;
    std::string texture, bumpMap;
    R3 color;  // base colour, times the mean of the texture where the object takes none
    // Whether there are lights that the surroundings do not show, whose mirror images must be highlights.
    bool highlights = false;
    float size = 1.0f;   // of the model, for a length that the material leaves open
    float scale = 1.0f;  // of the scene's lengths to the model's
};

struct ShaderTable {
    std::string object;
    std::vector<std::pair<std::string, std::string>> parameters;  // as a scene file has them
};

// The roughness that the material's bump map must have, as its object can be rough by nothing else.
float roughnessOfBumps(const Surface& surface);
ShaderTable shaderFor(const Surface& surface);
// An object that stands in for every material of a model of that size, with what shows it at its best.
ShaderTable overrideFor(const ObjectClass& object, float size);
// Whether the object takes a few of many weak lights in each pass.
bool samplesManyLights(const std::string& object);

}  // namespace oxbeam
