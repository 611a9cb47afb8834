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
    const auto [placement, by] = placementOf(reader, up);
    const Oxuint visibility = visibilityOf(reader);
    const Clip clip = clipOf(reader, parts);
    reader.finish();
    if (shaders.empty()) return;
    const bool moves = m_moving.places.contains(place);
    Placed placed{place, placement, {}, true, by};
    PlacedClip played{place, {}, {}, {}};
    for (const PlacedPart& part : parts) {
        const unsigned shader = shaders.size() == 1              ? shaders[0]
                                : part.material < shaders.size() ? shaders[part.material]
                                                                 : 0;
        const unsigned instance = m_world.geometry.addInstance(part.mesh, placement * part.meshToModel, shader,
                                                               visibility, moves || clip.clip);
        placed.parts.push_back({instance, part.meshToModel});
        played.partNodes.push_back(part.node);
        if (!name) continue;
        m_namedMeshes[*name].push_back(instance);
        m_world.nameObject(instance, *name);
    }
    m_world.placements.add(std::move(placed));
    if (!clip.clip) return;
    played.nodes = clip.model->nodes;
    played.clip = *clip.clip;
    m_world.animation.add(std::move(played));
}

// ---- Clips

static const NodeClip* clipNamed(const Model& model, const std::string& wanted) {
    for (const NodeClip& clip : model.clips)
        if (clip.name == wanted) return &clip;
    for (std::size_t i = 0; i < model.clips.size(); ++i)
        if (std::to_string(i) == wanted) return &model.clips[i];
    return nullptr;
}

static std::string listOf(const std::vector<std::string>& clips) {
    if (clips.empty()) return "; there are none";
    std::vector<std::string> words;
    for (std::size_t i = 0; i < clips.size(); ++i) words.push_back(fmt::format("{} '{}'", i, oneLine(clips[i])));
    return fmt::format("; there are {}", fmt::join(words, ", "));
}

// What plays: the one that was asked for of all models, or else the table's own.
MeshSection::Clip MeshSection::clipOf(TableReader& reader, const std::vector<PlacedPart>& parts) {
    const auto own = reader.text("clip");
    const auto file = reader.has("file") ? reader.fileName("file") : std::nullopt;
    if (own && !reader.has("file")) reader.error("clip", "'clip' is for a 'file'");
    if (!file || parts.empty() || (!own && m_moving.clip.empty())) return {};
    const Model& model = m_assets.model(m_folder / *file);
    std::vector<std::string> names;
    for (const NodeClip& clip : model.clips) names.push_back(clip.name);
    m_clips.insert(m_clips.end(), names.begin(), names.end());
    Clip found{&model, m_moving.clip.empty() ? nullptr : clipNamed(model, m_moving.clip)};
    m_clipPlayed = m_clipPlayed || found.clip;
    if (!found.clip && own && !(found.clip = clipNamed(model, *own)))
        reader.error("clip",
                     fmt::format("its file has no clip '{}'{}{}", *own, didYouMean(*own, names), listOf(names)));
    if (found.clip && model.deforms)
        m_diagnostics.warning(reader.where("file"),
                              fmt::format("{}: the file bends meshes by bones or morphs, which are "
                                          "not played; its nodes are",
                                          reader.label()));
    if (found.clip && found.clip->straightened)
        m_diagnostics.warning(reader.where("file"),
                              fmt::format("{}: in its file, the clip '{}' goes between keys by steps or splines (STEP, "
                                          "CUBICSPLINE); it is played straight from each to the next",
                                          reader.label(), oneLine(found.clip->name)));
    return found;
}

void MeshSection::requireClip() {
    if (m_moving.clip.empty() || m_clipPlayed) return;
    m_diagnostics.error(
        {fmt::format("--clip {}", m_moving.clip), 0, 0},
        fmt::format("no model of the scene has this clip{}{}", didYouMean(m_moving.clip, m_clips), listOf(m_clips)));
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
        parts.push_back({numbers[part.mesh], part.meshToModel, model.meshMaterials[part.mesh], part.node});
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

static bool hasDistinctIds(TableReader& reader) { return reader.word("ids", {"ordered", "distinct"}) == 1u; }

std::vector<PlacedPart> MeshSection::partsOf(TableReader& reader) {
    const auto file = reader.fileName("file");
    const auto shape = reader.word("shape", ShapeNames);
    const auto segments = reader.count("segments", 4, 1024);
    const auto uvScale = reader.pair("uvScale");
    const bool box = reader.word("coordinates", {"box"}).has_value();
    m_world.geometry.distinctIds = hasDistinctIds(reader);
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
    for (const char* key : {"coordinates", "shaders", "clip"})
        if (reader.has(key)) reader.error(key, fmt::format("'{}' is for a 'file'", key));
    Ground ground;
    reader.text("shape");
    ground.name = reader.text("name");
    ground.point = reader.vector("translate").value_or(R3());
    ground.uvScale = reader.pair("uvScale").value_or(R2(1.0f, 1.0f));
    ground.visibility = visibilityOf(reader);
    ground.distinctId = hasDistinctIds(reader);
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
        m_world.geometry.distinctIds = ground.distinctId;
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

// A transformation by a matrix; nothing, and an error, where it is none.
static std::optional<Matrix> matrixOf(TableReader& reader) {
    const auto numbers = reader.numbers("matrix", 16);
    for (const char* key : {"translate", "rotate", "scale"})
        if (numbers && reader.has(key)) {
            reader.error("matrix", "'matrix' cannot stand beside 'translate', 'rotate' or 'scale'");
            break;
        }
    if (!numbers) return std::nullopt;
    const auto& m = *numbers;
    if (m[12] != 0.0f || m[13] != 0.0f || m[14] != 0.0f || m[15] != 1.0f)
        reader.error("matrix", "the last four numbers of 'matrix', its last row, must be 0, 0, 0, 1");
    Matrix matrix;
    for (unsigned i = 0; i < 12; ++i) matrix.m[i / 4][i % 4] = m[i];
    return matrix;
}

MeshSection::HowPlaced MeshSection::placementOf(TableReader& reader, unsigned up) {
    Placing by;
    by.turnUp = turnUp(reader.word("up", AxisNames).value_or(up));
    by.translate = reader.vector("translate").value_or(by.translate);
    by.rotate = reader.vector("rotate").value_or(by.rotate);
    if (reader.isList("scale"))
        by.scale = reader.vector("scale").value_or(by.scale);
    else if (const auto uniform = reader.number("scale"))
        by.scale = R3(*uniform, *uniform, *uniform);
    if (!reader.has("matrix")) return {by.matrix(), by};
    return {matrixOf(reader).value_or(Matrix()) * by.turnUp, std::nullopt};
}

Oxuint MeshSection::visibilityOf(TableReader& reader) {
    const std::vector<std::string>& names = rayKindNames();
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
