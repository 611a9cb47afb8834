// What a command's picture is made from, to tell whether two pictures are of the same.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/Provenance/Provenance.h"

#include <string>

namespace oxbeam {

// Whether what is written has room for them.
bool recordsInputs(const RenderCommand& command);
// All that decides every bit of a picture, except how many passes there are.
Inputs inputsOf(const RenderCommand& command, const World& world, const RenderOptions& options);

// Throws Error where a rendering from the inputs that the text tells cannot go on with these, naming all that differ.
void requireSameInputs(const std::string& savedText, const Inputs& now, const std::string& checkpoint);

}  // namespace oxbeam
