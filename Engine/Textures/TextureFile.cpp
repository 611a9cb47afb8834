#include "Engine/Textures/TextureFile.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Import/ImportProcess.h"
#include "Engine/Import/PictureStream.h"
#include "Engine/System/InputFile.h"

#include <fmt/format.h>

#include <sys/mman.h>
#include <unistd.h>

#include <fstream>

namespace oxbeam {

namespace fs = std::filesystem;

static Error badTexture(const std::string& name, const std::string& message) {
    return {ExitStatus::BadScene, fmt::format("texture '{}' {}", name, message)};
}

static void checkFile(const fs::path& file) {
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
static std::unique_ptr<Texture> takeTexels(ImportProcess& process, const PictureHeader& h, ColorSpace space) {
    std::vector<T> texels(std::size_t{h.width} * h.height * h.channels);
    process.take(texels.data(), texels.size() * sizeof(T));
    return std::make_unique<Texture>(h.width, h.height, h.channels, std::move(texels), space);
}

static std::unique_ptr<Texture> takeTexture(ImportProcess& process, const PictureHeader& h, ColorSpace space) {
    if (h.valueBytes == 1) return takeTexels<std::uint8_t>(process, h, space);
    if (h.valueBytes == 2) return takeTexels<std::uint16_t>(process, h, space);
    return takeTexels<float>(process, h, space);
}

static std::string withName(std::string message, const fs::path& file, const std::string& name) {
    if (const auto at = message.find(file.string()); at != std::string::npos)
        message.replace(at, file.string().size(), name);
    return oneLine(message);
}

std::unique_ptr<Texture> TextureReader::decode(const fs::path& file, const std::string& name,
                                               std::optional<ColorSpace> space) {
    // Kept where nothing goes wrong: a broken picture must not have done anything to the next one.
    auto process = m_process ? std::move(m_process) : std::make_unique<ImportProcess>(PictureProgram);
    PictureHeader header;
    std::uint64_t rest = process->ask(file, fmt::format("texture '{}'", name));
    if (rest < sizeof header) throw badTexture(name, "cannot be decoded: its reader handed back what is no picture");
    process->take(&header, sizeof header);
    rest -= sizeof header;
    if (header.format == PictureHeader::ThisFormat && header.width == 0 && rest < 65536)
        throw badTexture(name, "cannot be decoded: " + withName(process->takeText(rest), file, name));
    if (header.format != PictureHeader::ThisFormat || !consistent(header, rest))
        throw badTexture(name, "cannot be decoded: its reader handed back what is no picture");
    const ColorSpace meant = space.value_or(header.isSRGB ? ColorSpace::SRGB : ColorSpace::Linear);
    std::unique_ptr<Texture> texture = takeTexture(*process, header, meant);
    m_process = std::move(process);
    return texture;
}

// ---- What goes in

TextureReader::TextureReader() = default;
TextureReader::~TextureReader() = default;

std::unique_ptr<Texture> TextureReader::read(const fs::path& file, std::optional<ColorSpace> space) {
    checkFile(file);
    return decode(file, file.string(), space);
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
    return decode(file, name, space);
}

std::unique_ptr<Texture> loadTexture(const fs::path& file, std::optional<ColorSpace> space) {
    return TextureReader().read(file, space);
}

}  // namespace oxbeam
