#include "Engine/System/Hash.h"

#include "Engine/Diagnostics/Error.h"

#include <fmt/format.h>
#define XXH_INLINE_ALL
#include <xxhash.h>

#include <fstream>
#include <vector>

namespace oxbeam {

std::uint64_t hashOf(std::span<const std::byte> bytes, std::uint64_t before) {
    return XXH64(bytes.data(), bytes.size(), before);
}

std::uint64_t hashOf(std::string_view text) { return hashOf(std::as_bytes(std::span(text))); }

std::uint64_t hashOfFile(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> chunk(1u << 20);
    std::uint64_t hash = 0;
    while (stream) {
        stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        hash = hashOf(std::as_bytes(std::span(chunk)).first(static_cast<std::size_t>(stream.gcount())), hash);
    }
    if (!stream.eof()) throw Error(ExitStatus::InputOutput, fmt::format("cannot read '{}'", file.string()));
    return hash;
}

}  // namespace oxbeam
