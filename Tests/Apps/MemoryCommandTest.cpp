// How much memory the command takes, and what it says where that would be too much.
#include "Tests/Support/Command.h"
#include "Tests/Support/Gltf.h"

#include <OpenImageIO/imageio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

using namespace oxbeam;
using namespace oxbeam::test;
using testing::AllOf;
using testing::HasSubstr;

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

// A bumpy sheet of 2 * side * side triangles, placed by every node that is written.
std::string writeSheetModel(const std::string& name, unsigned side, const std::vector<std::string>& nodes) {
    std::vector<float> positions;
    std::vector<std::uint32_t> indices;
    for (unsigned y = 0; y <= side; ++y)
        for (unsigned x = 0; x <= side; ++x) {
            const float u = static_cast<float>(x) / static_cast<float>(side),
                        v = static_cast<float>(y) / static_cast<float>(side);
            positions.insert(positions.end(), {u, v, 0.1f * std::sin(20.0f * u) * std::cos(15.0f * v)});
            if (x == side || y == side) continue;
            const std::uint32_t a = y * (side + 1) + x, b = a + side + 1;
            indices.insert(indices.end(), {a, a + 1, b, b, a + 1, b + 1});
        }
    const std::size_t first = positions.size() * sizeof(float), second = indices.size() * sizeof(std::uint32_t);
    std::string bytes(first + second, '\0');
    std::memcpy(bytes.data(), positions.data(), first);
    std::memcpy(bytes.data() + first, indices.data(), second);
    std::string all, numbers;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        all += (i ? "," : "") + ("{\"mesh\": 0" + nodes[i] + "}");
        numbers += (i ? "," : "") + std::to_string(i);
    }
    return writeFile(name, R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [)" + numbers +
                               "]}],\n\"nodes\": [" + all +
                               R"(], "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1}]}],
"accessors": [{"bufferView": 0, "componentType": 5126, "type": "VEC3", "min": [0, 0, -1], "max": [1, 1, 1], "count": )" +
                               std::to_string(positions.size() / 3) +
                               R"(}, {"bufferView": 1, "componentType": 5125, "type": "SCALAR", "count": )" +
                               std::to_string(indices.size()) + R"(}],
"bufferViews": [{"buffer": 0, "byteLength": )" +
                               std::to_string(first) + R"(}, {"buffer": 0, "byteOffset": )" + std::to_string(first) +
                               R"(, "byteLength": )" + std::to_string(second) + R"(}], "buffers": [{"byteLength": )" +
                               std::to_string(bytes.size()) + R"(, "uri": "data:application/octet-stream;base64,)" +
                               base64(bytes) + "\"}]}")
        .filename();
}

}  // namespace

TEST_F(Command, FlattenedPlacementsOfAModelTakeNoCopyEach) {
    std::vector<std::string> nodes;
    for (unsigned i = 0; i < 300; ++i)
        nodes.push_back(", \"scale\": [1, 1, 0], \"translation\": [" + std::to_string(i % 20) + ", " +
                        std::to_string(i / 20) + ", 0]");
    const std::string model = writeSheetModel("flat.gltf", 150, nodes);
    const Outcome outcome = run("render " + model + " -q --size 64x48 --samples 1 --view front -o flat.png");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    if (!Sanitized) {
        EXPECT_LT(outcome.peak, 400 * MiB);
    }
    // Seen as one wall, which is lighter than what is around it.
    EXPECT_GT(pixel("flat.png", 32, 20).x, 0.3f);
}

TEST_F(Command, APictureThatAModelNamesManyTimesIsDecodedOnce) {
    writeCheckers("checkers.png", 4000, 4000);
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
                  std::string(SceneText));
    for (const char* name : {"many.gltf", "named.toml"}) {
        const Outcome outcome = run("check " + std::string(name) + " --memory-limit 130M");
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        if (!Sanitized) {
            EXPECT_LT(outcome.peak, 350 * MiB) << "one is of 46 MiB";
        }
    }
}

TEST_F(Command, WhatIsTooLargeIsRefusedBeforeItIsThere) {
    writeCheckers("checkers.png", 4000, 4000);
    writeFile("texture.toml", "[texture.t]\nfile = \"checkers.png\"\n" + std::string(SceneText));
    writeFile("round.toml",
              "[shader.s]\nobject = \"KelPhong\"\n[[mesh]]\nshape = \"sphere\"\nsegments = 1024\n"
              "shader = \"s\"\n");
    std::vector<std::string> flat;
    for (unsigned i = 0; i < 300; ++i) {  // each along a direction of its own
        const std::string x = std::to_string(0.001 * i);
        flat.push_back(", \"matrix\": [1, 0, 0, 0,  0, 1, 0, 0,  " + x + ", 0, 0, 0,  0, 0, 0, 1]");
    }
    const std::string model = writeSheetModel("flat.gltf", 150, flat);
    const auto refused = [](const std::string& what) {
        return AllOf(HasSubstr("oxbeam: error: not enough memory: " + what), HasSubstr("the limit is"),
                     HasSubstr("--memory-limit"));
    };
    expectFailures({
        {"render texture.toml -o old.png --memory-limit 40M", 5,
         refused("texture 'checkers.png' of 4000 x 4000 texels takes 46 MiB")},
        {"check texture.toml --memory-limit 40M", 5, refused("texture 'checkers.png'")},
        {"sweep texture.toml --set shader.body.shininess=1,2 -o old.png --memory-limit 40M", 5,
         refused("texture 'checkers.png'")},
        {"render round.toml -o old.png --memory-limit 20M", 5, refused("mesh '")},
        {"check round.toml --memory-limit 100M", 5, refused("the structure that rays are traced through, of ")},
        {"render " + model + " -o old.png --memory-limit 200M", 5, refused("a copy of mesh '")},
        {"scene " + model + " --memory-limit 600K", 5, refused("model '")},
        {"render scene.toml -o old.png --size 30000x30000 --memory-limit 1G", 5,
         refused("a picture of 30000 x 30000 pixels takes 34 GiB")},
        {"render none.gltf -o old.png --size 60000x60000 --memory-limit 8g", 5, refused("a picture of 60000 x 60000")},
        {"sheet checkers.png -o old.png --memory-limit 40M", 5, refused("texture 'checkers.png'")},
        {"render scene.toml -o old.png --memory-limit 4X", 2,
         HasSubstr("--memory-limit 4X: expected a size such as 512M or 4G, or none")},
    });
    for (const char* bad : {"0", "-1G", "1GG", "G", "nan", "inf", "1e30", "4 G", "none1"})
        EXPECT_EQ(run("check scene.toml --memory-limit=" + std::string(bad)).status, 2) << bad;
    for (const char* good : {"300m", "1.5G", "2T", "900000000", "none"})
        EXPECT_EQ(run("check scene.toml --memory-limit " + std::string(good)).status, 0) << good;
}

TEST_F(Command, TheDoctorSaysHowMuchMemoryMayBeTaken) {
    EXPECT_THAT(run("doctor").out, AllOf(HasSubstr("\nmemory\n"), HasSubstr("available"), HasSubstr("80% of the")));
    EXPECT_THAT(run("doctor --memory-limit 1536M").out, HasSubstr("1.5 GiB, by --memory-limit"));
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
