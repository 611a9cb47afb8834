// What decodes pictures, in a module: the libraries behind it are opened by the program that uses it, in an order that the
// dynamic linker would not choose.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace oxbeam {

class PictureDecoder {
public:
    virtual ~PictureDecoder() = default;
    // Of the library that it decodes with.
    virtual std::string version() const = 0;
    // Answers a request of the host, as PictureStream.h and ExrStream.h say; throws std::exception, saying why not.
    virtual std::vector<std::byte> read(const std::filesystem::path& request) const = 0;
};

inline constexpr const char* PictureDecoderEntry = "oxbeamPictureDecoder";
using PictureDecoderFunction = const PictureDecoder*();

}  // namespace oxbeam
