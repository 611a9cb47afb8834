// The [[mesh]] tables of a scene file.
#pragma once

#include "Engine/SceneFile/SceneAssets.h"
#include "Engine/SceneFile/TableReader.h"
#include "Engine/World/World.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace oxbeam {

// A part of a model whose mesh is one of the world's.
struct PlacedPart {
    unsigned mesh = 0;
    Matrix meshToModel;
    unsigned material = 0;  // of the model
    int node = -1;          // of the model, where something moves them
};

// What of a scene moves.
struct Moving {
    std::set<std::string> places;  // by their transformations
    std::string clip;              // of all models that have it: its name or its number; or nothing
};

class MeshSection {
public:
    // Numbers of the world's shaders by their names; nothing: defined, but wrongly.
    using Shaders = std::map<std::string, std::optional<unsigned>>;

    MeshSection(std::filesystem::path folder, const Shaders& shaders, SceneAssets& assets, World& world,
                Diagnostics& diagnostics, Moving moving = {})
        : m_folder(std::move(folder)), m_shaders(shaders), m_assets(assets), m_world(world), m_diagnostics(diagnostics),
          m_moving(std::move(moving)) {}

    // One table.
    void read(TableReader& reader);
    // The parts of a file. Texture coordinates are made where it has none, if `box` says so. An error, and nothing, where
    // it cannot be read.
    std::vector<PlacedPart> fileParts(TableReader& reader, const std::filesystem::path& path, bool box);
    // Places parts as a table says, which is called `place`, each with the shader of its material's number or the only one there is, or not at all
    // where there is none. `up` is the axis that is up unless the table knows better.
    void place(TableReader& reader, const std::string& place, const std::vector<PlacedPart>& parts,
               const std::vector<unsigned>& shaders, unsigned up);
    struct HowPlaced {
        Matrix matrix;
        std::optional<Placing> by;  // unless a matrix says it
    };
    static HowPlaced placementOf(TableReader& reader, unsigned up);
    // When all is placed: that some model had the clip that all are to play.
    void requireClip();
    // When all else is placed, and the geometry yet to be prepared.
    void placeGrounds();
    // When the geometry is prepared.
    void reportDroppedTriangles();
    // The instances of meshes that have a name.
    const std::map<std::string, std::vector<unsigned>>& named() const { return m_namedMeshes; }

private:
    // Where a ground is to be, and what it is like.
    struct Ground {
        R3 point;  // that it goes through, and where textures start
        R2 uvScale;
        unsigned shader = 0;
        Oxuint visibility = RAY_ALL;
        bool distinctId = false;
        std::optional<std::string> name;
        std::string place;
        SourceLocation where;
    };

    struct Clip {
        const Model* model = nullptr;
        const NodeClip* clip = nullptr;  // or none
    };
    Clip clipOf(TableReader& reader, const std::vector<PlacedPart>& parts);
    void readGround(TableReader& reader, const std::string& place);
    std::optional<unsigned> shaderNamed(TableReader& reader, const char* key, const std::string& name);
    std::vector<unsigned> shadersOf(TableReader& reader);
    std::vector<PlacedPart> partsOf(TableReader& reader);
    const std::vector<PlacedPart>& addModel(const std::string& key, Model& model, const SourceLocation& where);
    Oxuint visibilityOf(TableReader& reader);

    std::filesystem::path m_folder;
    const Shaders& m_shaders;
    SceneAssets& m_assets;
    World& m_world;
    Diagnostics& m_diagnostics;
    std::map<std::string, std::vector<unsigned>> m_namedMeshes;
    std::map<std::string, std::vector<PlacedPart>> m_models;  // by what they were made from
    std::size_t m_shapeTriangles = 0;                         // of those that were made
    std::vector<Ground> m_grounds;
    std::vector<SourceLocation> m_meshPlaces;  // by the world's meshes
    unsigned m_read = 0;                       // tables
    Moving m_moving;
    std::vector<std::string> m_clips;  // of the models that were placed
    bool m_clipPlayed = false;         // by one of them at least
};

}  // namespace oxbeam
