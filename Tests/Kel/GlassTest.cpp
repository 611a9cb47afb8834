// Glass: what becomes of light on its way through, by the rules of reflection and absorption.
#include "Shaders/Kel/KelGlas.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

// Glass that nothing culls, between the planes y = 0 and y = -thickness, or a single pane where that is 0.
struct GlassWorld : TestWorld {
    KelGlasShader& glass;

    explicit GlassWorld(float thickness, const R3& background = Black)
        : TestWorld(background), glass(shader<KelGlasShader>("KelGlass")) {
        addSquare(R3(), R3(0, 1, 0));
        if (thickness > 0.0f) addSquare(R3(0, -thickness, 0), R3(0, -1, 0));
        ro().m_reflectiveAccuracy = ro().m_refractiveAccuracy = 0.0f;
    }
};

TEST(Glass, AClearSlabUnderAnEvenSkyIsInvisible) {
    for (const float index : {1.0f, 2.4f})
        for (const float degrees : {0.0f, 60.0f}) {
            GlassWorld world(1, R3(0.5f, 1, 2));
            world.glass.bindex = index;
            world.glass.refractionFilter = world.glass.reflectionFilter = Red;  // but none of it
            expectNear(world.fromOrigin(degrees), R3(0.5f, 1, 2));
        }
}

TEST(Glass, RaysSplitAtEveryBounce) {
    const struct {
        float thickness, reflectivity, reflectiveAccuracy;
        unsigned limit;
        Oxint glossy;
        unsigned reflected, refracted;
    } cases[] = {
        {1, 0, 0, 5, 0, 4, 4},     // of the two children of a bounce one leaves
        {1, 0, 1, 5, 0, 0, 2},     // reflections do not matter
        {0, 0, 0, 5, 1, 1, 3},     // one pane; only transmission is blurred
        {0, 1.5f, 0, 5, 0, 1, 0},  // a mirror
    };
    for (const auto& c : cases) {
        GlassWorld world(c.thickness, White);
        world.glass.reflectivity = c.reflectivity;
        world.glass.m_glossySurfaces = c.glossy;
        world.glass.m_numFuzzySamples = 3;
        world.ro().m_reflectiveAccuracy = c.reflectiveAccuracy;
        world.ro().m_recursionLimit = c.limit;
        world.fromOrigin(20);
        EXPECT_EQ(raysShot(RAY_REFLECTION), c.reflected);
        EXPECT_EQ(raysShot(RAY_REFRACTION), c.refracted);
    }
}

TEST(Glass, ASlabShiftsARayAndKeepsItsDirection) {
    GlassWorld world(2);
    world.glass.bindex = 1.5f;
    world.glass.reflectivity = 0.1f;
    world.ro().m_reflectiveAccuracy = 1.0f;
    Probe& below = world.own<Probe>();
    world.addSquare(R3(0, -5, 0), R3(0, 1, 0));
    world.fromOrigin(30);
    const float sine = 0.5f / 1.5f, reflectance = 0.04152f + 0.1f;  // by Fresnel's equations, and what is added
    ASSERT_EQ(below.seen.size(), 1u);
    expectNear(below.seen[0].ray.direction, R3(0.5f, -std::cos(30 * Radian), 0));
    expectNear(below.seen[0].ray.origin, R3(2.0f * sine / std::sqrt(1.0f - sine * sine), -2, 0));
    EXPECT_EQ(below.seen[0].insideFlag, 0u);
    EXPECT_NEAR(below.seen[0].opacity, (1.0f - reflectance) * (1.0f - reflectance), 2e-3f);
}

TEST(Glass, OneSidedGlassLeavesTheRayOutside) {
    for (const Oxint oneSided : {0, 1}) {
        GlassWorld world(0);
        world.glass.bindex = 1.5f;
        world.glass.noRefract = oneSided;
        Probe& below = world.own<Probe>();
        world.addSquare(R3(0, -3, 0), R3(0, 1, 0));
        expectNear(world.fromOrigin(45), (1.0f - 0.05024f) * White, 1e-3f);  // Fresnel's equations
        ASSERT_EQ(below.seen.size(), 1u);
        EXPECT_EQ(below.seen[0].insideFlag, oneSided ? 0u : 1u);
        EXPECT_NEAR(below.seen[0].ray.direction.x, std::sqrt(0.5f) / 1.5f, 1e-5f);
    }
}

// Index 1 makes the surfaces' reflectance the constant `reflectivity`, and the bounces a geometric series.
TEST(Glass, TheWayInsideIsAbsorbedWhetherRefractedOrReflected) {
    const struct {
        float reflectivity, amount, scale, thickness, degrees, reflectionAmount;
    } cases[] = {
        {0, 1, 4, 2, 60, 0}, {0.5f, 0.5f, 2, 1, 60, 0.25f}, {0.25f, 3, 1, 1, 0, 0.5f}, {0.25f, -1, 1, 1, 0, 1}};
    const R3 sky(1, 0.5f, 2), body(0.25f, 1, 0.5f), tint(0, 4, 1);
    for (const auto& c : cases) {
        GlassWorld world(c.thickness, sky);
        KelGlasShader& glass = world.glass;
        glass.bindex = 1.0f;
        glass.reflectivity = c.reflectivity;
        glass.refractionFilterAmount = c.amount;
        glass.refractionFilter = body;
        glass.scale = c.scale;
        glass.reflectionFilterAmount = c.reflectionAmount;
        glass.reflectionFilter = tint;
        const float F = c.reflectivity, T = 1.0f - F, way = c.thickness / std::cos(c.degrees * Radian);
        const float a = std::clamp(c.amount * (1.0f - std::exp(-way / c.scale)), 0.0f, 1.0f);
        // inside = T sky + F ((1 - a) inside + a body)
        const R3 inside = (1.0f / (1.0f - F * (1.0f - a))) * (T * sky + (F * a) * body);
        const R3 reflected = (1.0f - c.reflectionAmount) * sky + c.reflectionAmount * tint;
        expectNear(world.fromOrigin(c.degrees), T * ((1.0f - a) * inside + a * body) + F * reflected, 1e-4f);
    }
}

TEST(Glass, LightIsFilteredByTheWayToTheNextSurface) {
    const struct {
        float thickness, reflectivity, accuracy;
        unsigned limit;
        bool lit;
    } cases[] = {{2, 0.125f, 0.01f, 25, true},
                 {2, 0, 0.01f, 2, false},
                 {2, 0, 0.01f, 3, true},
                 {0, 0.25f, 0.72f, 25, false},
                 {0, 0.25f, 0.70f, 25, true}};
    const R3 body(0.25f, 1, 0);
    for (const auto& c : cases) {
        GlassWorld world(c.thickness);
        world.glass.bindex = 1.5f;
        world.glass.reflectivity = c.reflectivity;
        world.glass.refractionFilterAmount = 0.5f;
        world.glass.refractionFilter = body;
        world.glass.scale = 4.0f;
        world.floor(-5);
        world.steadyLight(R3(0, 10, 0));
        world.ro().m_refractiveAccuracy = c.accuracy;
        world.ro().m_recursionLimit = c.limit;
        const auto through = [&](float a) { return (0.96f - c.reflectivity) * ((1.0f - a) * White + a * body); };
        R3 expected = through(0.5f);  // all of it, with nothing behind
        if (c.thickness > 0.0f) expected *= through(0.5f * (1.0f - std::exp(-c.thickness / 4.0f)));
        expectNear(world.trace(R3(0, -4, 0), R3(0, -1, 0)), c.lit ? expected : Black, 1e-4f);
    }
}
