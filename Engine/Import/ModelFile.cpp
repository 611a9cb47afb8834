#include "Engine/Import/ModelFile.h"

#include "Engine/Diagnostics/Error.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <fmt/format.h>

namespace oxbeam {

namespace fs = std::filesystem;

static Error badModel(const fs::path& file, const std::string& message) {
    return {ExitStatus::BadScene, fmt::format("model '{}' {}", file.string(), message)};
}

static R3 toR3(const aiVector3D& v) { return {v.x, v.y, v.z}; }

static Matrix toMatrix(const aiMatrix4x4& a) {
    Matrix r;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 4; ++j) r.m[i][j] = a[i][j];
    return r;
}

static MeshData toMesh(const aiMesh& from) {
    MeshData mesh;
    mesh.name = from.mName.C_Str();
    for (unsigned i = 0; i < from.mNumVertices; ++i) {
        mesh.positions.push_back(toR3(from.mVertices[i]));
        if (from.HasNormals()) mesh.normals.push_back(toR3(from.mNormals[i]));
        if (from.HasTextureCoords(0))
            mesh.texCoords.emplace_back(from.mTextureCoords[0][i].x, from.mTextureCoords[0][i].y);
        if (const aiColor4D* c = from.mColors[0]) mesh.colors.emplace_back(c[i].r, c[i].g, c[i].b);
    }
    for (unsigned i = 0; i < from.mNumFaces; ++i)
        if (const aiFace& face = from.mFaces[i]; face.mNumIndices == 3)
            mesh.indices.insert(mesh.indices.end(), face.mIndices, face.mIndices + 3);
    return mesh;
}

// Walks the nodes without recursion: a file may nest them arbitrarily deep.
static std::vector<ModelPart> flatten(const aiNode* root) {
    std::vector<ModelPart> parts;
    std::vector<std::pair<const aiNode*, Matrix>> open = {{root, Matrix()}};
    while (!open.empty()) {
        const auto [node, parent] = open.back();
        open.pop_back();
        const Matrix toModel = parent * toMatrix(node->mTransformation);
        for (unsigned i = 0; i < node->mNumMeshes; ++i) parts.push_back({node->mMeshes[i], toModel});
        for (unsigned i = node->mNumChildren; i-- > 0;) open.emplace_back(node->mChildren[i], toModel);
    }
    return parts;
}

Model loadModel(const fs::path& file) {
    std::error_code problem;
    const fs::file_status status = fs::status(file, problem);
    if (!fs::exists(status)) throw badModel(file, "does not exist");
    if (!fs::is_regular_file(status)) throw badModel(file, "is not a regular file");

    Assimp::Importer importer;
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    importer.SetPropertyFloat(AI_CONFIG_PP_GSN_MAX_SMOOTHING_ANGLE, 45.0f);
    const aiScene* scene = importer.ReadFile(file.string(), aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                                                                aiProcess_GenSmoothNormals | aiProcess_SortByPType);
    if (!scene) throw badModel(file, fmt::format("cannot be read: {}", importer.GetErrorString()));
    Model model;
    for (unsigned i = 0; i < scene->mNumMeshes; ++i) model.meshes.push_back(toMesh(*scene->mMeshes[i]));
    if (scene->mRootNode) model.parts = flatten(scene->mRootNode);
    if (model.parts.empty()) throw badModel(file, "has no triangles in it");
    return model;
}

}  // namespace oxbeam
