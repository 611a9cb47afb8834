// Whole pictures' worth of Phong shading, against radiances worked out by hand.
#include "Tests/Support/TestWorld.h"

#include <gtest/gtest.h>

using namespace oxbeam::test;

TEST(Phong, DiffuseLightFallsOffByTheInverseSquare) {
    TestWorld world;
    world.phong(R3(0.5f, 0.25f, 1.0f)).ambientIntensity = 0.0f;
    world.addSquare(R3(), R3(0, 1, 0));
    world.pointLight(R3(0, 2, 0));
    const R3 color = world.trace(R3(1, 1, 0), Normalize(R3(-1, -1, 0)));
    const float arriving = 1.0f / (0.001f + 1e-9f + 4.0f);
    EXPECT_FLOAT_EQ(color.x, 0.5f * arriving);
    EXPECT_FLOAT_EQ(color.y, 0.25f * arriving);
    EXPECT_FLOAT_EQ(color.z, arriving);
}
