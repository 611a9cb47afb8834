// The point light: falloff and jitter.
#include "Tests/Support/Probe.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace oxbeam::test;

TEST(PointLight, FalloffByItsThreeTerms) {
    const struct {
        float constant, linear, quadratic, distance, divisor;
    } cases[] = {
        {1e-9f, 0, 1, 2, 0.001f + 1e-9f + 4.0f},  // the defaults
        {0, 0, 0, 7, 0.001f},
        {0.5f, 0, 0, 7, 0.501f},
        {0, 0.00009f, 0, 1000, 0.001f},  // too small to count
        {0, 0.0001f, 0, 1000, 0.101f},
        {0, std::nanf(""), 0, 1000, 0.001f},
        {1, 2, 3, 0.5f, 1.001f + 1.0f + 0.75f},
    };
    TestWorld world;
    KelPhongShader& shader = world.phong();
    KelPointLight& light = world.pointLight(R3(1, 2, 3), R3(1, 0.5f, 2));
    OxState state = world.session().primaryState();
    for (const auto& c : cases) {
        light.atten0 = c.constant;
        light.atten1 = c.linear;
        light.atten2 = c.quadratic;
        const R3 away = Normalize(R3(2, -1, 2));
        R3 L, I;
        float distance;
        EXPECT_TRUE(light.Illuminate(light.position - c.distance * away, L, distance, I, &state, &shader));
        expectNear(L, away);
        EXPECT_NEAR(distance, c.distance, 1e-5f * c.distance);
        expectNear(c.divisor * I, light.intensity);
    }
}

TEST(PointLight, FuzzySamplesScatterOverABox) {
    TestWorld world;
    KelPhongShader& shader = world.phong();
    KelPointLight& light = world.pointLight(R3(1, 2, 3));
    shader.m_fuzzyLights = 1;
    OxState state = world.session().primaryState();
    const R3 P(0.5f, 0, 2.5f);
    R3 sum, least = White, most = -White;
    for (int i = 0; i < 2000; ++i) {
        R3 L, I;
        float distance;
        light.Illuminate(P, L, distance, I, &state, &shader);
        const R3 place = (P + distance * L - light.position) / light.fuzzyness;  // in units of the box
        sum += place;
        for (unsigned axis = 0; axis < 3; ++axis) {
            least[axis] = std::min(least[axis], place[axis]);
            most[axis] = std::max(most[axis], place[axis]);
        }
        EXPECT_NEAR(Length(L), 1.0f, 1e-5f);
        EXPECT_NEAR(I.x, 1.0f / (0.001f + distance * distance), 1e-5f);
    }
    expectNear(least, -0.5f * White, 0.01f);
    expectNear(most, 0.5f * White, 0.01f);
    expectNear(sum / 2000.0f, Black, 0.03f);
}

// All that deflects goes through the two virtual functions, reached from either base.
TEST(PointLight, DeflectionFollowsAxesAndDraws) {
    TestWorld world;
    KelPointLight& light = world.pointLight(R3(1, 2, 3));
    KelLight& side = light;
    light.fuzzyness = 2.0f;
    side.u = R3(0, 3, 0);
    side.v = R3(0, 0, 5);
    side.w = R3(7, 0, 0);
    KelRenderingObject& ro = world.ro();
    OxState state = world.session().primaryState();
    const R3 P(10, 20, 30);
    oxsSetRay(&state, P, R3(0, 1, 0), 4.0f);
    script(ro, {0.75f, 0.0f, 0.625f});
    const R3 shift = 2.0f * R3(0.125f * 7, 0.25f * 3, -0.5f * 5);
    R3 p = P;
    EXPECT_TRUE(side.deflect(&state, p));
    EXPECT_EQ(p, P + shift);
    EXPECT_TRUE(side.deflectRay(&state));
    EXPECT_EQ(state.ray.direction, light.position + shift - P) << "as long as the way to the light";

    // Without random numbers nothing is jittered, but the ray is still turned to the light.
    delete std::exchange(ro.m_rays[0].sampler, nullptr);
    p = P;
    EXPECT_FALSE(side.deflect(&state, p));
    EXPECT_EQ(p, P);
    EXPECT_FALSE(side.deflectRay(&state));
    EXPECT_EQ(state.ray.direction, light.position - P);
    side.Init();
    EXPECT_EQ(light.fuzzyness, 0.1f) << "Init is the whole light's from either base";
}
