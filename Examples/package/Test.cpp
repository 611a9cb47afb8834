// The objects of the package, where what they shade to can be worked out by hand.
#include "Engine/Packages/ParameterValue.h"
#include "Engine/Render/Session.h"
#include "Engine/Scene/Shapes.h"
#include "Engine/World/World.h"
#include "Oxbeam/OxFunctions.h"

#include <cstdio>

using namespace oxbeam;

static int s_failures = 0;

static void expectNear(const char* what, const R3& found, const R3& expected) {
    if (Length(found - expected) <= 1e-4f * (1.0f + Length(expected))) return;
    std::printf("%s: found %g %g %g, expected %g %g %g\n", what, found.x, found.y, found.z, expected.x, expected.y,
                expected.z);
    ++s_failures;
}

static void set(OxLoadableObject& object, const ObjectClass& kind, const char* name, ParameterValue value) {
    Diagnostics diagnostics;
    ParameterWriter(kind, kind.name, diagnostics, {}).write(object, name, {}, value);
    if (diagnostics.hasErrors()) std::printf("%s\n", diagnostics.sorted().front().text().c_str()), ++s_failures;
}

static ParameterValue vector(double x, double y, double z) {
    return {std::vector<ParameterValue::Number>{x, y, z}, {}};
}

// What a ray sees of a floor of side 8 in the plane y = 0 that a panel shines down on from a height of 2; a roof of side 1
// hangs half way between the panel and the floor at x = 3.
static R3 seen(const Registry& registry, double roughness, const R3& origin, const R3& direction) {
    World world;
    world.setRenderingObject(*registry.find("Kel"));
    world.setCamera(*registry.find("OxPerspectiveCamera"));
    const ObjectClass &sky = *registry.find("WorkshopSky"), &panel = *registry.find("WorkshopPanel"),
                      &chalk = *registry.find("WorkshopChalk");
    set(world.setEnvironment(sky), sky, "zenith", vector(1.0, 2.0, 3.0));
    OxLight& light = world.addLight(panel);
    set(light, panel, "position", vector(0.0, 2.0, 0.0));
    set(light, panel, "intensity", vector(8.0, 8.0, 8.0));
    OxShader& shader = world.addShader(chalk);
    set(shader, chalk, "diffuseColor", vector(0.5, 0.5, 0.5));
    set(shader, chalk, "roughness", {roughness, {}});
    set(shader, chalk, "receiveShadow", {std::int64_t{1}, {}});

    const unsigned square = world.geometry.addMesh(planeMesh());
    Matrix floor, roof;
    floor.m[0][0] = floor.m[2][2] = 4.0f;
    roof.m[0][0] = roof.m[2][2] = 0.5f;
    roof.m[0][3] = 1.5f, roof.m[1][3] = 1.0f;
    world.geometry.addInstance(square, floor, 0);
    world.geometry.addInstance(square, roof, 0);
    world.geometry.build();
    Session session(world);
    world.renderingObject->initTile(0, 0);
    OxState state = session.primaryState();
    state.ray.origin = origin;
    state.ray.direction = Normalize(direction);
    return Session::trace(state);
}

int main() {
    Registry registry;
    registry.loadPackages(defaultPackageFolders());  // Kel of the installation, and `packages` beside this program

    const R3 up(0.0f, 1.0f, 0.0f), down = -up, side(1.0f, 0.0f, 0.0f);
    expectNear("zenith", seen(registry, 0.0, R3(0.0f, 9.0f, 0.0f), up), R3(1.0f, 2.0f, 3.0f));
    expectNear("horizon", seen(registry, 0.0, R3(0.0f, 9.0f, 0.0f), side), R3(0.8f, 0.9f, 1.0f));
    // Half of 8 / 2^2, and at 45 degrees half of 8 / 8 by the cosines of the panel and of the floor.
    expectNear("below the panel", seen(registry, 0.0, R3(0.0f, 1.0f, 0.0f), down), White);
    expectNear("at 45 degrees", seen(registry, 0.0, R3(-2.0f, 1.0f, 0.0f), down), 0.25f * White);
    expectNear("in the roof's shadow", seen(registry, 0.0, R3(3.0f, 0.5f, 0.0f), down), Black);
    // A rough surface throws light back to where it comes from: of roughness 60 degrees, seen from the light, by
    // 1 - 0.5 s / (s + 0.33) + 0.45 s / (s + 0.09) sin tan with s = 1.0966 and 45 degrees.
    expectNear("roughly", seen(registry, 60.0, R3(-1.0f, 1.0f, 0.0f), R3(-1.0f, -1.0f, 0.0f)), 0.25f * 0.9097f * White);
    if (s_failures == 0) std::printf("all well\n");
    return s_failures ? 1 : 0;
}
