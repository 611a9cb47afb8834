#include "Engine/Import/ModelFile.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ModelStream.h"
#include "Engine/System/Hash.h"
#include "Engine/System/InputFile.h"
#include "Engine/System/MemoryBudget.h"

#include <fmt/format.h>

namespace oxbeam {

namespace fs = std::filesystem;

Model loadModel(const fs::path& file, const ImportLimits& limits) {
    const std::string name = fmt::format("model '{}'", file.string());
    const auto badModel = [&](const std::string& message) {
        return Error(ExitStatus::BadScene, fmt::format("{} {}", name, message));
    };
    const InputFile input = inputFile(file);
    if (input.state == InputFile::Missing) throw badModel("does not exist");
    if (input.state == InputFile::NotRegular) throw badModel("is not a regular file");
    if (input.state == InputFile::Refused)
        throw Error(ExitStatus::InputOutput, fmt::format("{} cannot be read: {}", name, input.why));

    ImportLimits grown = limits.forFile(fs::file_size(file));
    grown.advice = ImportAdvice;
    ImportProcess process(ModelProgram, grown);
    const std::uint64_t length = process.ask(file, name);
    const MemoryCharge memory(MemoryUse::Models, length, name);  // what stays is charged where it is kept
    std::uint64_t hash = 0;
    const auto take = [&](void* to, std::size_t size) {
        process.take(to, size);
        hash = hashOf({static_cast<const std::byte*>(to), size}, hash);
    };
    auto result = decodeModel(length, take);
    if (!result) throw badModel("cannot be read: its reader handed back what is no model");
    if (!result->failure.empty()) throw badModel("cannot be read: " + oneLine(result->failure));
    for (std::string& warning : result->model.warnings) warning = oneLine(warning);
    if (result->model.parts.empty()) throw badModel("has no triangles in it");
    result->model.hash = hash;
    result->model.reader = process.version();
    return std::move(result->model);
}

}  // namespace oxbeam
