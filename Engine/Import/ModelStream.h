// A model as bytes, for the way from the process that reads it to the host.
#pragma once

#include "Engine/Import/ModelFile.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

// Starts with a magic number and ends with an end mark; all numbers as this machine has them, all lists after their
// lengths.
std::vector<std::byte> encodeModel(const Model& model);
// The same for a file that is no model: why.
std::vector<std::byte> encodeFailure(const std::string& why);

struct ModelOrFailure {
    Model model;
    std::string failure;  // or nothing
};

// Trusts nothing: nothing comes back where the bytes are not what the functions above make, where a number refers to
// what is not there, or where a list is as long as no list can be. Numbers that are not finite are left to the scene's
// own check where they are vertices; cameras, lights and materials with such are mended or left out.
std::optional<ModelOrFailure> decodeModel(const std::vector<std::byte>& bytes);

}  // namespace oxbeam
