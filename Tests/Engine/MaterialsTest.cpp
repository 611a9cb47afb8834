// What models' materials become: how they reflect, and what stands in for them.
#include "Engine/SceneFile/ModelScene.h"
#include "Tests/Support/Gltf.h"
#include "Tests/Support/Probe.h"

#include <fmt/format.h>

#include <cmath>

using namespace oxbeam::test;

namespace {

// A model in the scene that is made around it, rendered with the instances that its pixels show.
struct Rendered {
    std::unique_ptr<World> world;
    std::vector<R3> pixels;
    std::vector<unsigned> objects;  // from 1; 0: none

    R3 at(unsigned x, unsigned y) const { return pixels[std::size_t{y} * world->image.width + x]; }
};

Rendered renderModel(const fs::path& file, const ModelSceneOptions& model, unsigned samples,
                     const std::vector<std::string>& set = {}) {
    SceneFileOptions options;
    options.set = set;
    options.model = model;
    LoadedScene scene = loadFile(file, options);
    EXPECT_THAT(scene.said, IsEmpty());
    RenderOptions render;
    render.samples = samples;
    render.aovs = true;
    const RenderResult result = renderWorld(*scene.world, render);
    Rendered rendered{std::move(scene.world), result.film.pixels(), {}};
    for (const AovSample& aov : result.film.aovSums()) rendered.objects.push_back(aov.object);
    return rendered;
}

std::vector<std::string> seenFrom(const std::string& z, const std::string& fov) {
    return {"camera.position=[0, 0, " + z + "]", "camera.lookAt=[0, 0, 0]", "camera.fov=" + fov};
}

ModelSceneOptions fromTheFront(unsigned width, unsigned height) {
    ModelSceneOptions options;
    options.view.name = "front";
    options.ground = false;
    options.size = ImageSize{width, height};
    return options;
}

struct Spread {
    float count = 0.0f, sum = 0.0f, squares = 0.0f;

    void add(float value) { count += 1.0f, sum += value, squares += value * value; }
    float mean() const { return sum / count; }
    float deviation() const { return std::sqrt(squares / count - mean() * mean()); }
};

// A sphere of radius 1 with smooth normals and a material of that body.
fs::path writeSphere(const std::string& name, const std::string& material) {
    const MeshData mesh = sphereMesh(96);
    std::string text = fmt::format("mtllib {}.mtl\nusemtl skin\n", name);
    for (const R3& p : mesh.positions) text += fmt::format("v {0} {1} {2}\nvn {0} {1} {2}\n", p.x, p.y, p.z);
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3)
        text += fmt::format("f {0}//{0} {1}//{1} {2}//{2}\n", mesh.indices[i] + 1, mesh.indices[i + 1] + 1,
                            mesh.indices[i + 2] + 1);
    writeFile(name + ".mtl", "newmtl skin\n" + material);
    return writeFile(name + ".obj", text);
}

std::string sceneOf(const fs::path& model, const ModelSceneOptions& options = {}) {
    SceneAssets assets;
    Diagnostics diagnostics;
    std::string text = describeModelScene(model, scratch(), options, registry(), assets, diagnostics);
    EXPECT_FALSE(diagnostics.hasErrors());
    return text;
}

// What stands behind a key that is set; nothing where it is left at its default.
std::string valueOf(const std::string& scene, const std::string& key) {
    const std::size_t at = scene.find("\n" + key + " = ");
    if (at == std::string::npos) return "";
    const std::size_t begin = at + key.size() + 4;
    return scene.substr(begin, scene.find('\n', begin) - begin);
}

std::vector<float> numbersOf(const std::string& value) {
    std::vector<float> numbers;
    for (const char *at = value.c_str(), *end = at + value.size(); at < end; ++at) {
        char* after;
        const float number = std::strtof(at, &after);
        if (after != at) numbers.push_back(number), at = after;
    }
    return numbers;
}

std::string skinOf(const std::string& scene) {
    const std::size_t begin = scene.find("[shader.");
    return scene.substr(begin, scene.find("[shader.ground]") - begin);
}

}  // namespace

// Against C. Schlick's curve for an index of 1.5, by the angle at which each pixel's ray meets a sphere; polished, and
// as rough as a Phong exponent of 1000.
TEST(Materials, ABlackSphereReflectsAsADielectricDoes) {
    writeImage(scratch() / "white.exr", 2, 1, {White, White});
    for (const char* exponent : {"1000000", "1000"}) {
        ModelSceneOptions options = fromTheFront(200, 200);
        options.environment = (scratch() / "white.exr").string();
        const Rendered r = renderModel(writeSphere("ball", fmt::format("Kd 0 0 0\nKs 0.5 0.5 0.5\nNs {}\n", exponent)),
                                       options, 16, seenFrom("5", "24"));
        float seen[80] = {}, expected[80] = {};  // by degree
        for (unsigned i = 0; i < 200 * 200; ++i) {
            const float x = static_cast<float>(i % 200) - 99.5f, y = static_cast<float>(i / 200) - 99.5f;
            const float tangent = std::hypot(x, y) / 100.0f * std::tan(12.0f * Radian);  // of the way off the middle
            const float sine = 5.0f * tangent / std::sqrt(1.0f + tangent * tangent);
            if (sine >= std::sin(80.0f * Radian)) continue;
            const auto degree = static_cast<unsigned>(std::asin(sine) / Radian);
            seen[degree] += Avg(r.pixels[i]);
            expected[degree] += 0.04f + 0.96f * std::pow(1.0f - std::sqrt(1.0f - sine * sine), 5.0f);
        }
        for (unsigned degree = 1; degree < 80; ++degree)
            EXPECT_NEAR(seen[degree] / expected[degree], 1.0f, 0.15f) << exponent << ", " << degree << " degrees";
    }
}

// Spheres in a photograph, five by five. A matte one turns into a mirror step by step: in no row may one step make most
// of the difference, in what brightness they have nor in how much it varies over them, as far as a display shows it.
TEST(Materials, MetalsAndDielectricsPassIntoEachOther) {
    ModelSceneOptions options = fromTheFront(150, 150);
    options.environment = SCENES "/assets/workshop.exr";
    // From so far away that all of them show the same of their surroundings.
    const Rendered r = renderModel(SCENES "/assets/metallic-roughness.glb", options, 16, seenFrom("1200", "1"));
    Spread seen[26];
    for (std::size_t i = 0; i < r.pixels.size(); ++i) seen[r.objects[i]].add(std::min(Avg(r.pixels[i]), 1.0f));
    const auto expectNoJump = [](const float(&values)[5], float noise) {
        const float range = *std::max_element(values, values + 5) - *std::min_element(values, values + 5);
        for (unsigned m = 0; m < 4; ++m)
            EXPECT_LT(std::fabs(values[m + 1] - values[m]), 0.45f * range + noise) << "step " << m;
    };
    for (unsigned row = 0; row < 5; ++row) {
        SCOPED_TRACE(fmt::format("row {}", row));
        float means[5], contrasts[5];
        for (unsigned m = 0; m < 5; ++m) {
            const Spread& object = seen[1 + 5 * row + m];
            ASSERT_GT(object.count, 50.0f);
            means[m] = object.mean();
            contrasts[m] = object.deviation();
        }
        expectNoJump(means, 0.03f);
        expectNoJump(contrasts, 0.01f);
    }
}

TEST(Materials, WhatAGltfSaysOfReflectionsIsUnderstood) {
    const auto gltf = [](const std::string& factors, const std::string& extensions) {
        return fmt::format(R"("name": "skin", "pbrMetallicRoughness": {{{}}}, "extensions": {{{}}})", factors,
                           extensions);
    };
    const std::string plastic = R"("metallicFactor": 0, "roughnessFactor": 0.3)";
    const std::vector<float> white = {1.0f, 1.0f, 1.0f};
    const float half = std::sqrt(0.5f);  // of the light straight on: root of the index's quotient
    const struct {
        std::string factors, extensions, object;
        std::vector<float> reflective, index;
    } cases[] = {
        {plastic, "", "KelFresnelPhong", white, {1.5f}},
        {plastic, R"("KHR_materials_ior": {"ior": 1.33})", "KelFresnelPhong", white, {1.33f}},
        // Reflects no less for a darker colour, but of another.
        {plastic,
         R"("KHR_materials_specular": {"specularFactor": 0.5, "specularColorFactor": [1, 0.5, 0]})",
         "KelFresnelPhong",
         {0.5f, 0.25f, 0.0f},
         {1.5f}},
        {plastic, R"("KHR_materials_specular": {"specularFactor": 0})", "KelPhong", {}, {}},
        {plastic, R"("KHR_materials_unlit": {})", "KelPhong", {}, {}},
        {"",
         R"("KHR_materials_pbrSpecularGlossiness": {"specularFactor": [0.5, 0.4, 0.3]})",
         "KelFresnelPhong",
         {1.0f, 0.8f, 0.6f},
         {(1.0f + half) / (1.0f - half)}},
        // A metal, brighter towards its rim.
        {R"("roughnessFactor": 0.1, "baseColorFactor": [0.79, 0.58, 0.37, 1])", "", "KelPhong", {0.8f, 0.6f, 0.4f}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.factors + c.extensions);
        const std::string skin = skinOf(sceneOf(writeGltf("skin.gltf", gltf(c.factors, c.extensions))));
        EXPECT_EQ(valueOf(skin, "object"), '"' + c.object + '"');
        EXPECT_EQ(valueOf(skin, "specularColor"), "") << "no highlights of lights that the reflections show";
        EXPECT_THAT(numbersOf(valueOf(skin, "reflective")), Pointwise(FloatNear(1e-5f), c.reflective));
        EXPECT_THAT(numbersOf(valueOf(skin, "bindex")), Pointwise(FloatNear(1e-4f), c.index));
    }
    const fs::path lit = writeGltf("lit.gltf", gltf(plastic, ""), R"(, "extensionsUsed": ["KHR_lights_punctual"],
 "extensions": {"KHR_lights_punctual": {"lights": [{"type": "directional"}]}})",
                                   R"(, "extensions": {"KHR_lights_punctual": {"light": 0}})");
    EXPECT_NE(valueOf(skinOf(sceneOf(lit)), "specularColor"), "") << "the file's own lights show in no reflection";
}

// Neither black nor clipped nor all alike.
TEST(Materials, AFactorOfNoColourReflectsNothing) {
    const fs::path duck = "/usr/share/assimp/models/Collada/duck.dae";  // a factor of 0.5, of black
    if (!fs::exists(duck)) GTEST_SKIP() << "assimp-testmodels is not installed";
    EXPECT_EQ(loadModel(duck).materials.at(0).reflectivity, 0.0f);
}

TEST(Materials, EverySurfaceShowsAModelWell) {
    std::vector<std::string> surfaces = registry().names({ObjectKind::Surface});
    std::erase_if(surfaces, [](const std::string& name) { return !name.starts_with("Kel"); });
    surfaces.push_back("KelDbgObjectID");
    ASSERT_EQ(surfaces.size(), 10u);
    for (const char* model : {"suzanne", "materials"})
        for (const std::string& surface : surfaces) {
            ModelSceneOptions options;
            options.shader = surface;
            options.size = ImageSize{64, 36};
            const Rendered r = renderModel(fmt::format(SCENES "/assets/{}.glb", model), options, 16);
            const auto ground = static_cast<unsigned>(r.world->geometry.instanceCount());
            Spread seen;
            float clipped = 0.0f, black = 0.0f;
            for (std::size_t i = 0; i < r.pixels.size(); ++i) {
                if (r.objects[i] == 0 || r.objects[i] == ground) continue;
                const R3& p = r.pixels[i];
                seen.add(0.2126f * p.x + 0.7152f * p.y + 0.0722f * p.z);
                clipped += std::min({p.x, p.y, p.z}) > 1.0f ? 1.0f : 0.0f;
                black += Max(p) < 0.01f ? 1.0f : 0.0f;
            }
            SCOPED_TRACE(fmt::format("{} on {}", surface, model));
            ASSERT_GT(seen.count, 200.0f);
            EXPECT_GT(seen.mean(), 0.05f);
            EXPECT_LT(seen.mean(), 0.85f);
            EXPECT_LT(clipped / seen.count, 0.05f);
            EXPECT_LT(black / seen.count, 0.1f);
            EXPECT_GT(seen.deviation(), 0.03f);
        }
}

TEST(Materials, ObjectIdsTellThePartsOfAModelApart) {
    ModelSceneOptions options;
    options.shader = "KelDbgObjectID";
    options.size = ImageSize{128, 72};
    const Rendered r = renderModel(SCENES "/assets/materials.glb", options, 1);
    std::vector<R3> brightest(15);
    for (std::size_t i = 0; i < r.pixels.size(); ++i)
        if (r.objects[i] >= 1 && r.objects[i] <= 15 && Avg(r.pixels[i]) > Avg(brightest[r.objects[i] - 1]))
            brightest[r.objects[i] - 1] = r.pixels[i];
    for (std::size_t a = 0; a < 15; ++a)
        for (std::size_t b = 0; b < a; ++b)
            EXPECT_GT(Length(brightest[a] - brightest[b]), 0.08f) << "parts " << a << " and " << b;
}

// The faces of a cube that no file says anything about.
TEST(Materials, BareGeometryIsDressed) {
    const auto cube = [](const std::string& colors) {
        std::string text =
            plyHead(8, colors.empty() ? "" : "property uchar red\nproperty uchar green\nproperty uchar blue\n");
        text += "element face 6\nproperty list uchar int vertex_indices\nend_header\n";
        for (int i = 0; i < 8; ++i) text += fmt::format("{} {} {}{}\n", i & 1, i >> 1 & 1, i >> 2, colors);
        return text + "4 0 2 3 1\n4 4 5 7 6\n4 0 1 5 4\n4 2 6 7 3\n4 0 4 6 2\n4 1 3 7 5\n";
    };
    const fs::path bare = writeFile("bare.ply", cube(""));
    ModelSceneOptions options;
    options.size = ImageSize{40, 40};
    const auto middle = [&](const fs::path& file) { return renderModel(file, options, 4).at(20, 20); };
    const auto saturation = [](const R3& c) { return 1.0f - std::min({c.x, c.y, c.z}) / Max(c); };
    EXPECT_GT(saturation(middle(bare)), 0.3f) << "no grey before a grey backdrop";
    const R3 own = middle(writeFile("green.ply", cube(" 0 200 0")));
    EXPECT_GT(own.y, 2.0f * own.x) << "a file's colours are kept";

    options.color = R3(0.1f, 0.1f, 0.8f);
    EXPECT_GT(middle(bare).z, 2.0f * middle(bare).x);
    const fs::path gltf = writeGltf("red.gltf", R"("pbrMetallicRoughness": {"baseColorFactor": [1, 0, 0, 1]})");
    EXPECT_EQ(valueOf(skinOf(sceneOf(gltf, options)), "diffuseColor"), "[0.1, 0.1, 0.8]") << "of all of a model";

    // The upper half red, the lower green: upright on every side, though the file has no texture coordinates.
    writeImage(scratch() / "flag.png", 1, 2, {Color(0.8f, 0.1f, 0.1f), Color(0.1f, 0.8f, 0.1f)});
    options = fromTheFront(40, 40);
    options.texture = (scratch() / "flag.png").string();
    for (const char* view : {"front", "left"}) {
        options.view.name = view;
        const Rendered r = renderModel(bare, options, 4);
        EXPECT_GT(r.at(20, 13).x, 2.0f * r.at(20, 13).y) << view;
        EXPECT_GT(r.at(20, 27).y, 2.0f * r.at(20, 27).x) << view;
    }
}
