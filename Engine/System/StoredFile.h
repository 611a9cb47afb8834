// Writing files that are whole or not there.
#pragma once

#include "Engine/Diagnostics/Error.h"
#include "Oxbeam/OxTypes.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace oxbeam {

// "cannot write" a file, and why.
OXBEAM_API Error cannotWrite(const std::filesystem::path& file, const std::string& why);

// Where the bytes of a file go, one part after the other and some of them later than those that follow. All members
// throw Error(InputOutput).
class FileSink {
public:
    virtual ~FileSink() = default;
    // Puts bytes at the position, which moves on. Positions in between that were left out become zeros.
    virtual void write(std::span<const unsigned char> bytes) = 0;
    virtual void seek(std::uint64_t position) = 0;
    virtual std::uint64_t position() const = 0;
    virtual std::uint64_t size() const = 0;
    // Nothing more comes: only now there is a file.
    virtual void finish() = 0;
};

// A file that is written beside its target under another name, read back and then renamed: the target stays as it was
// until all of the new content is on the disk, and for good where this is destroyed before `finish`. A link is followed
// to what it names, and a file that is replaced hands its rights on. Takes the same memory for a file of any size.
//
// The other name is one of a few that follow from the target's, so that what a killed writer left is found and taken
// over; a lock tells it from what another process is writing.
class OXBEAM_API StoredFile : public FileSink {
public:
    // Finds out all that can be known before writing about whether it will be possible.
    explicit StoredFile(const std::filesystem::path& target);
    ~StoredFile() override;
    StoredFile(const StoredFile&) = delete;
    StoredFile& operator=(const StoredFile&) = delete;

    void write(std::span<const unsigned char> bytes) override;
    void seek(std::uint64_t position) override { m_position = position; }
    std::uint64_t position() const override { return m_position; }
    std::uint64_t size() const override { return m_size; }
    void finish() override;

private:
    // A descriptor that closes itself.
    struct Descriptor {
        int number = -1;
        Descriptor() = default;
        explicit Descriptor(int opened) : number(opened) {}
        Descriptor(Descriptor&& other) noexcept;
        Descriptor& operator=(Descriptor&& other) noexcept;
        ~Descriptor();
    };

    [[noreturn]] void fail(const std::string& why) const;
    void openFolder();
    void checkTarget() const;
    void openTemporary();
    Descriptor lockTemporary(const std::string& name, bool create) const;
    void put(std::span<const unsigned char> bytes);
    void enter(std::uint64_t block);
    void leave();
    void load(std::uint64_t block);
    std::span<unsigned char> contentOf(std::uint64_t block);
    void handOnRights() const;

    std::filesystem::path m_target;   // as it was named
    std::string m_name, m_temporary;  // both in the folder
    Descriptor m_folder, m_file;
    std::uint64_t m_position = 0, m_size = 0;
    // One block is in memory, of the others there are hashes.
    std::uint64_t m_block = 0;
    std::vector<unsigned char> m_content;
    std::vector<std::uint64_t> m_hashes;
};

// Where a file of that name is written: links are followed, also those to what is not there yet.
OXBEAM_API std::filesystem::path storedAt(const std::filesystem::path& file);

// All of a text at once. Throws Error(InputOutput).
OXBEAM_API void storeFile(const std::filesystem::path& file, std::string_view text);

}  // namespace oxbeam
