// Models in place of scene files.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"
#include "Tests/Support/Processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <thread>

using namespace oxbeam;
using namespace oxbeam::test;
using testing::HasSubstr;
namespace fs = std::filesystem;

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
    for (const char* options : {"", "--view top", "--shader KelDiffuse --ground none", "--up -z --view iso", "--up x",
                                "--color 0.2,0.4,0.6 --texture wood.png --environment wood.png --rotate-environment 70",
                                "--background 0.2,0.9,0.4", "--background transparent"}) {
        const std::string rest = std::string(" --size 40x30 ") + options;
        ASSERT_EQ(run("render " + model + " -q --samples 2 -o one.png" + rest).status, 0);
        ASSERT_EQ(run("scene " + model + " -o elsewhere/made.toml" + rest).status, 0);
        const Outcome again = run("render elsewhere/made.toml -q --samples 2 -o two.png");
        ASSERT_EQ(again.status, 0) << again.err;
        EXPECT_EQ(contentOf("one.png"), contentOf("two.png")) << options;
    }
    EXPECT_EQ(run("render " + model + " -q --samples 1 -o eye.png --size 40x30 --camera eye").status, 0);
    EXPECT_THAT(run("render " + model + " -o eye.png --camera ear").err, HasSubstr("did you mean 'eye'?"));
    EXPECT_GT(pixel("eye.png", 15, 15).y, 1.5f * pixel("eye.png", 25, 15).y)
        << "the file's camera looks straight at the middles of the two texels";
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

// The numbers of the first line that starts like this.
static R3 numbersAfter(const std::string& text, const std::string& key) {
    R3 v;
    const auto at = text.find('\n' + key + " = ");
    const char* start = at == text.npos ? "" : text.c_str() + at + key.size() + 4;
    EXPECT_GE(std::sscanf(start, *start == '[' ? "[%f, %f, %f]" : "%f", &v.x, &v.y, &v.z), 1) << key;
    return v;
}

TEST_F(Command, AViewStandsWhereItsAnglesSay) {
    const std::string box = "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n";
    writeFile("box.obj", box + "f 1 4 3 2\nf 5 6 7 8\nf 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n");
    const float r = std::sqrt(0.5f),
                near = std::cos(32.0f * 3.14159265f / 180.0f) * std::cos(22.0f * 3.14159265f / 180.0f);
    const struct {
        const char* options;
        R3 from;  // where the camera is seen from the middle
    } cases[] = {
        {"--view front", {0, 0, 1}},
        {"--view right", {1, 0, 0}},
        {"--view back", {0, 0, -1}},
        {"--view left", {-1, 0, 0}},
        {"--view top", {0, 1, 0}},
        {"--view bottom", {0, -1, 0}},
        {"--azimuth 45 --elevation 0", {r, 0, r}},
        {"--view back --elevation 45", {0, r, -r}},
        {"--view top --elevation -45", {0, -r, r}},
        {"--azimuth -90 --elevation 90", {0, 1, 0}},
        {"", {std::sqrt(1 - near * near - 0.37460659f * 0.37460659f), 0.37460659f, near}},
    };
    for (const auto& c : cases) {
        const std::string text = run(std::string("scene box.obj --zoom 1 ") + c.options).out;
        const R3 position = numbersAfter(text, "position"),
                 towards = Normalize(position - numbersAfter(text, "lookAt"));
        EXPECT_LT(Length(towards - c.from), 1e-4f) << c.options;
        EXPECT_LT(std::fabs(Dot(numbersAfter(text, "lookUp"), c.from)), 0.75f) << c.options;
        EXPECT_LT(Length(position), 12.0f) << c.options;
    }
    // Twice as large: the tangents of half the angles are as 2 to 1.
    const float once = numbersAfter(run("scene box.obj").out, "fov").x * 3.14159265f / 360.0f;
    const float twice = numbersAfter(run("scene box.obj --zoom 2").out, "fov").x * 3.14159265f / 360.0f;
    EXPECT_NEAR(std::tan(once) / std::tan(twice), 2.0f, 1e-4f);
}

TEST_F(Command, AModelIsFramedUnlessItsCamerasAreAskedFor) {
    const std::string model =
        writeGltf("two.gltf", R"("name": "skin")",
                  R"(, "cameras": [{"type": "perspective", "name": "eye", "perspective": {"yfov": 0.9, "znear": 0.1}},
 {"type": "perspective", "name": "ear", "perspective": {"yfov": 0.5, "znear": 0.1}}])",
                  R"(, "children": [1, 2]}, {"name": "eye", "camera": 0, "translation": [9, 0, 3]},
 {"name": "ear", "camera": 1, "translation": [0, 0, 7])")
            .filename();
    const Outcome framed = run("scene " + model);
    EXPECT_THAT(framed.err, HasSubstr("note: all of it is framed; it has cameras of its own: eye, ear; "
                                      "--camera NAME looks through one, --camera file through the first\n"));
    EXPECT_LT(std::fabs(numbersAfter(framed.out, "position").x), 6.0f);
    for (const auto& [camera, position] : {std::pair("file", R3(9, 0, 3)), std::pair("ear", R3(0, 0, 7))}) {
        const Outcome through = run("scene " + model + " --camera " + camera);
        EXPECT_EQ(numbersAfter(through.out, "position"), position) << camera;
        EXPECT_EQ(through.err.find("note"), std::string::npos);
    }
    EXPECT_THAT(run("scene " + model + " --camera aer").err, HasSubstr("it has eye, ear; did you mean 'ear'?"));
}

// ---- Models in scenes

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
    EXPECT_EQ(run("scene " SCENES "/assets/suzanne.glb --keep-materials --shader KelDiffuse").status, 2);
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
    writeFile("wrong.toml", scene + left +
                                "shaders = { skim = 'mine', skin = 'nime' }\nscael = 2\n[model.shader.skin]\nx = 1\n" +
                                right + "[model.shader.skim]\nshininess = 1\n[model.shadre.skin]\n[model.texture.a]\n");
    EXPECT_EQ(run("check wrong.toml").err,
              "wrong.toml:15:13: error: model 0: its file has no material 'skim'; did you mean 'skin'?\n"
              "wrong.toml:15:35: error: model 0: no shader 'nime' is defined; did you mean 'mine'?\n"
              "wrong.toml:16:1: error: model 0 has no key 'scael'; did you mean 'scale'?\n"
              "wrong.toml:17:15: error: the scene has no model.0.shader.skin\n"
              "wrong.toml:22:15: error: the scene has no model.1.shader.skim; did you mean 'skin'?\n"
              "wrong.toml:24:1: error: model 1: has no table 'shadre'; did you mean 'shader'?\n"
              "wrong.toml:25:1: error: model 1 has no key 'texture'\n");
}

TEST_F(Command, ASweepTakesAModel) {
    const std::string model =
        writeGltf("model.gltf", R"("name": "skin", "pbrMetallicRoughness": {"metallicFactor": 0})").filename();
    const Outcome outcome = run("sweep " + model + " --set shader.skin.diffuseColor=[1,0,0]..[0,0,1]/2 -o sheet.png" +
                                " --size 160x120 --samples 1");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(run("sweep " + model + " --up z --import-limit 5 --set shader.skin.diffuseColor=[1,0,0]..[0,0,1]/2 -o " +
                  "turned.png --size 160x120 --samples 1")
                  .status,
              0);
    EXPECT_NE(contentOf("turned.png"), contentOf("sheet.png"));
    const R3 first = pixel("sheet.png", 12 + 80, 12 + 60), second = pixel("sheet.png", 2 * 12 + 160 + 80, 12 + 60);
    EXPECT_GT(first.x, 2 * first.z);
    EXPECT_GT(second.z, 2 * second.x);
}

TEST_F(Command, OptionsOfModelsAreCheckedFirst) {
    const std::string model = writeGltf("model.gltf", R"("name": "skin")").filename();
    expectFailures({
        {"render scene.toml -o old.png --view top", 2, HasSubstr("--view is for models; 'scene.toml' is a scene file")},
        {"render " + model + " -o old.png --view tpo", 2,
         HasSubstr("expected one of iso, front, left, top, right, back, bottom; did you mean 'top'?")},
        {"render " + model + " -o old.png --background blue", 2,
         HasSubstr("--background blue: expected environment, transparent or r,g,b, each from 0 to 1")},
        {"render " + model + " -o old.png --background 1,0,2", 2, HasSubstr("each from 0 to 1")},
        {"render scene.toml -o old.png --background 1,0,0", 2, HasSubstr("expected one of environment, transparent")},
        {"render scene.toml -o old.png --rotate-environment 9", 2, HasSubstr("--rotate-environment is for models")},
        {"render " + model + " -o old.png --rotate-environment nan", 2, HasSubstr("expected a number of degrees")},
        {"render " + model + " -o old.png --shader KelDifuse", 2, HasSubstr("did you mean 'KelDiffuse'?")},
        {"render " + model + " -o old.png --elevation 91", 2, HasSubstr("--elevation 91: expected -90 to 90 degrees")},
        {"render " + model + " -o old.png --zoom 0", 2, HasSubstr("--zoom 0: expected 0.01 to 100")},
        {"render " + model + " -o old.png --camera file --azimuth 3", 2,
         HasSubstr("--camera file and --azimuth contradict each other")},
        {"render scene.toml -o old.png --zoom 2", 2, HasSubstr("--zoom is for models")},
        {"render " + model + " -o old.png --shader KelCubicEnvironment", 2,
         HasSubstr("that is an environment, not a surface")},
        {"render " + model + " -o old.png --shader KelGlass --color 1,0,0", 2,
         HasSubstr("--color: KelGlass has no 'diffuseColor'")},
        {"render scene.toml -o old.png --color 1,0,0", 2, HasSubstr("--color is for models")},
        {"render " + model + " -o old.png --color 1,2,3", 2,
         HasSubstr("--color 1,2,3: expected red, green and blue from 0 to 1, as in 0.8,0.2,0.1")},
        {"render " + model + " -o old.png --color red", 2, HasSubstr("expected red, green and blue")},
        {"render " + model + " -o old.png --color 1,0,0,0", 2, HasSubstr("expected red, green and blue")},
        {"render " + model + " -o old.png --texture none.png", 5, HasSubstr("none.png: no such")},
        {"render " + model + " -o old.png --texture scene.toml", 3, HasSubstr("scene.toml' cannot be decoded")},
        {"render " + model + " -o old.png --ground grass", 2, HasSubstr("--ground grass: expected shadow or none")},
        {"render " + model + " -o old.png --up w", 2, HasSubstr("--up w: expected one of x, y, z, -x, -y, -z")},
        {"render scene.toml -o old.png --up z", 2, HasSubstr("--up is for models; 'scene.toml' is a scene file")},
        {"scene " + model + " --import-limit 0", 2, HasSubstr("--import-limit 0: expected 1 to 86400 seconds")},
        {"render " + model + " -o old.png --environment none.exr", 5, HasSubstr("none.exr: no such")},
        {"scene scene.toml", 2, HasSubstr("'scene.toml' is a scene file already; expected a model")},
        {"scene " + model + " -o nowhere/x.toml", 5, HasSubstr("there is no directory 'nowhere'")},
    });
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

// The process that reads a file for the one that waits for it, for the command; once it is there.
pid_t readerOf(const Process& command) {
    for (int i = 0; i < 2000; ++i) {
        const pid_t waits = childOf(command.id()), reads = waits ? childOf(waits) : 0;
        if (reads && lineOf(procOf(reads) / "status", "State").find("running") != std::string::npos) return reads;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ADD_FAILURE() << "nothing is read";
    return 0;
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
        const pid_t reader = readerOf(process), waits = childOf(process.id());
        const auto begin = Clock::now();
        process.signal(c.signal);
        const Outcome outcome = process.finish();
        while (!(isGone(reader) && isGone(waits)) && Clock::now() - begin < std::chrono::seconds(10)) {
        }
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1));
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_EQ(withoutFolder(outcome.err), c.said);
        EXPECT_FALSE(fs::exists(scratch() / "picture.png"));
    }
}
