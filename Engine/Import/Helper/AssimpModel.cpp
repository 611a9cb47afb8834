#include "Engine/Import/Helper/AssimpModel.h"

#include "Engine/Import/Helper/Materials.h"
#include "Engine/Import/Helper/Normals.h"
#include "Engine/Import/Helper/PlyFile.h"
#include "Engine/Import/Helper/Vertices.h"
#include "Engine/Import/Helper/X3dDocument.h"

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <stdexcept>

namespace oxbeam {

namespace fs = std::filesystem;

static R3 toR3(const aiVector3D& v) { return {v.x, v.y, v.z}; }

static Matrix toMatrix(const aiMatrix4x4& a) {
    Matrix r;
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 4; ++j) r.m[i][j] = a[i][j];
    return r;
}

// ---- Which way is up

// Formats whose files have z upwards and whose importer leaves it at that. Those that it turns itself (3DS, ASE, IFC,
// MD2, ...), those that say it in the file (COLLADA, which the importer turns; FBX and glTF) and those where y is up by
// definition or custom are not in it.
static const std::map<std::string, Model::Axis> UpAxes = {
    {".3d", Model::Z},  {".3mf", Model::Z}, {".amf", Model::Z}, {".blend", Model::Z}, {".cob", Model::Z},
    {".dxf", Model::Z}, {".hmp", Model::Z}, {".nff", Model::Z}, {".q3o", Model::Z},   {".q3s", Model::Z},
    {".smd", Model::Z}, {".stl", Model::Z}, {".uc", Model::Z},  {".vta", Model::Z},
};

static std::string endingOf(const fs::path& file) {
    std::string ending = file.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
    return ending;
}

static Model::Axis upAxis(const aiScene& scene, const std::string& ending) {
    int axis = 1;
    if (ending == ".fbx" && scene.mMetaData && scene.mMetaData->Get("UpAxis", axis) && axis >= 0 && axis < 3) {
        int sign = 1;
        scene.mMetaData->Get("UpAxisSign", sign);
        return static_cast<Model::Axis>(sign < 0 ? axis + Model::MinusX : axis);
    }
    const auto known = UpAxes.find(ending);
    return known == UpAxes.end() ? Model::Y : known->second;
}

// ---- Meshes and nodes

// How meshes are taken over from a format.
struct MeshRules {
    bool takeNormals = true;  // of the file
    bool makeNormals = true;  // where none are taken
    bool tellUnused = true;   // where no triangle uses most of the vertices
};

// Facets of a solid (STL) have a normal each, which says no more than their corners do, and nothing of what is round.
// A glTF without normals is flat, and many of its meshes may each use a part of the same vertices.
static MeshRules rulesOf(const std::string& ending, bool isGltf) { return {ending != ".stl", !isGltf, !isGltf}; }

static MeshData toMesh(const aiMesh& from, const MeshRules& rules, unsigned coordinateSet, const Matrix& coordinates) {
    MeshData mesh;
    mesh.name = from.mName.C_Str();
    const std::size_t vertices = from.mNumVertices;
    mesh.positions.reserve(vertices);
    std::transform(from.mVertices, from.mVertices + vertices, std::back_inserter(mesh.positions), toR3);
    if (from.HasNormals() && rules.takeNormals) {
        mesh.normals.reserve(vertices);
        std::transform(from.mNormals, from.mNormals + vertices, std::back_inserter(mesh.normals), toR3);
    }
    if (const aiVector3D* st = from.mTextureCoords[from.HasTextureCoords(coordinateSet) ? coordinateSet : 0]) {
        mesh.texCoords.reserve(vertices);
        for (std::size_t i = 0; i < vertices; ++i) {
            const R3 moved = TransformPoint(coordinates, R3(st[i].x, st[i].y, 0.0f));
            mesh.texCoords.emplace_back(moved.x, moved.y);
        }
    }
    if (const aiColor4D* c = from.mColors[0]) {
        mesh.colors.reserve(vertices);
        for (std::size_t i = 0; i < vertices; ++i) mesh.colors.emplace_back(c[i].r, c[i].g, c[i].b);
    }
    mesh.indices.reserve(std::size_t{3} * from.mNumFaces);
    for (unsigned i = 0; i < from.mNumFaces; ++i)
        if (const aiFace& face = from.mFaces[i]; face.mNumIndices == 3)
            mesh.indices.insert(mesh.indices.end(), face.mIndices, face.mIndices + 3);
    return mesh;
}

// Walks the nodes without recursion: a file may nest them arbitrarily deep.
template <class Use>
static void eachNode(const aiNode* root, Use use) {
    std::vector<std::pair<const aiNode*, Matrix>> open;
    if (root) open.emplace_back(root, Matrix());
    while (!open.empty()) {
        const auto [node, parent] = open.back();
        open.pop_back();
        const Matrix toModel = parent * toMatrix(node->mTransformation);
        use(*node, toModel);
        for (unsigned i = node->mNumChildren; i-- > 0;) open.emplace_back(node->mChildren[i], toModel);
    }
}

// ---- Clips

// Numbers of the nodes by where they are, parents before their children.
using NodeNumbers = std::map<const aiNode*, int>;

static NodeNumbers addNodes(const aiScene& scene, Model& model) {
    NodeNumbers numbers;
    eachNode(scene.mRootNode, [&](const aiNode& node, const Matrix&) {
        numbers.emplace(&node, static_cast<int>(model.nodes.size()));
        const auto parent = numbers.find(node.mParent);
        model.nodes.push_back({parent == numbers.end() ? -1 : parent->second, toMatrix(node.mTransformation)});
    });
    return numbers;
}

static Quaternion toUnit(const aiQuaternion& q) {
    const double length = std::sqrt(double{q.w} * q.w + double{q.x} * q.x + double{q.y} * q.y + double{q.z} * q.z);
    return {q.w / length, q.x / length, q.y / length, q.z / length};
}

template <class Value, class Key, class Convert>
static NodeKeys<Value> toKeys(const Key* keys, unsigned count, double ticks, const Value& otherwise, Convert convert) {
    NodeKeys<Value> made;
    for (unsigned i = 0; i < count; ++i) {
        made.times.push_back(static_cast<float>(keys[i].mTime / ticks));
        made.values.push_back(convert(keys[i].mValue));
    }
    if (made.times.empty()) made = {{0.0f}, {otherwise}};
    return made;
}

static NodeClip toClip(const aiAnimation& from, const NodeNumbers& numbers,
                       const std::map<std::string, const aiNode*>& named) {
    const double ticks = from.mTicksPerSecond > 0.0 ? from.mTicksPerSecond : 25.0;
    NodeClip clip{from.mName.C_Str(), 0.0f, false, {}};
    for (unsigned i = 0; i < from.mNumChannels; ++i) {
        const aiNodeAnim& a = *from.mChannels[i];
        const auto node = named.find(a.mNodeName.C_Str());
        if (node == named.end()) continue;
        aiVector3D scale, translation;
        aiQuaternion rotation;
        node->second->mTransformation.Decompose(scale, rotation, translation);  // where there are no keys
        NodeChannel c;
        c.node = static_cast<unsigned>(numbers.at(node->second));
        c.translation = toKeys(a.mPositionKeys, a.mNumPositionKeys, ticks, toR3(translation), toR3);
        c.rotation = toKeys(a.mRotationKeys, a.mNumRotationKeys, ticks, toUnit(rotation), toUnit);
        c.scale = toKeys(a.mScalingKeys, a.mNumScalingKeys, ticks, toR3(scale), toR3);
        for (const auto* times : {&c.translation.times, &c.rotation.times, &c.scale.times})
            clip.seconds = std::max(clip.seconds, times->back());
        clip.channels.push_back(std::move(c));
    }
    return clip;
}

// Of the files' animations, those that move nodes.
static void addClips(const aiScene& scene, const NodeNumbers& numbers, Model& model) {
    std::map<std::string, const aiNode*> named;
    eachNode(scene.mRootNode, [&](const aiNode& node, const Matrix&) { named.try_emplace(node.mName.C_Str(), &node); });
    for (unsigned i = 0; i < scene.mNumAnimations; ++i)
        model.clips.push_back(toClip(*scene.mAnimations[i], numbers, named));
    for (unsigned i = 0; i < scene.mNumMeshes; ++i)
        model.deforms = model.deforms || scene.mMeshes[i]->mNumBones > 0 || scene.mMeshes[i]->mNumAnimMeshes > 0;
}

// ---- Geometry

// Of a node's meshes that are new.
static void makeMissingNormals(std::vector<MeshData>& meshes, std::size_t firstNew) {
    std::vector<MeshData*> bare;
    for (std::size_t i = firstNew; i < meshes.size(); ++i)
        if (meshes[i].normals.empty()) bare.push_back(&meshes[i]);
    if (!bare.empty()) makeNormals(bare);
}

// Meshes with triangles that some node places, and the materials that these use.
static void addGeometry(const aiScene& scene, MaterialReader& materials, const MeshRules& rules,
                        const NodeNumbers& numbers, Model& model) {
    std::map<unsigned, unsigned> meshes, used;
    std::size_t vertices = 0, unused = 0;
    eachNode(scene.mRootNode, [&](const aiNode& node, const Matrix& toModel) {
        const std::size_t before = model.meshes.size();
        for (unsigned i = 0; i < node.mNumMeshes; ++i) {
            const unsigned number = node.mMeshes[i];
            if (number >= scene.mNumMeshes) continue;
            const aiMesh& from = *scene.mMeshes[number];
            const auto [known, isNew] = meshes.try_emplace(number, static_cast<unsigned>(model.meshes.size()));
            if (isNew) {
                const unsigned own = std::min(from.mMaterialIndex, scene.mNumMaterials - 1);
                model.meshes.push_back(
                    toMesh(from, rules, materials.coordinateSet(own), materials.coordinateTransform(own)));
                vertices += from.mNumVertices;
                unused += joinVertices(model.meshes.back());
                const auto [material, first] = used.try_emplace(own, static_cast<unsigned>(model.materials.size()));
                if (first) model.materials.push_back(materials.read(own));
                model.meshMaterials.push_back(material->second);
                model.materials[material->second].vertexColors |= !model.meshes.back().colors.empty();
            }
            const auto own = numbers.find(&node);
            if (!model.meshes[known->second].indices.empty())
                model.parts.push_back({known->second, toModel, own == numbers.end() ? -1 : own->second});
        }
        if (rules.makeNormals) makeMissingNormals(model.meshes, before);
    });
    if (rules.tellUnused && 2 * unused > vertices)
        model.warnings.push_back("no triangle uses " + std::to_string(unused) + " of the file's " +
                                 std::to_string(vertices) + " vertices; something may be missing");
}

// ---- Cameras and lights

static std::map<std::string, Matrix> placesOf(const aiScene& scene) {
    std::map<std::string, Matrix> places;
    eachNode(scene.mRootNode,
             [&](const aiNode& node, const Matrix& toModel) { places.try_emplace(node.mName.C_Str(), toModel); });
    return places;
}

// The importer's angle is the whole horizontal one; of a glTF whose aspect ratio is 1, the vertical one.
static float verticalAngle(const aiCamera& camera, bool gltf) {
    constexpr float degrees = 57.2957795f;
    if (gltf) return camera.mHorizontalFOV * degrees;
    const float aspect = camera.mAspect > 0.0f ? camera.mAspect : 1.5f;
    return 2.0f * std::atan(std::tan(0.5f * camera.mHorizontalFOV) / aspect) * degrees;
}

static void addCameras(const aiScene& scene, const std::map<std::string, Matrix>& places, bool gltf, Model& model) {
    for (unsigned i = 0; i < scene.mNumCameras; ++i) {
        const aiCamera& from = *scene.mCameras[i];
        const auto place = places.find(from.mName.C_Str());
        const Matrix toModel = place == places.end() ? Matrix() : place->second;
        ModelCamera camera;
        camera.name = from.mName.C_Str();
        // Of a glTF the importer puts the node's translation into the camera as well.
        camera.position = TransformPoint(toModel, gltf ? R3() : toR3(from.mPosition));
        camera.lookAt = camera.position + TransformVector(toModel, toR3(from.mLookAt));
        camera.lookUp = Normalize(TransformVector(toModel, toR3(from.mUp)));
        camera.fov = verticalAngle(from, gltf);
        model.cameras.push_back(camera);
    }
}

static void addLights(const aiScene& scene, const std::map<std::string, Matrix>& places, bool gltf, Model& model) {
    for (unsigned i = 0; i < scene.mNumLights; ++i) {
        const aiLight& from = *scene.mLights[i];
        if (from.mType == aiLightSource_AMBIENT || from.mType == aiLightSource_UNDEFINED) continue;
        const auto place = places.find(from.mName.C_Str());
        const Matrix toModel = place == places.end() ? Matrix() : place->second;
        ModelLight light;
        light.name = from.mName.C_Str();
        light.kind = from.mType == aiLightSource_DIRECTIONAL ? ModelLight::Directional
                     : from.mType == aiLightSource_SPOT      ? ModelLight::Spot
                                                             : ModelLight::Point;
        light.position = TransformPoint(toModel, toR3(from.mPosition));
        light.direction = TransformVector(toModel, toR3(from.mDirection));
        light.intensity = R3(from.mColorDiffuse.r, from.mColorDiffuse.g, from.mColorDiffuse.b);
        const float attenuation[3] = {from.mAttenuationConstant, from.mAttenuationLinear, from.mAttenuationQuadratic};
        const bool any = attenuation[0] > 0.0f || attenuation[1] > 0.0f || attenuation[2] > 0.0f;
        if (any) std::copy_n(attenuation, 3, light.attenuation);
        const float half = gltf ? 1.0f : 0.5f;  // its angles are measured from the axis
        light.outerAngle = std::min(half * from.mAngleOuterCone, 1.57f);
        light.innerAngle = std::min(half * from.mAngleInnerCone, 0.98f * light.outerAngle);
        model.lights.push_back(light);
    }
}

// ---- Images

static ModelImage toImage(const aiTexture& from) {
    ModelImage image;
    if (from.mHeight == 0) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(from.pcData);
        if (bytes) image.bytes.assign(bytes, bytes + from.mWidth);
        return image;
    }
    image.width = from.mWidth, image.height = from.mHeight;
    const std::size_t texels = std::size_t{from.mWidth} * from.mHeight;
    for (std::size_t i = 0; i < texels; ++i) {
        const aiTexel& t = from.pcData[i];
        image.bytes.insert(image.bytes.end(), {t.r, t.g, t.b, t.a});
    }
    return image;
}

// ---- Formats with a reader of their own

// The importer has read the sample, for its material.
static void takePly(PlyFile ply, Model& model) {
    for (std::string& warning : ply.warnings) model.warnings.push_back(std::move(warning));
    if (model.meshes.empty()) return;
    MeshData& mesh = model.meshes[0] = std::move(ply.mesh);
    const bool soup = mesh.positions.size() > mesh.indices.size() / 2;
    if (soup) joinVertices(mesh);
    if (mesh.normals.empty()) makeNormals(mesh);
    if (mesh.indices.empty()) model.parts.clear();
}

static void warnOfShapes(const X3dDocument& x3d, Model& model) {
    if (x3d.tooLarge)
        model.warnings.push_back("the file uses its nodes again more than a million times; not all are shown");
    if (model.parts.size() < x3d.shapes)
        model.warnings.push_back(std::to_string(x3d.shapes - model.parts.size()) + " of the file's " +
                                 std::to_string(x3d.shapes) + " shapes are of kinds that cannot be read, and missing");
}

// ---- All of it

// Where a material library is not there, the importer looks for one of the model's own name instead, and tells nobody.
static void warnOfMissingLibraries(const ModelFolder& folder, const fs::path& file, Model& model) {
    const std::string own = fs::path(file.filename()).replace_extension("mtl").string();
    std::set<std::string> missing(folder.missing().begin(), folder.missing().end());
    if (missing.size() > 1) missing.erase(own);
    for (const std::string& name : missing)
        model.warnings.push_back("material library '" + name + "' is not in the model's folder; rendered without it");
}

Model readModel(const fs::path& file) {
    Assimp::Importer importer;
    auto* folder = new ModelFolder(file);  // owned by the importer
    importer.SetIOHandler(folder);
    std::optional<GltfDocument> gltf;
    const std::string ending = endingOf(file);
    const bool isGltf = ending == ".gltf" || ending == ".glb";
    if (isGltf) gltf = GltfDocument::read(folder->model());
    if (gltf) folder->replaceModel(gltf->corrected());
    std::optional<PlyFile> ply;
    if (ending == ".ply") ply = readPly(folder->model());
    if (ply) folder->replaceModel(ply->sample);
    std::optional<X3dDocument> x3d;
    if (ending == ".x3d") x3d = readX3d(folder->model());
    if (x3d) folder->replaceModel(x3d->text);

    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene =
        importer.ReadFile((folder->folder() / file.filename()).string(), aiProcess_Triangulate | aiProcess_SortByPType);
    const std::string said = scene ? "" : importer.GetErrorString();
    if (said == std::bad_alloc().what()) throw std::bad_alloc();
    if (said == "No meshes remaining") throw std::runtime_error("it has no triangles, only points or lines");
    if (!scene) throw std::runtime_error(said);
    Model model;
    model.files.assign(folder->opened().begin(), folder->opened().end());
    if (gltf)
        for (const std::string& name : gltf->unknownRequiredExtensions())
            model.warnings.push_back("the file requires the extension '" + name +
                                     "', which is not known here; the picture may be wrong");
    if (ending == ".obj") warnOfMissingLibraries(*folder, file, model);
    model.up = upAxis(*scene, ending);
    MaterialReader materials(*scene, *folder, gltf, model.warnings);
    const NodeNumbers nodes = scene->mNumAnimations > 0 ? addNodes(*scene, model) : NodeNumbers();
    if (!nodes.empty()) addClips(*scene, nodes, model);
    for (std::size_t i = 0; gltf && i < model.clips.size(); ++i) model.clips[i].straightened = !gltf->isStraight(i);
    if (scene->mNumMaterials > 0) addGeometry(*scene, materials, rulesOf(ending, isGltf), nodes, model);
    if (ply) takePly(std::move(*ply), model);
    if (x3d) warnOfShapes(*x3d, model);
    const auto places = placesOf(*scene);
    addCameras(*scene, places, gltf.has_value(), model);
    addLights(*scene, places, gltf.has_value(), model);
    for (unsigned i = 0; i < scene->mNumTextures; ++i) model.images.push_back(toImage(*scene->mTextures[i]));
    if (model.parts.empty()) throw std::runtime_error("it has no triangles");
    return model;
}

}  // namespace oxbeam
