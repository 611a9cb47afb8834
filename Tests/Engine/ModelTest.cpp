// Models: what the reading process must withstand, what it puts right that the importer gets wrong, and the scenes that
// are made around them.
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ModelStream.h"
#include "Engine/SceneFile/ModelScene.h"
#include "Tests/Support/Gltf.h"
#include "Tests/Support/Probe.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <limits>

using namespace oxbeam::test;

namespace {

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

TEST(ModelFile, NestingHasALimit) {
    std::string nested = R"({"asset": {"version": "1.0"}, "x": )";
    for (int i = 0; i < 200'000; ++i) nested += "[";
    EXPECT_EQ(failure(ExitStatus::BadScene, [&] { loadModel(writeFile("nested.gltf", nested)); }),
              "model 'nested.gltf' cannot be read: its JSON is nested more than 100 levels deep");
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

TEST(ImportProcess, TakesNoMoreMemoryThanItMay) {
    if (Sanitized) GTEST_SKIP() << "sanitizers do without limits of addresses";
    std::string text = "v 0 0 1\nv 0 1 0\nv 1 0 0\n";
    for (int i = 0; i < 300'000; ++i) text += "f 1 2 3\n";
    ImportLimits limits;
    limits.bytes = 0;  // beyond what the file itself is worth
    EXPECT_THAT(failure(ExitStatus::BadScene, [&] { loadModel(writeFile("large.obj", text), limits); }),
                AllOf(HasSubstr("model 'large.obj' cannot be read: it takes more than"),
                      HasSubstr("MiB of memory; --import-limit SECONDS allows it more")));
}

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
    makePicture();
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

    const Model shared = loadModel(writeGltf("shared.gltf", Plain, "", R"(, "children": [1]}, {"mesh": 0)"));
    EXPECT_EQ(shared.parts.size(), 2u);
    EXPECT_EQ(shared.meshes.size(), 1u) << "whatever uses it";

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
        SceneFileOptions options;
        options.model.view.name = "front";
        options.model.ground = false;
        options.model.size = ImageSize{24, 16};
        RenderOptions smooth;
        smooth.samples = 16;  // of a surface that is as rough as can be
        const auto pixels = renderWorld(*loadFile(file, options).world, smooth).film.pixels();
        const R3 middle = pixels[8 * 24 + 12], corner = pixels[0];
        EXPECT_GT(Avg(middle), 0.4f) << size;
        EXPECT_LT(Max(middle), 1.0f) << size;
        EXPECT_GT(Length(middle - corner), 0.05f) << size;
        EXPECT_GT(Length(pixels[2 * 24 + 12] - corner), 0.05f) << "it fills the picture's height, " << size;
    }
}

TEST(ModelScene, WarnsOfWhatItLeavesOut) {
    fs::create_directory(scratch() / "inner");
    makePicture();
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
}

// The view of a model in the scene that is made around it.
static View viewOf(const fs::path& file, const SceneFileOptions& options) {
    const auto world = loadFile(file, options).world;
    world->geometry.prepare();
    return world->viewInForce();
}

TEST(ModelScene, AViewStandsWhereItsAnglesSay) {
    const std::string box = "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n";
    const fs::path file =
        writeFile("box.obj", box + "f 1 4 3 2\nf 5 6 7 8\nf 1 2 6 5\nf 2 3 7 6\nf 3 4 8 7\nf 4 1 5 8\n");
    makePicture();
    SceneFileOptions options;
    options.model.environment = (scratch() / "wood.png").string();  // takes less time than a studio
    const float r = std::sqrt(0.5f), near = std::cos(32.0f * Radian) * std::cos(22.0f * Radian);
    const struct {
        const char* name;
        std::optional<float> azimuth, elevation;
        R3 from;  // where the camera is seen from the middle
    } cases[] = {
        {"front", {}, {}, {0, 0, 1}},
        {"right", {}, {}, {1, 0, 0}},
        {"back", {}, {}, {0, 0, -1}},
        {"left", {}, {}, {-1, 0, 0}},
        {"top", {}, {}, {0, 1, 0}},
        {"bottom", {}, {}, {0, -1, 0}},
        {"iso", 45.0f, 0.0f, {r, 0, r}},
        {"back", {}, 45.0f, {0, r, -r}},
        {"top", {}, -45.0f, {0, -r, r}},
        {"iso", -90.0f, 90.0f, {0, 1, 0}},
        {"iso", {}, {}, {std::sqrt(1 - near * near - 0.37460659f * 0.37460659f), 0.37460659f, near}},
    };
    for (const auto& c : cases) {
        options.model.view = {c.name, c.azimuth, c.elevation, 1.0f, {}};
        const View view = viewOf(file, options);
        EXPECT_LT(Length(Normalize(view.position - view.lookAt) - c.from), 1e-4f) << c.name;
        EXPECT_LT(std::fabs(Dot(view.lookUp, c.from)), 0.75f) << c.name;
        EXPECT_LT(Length(view.position), 12.0f) << c.name;
    }
    // Twice as large: the tangents of half the angles are as 2 to 1.
    const float once = loadFile(file, options).world->fov;
    options.model.view.zoom = 2.0f;
    const float twice = loadFile(file, options).world->fov;
    EXPECT_NEAR(std::tan(once * Radian / 2) / std::tan(twice * Radian / 2), 2.0f, 1e-4f);
}
