#include "Engine/Output/ImageFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Output/Dither.h"
#include "Engine/Output/Encoding.h"
#include "Engine/Output/ExrFile.h"
#include "Engine/Output/JpegFile.h"
#include "Engine/Output/PictureLibrary.h"
#include "Engine/Output/PngFile.h"
#include "Engine/Textures/SRGB.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <map>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Formats

struct Format {
    std::string name;
    bool display;   // sRGB integers for looking at, else linear floats
    unsigned most;  // bits that it can have
    bool alpha;
    bool movie = false;
    // Side, in pixels: JPEG's library's, GIF's 16 bits, and that of the encoder of H.264.
    unsigned longest = std::numeric_limits<unsigned>::max();
};

std::string extensionOf(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return extension;
}

bool isExr(const fs::path& file) { return extensionOf(file) == ".exr"; }

static Error noPicture(const fs::path& file) {
    return {ExitStatus::Usage, fmt::format("cannot tell a picture format from '{}'; expected a name that ends in .png, "
                                           ".jpg, .tif, .exr or .hdr",
                                           file.string())};
}

static const Format& formatOf(const fs::path& file) {
    static const std::map<std::string, Format> formats = {{".png", {"png", true, 16, true}},
                                                          {".jpg", {"jpg", true, 8, false, false, LongestJpegSide}},
                                                          {".jpeg", {"jpg", true, 8, false, false, LongestJpegSide}},
                                                          {".tif", {"tiff", true, 16, true}},
                                                          {".tiff", {"tiff", true, 16, true}},
                                                          {".exr", {"exr", false, 32, true}},
                                                          {".hdr", {"hdr", false, 32, false}},
                                                          {".gif", {"gif", true, 8, false, true, 65535}},
                                                          {".mp4", {"mp4", true, 8, false, true, 16384}}};
    const auto found = formats.find(extensionOf(file));
    return found == formats.end() ? throw noPicture(file) : found->second;
}

bool isForDisplay(const fs::path& file) { return formatOf(file).display; }

bool hasRoomForAlpha(const fs::path& file) { return formatOf(file).alpha; }

const std::vector<std::string>& imageFormats() {
    static const std::vector<std::string> formats = {"png", "jpg", "tiff", "exr", "hdr"};
    return formats;
}

void checkImageFormat(const fs::path& file, const ImageOptions& options) {
    const Format& format = formatOf(file);
    if (format.movie) throw noPicture(file);
    if (options.bits != 8 && options.bits != 16)
        throw Error(ExitStatus::Usage, fmt::format("{} bits per channel; expected 8 or 16", options.bits));
    if (format.display && options.bits > format.most)
        throw Error(ExitStatus::Usage,
                    fmt::format("'{}' cannot have {} bits per channel", file.string(), options.bits));
}

void checkImageSize(const fs::path& file, unsigned width, unsigned height) {
    const Format& format = formatOf(file);
    if (std::max(width, height) > format.longest)
        throw Error(ExitStatus::Usage, fmt::format("'{}' would have {} x {} pixels; {} has at most {} on a side",
                                                   file.string(), width, height, extensionOf(file), format.longest));
}

// ---- Encoding

// A share of the most that an integer holds. The steps between those of 16 bits are never seen.
template <class T>
static T rounded(float share, float threshold) {
    const float value = share * std::numeric_limits<T>::max();
    if constexpr (sizeof(T) == 1) return static_cast<T>(dithered(value, threshold));
    return static_cast<T>(std::lround(value));
}

// Puts pixels of a picture into integers for displays, with their alpha where there is one.
template <class T>
static auto displayEncoder(const std::vector<R3>& pixels, unsigned width, const ImageOptions& options) {
    const Window window = options.placement ? options.placement->window : Window{};
    return [&pixels, &options, width, window](std::size_t i, T* to) {
        const auto x = window.x0 + static_cast<unsigned>(i % width), y = window.y0 + static_cast<unsigned>(i / width);
        const float threshold = ditherThreshold(x, y);
        const auto sRGB = [threshold](float v) {
            const float clamped = v > 0.0f ? std::min(v, 1.0f) : 0.0f;  // NaN is black
            return rounded<T>(linearToSRGB(clamped), threshold);
        };
        float alpha = 1.0f;
        if (options.alpha) {
            options.alpha->values(i, &alpha);
            to[3] = rounded<T>(alpha, threshold);
        }
        const R3 color = alpha > 0.0f ? toned(pixels[i] * (1.0f / alpha), options.tone) : Black;
        to[0] = sRGB(color.x), to[1] = sRGB(color.y), to[2] = sRGB(color.z);
    };
}

void putForDisplay(const std::vector<R3>& pixels, unsigned width, const ImageOptions& options, std::uint8_t* to) {
    const auto put = displayEncoder<std::uint8_t>(pixels, width, options);
    for (std::size_t i = 0; i < pixels.size(); ++i) put(i, to + 3 * i);
}

// ---- Writing

// The function that writes a format by its own library; null where OpenImageIO does it.
static void (*writerOf(const std::string& format))(FileSink&, const Encoding&) {
    return format == "png" ? writePng : format == "jpg" ? writeJpeg : format == "exr" ? writeExr : nullptr;
}

void prepareToWrite(const fs::path& file) {
    if (const std::string& name = formatOf(file).name; !writerOf(name) && name != "mp4") preparePictureLibrary();
}

// `put` puts a pixel's values into place.
template <class T, class Put>
static void encode(FileSink& sink, const fs::path& file, unsigned width, unsigned height,
                   const std::vector<std::string>& channels, const ImageOptions& options, const Put& put) {
    const auto putAll = [&](std::size_t begin, std::size_t end, void* values) {
        auto* to = static_cast<T*>(values);
        for (std::size_t pixel = begin; pixel < end; ++pixel, to += channels.size()) put(pixel, to);
    };
    const Encoding picture{file, formatOf(file).name, width, height, sizeof(T), channels, options, putAll};
    if (const auto write = writerOf(picture.format)) return write(sink, picture);
    if (const std::string why = pictureLibrary().write(sink, picture); !why.empty()) throw cannotWrite(file, why);
}

static void encodeLayers(FileSink& sink, const fs::path& file, unsigned width, unsigned height,
                         const std::vector<Layer>& layers, const ImageOptions& options) {
    std::vector<std::string> channels;
    for (const Layer& layer : layers) channels.insert(channels.end(), layer.channels.begin(), layer.channels.end());
    encode<float>(sink, file, width, height, channels, options, [&](std::size_t pixel, float* to) {
        for (const Layer& layer : layers) {
            layer.values(pixel, to);
            to += layer.channels.size();
        }
    });
}

void writeLayers(FileSink& sink, const fs::path& file, unsigned width, unsigned height, const ImageOptions& options) {
    encodeLayers(sink, file, width, height, options.layers, options);
}

void writeImage(FileSink& sink, const fs::path& file, unsigned width, unsigned height, const std::vector<R3>& pixels,
                const ImageOptions& options) {
    std::vector<std::string> colors = {"R", "G", "B"};
    if (!formatOf(file).display) {
        const auto color = [&pixels](std::size_t pixel, float* to) {
            to[0] = pixels[pixel].x, to[1] = pixels[pixel].y, to[2] = pixels[pixel].z;
        };
        std::vector<Layer> layers = {{colors, color}};
        if (options.alpha && hasRoomForAlpha(file)) layers.push_back(*options.alpha);
        if (isExr(file)) layers.insert(layers.end(), options.layers.begin(), options.layers.end());
        return encodeLayers(sink, file, width, height, layers, options);
    }
    if (options.alpha && !hasRoomForAlpha(file)) {
        ImageOptions opaque = options;
        opaque.alpha = {};
        return writeImage(sink, file, width, height, pixels, opaque);
    }
    if (options.alpha) colors.push_back("A");
    if (options.bits == 16)
        encode<std::uint16_t>(sink, file, width, height, colors, options,
                              displayEncoder<std::uint16_t>(pixels, width, options));
    else
        encode<std::uint8_t>(sink, file, width, height, colors, options,
                             displayEncoder<std::uint8_t>(pixels, width, options));
}

void writeImage(const fs::path& file, unsigned width, unsigned height, const std::vector<R3>& pixels,
                const ImageOptions& options) {
    StoredFile stored(file);
    writeImage(stored, file, width, height, pixels, options);
    stored.finish();
}

std::string imageLibraryVersion() try { return pictureLibrary().version(); } catch (const Error& e) {
    return e.what();
}

}  // namespace oxbeam
