#include "Engine/System/LibraryFile.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace oxbeam {

namespace fs = std::filesystem;

// Opening does not wait for the other end of a pipe.
LibraryFile::MappedFile::MappedFile(const fs::path& path) : m_memory(MAP_FAILED) {
    const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) throw LibraryFault{std::strerror(errno)};
    struct stat about {};
    const bool regular = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
    m_size = static_cast<std::size_t>(about.st_size);
    if (regular && m_size) m_memory = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
    const int problem = errno;
    close(file);
    if (!regular) throw LibraryFault{"it is not a regular file"};
    if (m_size == 0) throw LibraryFault{"it is empty"};
    if (m_memory == MAP_FAILED) throw LibraryFault{std::strerror(problem)};
}

LibraryFile::MappedFile::~MappedFile() { munmap(m_memory, m_size); }

// ---- Numbers and texts

static std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
    std::uint64_t result = 0;
    if (__builtin_add_overflow(a, b, &result)) throw LibraryFault{"it is damaged: a number in it is too large"};
    return result;
}

std::span<const std::byte> LibraryFile::part(std::uint64_t offset, std::uint64_t size) const {
    if (sum(offset, size) > bytes().size())
        throw LibraryFault{"it is truncated or damaged: its tables lie beyond its end"};
    return bytes().subspan(offset, size);
}

template <class T>
T LibraryFile::at(std::uint64_t offset) const {
    T value;
    std::memcpy(&value, part(offset, sizeof value).data(), sizeof value);
    return value;
}

static std::string textAt(std::span<const std::byte> texts, std::uint64_t offset) {
    if (offset >= texts.size()) throw LibraryFault{"it is damaged: a name in it lies nowhere"};
    const auto* text = reinterpret_cast<const char*>(texts.data()) + offset;
    constexpr std::size_t longest = 4096;
    return {text, strnlen(text, std::min(texts.size() - offset, longest))};
}

// ---- Parts

LibraryFile::LibraryFile(const fs::path& path) : m_file(path) {
    if (bytes().size() < SELFMAG || std::memcmp(bytes().data(), ELFMAG, SELFMAG) != 0)
        throw LibraryFault{"it is no shared library"};
    const auto header = at<Elf64_Ehdr>(0);
    if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
        header.e_machine != EM_X86_64)
        throw LibraryFault{"it is a library for another kind of machine"};
    if (header.e_type != ET_DYN) throw LibraryFault{"it is no shared library"};
    for (unsigned i = 0; i < header.e_phnum; ++i) {
        const auto s = at<Elf64_Phdr>(sum(header.e_phoff, std::uint64_t{i} * sizeof(Elf64_Phdr)));
        m_segments.push_back({s.p_type, s.p_offset, s.p_vaddr, s.p_filesz});
    }
}

void LibraryFile::checkComplete() const {
    for (const Segment& s : m_segments)
        if (s.type == PT_LOAD && sum(s.offset, s.size) > bytes().size())
            throw LibraryFault{"it is truncated: " + std::to_string(bytes().size()) + " bytes of at least " +
                               std::to_string(sum(s.offset, s.size))};
}

// Where the file has what will be at an address.
std::uint64_t LibraryFile::offsetOf(std::uint64_t address) const {
    for (const Segment& s : m_segments)
        if (s.type == PT_LOAD && address >= s.address && address - s.address < s.size)
            return sum(s.offset, address - s.address);
    throw LibraryFault{"it is damaged: an address in it leads nowhere"};
}

LibraryFile::DynamicEntries LibraryFile::dynamicEntries() const {
    DynamicEntries entries;
    for (const Segment& s : m_segments) {
        if (s.type != PT_DYNAMIC) continue;
        for (std::uint64_t i = 0; i < s.size / sizeof(Elf64_Dyn); ++i) {
            const auto entry = at<Elf64_Dyn>(sum(s.offset, i * sizeof(Elf64_Dyn)));
            if (entry.d_tag == DT_NULL) break;
            entries.emplace(entry.d_tag, entry.d_un.d_val);
        }
    }
    return entries;
}

// ---- What they say

// The number of symbols, which the newer hash table does not say: its last chain ends with the last of them.
std::uint64_t LibraryFile::hashed(std::uint64_t address) const {
    const std::uint64_t table = offsetOf(address);
    const auto word = [&](std::uint64_t i) { return at<Elf64_Word>(sum(table, 4 * i)); };
    const std::uint64_t buckets = word(0), first = word(1), filter = word(2);
    const std::uint64_t chains = 4 + 2 * filter + buckets;  // after the head, words of 8 bytes, and the buckets
    std::uint64_t last = 0;
    for (std::uint64_t i = 0; i < buckets; ++i) last = std::max<std::uint64_t>(last, word(4 + 2 * filter + i));
    if (last < first) return first;
    while (!(word(chains + last - first) & 1u)) ++last;
    return last + 1;
}

std::vector<LibrarySymbol> LibraryFile::symbols() const {
    const DynamicEntries entries = dynamicEntries();
    const auto entry = [&](std::int64_t tag) {
        const auto found = entries.find(tag);
        if (found == entries.end()) throw LibraryFault{"it is damaged: it has no table of symbols"};
        return found->second;
    };
    const std::uint64_t table = offsetOf(entry(DT_SYMTAB));
    const auto names = part(offsetOf(entry(DT_STRTAB)), entry(DT_STRSZ));
    const std::uint64_t count =
        entries.contains(DT_HASH) ? at<Elf64_Word>(sum(offsetOf(entry(DT_HASH)), 4)) : hashed(entry(DT_GNU_HASH));
    part(table, count > bytes().size() ? ~std::uint64_t{0} : count * sizeof(Elf64_Sym));
    std::vector<LibrarySymbol> symbols;
    for (std::uint64_t i = 1; i < count; ++i) {
        const auto symbol = at<Elf64_Sym>(table + i * sizeof(Elf64_Sym));
        const unsigned type = ELF64_ST_TYPE(symbol.st_info);
        symbols.push_back({textAt(names, symbol.st_name), symbol.st_shndx != SHN_UNDEF,
                           type == STT_OBJECT || type == STT_TLS || type == STT_COMMON});
    }
    return symbols;
}

std::vector<std::string> LibraryFile::needed() const {
    const DynamicEntries entries = dynamicEntries();
    const auto texts = entries.find(DT_STRTAB), size = entries.find(DT_STRSZ);
    std::vector<std::string> names;
    if (texts == entries.end() || size == entries.end()) return names;
    const auto all = part(offsetOf(texts->second), size->second);
    const auto [begin, end] = entries.equal_range(DT_NEEDED);
    for (auto entry = begin; entry != end; ++entry) names.push_back(textAt(all, entry->second));
    return names;
}

}  // namespace oxbeam
