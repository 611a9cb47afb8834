// Pictures as they come back from the files they were written to, and writing that fails.
#include "Engine/Output/ImageFile.h"

#include "Tests/Support/SceneText.h"

#include <OpenImageIO/imageio.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cmath>
#include <csignal>
#include <iterator>

using namespace oxbeam::test;

namespace {

constexpr unsigned Width = 40, Height = 24;

// Smooth to the eye, with a bright first row, so that it can be told which way up it is.
std::vector<R3> smoothPicture() {
    std::vector<R3> pixels;
    for (unsigned y = 0; y < Height; ++y)
        for (unsigned x = 0; x < Width; ++x) {
            const float right = static_cast<float>(x) / Width, up = 1.0f - static_cast<float>(y) / Height;
            pixels.emplace_back(right * right, up * up, 0.25f);
        }
    return pixels;
}

std::vector<float> readBack(const fs::path& file, OIIO::TypeDesc::BASETYPE storedAs) {
    const auto input = OIIO::ImageInput::open(file.string());
    if (!input) throw std::runtime_error(OIIO::geterror());
    EXPECT_EQ(input->spec().format.basetype, storedAs);
    EXPECT_EQ(input->spec().width, static_cast<int>(Width));
    EXPECT_EQ(input->spec().height, static_cast<int>(Height));
    EXPECT_EQ(input->spec().nchannels, 3);
    std::vector<float> values(std::size_t{3} * Width * Height);
    EXPECT_TRUE(input->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, values.data()));
    return values;
}

float toSRGB(float v) { return v <= 0.0031308f ? 12.92f * v : 1.055f * std::pow(v, 1 / 2.4f) - 0.055f; }

}  // namespace

TEST(ImageFile, PicturesComeBackAsTheyWere) {
    struct Case {
        const char* name;
        unsigned bits;
        OIIO::TypeDesc::BASETYPE stored;
        bool sRGB;
        float tolerance;  // 8 bits are dithered; JPEG halves the resolution of the colours
    };
    const std::vector<R3> pixels = smoothPicture();
    for (const Case& c : {Case{"p8.png", 8, OIIO::TypeDesc::UINT8, true, 1.0f / 255},
                          Case{"p16.png", 16, OIIO::TypeDesc::UINT16, true, 0.52f / 65535},
                          Case{"p8.tif", 8, OIIO::TypeDesc::UINT8, true, 1.0f / 255},
                          Case{"p16.TIFF", 16, OIIO::TypeDesc::UINT16, true, 0.52f / 65535},
                          Case{"p.jpg", 8, OIIO::TypeDesc::UINT8, true, 12.0f / 255},
                          Case{"p.exr", 8, OIIO::TypeDesc::FLOAT, false, 0.0f},
                          Case{"p.hdr", 8, OIIO::TypeDesc::FLOAT, false, 0.008f}}) {
        SCOPED_TRACE(c.name);
        const fs::path file = scratch() / c.name;
        writeImage(file, Width, Height, pixels, {c.bits});
        const std::vector<float> values = readBack(file, c.stored);
        for (std::size_t i = 0; i < values.size(); ++i) {
            const float linear = pixels[i / 3][static_cast<unsigned>(i % 3)];
            ASSERT_NEAR(values[i], c.sRGB ? toSRGB(linear) : linear, c.tolerance) << "value " << i;
        }
        // A picture may be read by whom any new file may be read.
        struct stat status {};
        ASSERT_EQ(stat(file.c_str(), &status), 0);
        const mode_t mask = umask(0);
        umask(mask);
        EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
    }
}

TEST(ImageFile, ColoursBeyondTheDisplayAreCutAndKeptInFloats) {
    std::vector<R3> pixels(Width * Height);
    pixels[0] = R3(7, -1, std::nanf(""));
    pixels[1] = R3(1e30f, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::infinity());
    writeImage(scratch() / "bright.png", Width, Height, pixels);
    std::vector<float> values = readBack(scratch() / "bright.png", OIIO::TypeDesc::UINT8);
    EXPECT_THAT(std::vector(values.begin(), values.begin() + 6), ElementsAre(1, 0, 0, 1, 0, 1));
    writeImage(scratch() / "bright.exr", Width, Height, pixels);
    values = readBack(scratch() / "bright.exr", OIIO::TypeDesc::FLOAT);
    EXPECT_TRUE(values[0] == 7.0f && values[1] == -1.0f && std::isnan(values[2]) && values[3] == 1e30f);
}

TEST(ImageFile, TheHeaderSaysWhatThePictureIs) {
    const std::vector<R3> pixels = smoothPicture();
    const Layer alpha{{"A"}, [](std::size_t i, float* to) { *to = i % Width < Width / 2 ? 0.5f : 1.0f; }};
    struct Case {
        const char* name;
        const char* space;  // nothing: does not say
        bool alpha;
    };
    for (const Case& c : {Case{"h.png", "sRGB", true}, Case{"h.tif", "", true}, Case{"h.jpg", "sRGB", false},
                          Case{"h.exr", "Linear", true}}) {
        SCOPED_TRACE(c.name);
        ImageOptions options;
        options.attributes["Software"] = "a test";
        if (c.alpha) options.alpha = alpha;
        writeImage(scratch() / c.name, Width, Height, pixels, options);
        OIIO::ImageSpec hints;
        hints["oiio:UnassociatedAlpha"] = 1;
        const auto input = OIIO::ImageInput::open((scratch() / c.name).string(), &hints);
        ASSERT_TRUE(input);
        const OIIO::ImageSpec& spec = input->spec();
        EXPECT_EQ(spec.get_string_attribute("Software"), "a test");
        EXPECT_EQ(spec.get_string_attribute("oiio:ColorSpace"), c.space);
        EXPECT_EQ(spec.alpha_channel, c.alpha ? 3 : -1);
        if (!c.alpha) continue;
        std::vector<float> row(std::size_t{4} * Width);
        ASSERT_TRUE(input->read_scanline(0, 0, OIIO::TypeDesc::FLOAT, row.data()));
        EXPECT_NEAR(row[3], 0.5f, 1.0f / 255);
        EXPECT_FLOAT_EQ(row[4 * Width - 1], 1.0f);
    }
}

// A limit on the size of this process' files stands in for the disk.
TEST(ImageFile, AFullDiskLeavesTheOldPictureAndNothingElse) {
    rlimit unlimited{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &unlimited), 0);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    for (const char* name : {"p.png", "p.jpg", "p.tif", "p.exr", "p.hdr"}) {
        SCOPED_TRACE(name);
        const fs::path folder = scratch() / (std::string("full-") + name), file = folder / name;
        fs::create_directory(folder);
        writeImage(file, Width, Height, smoothPicture());
        const std::string old = contentOf(file);
        const rlimit half{old.size() / 2, unlimited.rlim_max};
        setrlimit(RLIMIT_FSIZE, &half);
        EXPECT_THAT(failure(ExitStatus::InputOutput, [&] { writeImage(file, Width, Height, smoothPicture()); }),
                    HasSubstr("File too large"));
        setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_TRUE(contentOf(file) == old);
        EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
    }
    std::signal(SIGXFSZ, handler);
}

// Large enough for several threads; rows that no block ends with, and a part of a picture.
TEST(ImageFile, ALayeredPartOfAPictureComesBackFromExrBitByBit) {
    constexpr unsigned width = 413, height = 307;
    const auto value = [](std::size_t pixel, unsigned channel) {
        return std::ldexp(static_cast<float>((pixel * 2654435761u + channel * 40503u) & 0xffffff), -12);
    };
    std::vector<R3> pixels;
    for (std::size_t i = 0; i < std::size_t{width} * height; ++i)
        pixels.emplace_back(value(i, 0), value(i, 1), value(i, 2));
    ImageOptions options;
    options.placement = {{17, 5, 17 + width, 5 + height}, {640, 480}};
    options.alpha = {{"A"}, [&](std::size_t i, float* to) { *to = value(i, 3); }};
    options.layers = {{{"b.Z", "a.Z"}, [&](std::size_t i, float* to) { to[0] = value(i, 4), to[1] = value(i, 5); }}};
    options.attributes = {{"Software", "a test"},
                          {"oxbeam:whole", 7},
                          {"oxbeam:part", 0.5f},
                          {"oxbeam:an attribute of a long name, and more", std::string(3000, 'x')}};
    for (const bool compress : {true, false}) {
        options.compress = compress;
        writeImage(scratch() / "layers.exr", width, height, pixels, options);
        const auto input = OIIO::ImageInput::open((scratch() / "layers.exr").string());
        ASSERT_TRUE(input);
        const OIIO::ImageSpec& spec = input->spec();
        EXPECT_EQ(spec.get_string_attribute("compression"), compress ? "zip" : "none");
        EXPECT_THAT(spec.channelnames, ElementsAre("R", "G", "B", "A", "a.Z", "b.Z"));
        EXPECT_THAT((std::vector{spec.x, spec.y, spec.width, spec.height, spec.full_x, spec.full_y, spec.full_width,
                                 spec.full_height}),
                    ElementsAre(17, 5, 413, 307, 0, 0, 640, 480));
        EXPECT_EQ(spec.get_int_attribute("oxbeam:whole"), 7);
        EXPECT_EQ(spec.get_float_attribute("oxbeam:part"), 0.5f);
        EXPECT_EQ(spec.get_string_attribute("oxbeam:an attribute of a long name, and more").size(), 3000u);
        EXPECT_FALSE(spec.get_string_attribute("DateTime").empty());
        std::vector<float> values(std::size_t{6} * width * height);
        ASSERT_TRUE(input->read_image(0, 0, 0, 6, OIIO::TypeDesc::FLOAT, values.data()));
        constexpr unsigned order[] = {0, 1, 2, 3, 5, 4};
        for (std::size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(values[i], value(i / 6, order[i % 6])) << "value " << i;
    }
}

// The encoder's own way out of an error would be the end of the process.
TEST(ImageFile, WhatAFormatCannotHoldIsAnError) {
    const std::vector<R3> row(65501, White);
    const fs::path file = scratch() / "wide.jpg";
    EXPECT_THAT(failure(ExitStatus::InputOutput, [&] { writeImage(file, 65501, 1, row); }), HasSubstr("65500"));
    EXPECT_FALSE(fs::exists(file));
    const std::pair<const char*, unsigned> longest[] = {
        {"a.jpg", 65500}, {"a.jpeg", 65500}, {"a.gif", 65535}, {"a.mp4", 16384}};
    for (const auto& [name, side] : longest) {
        checkImageSize(name, 1, side);
        EXPECT_THAT(failure(ExitStatus::Usage, [&] { checkImageSize(name, side + 1, 1); }), HasSubstr("on a side"));
    }
    for (const char* name : {"a.png", "a.tif", "a.exr", "a.hdr"}) checkImageSize(name, 65536, 65536);
    // Nor has it room for alpha: colours are multiplied by that already.
    ImageOptions options;
    options.alpha = {{"A"}, [](std::size_t, float* to) { *to = 0.5f; }};
    for (const char* name : {"opaque.jpg", "opaque.hdr"}) {
        writeImage(scratch() / name, Width, Height, std::vector<R3>(Width * Height, 0.5f * White), options);
        const auto input = OIIO::ImageInput::open((scratch() / name).string());
        ASSERT_TRUE(input);
        EXPECT_EQ(input->spec().nchannels, 3) << name;
    }
}
