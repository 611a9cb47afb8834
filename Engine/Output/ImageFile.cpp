#include "Engine/Output/ImageFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/Output/Dither.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <map>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Formats

struct Format {
    bool display;   // sRGB integers for looking at, else linear floats
    unsigned most;  // bits that it can have
    bool alpha;
};

static std::string extensionOf(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return extension;
}

bool isExr(const fs::path& file) { return extensionOf(file) == ".exr"; }

// Its colour space would go where cameras put what they know. The library writes that wrongly through a proxy, and that
// there is none it reports as an error, after a file that is good.
static bool isTiff(const fs::path& file) { return extensionOf(file).starts_with(".tif"); }

static const Format& formatOf(const fs::path& file) {
    static const std::map<std::string, Format> formats = {{".png", {true, 16, true}},  {".jpg", {true, 8, false}},
                                                          {".jpeg", {true, 8, false}}, {".tif", {true, 16, true}},
                                                          {".tiff", {true, 16, true}}, {".exr", {false, 32, true}},
                                                          {".hdr", {false, 32, false}}};
    const auto found = formats.find(extensionOf(file));
    if (found == formats.end())
        throw Error(ExitStatus::Usage, fmt::format("cannot tell a picture format from '{}'; expected a name that ends "
                                                   "in .png, .jpg, .tif, .exr or .hdr",
                                                   file.string()));
    return found->second;
}

bool isForDisplay(const fs::path& file) { return formatOf(file).display; }

bool hasRoomForAlpha(const fs::path& file) { return formatOf(file).alpha; }

const std::vector<std::string>& imageFormats() {
    static const std::vector<std::string> formats = {"png", "jpg", "tiff", "exr", "hdr"};
    return formats;
}

void checkImageFormat(const fs::path& file, const ImageOptions& options) {
    const Format& format = formatOf(file);
    if (options.bits != 8 && options.bits != 16)
        throw Error(ExitStatus::Usage, fmt::format("{} bits per channel; expected 8 or 16", options.bits));
    if (format.display && options.bits > format.most)
        throw Error(ExitStatus::Usage,
                    fmt::format("'{}' cannot have {} bits per channel", file.string(), options.bits));
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
            return rounded<T>(OIIO::linear_to_sRGB(clamped), threshold);
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

static void setAttribute(OIIO::ImageSpec& spec, const std::string& name, const Attribute& value) {
    if (const auto* matrix = std::get_if<Matrix44>(&value))
        spec.attribute(name, OIIO::TypeMatrix44, matrix->data());
    else if (const auto* text = std::get_if<std::string>(&value))
        spec.attribute(name, *text);
    else if (const auto* whole = std::get_if<int>(&value))
        spec.attribute(name, *whole);
    else
        spec.attribute(name, std::get<float>(value));
}

// What only EXR has room for.
static void extend(OIIO::ImageSpec& spec, const ImageOptions& options) {
    if (!options.compress) spec["compression"] = "none";
    for (const auto& [name, value] : options.attributes) setAttribute(spec, name, value);
    if (!options.placement) return;
    spec.x = static_cast<int>(options.placement->window.x0);
    spec.y = static_cast<int>(options.placement->window.y0);
    spec.full_width = static_cast<int>(options.placement->whole.width);
    spec.full_height = static_cast<int>(options.placement->whole.height);
}

static OIIO::ImageSpec specOf(const fs::path& file, unsigned width, unsigned height, const ImageOptions& options,
                              const std::vector<std::string>& channels) {
    const Format& format = formatOf(file);
    const OIIO::TypeDesc type = !format.display      ? OIIO::TypeDesc::FLOAT
                                : options.bits == 16 ? OIIO::TypeDesc::UINT16
                                                     : OIIO::TypeDesc::UINT8;
    OIIO::ImageSpec spec(static_cast<int>(width), static_cast<int>(height), static_cast<int>(channels.size()), type);
    spec.channelnames = channels;
    if (!isTiff(file)) spec["oiio:ColorSpace"] = format.display ? "sRGB" : "Linear";
    if (format.most == 8) spec["CompressionQuality"] = 92;
    if (options.alpha && format.display) {
        spec.alpha_channel = 3;
        spec["oiio:UnassociatedAlpha"] = 1;  // the colours are divided by it here already
    }
    if (isExr(file))
        extend(spec, options);
    else if (const auto software = options.attributes.find("Software"); software != options.attributes.end())
        setAttribute(spec, software->first, software->second);
    return spec;
}

// ---- Writing

// What encoders write to. Nothing must be thrown through them: some are written in C.
class SinkProxy : public OIIO::Filesystem::IOProxy {
public:
    SinkProxy(FileSink& sink, const fs::path& file) : IOProxy(file.string(), Write), m_sink(sink) {}

    const char* proxytype() const override { return "sink"; }
    std::size_t size() const override { return m_sink.size(); }
    std::size_t pwrite(const void* data, std::size_t size, std::int64_t offset) override {
        if (m_failure) return 0;
        try {
            m_sink.seek(static_cast<std::uint64_t>(offset));
            m_sink.write({static_cast<const unsigned char*>(data), size});
            return size;
        } catch (...) {
            m_failure = std::current_exception();
            return 0;
        }
    }
    std::size_t write(const void* data, std::size_t size) override {
        const std::size_t written = pwrite(data, size, m_pos);
        m_pos += static_cast<std::int64_t>(written);
        return written;
    }
    void throwFailure() const {
        if (m_failure) std::rethrow_exception(m_failure);
    }

private:
    FileSink& m_sink;
    std::exception_ptr m_failure;
};

// Some megabytes of rows at a time, since blocks of 16 are compressed side by side; `put` puts a pixel's values into
// place.
template <class T, class Put>
static bool writeRows(OIIO::ImageOutput& output, const Put& put) {
    constexpr std::size_t most = 8u << 20;  // bytes
    const OIIO::ImageSpec& spec = output.spec();
    const auto channels = static_cast<std::size_t>(spec.nchannels), width = static_cast<std::size_t>(spec.width);
    const int together = static_cast<int>(std::max<std::size_t>(1, most / (16 * channels * width * sizeof(T)))) * 16;
    std::vector<T> values(channels * width * static_cast<std::size_t>(std::min(together, spec.height)));
    bool good = true;
    std::size_t pixel = 0;
    for (int y = 0; y < spec.height && good; y += together) {
        const int end = std::min(y + together, spec.height);
        T* to = values.data();
        for (const std::size_t last = width * static_cast<std::size_t>(end); pixel < last; ++pixel, to += channels)
            put(pixel, to);
        good = output.write_scanlines(spec.y + y, spec.y + end, 0, OIIO::TypeDescFromC<T>::value(), values.data());
    }
    return good;
}

template <class T, class Put>
static void encode(FileSink& sink, const fs::path& file, const OIIO::ImageSpec& spec, const Put& put) {
    SinkProxy proxy(sink, file);
    const auto output = OIIO::ImageOutput::create(file.string());
    if (!output) throw cannotWrite(file, OIIO::geterror());
    output->set_ioproxy(&proxy);
    bool good = output->open(file.string(), spec);
    good = good && writeRows<T>(*output, put);
    good = output->close() && good;
    proxy.throwFailure();
    if (!good || (output->has_error() && !isTiff(file))) throw cannotWrite(file, output->geterror());
}

static void encodeLayers(FileSink& sink, const fs::path& file, unsigned width, unsigned height,
                         const std::vector<Layer>& layers, const ImageOptions& options) {
    std::vector<std::string> channels;
    for (const Layer& layer : layers) channels.insert(channels.end(), layer.channels.begin(), layer.channels.end());
    encode<float>(sink, file, specOf(file, width, height, options, channels), [&](std::size_t pixel, float* to) {
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
        if (options.alpha) layers.push_back(*options.alpha);
        if (isExr(file)) layers.insert(layers.end(), options.layers.begin(), options.layers.end());
        return encodeLayers(sink, file, width, height, layers, options);
    }
    if (options.alpha) colors.push_back("A");
    const OIIO::ImageSpec spec = specOf(file, width, height, options, colors);
    if (options.bits == 16)
        encode<std::uint16_t>(sink, file, spec, displayEncoder<std::uint16_t>(pixels, width, options));
    else
        encode<std::uint8_t>(sink, file, spec, displayEncoder<std::uint8_t>(pixels, width, options));
}

void writeImage(const fs::path& file, unsigned width, unsigned height, const std::vector<R3>& pixels,
                const ImageOptions& options) {
    StoredFile stored(file);
    writeImage(stored, file, width, height, pixels, options);
    stored.finish();
}

std::string imageLibraryVersion() {
    const int version = OIIO::openimageio_version();
    return fmt::format("{}.{}.{}", version / 10000, version / 100 % 100, version % 100);
}

}  // namespace oxbeam
