// A veil before the sky, under a lamp, rendered by a rendering object: all of them on Kel's bases.
#include "Engine/Render/Session.h"
#include "Engine/Scene/Shapes.h"
#include "Engine/World/World.h"

#include <cstdio>

using namespace oxbeam;

int main() {
    Registry registry;
    registry.loadPackages(defaultPackageFolders());
    World world;
    world.setRenderingObject(*registry.find("OnKelSettings"));
    world.setCamera(*registry.find("OxPerspectiveCamera"));
    world.setEnvironment(*registry.find("OnKelSky"));
    world.addLight(*registry.find("OnKelLamp"));
    world.addShader(*registry.find("OnKelVeil"));
    world.geometry.addInstance(world.geometry.addMesh(planeMesh()), Matrix(), 0);
    world.geometry.build();
    Session session(world);
    world.renderingObject->initTile(0, 0);
    const auto seen = [&](float x) {
        OxState state = session.primaryState();
        state.ray.origin = R3(x, 1.0f, 0.0f);
        state.ray.direction = R3(0.0f, -1.0f, 0.0f);
        return Session::trace(state);
    };
    const R3 sky(0.2f, 0.4f, 0.6f), veil = seen(0.0f), expected = 0.5f * sky + R3(0.25f, 0.25f, 0.25f);
    std::printf("%g %g %g, expected %g %g %g\n", veil.x, veil.y, veil.z, expected.x, expected.y, expected.z);
    return Length(veil - expected) < 1e-5f && seen(5.0f) == sky ? 0 : 1;
}
