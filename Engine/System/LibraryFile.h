// What a shared library's file says of itself, read without loading it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace oxbeam {

// Why a file is no good as one, in words that follow "does not load: ".
struct LibraryFault {
    std::string why;
};

struct LibrarySymbol {
    std::string name;
    bool defined = false;
    bool data = false;
};

// A 64-bit shared library ("System V Application Binary Interface", chapters 4 and 5). Every number in it may be wrong:
// all members throw LibraryFault.
class LibraryFile {
public:
    explicit LibraryFile(const std::filesystem::path& path);

    std::span<const std::byte> bytes() const { return m_file.bytes(); }
    // Of a file that lacks its end the system makes memory that ends the process when it is touched.
    void checkComplete() const;
    std::vector<LibrarySymbol> symbols() const;
    // The names of the libraries that are loaded with it.
    std::vector<std::string> needed() const;

private:
    // A regular file in memory.
    class MappedFile {
    public:
        explicit MappedFile(const std::filesystem::path& path);
        ~MappedFile();
        MappedFile(const MappedFile&) = delete;
        MappedFile& operator=(const MappedFile&) = delete;

        std::span<const std::byte> bytes() const { return {static_cast<const std::byte*>(m_memory), m_size}; }

    private:
        void* m_memory;
        std::size_t m_size = 0;
    };
    struct Segment {
        std::uint32_t type;
        std::uint64_t offset, address, size;  // size: in the file
    };
    using DynamicEntries = std::multimap<std::int64_t, std::uint64_t>;

    template <class T>
    T at(std::uint64_t offset) const;
    std::span<const std::byte> part(std::uint64_t offset, std::uint64_t size) const;
    std::uint64_t offsetOf(std::uint64_t address) const;
    DynamicEntries dynamicEntries() const;
    std::uint64_t hashed(std::uint64_t address) const;

    MappedFile m_file;
    std::vector<Segment> m_segments;
};

}  // namespace oxbeam
