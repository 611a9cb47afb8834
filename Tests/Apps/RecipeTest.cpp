// Scenes that people start from, and what is said of pictures that went wrong.
#include "Tests/Support/Command.h"

#include <map>
#include <set>

using namespace oxbeam::test;

// The numbers of the objects that a picture's layer tells, with how many pixels each has.
static std::map<int, int> objectsIn(const std::string& file) {
    const OIIO::ImageBuf image = picture(file);
    const int channel = image.spec().channelindex("object.id");
    std::map<int, int> found;
    for (int y = 0; y < image.spec().height; ++y)
        for (int x = 0; x < image.spec().width; ++x) ++found[static_cast<int>(image.getchannel(x, y, 0, channel))];
    return found;
}

TEST_F(Command, EveryRecipeShowsItsSubject) {
    const std::map<std::string, std::size_t> objects = {// that are seen, at least
                                                        {"car-paint", 2},
                                                        {"exploded-assembly", 11},
                                                        {"interior", 9},
                                                        {"product-on-white", 2},
                                                        {"wall-thickness", 9}};
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(SCENES "/recipes")) {
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        found.insert(name);
        // Neither black nor clipped, or it would be said; of an EXR, nothing clips.
        const Outcome shown = run("render " + entry.path().string() + " -q --size 120x68 --samples 2 -o x.png");
        EXPECT_EQ(shown.err, "");
        ASSERT_EQ(shown.status, 0);
        ASSERT_EQ(run("render " + entry.path().string() + " -q --size 120x68 --samples 1 --aov object -o x.exr").status,
                  0);
        std::map<int, int> seen = objectsIn("x.exr");
        const int background = seen[0];
        seen.erase(0);
        ASSERT_TRUE(objects.contains(name)) << "say here what it shows";
        EXPECT_GE(seen.size(), objects.at(name));
        EXPECT_LT(background, 120 * 68 * 95 / 100);
    }
    EXPECT_EQ(found.size(), objects.size());
}

TEST_F(Command, PicturesThatShowNothingAreWarnedOfWithTheCause) { expectTranscript("nothing.txt"); }

TEST_F(Command, AGroundMeetsTheHorizonAndShadowsFallOnIt) {
    writeFile("ground.toml", contentOf(TEST_SCENES "/ground.toml"));

    // The eye looks along the ground: the horizon is between the rows 29 and 30, however high the eye is.
    for (const std::string height : {"0.01", "1", "300"}) {
        const Outcome outcome = run("render ground.toml -q -o g.exr --set camera.position=[0," + height +
                                    ",9] --set camera.lookAt=[0," + height + ",0]");
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(pixel("g.exr", 2, 29), R3(0, 0, 1)) << height;
        EXPECT_NEAR(pixel("g.exr", 2, 30).x, 0.99f, 1e-4f)
            << height << ": lit, and in nobody's shadow, its own least of all";
    }
    ASSERT_EQ(
        run("render ground.toml -q -o g.exr --set camera.position=[0,1,3.2] --set camera.lookAt=[0,0,0.2]").status, 0);
    EXPECT_NEAR(pixel("g.exr", 30, 30).x, 0.09f, 1e-4f) << "under the ball, by no one's order";
    ASSERT_EQ(run("render ground.toml -q -o g.exr --set camera.position=[0,1,3.2] --set camera.lookAt=[0,0,0.2] "
                  "--set render.receiveShadow=false")
                  .status,
              0);
    EXPECT_NEAR(pixel("g.exr", 30, 30).x, 0.99f, 1e-4f);
    const std::string check = run("check ground.toml --set mesh.1.scale=2").err;
    EXPECT_THAT(check, HasSubstr("mesh 1: 'scale' is not for a ground, which is level and has no end"));
}
