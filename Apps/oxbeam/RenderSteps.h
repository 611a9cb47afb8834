// What the subcommands that render share.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"
#include "Engine/SceneFile/SceneFile.h"
#include "Engine/System/MemoryBudget.h"

#include <nlohmann/json_fwd.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// ---- Signals

// From here on SIGINT, SIGTERM, SIGHUP (unless it is ignored, as under nohup) or a reader of standard error that is gone
// ask for an end. It comes within a second, whatever the process does; but what is worth waiting for is finished first.
// A second signal, later, ends the process at once.
void stopOnSignals();

// A rendering at work, and its picture until it is written.
class WorthWaitingFor {
public:
    WorthWaitingFor();
    ~WorthWaitingFor();
    WorthWaitingFor(const WorthWaitingFor&) = delete;
    WorthWaitingFor& operator=(const WorthWaitingFor&) = delete;
};

bool stopWanted();
const std::atomic<bool>& stopFlag();
ExitStatus stoppedStatus();

// ---- Arguments; all throw Error where they make no sense

void checkInput(const std::string& scene);
// What would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options);
void checkModelOptions(const RenderCommand& command);
// Of the picture, whatever its format.
void checkPictureOptions(const RenderCommand& command);
void checkRenderArguments(const RenderCommand& command, const Registry& registry);
// That the picture can have an alpha channel.
void checkAlpha(const RenderCommand& command);
bool toStandardOutput(const RenderCommand& command);
// What messages call the picture, and what tells its format.
std::string pictureName(const RenderCommand& command);
Window parseCrop(const std::string& text, const ImageSize& image);
std::vector<Aov> parseAovs(const std::string& text);
// The index of an option's value among what it can be; nothing where the option is not given.
std::optional<unsigned> parseWord(const std::string& option, const std::string& value,
                                  const std::vector<std::string>& words);
unsigned chooseThreads(const RenderCommand& command, const OxRenderingObject& ro);

// ---- Steps

// Where what there is to say of a scene goes; standard error where nothing is given.
using Say = std::function<void(const Diagnostic&)>;

// A scene, after saying what is to be said of it; nothing where it is bad.
std::unique_ptr<World> load(const std::string& scene, const SceneFileOptions& options, const Registry& registry,
                            bool quiet, const Say& say = {});

// A scene with what the command line says of its picture.
struct Prepared {
    std::unique_ptr<World> world;
    RenderOptions options;
    unsigned threads = 1;
};

// What the command line says of the picture, over what the scene does.
void choosePicture(const RenderCommand& command, World& world);
// Without a world where the scene is bad. `changeable` is SceneFileOptions'.
Prepared prepare(const RenderCommand& command, const Registry& registry, bool changeable = false, const Say& say = {});
// Charges what it takes to make a picture of the command's film and write it, for as long as that is kept; the film must
// have room beside it now, and the file's format pictures as large.
MemoryCharge reservePicture(const RenderCommand& command, const ImageSize& image);
void build(World& world, Workers& workers, const std::string& isa);
void warnOfBadResults(const RenderStatistics& statistics);
// Of an eye inside a surface, before it is rendered; of a picture that shows nothing, afterwards.
void warnOfEye(const World& world);
void warnOfPicture(World& world, const RenderResult& result, const std::string& output);

struct Times {
    double load = 0.0, build = 0.0, render = 0.0, write = 0.0;
};

nlohmann::ordered_json statisticsOf(const World& world, const RenderStatistics& statistics, bool complete,
                                    const Times& times, unsigned threads);
// As JSON. What writing the picture takes is known, and put in, when that is written.
std::string statisticsText(const RenderCommand& command, const World& world, const RenderResult& result,
                           const Times& times, unsigned threads);
void writeStatistics(const std::string& file, const std::string& statistics, double writing);

struct Rendered {
    unsigned width = 0, height = 0;
    std::vector<R3> pixels;  // as a display is to show them, linear
};

// A picture of the command's scene, silently, and as far as it got where a stop is wanted. Unless the command says its
// size it is the scene's, scaled down where a side is longer than `mostSide`. Nothing where the scene is bad, after
// saying why. `ended` is called where a package ends the process by exit().
std::optional<Rendered> renderPicture(const RenderCommand& command, const Registry& registry, unsigned mostSide,
                                      const std::function<void()>& ended);

}  // namespace oxbeam
