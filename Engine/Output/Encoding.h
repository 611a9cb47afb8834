// A picture on its way into a file, for what knows the format.
#pragma once

#include "Engine/Output/ImageFile.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace oxbeam {

// In small letters, with the dot.
std::string extensionOf(const std::filesystem::path& file);

struct Encoding {
    std::filesystem::path file;  // for messages
    std::string format;          // one of imageFormats()
    unsigned width = 0, height = 0;
    unsigned valueBytes = 0;  // 1 or 2: sRGB integers for looking at; 4: linear floats
    std::vector<std::string> channels;
    const ImageOptions& options;
    // Puts the values of the pixels from `begin` to `end` there, pixel by pixel; `to` is aligned for them.
    std::function<void(std::size_t begin, std::size_t end, void* to)> put;

    std::size_t rowBytes() const { return std::size_t{width} * channels.size() * valueBytes; }
};

// Colours as integers of 8 bits for looking at, three a pixel. Alpha is left out.
void putForDisplay(const std::vector<R3>& pixels, unsigned width, const ImageOptions& options, std::uint8_t* to);

}  // namespace oxbeam
