// Directional and spot lights: cone, attenuation, jitter.
#include "Shaders/Kel/KelDirectionalLight.h"
#include "Shaders/Kel/KelSpotLight.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

template <class Light>
struct LightWorld : TestWorld {
    KelShader& surface = phong();
    Light& light;
    R3 L, I;
    float distance = 0.0f;

    explicit LightWorld(const char* name) : light(TestWorld::light<Light>(name)) {}
    bool illuminate(const R3& P) {
        OxState state = session().primaryState();
        return light.Illuminate(P, L, distance, I, &state, &surface);
    }
};

TEST(SpotLight, FadesLinearlyInTheCosineBetweenItsAngles) {
    const float c10 = std::cos(10 * Radian), c15 = std::cos(15 * Radian);
    LightWorld<KelSpotLight> world("KelSpotLight");
    KelSpotLight& light = world.light;
    light.position = R3(1, 2, 3);
    light.intensity = R3(1, 2, 4);
    light.direction = R3(0, -3, 0);
    for (const float degrees : {0.0f, 9.9f, 10.0f, 11.0f, 12.5f, 14.99f, 15.01f, 90.0f, 180.0f}) {
        const R3 way(std::sin(degrees * Radian), -std::cos(degrees * Radian), 0);
        EXPECT_EQ(world.illuminate(light.position + 7.0f * way), degrees < 15);
        expectNear(world.L, -way);
        EXPECT_NEAR(world.distance, 7.0f, 1e-5f);
        const float fading = std::clamp((-way.y - c15) / (c10 - c15), 0.0f, 1.0f);
        expectNear(world.I, 0.5f * fading * light.intensity, 2e-4f);  // attenuation is 2 unless set
    }
    const R3 below = light.position - R3(0, 2, 0);
    light.cos_maxAngle = 1.0f;
    light.cos_minAngle = 1.5f;
    EXPECT_TRUE(world.illuminate(below)) << "the edge itself belongs to the cone";
    EXPECT_EQ(world.I, Black);
    light.atten0 = 1.0f;
    light.atten1 = 0.00009f;
    light.atten2 = 3.0f;
    world.session().newFrame();
    EXPECT_TRUE(world.illuminate(below));
    expectNear((1.0f + 0.00018f + 12.0f) * world.I, light.intensity);
}

TEST(DirectionalLight, PacketsAreNotJittered) {
    LightWorld<KelDirectionalLight> world("KelDirectionalLight");
    world.light.intensity = R3(1, 2, 3);
    world.surface.m_fuzzyLights = 1;
    OxState4 packet;
    ISSEVec4 L, I;
    sse_t distance;
    EXPECT_TRUE(world.light.Illuminate4(ISSEVec4(R3(1, 2, 3)), L, distance, I, packet, &world.surface));
    EXPECT_EQ(L.lane(3), R3(0, 0, -1));
    EXPECT_EQ(I.lane(3), R3(1, 2, 3));
    EXPECT_EQ(distance[3], 1e20f);
}

// Both jitter the direction towards them across their own.
template <class Light>
static void testJitter(const char* name) {
    const float r2 = std::sqrt(2.0f), r6 = std::sqrt(6.0f);
    const struct {
        R3 direction, u, v;
        float fuzzyness;
    } cases[] = {{R3(0, 0, 1), R3(1, 0, 0), R3(0, 1, 0), 0.1f},
                 {R3(1, 1, 1), R3(-1 / r2, 1 / r2, 0), R3(-1 / r6, -1 / r6, 2 / r6), 0.5f},
                 {R3(0, -2, 0), R3(1, 0, 0), R3(0, 0, 1), 2},
                 {R3(0, 0, 1), R3(1, 0, 0), R3(0, 1, 0), 0}};
    for (const auto& c : cases) {
        LightWorld<Light> world(name);
        world.light.direction = c.direction;
        world.light.fuzzyness = c.fuzzyness;
        OxState state = world.session().primaryState();
        auto& numbers = script(world.ro(), {0.75f, 0.0f});
        const R3 towards = -Normalize(c.direction), P = -3.0f * towards;  // on the axis of a spot
        const R3 jittered = Normalize(towards + c.fuzzyness * (0.25f * c.u - 0.5f * c.v));
        world.illuminate(P);
        expectNear(world.L, towards);
        EXPECT_TRUE(numbers.dimensions.empty());
        world.surface.m_fuzzyLights = 1;
        world.illuminate(P);
        expectNear(world.L, jittered);
        EXPECT_EQ(numbers.dimensions.size(), 2u);

        KelLight& side = world.light;
        oxsSetRay(&state, P, towards, 5.0f);
        EXPECT_TRUE(side.deflectRay(&state));
        expectNear(state.ray.direction, jittered);
        delete std::exchange(world.ro().m_rays[0].sampler, nullptr);
        EXPECT_FALSE(side.deflect(&state, world.L));
        expectNear(world.L, jittered);
    }
}

TEST(DirectionalLight, JittersAcrossItsDirection) { testJitter<KelDirectionalLight>("KelDirectionalLight"); }

TEST(SpotLight, JittersAcrossItsAxis) { testJitter<KelSpotLight>("KelSpotLight"); }
