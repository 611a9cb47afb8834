// The subcommands of `oxbeam`. Each returns the exit status or throws oxbeam::Error.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Engine/Packages/Registry.h"
#include "Engine/SceneFile/ModelScene.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// What can be said of a model that is given in place of a scene file; the background also of a scene file.
struct ModelCommand {
    std::string shader, environment;  // or nothing
    float rotateEnvironment = 0.0f;   // degrees
    std::string background;           // "transparent", "environment", or a colour; or nothing
    ViewChoice view;
    std::string ground = "shadow";  // or "none"
    std::string color, texture;     // or nothing
    std::string up;                 // "-z", or nothing for what the file says
    bool keepMaterials = false;     // of the scene that is written
};

// Of pictures that show a scene at different times.
struct SequenceCommand {
    std::string frames;                 // "A..B/STEP", or nothing
    std::string only;                   // some of them, "7,9..12", or nothing
    std::optional<unsigned> turntable;  // frames of a whole turn
    std::vector<std::string> animate;   // "PLACE.PARAM=FROM..TO@EASE"
    std::string clip;                   // of models, or nothing
    double fps = 24.0;
    std::optional<double> duration;  // seconds
    bool missing = false;            // only frames whose files are not there
};

struct RenderCommand {
    std::string text;  // the command line
    std::string scene;
    ModelCommand model;
    std::string output;  // or "-" for standard output
    std::string format;  // of what goes to standard output, "png"
    std::string size;    // "WxH", or nothing for the scene's own
    std::string crop;    // "x0,y0,x1,y1", or nothing for the whole picture
    std::string camera;  // one of the scene's named cameras or of a model's, or nothing
    std::optional<unsigned> samples;
    std::optional<unsigned> threads;
    unsigned bits = 8;
    std::string tone;  // a curve, or nothing for the scene's
    std::optional<float> exposure;
    std::string filter;  // "gaussian", or nothing for the scene's
    std::optional<float> filterWidth;
    std::vector<std::string> set;
    std::string stats;  // file, or nothing
    std::string aov;    // "depth,normal", or nothing
    std::optional<double> seconds;
    std::string checkpoint;  // file, or nothing
    double checkpointEvery = 60.0;
    bool resume = false;
    bool packets = false;
    std::string isa;                      // or nothing for the default
    std::optional<unsigned> importLimit;  // seconds that reading a model may take
    bool quiet = false;
    SequenceCommand sequence;
    std::optional<unsigned> frame;  // of a sequence, that this is the command for
};

// Ends the process without taking down what it has made: that takes time and, where the scheduler lacks threads, may take
// for ever. Answers the status instead in builds whose leaks or coverage are looked at on a normal exit.
ExitStatus leave(ExitStatus status);

struct SceneCommand {
    std::string model;
    std::string output;  // or nothing for standard output
    std::string size;
    ModelCommand options;
    std::optional<unsigned> importLimit;
};

// Of "1280x720"; throws Error(Usage).
ImageSize parseSize(const std::string& text);
// `size` is such a text or nothing.
ModelSceneOptions modelSceneOptions(const ModelCommand& command, const std::string& size);
// What reading a model may take; throws Error(Usage).
ImportLimits importLimits(const std::optional<unsigned>& seconds);
void checkInput(const std::string& scene);
// That a file can be written: throws Error(InputOutput).
void checkWritable(const std::string& file);

// Writes the scene that `render` would make around a model.
ExitStatus runScene(const SceneCommand& command, const Registry& registry);
ExitStatus runRender(const RenderCommand& command, const Registry& registry);
ExitStatus runCheck(const RenderCommand& command, const Registry& registry);
// Lays pictures out on one, each labelled with its file's name.
ExitStatus runSheet(const std::vector<std::string>& pictures, const std::string& output, unsigned columns);
ExitStatus runList(const Registry& registry);

}  // namespace oxbeam
