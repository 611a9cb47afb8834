#include "Engine/Packages/PackageFile.h"

#include "Engine/System/Hash.h"
#include "Oxbeam/OxInterface.h"

#include <fmt/format.h>

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

namespace {

// Why a file cannot be read, in words that follow "this package does not load: ".
struct Fault {
    std::string why;
};

// A regular file in memory.
class MappedFile {
public:
    // Opening does not wait for the other end of a pipe.
    explicit MappedFile(const fs::path& path) {
        const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (file < 0) throw Fault{std::strerror(errno)};
        struct stat about {};
        const bool regular = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
        m_size = static_cast<std::size_t>(about.st_size);
        if (regular && m_size) m_memory = mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
        const int problem = errno;
        close(file);
        if (!regular) throw Fault{"it is not a regular file"};
        if (m_size == 0) throw Fault{"it is empty"};
        if (m_memory == MAP_FAILED) throw Fault{std::strerror(problem)};
    }
    ~MappedFile() { munmap(m_memory, m_size); }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::span<const std::byte> bytes() const { return {static_cast<const std::byte*>(m_memory), m_size}; }

private:
    void* m_memory = MAP_FAILED;
    std::size_t m_size = 0;
};

struct Symbol {
    std::string name;
    bool defined = false;
    bool data = false;
};

// A 64-bit shared library ("System V Application Binary Interface", chapters 4 and 5). Every number in it may be wrong.
class Library {
public:
    explicit Library(std::span<const std::byte> bytes) : m_bytes(bytes) {
        if (bytes.size() < SELFMAG || std::memcmp(bytes.data(), ELFMAG, SELFMAG) != 0)
            throw Fault{"it is no shared library"};
        const auto header = at<Elf64_Ehdr>(0);
        if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
            header.e_machine != EM_X86_64)
            throw Fault{"it is a library for another kind of machine"};
        if (header.e_type != ET_DYN) throw Fault{"it is no shared library"};
        for (unsigned i = 0; i < header.e_phnum; ++i)
            m_segments.push_back(at<Elf64_Phdr>(sum(header.e_phoff, std::uint64_t{i} * sizeof(Elf64_Phdr))));
    }

    // Of a file that lacks its end the system makes memory that ends the process when it is touched.
    void checkComplete() const {
        for (const Elf64_Phdr& s : m_segments)
            if (s.p_type == PT_LOAD && sum(s.p_offset, s.p_filesz) > m_bytes.size())
                throw Fault{fmt::format("it is truncated: {} bytes of at least {}", m_bytes.size(),
                                        sum(s.p_offset, s.p_filesz))};
    }

    std::vector<Symbol> symbols() const {
        const std::map<std::int64_t, std::uint64_t> entries = dynamicEntries();
        const auto entry = [&](std::int64_t tag) {
            const auto found = entries.find(tag);
            if (found == entries.end()) throw Fault{"it is damaged: it has no table of symbols"};
            return found->second;
        };
        const std::uint64_t table = offsetOf(entry(DT_SYMTAB));
        const auto names = part(offsetOf(entry(DT_STRTAB)), entry(DT_STRSZ));
        const std::uint64_t count =
            entries.contains(DT_HASH) ? at<Elf64_Word>(sum(offsetOf(entry(DT_HASH)), 4)) : hashed(entry(DT_GNU_HASH));
        part(table, count > m_bytes.size() ? ~std::uint64_t{0} : count * sizeof(Elf64_Sym));
        std::vector<Symbol> symbols;
        for (std::uint64_t i = 1; i < count; ++i) {
            const auto symbol = at<Elf64_Sym>(table + i * sizeof(Elf64_Sym));
            const unsigned type = ELF64_ST_TYPE(symbol.st_info);
            symbols.push_back({textAt(names, symbol.st_name), symbol.st_shndx != SHN_UNDEF,
                               type == STT_OBJECT || type == STT_TLS || type == STT_COMMON});
        }
        return symbols;
    }

private:
    static std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
        std::uint64_t result = 0;
        if (__builtin_add_overflow(a, b, &result)) throw Fault{"it is damaged: a number in it is too large"};
        return result;
    }
    std::span<const std::byte> part(std::uint64_t offset, std::uint64_t size) const {
        if (sum(offset, size) > m_bytes.size())
            throw Fault{"it is truncated or damaged: its tables lie beyond its end"};
        return m_bytes.subspan(offset, size);
    }
    template <class T>
    T at(std::uint64_t offset) const {
        T value;
        std::memcpy(&value, part(offset, sizeof value).data(), sizeof value);
        return value;
    }
    // Where the file has what will be at an address.
    std::uint64_t offsetOf(std::uint64_t address) const {
        for (const Elf64_Phdr& s : m_segments)
            if (s.p_type == PT_LOAD && address >= s.p_vaddr && address - s.p_vaddr < s.p_filesz)
                return sum(s.p_offset, address - s.p_vaddr);
        throw Fault{"it is damaged: an address in it leads nowhere"};
    }
    static std::string textAt(std::span<const std::byte> texts, std::uint64_t offset) {
        if (offset >= texts.size()) throw Fault{"it is damaged: a name in it lies nowhere"};
        const auto* text = reinterpret_cast<const char*>(texts.data()) + offset;
        constexpr std::size_t longest = 4096;
        return {text, strnlen(text, std::min(texts.size() - offset, longest))};
    }
    std::map<std::int64_t, std::uint64_t> dynamicEntries() const {
        std::map<std::int64_t, std::uint64_t> entries;
        for (const Elf64_Phdr& s : m_segments) {
            if (s.p_type != PT_DYNAMIC) continue;
            for (std::uint64_t i = 0; i < s.p_filesz / sizeof(Elf64_Dyn); ++i) {
                const auto entry = at<Elf64_Dyn>(sum(s.p_offset, i * sizeof(Elf64_Dyn)));
                if (entry.d_tag == DT_NULL) break;
                entries.try_emplace(entry.d_tag, entry.d_un.d_val);
            }
        }
        return entries;
    }
    // The number of symbols, which the newer hash table does not say: its last chain ends with the last of them.
    std::uint64_t hashed(std::uint64_t address) const {
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

    std::span<const std::byte> m_bytes;
    std::vector<Elf64_Phdr> m_segments;
};

// What stands between two parts of a name.
std::optional<std::string> between(std::string_view name, std::string_view prefix, std::string_view suffix) {
    if (name.size() <= prefix.size() + suffix.size() || !name.starts_with(prefix) || !name.ends_with(suffix))
        return std::nullopt;
    return std::string(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
}

// Other versions of the interface than this host's that the package asks for.
void readInterface(const std::vector<Symbol>& symbols, PackageFile& file) {
    for (const Symbol& symbol : symbols) {
        const auto version = between(symbol.name, "oxInterface_", "");
        if (!version || symbol.defined) continue;
        if (*version != std::to_string(OX_INTERFACE_VERSION))
            throw Fault{fmt::format("it was built for version {} of the interface, this host has version {}", *version,
                                    OX_INTERFACE_VERSION)};
        file.saysInterface = true;
    }
}

// Empty where the objects are exported as they have to be.
std::string faultOfExports(const std::map<std::string, const Symbol*>& exported, const std::set<std::string>& objects) {
    if (objects.empty()) return "this library exports no Register_<Name>_LoadableObject; it is no package";
    for (const std::string& name : objects) {
        const std::string registration = fmt::format("Register_{}_LoadableObject", name);
        const std::string factory = fmt::format("New{}LoadableObject", name);
        if (!exported.contains(factory))
            return fmt::format("object '{}' has no factory: {} is exported, {} is not", name, registration, factory);
        for (const std::string& function : {registration, factory})
            if (exported.at(function)->data) return fmt::format("{} is data; expected a function", function);
    }
    return {};
}

void read(PackageFile& file) {
    const MappedFile mapped(file.path);
    const Library library(mapped.bytes());
    const std::vector<Symbol> symbols = library.symbols();
    std::map<std::string, const Symbol*> exported;
    for (const Symbol& symbol : symbols)
        if (symbol.defined) exported[symbol.name] = &symbol;
    for (const auto& [name, symbol] : exported)
        if (auto object = between(name, "Register_", "_LoadableObject")) file.objects.insert(std::move(*object));
    file.namesKnown = true;
    library.checkComplete();
    readInterface(symbols, file);
    file.fault = faultOfExports(exported, file.objects);
    file.hash = hashOf(mapped.bytes());
}

}  // namespace

PackageFile readPackageFile(const fs::path& path) {
    PackageFile file;
    std::error_code none;
    file.path = fs::absolute(path, none);
    try {
        read(file);
    } catch (const Fault& fault) {
        file.fault = "this package does not load: " + fault.why;
    }
    return file;
}

}  // namespace oxbeam
