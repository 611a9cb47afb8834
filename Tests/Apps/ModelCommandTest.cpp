// Models in place of scene files.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
    for (const char* options : {"", "--view top", "--shader KelDiffuse --ground none"}) {
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
    EXPECT_EQ(count("object = \"KelPhong\""), 12u) << "the ground is one too";
    for (const char* line :
         {"diffuseColor = [0.7, 0.06, 0.05]", "transparent = [0.6, 0.6, 0.6]", "texture = \"blended\"",
          "alpha = \"ignore\"", "alpha = \"mask\"", "vertexColors = true", "bump = \"normal\"\nbumpScale = 0.8",
          "reflective = [0.982, 0.7365, 0.2946]", "reflective = [1.0, 1.0, 1.0]", "bindex = 1.45",
          "refractionFilter = [0.2, 0.7, 0.3]", "oneSidedGlass = true", "emissiveColor = [0.7, 0.35, 0.07]"})
        EXPECT_EQ(count(line), 1u) << line;
}

TEST_F(Command, ASweepTakesAModel) {
    const std::string model =
        writeGltf("model.gltf", R"("name": "skin", "pbrMetallicRoughness": {"metallicFactor": 0})").filename();
    const Outcome outcome = run("sweep " + model + " --set shader.skin.diffuseColor=[1,0,0]..[0,0,1]/2 -o sheet.png" +
                                " --size 160x120 --samples 1");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
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
        {"render " + model + " -o old.png --shader KelDifuse", 2, HasSubstr("did you mean 'KelDiffuse'?")},
        {"render " + model + " -o old.png --ground grass", 2, HasSubstr("--ground grass: expected shadow or none")},
        {"render " + model + " -o old.png --environment none.exr", 5, HasSubstr("none.exr: no such")},
        {"scene scene.toml", 2, HasSubstr("'scene.toml' is a scene file already; expected a model")},
        {"scene " + model + " -o nowhere/x.toml", 5, HasSubstr("there is no directory 'nowhere'")},
    });
}
