// What the subcommands that render share.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/Output/ImageFile.h"

#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// From here on the first SIGINT or SIGTERM ends the rendering at work, and a second one the process.
void stopOnSignals();
bool stopWanted();
ExitStatus stoppedStatus();

// Throws where there is no such scene file, or none that can be read.
void checkInput(const std::string& scene);

// Throws where nothing could be written: what would make hours of rendering end in nothing is found out first.
void checkOutput(const std::string& file, const ImageOptions& options);

struct Rendered {
    unsigned width = 0, height = 0;
    std::vector<R3> pixels;
};

// A picture of the command's scene, silently, and as far as it got where a stop is wanted. Unless the command says its
// size it is the scene's, scaled down where a side is longer than `mostSide`. Nothing where the scene is bad, after
// saying why.
std::optional<Rendered> renderPicture(const RenderCommand& command, const Registry& registry, unsigned mostSide);

}  // namespace oxbeam
