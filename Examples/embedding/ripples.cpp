// Makes a mesh in memory, renders it, changes a parameter, and writes two pictures: red.png and blue.png.
#include "Engine/Output/ImageFile.h"
#include "Engine/Packages/ParameterValue.h"
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

// What is wrong with a name or a value is thrown.
static void set(OxLoadableObject& object, const ObjectClass& kind, const char* name, double r, double g, double b) {
    Diagnostics diagnostics;
    ParameterWriter(kind, kind.name, diagnostics, {})
        .write(object, name, {}, {std::vector<ParameterValue::Number>{r, g, b}, {}});
    if (diagnostics.hasErrors()) throw Error(ExitStatus::Usage, diagnostics.sorted().front().text());
}

int main() try {
    Registry registry;
    registry.loadPackages(defaultPackageFolders());
    const ObjectClass &phong = *registry.find("KelPhong"), &point = *registry.find("KelPointLight");

    World world;
    world.image = {640, 360};
    world.setRenderingObject(*registry.find("Kel"));
    world.setCamera(*registry.find("OxPerspectiveCamera"));
    world.setEnvironment(*registry.find("OxBackground"));
    OxLight& light = world.addLight(point);
    set(light, point, "position", 2.0, 3.0, 1.0);
    set(light, point, "intensity", 9.0, 9.0, 9.0);
    OxShader& water = world.addShader(phong);
    world.geometry.addInstance(world.geometry.addMesh(ripples(200)), Matrix(), 0);
    world.geometry.build();

    Workers workers(availableThreads());
    RenderOptions options;
    options.samples = 16;
    const auto picture = [&](const char* file, double r, double g, double b) {
        set(water, phong, "diffuseColor", r, g, b);
        writeImage(file, world.image.width, world.image.height, render(world, workers, options).film.pixels());
    };
    picture("red.png", 0.8, 0.2, 0.1);
    picture("blue.png", 0.1, 0.3, 0.8);
    return 0;
} catch (const Error& e) {
    std::cerr << "error: " << e.what() << '\n';
    return static_cast<int>(e.status());
}
