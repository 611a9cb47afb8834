// Models: what the reading process must withstand, what it puts right that the importer gets wrong, and the scenes that
// are made around them.
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ModelStream.h"
#include "Engine/SceneFile/ModelScene.h"
#include "Tests/Support/Gltf.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <limits>

using namespace oxbeam;
using namespace oxbeam::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
namespace fs = std::filesystem;

namespace {

std::string failureOf(const fs::path& file) {
    try {
        loadModel(file);
    } catch (const Error& e) {
        EXPECT_EQ(e.status(), ExitStatus::BadScene);
        return withoutFolder(e.what());
    }
    return "";
}

std::vector<std::byte> encoded(const Model& model) {
    std::vector<std::byte> bytes;
    encodeModel(model, [&](const void* data, std::size_t size) {
        const auto* from = static_cast<const std::byte*>(data);
        bytes.insert(bytes.end(), from, from + size);
    });
    return bytes;
}

std::optional<ModelOrFailure> decoded(const std::vector<std::byte>& bytes) {
    std::size_t at = 0;
    return decodeModel(bytes.size(), [&](void* to, std::size_t size) {
        ASSERT_LE(size, bytes.size() - at);
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, static_cast<std::byte*>(to));
        at += size;
    });
}

const std::string Plain = R"("pbrMetallicRoughness": {"metallicFactor": 0})";

}  // namespace

TEST(ModelFile, MalformedFilesEndInOneError) {
    std::string nested = R"({"asset": {"version": "1.0"}, "x": )";
    for (int i = 0; i < 200'000; ++i) nested += "[";
    mkfifo((scratch() / "pipe.bin").c_str(), 0600);
    fs::create_directory(scratch() / "inner");
    writeFile("secret.bin", std::string(92, '\0'));
    const std::string withBuffer = R"({"asset": {"version": "2.0"}, "buffers": [{"byteLength": 92, "uri": "FILE"}],
"bufferViews": [{"buffer": 0, "byteLength": 92}], "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3,
"type": "VEC3"}], "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}], "nodes": [{"mesh": 0}],
"scenes": [{"nodes": [0]}], "scene": 0})";
    const auto naming = [&](std::string buffer) {
        std::string text = withBuffer;
        return text.replace(text.find("FILE"), 4, buffer);
    };
    const struct {
        const char* name;
        std::string text, message;
    } cases[] = {
        {"nested.gltf", nested, "model 'nested.gltf' cannot be read: its JSON is nested more than 100 levels deep"},
        {"words.obj", "no model at all", "model 'words.obj' cannot be read: "},
        {"points.obj", "v 0 0 0\nv 1 0 0\nl 1 2\n",
         "model 'points.obj' cannot be read: it has no triangles, only points or lines"},
        {"none.gltf", R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": []}]})",
         "model 'none.gltf' cannot be read: it has no triangles"},
        {"short.glb", "glTF", "model 'short.glb' cannot be read: No suitable reader"},
        {"pipe.gltf", naming("pipe.bin"), "model 'pipe.gltf' cannot be read: "},
        {"inner/out.gltf", naming("../secret.bin"), "model 'inner/out.gltf' cannot be read: "},
        {"model.xyzzy", "?", "model 'model.xyzzy' cannot be read: No suitable reader"},
    };
    for (const auto& c : cases) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_THAT(failureOf(writeFile(c.name, c.text)), HasSubstr(c.message)) << c.name;
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10)) << c.name;
    }
    EXPECT_EQ(loadModel(writeFile("inside.gltf", naming("secret.bin"))).meshes.size(), 1u) << "the same file in reach";
}

TEST(ImportProcess, EndsInOneErrorWhateverBecomesOfIt) {
    const fs::path file = writeFile("triangle.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
    const struct {
        int signal;
        ExitStatus status;
        const char* message;
    } cases[] = {
        {SIGSTOP, ExitStatus::BadScene, "model 'm' takes longer than 1 s to read"},
        {SIGXCPU, ExitStatus::BadScene, "model 'm' takes longer than 1 s to read"},
        {SIGSEGV, ExitStatus::BadScene, "model 'm' crashes its reader (Segmentation fault)"},
        {SIGKILL, ExitStatus::InputOutput, "model 'm' cannot be read: its reader was ended from outside (Killed)"},
    };
    for (const auto& c : cases) {
        ImportLimits limits;
        limits.seconds = 1;
        ImportProcess process(ModelProgram, limits);
        kill(process.id(), c.signal);
        EXPECT_EQ(failure(c.status, [&] { process.ask(file, "model 'm'"); }), c.message);
    }
    ImportProcess process(ModelProgram);
    for (int i = 0; i < 2; ++i) {  // one after the other
        std::vector<std::byte> bytes(process.ask(file, "model 'm'"));
        process.take(bytes.data(), bytes.size());
        EXPECT_EQ(decoded(bytes).value().model.meshes.size(), 1u);
    }
    EXPECT_THAT(failure(ExitStatus::InputOutput, [] { ImportProcess("oxbeam-import-none"); }),
                HasSubstr("cannot start 'oxbeam-import-none': it is neither in"));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // under which addresses are not limited
TEST(ImportProcess, TakesNoMoreMemoryThanItMay) {
    std::string text = "v 0 0 1\nv 0 1 0\nv 1 0 0\n";
    for (int i = 0; i < 300'000; ++i) text += "f 1 2 3\n";
    ImportLimits limits;
    limits.bytes = 0;  // beyond what the file itself is worth
    EXPECT_THAT(failure(ExitStatus::BadScene, [&] { loadModel(writeFile("large.obj", text), limits); }),
                AllOf(HasSubstr("model 'large.obj' cannot be read: it takes more than"),
                      HasSubstr("MiB of memory; --import-limit SECONDS allows it more")));
}
#endif

// What comes from the process is as untrusted as the file: no truncation and no changed byte may be more than refused.
TEST(ModelStream, RefusesWhatIsNoModel) {
    Model model;
    model.meshes.push_back({"mesh", {{}, {}, {}}, {}, {}, {}, {0, 1, 2}});
    model.meshMaterials = {0};
    model.parts = {{0, {}}};
    model.materials.resize(1);
    model.images.push_back({0, 0, {1, 2, 3}});
    const std::vector<std::byte> bytes = encoded(model);
    ASSERT_TRUE(decoded(bytes));
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decoded({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)}));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto changed = bytes;
        changed[i] = std::byte{0xff};
        if (const auto result = decoded(changed); result && result->failure.empty()) {
            EXPECT_LT(result->model.parts.at(0).mesh, 1u);
            EXPECT_LT(result->model.meshMaterials.at(0), 1u);
            EXPECT_LT(result->model.materials[0].texture.image, 1);
        }
    }
    model.parts[0].mesh = 1;
    EXPECT_FALSE(decoded(encoded(model)));
    model.parts[0].mesh = 0;
    model.meshes[0].normals.resize(2);
    EXPECT_FALSE(decoded(encoded(model))) << "normals for some vertices only";
}

TEST(ModelFile, FaultsOfTheImporterAreMended) {
    const Model camera = loadModel(writeGltf(
        "camera.gltf", Plain, R"(, "cameras": [{"type": "perspective", "perspective": {"yfov": 0.5, "aspectRatio": 2,
 "znear": 0.1}}])",
        R"(, "camera": 0, "translation": [0, 0, 0])"));
    ASSERT_EQ(camera.cameras.size(), 1u);
    EXPECT_NEAR(camera.cameras[0].fov, 0.5f * 180.0f / 3.14159265f, 1e-3f) << "not multiplied by the aspect ratio";

    const Model glow = loadModel(writeGltf("glow.gltf", Plain + R"(, "name": "lamp", "emissiveFactor": [1, 0.5, 0],
 "extensions": {"KHR_materials_emissive_strength": {"emissiveStrength": 4}})"));
    EXPECT_EQ(glow.materials.at(0).emissive, R3(4.0f, 2.0f, 0.0f)) << "the strength is not dropped";
    EXPECT_EQ(glow.materials.at(0).name, "lamp");

    const Model required = loadModel(writeGltf("required.gltf", Plain, R"(, "extensionsRequired": ["EXT_unheard_of",
 "KHR_texture_transform"])"));
    EXPECT_THAT(required.warnings, ElementsAre(HasSubstr("'EXT_unheard_of'")));

    // A quarter turn: as the extension defines it, (s, t) becomes (t, -s), t running downwards.
    writeImage(scratch() / "wood.png", 2, 1, {Black, White});
    const std::string picture = R"(, "textures": [{"source": 0}], "images": [{"uri": "wood.png"}])";
    const Model turned = loadModel(writeGltf("turned.gltf", R"("pbrMetallicRoughness": {"metallicFactor": 0,
 "baseColorTexture": {"index": 0, "extensions": {"KHR_texture_transform": {"rotation": 1.5707963}}}})",
                                             picture));
    for (std::size_t i = 0; i < 4; ++i) {
        const R3 p = turned.meshes.at(0).positions[i];
        const float s = 0.5f + 0.5f * p.x, t = 0.5f - 0.5f * p.y;  // as the file has them
        EXPECT_NEAR(turned.meshes[0].texCoords[i].x, t, 1e-6f);
        EXPECT_NEAR(turned.meshes[0].texCoords[i].y, 1.0f + s, 1e-6f);
    }

    const Model oneBad = loadModel(writeGltf("nan.gltf", Plain, "", "", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(oneBad.meshes.at(0).indices.size(), 6u) << "the mesh is not thrown away for one vertex";
}

// Nodes of an X3D that are used again, and what uses nodes in turn; a name that is used within itself, and a text.
TEST(ModelFile, NodesThatAreUsedAgainArrive) {
    const std::string shape = "<Shape><Box size='1 1 1'/></Shape>";
    const auto read = [](const std::string& nodes) {
        return loadModel(writeFile("nodes.x3d", "<?xml version='1.0'?><X3D profile='Immersive' version='3.0'><Scene>" +
                                                    nodes + "</Scene></X3D>"));
    };
    const Model model = read("<Transform DEF='pair'><Transform DEF='key' translation='1 0 0'>" + shape +
                             "</Transform><Transform translation='2 0 0'><Transform USE='key'/></Transform></Transform>"
                             "<Transform translation='0 5 0'><Transform USE='pair'/></Transform>");
    ASSERT_EQ(model.parts.size(), 4u);
    std::vector<R3> places;
    for (const ModelPart& part : model.parts) places.push_back(TransformPoint(part.meshToModel, R3()));
    EXPECT_THAT(places, UnorderedElementsAre(R3(1, 0, 0), R3(3, 0, 0), R3(1, 5, 0), R3(3, 5, 0)));
    EXPECT_THAT(model.warnings, IsEmpty());

    EXPECT_EQ(read("<Group DEF='self'>" + shape + "<Group USE='self'/></Group>").parts.size(), 1u);
    EXPECT_THAT(
        read(shape + "<Shape><Text string='no'/></Shape><Shape><IndexedLineSet coordIndex='0 1'/></Shape>").warnings,
        ElementsAre(HasSubstr("1 of the file's 2 shapes")));
    std::string doubling = "<Group DEF='n0'>" + shape + "</Group>";
    for (unsigned i = 1; i < 40; ++i)
        doubling += fmt::format("<Group DEF='n{0}'><Group USE='n{1}'/><Group USE='n{1}'/></Group>", i, i - 1);
    const auto begin = std::chrono::steady_clock::now();
    try {
        EXPECT_FALSE(read(doubling).warnings.empty());
    } catch (const Error& e) {
        EXPECT_EQ(e.status(), ExitStatus::BadScene);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST(ModelScene, FramesAndLightsModelsOfAnySize) {
    for (const float size : {1e-6f, 1.0f, 1e8f}) {
        const fs::path file = writeGltf("size.gltf", Plain, "", fmt::format(R"(, "scale": [{0}, {0}, {0}])", size));
        Diagnostics diagnostics;
        SceneFileOptions options;
        options.model.view.name = "front";
        options.model.ground = false;
        options.model.size = ImageSize{24, 16};
        const auto world = loadScene(file, registry(), diagnostics, options);
        ASSERT_FALSE(diagnostics.hasErrors());
        world->geometry.build();
        Workers workers(1);
        RenderOptions smooth;
        smooth.samples = 16;  // of a surface that is as rough as can be
        const RenderResult result = render(*world, workers, smooth);
        const auto pixels = result.film.pixels();
        const R3 middle = pixels[8 * 24 + 12], corner = pixels[0];
        EXPECT_GT(Avg(middle), 0.4f) << size;
        EXPECT_LT(Max(middle), 1.0f) << size;
        EXPECT_GT(Length(middle - corner), 0.05f) << size;
        EXPECT_GT(Length(pixels[2 * 24 + 12] - corner), 0.05f) << "it fills the picture's height, " << size;
    }
}

TEST(ModelScene, WarnsOfWhatItLeavesOut) {
    fs::create_directory(scratch() / "inner");
    writeImage(scratch() / "wood.png", 2, 1, {Black, White});
    writeFile("inner/words.png", "these are no pixels");
    for (const char* name : {"../wood.png", "words.png", "nowhere.png"}) {
        const auto file = writeGltf(
            "inner/textured.gltf", R"("pbrMetallicRoughness": {"metallicFactor": 0, "baseColorTexture": {"index": 0}})",
            fmt::format(R"(, "textures": [{{"source": 0}}], "images": [{{"uri": "{}"}}])", name));
        const LoadedScene scene = loadFile(file);
        EXPECT_THAT(scene.said, ElementsAre(HasSubstr("rendered without it"))) << name;
    }
    EXPECT_THAT(loadFile(writeFile("flat.obj", "v 0 0 0\nv 0 0 0\nv 0 0 0\nf 1 2 3\n")).said,
                ElementsAre(HasSubstr("error: ")));
    const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
    EXPECT_THAT(loadFile(writeFile("lost.obj", "mtllib nowhere.mtl\n" + triangle)).said,
                ElementsAre(HasSubstr("warning: material library 'nowhere.mtl' is not in the model's folder")));
    writeFile("here.mtl", "newmtl red\nKd 1 0 0\n");
    EXPECT_THAT(loadFile(writeFile("found.obj", "mtllib here.mtl\n" + triangle)).said, IsEmpty());
    const auto away = writeGltf("away.gltf", Plain,
                                R"(, "cameras": [{"type": "perspective", "perspective": {"yfov": 0.5, "znear": 0.1}}])",
                                R"(, "camera": 0)");
    EXPECT_THAT(loadFile(away).said, ElementsAre(HasSubstr("note: all of it is framed; it has a camera of its own: ")));
    EXPECT_THAT(loadFile(away, {{}, "file", {}, {}}).said, ElementsAre(HasSubstr("does not see it")));
}

TEST(SceneFile, SettingsForAllReachWhoeverKnowsTheParameter) {
    const std::string text = "[shader.a]\nobject = 'KelPhong'\n[shader.b]\nobject = 'KelAmbientOcclusion'\n";
    EXPECT_THAT(loadText(text, {"shader.*.samples=64"}).said, IsEmpty());
    EXPECT_THAT(loadText(text, {"shader.*.sampels=64"}).said,
                ElementsAre(HasSubstr("no shader of the scene has a parameter 'sampels'; did you mean 'samples'?")));
}
