// What a picture is made from, and what is said of it in the header of its file.
#pragma once

#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/ViewMatrices.h"
#include "Engine/SceneFile/SceneFile.h"

#include <filesystem>
#include <map>
#include <string>

namespace oxbeam {

// By what people call it: hashes of files, and values of options.
using Inputs = std::map<std::string, std::string>;

// A world that was loaded: its files, and what was asked for beside them. Throws Error(InputOutput) where the scene's file
// is gone.
OXBEAM_API Inputs inputsOf(const std::filesystem::path& scene, const SceneFileOptions& asked, const World& world);
// Adds how it is rendered, and what renders it. Together that decides every bit of a picture, except for how many passes
// there are and for what was changed in the world after it was loaded.
OXBEAM_API void addRendering(Inputs& inputs, const World& world, const RenderOptions& options,
                             const std::string& isa = SceneGeometry::defaultIsa());
// Of what can be changed in a world: objects and what was set in them, placements, the view. What is changed back has the
// hash that it had; vertices and pictures that a program brought are not in it.
OXBEAM_API std::uint64_t stateOf(const World& world);
OXBEAM_API std::string hashText(std::uint64_t hash);
OXBEAM_API std::string inputsText(const Inputs& inputs);

// How a picture came to be.
struct Making {
    std::string command;
    const Inputs& inputs;
    unsigned passes;
    double seconds;
};

// All that EXR pictures and checkpoints say of themselves.
OXBEAM_API Attributes attributesOf(const ViewMatrices& view, const Making& making);
// The names of what can be hit, by the numbers that the layer "object" has, as JSON.
OXBEAM_API std::string objectNames(const World& world);
// "oxbeam" and its version, the one attribute that pictures of every format have.
OXBEAM_API std::string software();

}  // namespace oxbeam
