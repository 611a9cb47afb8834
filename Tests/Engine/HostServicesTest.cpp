// The services that packages call, and the host's own lights and camera.
#include "Oxbeam/FastOxS4.h"
#include "Oxbeam/OxDirectionalLight.h"
#include "Oxbeam/OxFunctions.h"
#include "Oxbeam/OxPerspectiveCamera.h"
#include "Oxbeam/OxPointLight.h"
#include "Oxbeam/OxSampler.h"
#include "Oxbeam/OxSpotLight.h"
#include "Tests/Support/Probe.h"

#include <memory>
#include <random>

using namespace oxbeam::test;

namespace {

constexpr float Pi = 3.14159265f;

// What a light sends to a point: the ray to the light and what arrives, or nothing.
struct Arrival {
    bool lit;
    OxState shadow;
};
Arrival illuminate(OxLight& light, R3 point) {
    Arrival a{false, {}};
    a.lit = oxsIlluminate(static_cast<OxLight*>(&light), &a.shadow, point, &a.shadow, nullptr);
    return a;
}

// The mean of a function of a light's sampled directions, over a grid of the unit square.
template <class F>
double meanOverSamples(const OxLight& light, F f) {
    constexpr int n = 128;
    double sum = 0.0;
    for (int i = 0; i < n * n; ++i) {
        R3 d;
        light.SampleDirection(d, (static_cast<float>(i % n) + 0.5f) / n, (static_cast<float>(i / n) + 0.5f) / n);
        EXPECT_NEAR(Length(d), 1.0f, 1e-5f);
        sum += f(d);
    }
    return sum / (n * n);
}

}  // namespace

TEST(HostServices, HandlesThatNameNothingAreNull) {
    TestWorld world;
    world.phong();
    world.addSquare(R3(), R3(0, 1, 0));
    world.session();
    ASSERT_NE(oxGetInstance(0), nullptr);
    EXPECT_EQ(oxGetObject(oxGetInstance(0)), world.geometry.scene().objects[0]);
    for (const int none : {-1, 1, 1 << 30, -(1 << 30)}) EXPECT_EQ(oxGetInstance(none), nullptr);
    EXPECT_EQ(oxGetObject(nullptr), nullptr);
}

// Says that it reaches all there is, and nothing more.
struct Silent : OxLight {
    bool Illuminate(const R3&, R3&, float&, R3&, OxState*, void*) override { return true; }
    bool Illuminate4(const ISSEVec4&, ISSEVec4&, sse_t&, ISSEVec4&, OxState4&, void*) override { return true; }
};

TEST(HostServices, ALightWithoutIntensityShowsNoOtherLights) {
    Silent light;
    OxState shadow;
    shadow.color = White;
    R3 point;
    EXPECT_TRUE(oxsIlluminate(static_cast<OxLight*>(&light), &shadow, point, &shadow, nullptr));
    EXPECT_EQ(shadow.color, Black);
    ISSERay4 ray;
    OxState4 packet;
    packet.ray4 = &ray;
    packet.colors = ISSEVec4(White);
    ISSEVec4 points(point);
    EXPECT_TRUE(oxsIlluminate4(static_cast<OxLight*>(&light), packet, points, packet, nullptr));
    EXPECT_EQ(packet.colors.lane(2), Black);
}

TEST(HostServices, LightsArriveAsTheirFormulasSay) {
    OxPointLight point;
    point.position = R3(0, 3, 4);
    point.intensity = R3(50, 25, 0);
    Arrival a = illuminate(point, R3());
    ASSERT_TRUE(a.lit);
    expectNear(a.shadow.ray.direction, R3(0, 0.6f, 0.8f));
    EXPECT_FLOAT_EQ(a.shadow.ray.maxDist, 5);
    expectNear(a.shadow.color, R3(2, 1, 0));
    point.atten0 = 10, point.atten1 = 3, point.atten2 = 1;
    expectNear(illuminate(point, R3()).shadow.color, R3(1, 0.5f, 0));

    OxDirectionalLight sun;
    sun.direction = R3(0, -2, 0);
    sun.NewFrame();
    a = illuminate(sun, R3(7, 8, 9));
    ASSERT_TRUE(a.lit);
    EXPECT_EQ(a.shadow.ray.origin, R3(7, 8, 9));
    expectNear(a.shadow.ray.direction, R3(0, 1, 0), 0);
    EXPECT_GT(a.shadow.ray.maxDist, 1e18f);
    EXPECT_EQ(a.shadow.color, White);

    OxSpotLight spot;  // shines downwards and by default halves its light at any distance
    spot.minAngle = 0.3f, spot.maxAngle = 0.8f;
    spot.direction = R3(0, -5, 0);
    spot.NewFrame();
    for (const float angle : {0.0f, 0.29f, 0.5f, 0.79f, 0.81f, Pi}) {
        a = illuminate(spot, 7.0f * R3(std::sin(angle), -std::cos(angle), 0));
        const float fade = (std::cos(angle) - std::cos(0.8f)) / (std::cos(0.3f) - std::cos(0.8f));
        const float expected = angle < 0.3f ? 1.0f : fade;
        ASSERT_EQ(a.lit, angle < 0.8f) << angle;
        if (!a.lit) continue;
        expectNear(a.shadow.color, 0.5f * expected * White);
        expectNear(a.shadow.ray.direction, R3(-std::sin(angle), std::cos(angle), 0));
        EXPECT_FLOAT_EQ(a.shadow.ray.maxDist, 7);
    }
}

TEST(HostServices, LightsAreSampledEvenlyOverWhereTheyShine) {
    OxPointLight point;
    for (const R3& axis : {R3(1, 0, 0), R3(0, 1, 0), Normalize(R3(1, -1, 1))})
        // A cap's share of the sphere is its height's share of the diameter.
        EXPECT_NEAR(meanOverSamples(point, [&](const R3& d) { return Dot(d, axis) > 0.6f; }), 0.2, 0.01);
    for (const R3& axis : {R3(0, -1, 0), R3(1, 2, -3)}) {
        OxSpotLight spot;
        spot.direction = axis;
        spot.maxAngle = 0.7f;
        spot.NewFrame();
        const R3 z = Normalize(axis), x = Normalize(Cross(z, R3(0.3f, 0.1f, 0.7f)));
        const double edge = std::cos(0.7);
        EXPECT_EQ(meanOverSamples(spot, [&](const R3& d) { return Dot(d, z) < edge - 1e-5; }), 0.0);
        EXPECT_NEAR(meanOverSamples(spot, [&](const R3& d) { return Dot(d, z); }), (1 + edge) / 2, 1e-3);
        EXPECT_NEAR(meanOverSamples(spot, [&](const R3& d) { return Dot(d, x); }), 0.0, 1e-3);
    }
}

TEST(HostServices, PacketsOfPrimaryRaysAreFourSingleOnes) {
    OxPerspectiveCamera camera;
    camera.InitCamera(R3(1, -2, 0.3f), R3(0.1f, 0.7f, -3), R3(0.2f, 1, 0), 37, 23, -0.7f, 0.6f, -0.4f, 0.5f, 1.3f);
    const float px[] = {0.1f, 0.9f, 0.5f, 0.3f}, py[] = {0.7f, 0.2f, 0.0f, 0.6f}, far[] = {1, 2, 3, RayInfinity};
    for (const unsigned width : {1u, 2u, 4u}) {
        ISSERay4 ray;
        ASSERT_TRUE(camera.InitPrimaryRays(8, 5, width, px, py, far, &ray));
        for (unsigned i = 0; i < 4; ++i) {
            OxState single;
            const float pattern[2] = {px[i], py[i]};
            camera.InitPrimaryRay(&single, static_cast<int>(8 + i % width), static_cast<int>(5 + i / width), pattern);
            EXPECT_EQ(ray.origin.lane(i), single.ray.origin);
            EXPECT_EQ(ray.direction.lane(i), single.ray.direction);
            EXPECT_EQ(ray.maxDist[i], far[i]);
        }
    }
}

TEST(HostServices, RandomNumbersAreThoseOfTheStandardGenerator) {
    OxMersenneTwisterSampler sampler(0);
    for (const unsigned seed : {5489u, 0u, ~0u, 1u}) {
        std::mt19937 standard(seed);
        const auto expected = [&] { return static_cast<float>(standard() >> 8) * 0x1p-24f; };
        sampler.setSeed(seed);  // in the middle of what was made for the seed before
        for (int i = 0; i < 700; ++i) ASSERT_EQ(sampler.nextSample(i % 3), expected()) << seed << ' ' << i;
        const std::unique_ptr<OxSampler> copy(sampler.clone());
        for (int i = 0; i < 700; ++i) {
            const float next = expected();
            ASSERT_EQ(sampler.nextSample(0), next) << i;
            ASSERT_EQ(copy->nextSample(0), next) << i;
        }
    }
}
