// Textures: looking them up, applying them, and reading them from files, good and bad.
#include "Engine/Diagnostics/Error.h"
#include "Engine/Textures/TextureFile.h"
#include "Oxbeam/OxFunctions.h"
#include "Tests/Support/Probe.h"
#include "Tests/Support/SceneText.h"

#include <OpenImageIO/imageio.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <iterator>
#include <limits>

using namespace oxbeam::test;

namespace {

Texture greyTexture(unsigned width, unsigned height, const std::vector<float>& texels) {
    return {width, height, 1, texels, ColorSpace::Linear};
}

void expectTexel(const RGBAFloat& a, const RGBAFloat& b, float tolerance = 1e-6f) {
    expectNear(a.rgb(), b.rgb(), tolerance);
    EXPECT_NEAR(a.a, b.a, tolerance);
}

float toLinear(float v) { return v <= 0.04045f ? v / 12.92f : std::pow((v + 0.055f) / 1.055f, 2.4f); }

// Writes a picture of 2 x 2 texels, given row by row from the top, in whatever way the name's format stores the type.
fs::path picture(const std::string& name, OIIO::TypeDesc type, int channels, const std::vector<float>& texels,
                 bool unassociated = false) {
    const fs::path file = scratch() / name;
    const auto output = OIIO::ImageOutput::create(file.string());
    OIIO::ImageSpec spec(2, 2, channels, type);
    if (unassociated) spec["oiio:UnassociatedAlpha"] = 1;
    EXPECT_TRUE(output->open(file.string(), spec) && output->write_image(OIIO::TypeDesc::FLOAT, texels.data()) &&
                output->close());
    return file;
}

}  // namespace

TEST(Texture, NeighboursAreBlendedByTheirDistance) {
    const Texture texture = greyTexture(2, 2, {0, 1, 2, 4});  // the lower row first; centres at 1/4 and 3/4
    for (const auto& [s, t, expected] : {std::tuple(0.75f, 0.25f, 1.0f), std::tuple(0.25f, 0.75f, 2.0f),
                                         std::tuple(0.375f, 0.375f, 13.0f / 16.0f)})  // weights 9/16, 3/16, 3/16, 1/16
        expectTexel(texture.lookUp(s, t), RGBAFloat(expected, expected, expected, 1));
}

TEST(Texture, WrapModesChooseTheTexelsBeyondTheEdges) {
    const Texture texture = greyTexture(4, 1, {1, 2, 3, 4});
    struct Case {
        float s;
        float repeat, clamp, mirror;  // to the nearest texel
    };
    const Case cases[] = {{0.1f, 1, 1, 1},  {1.1f, 1, 4, 4},        {1.3f, 2, 4, 3},         {2.3f, 2, 4, 2},
                          {-0.3f, 3, 1, 2}, {200001.375f, 2, 4, 3}, {-200001.375f, 3, 1, 3}, {1e30f, 1, 4, 1}};
    const Texture column = greyTexture(1, 4, {1, 2, 3, 4});
    for (const Case& c : cases)
        for (const auto& [wrap, expected] : {std::pair(OX_GL_REPEAT, c.repeat), std::pair(OX_GL_CLAMP_TO_EDGE, c.clamp),
                                             std::pair(OX_GL_MIRRORED_REPEAT, c.mirror)}) {
            EXPECT_EQ(texture.lookUp(c.s, 0.5f, wrap, OX_GL_REPEAT, OX_GL_NEAREST).r, expected) << c.s << ' ' << wrap;
            EXPECT_EQ(column.lookUp(0.5f, c.s, OX_GL_REPEAT, wrap, OX_GL_NEAREST).r, expected) << c.s << ' ' << wrap;
        }
    // At the seam itself.
    EXPECT_FLOAT_EQ(texture.lookUp(0, 0, OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR).r, 2.5f);
    EXPECT_FLOAT_EQ(texture.lookUp(0, 0, OX_GL_CLAMP_TO_EDGE, OX_GL_REPEAT, OX_GL_LINEAR).r, 1.0f);
}

TEST(Texture, AnyCoordinateFindsSomeTexel) {
    constexpr float most = std::numeric_limits<float>::max(), infinity = std::numeric_limits<float>::infinity();
    const Texture texture(30000, 1, 1, std::vector<std::uint8_t>(30000, 51), ColorSpace::Linear);
    for (const float s : {std::nanf(""), infinity, -infinity, most, -most, 99999.9f, -99999.9f, 1e-45f, -1e-45f})
        for (const Oxuint wrap : {OX_GL_REPEAT, OX_GL_CLAMP_TO_EDGE, OX_GL_MIRRORED_REPEAT, OxTextureEnum(0)})
            for (const Oxuint filter : {OX_GL_NEAREST, OX_GL_LINEAR})
                expectTexel(texture.lookUp(s, s, wrap, wrap, filter), RGBAFloat(0.2f, 0.2f, 0.2f, 1));
}

TEST(Texture, ModelsAreThoseOfTheTextureEnvironment) {
    struct Case {
        Oxuint model;
        RGBAFloat expected;
    };
    const RGBAFloat fragment(0.5f, 1, 0.25f, 0.8f), texel(0.2f, 0.4f, 1, 0.5f);
    for (const Case& c : {Case{OX_GL_MODULATE, {0.1f, 0.4f, 0.25f, 0.4f}}, Case{OX_GL_REPLACE, texel},
                          Case{OX_GL_ADD, {0.7f, 1.4f, 1.25f, 1.3f}}, Case{OX_GL_DECAL, {0.35f, 0.7f, 0.625f, 0.8f}}}) {
        TestWorld world;
        world.phong();
        world.addSquare(R3(), R3(0, 0, 1));
        auto texture =
            std::make_unique<Texture>(1, 1, 4, std::vector{texel.r, texel.g, texel.b, texel.a}, ColorSpace::Linear);
        texture->textureModel = c.model;
        const auto id = static_cast<Oxuint>(world.textures.add(std::move(texture)));
        const OxState state = world.hit(R3(0, 0, 5), R3(0, 0, -1));
        RGBAFloat four = fragment;
        oxsApplyTexture(&state, id, four);
        expectTexel(four, c.expected);
        R3 texelColor = fragment.rgb();
        oxsGetTexelByST(&state, 7, -3, id, OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR, c.model, texelColor);
        expectNear(texelColor, c.expected.rgb());
        // An id that names no texture changes nothing.
        R3 color = Green;
        oxsApplyTexture(&state, id + 1, color);
        oxsGetTexelByST(&state, 0, 0, id + 1, OX_GL_REPEAT, OX_GL_REPEAT, OX_GL_LINEAR, OX_GL_REPLACE, color);
        EXPECT_EQ(color, Green);
        EXPECT_EQ(oxsGetTexelAlphaValue(&state, id + 1), 1.0f);
        EXPECT_EQ(oxsGetTextureModel(&state, id + 1), OX_GL_MODULATE);
    }
}

TEST(Texture, BumpMapsBendNormalsAwayFromTheRise) {
    struct Case {
        const char* what;
        unsigned width, height, channels;
        std::vector<float> texels;
        BumpKind kind;
        R3 expected;  // in the frame of the texture's axes
    };
    // White rises by 2% of the picture's width: the ramps rise by a third of that over a texel, a quarter of the width.
    const float slope = 0.02f * 4 / 3;
    for (const Case& c :
         {Case{"heights along s", 4, 1, 1, {0, 1.0f / 3, 2.0f / 3, 1}, BumpKind::Height, R3(-slope, 0, 1)},
          Case{"heights along t", 1, 4, 1, {0, 1.0f / 3, 2.0f / 3, 1}, BumpKind::Height, R3(0, -slope, 1)},
          Case{"normals", 1, 1, 3, {0.5f, 0.2f, 0.9f}, BumpKind::Normal, R3(0, -0.6f, 0.8f)}}) {
        SCOPED_TRACE(c.what);
        auto texture = std::make_unique<Texture>(c.width, c.height, c.channels, c.texels, ColorSpace::Linear);
        EXPECT_EQ(texture->bumpKind, c.kind);
        const R3 local = Normalize(c.expected);

        // On a plane that faces up, s runs along x and t along -z; seen from below the other side bends alike.
        TestWorld world;
        world.phong();
        world.add(planeMesh(), ScaleMatrix(R3(10, 1, 10)));
        const Oxint id = world.textures.add(std::move(texture));
        R3 above, below;
        OxState state = world.hit(R3(0, 5, 0), R3(0, -1, 0));
        oxsFindShadingBumpMapNormal(&state, above, id);
        expectNear(above, R3(local.x, local.z, -local.y), 1e-5f);
        state = world.hit(R3(0, -5, 0), R3(0, 1, 0));
        oxsFindShadingBumpMapNormal(&state, below, id);
        expectNear(below, -above, 1e-5f);
    }
}

// Each file holds the same four colours, the bright one in the left lower corner.
TEST(TextureFile, EveryFormatGivesTheSameColoursTheRightWayUp) {
    struct Case {
        const char* name;
        OIIO::TypeDesc type;
        int channels;
        bool sRGB;
        float tolerance;
    };
    const OIIO::TypeDesc byte = OIIO::TypeDesc::UINT8, word = OIIO::TypeDesc::UINT16, real = OIIO::TypeDesc::FLOAT;
    for (const Case& c :
         {Case{"greyalpha.png", byte, 2, true, 0.005f}, Case{"rgba16.png", word, 4, true, 1e-4f},
          Case{"half.exr", OIIO::TypeDesc::HALF, 4, false, 1e-3f}, Case{"grey.tif", real, 1, false, 1e-6f},
          Case{"rgba.tif", byte, 4, true, 0.005f}, Case{"rgb.hdr", real, 3, false, 0.01f}}) {
        SCOPED_TRACE(c.name);
        const bool alpha = c.channels % 2 == 0, grey = c.channels < 3;
        const R3 colors[] = {R3(0.1f, 0.2f, 0.3f), R3(0.5f, 0.25f, 0.03f), R3(0.9f, 1, 0.8f), R3(0, 0, 0.5f)};
        const float alphas[] = {1, 0.4f, 0.6f, 1};
        const bool associated = std::string(c.name).ends_with(".exr");
        std::vector<float> texels;
        for (unsigned i = 0; i < 4; ++i) {
            const float factor = associated && alpha ? alphas[i] : 1.0f;
            for (unsigned k = 0; k < (grey ? 1u : 3u); ++k) texels.push_back(factor * colors[i][k]);
            if (alpha) texels.push_back(alphas[i]);
        }
        const auto texture = loadTexture(picture(c.name, c.type, c.channels, texels, !associated));
        EXPECT_EQ(texture->hasTransparency(), alpha);
        for (unsigned i = 0; i < 4; ++i) {
            const R3 stored = grey ? R3(colors[i].x, colors[i].x, colors[i].x) : colors[i];
            const R3 color = c.sRGB ? R3(toLinear(stored.x), toLinear(stored.y), toLinear(stored.z)) : stored;
            const float s = i % 2 ? 0.75f : 0.25f, t = i < 2 ? 0.75f : 0.25f;
            expectTexel(texture->lookUp(s, t), RGBAFloat(color, alpha ? alphas[i] : 1.0f), c.tolerance);
        }
    }
}

TEST(TextureFile, AnySizeIsTakenAndNumbersThatAreNotFiniteAreMended) {
    const fs::path wide = scratch() / "wide.png";
    writeImage(wide, 16384, 1, std::vector<R3>(16384, White));
    EXPECT_EQ(loadTexture(wide)->width(), 16384u);
    writeImage(scratch() / "one.jpg", 1, 1, {White});
    expectTexel(loadTexture(scratch() / "one.jpg")->lookUp(0.3f, 7), RGBAFloat(1, 1, 1, 1));

    constexpr float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    picture("sky.exr", OIIO::TypeDesc::FLOAT, 3, {nan, 1, 2, inf, 1, -inf, 3, 3, 3, 3, 3, 3});
    const auto sky = loadTexture(scratch() / "sky.exr");
    expectTexel(sky->lookUp(0.25f, 0.75f), RGBAFloat(0, 1, 2, 1));
    expectTexel(sky->lookUp(0.75f, 0.75f), RGBAFloat(65504, 1, -65504, 1));
    EXPECT_THAT(loadText("[texture.sky]\nfile = 'sky.exr'\n").said,
                ElementsAre(HasSubstr("scene.toml:2:8: warning: texture 'sky': 3 numbers of the picture")));
}

// The picture with some bytes of its header replaced.
static fs::path changed(const std::string& name, const std::string& bytes, const std::string& others) {
    std::string content = contentOf(name);
    const auto at = content.find(bytes);
    EXPECT_NE(at, std::string::npos) << name;
    if (at != std::string::npos) content.replace(at, others.size(), others);
    return writeFile("changed-" + name, content);
}

// The header of a grey picture of 60000 x 60000 texels and the start of its data.
static fs::path hugePNG() {
    const std::string size("\0\0\xea\x60\0\0\xea\x60", 8), zeros(3, '\0');
    return writeFile("huge.png", "\x89PNG\r\n\x1a\n" + zeros + "\x0dIHDR" + size + "\x08" + zeros + '\0' +
                                     "\xa5\xb9\x2a\x9e" + zeros + "\x40IDAT\x78\x9c");
}

// What is left of a file of 64 x 64 texels of noise.
static fs::path truncated(const std::string& name, double share) {
    std::vector<std::uint8_t> noise(3 * 64 * 64);
    for (unsigned i = 0, v = 1; i < noise.size(); ++i)
        noise[i] = static_cast<std::uint8_t>((v = v * 1664525 + 1) >> 24);
    const fs::path file = scratch() / ("whole-" + name);
    const auto output = OIIO::ImageOutput::create(file.string());
    EXPECT_TRUE(output->open(file.string(), OIIO::ImageSpec(64, 64, 3, OIIO::TypeDesc::UINT8)) &&
                output->write_image(OIIO::TypeDesc::UINT8, noise.data()) && output->close());
    EXPECT_NO_THROW(loadTexture(file));
    const std::string bytes = contentOf(file);
    return writeFile(name, bytes.substr(0, static_cast<std::size_t>(share * static_cast<double>(bytes.size()))));
}

TEST(TextureFile, BadFilesAreOneErrorAndCostNothing) {
    struct Case {
        fs::path file;
        const char* message;
    };
    using std::string_literals::operator""s;
    fs::create_directory(scratch() / "folder.png");
    for (const char* name : {"small.exr", "small.tif", "small.jpg"})
        picture(name, name == "small.exr"s ? OIIO::TypeDesc::FLOAT : OIIO::TypeDesc::UINT8, 3,
                {0, 0, 0, 1, 1, 1, 0, 0, 0, 1, 1, 1});
    const std::string billion = "\xff\xc9\x9a\x3b", window = "dataWindow\0box2i\0\x10\0\0\0\0\0\0\0\0\0\0\0"s;
    ASSERT_EQ(mkfifo((scratch() / "pipe.png").c_str(), 0600), 0);
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    for (const Case& c :
         {Case{scratch() / "none.png", "does not exist"}, Case{scratch() / "folder.png", "is not a regular file"},
          Case{scratch() / "pipe.png", "is not a regular file"},
          Case{writeFile("text.png", "no picture at all\n"), "cannot be decoded: it is no picture that can be read"},
          Case{writeFile("empty.png", ""), "cannot be decoded: it is no picture that can be read"},
          Case{truncated("early.png", 0.5), "cannot be decoded"},
          Case{truncated("late.jpg", 0.99), "cannot be decoded"},
          Case{truncated("early.exr", 0.7), "cannot be decoded"}, Case{truncated("early.tif", 0.5), ""},
          Case{truncated("early.hdr", 0.5), "cannot be decoded"},
          Case{truncated("header.png", 0.002), "cannot be decoded: it is no picture that can be read"},
          Case{hugePNG(), "cannot be decoded: it claims 60000 x 60000 texels"},
          Case{changed("small.exr", window, window + billion + billion), "cannot be decoded: "},
          Case{changed("small.tif", "\0\1\3\0\1\0\0\0\2\0"s, "\0\1\4\0\1\0\0\0"s + billion), "cannot be decoded: "},
          Case{changed("small.jpg", "\xff\xc0\0\x11\x08"s, "\xff\xc0\0\x11\x08\xff\xdc\xff\xdc"s),
               "cannot be decoded: it claims 65500 x 65500 texels"},
          Case{writeFile("huge.hdr", "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 1000000000 +X 1000000000\n"),
               "cannot be decoded: "}}) {
        SCOPED_TRACE(c.file.filename());
        EXPECT_THAT(failure(ExitStatus::BadScene, [&] { loadTexture(c.file); }),
                    HasSubstr("texture '" + c.file.filename().string() + "' " + c.message));
    }
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 200 << 10);  // KiB
}
