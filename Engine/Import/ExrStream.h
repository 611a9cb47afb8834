// An EXR picture as it is stored, all channels as floats, for the way from the process that decodes it to the host: what
// its header says, and then some rows at a time, so that neither side needs all of it at once.
#pragma once

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>

namespace oxbeam {

// What is asked for by words in front of the file's name: rows from the top, or none and the header instead.
//
// Both answers begin with a PictureHeader. Rows follow it as they are stored, pixel by pixel. The header's ExrOrigin and
// texts follow it, each text with a zero behind it: the names of the channels, and then name and value of each attribute
// whose name begins with ExrAttributes.
struct ExrRequest {
    std::uint32_t first = 0, count = 0;

    std::string words() const { return "exr " + std::to_string(first) + ' ' + std::to_string(count) + ' '; }
    // Takes the words off a request that begins with them.
    bool takeFrom(std::string& request) {
        int length = 0;
        if (std::sscanf(request.c_str(), "exr %u %u %n", &first, &count, &length) != 2 || length == 0) return false;
        request.erase(0, static_cast<std::size_t>(length));
        return true;
    }
};

// Where the picture's left top corner is in the whole.
struct ExrOrigin {
    std::int32_t x = 0, y = 0;
};

inline constexpr const char* ExrAttributes = "oxbeam:";
inline constexpr std::uint32_t MaxExrChannels = 64;

// Values as texts that tell every bit of them.
inline std::string attributeText(const std::string& value) { return 's' + value; }
inline std::string attributeText(int value) { return 'i' + std::to_string(value); }
inline std::string attributeText(float value) { return 'f' + std::to_string(std::bit_cast<std::uint32_t>(value)); }

}  // namespace oxbeam
