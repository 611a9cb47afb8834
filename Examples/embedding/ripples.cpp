// Makes a mesh in memory, renders it, changes a parameter, and writes two pictures: red.png and blue.png.
#include "Engine/Output/ImageFile.h"
#include "Engine/Render/Renderer.h"

#include <cmath>
#include <iostream>

using namespace oxbeam;

// A square of side 2 with rings of waves.
static MeshData ripples(unsigned steps) {
    MeshData mesh;
    for (unsigned row = 0; row <= steps; ++row)
        for (unsigned column = 0; column <= steps; ++column) {
            const float x = 2.0f * column / steps - 1.0f, z = 2.0f * row / steps - 1.0f, r = std::hypot(x, z);
            const float slope = r > 0.0f ? 0.75f * std::cos(25.0f * r) / r : 0.0f;
            mesh.positions.emplace_back(x, 0.03f * std::sin(25.0f * r), z);
            mesh.normals.push_back(Normalize(R3(-slope * x, 1.0f, -slope * z)));
        }
    for (unsigned row = 0; row < steps; ++row)
        for (unsigned column = 0; column < steps; ++column) {
            const unsigned a = row * (steps + 1) + column, b = a + 1, c = a + steps + 1, d = c + 1;
            mesh.indices.insert(mesh.indices.end(), {a, c, b, b, c, d});
        }
    return mesh;
}

int main() try {
    Registry registry;
    registry.loadPackages(defaultPackageFolders());

    World world;
    world.image = {640, 360};
    world.setRenderingObject(*registry.find("Kel"));
    world.setCamera(*registry.find("OxPerspectiveCamera"));
    world.setEnvironment(*registry.find("OxBackground"));
    world.addLight(*registry.find("KelPointLight"));
    world.addShader(*registry.find("KelPhong"), "shader.water");
    world.places.set("light.0.position", valueOf(R3(2, 3, 1)));  // what is wrong with a name or a value is thrown
    world.places.set("light.0.intensity", valueOf(R3(9, 9, 9)));
    world.geometry.addInstance(world.geometry.addMesh(ripples(200)), Matrix(), 0);
    world.geometry.build();

    Workers workers(availableThreads());
    RenderOptions options;
    options.samples = 16;
    const auto picture = [&](const char* file, const R3& color) {
        world.places.set("shader.water.diffuseColor", valueOf(color));
        writeImage(file, world.image.width, world.image.height, render(world, workers, options).film.pixels());
    };
    picture("red.png", R3(0.8f, 0.2f, 0.1f));
    picture("blue.png", R3(0.1f, 0.3f, 0.8f));
    return 0;
} catch (const Error& e) {
    std::cerr << "error: " << e.what() << '\n';
    return static_cast<int>(e.status());
}
