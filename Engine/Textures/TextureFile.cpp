#include "Engine/Textures/TextureFile.h"

#include "Engine/Diagnostics/Error.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

namespace oxbeam {

namespace fs = std::filesystem;

static Error badTexture(const fs::path& file, const std::string& message) {
    return {ExitStatus::BadScene, fmt::format("texture '{}' {}", file.string(), message)};
}

// Before the decoder sees it: a pipe or a device would never end.
static void checkFile(const fs::path& file) {
    std::error_code problem;
    const fs::file_status status = fs::status(file, problem);
    if (!fs::exists(status)) throw badTexture(file, "does not exist");
    if (!fs::is_regular_file(status)) throw badTexture(file, "is not a regular file");
}

// A few bytes can claim any size; what is claimed is checked before it is allocated.
static void checkSize(const fs::path& file, const OIIO::ImageSpec& spec, std::size_t texelBytes) {
    constexpr int side = 1 << 16;
    constexpr std::size_t most = std::size_t{4} << 30;
    if (spec.width < 1 || spec.height < 1 || spec.depth > 1 || spec.nchannels < 1)
        throw badTexture(file, "has no two-dimensional picture in it");
    const auto bytes = static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(spec.height) * texelBytes;
    if (spec.width > side || spec.height > side || bytes > most)
        throw badTexture(file, fmt::format("claims {} x {} texels; at most {} a side and 4 GiB in all are taken",
                                           spec.width, spec.height, side));
    // No compression shrinks a large picture to next to nothing.
    constexpr std::size_t large = 256u << 20, ratio = 100'000;
    if (bytes > large && bytes / ratio > fs::file_size(file))
        throw badTexture(file,
                         fmt::format("claims {} x {} texels; it is too short to hold them", spec.width, spec.height));
}

// Some decoders call a picture complete whose data ended early. A complete JPEG holds an end marker behind its data.
static bool cutOff(const fs::path& file, const OIIO::ImageInput& input) {
    if (std::string_view(input.format_name()) != "jpeg") return false;
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    return bytes.rfind("\xff\xd9") == std::string::npos || bytes.rfind("\xff\xd9") < bytes.rfind("\xff\xda");
}

template <class T>
static std::vector<T> readTexels(const fs::path& file, OIIO::ImageInput& input, int channels, OIIO::TypeDesc type) {
    const OIIO::ImageSpec& spec = input.spec();
    const auto rowLength = static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(channels);
    std::vector<T> texels(rowLength * static_cast<std::size_t>(spec.height));
    // From the bottom row upwards, by a negative stride from the last row.
    T* lastRow = texels.data() + rowLength * static_cast<std::size_t>(spec.height - 1);
    const bool read = input.read_image(0, 0, 0, channels, type, lastRow, OIIO::AutoStride,
                                       -static_cast<OIIO::stride_t>(rowLength * sizeof(T)), OIIO::AutoStride);
    if (!read || input.has_error()) throw badTexture(file, fmt::format("cannot be decoded: {}", input.geterror()));
    if (cutOff(file, input)) throw badTexture(file, "cannot be decoded: it is cut off");
    return texels;
}

// Formats that store colours multiplied by alpha are brought to what look-ups expect.
static void unpremultiply(std::vector<float>& texels, unsigned channels) {
    for (std::size_t i = 0; i < texels.size(); i += channels) {
        const float alpha = texels[i + channels - 1];
        for (unsigned c = 0; c + 1 < channels && alpha > 0.0f; ++c) texels[i + c] /= alpha;
    }
}

static ColorSpace spaceOf(const OIIO::ImageSpec& spec, bool isFloat) {
    const std::string name = spec.get_string_attribute("oiio:ColorSpace");
    if (OIIO::Strutil::iequals(name, "linear")) return ColorSpace::Linear;
    if (OIIO::Strutil::iequals(name, "sRGB")) return ColorSpace::SRGB;
    return isFloat ? ColorSpace::Linear : ColorSpace::SRGB;
}

std::unique_ptr<Texture> loadTexture(const fs::path& file, std::optional<ColorSpace> space) {
    checkFile(file);
    OIIO::ImageSpec hints;
    hints["oiio:UnassociatedAlpha"] = 1;
    const auto input = OIIO::ImageInput::open(file.string(), &hints);
    if (!input) throw badTexture(file, fmt::format("is no picture that can be read: {}", OIIO::geterror()));
    const OIIO::ImageSpec spec = input->spec();

    const OIIO::TypeDesc stored = spec.format;
    const bool bytes = stored == OIIO::TypeDesc::UINT8, words = stored == OIIO::TypeDesc::UINT16;
    const bool isFloat = !bytes && !words;
    const int channels = std::min(spec.nchannels, 4);
    const bool associated = spec.alpha_channel >= 0 && !spec.get_int_attribute("oiio:UnassociatedAlpha");
    const bool toFloat = isFloat || associated;
    checkSize(file, spec, static_cast<std::size_t>(channels) * (toFloat ? 4 : words ? 2 : 1));

    const auto w = static_cast<unsigned>(spec.width), h = static_cast<unsigned>(spec.height);
    const auto n = static_cast<unsigned>(channels);
    const ColorSpace meant = space.value_or(spaceOf(spec, isFloat));
    if (toFloat) {
        auto texels = readTexels<float>(file, *input, channels, OIIO::TypeDesc::FLOAT);
        if (associated && (n == 2 || n == 4)) unpremultiply(texels, n);
        return std::make_unique<Texture>(w, h, n, std::move(texels), meant);
    }
    if (words)
        return std::make_unique<Texture>(
            w, h, n, readTexels<std::uint16_t>(file, *input, channels, OIIO::TypeDesc::UINT16), meant);
    return std::make_unique<Texture>(w, h, n, readTexels<std::uint8_t>(file, *input, channels, OIIO::TypeDesc::UINT8),
                                     meant);
}

// Readers want a file, and not all of them take another source of bytes: they get a file in memory.
std::unique_ptr<Texture> loadTexture(const std::vector<std::uint8_t>& bytes, const std::string& name,
                                     std::optional<ColorSpace> space) {
    struct MemoryFile {
        int descriptor = memfd_create("oxbeam-texture", MFD_CLOEXEC);
        ~MemoryFile() { close(descriptor); }
    } memory;
    const fs::path file = fmt::format("/proc/self/fd/{}", memory.descriptor);
    if (memory.descriptor < 0 ||
        !std::ofstream(file, std::ios::binary)
             .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))
             .flush())
        throw badTexture(name, "cannot be put into a file in memory");
    try {
        return loadTexture(file, space);
    } catch (const Error& e) {
        std::string message = e.what();
        if (const auto at = message.find(file.string()); at != std::string::npos)
            message.replace(at, file.string().size(), name);
        throw Error(e.status(), message);
    }
}

}  // namespace oxbeam
