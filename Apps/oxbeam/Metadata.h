// What is said in the headers of the pictures and checkpoints that `oxbeam render` writes.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"

namespace oxbeam {

// Words as a shell takes them back.
std::string shellText(const std::vector<std::string>& words);

// Of the film as it is; `seconds` is the time that went into it.
Attributes attributesOf(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                        double seconds);
ImageOptions pictureOptions(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                            double seconds);

}  // namespace oxbeam
