// How much memory the command takes, and what it says where that would be too much.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <cmath>
#include <functional>

using namespace oxbeam::test;

namespace {

constexpr std::uint64_t MiB = 1 << 20;

// Black and white in turns, from texel to texel; never in memory as a whole.
void writeCheckers(const std::string& name, int width, int height) {
    const std::string file = (scratch() / name).string();
    const auto output = OIIO::ImageOutput::create(file);
    OIIO::ImageSpec spec(width, height, 3, OIIO::TypeDesc::UINT8);
    spec["png:compressionLevel"] = 1;
    ASSERT_TRUE(output && output->open(file, spec));
    std::vector<std::uint8_t> row(std::size_t{3} * static_cast<std::size_t>(width) + 3);
    for (std::size_t i = 0; i < row.size(); ++i) row[i] = i / 3 % 2 ? 255 : 0;
    for (int y = 0; y < height; ++y)
        ASSERT_TRUE(output->write_scanline(y, 0, OIIO::TypeDesc::UINT8, row.data() + 3 * (y % 2)));
    ASSERT_TRUE(output->close());
}

// A bumpy sheet of 45,000 triangles, "sheet.obj", and a scene in which it is placed by 300 matrices.
void writeSheets(const std::string& name, const std::function<std::string(unsigned)>& matrix) {
    constexpr unsigned side = 150;
    std::string sheet, scene = "[shader.s]\nobject = \"KelPhong\"\n";
    for (unsigned i = 0; i <= side * (side + 1) + side; ++i) {
        const double u = i % (side + 1) / 150.0, v = i / (side + 1) / 150.0;
        sheet += fmt::format("v {} {} {}\n", u, v, 0.1 * std::sin(20 * u) * std::cos(15 * v));
    }
    for (unsigned y = 0; y < side; ++y)
        for (unsigned a = y * (side + 1) + 1; a < (y + 1) * (side + 1); ++a)
            sheet += fmt::format("f {0} {1} {2}\nf {2} {1} {3}\n", a, a + 1, a + side + 1, a + side + 2);
    for (unsigned i = 0; i < 300; ++i)
        scene += "[[mesh]]\nfile = \"sheet.obj\"\nshader = \"s\"\nmatrix = [" + matrix(i) + ", 0, 0, 0, 1]\n";
    writeFile("sheet.obj", sheet);
    writeFile(name, scene);
}

}  // namespace

TEST_F(Command, APictureThatAModelNamesManyTimesIsDecodedOnce) {
    writeCheckers("checkers.png", 2000, 2000);
    const std::string uri = "data:image/png;base64," + base64(contentOf("checkers.png"));
    const std::string primitive = R"({"attributes": {"POSITION": 0, "TEXCOORD_0": 1}, "indices": 2, "material": )";
    std::string images, textures, materials, primitives;
    for (unsigned i = 0; i < 20; ++i) {
        const std::string comma = i ? ", " : "", number = std::to_string(i);
        images += comma + "{\"uri\": \"" + uri + "\"}";
        textures += comma + "{\"source\": " + number + "}";
        materials += (i ? "}, {" : "") + ("\"name\": \"m" + number) +
                     R"(", "pbrMetallicRoughness": {"metallicFactor": 0,
 "baseColorTexture": {"index": )" +
                     number + "}}";
        primitives += comma + primitive + number + "}";
    }
    std::string text = contentOf(
        writeGltf("many.gltf", materials, ", \"textures\": [" + textures + "], \"images\": [" + images + "]"));
    text.replace(text.find(primitive), primitive.size() + 2, primitives);
    writeFile("many.gltf", text);
    writeFile("named.toml",
              "[texture.a]\nfile = \"many.gltf\"\nimage = 7\n[texture.b]\nfile = \"checkers.png\"\n"
              "colorSpace = \"linear\"\n" +
                  SceneText);
    for (const char* name : {"many.gltf", "named.toml"}) {
        const Outcome outcome = run("check " + std::string(name) + " --memory-limit 70M");
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        if (!Sanitized) {
            EXPECT_LT(outcome.peak, 250 * MiB) << "one is of 11 MiB";
        }
    }
}

TEST_F(Command, WhatIsTooLargeIsRefusedBeforeItIsThere) {
    writeCheckers("checkers.png", 2000, 2000);
    writeSheets("flat.toml", [](unsigned i) { return fmt::format("1, 0, 0, {}, 0, 1, 0, 0, 0, 0, 0, 0", i); });
    // Each along a direction of its own.
    writeSheets("skewed.toml",
                [](unsigned i) { return fmt::format("1, 0, {}, 0, 0, 1, 0, 0, 0, 0, 0, 0", 0.001 * i); });
    expectTranscript("memory.txt");
    for (const char* bad : {"0", "-1G", "1GG", "G", "nan", "inf", "1e30", "4 G", "none1"})
        EXPECT_EQ(run("check scene.toml --memory-limit=" + std::string(bad)).status, 2) << bad;
    for (const char* good : {"300m", "1.5G", "2T", "900000000", "none"})
        EXPECT_EQ(run("check scene.toml --memory-limit " + std::string(good)).status, 0) << good;
}

// A sheet's pictures are shrunk as they are read: none is in memory as a whole but where it is decoded. Black and white
// make half of the light, whatever is done on the way.
TEST_F(Command, ALargePictureOnASheetTakesLittle) {
    writeCheckers("large.png", 9001, 7003);
    const Outcome outcome = run("sheet large.png -o sheet.png");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    if (!Sanitized) {
        EXPECT_LT(outcome.peak, (9001 * 7003 * 3) + 250 * MiB);
    }
    for (const int x : {60, 172, 290}) EXPECT_NEAR(pixel("sheet.png", x, 120).x, 188.0f / 255, 0.01f);
}
