// The subcommands of `oxbeam`. Each returns the exit status or throws oxbeam::Error.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/ModelScene.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// What can be said of a model that is given in place of a scene file.
struct ModelCommand {
    std::string shader, environment;  // or nothing
    ViewChoice view;
    std::string ground = "shadow";  // or "none"
    std::string color, texture;     // or nothing
    bool keepMaterials = false;     // of the scene that is written
};

struct RenderCommand {
    std::string text;  // the command line
    std::string scene;
    ModelCommand model;
    std::string output;
    std::string size;    // "WxH", or nothing for the scene's own
    std::string crop;    // "x0,y0,x1,y1", or nothing for the whole picture
    std::string camera;  // one of the scene's named cameras or of a model's, or nothing
    std::optional<unsigned> samples;
    std::optional<unsigned> threads;
    unsigned bits = 8;
    std::vector<std::string> set;
    std::string stats;  // file, or nothing
    std::string aov;    // "depth,normal", or nothing
    std::optional<double> seconds;
    std::string checkpoint;  // file, or nothing
    double checkpointEvery = 60.0;
    bool resume = false;
    bool packets = false;
    std::string isa;  // or nothing for the default
    bool quiet = false;
};

struct SceneCommand {
    std::string model;
    std::string output;  // or nothing for standard output
    std::string size;
    ModelCommand options;
};

// Of "1280x720"; throws Error(Usage).
ImageSize parseSize(const std::string& text);
// `size` is such a text or nothing.
ModelSceneOptions modelSceneOptions(const ModelCommand& command, const std::string& size);
void checkInput(const std::string& scene);
// That a file can be written: throws Error(InputOutput).
void checkWritable(const std::string& file);

// Writes the scene that `render` would make around a model.
ExitStatus runScene(const SceneCommand& command, const Registry& registry);
ExitStatus runRender(const RenderCommand& command, const Registry& registry);
ExitStatus runCheck(const std::string& scene, const std::vector<std::string>& set, const Registry& registry);
// Lays pictures out on one, each labelled with its file's name.
ExitStatus runSheet(const std::vector<std::string>& pictures, const std::string& output, unsigned columns);
ExitStatus runList(const Registry& registry);

}  // namespace oxbeam
