#include "Engine/Output/ImageFile.h"

#include "Engine/Diagnostics/Error.h"
#include "Engine/System/StoredFile.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>

namespace oxbeam {

namespace fs = std::filesystem;

// ---- Formats

struct Format {
    bool display;   // sRGB integers for looking at, else linear floats
    unsigned most;  // bits that it can have
};

static std::string extensionOf(const fs::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return extension;
}

bool isExr(const fs::path& file) { return extensionOf(file) == ".exr"; }

static const Format& formatOf(const fs::path& file) {
    static const std::map<std::string, Format> formats = {
        {".exr", {false, 32}}, {".hdr", {false, 32}}, {".png", {true, 16}}, {".jpg", {true, 8}}, {".jpeg", {true, 8}}};
    const auto found = formats.find(extensionOf(file));
    if (found == formats.end())
        throw Error(ExitStatus::Usage, fmt::format("cannot tell a picture format from '{}'; expected a name that ends "
                                                   "in .png, .jpg, .exr or .hdr",
                                                   file.string()));
    return found->second;
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

template <class T>
static std::vector<T> toDisplay(const std::vector<R3>& pixels) {
    constexpr float most = std::numeric_limits<T>::max();
    const auto encode = [](float v) {
        const float clamped = v > 0.0f ? std::min(v, 1.0f) : 0.0f;  // NaN is black
        return static_cast<T>(std::lround(OIIO::linear_to_sRGB(clamped) * most));
    };
    std::vector<T> values;
    values.reserve(3 * pixels.size());
    for (const R3& p : pixels) values.insert(values.end(), {encode(p.x), encode(p.y), encode(p.z)});
    return values;
}

// The colours with what stands beside them, pixel by pixel.
static std::vector<float> interleaved(const std::vector<R3>& pixels, const std::vector<Layer>& layers) {
    std::vector<float> values;
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        values.insert(values.end(), {pixels[i].x, pixels[i].y, pixels[i].z});
        for (const Layer& layer : layers) {
            const std::size_t n = layer.channels.size();
            const auto first = layer.values.begin() + static_cast<std::ptrdiff_t>(i * n);
            values.insert(values.end(), first, first + static_cast<std::ptrdiff_t>(n));
        }
    }
    return values;
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
    spec.channelnames = {"R", "G", "B"};
    for (const Layer& layer : options.layers)
        spec.channelnames.insert(spec.channelnames.end(), layer.channels.begin(), layer.channels.end());
    spec.nchannels = static_cast<int>(spec.channelnames.size());
    if (!options.compress) spec["compression"] = "none";
    for (const auto& [name, value] : options.attributes) setAttribute(spec, name, value);
    if (!options.placement) return;
    spec.x = static_cast<int>(options.placement->window.x0);
    spec.y = static_cast<int>(options.placement->window.y0);
    spec.full_width = static_cast<int>(options.placement->whole.width);
    spec.full_height = static_cast<int>(options.placement->whole.height);
}

static std::vector<unsigned char> encode(const fs::path& file, unsigned width, unsigned height,
                                         const std::vector<R3>& pixels, const ImageOptions& options) {
    const Format& format = formatOf(file);
    const auto output = OIIO::ImageOutput::create(file.string());
    if (!output) throw cannotWrite(file, OIIO::geterror());

    const OIIO::TypeDesc type = !format.display      ? OIIO::TypeDesc::FLOAT
                                : options.bits == 16 ? OIIO::TypeDesc::UINT16
                                                     : OIIO::TypeDesc::UINT8;
    OIIO::ImageSpec spec(static_cast<int>(width), static_cast<int>(height), 3, type);
    spec["oiio:ColorSpace"] = format.display ? "sRGB" : "Linear";
    if (format.most == 8) spec["CompressionQuality"] = 92;
    if (isExr(file))
        extend(spec, options);
    else if (const auto software = options.attributes.find("Software"); software != options.attributes.end())
        setAttribute(spec, software->first, software->second);

    std::vector<unsigned char> bytes;
    OIIO::Filesystem::IOVecOutput memory(bytes);
    output->set_ioproxy(&memory);
    bool good = output->open(file.string(), spec);
    if (good && !format.display)
        good = spec.nchannels == 3
                   ? output->write_image(OIIO::TypeDesc::FLOAT, pixels.data())
                   : output->write_image(OIIO::TypeDesc::FLOAT, interleaved(pixels, options.layers).data());
    if (good && type == OIIO::TypeDesc::UINT8) good = output->write_image(type, toDisplay<std::uint8_t>(pixels).data());
    if (good && type == OIIO::TypeDesc::UINT16)
        good = output->write_image(type, toDisplay<std::uint16_t>(pixels).data());
    good = output->close() && good;
    if (!good || output->has_error()) throw cannotWrite(file, output->geterror());
    return bytes;
}

void writeImage(const fs::path& file, unsigned width, unsigned height, const std::vector<R3>& pixels,
                const ImageOptions& options) {
    storeFile(file, encode(file, width, height, pixels, options));
}

}  // namespace oxbeam
