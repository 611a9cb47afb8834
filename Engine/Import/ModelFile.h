// Models from files: whatever Assimp reads. What comes back is flat arrays, so that the import can move into a process
// of its own.
#pragma once

#include "Engine/Scene/MeshData.h"

#include <filesystem>
#include <vector>

namespace oxbeam {

// A mesh of the model where one of its nodes puts it, all parents' transformations included.
struct ModelPart {
    unsigned mesh = 0;
    Matrix meshToModel;
};

struct Model {
    std::vector<MeshData> meshes;
    std::vector<ModelPart> parts;
};

// Polygons are cut into triangles; normals are made where the file has none, smooth up to a crease of 45 degrees. Points
// and lines are left out. Throws Error(BadScene): the file is missing, no regular file, or no model.
OXBEAM_API Model loadModel(const std::filesystem::path& file);

}  // namespace oxbeam
