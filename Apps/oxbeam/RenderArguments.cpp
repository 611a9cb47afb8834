// What stands on the command line of the subcommands that render, and whether it makes sense.
#include "Apps/oxbeam/RenderSteps.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

namespace oxbeam {

namespace fs = std::filesystem;

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
    if (!fs::exists(scene)) throw Error(ExitStatus::InputOutput, fmt::format("{}: no such file", scene));
    if (!fs::is_regular_file(scene)) throw Error(ExitStatus::InputOutput, fmt::format("{}: not a regular file", scene));
    if (access(scene.c_str(), R_OK) != 0)
        throw Error(ExitStatus::InputOutput, fmt::format("{}: cannot be read", scene));
}

// What would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options) {
    checkImageFormat(file, options);
    checkWritable(file);
}

void checkWritable(const std::string& file) {
    if (fs::exists(file) && !fs::is_regular_file(file))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': it exists and is not a regular file", file));
    const fs::path folder = fs::path(file).has_parent_path() ? fs::path(file).parent_path() : fs::path(".");
    if (!fs::is_directory(folder))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': there is no directory '{}'", file, folder.string()));
    if (access(folder.c_str(), W_OK) != 0)
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': directory '{}' is not writable", file, folder.string()));
}

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
    const char* given = !m.shader.empty()        ? "--shader"
                        : !m.environment.empty() ? "--environment"
                        : !m.view.name.empty()   ? "--view"
                        : m.view.azimuth         ? "--azimuth"
                        : m.view.elevation       ? "--elevation"
                        : m.view.zoom != 1.0f    ? "--zoom"
                        : m.ground != "shadow"   ? "--ground"
                        : !m.color.empty()       ? "--color"
                        : !m.texture.empty()     ? "--texture"
                                                 : nullptr;
    if (given && isSceneFile(command.scene))
        throw Error(ExitStatus::Usage, fmt::format("{} is for models; '{}' is a scene file", given, command.scene));
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

// Before anything is loaded.
void checkRenderArguments(const RenderCommand& command) {
    checkOutput(command.output, {command.bits});
    if (!parseAovs(command.aov).empty() && !isExr(command.output))
        throw Error(
            ExitStatus::Usage,
            fmt::format("--aov: '{}' has no room for layers; expected a name that ends in .exr", command.output));
    if (command.seconds && !(*command.seconds > 0.0))
        throw Error(ExitStatus::Usage,
                    fmt::format("--time {:g}: expected a number of seconds above 0", *command.seconds));
    const fs::path stats = command.stats;
    if (stats.has_parent_path() && !fs::is_directory(stats.parent_path()))
        throw Error(ExitStatus::InputOutput,
                    fmt::format("cannot write '{}': there is no such directory", command.stats));
    if (command.checkpoint.empty()) return;
    if (!isExr(command.checkpoint))
        throw Error(ExitStatus::Usage,
                    fmt::format("--checkpoint '{}': expected a name that ends in .exr", command.checkpoint));
    if (fs::weakly_canonical(command.checkpoint) == fs::weakly_canonical(command.output))
        throw Error(ExitStatus::Usage, "--checkpoint and --output name the same file");
    if (!(command.checkpointEvery >= 1.0))
        throw Error(ExitStatus::Usage,
                    fmt::format("--checkpoint-every {:g}: expected at least 1 second", command.checkpointEvery));
    checkWritable(command.checkpoint);
}

}  // namespace oxbeam
