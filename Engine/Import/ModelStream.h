// A model as bytes, for the way from the process that reads it to the host.
#pragma once

#include "Engine/Import/ModelFile.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace oxbeam {

// Takes the next so many bytes, which are the caller's.
using ModelSink = std::function<void(const void*, std::size_t)>;
// Hands over the next so many bytes, or throws.
using ModelSource = std::function<void(void*, std::size_t)>;

// Starts with a magic number and ends with an end mark; all numbers as this machine has them, all lists after their
// lengths. Arrays go straight to the sink.
void encodeModel(const Model& model, const ModelSink& sink);
// The same for a file that is no model: why.
void encodeFailure(const std::string& why, const ModelSink& sink);

struct ModelOrFailure {
    Model model;
    std::string failure;  // or nothing
};

// Trusts nothing: nothing comes back where the bytes are not what the functions above make, where a number refers to
// what is not there, or where a list is as long as no list can be. Numbers that are not finite are left to the scene's
// own check where they are vertices; cameras, lights and materials with such are mended or left out.
// Asks for no more than `size` bytes, and for all of them only where they are a model.
std::optional<ModelOrFailure> decodeModel(std::uint64_t size, const ModelSource& source);

}  // namespace oxbeam
