// What is said in the headers of the pictures and checkpoints that `oxbeam render` writes.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Apps/oxbeam/Inputs.h"
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/ViewMatrices.h"

namespace oxbeam {

// Of checkpoints: the inputs' text.
inline constexpr const char* InputsName = "oxbeam:inputs";

// Words as a shell takes them back.
std::string shellText(const std::vector<std::string>& words);

// What is said of a picture beside its film.
struct PictureFacts {
    ImageSize image;  // the whole picture's
    Tone tone;
    ViewMatrices view;
    std::string objects;  // the names of a layer's objects, by number, as JSON; nothing without the layer
    Inputs inputs;
    double seconds = 0.0;  // that went into it
};

PictureFacts factsOf(const RenderCommand& command, const World& world, const Inputs& inputs, double seconds);

// Of the film as it is.
Attributes attributesOf(const RenderCommand& command, const PictureFacts& facts, const Film& film);
ImageOptions pictureOptions(const RenderCommand& command, const PictureFacts& facts, const Film& film);
// The same of a world that has just been rendered.
inline Attributes attributesOf(const RenderCommand& command, const World& world, const Inputs& inputs, const Film& film,
                               double seconds) {
    return attributesOf(command, factsOf(command, world, inputs, seconds), film);
}
inline ImageOptions pictureOptions(const RenderCommand& command, const World& world, const Inputs& inputs,
                                   const Film& film, double seconds) {
    return pictureOptions(command, factsOf(command, world, inputs, seconds), film);
}

}  // namespace oxbeam
