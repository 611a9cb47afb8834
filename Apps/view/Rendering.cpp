#include "Apps/view/Rendering.h"

#include "Apps/oxbeam/View.h"

namespace oxbeam {

std::vector<std::filesystem::path> packageFolders(const ViewCommand& command) {
    std::vector<std::filesystem::path> folders = defaultPackageFolders();
    for (const std::string& path : command.packagePaths) {
        if (!std::filesystem::is_directory(path))
            throw Error(ExitStatus::Usage, "--package-path " + path + ": no such directory");
        folders.emplace_back(path);
    }
    return folders;
}

static ObjectInfo describe(const Place& place, const Places& places) {
    ObjectInfo info{place.path, place.object, {}};
    for (const ParameterDeclaration& p : place.object->parameters) {
        const std::string path = place.path + '.' + p.id;
        info.values[p.id] = {places.get(path), places.isSet(path)};
    }
    return info;
}

static InstanceInfo describe(unsigned instance, const World& world) {
    if (!world.geometry.isThere(instance)) return {};
    const unsigned shader = world.geometry.scene().instances[instance]->shaderBias;
    InstanceInfo info{world.objectName(instance),
                      world.geometry.meshName(world.geometry.meshOf(instance)),
                      "",
                      {},
                      world.geometry.isEndless(instance)};
    if (shader < world.shaders.size()) info.shader = world.places.placeOf(world.shaders[shader]);
    info.bounds = world.geometry.instanceBounds(instance);
    return info;
}

static PlacedInfo describe(const Placed& placed) {
    PlacedInfo info{placed.place, placed.toWorld, {}, placed.movable};
    for (const Placed::Part& part : placed.parts) info.instances.push_back(part.instance);
    return info;
}

SceneInfo describe(const World& world, const Registry& registry) {
    SceneInfo info;
    for (const Place& place : world.places.all()) info.objects.push_back(describe(place, world.places));
    for (unsigned i = 0; i < world.geometry.instanceCount(); ++i) info.instances.push_back(describe(i, world));
    for (const Placed& placed : world.placements.all()) info.placements.push_back(describe(placed));
    for (const auto& [file, hash] : world.files) info.files.push_back(file);
    info.textures = world.textureNames.names("");
    info.classes = registry.all();
    info.registry = &registry;
    info.bounds = world.geometry.bounds();
    info.image = world.image;
    info.view = world.viewInForce();
    info.framed = !world.view;
    info.fov = world.fov;
    info.tone = world.tone;
    info.camera = world.places.placeOf(world.camera);
    return info;
}

}  // namespace oxbeam
