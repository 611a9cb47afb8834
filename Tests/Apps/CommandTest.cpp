// The command as people use it: what it prints where, how it ends, and what it leaves behind.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace oxbeam;
using namespace oxbeam::test;
namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

// ---- Failing

TEST_F(Command, EveryFailureHasItsStatusAndItsMessageAndSparesTheOldPicture) {
    writeFile("bad.toml", "[shader.body]\nobject = \"KelPhong\"\nshinyness = 64\n");
    fs::create_directory(scratch() / "packages");
    writeFile("packages/libBroken.so", "no library");
    fs::create_directory(scratch() / "folder.png");
    const std::string render = "render scene.toml -o old.png ", error = "oxbeam: error: ";
    expectFailures({
        {render + "--frobnicate", 2,
         error + "oxbeam render has no option '--frobnicate'\nRun with --help for more information.\n"},
        {"render scene.toml --ouptut old.png", 2,
         StartsWith(error + "oxbeam render has no option '--ouptut'; did you "
                            "mean '--output'?\n")},
        {"rendr scene.toml -o old.png", 2,
         StartsWith(error + "there is no subcommand 'rendr'; did you mean 'render'?\n")},
        {render + "--samples four", 2, StartsWith(error + "--samples four: expected a whole number\n")},
        {"sheet none.png -o old.png", 5, error + "none.png: no such file\n"},
        {render + "--size 4294967306x10", 2,
         error + "--size 4294967306x10: expected WIDTHxHEIGHT, each from 1 to 65536\n"},
        {render + "--crop 0,0,41,30", 2,
         error + "--crop 0,0,41,30: expected left,top,right,bottom within the picture of 40 x 30 pixels\n"},
        {render + "--threads 49", 2, error + "--threads 49: expected 1 to 48; packages keep records for no more\n"},
        {"render scene.toml -o old.gif", 2,
         error + "cannot tell a picture format from 'old.gif'; expected a name that ends in .png, .jpg, .tif, .exr or "
                 ".hdr\n"},
        {"render bad.toml -o old.png", 3,
         "bad.toml:3:1: error: shader 'body' (KelPhong) has no parameter 'shinyness'; did you mean 'shininess'?\n"},
        {"render none.toml -o old.png", 5, error + "none.toml: no such file\n"},
        {"render scene.toml -o nowhere/p.png", 5,
         error + "cannot write 'nowhere/p.png': there is no directory 'nowhere'\n"},
        {"render scene.toml -o folder.png", 5,
         error + "cannot write 'folder.png': it exists and is not a regular file\n"},
        {render + "--stats nowhere/s.json", 5,
         error + "cannot write 'nowhere/s.json': there is no directory 'nowhere'\n"},
        {"describe Nobody --package-path packages", 4,
         ContainsRegex(
             "packages/libBroken\\.so: warning: this package does not load: it is no shared library\n"
             "oxbeam: error: no package offers an object 'Nobody'; .*libBroken\\.so, which is broken, may\n$")},
    });
}

TEST_F(Command, ScenesThatShowLittleAreSaidToDoSo) {
    const std::string shader = "[shader.a]\nobject = 'KelPhong'\n", mesh = "[[mesh]]\nshader = 'a'\n",
                      flat = "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n",
                      nothing = "warning: has no triangles; the picture shows nothing but the environment\n";
    writeFile("flat.obj", flat);
    const struct {
        const char* name;
        std::string text;
        int status;
        std::string message;  // all of standard error
    } cases[] = {
        {"empty.toml", "", 0, "empty.toml: " + nothing},
        {"flat.toml", shader + mesh + "file = 'flat.obj'\n", 0,
         "flat.toml: " + nothing + "flat.toml:5:8: warning: mesh 'defaultobject': none of its triangles has an area\n"},
        {"line.obj", flat, 3, "line.obj: error: model 'line.obj' has no triangle that could be seen\n"},
        {"partly.obj", flat + "v 0 1 0\nf 1 2 4\n", 0, ""},
        {"inside.toml", shader + mesh + "shape = 'sphere'\n[camera]\nposition = [0, 0, 0]\nlookAt = [0, 0, 1]\n", 0,
         "oxbeam: warning: the eye, at [0, 0, 0], is inside the surface of 'sphere' and sees its inner side only\n"},
        {"picture.toml", "[texture.a]\nfile = 'empty.toml'\n", 3,
         "picture.toml:2:8: error: texture 'empty.toml' cannot be decoded: it is no picture that can be read: "},
    };
    for (const auto& c : cases) {
        writeFile(c.name, c.text);
        const Outcome outcome = run(std::string("render -q --size 8x8 --samples 1 -o x.png ") + c.name);
        EXPECT_EQ(outcome.status, c.status) << c.name;
        EXPECT_THAT(withoutFolder(outcome.err), StartsWith(c.message)) << c.name;
        EXPECT_EQ(c.message.empty(), outcome.err.empty()) << outcome.err;
    }
}

TEST_F(Command, CheckReportsAllErrorsAtOnceAndRendersNothing) {
    writeFile("many.toml", "[[light]]\nobject = \"KelPointLigt\"\n[[mesh]]\nshape = \"cube\"\n");
    const Outcome outcome = run("check many.toml");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, ContainsRegex("^many.toml:2:10: error: .*\nmany.toml:3:1: .*\nmany.toml:4:9: error: "));
    const Outcome good = run("check scene.toml --set light.0.intensity=[1,1,1]");
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "scene.toml: no errors; 170 triangles, 1 light\n");
    EXPECT_EQ(good.err, "");
    for (const auto& entry : fs::directory_iterator(scratch()))
        EXPECT_THAT(entry.path().extension(), testing::AnyOf(".toml", ".out", ".err"));
}

// ---- Asking for objects

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

// ---- Rendering

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
    EXPECT_EQ(stats.at("passes"), 3);
    EXPECT_EQ(stats.at("complete"), true);
    EXPECT_GT(stats.at("peak_bytes"), 1 << 20);
}

// ---- Being stopped

TEST_F(Command, AnInterruptedRenderingSavesWhatThereIs) {
    for (const auto& [signal, status] : {std::pair(SIGINT, 130), std::pair(SIGTERM, 6)}) {
        fs::remove(scratch() / "p.exr");
        const Process process("render scene.toml -o p.exr --samples 1000000 --stats s.json");
        // It says so when it begins to render.
        for (int i = 0; i < 1000 && process.errors().find("built in") == std::string::npos; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        process.signal(signal);
        const Outcome outcome = process.finish();
        EXPECT_EQ(outcome.status, status) << outcome.err;
        EXPECT_THAT(outcome.err, ContainsRegex("\nstopped after [0-9]+ of 1000000 passes in .*\nwrote p\\.exr"));
        EXPECT_GT(pixel("p.exr", 20, 14).x, 0.0f);
        EXPECT_EQ(nlohmann::json::parse(contentOf("s.json")).at("complete"), false);
    }
}
