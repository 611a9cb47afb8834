// Tiny scenes built in memory, shared by tests and benchmarks.
#pragma once

#include "Engine/Packages/Registry.h"
#include "Engine/Render/Renderer.h"
#include "Engine/Render/Session.h"
#include "Engine/Scene/Shapes.h"
#include "Engine/World/World.h"
#include "Shaders/Kel/KelPhong.h"
#include "Shaders/Kel/KelPointLight.h"
#include "Shaders/Kel/KelRenderingObject.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace oxbeam::test {

using namespace oxbeam;  // for those who use this one
namespace fs = std::filesystem;

// All objects of the package under test and of the host.
const Registry& registry();
// A folder for files of the running test; empty at first, gone at the end of the process.
fs::path scratch();

// A world with the package's rendering object, the host's perspective camera and a plain background. Objects come from
// the package's factories, as in a real scene.
class TestWorld : public World {
public:
    explicit TestWorld(const R3& background = Black);

    KelRenderingObject& ro() { return static_cast<KelRenderingObject&>(*renderingObject); }
    KelPhongShader& phong(const R3& diffuse = White);
    // A surface of one colour, whatever the light.
    KelPhongShader& glowing(const R3& color);
    // Looks along -z onto a picture's height of 2 in the plane z = 0.
    void faceTheCards(unsigned width, unsigned height);
    // A level square, of its own shader, that shows the light that reaches it and nothing else.
    KelPhongShader& floor(float y = 0.0f);
    KelPointLight& pointLight(const R3& position, const R3& intensity = White);
    // One without falloff: the same intensity at every distance.
    KelPointLight& steadyLight(const R3& position, const R3& intensity = White);
    // Any object by its registered name, as a shader or a light of the scene. The package hides the type information
    // that a checked cast would need.
    template <class T = OxShader>
    T& shader(const std::string& name) {
        return static_cast<T&>(addShader(*registry().find(name)));
    }
    template <class T = OxLight>
    T& light(const std::string& name) {
        return static_cast<T&>(addLight(*registry().find(name)));
    }
    template <class T>
    T& surroundings(const std::string& name) {
        return static_cast<T&>(setEnvironment(*registry().find(name)));
    }

    // A shader or light of a class of the test's own.
    template <class T>
    T& own() {
        static ObjectClass object;
        object.factory = [] { return static_cast<OxLoadableObject*>(new T); };
        if constexpr (std::is_base_of_v<OxLight, T>)
            return static_cast<T&>(addLight(object));
        else
            return static_cast<T&>(addShader(object));
    }

    // Places a mesh that is shaded by the shader made last.
    unsigned add(MeshData mesh, const Matrix& placement = {}, Oxuint visibility = RAY_ALL);
    // A square of side 2 * halfSide about `center`, facing `normal`.
    unsigned addSquare(const R3& center, const R3& normal, float halfSide = 100.0f, Oxuint visibility = RAY_ALL);

    // Builds the geometry and sets the world up for tracing, once; later calls give the same session.
    Session& session();
    // A primary ray's state after shooting, with the ray's origin at the hit, where surface shaders put it.
    OxState hit(const R3& origin, const R3& direction);
    // Colour along a primary ray; the direction is taken as it is.
    R3 trace(const R3& origin, const R3& direction);
    // What the origin sends so many degrees off the y axis, towards negative x.
    R3 fromOrigin(float degrees = 0.0f);
    // The whole picture; needs that no session was asked for.
    RenderResult render(unsigned threads = 1, unsigned samples = 1, std::optional<Window> crop = {},
                        bool packets = false);

private:
    std::optional<Session> m_session;
};

RenderResult renderWorld(World& world, const RenderOptions& options, unsigned threads = 2,
                         const std::string& isa = SceneGeometry::defaultIsa());

// Rays of one kind shot by this thread since the last call of resetRayCounts.
std::uint64_t raysShot(RayKind kind);
void resetRayCounts();

}  // namespace oxbeam::test
