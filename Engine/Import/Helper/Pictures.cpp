// The program that decodes pictures.
#include "Engine/Import/ExrStream.h"
#include "Engine/Import/Helper/Requests.h"
#include "Engine/Import/PictureStream.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <type_traits>

using namespace oxbeam;
namespace fs = std::filesystem;

[[noreturn]] static void refuse(const std::string& why) { throw std::runtime_error(why); }

// A few bytes can claim any size; what is claimed is checked before it is allocated.
static void checkSize(const fs::path& file, const OIIO::ImageSpec& spec, const PictureHeader& header) {
    if (spec.width < 1 || spec.height < 1 || spec.depth > 1 || spec.nchannels < 1)
        refuse("it has no two-dimensional picture in it");
    const std::string claim =
        "it claims " + std::to_string(spec.width) + " x " + std::to_string(spec.height) + " texels; ";
    if (header.width > MaxPictureSide || header.height > MaxPictureSide || header.texelBytes() > MaxPictureBytes)
        refuse(claim + "at most " + std::to_string(MaxPictureSide) + " a side and " +
               std::to_string(MaxPictureBytes >> 30) + " GiB in all are taken");
    // No compression shrinks a large picture to next to nothing.
    constexpr std::uint64_t large = 256u << 20, ratio = 100'000;
    if (header.texelBytes() > large && header.texelBytes() / ratio > fs::file_size(file))
        refuse(claim + "it is too short to hold them");
}

// Some decoders call a picture complete whose data ended early. A complete JPEG holds an end marker behind its data.
static bool cutOff(const fs::path& file, const OIIO::ImageInput& input) {
    if (std::string_view(input.format_name()) != "jpeg") return false;
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    return bytes.rfind("\xff\xd9") == std::string::npos || bytes.rfind("\xff\xd9") < bytes.rfind("\xff\xda");
}

// Formats that store colours multiplied by alpha are brought to what look-ups expect. Integers lose nothing by it: they
// are at least as fine as what they were made from.
template <class T>
static void unpremultiply(T* texels, std::size_t count, unsigned channels) {
    constexpr bool isFloat = std::is_floating_point_v<T>;
    constexpr float one = isFloat ? 1.0f : static_cast<float>(std::numeric_limits<T>::max());
    for (T* t = texels; t < texels + count * channels; t += channels) {
        const auto alpha = static_cast<float>(t[channels - 1]);
        for (unsigned c = 0; c + 1 < channels && alpha > 0.0f; ++c) {
            const float color = static_cast<float>(t[c]) / alpha * one;
            t[c] = isFloat ? static_cast<T>(color) : static_cast<T>(std::lround(std::min(color, one)));
        }
    }
}

template <class T>
static std::vector<std::byte> decode(const fs::path& file, OIIO::ImageInput& input, const PictureHeader& header) {
    const std::size_t rowLength = std::size_t{header.width} * header.channels;
    std::vector<std::byte> bytes(sizeof header + header.texelBytes());
    std::memcpy(bytes.data(), &header, sizeof header);
    auto* texels = reinterpret_cast<T*>(bytes.data() + sizeof header);
    // From the bottom row upwards, by a negative stride from the last row.
    const bool read = input.read_image(0, 0, 0, static_cast<int>(header.channels), OIIO::TypeDescFromC<T>::value(),
                                       texels + rowLength * (header.height - 1), OIIO::AutoStride,
                                       -static_cast<OIIO::stride_t>(rowLength * sizeof(T)), OIIO::AutoStride);
    if (!read || input.has_error()) refuse(input.geterror());
    if (cutOff(file, input)) refuse("it is cut off");
    const bool associated = !input.spec().get_int_attribute("oiio:UnassociatedAlpha");
    if (header.channels % 2 == 0 && associated)
        unpremultiply(texels, std::size_t{header.width} * header.height, header.channels);
    return bytes;
}

// Of more channels than can be taken the first ones are; none but alpha is taken for alpha.
static unsigned channelsOf(const OIIO::ImageSpec& spec) {
    if (spec.nchannels >= 3) return spec.alpha_channel == 3 ? 4 : 3;
    return spec.alpha_channel == 1 ? 2 : 1;
}

// Integers are sRGB and floats are linear, unless the file says otherwise.
static bool isSRGB(const OIIO::ImageSpec& spec, bool isFloat) {
    const std::string name = spec.get_string_attribute("oiio:ColorSpace");
    if (OIIO::Strutil::iequals(name, "linear")) return false;
    return OIIO::Strutil::iequals(name, "sRGB") || !isFloat;
}

static std::vector<std::byte> readPicture(const fs::path& file) {
    // Each thread takes of the addresses that there are.
    OIIO::attribute("threads", 2);
    OIIO::attribute("exr_threads", 2);
    OIIO::ImageSpec hints;
    hints["oiio:UnassociatedAlpha"] = 1;
    const auto input = OIIO::ImageInput::open(file.string(), &hints);
    if (!input) refuse("it is no picture that can be read: " + OIIO::geterror());
    const OIIO::ImageSpec& spec = input->spec();
    const bool bytes = spec.format == OIIO::TypeDesc::UINT8, words = spec.format == OIIO::TypeDesc::UINT16;
    PictureHeader header;
    header.width = static_cast<std::uint32_t>(spec.width), header.height = static_cast<std::uint32_t>(spec.height);
    header.channels = channelsOf(spec);
    header.valueBytes = bytes ? 1 : words ? 2 : 4;
    header.isSRGB = isSRGB(spec, !bytes && !words);
    checkSize(file, spec, header);
    return bytes   ? decode<std::uint8_t>(file, *input, header)
           : words ? decode<std::uint16_t>(file, *input, header)
                   : decode<float>(file, *input, header);
}

// ---- EXR pictures as they are stored

static std::unique_ptr<OIIO::ImageInput> openExr(const fs::path& file) {
    auto input = OIIO::ImageInput::create("openexr");  // no other decoder gets to see it
    OIIO::ImageSpec spec;
    if (!input) refuse(OIIO::geterror());
    if (!input->open(file.string(), spec)) refuse(input->geterror());
    if (spec.deep || spec.depth != 1 || spec.tile_width != 0) refuse("it is no picture of rows");
    if (spec.format != OIIO::TypeDesc::FLOAT || !spec.channelformats.empty()) refuse("it is not of floats");
    const auto most = static_cast<int>(MaxPictureSide);
    if (spec.width < 1 || spec.height < 1 || spec.width > most || spec.height > most || spec.nchannels < 1 ||
        spec.nchannels > static_cast<int>(MaxExrChannels))
        refuse("it claims an absurd size");
    return input;
}

static std::vector<std::byte> exrHeader(const OIIO::ImageSpec& spec, const PictureHeader& header) {
    const ExrOrigin origin{spec.x, spec.y};
    std::string texts;
    const auto add = [&texts](const std::string& text) { texts.append(text.c_str(), text.size() + 1); };
    for (const std::string& name : spec.channelnames) add(name);
    for (const OIIO::ParamValue& a : spec.extra_attribs) {
        if (!a.name().string().starts_with(ExrAttributes)) continue;
        add(a.name().string());
        add(a.type() == OIIO::TypeString  ? attributeText(a.get_string())
            : a.type() == OIIO::TypeInt   ? attributeText(a.get_int())
            : a.type() == OIIO::TypeFloat ? attributeText(a.get_float())
                                          : "?");
    }
    std::vector<std::byte> bytes(sizeof header + sizeof origin + texts.size());
    std::memcpy(bytes.data(), &header, sizeof header);
    std::memcpy(bytes.data() + sizeof header, &origin, sizeof origin);
    std::memcpy(bytes.data() + sizeof header + sizeof origin, texts.data(), texts.size());
    return bytes;
}

static std::vector<std::byte> readExr(const fs::path& file, const ExrRequest& rows) {
    const auto input = openExr(file);
    const OIIO::ImageSpec& spec = input->spec();
    PictureHeader header;
    header.width = static_cast<std::uint32_t>(spec.width), header.height = static_cast<std::uint32_t>(spec.height);
    header.channels = static_cast<std::uint32_t>(spec.nchannels), header.valueBytes = sizeof(float);
    if (rows.count == 0) return exrHeader(spec, header);
    if (rows.first >= header.height || rows.count > header.height - rows.first) refuse("it has no such rows");
    header.height = rows.count;
    std::vector<std::byte> bytes(sizeof header + header.texelBytes());
    std::memcpy(bytes.data(), &header, sizeof header);
    const int top = spec.y + static_cast<int>(rows.first);
    if (!input->read_scanlines(0, 0, top, top + static_cast<int>(rows.count), 0, 0, spec.nchannels,
                               OIIO::TypeDesc::FLOAT, bytes.data() + sizeof header))
        refuse(input->geterror());
    return bytes;
}

// ---- Requests

static std::vector<std::byte> readAsAsked(const fs::path& request) {
    std::string name = request.string();
    ExrRequest rows;
    return rows.takeFrom(name) ? readExr(name, rows) : readPicture(name);
}

static std::vector<std::byte> failure(const std::string& why) {
    const PictureHeader none;
    std::vector<std::byte> bytes(sizeof none + why.size());
    std::memcpy(bytes.data(), &none, sizeof none);
    std::memcpy(bytes.data() + sizeof none, why.data(), why.size());
    return bytes;
}

int main(int argc, char** argv) {
    const auto version = static_cast<unsigned>(OIIO::openimageio_version());
    OIIO::get_string_attribute("format_list");  // what a format needs is loaded while that may be
    const auto needs = [](const fs::path& request) {
        std::string name = request.string();
        ExrRequest().takeFrom(name);
        return std::vector<fs::path>{name};
    };
    return serveRequests(argc, argv,
                         {std::to_string(version / 10000) + '.' + std::to_string(version / 100 % 100) + '.' +
                              std::to_string(version % 100),
                          [](const fs::path& file) { return answerOf(readAsAsked(file)); },
                          [](const std::string& why) { return answerOf(failure(why)); }, needs});
}
