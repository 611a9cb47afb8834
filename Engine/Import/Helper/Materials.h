// From the importer's materials to the model's.
#pragma once

#include "Engine/Import/Helper/GltfDocument.h"
#include "Engine/Import/Helper/ModelFolder.h"

#include <assimp/scene.h>

#include <set>

namespace oxbeam {

class MaterialReader {
public:
    MaterialReader(const aiScene& scene, const ModelFolder& folder, const std::optional<GltfDocument>& gltf,
                   std::vector<std::string>& warnings)
        : m_scene(scene), m_folder(folder), m_gltf(gltf), m_warnings(warnings) {}

    ModelMaterial read(unsigned number);
    // Which set of texture coordinates the material takes, and how they are transformed, as (s, t) with t upwards.
    unsigned coordinateSet(unsigned number) const;
    Matrix coordinateTransform(unsigned number) const;

private:
    std::optional<std::size_t> gltfNumber(unsigned number) const;
    ModelTexture texture(const aiMaterial& material, std::initializer_list<aiTextureType> types);
    std::string textureFile(const std::string& name);

    const aiScene& m_scene;
    const ModelFolder& m_folder;
    const std::optional<GltfDocument>& m_gltf;
    std::vector<std::string>& m_warnings;
    std::set<std::string> m_missing;
};

}  // namespace oxbeam
