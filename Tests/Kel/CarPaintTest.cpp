// Car paint: Phong's colour and a mirror's, in Fresnel's proportions.
#include "Shaders/Kel/KelFresnelPhong.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

// Paint whose lit colour is `lit` all over, under an even sky.
struct PaintWorld : TestWorld {
    const R3 sky{2, 0.5f, 4}, lit{0.5f, 1, 0.25f}, mirror{0.5f, 1, 0.75f};
    KelFresnelPhongShader& paint;

    PaintWorld() : TestWorld(R3(2, 0.5f, 4)), paint(shader<KelFresnelPhongShader>("KelCarPaint")) {
        addSquare(R3(), R3(0, 1, 0));
        paint.diffuseColor = lit;
        paint.ambientIntensity = 1.0f;
        paint.reflectiveColor = mirror;
        ro().m_reflectiveAccuracy = 0.0f;
    }
    R3 seen(float degrees = 0.0f) {
        const R3 direction(std::sin(degrees * Radian), -std::cos(degrees * Radian), 0);
        return trace(-2.0f * direction, direction);
    }
    R3 mixed(float F) const { return (1.0f - F) * lit + F * (sky * mirror); }
};

TEST(CarPaint, TheMirrorTakesOverAsTheFresnelTermGrows) {
    const struct {
        Oxint method;
        float degrees, term;
    } cases[] = {{1, 0, 0.04f},  {1, 60, 0.08919f}, {1, 80, 0.38772f},  // Fresnel's equations for 1.5
                 {2, 60, 0.07f}, {3, 60, 1},        {3, 30, 1.1f - 0.48714f}};
    for (const auto& c : cases) {
        PaintWorld world;
        world.paint.fresnelMethod = c.method;
        expectNear(world.seen(c.degrees), world.mixed(c.term), 0.02f);  // of 2.75; looked up for a nearby angle
    }
}

TEST(CarPaint, ReflectionsTooWeakToMatterStillDimThePaintButNotWhatShinesThrough) {
    PaintWorld world;
    world.ro().m_reflectiveAccuracy = 0.05f;
    world.paint.transparentColor = R3(0, 0.5f, 0);
    expectNear(world.seen(), 0.96f * world.lit + R3(0, 0.5f, 0) * world.sky, 1e-4f);
    EXPECT_EQ(raysShot(RAY_REFLECTION), 0u);
}

TEST(CarPaint, AVanishingTermIsMarkedRed) {
    PaintWorld world;
    world.paint.fresnelMethod = 3;
    world.paint.bias = -0.5f;
    world.paint.index = 1.0f;
    EXPECT_EQ(world.seen(), Red);
    EXPECT_EQ(world.seen(50), Red);
    expectNear(world.seen(80), world.mixed(0.5f - std::cos(80 * Radian)), 0.01f);
}

TEST(CarPaint, ChangesTakeEffectWithTheNextFrame) {
    EXPECT_EQ(registry().find("KelCarPaint")->factory, registry().find("KelFresnelPhong")->factory);
    const struct {
        Oxint method;
        float bindex, bias, scale, term;
    } frames[] = {{1, 3, 0, 1, 0.25f}, {3, 3, 0.5f, 0, 0.5f}, {3, 3, 0.75f, 0, 0.75f}, {0, 3, 0, 0, 0}, {0, 3, 0, 0, 0},
                  {2, 3, 0, 0, 0.25f}, {4, 3, 0, 0, 0},       {1, 1.5f, 0, 0, 0.04f},  {-1, 3, 0, 0, 0}};
    PaintWorld world;
    R3 before = world.seen();
    expectNear(before, world.mixed(0.04f), 1e-3f);
    for (const auto& f : frames) {
        world.paint.fresnelMethod = f.method;
        world.paint.bindex = f.bindex;
        world.paint.bias = f.bias;
        world.paint.scale = f.scale;
        EXPECT_EQ(world.seen(), before);
        world.session().newFrame();
        before = world.seen();
        expectNear(before, world.mixed(f.term), 1e-3f);  // unknown methods leave the paint alone
    }
}
