// What the subcommands that render share.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"
#include "Engine/SceneFile/SceneFile.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// ---- Signals

// From here on the first SIGINT or SIGTERM ends the rendering at work, and a second one the process.
void stopOnSignals();
bool stopWanted();
const std::atomic<bool>& stopFlag();
ExitStatus stoppedStatus();

// ---- Arguments; all throw Error where they make no sense

void checkInput(const std::string& scene);
// What would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options);
void checkModelOptions(const RenderCommand& command);
void checkRenderArguments(const RenderCommand& command);
Window parseCrop(const std::string& text, const ImageSize& image);
std::vector<Aov> parseAovs(const std::string& text);
unsigned chooseThreads(const RenderCommand& command, const OxRenderingObject& ro);

// ---- Steps

// A scene, after saying what is to be said of it; nothing where it is bad.
std::unique_ptr<World> load(const std::string& scene, const SceneFileOptions& options, const Registry& registry,
                            bool quiet);

// A scene with what the command line says of its picture.
struct Prepared {
    std::unique_ptr<World> world;
    RenderOptions options;
    unsigned threads = 1;
};

// Without a world where the scene is bad.
Prepared prepare(const RenderCommand& command, const Registry& registry);
void build(World& world, Workers& workers, const std::string& isa);
void warnOfBadResults(const RenderStatistics& statistics);
// Of an eye inside a surface, before it is rendered; of a picture that shows nothing, afterwards.
void warnOfEye(const World& world);
void warnOfPicture(World& world, const RenderResult& result, const std::string& output);

struct Times {
    double load = 0.0, build = 0.0, render = 0.0, write = 0.0;
};

void writeStatistics(const std::string& file, const World& world, const RenderResult& result, const Times& times,
                     unsigned threads);

struct Rendered {
    unsigned width = 0, height = 0;
    std::vector<R3> pixels;
};

// A picture of the command's scene, silently, and as far as it got where a stop is wanted. Unless the command says its
// size it is the scene's, scaled down where a side is longer than `mostSide`. Nothing where the scene is bad, after
// saying why.
std::optional<Rendered> renderPicture(const RenderCommand& command, const Registry& registry, unsigned mostSide);

}  // namespace oxbeam
