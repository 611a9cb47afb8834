// Files that a run writes are none that it reads, nor each other.
#pragma once

#include "Apps/oxbeam/Commands.h"
#include "Engine/World/World.h"

#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

struct NamedFile {
    std::string what;  // "--output", "the scene"
    std::filesystem::path file;
};
using NamedFiles = std::vector<NamedFile>;

// Throws Error(Usage) where an output is an input or another output, by whatever name or link.
void requireApart(const NamedFiles& outputs, const NamedFiles& inputs);

NamedFiles outputsOf(const RenderCommand& command);
// What is known before the scene is read.
NamedFiles inputsOf(const std::string& scene, const ModelCommand& model, const Registry& registry);
// What was read.
NamedFiles inputsOf(const std::map<std::filesystem::path, std::uint64_t>& files);

}  // namespace oxbeam
