// Which secondary rays are traced: counts that follow from the rule "shallower than the limit, and a contribution
// above the accuracy", and the lobes of glossy surfaces.
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace oxbeam::test;

// The three services, reduced to what they share.
static const struct Service {
    RayKind kind;
    float KelRenderingObject::*accuracy;
    R3 (*intensity)(OxState*, float weight);
} services[] = {
    {RAY_REFLECTION, &KelRenderingObject::m_reflectiveAccuracy,
     [](OxState* state, float weight) { return kelGetReflectiveIntensity(state, weight, R3(0, 1, 0), 0.0f); }},
    {RAY_REFRACTION, &KelRenderingObject::m_refractiveAccuracy,
     [](OxState* state, float weight) {
         float distance;
         return kelGetRefractiveIntensity(state, distance, weight, R3(0, 1, 0), 1.0f, 1.0f, false, 0.0f, 1);
     }},
    {RAY_TRANSPARENCY, &KelRenderingObject::m_transparentAccuracy,
     [](OxState* state, float weight) { return kelGetTransparentIntensity(state, weight); }},
};

TEST(Culling, RaysMustBeShallowAndMatterMoreThanTheirAccuracy) {
    const struct {
        float opacity, weight, accuracy;
        unsigned depth, limit;
        bool traced;
    } cases[] = {
        {0.5f, 0.5f, 0.25f, 0, 25, false}, {0.5f, 0.5f, std::nextafter(0.25f, 0.0f), 0, 25, true},
        {1.0f, 0.0f, 0.0f, 0, 25, false},  {0.25f, 2.0f, 0.4f, 0, 25, true},
        {1.0f, 1.0f, 0.1f, 0, 0, false},   {1.0f, 1.0f, 0.1f, 0, 1, false},
        {1.0f, 1.0f, 0.1f, 0, 2, true},    {1.0f, 1.0f, 0.1f, 23, 25, true},
        {1.0f, 1.0f, 0.1f, 24, 25, false},
    };
    ProbeWorld world;
    Probe& far = world.own<Probe>();
    far.color = R3(0.5f, 0.25f, 1);
    world.addSquare(R3(0, 5, 0), R3(0, -1, 0));
    world.addSquare(R3(0, -5, 0), R3(0, 1, 0));
    KelRenderingObject& ro = world.ro();
    for (const Service& service : services)
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "kind " << service.kind << ": " << c.opacity << " x " << c.weight
                                            << " against " << c.accuracy << ", depth " << c.depth << " of " << c.limit);
            // The other kinds' accuracies would decide otherwise.
            for (const Service& other : services) ro.*other.accuracy = c.traced ? 1e6f : -1.0f;
            ro.*service.accuracy = c.accuracy;
            ro.m_recursionLimit = c.limit;
            OxState state = world.arrival();
            KelRay& record = ro.m_rays[0];
            record.opacity = c.opacity;
            record.depth = c.depth;
            record.insideFlag = 1;
            far.seen.clear();
            resetRayCounts();
            EXPECT_EQ(service.intensity(&state, c.weight), c.traced ? far.color : Black);
            EXPECT_EQ(raysShot(service.kind), c.traced ? 1u : 0u);
            EXPECT_EQ(record.opacity, c.opacity);
            EXPECT_EQ(record.depth, c.depth);
            if (!c.traced || far.seen.empty()) continue;
            const Probe::Seen& child = far.seen[0];
            EXPECT_EQ(child.opacity, c.opacity * c.weight);
            EXPECT_EQ(child.depth, c.depth + 1);
            EXPECT_EQ(child.insideFlag, 1u);
            EXPECT_EQ(child.sampler, record.sampler);
            EXPECT_FALSE(child.ownsSampler);
        }
}

// Two mirrors that face each other, or a stack of transparent sheets: each glows, and passes on a share of what it
// sees. Counts and colours follow from the rule alone.
TEST(Culling, ChainsOfRaysEndWhereTheRuleSays) {
    const struct {
        float first, second;  // shares of the surfaces, in turn
        float accuracy;
        unsigned limit;
    } cases[] = {
        {0.5f, 0.5f, 0.15f, 25},  {0.5f, 0.5f, 0.26f, 25}, {0.9f, 0.9f, 0.01f, 25},  {0.9f, 0.9f, 0.01f, 128},
        {1.0f, 1.0f, 0.15f, 40},  {0.3f, 0.9f, 0.31f, 25}, {0.9f, 0.2f, 0.001f, 25}, {0.2f, 0.9f, 0.15f, 25},
        {0.99f, 0.98f, 0.5f, 64}, {0.9f, 0.9f, 0.01f, 1},  {0.9f, 0.9f, -1.0f, 2},   {0.9f, 0.9f, 0.01f, 0},
    };
    const R3 glow(1, 0.5f, 0.25f);
    for (const RayKind kind : {RAY_REFLECTION, RAY_TRANSPARENCY})
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << ": " << c.first << ", " << c.second << ", accuracy "
                                            << c.accuracy << ", limit " << c.limit);
            TestWorld world;
            for (const float share : {c.first, c.second}) {
                KelPhongShader& shader = world.phong(Black);
                shader.emissiveColor = glow;
                (kind == RAY_REFLECTION ? shader.reflectiveColor : shader.transparentColor) = share * White;
                const bool floor = world.shaders.size() == 1;
                if (kind == RAY_REFLECTION)
                    world.addSquare(R3(0, floor ? 0 : 10, 0), R3(0, floor ? 1 : -1, 0));
                else
                    for (int i = floor ? 0 : 1; i < 128; i += 2)
                        world.addSquare(R3(0, -static_cast<float>(i), 0), R3(0, 1, 0));
            }
            KelRenderingObject& ro = world.ro();
            ro.m_reflectiveAccuracy = ro.m_transparentAccuracy = c.accuracy;
            ro.m_recursionLimit = c.limit;
            const R3 color = world.trace(R3(0.3f, 5, 0.2f), R3(0, -1, 0));

            unsigned rays = 0;
            double weight = c.first, sum = 1.0;
            while (rays + 1 < c.limit && weight > c.accuracy) {
                ++rays;
                sum += weight;
                weight *= rays % 2 ? c.second : c.first;
            }
            EXPECT_EQ(raysShot(kind), rays);
            EXPECT_NEAR(color.x, sum, 1e-4 * sum);
            expectNear(color, color.x * glow);
        }
}

// With a sky all around that notes where rays go.
struct SkyWorld : ProbeWorld {
    Probe* sky;

    SkyWorld() {
        sky = &own<Probe>();
        sky->color = R3(0.5f, 0.25f, 1);
        add(oxbeam::sphereMesh(24), TranslationMatrix(R3(1, 70, 3)) * ScaleMatrix(R3(1000, 1000, 1000)));
    }

    R3 direction(std::size_t ray) const { return sky->seen.at(ray).ray.direction; }
};

TEST(Culling, GlossyReflectionAveragesAPowerCosineLobe) {
    SkyWorld world;
    const ScriptedSampler& sampler = script(world.ro(), {0, 0.6f, 0.25f, 0.6f, 0.5f, 0.6f, 0.75f, 0.6f, 0, 0});
    OxState state = world.arrival();
    expectNear(kelGetReflectiveIntensity(&state, 1.0f, R3(0, 1, 0), 10.0f, 5), world.sky->color);
    EXPECT_EQ(sampler.dimensions, (std::vector<int>{0, 1, 0, 1, 0, 1, 0, 1, 0, 1}));
    const float c = std::pow(0.6f, 1.0f / 11.0f), s = std::sqrt(1.0f - c * c);
    // The last lies in the tangent plane, and is kept.
    const R3 expected[] = {R3(0, c, s), R3(s, c, 0), R3(0, c, -s), R3(-s, c, 0), R3(0, 0, 1)};
    for (std::size_t i = 0; i < 5; ++i) expectNear(world.direction(i), expected[i]);
}

TEST(Culling, GlossySamplesBelowTheSurfaceBecomeTheMirrorDirection) {
    SkyWorld world;
    script(world.ro(), {0.25f, 0.6f, 0.75f, 0.6f});
    OxState state = world.arrival(85);
    const R3 mirror(state.ray.direction.x, -state.ray.direction.y, 0);
    kelGetReflectiveIntensity(&state, 1.0f, R3(0, 1, 0), 10.0f, 2);
    EXPECT_EQ(world.direction(0), mirror);
    EXPECT_NEAR(Dot(world.direction(1), mirror), std::pow(0.6f, 1.0f / 11.0f), 1e-5f);
    EXPECT_GT(world.direction(1).y, mirror.y);
}

TEST(Culling, WithoutAnExponentExactlyOneMirrorRayIsTraced) {
    SkyWorld world;
    const ScriptedSampler& sampler = script(world.ro(), {0.5f});
    OxState state = world.arrival();
    const R3 n(0, 1, 0);
    for (const float exponent : {0.0f, -3.0f, std::nanf("")}) {
        world.sky->seen.clear();
        EXPECT_EQ(kelGetReflectiveIntensity(&state, 1.0f, n, exponent, 5), world.sky->color);
        EXPECT_EQ(kelGetReflectiveIntensity(&state, 1.0f, n, exponent), world.sky->color);
        ASSERT_EQ(world.sky->seen.size(), 2u);
        EXPECT_EQ(world.direction(0), n);
        EXPECT_TRUE(sampler.dimensions.empty());
    }
    kelGetReflectiveIntensity(&state, 1.0f, n, 10.0f);
    EXPECT_EQ(sampler.dimensions.size(), 2u) << "one sample unless told otherwise";
}

TEST(Culling, ReflectionReportsTheLastDistanceWhenAsked) {
    ProbeWorld world;
    world.addSquare(R3(0, 5, 0), R3(0, -1, 0));
    script(world.ro(), {0.3f, 0.9f, 0.3f, 0.6f});
    OxState state = world.arrival();
    const R3 n(0, 1, 0);
    float distance = -1.0f;
    kelGetReflectiveIntensity(&state, distance, 1.0f, n, 0.0f, true, 1);
    EXPECT_FLOAT_EQ(distance, 5.0f);
    kelGetReflectiveIntensity(&state, distance, 1.0f, n, 10.0f, true, 2);
    EXPECT_NEAR(distance, 5.0f / std::pow(0.6f, 1.0f / 11.0f), 1e-4f);
    kelGetReflectiveIntensity(&state, distance, 1.0f, n, 0.0f, false, 1);
    EXPECT_EQ(distance, 0.0f);
    kelGetReflectiveIntensity(&state, distance = -1.0f, 0.1f, n, 0.0f, true, 1);
    EXPECT_EQ(distance, 0.0f) << "culled";
}

// A glass surface with nothing but refraction.
struct Pane : OxShader {
    std::vector<float> distances;  // to what it saw, the last surface's first

    Oxvoid Shade(OxState* state) override {
        R3 n, position;
        oxsFindShadingNormal(state, n);
        oxsGetHitPosition(state, position);
        oxsSetRayOrigin(state, position);
        float distance;
        oxsReturnColor(state, kelGetRefractiveIntensity(state, distance, 0.9f, n, 1.0f, 1.5f, true, 0.0f, 1));
        distances.push_back(distance);
    }
};

TEST(Culling, ASlabShiftsARayAndKeepsItsDirection) {
    TestWorld world;
    Pane& pane = world.own<Pane>();
    world.addSquare(R3(), R3(0, 1, 0));
    world.addSquare(R3(0, -2, 0), R3(0, -1, 0));
    Probe& below = world.own<Probe>();
    world.addSquare(R3(0, -5, 0), R3(0, 1, 0));
    const R3 incoming(std::sin(30 * Radian), -std::cos(30 * Radian), 0);
    EXPECT_EQ(world.trace(-4.0f * incoming, incoming), White);
    const float sine = 0.5f / 1.5f, cosine = std::sqrt(1.0f - sine * sine);
    ASSERT_EQ(below.seen.size(), 1u);
    const Probe::Seen& seen = below.seen[0];
    expectNear(seen.ray.direction, incoming);
    expectNear(seen.ray.origin, R3(2.0f * sine / cosine, -2, 0));
    EXPECT_EQ(seen.insideFlag, 0u);
    EXPECT_EQ(seen.depth, 2u);
    EXPECT_FLOAT_EQ(seen.opacity, 0.81f);
    ASSERT_EQ(pane.distances.size(), 2u);
    EXPECT_NEAR(pane.distances[0], 3.0f / std::cos(30 * Radian), 1e-5f);
    EXPECT_NEAR(pane.distances[1], 2.0f / cosine, 1e-5f);
}

TEST(Culling, TotalReflectionTracesNothing) {
    ProbeWorld world(White);
    OxState state = world.arrival(60);
    world.ro().m_rays[0].insideFlag = 1;
    float distance = -1.0f;
    EXPECT_EQ(kelGetRefractiveIntensity(&state, distance, 1.0f, R3(0, 1, 0), 1.0f, 1.5f, true, 0.0f, 1), Black);
    EXPECT_EQ(distance, 0.0f);
    EXPECT_EQ(raysShot(RAY_REFRACTION), 0u);
}

// The lobe's width goes with the sine of the angle to the normal.
TEST(Culling, GlossyRefractionNarrowsTowardsTheNormal) {
    for (const float degrees : {0.0f, 30.0f, 80.0f}) {
        ProbeWorld world;
        Probe& below = world.own<Probe>();
        world.addSquare(R3(0, -5, 0), R3(0, 1, 0), 1000.0f);
        script(world.ro(), {0.25f, 0.9f, 0.0f, 0.9f});
        OxState state = world.arrival(degrees);
        const R3 D = state.ray.direction;
        float distance;
        kelGetRefractiveIntensity(&state, distance, 1.0f, R3(0, 1, 0), 1.2f, 1.2f, true, 10.0f, 2);
        const float c = std::pow(0.9f, 1.0f / 11.0f), width = std::sqrt(1.0f - c * c) * std::sin(degrees * Radian);
        ASSERT_EQ(below.seen.size(), 2u);
        for (const Probe::Seen& seen : below.seen) {
            EXPECT_NEAR(Dot(seen.ray.direction, D), c, 1e-5f);
            EXPECT_NEAR(Length(seen.ray.direction - c * D), width, 1e-5f);
        }
    }
}
