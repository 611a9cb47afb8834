// Scenes from files: what is loaded, and what is said about files that are wrong.
#include "Engine/Host/HostObjects.h"
#include "Engine/Textures/Texture.h"
#include "Oxbeam/ABSP.h"
#include "Tests/Support/SceneText.h"

#include <sys/stat.h>

#include <ctime>

using namespace oxbeam::test;

// Two shaders and a texture for the tests' tables to refer to, on lines 1 to 6.
static const std::string preamble =
    "[shader.body]\nobject = 'KelPhong'\n[shader.lid]\nobject = 'KelPhong'\n"
    "[texture.wood]\nfile = 'wood.png'\n";

static LoadedScene loadAfterPreamble(const std::string& toml, const std::vector<std::string>& set = {}) {
    makePicture();
    return loadText(preamble + toml, set);
}

static std::string repeated(const std::string& text, unsigned times) {
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

TEST(SceneFile, AllErrorsOfAFileAreReportedInOneGo) {
    const fs::path file = fs::path(TEST_SCENES) / "wrong.toml";
    std::vector<std::string> expected;
    std::ifstream stream(file);
    std::string line;
    for (unsigned number = 1; std::getline(stream, line); ++number)
        for (auto at = line.find("  #! "); at != std::string::npos;) {
            const auto next = line.find("  #! ", at + 5);
            expected.push_back("wrong.toml:" + std::to_string(number) + ":" + line.substr(at + 5, next - at - 5));
            at = next;
        }
    std::vector<std::string> said = loadFile(file).said;
    for (std::string& text : said) text = withoutFolder(text, TEST_SCENES);
    EXPECT_THAT(said, ElementsAreArray(expected));
}

TEST(SceneFile, BadFilesAreOneClearError) {
    const fs::path pipe = scratch() / "pipe.toml", huge = writeFile("huge.toml", "");
    mkfifo(pipe.c_str(), 0600);
    fs::resize_file(huge, (64u << 20) + 1);
    EXPECT_THAT(loadFile(scratch() / "missing.toml").said, ElementsAre("missing.toml: error: no such scene file"));
    EXPECT_THAT(loadFile(pipe).said, ElementsAre("pipe.toml: error: is not a regular file"));
    EXPECT_THAT(loadFile(huge).said, ElementsAre("huge.toml: error: is larger than 64 MiB"));

    const std::string key = repeated("a.", 31) + "a";
    const struct {
        const char* what;
        std::string toml, said;
    } cases[] = {
        {"not UTF-8", "# \xff", "1:2: error: Encountered invalid utf-8 sequence"},
        {"dotted key", repeated("a.", 200'000) + "a = 1", "1:1: error: a key with more than 32 parts"},
        {"behind a long text", "a = {b = \"\"\"\\\"\"\"\"\", " + repeated("\"=\".", 200'000) + "c = 1}",
         "1:1: error: a key with more than 32 parts"},
        {"lists", "a = " + repeated("[", 200'000), "1:"},
        {"deep keys in deep tables", "a = " + repeated("{" + key + " = ", 250) + "1" + repeated("}", 250),
         "1:1: error: a scene has no 'a'"},
        {"dots that are no keys", "# " + repeated(".", 5000) + "\na = '" + repeated(".", 5000) + "'\n",
         "2:1: error: a scene has no 'a'"},
    };
    for (const auto& c : cases)
        EXPECT_THAT(loadText(c.toml).said, ElementsAre(StartsWith("scene.toml:" + c.said))) << c.what;
}

// Of the loaded shader 'body'.
static const KelPhongShader& body(const LoadedScene& scene) {
    return static_cast<const KelPhongShader&>(*scene.world->shaders.at(0));
}

TEST(SceneFile, SettingsLieOverTheFile) {
    const LoadedScene scene = loadAfterPreamble(
        "[[light]]\nobject = 'KelPointLight'\n[[light]]\nobject = 'KelPointLight'\nposition = [1, 2, 3]\n",
        {"shader.body.shininess=64", "shader.body.diffuse=[0, 0.5, 1]", "shader.body.texture=wood",
         "light.1.intensity = [2, 3, 4]", "camera.fov=20", "image.width=7", "shader.body.shininess=32",
         "texture.wood.wrap=clamp"});
    EXPECT_THAT(scene.said, IsEmpty());
    EXPECT_EQ(body(scene).shininess, 32.0f);  // the last one counts
    EXPECT_EQ(body(scene).diffuseColor, R3(0.0f, 0.5f, 1.0f));
    EXPECT_EQ(body(scene).texture, 0);
    const auto& second = static_cast<KelPointLight&>(*scene.world->lights.at(1));
    EXPECT_EQ(second.position, R3(1, 2, 3));
    EXPECT_EQ(second.intensity, R3(2, 3, 4));
    EXPECT_EQ(scene.world->fov, 20.0f);
    EXPECT_EQ(scene.world->image.width, 7u);
    EXPECT_EQ(scene.world->textures.ByID(0)->m_wrapS, static_cast<Oxint>(OX_GL_CLAMP_TO_EDGE));
    // Whichever name of the parameter the file uses.
    EXPECT_EQ(body(loadText("[shader.body]\nobject = 'KelPhong'\nrd = [1, 0, 0]", {"shader.body.diffuse=[0, 1, 0]"}))
                  .diffuseColor,
              Green);
}

TEST(SceneFile, WhatTheSceneSaysOfTheFrameCountsBeforeTheRenderingObject) {
    const LoadedScene scene =
        loadText("[render]\nrayEpsilon = 0.5\nsamplesPerPixel = 2\nsoftShadows = true\n[image]\nsamples = 5\n");
    EXPECT_THAT(scene.said, IsEmpty());
    const auto& ro = static_cast<KelRenderingObject&>(*scene.world->renderingObject);
    EXPECT_EQ(ro.m_samplesPerPixel, 5);
    EXPECT_TRUE(ro.softShadows());
    EXPECT_EQ(scene.world->epsilon(), 0.5f);
}

TEST(SceneFile, NothingFollowsTheSizeOfAGround) {
    const std::string ball = "[[mesh]]\nshader = 'body'\nshape = 'sphere'\ntranslate = [3, 1, 0]\n",
                      ground = "[[mesh]]\nshader = 'lid'\nshape = 'ground'\nname = 'lawn'\ntranslate = [0, -0.1, 0]\n";
    const LoadedScene without = loadAfterPreamble(ball), with = loadAfterPreamble(ground + ball);
    ASSERT_THAT(with.said, IsEmpty());
    for (const LoadedScene* scene : {&without, &with}) scene->world->geometry.build();
    EXPECT_EQ(with.world->epsilon(), without.world->epsilon());
    EXPECT_EQ(with.world->framingView().position, without.world->framingView().position);
    const Bounds reach = with.world->geometry.instanceBounds(1);
    EXPECT_EQ(with.world->objectName(1), "lawn");
    EXPECT_GT(reach.radius(), 1e11f);
    EXPECT_EQ(reach.upper.y, -0.1f);
    EXPECT_EQ(reach.lower.y, -0.1f) << "every vertex, or shadow rays would start below it";
}

TEST(SceneFile, AGroundHasIdsOfItsOwnAndNothingOfFiles) {
    const std::string mesh = "[[mesh]]\nshader = 'lid'\n", distinct = "ids = 'distinct'\n";
    for (const bool own : {false, true}) {
        const LoadedScene scene = loadAfterPreamble(mesh + "shape = 'ground'\n" + (own ? distinct : "") + mesh +
                                                    "shape = 'box'\n" + (own ? "" : distinct));
        ASSERT_THAT(scene.said, IsEmpty());
        const auto& objects = scene.world->geometry.scene().objects;
        EXPECT_EQ(objects[own ? 0 : 1]->id, own ? 0u : 1u) << "in the order in which they were made";
        EXPECT_GT(objects[own ? 1 : 0]->id, 1u);
    }
    for (const std::string key : {"coordinates", "clip", "shaders"}) {
        const std::string table =
            key == "shaders" ? "shaders = ['lid', 'body']" : "shader = 'lid'\n" + key + " = 'box'";
        EXPECT_THAT(loadAfterPreamble("[[mesh]]\nshape = 'ground'\n" + table).said,
                    ElementsAre(HasSubstr("mesh 0: '" + key + "' is for a 'file'")));
    }
}

TEST(SceneFile, MeshesOfOneSourceAreSharedByTheirInstances) {
    writeFile("tri.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1e30 0 0\nf 1 2 3\nf 1 2 4\n");
    const std::string mesh = "[[mesh]]\nshader = 'lid'\n";
    const LoadedScene scene = loadAfterPreamble(mesh + "file = 'tri.obj'\n" + mesh + "file = 'tri.obj'\n" + mesh +
                                                "shape = 'plane'\nuvScale = [2, 3]\n" + mesh + "shape = 'plane'\n" +
                                                mesh + "shape = 'plane'\nuvScale = [2, 3]\nvisibleTo = []\n" + mesh +
                                                "shape = 'sphere'\nvisibleTo = ['reflection', 'shadow']\n");
    const SceneGeometry& geometry = scene.world->geometry;
    EXPECT_EQ(geometry.meshCount(), 4u);
    ASSERT_EQ(geometry.instanceCount(), 6u);
    const auto& instances = geometry.scene().instances;
    EXPECT_EQ(instances[0]->object, instances[1]->object);
    EXPECT_EQ(instances[2]->object, instances[4]->object);
    EXPECT_NE(instances[2]->object, instances[3]->object);
    const auto& tiled = dynamic_cast<const ABSP&>(*geometry.scene().objects[instances[2]->object]);
    EXPECT_TRUE(std::any_of(tiled.texCoords.begin(), tiled.texCoords.end(),
                            [](const R2& st) { return st.x == 2.0f && st.y == 3.0f; }));
    EXPECT_EQ(instances[4]->visibilityMask, 0u);
    EXPECT_EQ(instances[5]->visibilityMask, static_cast<Oxuint>(RAY_SHADOW | RAY_REFLECTION));
    EXPECT_THAT(scene.said, ElementsAre(StartsWith("scene.toml:9:8: warning: mesh 'defaultobject': 1 triangle")));
}

TEST(SceneFile, MeshesAreScaledThenRotatedThenMoved) {
    const struct {
        const char* placement;
        R3 from, to;
    } cases[] = {
        {"", {1, 2, 3}, {1, 2, 3}},
        {"scale = 2", {1, 2, 3}, {2, 4, 6}},
        {"translate = [10, 0, 0]\nscale = [2, 1, 1]\nrotate = [0, 0, 90]", {1, 0, 0}, {10, 2, 0}},
        {"rotate = [90, 0, 90]", {0, 1, 0}, {0, 0, 1}},  // about x before z
        {"rotate = [0, 90, 90]", {0, 0, 1}, {0, 1, 0}},  // about y before z
        {"rotate = [90, 90, 0]", {0, 1, 0}, {1, 0, 0}},  // about x before y
        {"matrix = [0, 2, 0, 5,  1, 0, 0, 6,  0, 0, 3, 7,  0, 0, 0, 1]", {1, 10, 100}, {25, 7, 307}},
    };
    for (const auto& c : cases) {
        // Placed twice, since the transformation of a lone instance is baked into its mesh.
        const std::string mesh = "[[mesh]]\nshader = 'body'\nshape = 'box'\n" + std::string(c.placement) + "\n";
        const LoadedScene scene = loadAfterPreamble(mesh + mesh);
        ASSERT_THAT(scene.said, IsEmpty());
        const R3 placed = TransformPoint(scene.world->geometry.scene().instances.at(1)->meshToWorldXfm, c.from);
        EXPECT_LT(Length(placed - c.to), 1e-5f) << c.placement;
    }
}

TEST(SceneFile, KeysOfATextureTakeEffect) {
    // An sRGB file whose bytes are 128, 128, 255 all over: a map of straight normals, unless told otherwise.
    const float half = std::pow((128.0f / 255.0f + 0.055f) / 1.055f, 2.4f);
    writeImage(scratch() / "normals.png", 8, 8, std::vector<R3>(64, R3(half, half, 1.0f)));
    const LoadedScene scene = loadText(
        "[texture.t]\nfile = 'normals.png'\nwrap = 'mirror'\nfilter = 'nearest'\nmodel = 'decal'\n"
        "colorSpace = 'linear'\nbump = 'height'\nbumpScale = 2.5\n");
    EXPECT_THAT(scene.said, IsEmpty());
    const auto& texture = dynamic_cast<Texture&>(*scene.world->textures.ByID(0));
    EXPECT_EQ(static_cast<Oxuint>(texture.m_wrapS), OX_GL_MIRRORED_REPEAT);
    EXPECT_EQ(static_cast<Oxuint>(texture.m_wrapT), OX_GL_MIRRORED_REPEAT);
    EXPECT_EQ(static_cast<Oxuint>(texture.filterMode), OX_GL_NEAREST);
    EXPECT_EQ(texture.textureModel, OX_GL_DECAL);
    EXPECT_EQ(texture.bumpKind, BumpKind::Height);
    EXPECT_EQ(texture.bumpScale, 2.5f);
    EXPECT_NEAR(texture.lookUp(0.5f, 0.5f).r, 128.0f / 255.0f, 1e-4f);
}

// Sixteen times as many take about as many times as long: twice that is forgiven, the 256 times of a list that is gone
// through for each of its entries are not.
TEST(SceneFile, LongScenesAreReadInTimeThatGrowsWithTheirLength) {
    const auto light = [](unsigned i) {
        return "[[light]]\nobject = 'KelPointLight'\nposition = [" + std::to_string(i) + ", 0, 0]\n";
    };
    const auto shader = [](unsigned i) { return "[shader.s" + std::to_string(i) + "]\nobject = 'KelPhong'\n"; };
    const auto loadingTime = [](const auto& entry, unsigned count) {
        std::string toml;
        for (unsigned i = 0; i < count; ++i) toml += entry(i);
        const std::clock_t start = std::clock();  // of the process: others on the machine do not count
        const LoadedScene scene = loadText(toml);
        EXPECT_EQ(scene.world->lights.size() + scene.world->shaders.size(), count);
        return static_cast<double>(std::clock() - start);
    };
    const auto growth = [&](const auto& entry) {
        const double few = loadingTime(entry, 2000);
        return loadingTime(entry, 32000) / few;
    };
    EXPECT_LT(growth(light), 32);
    EXPECT_LT(growth(shader), 32);
}
