#include "Tests/Support/TestWorld.h"

#include "Engine/Host/HostObjects.h"
#include "Engine/System/ThreadRecord.h"
#include "Oxbeam/OxFunctions.h"
#include "Sampling/Frame.h"

#include <unistd.h>

#include <bit>
#include <cmath>
#include <stdexcept>

namespace oxbeam::test {

const Registry& registry() {
    static const Registry& all = []() -> const Registry& {
        auto* made = new Registry;
        made->loadPackage(KEL_LIBRARY);
        return *made;
    }();
    return all;
}

fs::path scratch() {
    static const struct Folder {
        fs::path path = fs::temp_directory_path() / ("oxbeam-test-" + std::to_string(getpid()));

        Folder() { fs::create_directories(path); }
        ~Folder() { fs::remove_all(path); }
    } folder;
    return folder.path;
}

TestWorld::TestWorld(const R3& background) {
    setRenderingObject(*registry().find("Kel"));
    setCamera(*registry().find("OxPerspectiveCamera"));
    surroundings<Background>("OxBackground").color = background;
}

KelPhongShader& TestWorld::phong(const R3& diffuse) {
    auto& made = shader<KelPhongShader>("KelPhong");
    made.diffuseColor = diffuse;
    return made;
}

KelPhongShader& TestWorld::glowing(const R3& color) {
    KelPhongShader& made = phong(Black);
    made.emissiveColor = color;
    return made;
}

void TestWorld::faceTheCards(unsigned width, unsigned height) {
    image = {width, height};
    fov = 90;
    view = View{R3(0, 0, 1), R3(), R3(0, 1, 0)};
}

KelPhongShader& TestWorld::floor(float y) {
    KelPhongShader& made = phong();
    made.ambientIntensity = 0.0f;
    made.m_receiveShadow = 1;
    addSquare(R3(0.0f, y, 0.0f), R3(0.0f, 1.0f, 0.0f));
    return made;
}

KelPointLight& TestWorld::pointLight(const R3& position, const R3& intensity) {
    auto& made = light<KelPointLight>("KelPointLight");
    made.position = position;
    made.intensity = intensity;
    return made;
}

KelPointLight& TestWorld::steadyLight(const R3& position, const R3& intensity) {
    KelPointLight& made = pointLight(position, intensity);
    made.atten0 = 0.999f;  // the light adds 0.001
    made.atten2 = 0.0f;
    return made;
}

unsigned TestWorld::add(MeshData mesh, const Matrix& placement, Oxuint visibility) {
    return geometry.addInstance(geometry.addMesh(std::move(mesh)), placement, static_cast<unsigned>(shaders.size()) - 1,
                                visibility);
}

unsigned TestWorld::addSquare(const R3& center, const R3& normal, float halfSide, Oxuint visibility) {
    const R3 y = Normalize(normal), x = Normalize(Cross(SmallestAxis(y), y)), z = Cross(x, y);
    Matrix placement;
    for (unsigned i = 0; i < 3; ++i) {
        placement.m[i][0] = halfSide * x[i];
        placement.m[i][1] = y[i];
        placement.m[i][2] = halfSide * z[i];
        placement.m[i][3] = center[i];
    }
    return add(planeMesh(), placement, visibility);
}

Session& TestWorld::session() {
    if (!m_session) {
        geometry.build();
        m_session.emplace(*this);
        renderingObject->initTile(0, 0);
        resetRayCounts();
    }
    return *m_session;
}

static OxState primaryState(Session& session, const R3& origin, const R3& direction) {
    OxState state = session.primaryState();
    state.ray.origin = origin;
    state.ray.direction = direction;
    return state;
}

OxState TestWorld::hit(const R3& origin, const R3& direction) {
    OxState state = primaryState(session(), origin, direction);
    if (!oxsShootRay(&state)) throw std::logic_error("the test's ray hits nothing");
    R3 position;
    oxsGetHitPosition(&state, position);
    oxsSetRayOrigin(&state, position);
    return state;
}

R3 TestWorld::trace(const R3& origin, const R3& direction) {
    OxState state = primaryState(session(), origin, direction);
    return Session::trace(state);
}

R3 TestWorld::fromOrigin(float degrees) {
    const float radians = 0.0174532925f * degrees;
    const R3 direction(std::sin(radians), -std::cos(radians), 0);
    return trace(-2.0f * direction, direction);
}

RenderResult TestWorld::render(unsigned threads, unsigned samples, std::optional<Window> crop, bool packets) {
    RenderOptions options;
    options.samples = samples;
    options.crop = crop;
    options.packets = packets;
    return renderWorld(*this, options, threads);
}

RenderResult renderWorld(World& world, const RenderOptions& options, unsigned threads, const std::string& isa) {
    Workers workers(threads);
    workers.within([&] { world.geometry.build(isa); });
    return render(world, workers, options);
}

std::uint64_t raysShot(RayKind kind) {
    return ThreadRecord::mine().rays[static_cast<unsigned>(std::countr_zero(+kind))];
}

void resetRayCounts() { ThreadRecord::mine() = ThreadRecord{}; }

}  // namespace oxbeam::test
