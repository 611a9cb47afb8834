// Surfaces that show something about the model: openness, thickness, object ids.
#include "Oxbeam/ABSP.h"
#include "Shaders/Kel/KelAmbientOcclusion.h"
#include "Shaders/Kel/KelDbgObjectID.h"
#include "Shaders/Kel/KelWallThickness.h"
#include "Tests/Support/Probe.h"

#include <cstdlib>

using namespace oxbeam::test;

// The mean cosine over a hemisphere is 1/2, so a closed sky leaves 1/2 as well.
TEST(AmbientOcclusion, ADomeDarkensWhereItIsNear) {
    const struct {
        Oxint samples;
        bool dome;
        float maxDistance, factor;
    } cases[] = {{4000, false, 500, 1}, {4000, true, 1.01f, 0.5f}, {4000, true, 0.9f, 1}, {-3, true, 9, 1}};
    for (const auto& c : cases) {
        srand48(1);
        TestWorld world;
        world.rayEpsilon = 1e-3f;
        auto& surface = world.shader<KelAmbientOcclusionShader>("KelAmbientOcclusion");
        surface.diffuseColor = R3(1, 0.5f, 2);
        surface.ambientIntensity = 1.0f;
        surface.samples = c.samples;
        surface.maxDistance = c.maxDistance;
        world.addSquare(R3(), R3(1, 2, -3), 0.1f);
        Probe& dome = world.own<Probe>();
        if (c.dome) world.add(sphereMesh());
        const R3 color = world.trace(0.1f * R3(1, 2, -3), R3(-1, -2, 3));
        // Four deviations of the mean; that of one cosine is the root of 1/12.
        EXPECT_NEAR(color.x, c.factor, c.factor < 1 ? 4.0f * std::sqrt(1.0f / 12.0f / 4000.0f) : 0.0f);
        expectNear(color, color.x * surface.diffuseColor);
        EXPECT_EQ(raysShot(RAY_PRIMARY), 1u + static_cast<unsigned>(std::max(c.samples, 0)));
        EXPECT_TRUE(dome.seen.empty());
    }
}

TEST(WallThickness, ColoursRunRoundTheHueCircleWithinTheBand) {
    const R3 plain = 0.25f * White;
    // Slanted rays' distances are in units of the cone's height: its tangent times the thickness, if that is less.
    const struct {
        float thickness, scale;
        R3 color;
        Oxint samples = 1;
        float degrees = 0.0f, least = 0.0f, most = 500.0f;
    } cases[] = {{1 / 12.0f, 1, R3(1, 0.5f, 0)},
                 {7 / 12.0f, 1, R3(0, 0.5f, 1)},
                 {0.75f, 1, R3(0.5f, 0, 1)},
                 {1, 1, Red},
                 {2.5f, 1, R3(0, 1, 1)},
                 {0.25f, 2, R3(0, 1, 1)},
                 {0.5f, -1, Black},
                 {1, 0.5f / 0.57735f, R3(0, 1, 1), 3, 30},
                 {0.5f, 1, plain, 1, 0, 0.5f, 1},
                 {0.5f, 1, plain, 1, 0, 0, 0.5f},
                 {0, 1, plain},
                 {0.5f, 1, plain, -2}};
    for (const auto& c : cases) {
        TestWorld world;
        auto& wall = world.shader<KelWallThicknessShader>("KelWallThickness");
        wall.diffuseColor = plain;
        wall.ambientIntensity = 0.0f;
        wall.m_scaleDist = c.scale;
        wall.samples = c.samples;
        wall.m_maxAngleDegree = c.degrees;
        wall.minDistance = c.least;
        wall.maxDistance = c.most;
        world.addSquare(R3(), R3(0, 1, 0));
        if (c.thickness > 0.0f) world.addSquare(R3(0, -c.thickness, 0), R3(0, -1, 0));
        world.pointLight(R3(0, 2, 0));  // its falloff tells which point is lit
        expectNear(4.001f * world.trace(R3(1, 2, 0), R3(-0.5f, -1, 0)), c.color, 1e-4f);
    }
}

TEST(ObjectId, BitsOfTheIdAreTheColour) {
    const std::pair<Oxuint, R3> cases[] = {
        {1, R3(1 / 11.0f, 1 / 13.0f, 1 / 17.0f)}, {4, R3(0, 4 / 13.0f, 0)}, {31, White}, {32, Black}};
    for (const auto& [id, color] : cases)
        for (const float degrees : {0.0f, 60.0f, 180.0f}) {
            TestWorld world;
            auto& shader = world.shader<KelDbgObjectIDShader>("KelDbgObjectID");
            shader.ed = R3(0.5f, 0, 2);
            world.addSquare(R3(), R3(0, 1, 0));
            const R3 direction(std::sin(degrees * Radian), -std::cos(degrees * Radian), 0);
            OxState state = world.hit(-2.0f * direction, direction);
            const_cast<GeometryObject*>(state.object)->id = id;
            shader.Shade(&state);
            expectNear(state.color, (degrees == 60.0f ? 0.7f : 1.1f) * color + shader.ed);
        }
}
