// Point, directional and spot lights: attenuation, cone, jitter.
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

TEST(PointLight, FalloffByItsThreeTerms) {
    const struct {
        float constant, linear, quadratic, distance, divisor;
    } cases[] = {
        {1e-9f, 0, 1, 2, 0.001f + 1e-9f + 4.0f},  // the defaults
        {0, 0.00009f, 0, 1000, 0.001f},           // too small to count
        {0, 0.0001f, 0, 1000, 0.101f},
        {1, 2, 3, 0.5f, 1.001f + 1.0f + 0.75f},
    };
    LightWorld<KelPointLight> world("KelPointLight");
    KelPointLight& light = world.light;
    light.position = R3(1, 2, 3);
    light.intensity = R3(1, 0.5f, 2);
    for (const auto& c : cases) {
        light.atten0 = c.constant;
        light.atten1 = c.linear;
        light.atten2 = c.quadratic;
        const R3 away = Normalize(R3(2, -1, 2));
        EXPECT_TRUE(world.illuminate(light.position - c.distance * away));
        expectNear(world.L, away);
        EXPECT_NEAR(world.distance, c.distance, 1e-5f * c.distance);
        expectNear(c.divisor * world.I, light.intensity);
    }
}

// All that deflects goes through the two virtual functions, reached from either base.
TEST(PointLight, DeflectionFollowsAxesAndDraws) {
    LightWorld<KelPointLight> world("KelPointLight");
    KelPointLight& light = world.light;
    KelLight& side = light;
    light.position = R3(1, 2, 3);
    light.fuzzyness = 2.0f;
    side.u = R3(0, 3, 0);
    side.v = R3(0, 0, 5);
    side.w = R3(7, 0, 0);
    OxState state = world.session().primaryState();
    const R3 P(10, 20, 30), shift = 2.0f * R3(0.125f * 7, 0.25f * 3, -0.5f * 5);
    oxsSetRay(&state, P, R3(0, 1, 0), 4.0f);
    script(world.ro(), {0.75f, 0.0f, 0.625f});
    R3 p = P;
    EXPECT_TRUE(side.deflect(&state, p));
    EXPECT_EQ(p, P + shift);
    EXPECT_TRUE(side.deflectRay(&state));
    EXPECT_EQ(state.ray.direction, light.position + shift - P) << "as long as the way to the light";
    world.surface.m_fuzzyLights = 1;
    EXPECT_TRUE(world.illuminate(P));
    expectNear(world.distance * world.L, light.position + shift - P, 1e-4f);
    expectNear((0.001f + world.distance * world.distance) * world.I, White);

    // Without random numbers nothing is jittered, but the ray is still turned to the light.
    delete std::exchange(world.ro().m_rays[0].sampler, nullptr);
    EXPECT_FALSE(side.deflect(&state, p = P));
    EXPECT_EQ(p, P);
    EXPECT_FALSE(side.deflectRay(&state));
    EXPECT_EQ(state.ray.direction, light.position - P);
}

TEST(SpotLight, FadesLinearlyInTheCosineBetweenItsAngles) {
    const float c10 = std::cos(10 * Radian), c15 = std::cos(15 * Radian);
    LightWorld<KelSpotLight> world("KelSpotLight");
    KelSpotLight& light = world.light;
    light.position = R3(1, 2, 3);
    light.intensity = R3(1, 2, 4);
    light.direction = R3(0, -3, 0);
    for (const float degrees : {9.9f, 11.0f, 14.99f, 15.01f, 180.0f}) {
        const R3 way(std::sin(degrees * Radian), -std::cos(degrees * Radian), 0);
        EXPECT_EQ(world.illuminate(light.position + 7.0f * way), degrees < 15);
        expectNear(world.L, -way);
        EXPECT_NEAR(world.distance, 7.0f, 1e-5f);
        const float fading = std::clamp((-way.y - c15) / (c10 - c15), 0.0f, 1.0f);
        expectNear(world.I, 0.5f * fading * light.intensity, 2e-4f);  // attenuation is 2 unless set
    }
    light.atten0 = 1.0f;
    light.atten1 = 0.00009f;
    light.atten2 = 3.0f;
    world.session().newFrame();
    EXPECT_TRUE(world.illuminate(light.position - R3(0, 2, 0)));
    expectNear((1.0f + 0.00018f + 12.0f) * world.I, light.intensity);
}

// Both jitter the direction towards them across their own.
template <class Light>
static void testJitter(const char* name) {
    const float r2 = std::sqrt(2.0f), r6 = std::sqrt(6.0f);
    LightWorld<Light> world(name);
    world.light.direction = R3(1, 1, 1);
    world.light.fuzzyness = 0.5f;
    OxState state = world.session().primaryState();
    const auto& numbers = script(world.ro(), {0.75f, 0.0f});
    const R3 towards = -Normalize(R3(1, 1, 1)), P = -3.0f * towards;  // on the axis of a spot
    const R3 u(-1 / r2, 1 / r2, 0), v(-1 / r6, -1 / r6, 2 / r6);
    const R3 jittered = Normalize(towards + 0.5f * (0.25f * u - 0.5f * v));
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

TEST(DirectionalLight, JittersAcrossItsDirection) { testJitter<KelDirectionalLight>("KelDirectionalLight"); }

TEST(SpotLight, JittersAcrossItsAxis) { testJitter<KelSpotLight>("KelSpotLight"); }
