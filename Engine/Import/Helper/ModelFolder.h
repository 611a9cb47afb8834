// The part of the file system that a model may see: regular files in its own folder and below.
#pragma once

#include <assimp/DefaultIOSystem.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace oxbeam {

class ModelFolder final : public Assimp::DefaultIOSystem {
public:
    // `model` may be a link to anywhere; all else must lie in the folder that it is named in.
    explicit ModelFolder(const std::filesystem::path& model);

    bool Exists(const char* name) const override;
    Assimp::IOStream* Open(const char* name, const char* mode) override;

    // The model is served from these bytes instead of from its file.
    void replaceModel(std::string bytes) { m_replacement = std::move(bytes); }
    // Where a file that the model names really is; nothing where that is not a regular file in the folder.
    std::optional<std::filesystem::path> find(const std::string& name) const;
    const std::filesystem::path& folder() const { return m_folder; }
    const std::filesystem::path& model() const { return m_model; }
    // What was opened beside the model, as seen from the folder.
    const std::set<std::string>& opened() const { return m_opened; }

private:
    std::filesystem::path m_folder, m_model;  // canonical
    std::optional<std::string> m_replacement;
    std::set<std::string> m_opened;
};

}  // namespace oxbeam
