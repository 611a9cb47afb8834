// Car paint: Phong's colour and a mirror's, in Fresnel's proportions.
#include "Shaders/Kel/KelFresnelPhong.h"
#include "Tests/Support/Probe.h"

using namespace oxbeam::test;

// Paint whose lit colour is `lit` all over, under an even sky.
struct PaintWorld : TestWorld {
    const R3 sky{2, 0.5f, 4}, lit{0.5f, 1, 0.25f}, mirror{0.5f, 1, 0.75f};
    KelFresnelPhongShader& paint = shader<KelFresnelPhongShader>("KelCarPaint");

    PaintWorld() : TestWorld(R3(2, 0.5f, 4)) {
        addSquare(R3(), R3(0, 1, 0));
        paint.diffuseColor = lit;
        paint.ambientIntensity = 1.0f;
        paint.reflectiveColor = mirror;
        ro().m_reflectiveAccuracy = 0.0f;
    }
    R3 mixed(float F) const { return (1.0f - F) * lit + F * (sky * mirror); }
};

TEST(CarPaint, TheMirrorTakesOverAsTheFresnelTermGrows) {
    const struct {
        Oxint method;
        float bias, degrees, term;  // negative: marked red, as the term vanishes
    } cases[] = {{1, 0, 0, 0.04f},  {1, 0, 60, 0.08919f}, {1, 0, 80, 0.38772f},  // Fresnel's equations for 1.5
                 {2, 0, 60, 0.07f}, {3, 0.1f, 60, 1},     {3, 0.1f, 30, 1.1f - 0.48714f},  // cosine to the 5th
                 {3, -0.9f, 0, -1}};
    for (const auto& c : cases) {
        PaintWorld world;
        world.paint.fresnelMethod = c.method;
        world.paint.bias = c.bias;
        // The table is read at an angle close by, which matters by 0.005 of the colours' difference.
        expectNear(world.fromOrigin(c.degrees), c.term < 0 ? Red : world.mixed(c.term), c.term < 0 ? 0.0f : 0.015f);
    }
}

TEST(CarPaint, ReflectionsTooWeakToMatterStillDimThePaintButNotWhatShinesThrough) {
    PaintWorld world;
    world.ro().m_reflectiveAccuracy = 0.05f;
    world.paint.transparentColor = R3(0, 0.5f, 0);
    expectNear(world.fromOrigin(), 0.96f * world.lit + R3(0, 0.5f, 0) * world.sky, 1e-4f);
}

TEST(CarPaint, ChangesTakeEffectWithTheNextFrame) {
    EXPECT_EQ(registry().find("KelCarPaint")->factory, registry().find("KelFresnelPhong")->factory);
    const struct {
        Oxint method;
        float bindex, bias, scale, term;
    } frames[] = {{1, 1.5f, 0, 1, 0.04f},  {1, 3, 0, 1, 0.25f}, {3, 3, 0.5f, 0, 0.5f},
                  {3, 3, 0.75f, 0, 0.75f}, {0, 3, 0, 0, 0},     {2, 3, 0, 0, 0.25f}};
    PaintWorld world;
    for (R3 before = world.fromOrigin(); const auto& f : frames) {
        world.paint.fresnelMethod = f.method;
        world.paint.bindex = f.bindex;
        world.paint.bias = f.bias;
        world.paint.scale = f.scale;
        EXPECT_EQ(world.fromOrigin(), before);
        world.session().newFrame();
        before = world.fromOrigin();
        expectNear(before, world.mixed(f.term), 1e-3f);  // unknown methods leave the paint alone
    }
}
