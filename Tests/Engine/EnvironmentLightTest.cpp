// Light from environment maps: how much, from where, and when it is in the frame's list.
#include "Engine/Output/ImageFile.h"
#include "Shaders/Kel/KelCubicEnvironment.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/SceneText.h"

#include <algorithm>
#include <numbers>
#include <set>

using namespace oxbeam::test;

static constexpr float Pi = std::numbers::pi_v<float>;

// An angular map from a function of its own directions (z in the middle); the corners hold what must not count.
template <class ColorAt>
static std::unique_ptr<Texture> angularMap(unsigned side, ColorAt colorAt) {
    return painted(side, side, [&](float s, float t) {
        const float x = 2 * s - 1, y = 2 * t - 1, r = std::sqrt(x * x + y * y), across = std::sin(Pi * r) / r;
        return r > 1 ? 100.0f * White : colorAt(R3(x * across, y * across, std::cos(Pi * r)));
    });
}

// A smooth sky, its integral over the sphere, and what arrives on a plane, by the moments of the hemisphere's cosine.
static R3 smooth(const R3& d) { return {1 + d.z, 1 + d.y * d.y, 0.5f + 0.5f * d.x}; }
static const R3 smoothIntegral(4 * Pi, 16 * Pi / 3, 2 * Pi);
static R3 smoothIrradiance(const R3& n) {
    return {Pi + 2 * Pi / 3 * n.z, Pi + Pi / 4 * (1 + n.y * n.y), Pi / 2 + Pi / 3 * n.x};
}

struct MapLightWorld : TestWorld {
    OxEnvMapLight& light;

    explicit MapLightWorld(std::unique_ptr<Texture> map) : light(TestWorld::light<OxEnvMapLight>("KelEnvMapLight")) {
        light.setTextureId(textures.add(std::move(map)));
    }
    R3 total() const {
        R3 sum;
        for (const auto& region : light.elementaryLights()) sum += region->m_light->intensity;
        return sum;
    }
    R3 irradiance(const R3& normal) const {
        R3 sum;
        for (const auto& region : light.elementaryLights())
            sum += std::max(0.0f, -Dot(region->m_light->direction, normal)) * region->m_light->intensity;
        return sum;
    }
};

// Whichever axis is up: all lights together are the whole sky, and what arrives on a plane gets ever closer to what the
// sky sends there, by more than half for four times the lights.
TEST(EnvironmentLight, IrradianceConvergesToTheSkys) {
    for (const unsigned up : {0u, 1u, 2u}) {
        MapLightWorld world(angularMap(256, smooth));
        world.light.setUpDirection(up);
        world.light.intensity = R3(1, 2, 3);
        float before = 1e9f;
        for (const int count : {1, 4, 16, 64, 256}) {
            world.light.setNumLights(count);
            world.session().newFrame();
            EXPECT_EQ(world.light.elementaryLights().size(), static_cast<std::size_t>(count));
            expectNear(world.total() / (R3(1, 2, 3) * smoothIntegral), White, 1e-3f);
            float error = 0.0f;  // largest of 26 planes, as a share of the mean
            for (int i = 0; i < 27; ++i) {
                if (i == 13) continue;
                const R3 n = Normalize(R3(static_cast<float>(i % 3 - 1), static_cast<float>(i / 3 % 3 - 1),
                                          static_cast<float>(i / 9 - 1)));
                const R3 own = up == 1 ? n : up == 2 ? R3(n.x, n.z, -n.y) : R3(-n.y, n.x, n.z);
                const R3 off = world.irradiance(n) / R3(1, 2, 3) - smoothIrradiance(own);
                for (unsigned k = 0; k < 3; ++k) error = std::max(error, 4 * std::fabs(off[k]) / smoothIntegral[k]);
            }
            EXPECT_LT(error, 0.5f * before) << count << " lights, up " << up;
            before = error;
        }
        EXPECT_LT(before, 0.02f);
    }
}

// Counts the frame's lights when it is told of the frame.
struct LightCounter : OxShader {
    std::size_t seen = 0;

    void NewFrame() override {
        const std::vector<OxLight*>* lights = nullptr;
        oxsGlobalLights(lights);
        Oxvoid** handles = nullptr;
        seen = lights->size();
        ASSERT_EQ(oxsGlobalLights(&handles), seen);
        for (std::size_t i = 0; i < seen; ++i) EXPECT_EQ(static_cast<OxLight*>(handles[i]), (*lights)[i]);
    }
};

TEST(EnvironmentLight, LightsAreInTheListForTheFramesThatWantThem) {
    TestWorld world;
    world.steadyLight(R3(0, 1, 0));
    auto& sky = world.surroundings<KelEnvironmentShader>("KelEnvironment");
    const auto& counter = world.own<LightCounter>();
    const Oxint map = world.textures.add(angularMap(32, smooth));
    const auto lightsWith = [&](Oxint texture, Oxint count) {
        sky.textureid = texture;
        sky.m_envLights = count;
        world.session().newFrame();
        return counter.seen - 1;
    };
    EXPECT_EQ(lightsWith(map, -1), 0u);
    EXPECT_EQ(lightsWith(Ox_NOTEXTURE, 5), 0u);
    EXPECT_EQ(sky.m_envLightShader, nullptr) << "never wanted";
    EXPECT_EQ(lightsWith(map, 5), 5u);
    EXPECT_EQ(lightsWith(map, 5), 5u);
    EXPECT_EQ(lightsWith(map, 2), 2u);
    EXPECT_EQ(lightsWith(99, 2), 0u) << "no such texture";
    EXPECT_EQ(lightsWith(map, 9), 9u);
    EXPECT_EQ(lightsWith(map, 0), 0u);
}

TEST(EnvironmentLight, EquirectangularPicturesAreTurnedOncePerLayout) {
    writeImage(scratch() / "sky.exr", 16, 8, std::vector<R3>(128, White));
    const LoadedScene scene = loadText(
        "[texture]\nsky = {file = 'sky.exr', projection = 'equirectangular'}\n"
        "[environment]\nobject = 'KelEnvironment'\ntexture = 'sky'\n"
        "[[light]]\nobject = 'KelEnvMapLight'\ntexture = 'sky'\n"
        "[shader.a]\nobject = 'KelCubicEnvironment'\ntexture = 'sky'\n"
        "[shader.b]\nobject = 'KelCubicEnvironment'\ntexture0 = 'sky'\n"
        "[shader.c]\nobject = 'KelPhong'\ntexture = 'sky'\n");
    EXPECT_THAT(scene.said, IsEmpty());
    const auto cross = [&](unsigned i) {
        return static_cast<KelCubicEnvironmentShader&>(*scene.world->shaders[i]).textureid;
    };
    const Oxint plain = static_cast<KelPhongShader&>(*scene.world->shaders[2]).texture;
    const Oxint angular = static_cast<KelEnvironmentShader&>(*scene.world->environment).textureid;
    EXPECT_EQ(static_cast<OxEnvMapLight&>(*scene.world->lights[0]).textureId(), angular);
    EXPECT_EQ(cross(0), cross(1));
    EXPECT_EQ((std::set{plain, angular, cross(0)}), (std::set{0, 1, 2}));
}
