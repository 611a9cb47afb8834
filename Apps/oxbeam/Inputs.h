// What a command's picture is made from, to tell whether two pictures are of the same.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/Provenance/Provenance.h"

#include <string>
#include <vector>

namespace oxbeam {

// Whether what is written has room for them.
bool recordsInputs(const RenderCommand& command);
// All that decides every bit of a picture, except how many passes there are.
Inputs inputsOf(const RenderCommand& command, const World& world, const RenderOptions& options);

// Those that the parts of one picture have in common, wherever they are rendered: without the crop, the frame and the
// folders of files, which count by what they hold; instruction sets that give the same bits are one.
Inputs sharedInputs(Inputs inputs);

// Throws nlohmann::json::exception where the text tells none.
Inputs inputsFrom(const std::string& text);

// What differs, in words; nothing where all is alike.
struct Differences {
    std::vector<std::string> words;
    ExitStatus status = ExitStatus::Usage;  // BadScene where it is more than options
};
Differences differencesOf(const Inputs& then, const Inputs& now);
// Throws Error where a rendering from the inputs that the text tells cannot go on with these, naming all that differ.
void requireSameInputs(const std::string& savedText, const Inputs& now, const std::string& checkpoint);

}  // namespace oxbeam
