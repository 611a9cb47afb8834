// Models in place of scene files.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"
#include "Tests/Support/Processes.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

using namespace oxbeam::test;

TEST_F(Command, AModelIsRenderedAsItsSceneIs) {
    const std::string model =
        (writeGltf("model.gltf", R"("name": "skin", "pbrMetallicRoughness": {"metallicFactor": 0,
 "baseColorTexture": {"index": 0}})",
                   R"(, "textures": [{"source": 0}], "images": [{"uri": "wood.png"}],
 "cameras": [{"type": "perspective", "name": "eye", "perspective": {"yfov": 0.9, "znear": 0.1}}])",
                   R"(, "children": [1]}, {"name": "eye", "camera": 0, "translation": [0, 0, 3])"))
            .filename();
    writeImage(scratch() / "wood.png", 2, 1, {White, Color(0.8f, 0.1f, 0.1f)});
    fs::create_directory(scratch() / "elsewhere");
    for (const char* options :
         {"", "--view top --up x --background 0.2,0.9,0.4", "--up -z --view iso",
          "--shader KelDiffuse --ground none --background transparent",
          "--color 0.2,0.4,0.6 --texture wood.png --environment wood.png --rotate-environment 70"}) {
        const std::string rest = std::string(" --size 20x15 ") + options;
        ASSERT_EQ(run("render " + model + " -q --samples 2 -o one.png" + rest).status, 0);
        ASSERT_EQ(run("scene " + model + " -o elsewhere/made.toml" + rest).status, 0);
        const Outcome again = run("render elsewhere/made.toml -q --samples 2 -o two.png");
        ASSERT_EQ(again.status, 0) << again.err;
        EXPECT_EQ(contentOf("one.png"), contentOf("two.png")) << options;
    }
    EXPECT_THAT(run("scene model.gltf --azimuth 90 --elevation 0").out,
                ContainsRegex("\nposition = .[1-9][0-9.]*, 0.0, 0.0.\n(.*\n)*fov = 30"));
    EXPECT_THAT(run("scene model.gltf --view back --zoom 2").out,
                ContainsRegex("\nposition = .-?[0-9.e-]+, -?[0-9.e-]+, -[1-9][0-9.]*.\n(.*\n)*fov = 15.26"));
    EXPECT_EQ(run("render " + model + " -q --samples 1 -o eye.png --size 40x30 --camera eye").status, 0);
    EXPECT_GT(pixel("eye.png", 15, 15).y, 1.5f * pixel("eye.png", 25, 15).y)
        << "the file's camera looks straight at the middles of the two texels";
    EXPECT_EQ(run("render " + model + " -q --samples 1 -o file.png --size 40x30 --camera file").status, 0);
    EXPECT_EQ(contentOf("file.png"), contentOf("eye.png"));
}

TEST_F(Command, EveryThingThatAMaterialCanSayIsUnderstood) {
    const std::string model = SCENES "/assets/materials.glb";
    EXPECT_EQ(run("render " + model + " -q --samples 1 --size 60x40 -o all.png").err, "");
    ASSERT_EQ(run("scene " + model + " -o all.toml").status, 0);
    const std::string text = contentOf("all.toml");
    const auto count = [&](const std::string& line) {
        std::size_t found = 0, at = 0;
        for (; (at = text.find('\n' + line + '\n', at)) != std::string::npos; ++at) ++found;
        return found;
    };
    EXPECT_EQ(count("object = \"KelGlass\""), 3u);
    EXPECT_EQ(count("object = \"KelCarPaint\""), 1u);
    EXPECT_EQ(count("object = \"KelPhong\""), 2u) << "the gold, and the ground";
    EXPECT_EQ(count("object = \"KelFresnelPhong\""), 10u);
    for (const char* line :
         {"diffuseColor = [0.7, 0.06, 0.05]", "transparent = [0.6, 0.6, 0.6]", "texture = \"blended\"",
          "alpha = \"ignore\"", "alpha = \"mask\"", "vertexColors = true", "bump = \"normal\"\nbumpScale = 0.8",
          "roughness = 0.4", "roughness = 0.03", "bindex = 1.45", "refractionFilter = [0.2, 0.7, 0.3]",
          "oneSidedGlass = true", "emissiveColor = [0.7, 0.35, 0.07]"})
        EXPECT_EQ(count(line), 1u) << line;
}

TEST_F(Command, ASceneThatNamesAModelHasThePictureOfTheOneThatWritesItOut) {
    const std::string options = " --size 60x40 --view front -o ";
    for (const std::string model : {"materials.glb", "suzanne.glb"}) {
        ASSERT_EQ(run("scene " SCENES "/assets/" + model + options + "long.toml").status, 0);
        ASSERT_EQ(run("scene " SCENES "/assets/" + model + " --keep-materials" + options + "short.toml").status, 0);
        EXPECT_LT(contentOf("short.toml").size(), contentOf("long.toml").size());
        for (const std::string name : {"long", "short"})
            ASSERT_EQ(run("render " + name + ".toml -q --samples 2 -o " + name + ".png").err, "");
        EXPECT_EQ(contentOf("long.png"), contentOf("short.png")) << model;
    }
}

// Two squares side by side, of the same file: what stands where has the colour that the scene gives it.
TEST_F(Command, MaterialsOfAModelAreReplacedAndSet) {
    writeGltf("model.gltf", R"("name": "skin", "pbrMetallicRoughness": {"metallicFactor": 0})");
    const std::string scene =
                          "[image]\nwidth = 40\nheight = 20\nsamples = 1\n[camera]\nposition = [0, 0, 5]\n"
                          "lookAt = [0, 0, 0]\n[shader.mine]\nobject = 'KelPhong'\ndiffuseColor = [0, 0, 0]\n"
                          "emissiveColor = [0, 0, 1]\n",
                      left = "[[model]]\nfile = 'model.gltf'\ntranslate = [-1, 0, 0]\n",
                      right = "[[model]]\nfile = 'model.gltf'\ntranslate = [1, 0, 0]\n";
    writeFile("both.toml", scene + left + "shaders = { skin = 'mine' }\n" + right +
                               "[model.shader.skin]\nemissiveColor = [0, 1, 0]\n");
    const auto colors = [](const std::string& options) {
        const Outcome outcome = run("render both.toml -q -o both.exr " + options);
        EXPECT_EQ(outcome.err, "");
        return std::pair(pixel("both.exr", 15, 10), pixel("both.exr", 24, 10));
    };
    const auto [replaced, set] = colors("");
    EXPECT_EQ(replaced, R3(0, 0, 1));
    EXPECT_GT(set.y, 0.95f);
    EXPECT_GT(colors("--set model.1.shader.skin.emissiveColor=[3,0,0]").second.x, 2.9f);
    EXPECT_GT(colors("--set shader.*.emissiveColor=[0,0,4]").second.z, 3.9f);
    EXPECT_EQ(colors("--set shader.*.emissiveColor=[0,0,4]").first.z, 4.0f);
    EXPECT_THAT(run("complete both.toml").out, HasSubstr("--set model.1.shader.skin.emissiveColor=\n"));
}

TEST_F(Command, ASweepTakesAModel) {
    writeGltf("model.gltf", R"("name": "skin", "pbrMetallicRoughness": {"metallicFactor": 0})");
    const std::string sweep =
        "sweep model.gltf --set shader.skin.diffuseColor=[1,0,0]..[0,0,1]/2 --size 160x120 --samples 1 -o ";
    EXPECT_EQ(run(sweep + "sheet.png").status, 0);
    EXPECT_EQ(run(sweep + "turned.png --up z --import-limit 5").status, 0);
    EXPECT_NE(contentOf("turned.png"), contentOf("sheet.png"));
    const R3 first = pixel("sheet.png", 12 + 80, 12 + 60), second = pixel("sheet.png", 2 * 12 + 160 + 80, 12 + 60);
    EXPECT_GT(first.x, 2 * first.z);
    EXPECT_GT(second.z, 2 * second.x);
}

TEST_F(Command, MistakesWithModelsAreToldAndLeaveAllFilesAlone) {
    writeFile("old.png", "an old picture");
    writeGltf("model.gltf", R"("name": "skin")");
    writeGltf("two.gltf", R"("name": "skin")",
              R"(, "cameras": [{"type": "perspective", "name": "eye", "perspective": {"yfov": 0.9, "znear": 0.1}},
 {"type": "perspective", "name": "ear", "perspective": {"yfov": 0.5, "znear": 0.1}}])",
              R"(, "children": [1, 2]}, {"name": "eye", "camera": 0, "translation": [9, 0, 3]},
 {"name": "ear", "camera": 1, "translation": [0, 0, 7])");
    expectTranscript("models.txt");
    mkfifo((scratch() / "pipe.bin").c_str(), 0600);
    fs::create_directory(scratch() / "inner");
    writeFile("secret.bin", std::string(92, '\0'));
    expectTranscript("broken-models.txt");
}

TEST_F(Command, NamesAndValuesOfAModelStandBesideTheScenesOwn) {
    writeImage(scratch() / "t.png", 1, 1, {White});
    writeGltf("named.gltf", R"("name": "surroundings", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}})",
              R"(, "images": [{"uri": "t.png"}], "textures": [{"source": 0}],
"cameras": [{"type": "perspective", "perspective": {"yfov": 0.8, "znear": 0.1}}])",
              R"(, "camera": 0, "name": "fov")");
    EXPECT_EQ(run("scene named.gltf -o named.toml").status, 0);
    EXPECT_THAT(contentOf("named.toml"), HasSubstr("[camera.fov-2]"));
    // Of what the file says, another object takes what it knows: not the Fresnel surface's index.
    writeFile("other.toml", "[[model]]\nfile = 'named.gltf'\n[model.shader.surroundings]\nobject = 'KelDiffuse'\n");
    for (const std::string scene : {"named.toml", "other.toml"}) {
        const Outcome checked = run("check " + scene);
        EXPECT_EQ(checked.status, 0) << checked.err;
        EXPECT_EQ(checked.err, "") << scene;
    }
}

namespace {

// The processes that the command has started, and the one that reads a file for one of them; once that is there.
std::vector<pid_t> readersOf(const Process& command) {
    for (int i = 0; i < 2000; ++i) {
        std::vector<pid_t> readers = childrenOf(command.id());
        for (const pid_t waits : readers)
            if (const pid_t reads = childOf(waits);
                reads && lineOf(procOf(reads) / "status", "State").find("running") != std::string::npos) {
                readers.push_back(reads);
                return readers;
            }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "nothing is read";
    return {};
}

}  // namespace

// Files of nothing but zeros, which keep their readers busy for many seconds.
TEST_F(Command, ASignalEndsTheReadingOfAFileAtOnce) {
    writeFile("zeros.toml", "[texture.t]\nfile = 'zeros.exr'\n");
    for (const char* zeros : {"zeros.obj", "zeros.exr"}) {
        writeFile(zeros, "");
        fs::resize_file(scratch() / zeros, 2'000'000'000);
    }
    using Clock = std::chrono::steady_clock;
    const auto stopped = [](const char* what) { return "oxbeam: stopped while reading " + std::string(what) + '\n'; };
    const struct {
        const char* scene;
        int signal, status;
        std::string said;
    } cases[] = {
        {"zeros.obj", SIGINT, 130, stopped("model 'zeros.obj'")},
        {"zeros.obj", SIGTERM, 6, stopped("model 'zeros.obj'")},
        {"zeros.obj", SIGKILL, -SIGKILL, ""},
        {"zeros.toml", SIGINT, 130, stopped("texture 'zeros.exr'")},
        {"zeros.toml", SIGKILL, -SIGKILL, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.scene) + ", signal " + std::to_string(c.signal));
        const Process process(std::string("render ") + c.scene + " -q -o picture.png");
        const std::vector<pid_t> readers = readersOf(process);
        const auto begin = Clock::now();
        process.signal(c.signal);
        const Outcome outcome = process.finish();
        while (!std::all_of(readers.begin(), readers.end(), isGone) &&
               Clock::now() - begin < std::chrono::seconds(10)) {
        }
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1));
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(withoutFolder(outcome.err), c.said);
        EXPECT_FALSE(fs::exists(scratch() / "picture.png"));
    }
}
