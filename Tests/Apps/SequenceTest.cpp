// Sequences: many pictures of one scene at different times, from one load.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

using namespace oxbeam::test;

namespace {

// A box in the scene turns and moves, and the light changes, for a sixth of a second.
const std::string Moving = SceneText +
                           "[[mesh]]\nshape = \"box\"\nshader = \"body\"\nscale = 0.4\n"
                           "[[animation]]\ntarget = \"mesh.2.rotate\"\ntimes = [0, 0.125]\n"
                           "values = [[0, 0, 0], [40, 90, 10]]\ninterpolation = \"smooth\"\n"
                           "[[animation]]\ntarget = \"mesh.2.translate\"\ntimes = [0.05, 0.125]\n"
                           "values = [[-1.5, 0, 1], [1.5, 0.5, 1]]\n"
                           "[[animation]]\ntarget = \"light.0.intensity\"\ntimes = [0, 0.1]\n"
                           "values = [[20, 20, 20], [0, 40, 0]]\n";

std::vector<std::string> filesThatAre(const std::string& part) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(scratch()))
        if (const std::string name = entry.path().filename(); name.find(part) != std::string::npos)
            names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

// The integers of all pictures of a movie, or of a PNG.
std::vector<std::vector<unsigned char>> bytesOf(const std::string& file) {
    std::vector<std::vector<unsigned char>> pictures;
    const auto input = OIIO::ImageInput::open((scratch() / file).string());
    for (int i = 0; input && input->seek_subimage(i, 0); ++i) {
        const OIIO::ImageSpec& spec = input->spec();
        std::vector<unsigned char> all(spec.image_pixels() * static_cast<std::size_t>(spec.nchannels)), colors;
        EXPECT_TRUE(input->read_image(i, 0, 0, spec.nchannels, OIIO::TypeDesc::UINT8, all.data()));
        for (std::size_t at = 0; at < all.size(); at += static_cast<std::size_t>(spec.nchannels))
            colors.insert(colors.end(), all.begin() + static_cast<std::ptrdiff_t>(at),
                          all.begin() + static_cast<std::ptrdiff_t>(at + 3));
        pictures.push_back(std::move(colors));
    }
    return pictures;
}

// A program in the place of ffmpeg, for calls that begin so.
std::string withEncoder(const std::string& script) {
    fs::create_directory(scratch() / "bin");
    writeFile("bin/ffmpeg", "#!/bin/sh\n" + script);
    fs::permissions(scratch() / "bin/ffmpeg", fs::perms::owner_all);
    return "PATH=$PWD/bin:/bin:/usr/bin $oxbeam ";
}

}  // namespace

TEST_F(Command, AFrameHasTheSameBitsInAnyCompany) {
    writeFile("moving.toml", Moving);
    writeMovingGltf("slide.gltf");
    for (const std::string arguments :
         {"moving.toml --aov depth,normal --animate camera.position=[0,1,5]..[2,2,4]@smooth",
          "moving.toml --turntable 4",
          "scene.toml --duration 0.125 --animate mesh.0.scale=0.5..1.5 --animate shader.body.shininess=2..90@in "
          "--animate camera.fov=30..50",
          "scene.toml --frames 0..3 --animate light.0.position=[2,3,4]..[-2,3,4] --background transparent",
          "slide.gltf --clip slide --fps 2 --size 40x30 --samples 2", "moving.toml --threads 1 --packets"}) {
        SCOPED_TRACE(arguments);
        const std::string render = "render " + arguments + " -q -o ";
        ASSERT_EQ(run(render + "all.{frame}.exr").status, 0);
        const Outcome some = run(render + "some.{frame}.exr --only 3,1");
        ASSERT_EQ(some.status, 0) << some.err;
        for (const std::string number : {"1", "3"}) expectSame("some." + number + ".exr", "all." + number + ".exr");
        EXPECT_NE(contentOf("all.0.exr"), contentOf("all.3.exr"));
        if (arguments.find("--frames") == std::string::npos) {
            ASSERT_EQ(run(render + "alone.{frame:02}.exr --frames 2..2").status, 0);
            expectSame("alone.02.exr", "all.2.exr");
        }
    }
    EXPECT_EQ(picture("all.3.exr").spec().get_int_attribute("oxbeam:frame"), 3);
    // A picture of what moves is its first frame, and what does not move costs nothing.
    ASSERT_EQ(run("render moving.toml -q -o still.exr").status, 0);
    ASSERT_EQ(run("render moving.toml -q -o first.exr --frames 0").status, 0);
    expectSame("still.exr", "first.exr");
    ASSERT_EQ(run("render scene.toml -q -o s.{frame}.exr --turntable 2 --stats s.{frame}.json").status, 0);
    const auto stats = nlohmann::json::parse(contentOf("s.1.json"));
    EXPECT_EQ(stats.at("frame"), 1);
    EXPECT_EQ(stats.at("load_s"), 0.0);
    EXPECT_EQ(stats.at("structure").at("two_levels"), false);
}

TEST_F(Command, SequencesAreRefusedWhereTheyMakeNoSense) { expectTranscript("sequences.txt"); }

TEST_F(Command, AnInterruptedSequenceKeepsWholeFramesAndIsCompletedByThoseMissing) {
    const std::string render = "render scene.toml --size 100x80 --samples 300 --turntable 400 -o t.{frame:03}.png";
    const Process process(render);
    ASSERT_TRUE(process.hasSaid("frame 1 (2 of 400): rendered"));
    process.signal(SIGINT);
    const Outcome outcome = process.finish();
    EXPECT_EQ(outcome.status, 130) << outcome.err;
    EXPECT_THAT(outcome.err, ContainsRegex(", to t.001.png, [0-9:]+ to go"));
    const std::vector<std::string> there = filesThatAre("t.0");
    ASSERT_GE(there.size(), 2u);
    EXPECT_EQ(there.back().size(), std::string("t.000.png").size());
    for (const std::string& name : there) EXPECT_EQ(bytesOf(name).at(0).size(), 100u * 80 * 3);
    const auto written = fs::last_write_time(scratch() / "t.000.png");
    const auto next = std::to_string(there.size());
    const Outcome rest = run(render + " --missing --frames 0.." + next);
    EXPECT_EQ(rest.status, 0) << rest.err;
    EXPECT_THAT(rest.err, HasSubstr(next + " of " + std::to_string(there.size() + 1) + " frames are there\n"));
    EXPECT_EQ(fs::last_write_time(scratch() / "t.000.png"), written);
    EXPECT_EQ(filesThatAre("t.0").size(), there.size() + 1);
}

TEST_F(Command, FramesGoOnFromTheirCheckpoints) {
    writeFile("moving.toml", Moving);
    const std::string render = "render moving.toml -q --checkpoint c.{frame}.exr --frames 0..2 -o ";
    ASSERT_EQ(run(render + "part.{frame}.exr --samples 1 --only 1,2").status, 0);
    const Outcome resumed = run(render + "whole.{frame}.exr --samples 3 --resume");
    ASSERT_EQ(resumed.status, 0) << resumed.err;
    ASSERT_EQ(run("render moving.toml -q --frames 0..2 --samples 3 -o straight.{frame}.exr").status, 0);
    for (const std::string number : {"0", "1", "2"})
        expectSame("whole." + number + ".exr", "straight." + number + ".exr");
    fs::copy_file(scratch() / "c.1.exr", scratch() / "c.3.exr");
    const Outcome other = run("render moving.toml -q --checkpoint c.{frame}.exr --frames 3 -o p.exr --resume");
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.err, HasSubstr("--frames was 1 and is 3"));
}

TEST_F(Command, AGifHasAllFrames) {
    const std::string render = "render scene.toml -q --turntable 3 -o ";
    ASSERT_EQ(run(render + "t.gif").status, 0);
    ASSERT_EQ(run(render + "t.{frame}.png").status, 0);
    const auto frames = bytesOf("t.gif");
    ASSERT_EQ(frames.size(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        const auto expected = bytesOf("t." + std::to_string(i) + ".png").at(0);
        ASSERT_EQ(frames[i].size(), expected.size());
        double difference = 0.0;
        for (std::size_t k = 0; k < expected.size(); ++k) difference += std::abs(frames[i][k] - expected[k]);
        EXPECT_LT(difference / static_cast<double>(expected.size()), 6.0);  // of 255: a palette for each frame
    }
}

// What stands in for the encoder keeps what it is handed.
TEST_F(Command, AnMp4IsWhatTheEncoderMakesOfTheFrames) {
    const std::string render = "render scene.toml -q --turntable 3 --fps 30 -o ";
    ASSERT_EQ(run(render + "t.{frame}.png").status, 0);
    const Outcome made = shell(withEncoder("echo \"$@\" > said; cat > /dev/fd/3") + render + "t.mp4");
    ASSERT_EQ(made.status, 0) << made.err;
    std::string frames;
    for (const char* name : {"t.0.png", "t.1.png", "t.2.png"}) {
        const auto bytes = bytesOf(name).at(0);
        frames.append(bytes.begin(), bytes.end());
    }
    EXPECT_TRUE(contentOf("t.mp4") == frames);
    EXPECT_THAT(contentOf("said"),
                AllOf(HasSubstr("-video_size 40x30 -framerate 30 "), HasSubstr(" -f mp4 /dev/fd/3")));

    for (const auto& [script, why] :
         std::vector<std::pair<std::string, std::string>>{{"echo first >&2; echo 'no such encoder' >&2; exit 3",
                                                           "ffmpeg failed with status 3: first no such encoder"},
                                                          {"cat > /dev/null", "ffmpeg made nothing"},
                                                          {"kill -9 $$", "ffmpeg was ended by signal 9"}}) {
        const Outcome failed = shell(withEncoder(script) + render + "t.mp4");
        EXPECT_EQ(failed.status, 5);
        EXPECT_THAT(failed.err, HasSubstr("cannot write 't.mp4'"));
        EXPECT_THAT(failed.err, HasSubstr(why));
        EXPECT_TRUE(contentOf("t.mp4") == frames);
    }
    const Outcome none = shell("PATH=/nowhere:. $oxbeam " + render + "t.mp4");
    EXPECT_EQ(none.status, 5);
    EXPECT_THAT(none.err, HasSubstr("cannot write 't.mp4': that takes the program ffmpeg, which is not installed"));
    EXPECT_THAT(filesThatAre("t."), ElementsAre("t.0.png", "t.1.png", "t.2.png", "t.mp4"));
    // The real one, where there is one.
    if (shell("command -v ffmpeg").status != 0) GTEST_SKIP() << "ffmpeg is not installed";
    const Outcome real = run(render + "t.mp4");
    ASSERT_EQ(real.status, 0) << real.err;
    const Outcome decoded = shell("ffmpeg -v error -i t.mp4 -f rawvideo -pix_fmt rgb24 - | wc -c");
    EXPECT_EQ(std::stoul(decoded.out), frames.size()) << decoded.err;
}

// Nothing is left of a movie that was interrupted, nor does its encoder go on.
TEST_F(Command, AnInterruptedMovieLeavesNothing) {
    const std::string render = "render scene.toml --size 100x80 --samples 300 --turntable 400 -o ";
    for (const std::string name : {"t.gif", "t.mp4"}) {
        withEncoder("echo $$ > encoder; exec cat > /dev/fd/3");
        const std::string path = getenv("PATH");
        setenv("PATH", ((scratch() / "bin").string() + ":" + path).c_str(), 1);
        const Process process(render + name);
        setenv("PATH", path.c_str(), 1);
        ASSERT_TRUE(process.hasSaid("frame 1 (2 of 400): rendered"));
        process.signal(SIGINT);
        EXPECT_EQ(process.finish().status, 130);
        EXPECT_THAT(filesThatAre("t."), IsEmpty()) << name;
    }
    EXPECT_NE(shell("kill -0 $(cat encoder)").status, 0);
}

// An FBX file that others made, where the system has it: what its nodes do is seen.
TEST_F(Command, TheClipOfAnFbxPlays) {
    const std::string model = "/usr/share/assimp/models/FBX/animation_with_skeleton.fbx";
    if (!fs::exists(model)) GTEST_SKIP() << "assimp-testmodels is not installed";
    const Outcome outcome =
        run("render " + model + " -o f.{frame}.png --clip 0 --size 32x24 --samples 1 --frames 0..4/4");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("bends meshes by bones or morphs, which are not played"));
    EXPECT_EQ(filesThatAre("f."), (std::vector<std::string>{"f.0.png", "f.4.png"}));
}
