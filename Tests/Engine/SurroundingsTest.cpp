// Photographs around a scene, and the shadows that it throws into them.
#include "Engine/Host/ShadowCatcher.h"
#include "Engine/Textures/Projection.h"
#include "Shaders/Kel/KelEnvironment.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/SceneText.h"

using namespace oxbeam::test;

namespace {

const R3 Sky(0.5f, 0.25f, 1.0f);

// What is seen straight down at (x, 0, 0) of a catcher at height 0, under a light from straight above and others from
// aside, all far away; a square at height 1 keeps the first one off the middle.
R3 caught(float x, const std::vector<R3>& intensities, float shadowIntensity = 1.0f, bool square = true) {
    TestWorld world(Sky);
    if (square) {
        world.phong();
        world.addSquare(R3(0, 1, 0), R3(0, 1, 0), 0.5f, RAY_SHADOW);
    }
    world.shader<ShadowCatcher>("OxShadowCatcher").shadowIntensity = shadowIntensity;
    world.addSquare(R3(0, 0, 0), R3(0, 1, 0), 100.0f, RAY_PRIMARY);
    float aside = 0.0f;
    for (const R3& intensity : intensities) {
        world.steadyLight(R3(aside, 1e6f, 0), intensity);
        aside = 2e6f;
    }
    return world.trace(R3(x, 5, 0), R3(0, -1, 0));
}

}  // namespace

TEST(ShadowCatcher, ShowsTheSurroundingsTimesTheShareOfLightThatArrives) {
    const float slanted = 1 / std::sqrt(5.0f), share = slanted / (1 + slanted);  // by the second light's cosine
    EXPECT_EQ(caught(3, {White}), Sky);
    EXPECT_EQ(caught(0, {White}), Black);
    EXPECT_EQ(caught(0, {White}, 0.25f), 0.75f * Sky);
    expectNear(caught(0, {White, White}), share * Sky, 1e-3f);
    expectNear(caught(0, {R3(1, 0, 0), White}), R3(share, 1, 1) * Sky, 1e-3f);
    EXPECT_EQ(caught(0, {White}, 1.0f, false), Sky) << "no light is asked where nothing can throw a shadow";
}

TEST(ShadowCatcher, LetsLightThroughFromWhateverLiesBeyondIt) {
    for (const bool blocked : {false, true}) {
        TestWorld world;
        world.floor();
        world.shader<ShadowCatcher>("OxShadowCatcher");
        for (const float y : {1.0f, 2.0f}) world.addSquare(R3(0, y, 0), R3(0, 1, 0), 1.0f, RAY_SHADOW);
        if (blocked) {
            world.phong();
            world.addSquare(R3(0, 3, 0), R3(0, 1, 0), 1.0f, RAY_SHADOW);
        }
        world.steadyLight(R3(0, 5, 0));
        EXPECT_EQ(world.trace(R3(0.1f, 0.5f, 0.1f), R3(0, -1, 0)) == Black, blocked);
    }
}

TEST(Surroundings, TurnCounterclockwiseAsSeenFromAbove) {
    // White towards -z alone.
    const auto picture = painted(64, 32, [](float s, float) { return std::fabs(s - 0.5f) < 0.0625f ? White : Black; });
    const R3 towards[] = {R3(0.01f, 0.02f, -1), R3(-1, 0.02f, 0.01f), R3(0.01f, 0.02f, 1), R3(1, 0.02f, 0.01f)};
    for (int quarter = 0; quarter < 4; ++quarter) {
        TestWorld world;
        auto& sky = world.surroundings<KelEnvironmentShader>("KelEnvironment");
        sky.textureid = world.textures.add(toAngularMap(*picture, 90.0f * static_cast<float>(quarter)));
        for (int i = 0; i < 4; ++i) EXPECT_NEAR(world.trace(Black, towards[i]).x, i == quarter, 0.01f) << quarter << i;
    }
}

TEST(Surroundings, NegativeNumbersAreNoLightAndTurningIsForSurroundings) {
    writeImage(scratch() / "sky.exr", 16, 8, std::vector<R3>(128, R3(-1, 2, -0.5f)));
    const std::string environment = "[environment]\nobject = 'KelEnvironment'\ntexture = 'sky'\n";
    const LoadedScene scene =
        loadText("[texture]\nsky = {file = 'sky.exr', projection = 'equirectangular', rotate = 30}\n" + environment);
    EXPECT_THAT(scene.said,
                ElementsAre("scene.toml:2:15: warning: texture 'sky': 256 numbers of the picture are negative, "
                            "which no light is; they count as 0"));
    const auto& sky = static_cast<KelEnvironmentShader&>(*scene.world->environment);
    const auto& map = static_cast<const Texture&>(*scene.world->textures.ByID(sky.textureid));
    expectNear(map.lookUp(0.4f, 0.6f).rgb(), R3(0, 2, 0), 1e-5f);
    EXPECT_THAT(loadText("[texture]\nwood = {file = 'sky.exr'}\n").said, IsEmpty());
    EXPECT_THAT(loadText("[texture]\nwood = {file = 'sky.exr', rotate = 30}\n").said,
                ElementsAre("scene.toml:2:36: error: texture 'wood': 'rotate' is for surroundings: 'projection = "
                            "\"equirectangular\"'"));
}
