// Models from files: whatever Assimp reads, with their materials, cameras and lights.
#pragma once

#include "Engine/Import/ImportProcess.h"
#include "Engine/Scene/MeshData.h"
#include "Engine/Scene/NodeClip.h"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace oxbeam {

// A mesh of the model where one of its nodes puts it, all parents' transformations included.
struct ModelPart {
    unsigned mesh = 0;
    Matrix meshToModel;
    int node = -1;  // that puts it there; -1 where the model has no clips
};

// A picture that the model brings along, as it stands in the file: encoded, or plain RGBA bytes from the top row down.
struct ModelImage {
    unsigned width = 0, height = 0;  // of plain texels; 0: encoded
    std::vector<std::uint8_t> bytes;
};

// What a material takes from a picture.
struct ModelTexture {
    std::string file;  // within the model's folder; or nothing
    int image = -1;    // number of an image of the model; or -1
    enum Wrap : unsigned { Repeat, Clamp, Mirror } wrap = Repeat;

    bool given() const { return !file.empty() || image >= 0; }
};

struct ModelMaterial {
    enum AlphaMode : unsigned { Opaque, Mask, Blend };

    std::string name;
    R3 baseColor{0.8f, 0.8f, 0.8f};
    float opacity = 1.0f;
    AlphaMode alphaMode = Blend;
    float alphaCutoff = 0.5f;
    R3 emissive;
    // Of what it reflects as a dielectric: share at all angles, and colour straight on, which may be brighter than white.
    float specular = 1.0f;
    R3 specularColor{1.0f, 1.0f, 1.0f};
    float reflectivity = 0.0f;  // of a mirror, beside that
    float metallic = 0.0f, roughness = 1.0f;
    float clearCoat = 0.0f;
    float transmission = 0.0f;
    float ior = 1.5f;
    float thickness = 0.0f;  // 0: an infinitely thin sheet
    R3 attenuationColor{1.0f, 1.0f, 1.0f};
    float attenuationDistance = 0.0f;  // 0: none
    ModelTexture texture;              // colour and alpha
    ModelTexture bumpMap;
    ModelTexture emissiveTexture;    // its mean colour counts
    ModelTexture metalRoughTexture;  // the means of its blue and green, metallic and roughness, count
    bool bumpIsNormal = true;        // else heights
    float bumpScale = 1.0f;
    bool vertexColors = false;
    bool given = false;  // by the file; or else there are only these defaults
};

struct ModelCamera {
    std::string name;
    R3 position, lookAt, lookUp;
    float fov = 40.0f;  // vertical, in degrees
};

struct ModelLight {
    enum Kind : unsigned { Directional, Point, Spot };

    std::string name;
    Kind kind = Point;
    R3 position, direction;
    R3 intensity;
    float attenuation[3] = {0.0f, 0.0f, 1.0f};
    float innerAngle = 0.0f, outerAngle = 0.0f;  // half-angles, in radians
};

struct Model {
    enum Axis : unsigned { X, Y, Z, MinusX, MinusY, MinusZ };

    std::vector<MeshData> meshes;
    std::vector<unsigned> meshMaterials;  // by mesh
    std::vector<ModelPart> parts;
    std::vector<ModelMaterial> materials;  // those that are used, at least one
    std::vector<ModelImage> images;
    std::vector<ModelCamera> cameras;
    std::vector<ModelLight> lights;
    std::vector<ModelNode> nodes;  // where there are clips
    std::vector<NodeClip> clips;
    bool deforms = false;  // meshes bend by bones or morphs, which nothing plays
    std::vector<std::string> warnings;
    std::vector<std::string> files;  // that were read beside it, as seen from its folder; textures are not among them
    Axis up = Y;
    std::uint64_t hash = 0;  // of all that was read
    std::string reader;      // version of Assimp
};

// Polygons are cut into triangles; normals are made where the file has none, smooth but for edges sharper than 40
// degrees. A glTF without normals gets none, which is flat, as its standard says. Points and lines are left out. The
// file is read by a process of its own, which malformed files may crash, hang or swell, and which sees no file outside
// file is read by a process of its own, which malformed files may crash, hang or swell, and which sees no file outside
// the model's folder; its limits grow with the file. Throws Error(BadScene): the file is missing, no regular file, or
// no model, or reading it took too much; Error(InputOutput) where it would take more memory than the limit allows, or the
// system refuses to read it.
OXBEAM_API Model loadModel(const std::filesystem::path& file, const ImportLimits& limits = {});

}  // namespace oxbeam
