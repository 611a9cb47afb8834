// What rays that leave the scene see: places in the maps, visibility, shadows on a plane that is not there.
#include "Engine/Textures/Projection.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Shaders/Kel/KelCubicEnvironment.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Tests/Support/Probe.h"

#include <algorithm>
#include <numbers>
#include <tuple>

using namespace oxbeam::test;

static constexpr float Pi = std::numbers::pi_v<float>;

// Shows its own coordinates.
static std::unique_ptr<Texture> ramp() {
    return painted(64, 64, [](float s, float t) { return R3(s, t, 0); });
}

template <class Shader>
struct EnvironmentWorld : TestWorld {
    Shader& shader;

    explicit EnvironmentWorld(const char* name) : shader(surroundings<Shader>(name)) {}

    R3 seen(const R3& direction, Oxuint kind = RAY_PRIMARY, int triangle = TRI_NONE) {
        OxState state = session().primaryState();
        state.ray.direction = direction;
        state.ray.visibilityMask = kind;
        state.hit.tri = triangle;
        shader.Shade(&state);
        return state.color;
    }
};

struct SphericalWorld : EnvironmentWorld<KelEnvironmentShader> {
    explicit SphericalWorld(std::unique_ptr<Texture> map) : EnvironmentWorld("KelEnvironment") {
        shader.color = R3(0.25f, 0.5f, 3);
        shader.textureid = textures.add(std::move(map));
    }
};

struct CubicWorld : EnvironmentWorld<KelCubicEnvironmentShader> {
    explicit CubicWorld(std::unique_ptr<Texture> cross) : EnvironmentWorld("KelCubicEnvironment") {
        shader.textureid = textures.add(std::move(cross));
    }
};

TEST(Environment, PlacesInTheMapFollowTheUpDirection) {
    const R3 x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    const struct {
        Oxuint up;
        R3 right, top, middle;  // where the map looks
    } cases[] = {{1, x, y, z}, {2, x, z, -y}, {5, -y, x, z}};
    for (const auto& c : cases) {
        SphericalWorld world(ramp());
        world.shader.upDirection = c.up;
        world.shader.scale = 2.0f;
        const float one = 0.31831723f * Pi;  // the shader's reciprocal of pi is a little off
        expectNear(world.seen(-c.right), R3(1 - 0.5f * one, 1, 0), 2e-6f);
        expectNear(world.seen(c.top), R3(1, 1 + 0.5f * one, 0), 2e-6f);
        // The way from the middle is the angle; only the part along the axis must be of a unit direction.
        expectNear(world.seen(3.0f * c.right - 4.0f * c.top + std::cos(0.75f * Pi) * c.middle),
                   R3(1, 1, 0) + one * R3(0.45f, -0.6f, 0), 2e-6f);
        for (const R3& odd : {c.middle, -c.middle, R3(), R3(std::nanf(""), 1, 0)})
            EXPECT_TRUE(IsFinite(world.seen(odd))) << "there is some texel for it";
    }
}

TEST(Environment, TheMapIsSeenByChosenKindsOfRays) {
    Oxuint KelEnvironmentShader::*const switches[] = {
        &KelEnvironmentShader::visiblePrimary, &KelEnvironmentShader::visibleTransparent,
        &KelEnvironmentShader::visibleRefractions, &KelEnvironmentShader::visibleReflections};
    const Oxuint kinds[] = {RAY_PRIMARY, RAY_TRANSPARENCY, RAY_REFRACTION, RAY_REFLECTION};
    SphericalWorld world(ramp());
    const R3 map(0.75f, 0.5f, 0);
    for (const auto off : switches) {
        world.shader.*off = 0;
        world.session().newFrame();
        for (unsigned i = 0; i < 4; ++i)
            expectNear(world.seen(R3(1, 0, 0), kinds[i]), switches[i] == off ? world.shader.color : map);
        world.shader.*off = 1;
    }
    world.session().newFrame();
    EXPECT_EQ(world.seen(R3(1, 0, 0), RAY_PRIMARY, TRI_MARKED), Red);
    world.shader.textureid = -1;
    EXPECT_EQ(world.seen(R3(1, 0, 0)), world.shader.color);
}

// A grey sky; the ray would meet the plane y = 0 at the origin, 5 below a pane.
TEST(Environment, LightsCastShadowsOnThePlane) {
    enum Pane { Opaque, Clear };
    const struct {
        const char* name;
        Pane pane;
        unsigned lights;  // the first straight above, behind the pane; the second 60 degrees off; the third below
        float darkness;
        R3 origin, direction, factor;
        Oxint receive = 1;
    } cases[] = {
        {"one light", Opaque, 1, 0.75f, R3(-2, 2, 0), R3(2, -2, 0), 0.25f * White},
        // U = (1, 2, 4) + (1, 1, 1) without the pane, S = (1, 1, 1) with it.
        {"two lights", Opaque, 3, 0.5f, R3(-2, 2, 0), R3(1, -1, 0), R3(0.5f + 0.1f / 2, 0.5f + 0.1f / 3, 0.52f)},
        // S = (1, 1, 1) + (0.5, 0.5, 0.5) (1, 2, 4)
        {"clear pane", Clear, 2, 0.5f, R3(-2, 2, 0), R3(1, -1, 0),
         R3(0.5f + 0.15f / 2, 0.5f + 0.2f / 3, 0.5f + 0.3f / 5)},
        {"beside the pane's shadow", Opaque, 1, 0.5f, R3(2, 2, 0), R3(1, -1, 0), White},
        {"along the plane, in it", Opaque, 2, 0.5f, R3(), R3(1, 0, 0), White},
        {"switched off", Opaque, 2, 0.5f, R3(-2, 2, 0), R3(1, -1, 0), White, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SphericalWorld world(painted(1, 1, [](float, float) { return R3(0.5f, 0.25f, 1); }));
        world.shader.m_receiveShadow = c.receive;
        world.shader.shadowIntensity = c.darkness;
        world.shader.shadowPlaneNormal = R3(0, 3, 0);
        world.shader.shadowPlaneOrigin = R3(8, 0, 9);
        const std::pair<R3, R3> lights[] = {
            {R3(0, -1, 0), R3(1, 2, 4)}, {R3(std::sqrt(3.0f), -1, 0), R3(2, 2, 2)}, {R3(0, 1, 0), R3(9, 9, 9)}};
        for (unsigned i = 0; i < c.lights; ++i) {
            auto& light = world.light<OxDirectionalLight>("OxDirectionalLight");
            std::tie(light.direction, light.intensity) = lights[i];
        }
        world.phong().transparentColor = c.pane == Clear ? 0.5f * White : Black;
        world.addSquare(R3(0, 5, 0), R3(0, -1, 0), 1.0f);
        expectNear(world.trace(c.origin, c.direction), c.factor * R3(0.5f, 0.25f, 1));
    }
}

TEST(CubicEnvironment, FacesLieAndTurnAsTheCrossHasThem) {
    const struct {
        R3 direction;
        float s, t;
    } cases[] = {
        {R3(-2, 1, 0.5f), 11.0f / 24, 11.0f / 16},  // -x: middle, third from below
        {R3(2, 1, 0.5f), 11.0f / 24, 1.0f / 16},    // +x: middle, lowest
        {R3(1, 0.5f, -2), 0.875f, 0.5625f},         // -z: right
        {R3(1, 0.5f, 2), 1.0f / 8, 9.0f / 16},      // +z: left
        {R3(1, -2, 0.5f), 11.0f / 24, 5.0f / 16},   // -y: middle, second
        {R3(1, 2, 0.5f), 11.0f / 24, 15.0f / 16},   // +y: middle, highest
        {R3(0, -1, 1), 1.0f / 3, 0.375f},           // y before z
        {R3(-1, 0, -1), 5.0f / 6, 0.75f},           // z before x
    };
    CubicWorld world(ramp());
    world.shader.isVisible = 0;  // means nothing
    for (const auto& c : cases) expectNear(world.seen(c.direction), R3(c.s, c.t, 0));
    EXPECT_TRUE(IsFinite(world.seen(R3(1, std::nanf(""), 0))));
    world.shader.textureid = -1;
    EXPECT_EQ(world.seen(R3(1, 0, 0)), White);
}

static R3 sky(const R3& d) { return 0.5f * (White + d); }

TEST(Projection, MapsShowTheSkyWhereItWas) {
    const auto equirectangular = painted(256, 128, [](float s, float t) {
        const float longitude = 2 * Pi * (s - 0.5f), latitude = Pi * (t - 0.5f), width = std::cos(latitude);
        return sky(R3(width * std::sin(longitude), std::sin(latitude), -width * std::cos(longitude)));
    });
    // All around, the axes a little beside, where an angular map has no place for its own.
    std::vector<R3> directions;
    for (int i = 0; i < 11 * 11 * 11; ++i)
        directions.push_back(
            Normalize(R3(static_cast<float>(i % 11 - 5) + 0.01f, static_cast<float>(i / 11 % 11 - 5) + 0.02f,
                         static_cast<float>(i / 121 - 5) + 0.01f)));
    {
        SphericalWorld world(toAngularMap(*equirectangular));
        for (const R3& d : directions) expectNear(world.seen(d), sky(d), 0.01f);
    }
    CubicWorld world(toVerticalCross(*equirectangular));
    for (const R3& d : directions) {
        float a[] = {std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)};
        std::sort(a, a + 3);
        if (a[1] < 0.99f * a[2]) expectNear(world.seen(d), sky(d), 0.01f);  // not on a seam
    }
}
