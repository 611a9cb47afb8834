#include "Apps/oxbeam/OutputFiles.h"

#include "Apps/oxbeam/RenderSteps.h"
#include "Engine/System/StoredFile.h"

#include <fmt/format.h>

#include <sys/stat.h>

namespace oxbeam {

namespace fs = std::filesystem;

// Of files that are there the system tells. Those that are not yet are one if they would be written to one place.
static bool same(const fs::path& one, const fs::path& other) {
    struct stat a {
    }, b{};
    const bool isThere = stat(one.c_str(), &a) == 0, otherIsThere = stat(other.c_str(), &b) == 0;
    if (isThere && otherIsThere) return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    return !isThere && !otherIsThere && storedAt(one) == storedAt(other);
}

void requireApart(const NamedFiles& outputs, const NamedFiles& inputs) {
    for (auto output = outputs.begin(); output != outputs.end(); ++output) {
        for (auto other = outputs.begin(); other != output; ++other)
            if (same(output->file, other->file))
                throw Error(ExitStatus::Usage, fmt::format("{} and {} name the same file", other->what, output->what));
        for (const NamedFile& input : inputs)
            if (same(output->file, input.file))
                throw Error(ExitStatus::Usage,
                            fmt::format("{} '{}' would overwrite {} '{}', which is read", output->what,
                                        output->file.string(), input.what, input.file.string()));
    }
}

NamedFiles outputsOf(const RenderCommand& command) {
    NamedFiles outputs;
    const auto add = [&](const char* option, const std::string& file) {
        if (!file.empty()) outputs.push_back({option, file});
    };
    add("--checkpoint", command.checkpoint);
    add("--output", toStandardOutput(command) ? "" : command.output);
    add("--stats", command.stats);
    return outputs;
}

NamedFiles inputsOf(const std::string& scene, const ModelCommand& model, const Registry& registry) {
    NamedFiles inputs = {{isSceneFile(scene) ? "the scene" : "the model", scene}};
    if (!model.environment.empty()) inputs.push_back({"the environment", model.environment});
    for (const fs::path& package : registry.packages()) inputs.push_back({"the package", package});
    return inputs;
}

NamedFiles inputsOf(const std::map<fs::path, std::uint64_t>& files) {
    NamedFiles inputs;
    for (const auto& [file, hash] : files) inputs.push_back({"the file", file});
    return inputs;
}

}  // namespace oxbeam
