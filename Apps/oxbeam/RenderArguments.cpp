// What stands on the command line of the subcommands that render, and whether it makes sense.
#include "Apps/oxbeam/RenderSteps.h"

#include "Apps/oxbeam/OutputFiles.h"
#include "Engine/Output/Movie.h"
#include "Engine/System/InputFile.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace oxbeam {

// "1280x720". Nine digits at most: longer numbers would be taken modulo 2^32.
ImageSize parseSize(const std::string& text) {
    ImageSize size;
    char rest;
    if (text.find('-') != std::string::npos ||
        std::sscanf(text.c_str(), "%9ux%9u%c", &size.width, &size.height, &rest) != 2 ||
        std::min(size.width, size.height) < 1 || std::max(size.width, size.height) > MaxImageSide)
        throw Error(ExitStatus::Usage,
                    fmt::format("--size {}: expected WIDTHxHEIGHT, each from 1 to {}", text, MaxImageSide));
    return size;
}

Window parseCrop(const std::string& text, const ImageSize& image) {
    Window w;
    char rest;
    if (text.find('-') != std::string::npos ||
        std::sscanf(text.c_str(), "%9u,%9u,%9u,%9u%c", &w.x0, &w.y0, &w.x1, &w.y1, &rest) != 4 || w.x0 >= w.x1 ||
        w.y0 >= w.y1 || w.x1 > image.width || w.y1 > image.height)
        throw Error(ExitStatus::Usage,
                    fmt::format("--crop {}: expected left,top,right,bottom within the picture of {} x "
                                "{} pixels",
                                text, image.width, image.height));
    return w;
}

void checkInput(const std::string& scene) {
    const InputFile file = inputFile(scene);
    const std::string why = file.state == InputFile::Readable     ? ""
                            : file.state == InputFile::Missing    ? "no such file"
                            : file.state == InputFile::NotRegular ? "not a regular file"
                                                                  : "cannot be read: " + file.why;
    if (!why.empty()) throw Error(ExitStatus::InputOutput, fmt::format("{}: {}", scene, why));
}

// What would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options) {
    checkImageFormat(file, options);
    checkWritable(file);
}

void checkWritable(const std::string& file) { const StoredFile tried(file); }

unsigned chooseThreads(const RenderCommand& command, const OxRenderingObject& ro) {
    constexpr unsigned most = OxRenderingObject::MaxThreads;
    if (command.threads && (*command.threads < 1 || *command.threads > most))
        throw Error(ExitStatus::Usage, fmt::format("--threads {}: expected 1 to {}; packages keep records for no more",
                                                   *command.threads, most));
    if (command.threads) return *command.threads;
    if (ro.m_multiThreading == 0) return 1;
    if (ro.m_numThreads > 0) return static_cast<unsigned>(ro.m_numThreads);
    return std::min(availableThreads(), most);
}

// They say how a scene is made around a model; a scene file says all that itself.
void checkModelOptions(const RenderCommand& command) {
    const ModelCommand& m = command.model;
    const char* given = !m.shader.empty()             ? "--shader"
                        : !m.environment.empty()      ? "--environment"
                        : !m.view.name.empty()        ? "--view"
                        : m.view.azimuth              ? "--azimuth"
                        : m.view.elevation            ? "--elevation"
                        : m.view.zoom != 1.0f         ? "--zoom"
                        : m.ground != "shadow"        ? "--ground"
                        : m.rotateEnvironment != 0.0f ? "--rotate-environment"
                        : !m.up.empty()               ? "--up"
                        : !m.color.empty()            ? "--color"
                        : !m.texture.empty()          ? "--texture"
                                                      : nullptr;
    if (given && isSceneFile(command.scene))
        throw Error(ExitStatus::Usage, fmt::format("{} is for models; '{}' is a scene file", given, command.scene));
}

std::optional<unsigned> parseWord(const std::string& option, const std::string& value,
                                  const std::vector<std::string>& words) {
    if (value.empty()) return std::nullopt;
    const auto found = std::find(words.begin(), words.end(), value);
    if (found == words.end())
        throw Error(ExitStatus::Usage, fmt::format("{} {}: expected one of {}{}", option, value, fmt::join(words, ", "),
                                                   didYouMean(value, words)));
    return static_cast<unsigned>(found - words.begin());
}

// "depth,normal", each once.
std::vector<Aov> parseAovs(const std::string& text) {
    const std::vector<std::string>& names = aovNames();
    std::vector<Aov> aovs;
    std::istringstream stream(text);
    for (std::string name; std::getline(stream, name, ',');) {
        const auto found = std::find(names.begin(), names.end(), name);
        if (found == names.end())
            throw Error(ExitStatus::Usage, fmt::format("--aov {}: there is no '{}'; expected some of {}{}", text, name,
                                                       fmt::join(names, ","), didYouMean(name, names)));
        const auto aov = static_cast<Aov>(found - names.begin());
        if (std::count(aovs.begin(), aovs.end(), aov) == 0) aovs.push_back(aov);
    }
    return aovs;
}

bool toStandardOutput(const RenderCommand& command) { return command.output == "-"; }

std::string pictureName(const RenderCommand& command) {
    return toStandardOutput(command) ? "standard output." + command.format : command.output;
}

void checkAlpha(const RenderCommand& command) {
    if (const std::string name = pictureName(command); !hasRoomForAlpha(name))
        throw Error(ExitStatus::Usage, fmt::format("a transparent background: '{}' has no room for alpha; expected a "
                                                   "name that ends in .png, .tif or .exr",
                                                   name));
}

static void checkFormat(const RenderCommand& command) {
    const bool given = parseWord("--format", command.format, imageFormats()).has_value();
    if (toStandardOutput(command) && !given)
        throw Error(ExitStatus::Usage,
                    fmt::format("-o -: expected --format with one of {}", fmt::join(imageFormats(), ", ")));
    if (given && !toStandardOutput(command))
        throw Error(ExitStatus::Usage, fmt::format("--format is for -o -; '{}' tells its format", command.output));
}

static void checkRange(const char* option, const std::optional<float>& value, float least, float most) {
    if (value && !(*value >= least && *value <= most))
        throw Error(ExitStatus::Usage,
                    fmt::format("{} {:g}: expected a number from {:g} to {:g}", option, *value, least, most));
}

void checkPictureOptions(const RenderCommand& command) {
    checkRange("--exposure", command.exposure, -MostExposure, MostExposure);
    checkRange("--filter-width", command.filterWidth, LeastFilterWidth, MostFilterWidth);
    parseWord("--tone", command.tone, toneCurveNames());
    parseWord("--filter", command.filter, pixelFilterNames());
    if (isSceneFile(command.scene)) parseWord("--background", command.model.background, backgroundNames());
    parseAovs(command.aov);
}

// Whether the picture's format has room for all that is asked of it.
static void checkRoom(const RenderCommand& command) {
    const std::string name = pictureName(command);
    if (command.model.background == backgroundNames()[1]) checkAlpha(command);
    if (const char* given = command.exposure        ? "--exposure"
                            : !command.tone.empty() ? "--tone"
                                                    : nullptr;
        given && !isForDisplay(name))
        throw Error(ExitStatus::Usage, fmt::format("{}: '{}' keeps the light as it is; expected a name that ends in "
                                                   ".png, .jpg or .tif",
                                                   given, name));
    if (!parseAovs(command.aov).empty() && !isExr(name))
        throw Error(ExitStatus::Usage,
                    fmt::format("--aov: '{}' has no room for layers; expected a name that ends in .exr", name));
}

// Before anything is loaded.
void checkRenderArguments(const RenderCommand& command, const Registry& registry) {
    checkFormat(command);
    if (isMovie(command.output))
        checkMovie(command.output, {command.bits});
    else
        checkImageFormat(pictureName(command), {command.bits});
    if (!toStandardOutput(command)) checkWritable(command.output);
    if (!command.checkpoint.empty() && !isExr(command.checkpoint))
        throw Error(ExitStatus::Usage,
                    fmt::format("--checkpoint '{}': expected a name that ends in .exr", command.checkpoint));
    requireApart(outputsOf(command), inputsOf(command.scene, command.model, registry));
    checkPictureOptions(command);
    checkRoom(command);
    if (command.seconds && !(*command.seconds > 0.0))
        throw Error(ExitStatus::Usage,
                    fmt::format("--time {:g}: expected a number of seconds above 0", *command.seconds));
    if (!command.stats.empty()) checkWritable(command.stats);
    if (command.checkpoint.empty()) return;
    if (!(command.checkpointEvery >= 1.0))
        throw Error(ExitStatus::Usage,
                    fmt::format("--checkpoint-every {:g}: expected at least 1 second", command.checkpointEvery));
    checkWritable(command.checkpoint);
}

}  // namespace oxbeam
