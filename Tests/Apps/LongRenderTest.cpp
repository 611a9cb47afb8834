// Renderings that go on later, and what stands beside the colours in the files they leave behind.
#include "Tests/Support/Command.h"

#include <algorithm>
#include <chrono>
#include <thread>

using namespace oxbeam::test;

namespace {

// Lights that are visited in an order that is drawn once, and a surface that draws from the same numbers all along.
std::string chanceScene() {
    std::string text =
        "[image]\nwidth = 40\nheight = 30\n[camera]\nposition = [0, 1, 5]\nlookAt = [0, 0, 0]\n"
        "[shader.order]\nobject = \"KelAlphaILS\"\nsamples = 2\n"
        "[shader.chance]\nobject = \"KelAmbientOcclusion\"\n"
        "[[mesh]]\nshape = \"sphere\"\nshader = \"chance\"\n"
        "[[mesh]]\nshape = \"plane\"\nshader = \"order\"\nscale = 4\ntranslate = [0, -1, 0]\n";
    for (int i = 0; i < 9; ++i)
        text += "[[light]]\nobject = \"KelPointLight\"\nposition = [" + std::to_string(i - 4) +
                ", 4, 2]\nintensity = [300, " + std::to_string(90 * i) + ", 200]\n";
    return text;
}

}  // namespace

TEST_F(Command, AResumedPictureIsTheUninterruptedOneBitForBit) {
    writeFile("chance.toml", chanceScene());
    writeFile("focus.toml", SceneText +
                                "[camera.lens]\nobject = \"KelDOFCamera\"\nposition = [0, 1, 5]\n"
                                "lookAt = [0, 0, 0]\n");
    for (const std::string arguments :
         {"scene.toml --aov depth,normal,albedo,object,samples --crop 5,3,33,27", "chance.toml --threads 1",
          "focus.toml --camera lens --aov depth,albedo", "scene.toml --packets --aov normal",
          "scene.toml --background transparent --filter gaussian --crop 5,3,33,27 --aov depth"}) {
        SCOPED_TRACE(arguments);
        const std::string render = "render " + arguments + " -o ";
        ASSERT_EQ(run(render + "whole.exr --samples 5").status, 0);
        ASSERT_EQ(run(render + "part.exr --samples 2 --checkpoint c.exr").status, 0);
        const Outcome resumed = run(render + "resumed.exr --samples 5 --checkpoint c.exr --resume");
        ASSERT_EQ(resumed.status, 0) << resumed.err;
        EXPECT_THAT(resumed.err, HasSubstr("resumed from c.exr after 2 passes\nrendered 5 of 5 passes"));
        expectSame("resumed.exr", "whole.exr");
        // What was saved at the end is good for going on again.
        ASSERT_EQ(run(render + "again.exr --samples 5 --checkpoint c.exr --resume").status, 0);
        expectSame("again.exr", "whole.exr");
    }
}

TEST_F(Command, AnInterruptedPassIsGoneOnWith) {
    const std::string render = "render scene.toml --size 400x300 --checkpoint c.exr -o ";
    const Process process(render + "p.exr --samples 1000000");
    ASSERT_TRUE(process.hasSaid("built in"));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    process.signal(SIGINT);
    const Outcome outcome = process.finish();
    ASSERT_EQ(outcome.status, 130) << outcome.err;
    const std::string more =
        " --samples " + std::to_string(picture("c.exr").spec().get_int_attribute("oxbeam:samples") + 2);
    ASSERT_EQ(run(render + "resumed.exr --resume --threads 1" + more).status, 0);
    ASSERT_EQ(run("render scene.toml --size 400x300 -o whole.exr" + more).status, 0);
    expectSame("resumed.exr", "whole.exr");
}

TEST_F(Command, WhatCannotBeResumedIsRefused) {
    writeTexturedScene();
    ASSERT_EQ(run("render scene.toml -o p.exr --checkpoint c.exr").status, 0);
    ASSERT_EQ(run("render scene.toml -o picture.exr").status, 0);
    const std::string saved = contentOf("c.exr");
    writeFile("short.exr", saved.substr(0, saved.size() / 2));
    std::string flipped = saved;
    flipped[saved.size() - 300] ^= 4;
    writeFile("flipped.exr", flipped);
    fs::copy_file(scratch() / "wood.png", scratch() / "png.exr");
    writeFile("zeros.exr", "");
    fs::resize_file(scratch() / "zeros.exr", 500u << 20);
    expectTranscript("resuming.txt");
    writeImage(scratch() / "wood.png", 2, 1, {White, Black});
    writeFile("scene.toml", contentOf("scene.toml") + "# another line\n");
    const Outcome changed = run("render scene.toml -o p.exr --resume --checkpoint c.exr");
    EXPECT_EQ(changed.status, 3);
    EXPECT_EQ(changed.err, error +
                               "cannot resume from 'c.exr', which is of another picture: file 'wood.png' has "
                               "changed; scene 'scene.toml' has changed\n");
    EXPECT_TRUE(contentOf("c.exr") == saved) << "a refusal must leave it alone";
}

// What a scene is made with around a model is not in any file.
TEST_F(Command, AModelsPictureIsGoneOnWithUnderTheSameOptionsOnly) {
    writeFile("triangle.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    const std::string render = "render -q triangle.obj -o p.png --size 16x16 --checkpoint c.exr --samples ";
    ASSERT_EQ(run(render + "1 --rotate-environment 10 --background 0.1,0.2,0.3").status, 0);
    const Outcome other = run(render + "2 --resume --rotate-environment 20 --background 0.1,0.2,0.4");
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.err,
                HasSubstr("--background was 0.1,0.2,0.3 and is 0.1,0.2,0.4; --rotate-environment was 10 and is 20"));
    EXPECT_EQ(run(render + "2 --resume --rotate-environment 10 --background 0.1,0.2,0.3").status, 0);
}

TEST_F(Command, ATimeIsFilledWithWholePasses) {
    const std::string render = "render scene.toml --size 40x30 --checkpoint c.exr --time ";
    const Outcome first = run(render + "1 -o p.exr");
    EXPECT_EQ(first.status, 0);
    EXPECT_THAT(first.err, ContainsRegex("\nrendered [0-9]+ passes in (0\\.|1\\.0)"));
    const int passes = picture("p.exr").spec().get_int_attribute("oxbeam:samples");
    EXPECT_GT(passes, 1);
    EXPECT_EQ(run(render + "0.000001 --resume -o q.exr --aov samples").status, 0) << "one pass at least";
    const OIIO::ImageBuf more = picture("q.exr");
    EXPECT_EQ(more.getchannel(39, 29, 0, more.spec().channelindex("samples.N")), static_cast<float>(passes + 1));
}

TEST_F(Command, ACheckpointThatCannotBeSavedDoesNotEndTheRendering) {
    const Process process("render scene.toml --size 400x300 -o p.exr --time 4 --checkpoint-every 1 --checkpoint c.exr");
    ASSERT_TRUE(process.hasSaid("built in"));
    fs::create_directory(scratch() / "c.exr");  // stands in the way
    EXPECT_TRUE(process.hasSaid("oxbeam: warning: cannot write 'c.exr': it exists and is not a regular file\n"));
    fs::remove(scratch() / "c.exr");
    for (int i = 0; i < 200 && !fs::exists(scratch() / "c.exr"); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_GT(picture("c.exr").spec().get_int_attribute("oxbeam:samples"), 0) << "saved while it renders";
    EXPECT_THAT(process.errors(), Not(HasSubstr("rendered")));
    EXPECT_EQ(process.finish().status, 0);
}

// A square of side 2 at depth 4, black on its left half, a ball of glass, and nothing.
TEST_F(Command, LayersHoldWhatTheirNamesSayAndThePictureStaysAsItIs) {
    writeImage(scratch() / "halves.png", 2, 1, {Black, White});
    writeFile("aov.toml", contentOf(TEST_SCENES "/layers.toml"));
    ASSERT_EQ(run("render aov.toml -o plain.exr").status, 0);
    ASSERT_EQ(run("render aov.toml -o p.exr --crop 10,5,40,40 --aov samples,object,depth,normal,albedo").status, 0);
    const OIIO::ImageBuf p = picture("p.exr"), plain = picture("plain.exr");
    const auto at = [&](int x, int y, const char* channel) {
        return p.getchannel(x, y, 0, p.spec().channelindex(channel));
    };
    for (int y = 5; y < 40; ++y)
        for (int x = 10; x < 40; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_EQ(p.getchannel(x, y, 0, c), plain.getchannel(x, y, 0, c));
    struct Pixel {
        int x;
        float depth, object, normalZ, red, blue;
    };
    for (const Pixel& e : {Pixel{17, 4, 1, 1, 0, 0}, Pixel{22, 4, 1, 1, 0.8f, 0.2f}, Pixel{35, 3.165f, 2, 0.83f, 1, 1},
                           Pixel{12, INFINITY, 0, 0, 0, 0}}) {
        SCOPED_TRACE(e.x);
        const bool round = e.object == 2;
        EXPECT_THAT(at(e.x, 20, "depth.Z"), AnyOf(e.depth, FloatNear(e.depth, round ? 0.03f : 1e-5f)));
        EXPECT_EQ(at(e.x, 20, "object.id"), e.object);
        EXPECT_NEAR(at(e.x, 20, "normal.Z"), e.normalZ, round ? 0.03f : 1e-6f);
        EXPECT_NEAR(at(e.x, 20, "albedo.R"), e.red, 1e-6f);
        EXPECT_NEAR(at(e.x, 20, "albedo.B"), e.blue, 1e-6f);
        EXPECT_EQ(at(e.x, 20, "samples.N"), 3.0f);
    }

    const OIIO::ImageSpec& spec = p.spec();
    EXPECT_EQ(std::tuple(spec.x, spec.y, spec.width, spec.height, spec.full_x, spec.full_width, spec.full_height),
              std::tuple(10, 5, 30, 35, 0, 40, 40));
    EXPECT_EQ(spec.get_string_attribute("oxbeam:objects"), R"({"1":"the card","2":"sphere"})");
    EXPECT_EQ(spec.get_string_attribute("oxbeam:command"),
              "oxbeam render aov.toml -o p.exr --crop 10,5,40,40 --aov samples,object,depth,normal,albedo");
    EXPECT_THAT(spec.get_string_attribute("oxbeam:packages"), ContainsRegex("^libKel\\.so [0-9a-f]{16}$"));
    EXPECT_THAT(spec.get_string_attribute("oxbeam:sceneHash"), ContainsRegex("^[0-9a-f]{16}$"));
    EXPECT_NE(spec.get_string_attribute("oxbeam:sceneHash"), plain.spec().get_string_attribute("oxbeam:sceneHash"));
    EXPECT_GT(spec.get_float_attribute("oxbeam:renderTime"), 0.0f);
    // The card's right upper corner: 1 of 4 from the middle to the border, both ways.
    const auto* ndc = spec.find_attribute("worldToNDC", OIIO::TypeMatrix44);
    const auto* camera = spec.find_attribute("worldToCamera", OIIO::TypeMatrix44);
    ASSERT_TRUE(ndc && camera);
    const auto corner = [](const OIIO::ParamValue& value, int column) {
        const auto* m = static_cast<const float*>(value.data());
        return m[column] + m[4 + column] + m[8 + column] + m[12 + column];
    };
    EXPECT_NEAR(corner(*ndc, 0) / corner(*ndc, 3), 0.625f, 1e-6f);
    EXPECT_NEAR(corner(*ndc, 1) / corner(*ndc, 3), 0.375f, 1e-6f);
    EXPECT_NEAR(corner(*camera, 2), 4.0f, 1e-6f);
}
