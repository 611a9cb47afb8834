#include "Engine/Import/ModelFile.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ModelStream.h"
#include "Engine/System/Hash.h"

#include <fmt/format.h>

#include <unistd.h>

namespace oxbeam {

namespace fs = std::filesystem;

Model loadModel(const fs::path& file, const ImportLimits& limits) {
    const std::string name = fmt::format("model '{}'", file.string());
    const auto badModel = [&](const std::string& message) {
        return Error(ExitStatus::BadScene, fmt::format("{} {}", name, message));
    };
    std::error_code problem;
    const fs::file_status status = fs::status(file, problem);
    if (!fs::exists(status)) throw badModel("does not exist");
    if (!fs::is_regular_file(status)) throw badModel("is not a regular file");
    if (access(file.c_str(), R_OK) != 0) throw badModel("cannot be read: permission denied");

    ImportLimits grown = limits.forFile(fs::file_size(file, problem));
    grown.advice = ImportAdvice;
    ImportProcess process(ModelProgram, grown);
    std::uint64_t hash = 0;
    const auto take = [&](void* to, std::size_t size) {
        process.take(to, size);
        hash = hashOf({static_cast<const std::byte*>(to), size}, hash);
    };
    auto result = decodeModel(process.ask(file, name), take);
    if (!result) throw badModel("cannot be read: its reader handed back what is no model");
    if (!result->failure.empty()) throw badModel("cannot be read: " + oneLine(result->failure));
    for (std::string& warning : result->model.warnings) warning = oneLine(warning);
    if (result->model.parts.empty()) throw badModel("has no triangles in it");
    result->model.hash = hash;
    return std::move(result->model);
}

}  // namespace oxbeam
