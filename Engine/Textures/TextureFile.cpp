#include "Engine/Textures/TextureFile.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/PictureStream.h"
#include "Engine/Import/RequestStream.h"
#include "Engine/System/InputFile.h"
#include "Engine/System/MemoryBudget.h"

#include <fmt/format.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace oxbeam {

namespace fs = std::filesystem;

static Error badTexture(const std::string& name, const std::string& message) {
    return {ExitStatus::BadScene, fmt::format("texture '{}' {}", name, message)};
}

void checkTextureFile(const fs::path& file) {
    const InputFile input = inputFile(file);
    if (input.state == InputFile::Missing) throw badTexture(file.string(), "does not exist");
    if (input.state == InputFile::NotRegular) throw badTexture(file.string(), "is not a regular file");
    if (input.state == InputFile::Refused)
        throw Error(ExitStatus::InputOutput, fmt::format("texture '{}' cannot be read: {}", file.string(), input.why));
}

// ---- What comes back

static bool consistent(const PictureHeader& h, std::uint64_t rest) {
    const bool known = h.valueBytes == 1 || h.valueBytes == 2 || h.valueBytes == 4;
    return h.width <= MaxPictureSide && h.height <= MaxPictureSide && h.channels >= 1 && h.channels <= 4 && known &&
           h.texelBytes() > 0 && h.texelBytes() == rest;
}

template <class T>
static std::unique_ptr<Texture> takeTexels(ImportProcess& process, const PictureHeader& h, unsigned rows,
                                           ColorSpace space) {
    std::vector<T> texels(std::size_t{h.width} * rows * h.channels);
    process.take(texels.data(), texels.size() * sizeof(T));
    return std::make_unique<Texture>(h.width, rows, h.channels, std::move(texels), space);
}

// The next rows of what is handed back.
static std::unique_ptr<Texture> takeRows(ImportProcess& process, const PictureHeader& h, unsigned rows,
                                         std::optional<ColorSpace> chosen) {
    const ColorSpace space = chosen.value_or(h.isSRGB ? ColorSpace::SRGB : ColorSpace::Linear);
    if (h.valueBytes == 1) return takeTexels<std::uint8_t>(process, h, rows, space);
    if (h.valueBytes == 2) return takeTexels<std::uint16_t>(process, h, rows, space);
    return takeTexels<float>(process, h, rows, space);
}

static std::string withName(std::string message, const fs::path& file, const std::string& name) {
    if (const auto at = message.find(file.string()); at != std::string::npos)
        message.replace(at, file.string().size(), name);
    return oneLine(message);
}

// What comes back for a file up to its texels.
static PictureHeader takeHeader(ImportProcess& process, const fs::path& file, const std::string& name, int descriptor) {
    PictureHeader header;
    std::uint64_t rest = process.ask(file, fmt::format("texture '{}'", name), {}, descriptor);
    if (rest < sizeof header) throw badTexture(name, "cannot be decoded: its reader handed back what is no picture");
    process.take(&header, sizeof header);
    rest -= sizeof header;
    if (header.format == PictureHeader::ThisFormat && header.width == 0 && rest < 65536)
        throw badTexture(name, "cannot be decoded: " + withName(process.takeText(rest), file, name));
    if (header.format != PictureHeader::ThisFormat || !consistent(header, rest))
        throw badTexture(name, "cannot be decoded: its reader handed back what is no picture");
    return header;
}

std::unique_ptr<Texture> TextureReader::decode(const fs::path& file, const std::string& name, const Taker& take,
                                               int descriptor) {
    // Kept where nothing goes wrong: a broken picture must not have done anything to the next one.
    auto process = m_process ? std::move(m_process) : std::make_unique<ImportProcess>(PictureProgram);
    const PictureHeader header = takeHeader(*process, file, name, descriptor);
    const std::string size = fmt::format("texture '{}' of {} x {} texels", name, header.width, header.height);
    const MemoryCharge decoded(MemoryUse::Textures, header.texelBytes(), size);  // the process', until it is taken
    std::unique_ptr<Texture> texture = take(*process, header, size);
    if (m_version.empty()) m_version = process->version();
    m_process = std::move(process);
    return texture;
}

static std::unique_ptr<Texture> takeWhole(ImportProcess& process, const PictureHeader& header, const std::string& size,
                                          std::optional<ColorSpace> space) {
    requireMemory(MemoryUse::Textures, header.texelBytes(), size);  // before it is allocated; then the texture's own
    return takeRows(process, header, header.height, space);
}

// Where part number `part` of so many begins, of a side that is cut as evenly as can be.
static unsigned cut(unsigned side, unsigned part, unsigned parts) {
    return static_cast<unsigned>(std::uint64_t{side} * part / parts);
}

static std::unique_ptr<Texture> takeReduced(ImportProcess& process, const PictureHeader& header, unsigned width,
                                            unsigned height) {
    std::vector<float> texels;
    texels.reserve(std::size_t{3} * width * height);
    for (unsigned y = 0; y < height; ++y) {
        const unsigned rows = cut(header.height, y + 1, height) - cut(header.height, y, height);
        const auto strip = takeRows(process, header, rows, std::nullopt);
        for (unsigned x = 0; x < width; ++x) {
            const R3 mean = strip->mean(cut(header.width, x, width), 0, cut(header.width, x + 1, width), rows);
            texels.insert(texels.end(), {mean.x, mean.y, mean.z});
        }
    }
    return std::make_unique<Texture>(width, height, 3u, std::move(texels), ColorSpace::Linear);
}

// ---- What goes in

TextureReader::TextureReader() = default;
TextureReader::~TextureReader() = default;

void TextureReader::start() try {
    if (!m_process) m_process = std::make_unique<ImportProcess>(PictureProgram);
} catch (const Error&) {
    // Which the first picture will say.
}

static auto wholeTaker(std::optional<ColorSpace> space) {
    return [space](ImportProcess& process, const PictureHeader& header, const std::string& size) {
        return takeWhole(process, header, size, space);
    };
}

std::unique_ptr<Texture> TextureReader::read(const fs::path& file, std::optional<ColorSpace> space) {
    checkTextureFile(file);
    return decode(file, file.string(), wholeTaker(space));
}

std::unique_ptr<Texture> TextureReader::readReduced(const fs::path& file, unsigned width, unsigned height) {
    checkTextureFile(file);
    return decode(file, file.string(), [&](ImportProcess& process, const PictureHeader& h, const std::string& size) {
        // As many texels as one is made of along a side, the same both ways.
        const unsigned block = std::max(h.width / width, h.height / height);
        if (block < 2) return takeWhole(process, h, size, std::nullopt);
        return takeReduced(process, h, std::max(1u, h.width / block), std::max(1u, h.height / block));
    });
}

// Decoders want a file, and not all of them take another source of bytes: they get one in this process' memory.
std::unique_ptr<Texture> TextureReader::read(const std::vector<std::uint8_t>& bytes, const std::string& name,
                                             std::optional<ColorSpace> space) {
    struct MemoryFile {
        int descriptor = memfd_create("oxbeam-texture", MFD_CLOEXEC);
        ~MemoryFile() { close(descriptor); }
    } memory;
    const fs::path file = fmt::format("/proc/{}/fd/{}", getpid(), memory.descriptor);
    if (memory.descriptor < 0 ||
        !std::ofstream(file, std::ios::binary)
             .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()))
             .flush())
        throw badTexture(name, "cannot be put into a file in memory");
    return decode(PassedFile, name, wholeTaker(space), memory.descriptor);
}

std::unique_ptr<Texture> loadTexture(const fs::path& file, std::optional<ColorSpace> space) {
    return TextureReader().read(file, space);
}

}  // namespace oxbeam
