// What becomes of the light in the files of all formats: exposure, dithering, alpha, standard output.
#include "Tests/Support/Command.h"

#include <OpenImageIO/color.h>

#include <algorithm>
#include <cstring>

using namespace oxbeam::test;

namespace {

// A card of a colour, half of whose left column of pixels is covered, before a bright environment.
std::string cardScene(const std::string& image, const std::string& color) {
    return "[image]\nwidth = 40\nheight = 30\nsamples = 16\n" + image +
           "\n[camera]\nposition = [0, 0, 15]\nlookAt = [0, 0, 0]\nfov = 90\n"
           "[environment]\nbackground = [0.7, 0.8, 0.9]\n"
           "[shader.card]\nobject = \"KelPhong\"\ndiffuseColor = [0, 0, 0]\nemissiveColor = " +
           color +
           "\n[[mesh]]\nshape = \"plane\"\nshader = \"card\"\nrotate = [90, 0, 0]\nscale = 100\n"
           "translate = [100.5, 0, 0]\n";
}

}  // namespace

TEST_F(Command, ExposureAndToneAreForDisplaysAndLeaveFloatsAlone) {
    const std::string color = "[0.5, 0.3, 0.04]";
    writeFile("card.toml", cardScene("exposure = 1\ntone = \"neutral\"", color));
    writeFile("plain.toml", cardScene("", color));
    const struct {
        const char* arguments;
        R3 shown;  // linear; what the neutral curve makes of it is worked out in its own test
    } cases[] = {
        {"plain.toml", R3(0.5f, 0.3f, 0.04f)},
        {"plain.toml --exposure -1", R3(0.25f, 0.15f, 0.02f)},
        {"plain.toml --tone neutral", R3(0.47f, 0.27f, 0.01f)},
        {"card.toml --exposure 0", R3(0.47f, 0.27f, 0.01f)},
        {"card.toml --exposure 1 --tone none", R3(1.0f, 0.6f, 0.08f)},
        {"card.toml --tone none --set image.exposure=0", R3(0.5f, 0.3f, 0.04f)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        ASSERT_EQ(run(std::string("render -q -o p.png --bits 16 ") + c.arguments).status, 0);
        const R3 seen = pixel("p.png", 30, 15);
        for (unsigned i = 0; i < 3; ++i) EXPECT_NEAR(OIIO::sRGB_to_linear(seen[i]), c.shown[i], 2e-4f);
    }
    for (const char* output : {"p.exr", "p.hdr"}) {
        ASSERT_EQ(run(std::string("render -q card.toml -o ") + output).status, 0);
        EXPECT_NEAR(pixel(output, 30, 15).x, 0.5f, 0.004f);
        EXPECT_NEAR(pixel(output, 30, 15).y, 0.3f, 0.004f);
    }
}

// The mean of what is stored is that of the light, and a crop is dithered as the whole picture is, on every run.
TEST_F(Command, EightBitsAreDitheredAndCropsHaveTheSameGrain) {
    writeFile("grey.toml", "[image]\nwidth = 64\nheight = 64\n[environment]\nbackground = [0.02, 0.02, 0.02]\n");
    ASSERT_EQ(run("render -q grey.toml -o whole.png").status, 0);
    ASSERT_EQ(run("render -q grey.toml -o again.png --threads 1").status, 0);
    ASSERT_EQ(run("render -q grey.toml -o part.png --crop 37,5,61,33").status, 0);
    EXPECT_TRUE(contentOf("whole.png") == contentOf("again.png"));
    const OIIO::ImageBuf whole = picture("whole.png"), part = picture("part.png");
    for (int y = 0; y < 28; ++y)
        for (int x = 0; x < 24; ++x)
            ASSERT_EQ(part.getchannel(x, y, 0, 0), whole.getchannel(x + 37, y + 5, 0, 0)) << x << ' ' << y;
    float shown = 0.0f;
    for (int i = 0; i < 64 * 64; ++i) shown += 255.0f * whole.getchannel(i % 64, i / 64, 0, 1) / (64 * 64);
    const float meant = 255.0f * OIIO::linear_to_sRGB(0.02f);
    EXPECT_NEAR(shown, meant, 0.02f);
    EXPECT_GT(std::fabs(meant - std::round(meant)), 0.2f) << "it needs dithering";
}

TEST_F(Command, ATransparentBackgroundIsAlphaInTheFormatsThatHaveOne) {
    writeFile("card.toml", cardScene("background = \"transparent\"", "[0.5, 0.25, 0]"));
    const struct {
        const char* output;
        bool straight;
        float step;  // of what is stored
    } cases[] = {{"p.png", true, 1.0f / 255}, {"p.tif --bits 16", true, 1.0f / 65535}, {"p.exr", false, 1e-6f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.output);
        ASSERT_EQ(run(std::string("render -q card.toml -o ") + c.output).status, 0);
        const OIIO::ImageBuf image = picture(std::string(c.output).substr(0, 5));
        ASSERT_EQ(image.nchannels(), 4);
        EXPECT_EQ(image.spec().alpha_channel, 3);
        float color[4];
        image.getpixel(19, 15, color, 4);
        EXPECT_EQ(color[3], 0.0f);
        EXPECT_EQ(color[0], 0.0f);
        image.getpixel(30, 15, color, 4);
        EXPECT_EQ(color[3], 1.0f);
        // The card's edge runs through the middle of this one.
        image.getpixel(20, 15, color, 4);
        EXPECT_NEAR(color[3], 0.5f, 0.07f);
        const float red = c.straight ? OIIO::linear_to_sRGB(0.5f) : 0.5f * color[3];
        const float green = c.straight ? OIIO::linear_to_sRGB(0.25f) : 0.25f * color[3];
        EXPECT_NEAR(color[0], red, c.step);
        EXPECT_NEAR(color[1], green, c.step);
    }
    EXPECT_EQ(run("render -q card.toml -o p.jpg --background environment").status, 0);
    EXPECT_GT(pixel("p.jpg", 5, 15).z, 0.8f);
    EXPECT_THAT(run("render card.toml -o p.exr --packets").err,
                HasSubstr("note: --packets has no effect: packets tell no alpha\n"));
}

TEST_F(Command, APictureOnStandardOutputIsTheFile) {
    for (const std::string format : {"png", "jpg", "tiff", "exr", "hdr"}) {
        SCOPED_TRACE(format);
        const Outcome piped = run("render scene.toml -o - --format " + format);
        ASSERT_EQ(piped.status, 0) << piped.err;
        EXPECT_THAT(piped.err, HasSubstr("wrote standard output (40 x 30)\n"));
        ASSERT_EQ(run("render -q scene.toml -o file." + format).status, 0);
        writeFile("piped." + format, piped.out);
        expectSame("piped." + format, "file." + format);
    }
}
