// The command as people use it: what it prints where, how it ends, and what it leaves behind.
#include "Tests/Support/TestWorld.h"

#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

using namespace oxbeam;
using namespace oxbeam::test;
namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string contentOf(const fs::path& file) {
    std::ifstream stream(scratch() / file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, const std::string& text) { std::ofstream(scratch() / file) << text; }

struct Outcome {
    int status;  // of the exit, or the negative signal
    std::string out, err;
};

// The command at work in the scratch folder; arguments are separated by blanks.
class Process {
public:
    explicit Process(const std::string& arguments) {
        static int count = 0;
        m_name = std::to_string(++count);
        std::istringstream stream("oxbeam " + arguments);
        std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        const std::string folder = scratch().string(), out = m_name + ".out", err = m_name + ".err";
        m_child = fork();
        if (m_child != 0) return;
        const auto redirect = [](const std::string& file, int to) {
            return dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), to) == to;
        };
        if (chdir(folder.c_str()) == 0 && redirect(out, 1) && redirect(err, 2)) execv(OXBEAM_COMMAND, argv.data());
        _exit(127);
    }

    std::string errors() const { return contentOf(m_name + ".err"); }
    void signal(int number) const { kill(m_child, number); }
    Outcome finish() const {
        int status = 0;
        EXPECT_EQ(waitpid(m_child, &status, 0), m_child);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contentOf(m_name + ".out"), errors()};
    }

private:
    std::string m_name;
    pid_t m_child;
};

Outcome run(const std::string& arguments) { return Process(arguments).finish(); }

struct Picture {
    int width = 0, height = 0;
    std::vector<float> values;

    R3 at(int x, int y) const {
        const float* v = &values[3 * static_cast<std::size_t>(y * width + x)];
        return {v[0], v[1], v[2]};
    }
};

Picture read(const fs::path& file) {
    const auto input = OIIO::ImageInput::open((scratch() / file).string());
    if (!input) throw std::runtime_error(OIIO::geterror());
    Picture picture{input->spec().width, input->spec().height, {}};
    picture.values.resize(3 * static_cast<std::size_t>(picture.width * picture.height));
    EXPECT_TRUE(input->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, picture.values.data()));
    return picture;
}

// A sphere of 192 triangles over a floor of two, of which a light throws the shadow.
const char* const Scene = R"(
[image]
width = 40
height = 30
samples = 2
[render]
receiveShadow = true
[camera]
position = [0, 1, 5]
lookAt = [0, 0, 0]
[shader.body]
object = "KelPhong"
diffuseColor = [0.8, 0.4, 0.2]
reflective = [0.5, 0.5, 0.5]
[[light]]
object = "KelPointLight"
position = [2, 3, 4]
intensity = [20, 20, 20]
[[mesh]]
shape = "sphere"
segments = 14
shader = "body"
[[mesh]]
shape = "plane"
shader = "body"
scale = 4
translate = [0, -1, 0]
)";

class Command : public testing::Test {
protected:
    void SetUp() override {
        for (const auto& entry : fs::directory_iterator(scratch())) fs::remove_all(entry);
        write("scene.toml", Scene);
    }
};

}  // namespace

// ---- Failing

TEST_F(Command, EveryFailureHasItsStatusAndItsMessageAndSparesTheOldPicture) {
    write("old.png", "an old picture");
    write("bad.toml", "[shader.body]\nobject = \"KelPhong\"\nshinyness = 64\n");
    fs::create_directory(scratch() / "packages");
    write("packages/libBroken.so", "no library");
    fs::create_directory(scratch() / "folder.png");
    const std::string render = "render scene.toml -o old.png ", error = "oxbeam: error: ";
    struct Case {
        std::string arguments;
        int status;
        std::string message;  // all of standard error
    };
    const std::vector<Case> cases = {
        {render + "--frobnicate", 2,
         "The following argument was not expected: --frobnicate\nRun with --help for more information.\n"},
        {render + "--size 4294967306x10", 2,
         error + "--size 4294967306x10: expected WIDTHxHEIGHT, each from 1 to 65536\n"},
        {render + "--crop 0,0,41,30", 2,
         error + "--crop 0,0,41,30: expected left,top,right,bottom within the picture of 40 x 30 pixels\n"},
        {render + "--crop 4294967296,0,9,9", 2,
         error + "--crop 4294967296,0,9,9: expected left,top,right,bottom within the picture of 40 x 30 pixels\n"},
        {render + "--threads 49", 2, error + "--threads 49: expected 1 to 48; packages keep records for no more\n"},
        {render + "--samples 0", 2, error + "--samples 0: expected 1 to 1000000\n"},
        {render + "--isa mmx --quiet", 2,
         error + "unknown instruction set 'mmx'; expected one of sse2, sse4.2, avx, avx2, avx512\n"},
        {"render scene.toml -o old.gif", 2,
         error + "cannot tell a picture format from 'old.gif'; expected a name that ends in .png, .jpg, .exr or "
                 ".hdr\n"},
        {"describe KelPhnog", 2, error + "no package offers an object 'KelPhnog'; did you mean 'KelPhong'?\n"},
        {"list --package-path nowhere", 2, error + "--package-path nowhere: no such directory\n"},
        {"render bad.toml -o old.png", 3,
         "bad.toml:3:1: error: shader 'body' (KelPhong) has no parameter 'shinyness'; did you mean 'shininess'?\n"},
        {render + "--set shader.bodi.shininess=3", 3,
         "--set shader.bodi.shininess=3:1:8: error: the scene has no shader.bodi; did you mean 'body'?\n"},
        {"render none.toml -o old.png", 5, error + "none.toml: no such scene file\n"},
        {"render scene.toml -o nowhere/p.png", 5,
         error + "cannot write 'nowhere/p.png': there is no directory 'nowhere'\n"},
        {"render scene.toml -o folder.png", 5,
         error + "cannot write 'folder.png': it exists and is not a regular file\n"},
        {render + "--stats nowhere/s.json", 5, error + "cannot write 'nowhere/s.json': there is no such directory\n"},
    };
    constexpr std::size_t atOnce = 3;  // a start takes a while, most of it in the loader
    for (std::size_t first = 0; first < cases.size(); first += atOnce) {
        const std::size_t end = std::min(first + atOnce, cases.size());
        std::vector<Process> processes;
        for (std::size_t i = first; i < end; ++i) processes.emplace_back(cases[i].arguments);
        for (std::size_t i = first; i < end; ++i) {
            SCOPED_TRACE(cases[i].arguments);
            const Outcome outcome = processes[i - first].finish();
            EXPECT_EQ(outcome.status, cases[i].status);
            EXPECT_EQ(outcome.err, cases[i].message);
            EXPECT_EQ(outcome.out, "");
        }
        ASSERT_EQ(contentOf("old.png"), "an old picture");
    }
    // The loader's words are its own.
    const Outcome outcome = run("list --package-path packages");
    EXPECT_EQ(outcome.status, 4);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err,
                ContainsRegex("^oxbeam: error: .*packages/libBroken\\.so: this package does not load: .*\n$"));
}

TEST_F(Command, CheckReportsAllErrorsAtOnceAndRendersNothing) {
    write("many.toml", R"([shader.body]
object = "KelPhong"
diffuseColor = [1, 1]
[[light]]
object = "KelPointLigt"
[[mesh]]
shape = "cube"
shader = "body"
)");
    const Outcome outcome = run("check many.toml");
    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 3);
    for (const char* place : {"many.toml:3:16: error: ", "many.toml:5:10: error: ", "many.toml:7:9: error: "})
        EXPECT_THAT(outcome.err, HasSubstr(place));
    const Outcome good = run("check scene.toml --set light.0.intensity=[1,1,1]");
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, "scene.toml: no errors; 170 triangles, 1 lights\n");
    EXPECT_EQ(good.err, "");
    for (const auto& entry : fs::directory_iterator(scratch()))
        EXPECT_THAT(entry.path().extension(), testing::AnyOf(".toml", ".out", ".err"));
}

// ---- Asking for objects

TEST_F(Command, ListKnowsEveryObject) {
    const Outcome list = run("list");
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.err, "");
    std::istringstream lines(list.out);
    for (const ObjectClass* object : registry().all()) {
        std::string line;
        ASSERT_TRUE(std::getline(lines, line)) << object->name;
        EXPECT_THAT(line, StartsWith(object->name + ' '));
        EXPECT_THAT(line, HasSubstr(std::string(" ") + kindName(object->kind) + ' '));
    }
    EXPECT_TRUE(lines.peek() == EOF) << "objects that are not there";
}

TEST_F(Command, DescribeTellsWhatIsInForceAndXmlWhatTheObjectSays) {
    for (const char* name : {"Kel", "KelDbgObjectID", "OxSpotLight"}) {
        const Outcome xml = run(std::string("describe --xml ") + name);
        EXPECT_EQ(xml.status, 0);
        EXPECT_EQ(xml.out, registry().find(name)->make()->GetShaderInfo());
    }
    // The document advertises an ambient intensity of 0.1.
    const Outcome words = run("describe KelPhong");
    EXPECT_EQ(words.status, 0);
    EXPECT_EQ(words.err, "");
    EXPECT_THAT(words.out, StartsWith("KelPhong, a surface: Kel-based Phong Shader.\nfrom "));
    EXPECT_THAT(words.out, ContainsRegex("\n  ambientIntensity  +float, default 0\\.2, 0 to 1\n +also: ambient\n"));
    EXPECT_THAT(words.out,
                ContainsRegex("\n  diffuseColor  +3 floats \\(color\\), default 1 1 1\n +also: diffuse, rd\n"));
    EXPECT_THAT(words.out, ContainsRegex("\n  texture  +texture, default none\n"));
    for (const std::string& name : registry().find("KelPhong")->parameterNames())
        EXPECT_THAT(words.out, ContainsRegex("[ ,]" + name + "[ ,\n]"));
}

// ---- Rendering

TEST_F(Command, RenderWritesThePictureAndNothingToStandardOutput) {
    const Outcome outcome = run("render scene.toml -o p.png");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("wrote p.png (40 x 30)\n"));
    const Picture first = read("p.png");
    EXPECT_EQ(first.width, 40);
    EXPECT_EQ(first.height, 30);
    EXPECT_GT(first.at(20, 14).x, first.at(20, 14).z);
    EXPECT_EQ(first.at(0, 0), Black);

    const Outcome quiet = run("render scene.toml -o q.png --quiet --threads 1");
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_TRUE(contentOf("q.png") == contentOf("p.png"));
}

TEST_F(Command, CropsHoldThePixelsOfTheWholePicture) {
    ASSERT_EQ(run("render scene.toml -o whole.exr").status, 0);
    ASSERT_EQ(run("render scene.toml -o part.exr --crop 7,9,29,25").status, 0);
    const Picture whole = read("whole.exr"), part = read("part.exr");
    ASSERT_EQ(part.width, 22);
    ASSERT_EQ(part.height, 16);
    for (int y = 0; y < part.height; ++y)
        for (int x = 0; x < part.width; ++x) ASSERT_EQ(part.at(x, y), whole.at(x + 7, y + 9)) << x << ' ' << y;
}

TEST_F(Command, SettingsAreLaidOverTheScene) {
    const std::string dark =
        " --set light.0.intensity=[0,0,0] --set shader.body.reflective=[0,0,0]"
        " --set shader.body.ambient=0";
    ASSERT_EQ(run("render scene.toml -o p.exr --set shader.body.emissiveColor=[0.25,0.5,4]" + dark).status, 0);
    EXPECT_EQ(read("p.exr").at(20, 15), R3(0.25f, 0.5f, 4));
    EXPECT_EQ(read("p.exr").at(0, 0), Black);
}

TEST_F(Command, StatisticsCountWhatWasDone) {
    const Outcome outcome = run("render scene.toml -o p.png --size 50x20 --threads 2 --samples 3 --stats s.json");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    const auto stats = nlohmann::json::parse(contentOf("s.json"));
    for (const char* time : {"load_s", "build_s", "render_s", "write_s"}) {
        EXPECT_GE(stats.at(time), 0.0) << time;
        EXPECT_LT(stats.at(time), 60.0) << time;
    }
    const auto& rays = stats.at("rays");
    EXPECT_EQ(rays.at("primary"), 50 * 20 * 3);
    EXPECT_GT(rays.at("shadow"), 1000);
    EXPECT_GT(rays.at("reflection"), 1000);
    EXPECT_EQ(rays.at("refraction"), 0);
    EXPECT_EQ(rays.at("transparency"), 0);
    EXPECT_EQ(rays.at("total"), rays.at("primary").get<int>() + rays.at("shadow").get<int>() +
                                    rays.at("reflection").get<int>() + rays.at("other").get<int>());
    EXPECT_EQ(stats.at("triangles"), 170);
    EXPECT_EQ(stats.at("lights"), 1);
    EXPECT_EQ(stats.at("threads"), 2);
    EXPECT_EQ(stats.at("passes"), 3);
    EXPECT_EQ(stats.at("complete"), true);
    EXPECT_GT(stats.at("peak_bytes"), 1 << 20);
    for (const char* none : {"dropped_triangles", "refused_rays", "bad_samples"}) EXPECT_EQ(stats.at(none), 0) << none;
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
        EXPECT_GT(read("p.exr").at(20, 14).x, 0.0f);
        EXPECT_EQ(nlohmann::json::parse(contentOf("s.json")).at("complete"), false);
    }
}
