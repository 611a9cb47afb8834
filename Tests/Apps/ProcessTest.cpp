// The command as a process: what it loads, how it is stopped, and what it says.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <set>
#include <sstream>
#include <thread>

using namespace oxbeam::test;
using Clock = std::chrono::steady_clock;

namespace {

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// The libraries that a call loads into its own process, as the dynamic linker tells.
std::set<std::string> librariesOf(const std::string& arguments) {
    const Outcome outcome = shell("LD_DEBUG=files $oxbeam " + arguments + " 2>&1 >out.txt");
    EXPECT_EQ(outcome.status, 0) << arguments;
    std::set<std::string> libraries;
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);)
        if (line.find("calling init: ") != line.npos) libraries.insert(fs::path(line).filename().string());
    return libraries;
}

}  // namespace

// Were the working folder looked in, this would end every program with status 99 before it begins.
TEST_F(Command, LibrariesInTheWorkingFolderAreNotLoaded) {
    writeFile("planted.c", "#include <unistd.h>\n__attribute__((constructor)) static void run(void) { _exit(99); }\n");
    ASSERT_EQ(shell("cc -shared -fPIC planted.c -o libfmt.so.9").status, 0);
    for (const char* name : {"libstdc++.so.6", "libembree3.so.3", "libtbb.so.12", "libOpenImageIO.so.2.4",
                             "liboxbeam.so", "liboxbeam-pictures.so", "libKel.so", "libassimp.so.5", "libpugixml.so.1",
                             "libpng16.so.16", "libgdal.so.32", "libOpenEXRCore-3_1.so.30", "libjpeg.so.62"})
        fs::copy_file(scratch() / "libfmt.so.9", scratch() / name);
    EXPECT_EQ(run("--version").status, 0);
    writeTexturedScene();
    for (const char* output : {"p.png", "p.jpg", "p.exr", "p.tif"}) {
        const Outcome outcome = run(std::string("render scene.toml -o ") + output);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }
}

// Time is no measure on a machine that does much else; but it goes into relocating libraries, and those can be counted.
TEST_F(Command, WhatReadsAndWritesPicturesIsLoadedForPicturesOnly) {
    constexpr std::size_t few = 40;  // a picture's library needs 260
    const auto ofPictures = [](const std::string& name) { return name.starts_with("libOpenImageIO"); };
    writeTexturedScene("textured.toml");
    for (const char* arguments :
         {"--version", "list", "describe KelPhong", "complete textured.toml", "check textured.toml",
          "render -q scene.toml -o p.png --size 16x16", "render -q textured.toml -o p.png --size 16x16 --bits 16",
          "render -q scene.toml -o p.jpg --size 16x16",
          "render -q textured.toml -o p.exr --size 16x16 --aov depth,object --checkpoint c.exr"}) {
        SCOPED_TRACE(arguments);
        const std::set<std::string> libraries = librariesOf(arguments);
        EXPECT_TRUE(libraries.contains("libembree3.so.3"));
        EXPECT_TRUE(std::none_of(libraries.begin(), libraries.end(), ofPictures));
        EXPECT_LT(libraries.size(), few);
    }
    const std::set<std::string> libraries = librariesOf("render -q scene.toml -o p.tif --size 16x16");
    EXPECT_TRUE(std::any_of(libraries.begin(), libraries.end(), ofPictures));
}

// Each process says what it loads in a file of its own.
TEST_F(Command, PicturesAreReadOnlyForModelsThatHaveSome) {
    const std::string corners = "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\n", face = "f 1/1 2/1 3/1\n";
    makePicture();
    writeFile("painted.mtl", "newmtl wood\nmap_Kd wood.png\n");
    for (const auto& [model, text, reads] :
         {std::tuple("bare.obj", corners + face, false),
          {"painted.obj", "mtllib painted.mtl\n" + corners + "usemtl wood\n" + face, true}}) {
        SCOPED_TRACE(model);
        writeFile(model, text);
        const std::string command = std::string("LD_DEBUG=files LD_DEBUG_OUTPUT=") + model +
                                    ".loads $oxbeam render -q " + model + " -o p.png --size 16x16 --samples 1";
        ASSERT_EQ(shell(command).status, 0);
        const Outcome readers = shell(std::string("grep -l libOpenImageIO ") + model + ".loads.* | wc -l");
        EXPECT_EQ(readers.out, reads ? "1\n" : "0\n");
    }
}

TEST_F(Command, WhoeverStopsReadingDoesNotLoseThePicture) {
    // Whoever reads the messages goes before the last ones are written.
    EXPECT_EQ(
        shell("{ $oxbeam render scene.toml -o p.png --time 1; echo $? > status; } 2>&1 | sed '/built in/q'").status, 0);
    EXPECT_EQ(contentOf("status"), "0\n");
    EXPECT_TRUE(fs::exists(scratch() / "p.png"));
    // Whoever reads nothing at all: a message before the rendering is the last one.
    EXPECT_EQ(
        shell("{ sleep 0.5; $oxbeam render scene.toml -o p.png --samples 1000000; echo $? > status; } 2>&1 | true")
            .status,
        0);
    EXPECT_EQ(contentOf("status"), "6\n");

    // Without standard error, and under nohup, it goes on.
    EXPECT_EQ(shell("$oxbeam render scene.toml -o q.png 2>&-").status, 0);
    EXPECT_TRUE(fs::exists(scratch() / "q.png"));
    const Outcome ignored =
        shell("trap '' HUP; $oxbeam render scene.toml -o r.png --time 1 & sleep 0.5; kill -HUP $!; wait $!");
    EXPECT_EQ(ignored.status, 0) << ignored.err;
}

TEST_F(Command, AClosedStandardOutputIsAnErrorOfOutput) {
    const Outcome outcome = shell("{ sleep 0.1; $oxbeam describe --format json; echo $? > status; } | true");
    EXPECT_EQ(contentOf("status"), "5\n") << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
}

// A reader that is stopped hangs like a file system that has gone away.
TEST_F(Command, ASignalEndsWhatHangsWithinTheGrace) {
    writeTexturedScene();
    for (const auto& [signal, status] : {std::pair("INT", 130), std::pair("TERM", 6)}) {
        // Stops the reader as soon as there is one, and asks for the end then.
        const auto start = Clock::now();
        const Outcome outcome = shell(
            "$oxbeam render scene.toml -o p.png & p=$!; r=; while [ -z \"$r\" ] && kill -0 $p 2>/dev/null; do "
            "r=$(ps -o pid=,comm= --ppid $p | sed -n 's/ *oxbeam-decode//p' | tr -d ' '); done; kill -STOP $r; kill -" +
            std::string(signal) + " $p; wait $p; s=$?; kill -KILL $r 2>/dev/null; exit $s");
        EXPECT_EQ(outcome.status, status) << outcome.err;
        EXPECT_LT(secondsSince(start), 15.0);
        EXPECT_FALSE(fs::exists(scratch() / "p.png"));
    }
}

TEST_F(Command, SumsThatOverflowAreLimitedAndWarnedOf) {
    writeFile("bright.toml", SceneText + "[environment]\nbackground = [3.4e38, 3.4e38, 3.4e38]\n");
    const Outcome outcome = run("render bright.toml -o p.exr --samples 4 --stats s.json");
    EXPECT_EQ(outcome.status, 0);
    const auto stats = nlohmann::json::parse(contentOf("s.json"));
    const int overflowed = stats.at("overflowed_pixels");
    EXPECT_THAT(outcome.err,
                HasSubstr("oxbeam: warning: the samples of " + std::to_string(overflowed) + " pixels add up to more"));
    int limited = 0;
    const OIIO::ImageBuf bright = picture("p.exr");
    for (OIIO::ImageBuf::ConstIterator<float> p(bright); !p.done(); ++p) {
        ASSERT_TRUE(IsFinite(R3(p[0], p[1], p[2])));
        limited += std::max({p[0], p[1], p[2]}) == 0.25f * std::numeric_limits<float>::max();
    }
    EXPECT_EQ(limited, overflowed);
    EXPECT_GT(limited, 600);

    // So do the sums of layers.
    const Outcome albedo =
        run("render scene.toml -o a.exr --samples 4 --aov albedo --set "
            "shader.body.diffuseColor=[3e38,0,0]");
    EXPECT_EQ(albedo.status, 0);
    EXPECT_THAT(albedo.err, HasSubstr("add up to more than a number holds"));
    const OIIO::ImageBuf layers = picture("a.exr");
    for (OIIO::ImageBuf::ConstIterator<float> p(layers); !p.done(); ++p)
        for (int c = 0; c < layers.nchannels(); ++c) ASSERT_TRUE(std::isfinite(p[c]));
}
