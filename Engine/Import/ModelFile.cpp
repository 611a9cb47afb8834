#include "Engine/Import/ModelFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/ModelStream.h"
#include "Engine/System/Hash.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxbeam {

namespace fs = std::filesystem;

// One line without control characters, whatever a file made the importer say.
static std::string tidy(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 32; }, ' ');
    if (text.size() > 300) text = text.substr(0, 300) + "...";
    return text;
}

Model loadModel(const fs::path& file) {
    const auto badModel = [&](const std::string& message) {
        return Error(ExitStatus::BadScene, fmt::format("model '{}' {}", file.string(), message));
    };
    std::error_code problem;
    const fs::file_status status = fs::status(file, problem);
    if (!fs::exists(status)) throw badModel("does not exist");
    if (!fs::is_regular_file(status)) throw badModel("is not a regular file");

    const ImportOutcome outcome = runImport(file);
    auto result = outcome.failure.empty() ? decodeModel(outcome.bytes) : std::nullopt;
    if (!outcome.failure.empty()) throw badModel(outcome.failure);
    if (!result) throw badModel("cannot be read: its reader handed back what is no model");
    if (!result->failure.empty()) throw badModel("cannot be read: " + tidy(result->failure));
    for (std::string& warning : result->model.warnings) warning = tidy(warning);
    if (result->model.parts.empty()) throw badModel("has no triangles in it");
    result->model.hash = hashOf(outcome.bytes);
    return std::move(result->model);
}

}  // namespace oxbeam
