// The command as people use it: what it prints where, how it ends, and what it leaves behind.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace oxbeam::test;

TEST_F(Command, MistakesAreToldAndLeaveAllFilesAlone) {
    writeFile("old.png", "an old picture");
    writeBrokenPackage();
    fs::create_directory(scratch() / "folder.png");
    fs::create_symlink("/proc/self/mem", scratch() / "broken.toml");  // cannot be read where it begins
    fs::create_symlink("loop.toml", scratch() / "loop.toml");
    makePicture();
    expectTranscript("usage.txt");
    expectTranscript("settings.txt");
}

TEST_F(Command, CheckRendersNothing) {
    const Outcome good = run("check --set light.0.intensity=[1,1,1] scene.toml");  // it takes one value
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "scene.toml: no errors; 170 triangles, 1 light\n");
    EXPECT_EQ(good.err, "");
    for (const auto& entry : fs::directory_iterator(scratch()))
        EXPECT_THAT(entry.path().extension(), AnyOf(".toml", ".out", ".err"));
}

TEST_F(Command, DescribeTellsWhatIsInForceAndXmlWhatTheObjectSays) {
    const Outcome xml = run("describe --xml KelDbgObjectID");
    EXPECT_EQ(xml.out, registry().find("KelDbgObjectID")->make()->GetShaderInfo());
    // The document advertises an ambient intensity of 0.1.
    const Outcome words = run("describe KelPhong");
    EXPECT_EQ(words.status, 0);
    EXPECT_EQ(words.err, "");
    EXPECT_THAT(words.out, StartsWith("KelPhong, a surface: Kel-based Phong Shader.\nfrom "));
    EXPECT_THAT(words.out, ContainsRegex("\n  ambientIntensity  +float, default 0\\.2, 0 to 1\n +also: ambient\n"));
    for (const std::string& name : registry().find("KelPhong")->parameterNames())
        EXPECT_THAT(words.out, ContainsRegex("[ ,]" + name + "[ ,\n]"));
}

TEST_F(Command, RenderWritesThePictureAndNothingToStandardOutput) {
    fs::create_directory(scratch() / "Oxbeam");  // as the host calls its own package
    const Outcome outcome = run("render scene.toml -o p.png");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("wrote p.png (40 x 30)\n"));
    EXPECT_GT(pixel("p.png", 20, 14).x, pixel("p.png", 20, 14).z);
    EXPECT_EQ(pixel("p.png", 0, 0), Black);

    const Outcome quiet = run("render scene.toml -o q.png --quiet --threads 1");
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_TRUE(contentOf("q.png") == contentOf("p.png"));
}

TEST_F(Command, StatisticsCountWhatWasDone) {
    const Outcome outcome = run("render scene.toml -o p.png --size 50x20 --threads 2 --samples 3 --stats s.json");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto stats = nlohmann::json::parse(contentOf("s.json"));
    const auto& rays = stats.at("rays");
    EXPECT_EQ(rays.at("primary"), 50 * 20 * 3);
    EXPECT_GT(rays.at("shadow"), 1000);
    EXPECT_GT(rays.at("reflection"), 1000);
    EXPECT_EQ(stats.at("triangles"), 170);
    EXPECT_EQ(stats.at("threads"), 2);
    EXPECT_EQ(stats.at("structure").at("in_whole"), 2);
    EXPECT_EQ(stats.at("structure").at("two_levels"), false);
    EXPECT_EQ(stats.at("passes"), 3);
    EXPECT_EQ(stats.at("complete"), true);
    EXPECT_GT(stats.at("peak_bytes"), 1 << 20);
}

TEST_F(Command, AnInterruptedRenderingSavesWhatThereIs) {
    for (const auto& [signal, status] : {std::pair(SIGINT, 130), std::pair(SIGTERM, 6), std::pair(SIGHUP, 6)}) {
        fs::remove(scratch() / "p.exr");
        const Process process("render scene.toml -o p.exr --samples 1000000 --stats s.json");
        ASSERT_TRUE(process.hasSaid("built in"));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        process.signal(signal);
        const Outcome outcome = process.finish();
        EXPECT_EQ(outcome.status, status) << outcome.err;
        EXPECT_THAT(outcome.err, ContainsRegex("\nstopped after [0-9]+ of 1000000 passes in .*\nwrote p\\.exr"));
        EXPECT_GT(pixel("p.exr", 20, 14).x, 0.0f);
        EXPECT_EQ(nlohmann::json::parse(contentOf("s.json")).at("complete"), false);
    }
}
