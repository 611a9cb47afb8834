// Secondary rays: how they are set up, which of them are traced (counts that follow from the rule "shallower than the
// limit, and a contribution above the accuracy"), and the lobes of glossy surfaces.
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

TEST(SecondaryRays, RefractionFollowsSnellsLaw) {
    const R3 n = Normalize(R3(1, 2, -2)), across = Normalize(Cross(n, R3(0, 1, 0))), before(7, 8, 9);
    for (const auto& [n1, n2] : {std::pair(1.0f, 1.5f), {1.5f, 1.0f}, {1.1f, 1.1f}})
        for (const float degrees : {0.0f, 35.0f, 41.0f, 43.0f, 85.0f}) {
            SCOPED_TRACE(testing::Message() << degrees << " degrees from " << n1 << " into " << n2);
            const float angle = degrees * Radian, sine = n1 / n2 * std::sin(angle);
            R3 D = before;
            const bool refracted = kelRefract(D, std::sin(angle) * across - std::cos(angle) * n, n, n1, n2);
            EXPECT_EQ(refracted, sine < 1.0f);
            expectNear(D, refracted ? sine * across - std::sqrt(1.0f - sine * sine) * n : before);
        }
}

TEST(SecondaryRays, ChildStatesKnowTheirParent) {
    const R3 incoming(3, -4, 0), normal(0, 1, 0);
    const struct {
        RayKind kind;
        R3 direction;
        void (*setUp)(OxState*, OxState*, const R3&);
    } cases[] = {
        {RAY_REFLECTION, R3(3, 4, 0), [](OxState* s, OxState* ref, const R3& n) { kelReflectionRay(s, ref, n); }},
        {RAY_TRANSPARENCY, incoming, [](OxState* s, OxState* ref, const R3&) { kelTransparencyRay(s, ref); }},
        {RAY_REFRACTION, incoming,
         [](OxState* s, OxState* ref, const R3& n) { EXPECT_TRUE(kelRefractionRay(s, ref, n, 1.5f, 1.5f, true)); }},
    };
    for (const float epsilon : {0.5f, 2.5f})
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "kind " << c.kind << ", epsilon " << epsilon);
            ProbeWorld world;
            world.rayEpsilon = epsilon;
            OxState state = world.hit(R3(-5.5f, 8, 1), incoming), ref;  // hits (0.5, 0, 1)
            state.ray.depth = 3;
            state.ray.clippingMask = 0x30;
            KelRay record(world.ro().m_rays[0]);
            ref.ray.privatePtr = &record;
            c.setUp(&state, &ref, normal);
            EXPECT_EQ(ref.m_ro, &world.ro());
            EXPECT_EQ(ref.ray.minHitDist, epsilon);
            EXPECT_EQ(ref.ray.depth, 4);
            EXPECT_EQ(ref.ray.clippingMask, 0x30u);
            EXPECT_EQ(ref.ray.visibilityMask, c.kind);
            EXPECT_EQ(ref.ray.maxDist, RayInfinity);
            expectNear(ref.ray.direction, c.direction);
            // Only whole units move the origin.
            expectNear(ref.ray.origin, R3(0.5f, 0, 1) + std::trunc(epsilon) * c.direction);
        }
}

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
        float accuracy;  // against 0.5 * 0.5
        unsigned depth, limit;
        bool traced;
    } cases[] = {
        {0.25f, 0, 25, false}, {0.2499f, 0, 25, true}, {0, 0, 0, false}, {0, 23, 25, true}, {0, 24, 25, false}};
    ProbeWorld world;
    Probe& far = world.own<Probe>();
    world.addSquare(R3(0, 5, 0), R3(0, -1, 0));
    world.addSquare(R3(0, -5, 0), R3(0, 1, 0));
    KelRenderingObject& ro = world.ro();
    for (const Service& service : services)
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "kind " << service.kind << ", accuracy " << c.accuracy << ", depth "
                                            << c.depth << " of " << c.limit);
            // The other kinds' accuracies would decide otherwise.
            for (const Service& other : services) ro.*other.accuracy = c.traced ? 1e6f : -1.0f;
            ro.*service.accuracy = c.accuracy;
            ro.m_recursionLimit = c.limit;
            OxState state = world.arrival();
            KelRay& record = ro.m_rays[0];
            record.opacity = 0.5f;
            record.depth = c.depth;
            record.insideFlag = 1;
            far.seen.clear();
            EXPECT_EQ(service.intensity(&state, 0.5f), c.traced ? White : Black);
            EXPECT_EQ(record.opacity, 0.5f);
            EXPECT_EQ(record.depth, c.depth);
            ASSERT_EQ(far.seen.size(), c.traced ? 1u : 0u);
            if (!c.traced) continue;
            EXPECT_EQ(far.seen[0].opacity, 0.25f);
            EXPECT_EQ(far.seen[0].depth, c.depth + 1);
            EXPECT_EQ(far.seen[0].insideFlag, 1u);
            EXPECT_EQ(far.seen[0].sampler, record.sampler);
        }
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

// With a sky all around that notes where rays go.
struct SkyWorld : ProbeWorld {
    Probe* sky;

    SkyWorld() {
        sky = &own<Probe>();
        add(oxbeam::sphereMesh(24), TranslationMatrix(R3(1, 70, 3)) * ScaleMatrix(R3(1000, 1000, 1000)));
    }
    R3 direction(std::size_t ray) const { return sky->seen.at(ray).ray.direction; }
};

TEST(Glossy, ReflectionAveragesAPowerCosineLobe) {
    SkyWorld world;
    const ScriptedSampler& sampler = script(world.ro(), {0, 0.6f, 0.25f, 0.6f, 0, 0});
    OxState state = world.arrival();
    expectNear(kelGetReflectiveIntensity(&state, 1.0f, R3(0, 1, 0), 10.0f, 3), White);
    EXPECT_EQ(sampler.dimensions, (std::vector<int>{0, 1, 0, 1, 0, 1}));
    const float c = std::pow(0.6f, 1.0f / 11.0f), s = std::sqrt(1.0f - c * c);
    // The last lies in the tangent plane, and is kept.
    const R3 expected[] = {R3(0, c, s), R3(s, c, 0), R3(0, 0, 1)};
    for (std::size_t i = 0; i < 3; ++i) expectNear(world.direction(i), expected[i]);
}

TEST(Glossy, SamplesBelowTheSurfaceBecomeTheMirrorDirection) {
    SkyWorld world;
    script(world.ro(), {0.25f, 0.6f, 0.75f, 0.6f});
    OxState state = world.arrival(85);
    const R3 mirror(state.ray.direction.x, -state.ray.direction.y, 0);
    kelGetReflectiveIntensity(&state, 1.0f, R3(0, 1, 0), 10.0f, 2);
    EXPECT_EQ(world.direction(0), mirror);
    EXPECT_NEAR(Dot(world.direction(1), mirror), std::pow(0.6f, 1.0f / 11.0f), 1e-5f);
}

TEST(Glossy, WithoutAnExponentExactlyOneMirrorRayIsTraced) {
    for (const float exponent : {0.0f, std::nanf("")}) {
        SkyWorld world;
        const ScriptedSampler& sampler = script(world.ro(), {0.5f});
        OxState state = world.arrival();
        EXPECT_EQ(kelGetReflectiveIntensity(&state, 1.0f, R3(0, 1, 0), exponent, 5), White);
        ASSERT_EQ(world.sky->seen.size(), 1u);
        EXPECT_EQ(world.direction(0), R3(0, 1, 0));
        EXPECT_TRUE(sampler.dimensions.empty());
    }
}

// The lobe's width goes with the sine of the angle to the normal.
TEST(Glossy, RefractionNarrowsTowardsTheNormal) {
    for (const float degrees : {0.0f, 80.0f}) {
        ProbeWorld world;
        Probe& below = world.own<Probe>();
        world.addSquare(R3(0, -5, 0), R3(0, 1, 0), 1000.0f);
        script(world.ro(), {0.25f, 0.9f});
        OxState state = world.arrival(degrees);
        const R3 D = state.ray.direction;
        float distance;
        kelGetRefractiveIntensity(&state, distance, 1.0f, R3(0, 1, 0), 1.2f, 1.2f, true, 10.0f, 1);
        const float c = std::pow(0.9f, 1.0f / 11.0f), width = std::sqrt(1.0f - c * c) * std::sin(degrees * Radian);
        ASSERT_EQ(below.seen.size(), 1u);
        EXPECT_NEAR(Dot(below.seen[0].ray.direction, D), c, 1e-5f);
        EXPECT_NEAR(Length(below.seen[0].ray.direction - c * D), width, 1e-5f);
    }
}
