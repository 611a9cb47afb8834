// How secondary rays are set up and traced, before any culling.
#include "Shaders/Kel/KelFunctions.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace oxbeam::test;

TEST(SecondaryRays, RefractionFollowsSnellsLaw) {
    const R3 n = Normalize(R3(1, 2, -2)), across = Normalize(Cross(n, R3(0, 1, 0)));
    const R3 before(7, 8, 9);
    for (const auto& [n1, n2] : {std::pair(1.0f, 1.5f), {1.5f, 1.0f}, {1.33f, 2.4f}, {1.1f, 1.1f}})
        for (const float degrees : {0.0f, 10.0f, 35.0f, 41.0f, 43.0f, 60.0f, 85.0f}) {
            SCOPED_TRACE(testing::Message() << degrees << " degrees from " << n1 << " into " << n2);
            const float angle = degrees * Radian, sine = n1 / n2 * std::sin(angle);
            R3 D = before;
            const bool refracted = kelRefract(D, std::sin(angle) * across - std::cos(angle) * n, n, n1, n2);
            EXPECT_EQ(refracted, sine < 1.0f);
            expectNear(D, refracted ? sine * across - std::sqrt(1.0f - sine * sine) * n : before);
        }
}

TEST(SecondaryRays, TheCriticalAngleItselfStillRefracts) {
    const R3 I(1, 0, 0), N(0, 1, 0);
    R3 D;
    EXPECT_TRUE(kelRefract(D, I, N, 1.5f, 1.5f));
    EXPECT_EQ(D, I);
    EXPECT_FALSE(kelRefract(D, I, N, std::nextafter(1.5f, 2.0f), 1.5f));
}

TEST(SecondaryRays, ChildStatesKnowTheirParent) {
    for (const float epsilon : {0.01f, 0.5f, 1.0f, 2.5f}) {
        ProbeWorld world;
        world.rayEpsilon = epsilon;
        const R3 incoming(3, -4, 0), normal(0, 1, 0);
        OxState state = world.hit(R3(-5.5f, 8, 1), incoming);  // hits (0.5, 0, 1)
        state.ray.depth = 3;
        state.ray.clippingMask = 0x30;
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
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "kind " << c.kind << ", epsilon " << epsilon);
            KelRay record(world.ro().m_rays[0]);
            OxState ref;
            ref.ray.privatePtr = &record;
            ref.ray.maxDist = 5.0f;
            ref.hit.tri = 77;
            ref.color = R3(1, 2, 3);
            c.setUp(&state, &ref, normal);
            EXPECT_EQ(ref.scene, state.scene);
            EXPECT_EQ(ref.intersector, state.intersector);
            EXPECT_EQ(ref.m_ro, &world.ro());
            EXPECT_EQ(ref.ray.minHitDist, epsilon);
            EXPECT_EQ(ref.ray.depth, 4);
            EXPECT_EQ(ref.ray.clippingMask, 0x30u);
            EXPECT_EQ(ref.ray.visibilityMask, c.kind);
            EXPECT_EQ(ref.ray.maxDist, RayInfinity);
            EXPECT_EQ(ref.ray.privatePtr, state.ray.privatePtr);
            expectNear(ref.ray.direction, c.direction);
            // Only whole units move the origin.
            expectNear(ref.ray.origin, R3(0.5f, 0, 1) + std::trunc(epsilon) * c.direction);
            EXPECT_EQ(ref.hit.tri, 77);
            EXPECT_EQ(ref.object, nullptr);
            EXPECT_EQ(ref.color, R3(1, 2, 3));
        }
    }
}

TEST(SecondaryRays, TheInsideFlagOrdersTheIndicesAndToggles) {
    const struct {
        float degrees;
        unsigned inside;
        bool switchInside;
        float ratio;  // of the indices that the ray should meet; 0: total reflection
        unsigned insideAfter;
    } cases[] = {
        {30, 0, true, 1.0f / 1.5f, 1}, {30, 0, false, 1.0f / 1.5f, 0}, {30, 1, true, 1.5f, 0},
        {30, 7, true, 1.5f, 0},        {30, 1, false, 1.5f, 1},        {60, 1, true, 0, 1},
        {60, 7, true, 0, 7},
    };
    ProbeWorld world;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.degrees << ' ' << c.inside << ' ' << c.switchInside);
        OxState state = world.arrival(c.degrees), ref;
        KelRay record(world.ro().m_rays[0]);
        record.insideFlag = c.inside;
        ref.ray.privatePtr = &record;
        EXPECT_EQ(kelRefractionRay(&state, &ref, R3(0, 1, 0), 1.0f, 1.5f, c.switchInside), c.ratio != 0.0f);
        EXPECT_EQ(record.insideFlag, c.insideAfter);
        EXPECT_EQ(world.ro().m_rays[0].insideFlag, 0u) << "the parent's record is its own";
        if (c.ratio == 0.0f) continue;
        EXPECT_NEAR(ref.ray.direction.x, c.ratio * state.ray.direction.x, 1e-6f);
    }
}

TEST(SecondaryRays, TracingGivesColourAndDistance) {
    const R3 background(0.1f, 0.2f, 0.3f), surface(0.5f, 0.6f, 0.7f);
    TestWorld world(background);
    world.own<Probe>().color = surface;
    world.addSquare(R3(), R3(0, 1, 0));
    const struct {
        R3 direction, color;
        float distance;
    } cases[] = {
        {R3(0, -1, 0), surface, 10.0f},
        {R3(0, -2, 0), surface, 2.5f},  // the hit at 5 direction lengths, over the length
        {R3(0, 1, 0), background, RayInfinity},
    };
    for (const auto& c : cases) {
        OxState state = world.session().primaryState();
        oxsSetRay(&state, R3(1, 10, 2), c.direction, RayInfinity);
        float distance = -1.0f;
        EXPECT_EQ(kelTrace(&state, distance), c.color);
        EXPECT_FLOAT_EQ(distance, c.distance);
        EXPECT_EQ(kelTrace(&state), c.color);
    }
}
