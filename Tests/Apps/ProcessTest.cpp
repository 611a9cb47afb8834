// The command as a process: what it loads, how it is stopped, what it says, and what becomes of it where the machine gives
// out.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>

using namespace oxbeam;
using namespace oxbeam::test;
namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using Clock = std::chrono::steady_clock;

namespace {

bool hasSaid(const Process& process, const std::string& what) {
    for (int i = 0; i < 3000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (process.errors().find(what) != std::string::npos) return true;
    return false;
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

}  // namespace

// ---- What is loaded

// Were the working folder looked in, this would end every program with status 99 before it begins.
TEST_F(Command, LibrariesInTheWorkingFolderAreNotLoaded) {
    writeFile("planted.c", "#include <unistd.h>\n__attribute__((constructor)) static void run(void) { _exit(99); }\n");
    ASSERT_EQ(shell("cc -shared -fPIC planted.c -o libfmt.so.9").status, 0);
    for (const char* name : {"libstdc++.so.6", "libembree3.so.3", "libtbb.so.12", "libOpenImageIO.so.2.4",
                             "liboxbeam.so", "libKel.so", "libassimp.so.5", "libpugixml.so.1"})
        fs::copy_file(scratch() / "libfmt.so.9", scratch() / name);
    EXPECT_EQ(run("--version").status, 0);
    writeImage(scratch() / "wood.png", 2, 1, {Black, White});
    writeFile("scene.toml", std::string(SceneText) + "[texture.wood]\nfile = \"wood.png\"\n");
    const Outcome outcome = run("render scene.toml -o p.png");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
}

// ---- Being stopped

TEST_F(Command, AGoneTerminalStopsLikeATerminationAndThePictureIsSaved) {
    const std::string render = "render scene.toml -o p.png --samples 1000000";
    const Process hungUp(render);
    ASSERT_TRUE(hasSaid(hungUp, "built in"));
    hungUp.signal(SIGHUP);
    const Outcome outcome = hungUp.finish();
    EXPECT_EQ(outcome.status, 6) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("wrote p.png"));

    // Whoever reads the messages goes before the last ones are written.
    fs::remove(scratch() / "p.png");
    EXPECT_EQ(
        shell("{ $oxbeam render scene.toml -o p.png --time 2; echo $? > status; } 2>&1 | sed '/built in/q'").status, 0);
    EXPECT_EQ(contentOf("status"), "0\n");
    EXPECT_TRUE(fs::exists(scratch() / "p.png"));
    // Whoever reads nothing at all: a message before the rendering is the last one.
    EXPECT_EQ(shell("{ sleep 0.5; $oxbeam " + render + "; echo $? > status; } 2>&1 | true").status, 0);
    EXPECT_EQ(contentOf("status"), "6\n");

    // Without standard error, and under nohup, it goes on.
    EXPECT_EQ(shell("$oxbeam render scene.toml -o q.png 2>&-").status, 0);
    EXPECT_TRUE(fs::exists(scratch() / "q.png"));
    const Outcome ignored =
        shell("trap '' HUP; $oxbeam render scene.toml -o r.png --time 2 & sleep 1; kill -HUP $!; wait $!");
    EXPECT_EQ(ignored.status, 0) << ignored.err;
}

TEST_F(Command, AClosedStandardOutputIsAnErrorOfOutput) {
    const Outcome outcome = shell("{ sleep 0.1; $oxbeam describe --format json; echo $? > status; } | true");
    EXPECT_EQ(contentOf("status"), "5\n") << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("cannot write to standard output"));
}

// A reader that is stopped hangs like a file system that has gone away.
TEST_F(Command, ASignalEndsWhatHangsWithinTheGrace) {
    writeImage(scratch() / "wood.png", 2, 1, {Black, White});
    writeFile("scene.toml", std::string(SceneText) + "[texture.wood]\nfile = \"wood.png\"\n");
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

// ---- What cannot be done

// What machines without threads or memory do is tried by tools/try-shortage; here, that what they lack is named.
TEST_F(Command, LackOfMemoryIsTheMachinesAndNoPictureIsMadeWithoutItsTextures) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers reserve terabytes of addresses";
#endif
    const std::string render =
        "exec $oxbeam render '" SCENES "/assets/materials.glb' -q --size 32x32 --samples 1 -o p.png";
    unsigned refused = 0;
    for (const int megabytes : {500, 600, 700}) {
        fs::remove(scratch() / "p.png");
        const Outcome outcome = shell("ulimit -v " + std::to_string(1000 * megabytes) + "; " + render);
        SCOPED_TRACE(outcome.err);
        EXPECT_THAT(outcome.status, testing::AnyOf(0, 5, 127));
        EXPECT_EQ(outcome.status == 0, fs::exists(scratch() / "p.png"));
        EXPECT_THAT(outcome.err, Not(HasSubstr("rendered without it")));
        if (outcome.status == 5) {
            EXPECT_THAT(outcome.err, ContainsRegex("^oxbeam: error: [^\n]*memory[^\n]*\n$"));
        }
        refused += outcome.status != 0;
    }
    EXPECT_GT(refused, 0u);
}

TEST_F(Command, SumsThatOverflowAreLimitedAndWarnedOf) {
    writeFile("bright.toml", std::string(SceneText) + "[environment]\nbackground = [3.4e38, 3.4e38, 3.4e38]\n");
    const Outcome outcome = run("render bright.toml -o p.exr --samples 4 --stats s.json");
    EXPECT_EQ(outcome.status, 0);
    const auto stats = nlohmann::json::parse(contentOf("s.json"));
    const int overflowed = stats.at("overflowed_pixels");
    EXPECT_THAT(outcome.err,
                HasSubstr("oxbeam: warning: the samples of " + std::to_string(overflowed) + " pixels add up to more"));
    int limited = 0;
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            const R3 color = pixel("p.exr", x, y);
            ASSERT_TRUE(IsFinite(color)) << x << ' ' << y;
            limited += std::max({color.x, color.y, color.z}) == 0.25f * std::numeric_limits<float>::max();
        }
    EXPECT_EQ(limited, overflowed);
    EXPECT_GT(limited, 600);

    // So do the sums of layers.
    const Outcome albedo =
        run("render scene.toml -o a.exr --samples 4 --aov albedo --set "
            "shader.body.diffuseColor=[3e38,0,0]");
    EXPECT_EQ(albedo.status, 0);
    EXPECT_THAT(albedo.err, HasSubstr("add up to more than a number holds"));
    OIIO::ImageBuf layers((scratch() / "a.exr").string());
    ASSERT_TRUE(layers.read(0, 0, true, OIIO::TypeDesc::FLOAT));
    for (OIIO::ImageBuf::ConstIterator<float> p(layers); !p.done(); ++p)
        for (int c = 0; c < layers.nchannels(); ++c) ASSERT_TRUE(std::isfinite(p[c]));
}

TEST_F(Command, PlacesAreFinite) {
    for (const char* value : {"[inf,0,0]", "[0,-inf,0]", "[nan,0,0]"}) {
        const std::string light = std::string(SceneText) + "[[light]]\nobject = \"KelPointLight\"\nposition = ";
        writeFile("light.toml", light + value + "\n");
        const Outcome outcome = run("check light.toml");
        EXPECT_EQ(outcome.status, 3);
        EXPECT_THAT(outcome.err, ContainsRegex("^light.toml:[0-9]+:12: error: parameter 'position' of light 1 "
                                               ".KelPointLight. is -?(inf|nan); expected a number within"));
        EXPECT_EQ(run(std::string("check scene.toml --set light.0.position=") + value).status, 3) << value;
        EXPECT_EQ(run(std::string("check scene.toml --set camera.position=") + value).status, 3) << value;
        EXPECT_EQ(run(std::string("check scene.toml --set mesh.0.translate=") + value).status, 3) << value;
    }
}

TEST_F(Command, SettingsReachWhateverAShaderIsCalled) {
    writeFile("named.toml",
              std::string(SceneText) + "[shader.\"it's \\\"this\\\"\"]\nobject = \"KelPhong\"\nshininess = 4\n");
    const Outcome all = run("check named.toml --set shader.*.shininess=64");
    EXPECT_EQ(all.status, 0) << all.err;
    for (const std::string subcommand : {"check scene.toml", "render scene.toml -o p.png"})
        EXPECT_EQ(run(subcommand + " --set shader.body.shininess").status, 2);
}

TEST_F(Command, NoFileSpeaksToTheTerminal) {
    writeFile("scene.toml", "[shader.\"a\u009b31mb\u0085\u202fc\"]\nobject = \"\u009d0;title\u009c\"\n");
    const Outcome outcome = run("check scene.toml");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.err, Not(HasSubstr("\u009b")));
    EXPECT_THAT(outcome.err, Not(HasSubstr("\u009d")));
    EXPECT_THAT(outcome.err, HasSubstr("'a 31mb \u202fc'"));
}
