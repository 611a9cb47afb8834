// The options of `oxbeam render` that decide the picture, however and wherever it is rendered.
#pragma once

#include "Apps/oxbeam/Commands.h"

namespace CLI {
class App;
}

namespace oxbeam {

void addPictureOptions(CLI::App& app, RenderCommand& command);

// Those among them that were given to a subcommand that has been parsed, as the words of a command line; and what such
// words say. The second throws Error(Usage) where they make no sense.
std::vector<std::string> pictureWords(const CLI::App& app);
RenderCommand pictureCommand(const std::vector<std::string>& words);

}  // namespace oxbeam
