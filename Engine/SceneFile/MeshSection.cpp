#include "Engine/SceneFile/MeshSection.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Scene/BoxCoordinates.h"
#include "Engine/Scene/Shapes.h"
#include "Engine/SceneFile/UpAxis.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <iterator>

namespace oxbeam {

namespace fs = std::filesystem;

static const std::vector<std::string> ShapeNames = {"plane", "box", "sphere", "ground"};
constexpr unsigned GroundShape = 3;

void MeshSection::read(TableReader& reader) {
    const std::string own = fmt::format("mesh.{}", m_read++);
    if (!reader.has("file") && reader.is("shape", ShapeNames[GroundShape])) return readGround(reader, own);
    const auto shaders = shadersOf(reader);
    place(reader, own, partsOf(reader), shaders, Model::Y);
}

void MeshSection::place(TableReader& reader, const std::string& place, const std::vector<PlacedPart>& parts,
                        const std::vector<unsigned>& shaders, unsigned up) {
    const auto name = reader.text("name");
    const Matrix placement = placementOf(reader, up);
    const Oxuint visibility = visibilityOf(reader);
    reader.finish();
    if (shaders.empty()) return;
    Placed placed{place, placement, {}, true};
    for (const PlacedPart& part : parts) {
        const unsigned shader = shaders.size() == 1              ? shaders[0]
                                : part.material < shaders.size() ? shaders[part.material]
                                                                 : 0;
        const unsigned instance =
            m_world.geometry.addInstance(part.mesh, placement * part.meshToModel, shader, visibility);
        placed.parts.push_back({instance, part.meshToModel});
        if (!name) continue;
        m_namedMeshes[*name].push_back(instance);
        m_world.nameObject(instance, *name);
    }
    m_world.placements.add(std::move(placed));
}

std::optional<unsigned> MeshSection::shaderNamed(TableReader& reader, const char* key, const std::string& name) {
    const auto found = m_shaders.find(name);
    if (found != m_shaders.end()) return found->second;
    std::vector<std::string> names;
    for (const auto& [known, number] : m_shaders) names.push_back(known);
    reader.error(key, fmt::format("no shader '{}' is defined{}", name, didYouMean(name, names)));
    return std::nullopt;
}

// One shader for all, or one for each of the file's materials; nothing where one of them is missing.
std::vector<unsigned> MeshSection::shadersOf(TableReader& reader) {
    if (reader.has("shader") && reader.has("shaders"))
        reader.error("shaders", "'shaders' cannot stand beside 'shader'");
    const char* key = reader.has("shaders") ? "shaders" : "shader";
    std::vector<std::string> names;
    if (reader.has("shaders")) {
        names = reader.texts("shaders").value_or(names);
    } else if (const auto name = reader.text("shader")) {
        names.push_back(*name);
    } else if (!reader.has("shader")) {
        reader.error("shader", "has no 'shader'");
    }
    std::vector<unsigned> numbers;
    for (const std::string& name : names)
        if (const auto number = shaderNamed(reader, key, name)) numbers.push_back(*number);
    return numbers.size() == names.size() ? numbers : std::vector<unsigned>();
}

// One repetition of a texture spans the model's longest side.
static void giveBoxCoordinates(Model& model) {
    Bounds bounds;
    for (const MeshData& mesh : model.meshes)
        for (const R3& p : mesh.positions)
            if (IsFinite(p)) bounds.add(p);
    const float side = bounds.empty ? 0.0f : Max(bounds.upper - bounds.lower);
    if (!(side > 0.0f && std::isfinite(side))) return;
    for (MeshData& mesh : model.meshes)
        if (mesh.texCoords.empty()) giveBoxCoordinates(mesh, side);
}

// Adds a model's meshes to the world once, however often the scene places it.
const std::vector<PlacedPart>& MeshSection::addModel(const std::string& key, Model& model,
                                                     const SourceLocation& where) {
    std::vector<unsigned> numbers;
    for (MeshData& mesh : model.meshes) {
        numbers.push_back(m_world.geometry.addMesh(std::move(mesh)));
        m_meshPlaces.push_back(where);
    }
    std::vector<PlacedPart>& parts = m_models[key];
    for (const ModelPart& part : model.parts)
        parts.push_back({numbers[part.mesh], part.meshToModel, model.meshMaterials[part.mesh]});
    return parts;
}

static Model shapeModel(unsigned shape, unsigned segments, const R2& uvScale) {
    Model model;
    model.parts.push_back({});
    model.meshMaterials.push_back(0);
    model.meshes.push_back(shape == 0 ? planeMesh() : shape == 1 ? boxMesh() : sphereMesh(segments));
    for (R2& st : model.meshes.back().texCoords) st = R2(st.x * uvScale.x, st.y * uvScale.y);
    return model;
}

std::vector<PlacedPart> MeshSection::partsOf(TableReader& reader) {
    const auto file = reader.fileName("file");
    const auto shape = reader.word("shape", ShapeNames);
    const auto segments = reader.count("segments", 4, 1024);
    const auto uvScale = reader.pair("uvScale");
    const bool box = reader.word("coordinates", {"box"}).has_value();
    m_world.geometry.distinctIds = reader.word("ids", {"ordered", "distinct"}) == 1u;
    if (reader.has("file") == reader.has("shape")) {
        reader.error("shape", "needs either a 'file' or a 'shape'");
        return {};
    }
    if (segments && shape != 2u) reader.error("segments", "'segments' is for spheres");
    if (uvScale && !shape) reader.error("uvScale", "'uvScale' is for shapes");
    if (box && shape) reader.error("coordinates", "'coordinates' is for a 'file'; shapes have their own");
    if (shape) {
        const R2 scale = uvScale.value_or(R2(1.0f, 1.0f));
        constexpr std::size_t most = 8'000'000;
        const std::size_t triangles = std::size_t{segments.value_or(96)} * segments.value_or(96);
        const std::string key = fmt::format("{}\n{}\n{} {}", *shape, segments.value_or(96), scale.x, scale.y);
        if (const auto known = m_models.find(key); known != m_models.end()) return known->second;
        if ((m_shapeTriangles += triangles) > most) {
            reader.error("segments", fmt::format("the shapes of the scene have more than {} triangles together", most));
            return {};
        }
        Model model = shapeModel(*shape, segments.value_or(96), scale);
        return addModel(key, model, reader.where());
    }
    return file ? fileParts(reader, m_folder / *file, box) : std::vector<PlacedPart>();
}

std::vector<PlacedPart> MeshSection::fileParts(TableReader& reader, const fs::path& path, bool box) {
    const std::string boxed = path.string() + "\nbox", key = box ? boxed : path.string();
    if (m_models.contains(box ? path.string() : boxed)) {  // whose meshes are the world's already
        reader.error(box ? "coordinates" : "file", "'coordinates' must be the same wherever the file stands");
        return {};
    }
    if (const auto known = m_models.find(key); known != m_models.end()) return known->second;
    try {
        Model& model = m_assets.model(path);
        for (const std::string& warning : model.warnings) m_diagnostics.warning(reader.where("file"), warning);
        if (box) giveBoxCoordinates(model);
        m_assets.giveMeshesAway(path);
        return addModel(key, model, reader.where("file"));
    } catch (const Error& e) {
        if (e.status() != ExitStatus::BadScene) throw;
        m_diagnostics.error(reader.where("file"), e.what());
        return m_models[key] = {};
    }
}

// ---- The ground

void MeshSection::readGround(TableReader& reader, const std::string& place) {
    const auto shaders = shadersOf(reader);
    for (const char* key : {"segments", "up", "scale", "rotate", "matrix"})
        if (reader.has(key))
            reader.error(key, fmt::format("'{}' is not for a ground, which is level and has no end", key));
    Ground ground;
    reader.text("shape");
    ground.name = reader.text("name");
    ground.point = reader.vector("translate").value_or(R3());
    ground.uvScale = reader.pair("uvScale").value_or(R2(1.0f, 1.0f));
    ground.visibility = visibilityOf(reader);
    ground.place = place;
    ground.where = reader.where();
    reader.finish();
    if (shaders.empty()) return;
    ground.shader = shaders[0];
    m_grounds.push_back(std::move(ground));
}

void MeshSection::placeGrounds() {
    for (const Ground& ground : m_grounds) {
        MeshData mesh = groundMesh(ground.point);
        for (R2& st : mesh.texCoords) st = R2(st.x * ground.uvScale.x, st.y * ground.uvScale.y);
        const unsigned number = m_world.geometry.addMesh(std::move(mesh));
        m_meshPlaces.push_back(ground.where);
        const unsigned instance = m_world.geometry.addInstance(number, Matrix(), ground.shader, ground.visibility);
        m_world.geometry.makeEndless(instance);
        m_world.placements.add({ground.place, {}, {{instance, {}}}, false});
        if (!ground.name) continue;
        m_namedMeshes[*ground.name].push_back(instance);
        m_world.nameObject(instance, *ground.name);
    }
}

// ---- Placing

// Turned up and scaled first, then rotated about x, y and z, then moved.
Matrix MeshSection::placementOf(TableReader& reader, unsigned up) {
    const auto matrix = reader.numbers("matrix", 16);
    const Matrix turn = turnUp(reader.word("up", AxisNames).value_or(up));
    const auto translate = reader.vector("translate"), rotate = reader.vector("rotate");
    R3 scale(1.0f, 1.0f, 1.0f);
    if (reader.isList("scale"))
        scale = reader.vector("scale").value_or(scale);
    else if (const auto uniform = reader.number("scale"))
        scale = R3(*uniform, *uniform, *uniform);
    Matrix placement;
    if (matrix) {
        if (translate || rotate || reader.has("scale"))
            reader.error("matrix", "'matrix' cannot stand beside 'translate', 'rotate' or 'scale'");
        const auto& m = *matrix;
        if (m[12] != 0.0f || m[13] != 0.0f || m[14] != 0.0f || m[15] != 1.0f)
            reader.error("matrix", "the last four numbers of 'matrix', its last row, must be 0, 0, 0, 1");
        for (unsigned i = 0; i < 12; ++i) placement.m[i / 4][i % 4] = m[i];
        return placement * turn;
    }
    placement = ScaleMatrix(scale) * turn;
    if (rotate)
        for (unsigned axis = 0; axis < 3; ++axis)
            placement = RotationMatrix(axis, (*rotate)[axis] * 3.14159265f / 180.0f) * placement;
    return TranslationMatrix(translate.value_or(R3())) * placement;
}

Oxuint MeshSection::visibilityOf(TableReader& reader) {
    static const std::vector<std::string> names = {"primary", "shadow", "transparency", "refraction", "reflection"};
    const auto kinds = reader.texts("visibleTo");
    if (!kinds) return RAY_ALL;
    Oxuint mask = 0;
    for (const std::string& kind : *kinds) {
        const auto found = std::find(names.begin(), names.end(), kind);
        if (found == names.end())
            reader.error("visibleTo", fmt::format("'visibleTo' names '{}'; expected some of {}{}", kind,
                                                  fmt::join(names, ", "), didYouMean(kind, names)));
        else
            mask |= 1u << (found - names.begin());
    }
    return mask;
}

void MeshSection::reportDroppedTriangles() {
    const SceneGeometry& geometry = m_world.geometry;
    for (unsigned mesh = 0; mesh < geometry.meshCount(); ++mesh) {
        const DroppedTriangles& dropped = geometry.dropped()[mesh];
        if (dropped.withoutArea > 0 && geometry.meshTriangles(mesh) == 0)
            m_diagnostics.warning(m_meshPlaces[geometry.meshOrigin(mesh)],
                                  fmt::format("mesh '{}': none of its triangles has an area", geometry.meshName(mesh)));
        if (dropped.total() == 0) continue;
        m_diagnostics.warning(
            m_meshPlaces[geometry.meshOrigin(mesh)],
            fmt::format("mesh '{}': {} left out ({} with vertices that are not finite or too far out, {} with indices "
                        "beyond the mesh's vertices)",
                        geometry.meshName(mesh),
                        dropped.total() == 1 ? "1 triangle was" : fmt::format("{} triangles were", dropped.total()),
                        dropped.badVertices, dropped.badIndices));
    }
}

}  // namespace oxbeam
