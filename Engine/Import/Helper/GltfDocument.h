// What the importer drops or mistakes in a glTF 2.0 file, read from the file's own JSON.
#pragma once

#include "Engine/Import/ModelFile.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace oxbeam {

class GltfDocument {  // NOLINT(bugprone-exception-escape): the parts that it moves do not throw
public:
    // Nothing where the file is no glTF 2.0, be it text or binary.
    static std::optional<GltfDocument> read(const std::filesystem::path& file);

    // The file with what the importer would mistake put right: materials are named by their numbers, since it loses
    // those, and every camera has the aspect ratio 1, since it multiplies the angle by it.
    std::string corrected() const;

    // Which of the document's materials the importer's is, going by the name that corrected() gave it.
    static std::optional<std::size_t> materialNumber(const std::string& name);
    // Factors and extensions; the textures are the importer's business.
    void complete(ModelMaterial& material, std::size_t number) const;
    // Which set of texture coordinates the material takes, and how they are transformed, as (s, t) with t downwards.
    unsigned coordinateSet(std::size_t material) const;
    Matrix coordinateTransform(std::size_t material) const;
    // Whether an animation goes straight from each key to the next, which the importer does not tell.
    bool isStraight(std::size_t animation) const;
    // Extensions that the file cannot do without and nobody here knows.
    std::vector<std::string> unknownRequiredExtensions() const;

private:
    const nlohmann::json* mappedTexture(std::size_t material) const;

    nlohmann::json m_json;
    bool m_binary = false;
    std::string m_rest;  // of a binary file: what follows the JSON
};

}  // namespace oxbeam
