#include "Engine/System/StoredFile.h"

#include "Engine/System/Hash.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace oxbeam {

namespace fs = std::filesystem;

static constexpr std::size_t BlockSize = 1u << 20;
static constexpr unsigned MostWriters = 16;  // of one target at a time
static constexpr unsigned MostLinks = 40;    // one after the other, as the system has it

Error cannotWrite(const fs::path& file, const std::string& why) {
    return {ExitStatus::InputOutput, fmt::format("cannot write '{}': {}", file.string(), why)};
}

void StoredFile::fail(const std::string& why) const { throw cannotWrite(m_target, why); }

StoredFile::Descriptor::Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}

StoredFile::Descriptor& StoredFile::Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number, other.number);
    return *this;
}

StoredFile::Descriptor::~Descriptor() {
    if (number >= 0) close(number);
}

// ---- Before the first byte

// What a link names need not be there.
static fs::path followed(fs::path file) {
    std::error_code problem;
    for (unsigned i = 0; i < MostLinks && fs::is_symlink(file, problem); ++i) {
        const fs::path next = fs::read_symlink(file, problem);
        file = next.is_absolute() ? next : file.parent_path() / next;
    }
    return file;
}

static fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path("."); }

fs::path storedAt(const fs::path& file) {
    const fs::path last = followed(file);
    std::error_code problem;
    return fs::weakly_canonical(folderOf(last), problem) / last.filename();
}

StoredFile::StoredFile(const fs::path& target) : m_target(target) {
    openFolder();
    checkTarget();
    openTemporary();
}

StoredFile::~StoredFile() {
    if (m_file.number >= 0) unlinkat(m_folder.number, m_temporary.c_str(), 0);
}

void StoredFile::openFolder() {
    struct stat old {};
    if (stat(m_target.c_str(), &old) == 0 && !S_ISREG(old.st_mode)) fail("it exists and is not a regular file");
    const fs::path file = followed(m_target);
    const fs::path folder = folderOf(file);
    m_name = file.filename().string();
    if (m_name.empty()) fail("it names no file");
    m_folder = Descriptor(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (m_folder.number >= 0) {
        if (faccessat(m_folder.number, ".", W_OK | X_OK, AT_EACCESS) != 0)
            fail(fmt::format("directory '{}' is not writable: {}", folder.string(), std::strerror(errno)));
    } else if (errno == ENOENT || errno == ENOTDIR) {
        fail(fmt::format("there is no directory '{}'", folder.string()));
    } else {
        fail(fmt::format("directory '{}': {}", folder.string(), std::strerror(errno)));
    }
}

// What would make the renaming fail.
void StoredFile::checkTarget() const {
    struct stat old {
    }, folder{};
    if (fstatat(m_folder.number, m_name.c_str(), &old, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) fail(std::strerror(errno));
        return;
    }
    if (!S_ISREG(old.st_mode)) fail("it exists and is not a regular file");
    if (fstat(m_folder.number, &folder) != 0) fail(std::strerror(errno));
    const uid_t me = geteuid();
    if ((folder.st_mode & S_ISVTX) && me != 0 && me != old.st_uid && me != folder.st_uid)
        fail("it is another user's, in a directory where only owners replace files");
    if (faccessat(m_folder.number, m_name.c_str(), W_OK, AT_EACCESS) != 0 && errno == EPERM)
        fail("it is marked as one that must not change");
}

// None, where another process has it. The lock is on the file that bears the name: a writer that is done has renamed its
// own in the meantime, or unlinked it.
StoredFile::Descriptor StoredFile::lockTemporary(const std::string& name, bool create) const {
    constexpr int how = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor file;
    if (create) file = Descriptor(openat(m_folder.number, name.c_str(), how | O_CREAT | O_EXCL, 0600));
    const bool isNew = file.number >= 0;
    if (create && !isNew && errno != EEXIST) fail(std::strerror(errno));
    if (!isNew) file = Descriptor(openat(m_folder.number, name.c_str(), how));
    struct stat opened {
    }, named{};
    if (file.number < 0 || fstat(file.number, &opened) != 0) return {};
    if (!S_ISREG(opened.st_mode) || opened.st_uid != geteuid() || opened.st_nlink != 1) return {};
    // A file system without locks takes new ones only.
    if (flock(file.number, LOCK_EX | LOCK_NB) != 0 && (!isNew || errno == EWOULDBLOCK)) return {};
    const bool same = fstatat(m_folder.number, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                      named.st_ino == opened.st_ino && named.st_dev == opened.st_dev;
    return same ? std::move(file) : Descriptor();
}

// The first free name is taken, and of those behind it the abandoned ones are removed. All are short, however long the
// target's is.
void StoredFile::openTemporary() {
    const std::string stem = fmt::format(".oxbeam-{:016x}-", hashOf(m_name));
    for (unsigned i = 0; i < MostWriters; ++i) {
        const std::string name = stem + std::to_string(i);
        Descriptor file = lockTemporary(name, m_file.number < 0);
        if (file.number < 0) continue;
        if (m_file.number < 0)
            m_file = std::move(file), m_temporary = name;
        else
            unlinkat(m_folder.number, name.c_str(), 0);
    }
    if (m_file.number < 0) fail(fmt::format("{} other processes are writing it", MostWriters));
    if (ftruncate(m_file.number, 0) != 0) fail(std::strerror(errno));
}

// ---- Writing

// Moves all bytes, or says by errno why not.
template <class Move, class Byte>
static bool moveAll(Move move, int file, std::span<Byte> bytes, std::uint64_t position) {
    for (std::size_t done = 0; done < bytes.size();) {
        const auto at = static_cast<off_t>(position + done);
        const ssize_t moved = move(file, bytes.data() + done, bytes.size() - done, at);
        if (moved < 0 && errno == EINTR) continue;
        if (moved == 0) errno = EIO;
        if (moved <= 0) return false;
        done += static_cast<std::size_t>(moved);
    }
    return true;
}

std::span<unsigned char> StoredFile::contentOf(std::uint64_t block) {
    return std::span(m_content).first(std::min<std::uint64_t>(BlockSize, m_size - block * BlockSize));
}

// What was written before must read back.
void StoredFile::load(std::uint64_t block) {
    const std::span<unsigned char> content = contentOf(block);
    if (!moveAll(pread, m_file.number, content, block * BlockSize) || hashOf(std::as_bytes(content)) != m_hashes[block])
        fail("what was written does not read back");
}

void StoredFile::leave() {
    if (m_block * BlockSize >= m_size) return;
    const std::span<const unsigned char> content = contentOf(m_block);
    if (!moveAll(pwrite, m_file.number, content, m_block * BlockSize)) fail(std::strerror(errno));
    m_hashes.resize(std::max<std::size_t>(m_hashes.size(), m_block + 1));
    m_hashes[m_block] = hashOf(std::as_bytes(content));
}

void StoredFile::enter(std::uint64_t block) {
    if (block == m_block) return;
    leave();
    m_block = block;
    if (block < m_hashes.size()) load(block);
}

void StoredFile::put(std::span<const unsigned char> bytes) {
    m_content.resize(BlockSize);
    while (!bytes.empty()) {
        enter(m_position / BlockSize);
        const std::size_t at = m_position % BlockSize, size = std::min(bytes.size(), BlockSize - at);
        std::copy_n(bytes.begin(), size, m_content.begin() + static_cast<std::ptrdiff_t>(at));
        m_position += size;
        m_size = std::max(m_size, m_position);
        bytes = bytes.subspan(size);
    }
}

void StoredFile::write(std::span<const unsigned char> bytes) {
    static constexpr unsigned char zeros[4096] = {};
    const std::uint64_t meant = m_position;
    for (m_position = std::min(m_position, m_size); m_position < meant;)
        put(std::span(zeros).first(std::min<std::uint64_t>(sizeof zeros, meant - m_position)));
    put(bytes);
}

// ---- When all is written

// Those of the file that is replaced, else those that any new file has. Who may not give a file to its group must not
// open it to another one.
void StoredFile::handOnRights() const {
    const mode_t mask = umask(0);
    umask(mask);
    mode_t mode = 0666 & ~mask;
    struct stat old {
    }, mine{};
    if (fstatat(m_folder.number, m_name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(old.st_mode)) {
        mode = old.st_mode & 0777;
        if (fchown(m_file.number, old.st_uid, old.st_gid) != 0 &&
            fchown(m_file.number, static_cast<uid_t>(-1), old.st_gid) != 0 &&
            (fstat(m_file.number, &mine) != 0 || mine.st_gid != old.st_gid))
            mode &= ~static_cast<mode_t>(070) | (mode & 07) << 3;
    }
    if (fchmod(m_file.number, mode) != 0) fail(std::strerror(errno));
}

void StoredFile::finish() {
    leave();
    handOnRights();
    if (fsync(m_file.number) != 0) fail(std::strerror(errno));
    m_block = 0;
    for (std::uint64_t block = 0; block < m_hashes.size(); ++block) load(block);
    struct stat written {};
    if (fstat(m_file.number, &written) != 0 || static_cast<std::uint64_t>(written.st_size) != m_size)
        fail("what was written does not read back");
    checkTarget();
    if (renameat(m_folder.number, m_temporary.c_str(), m_folder.number, m_name.c_str()) != 0)
        fail(std::strerror(errno));
    m_file = Descriptor();
}

void storeFile(const fs::path& file, std::string_view text) {
    StoredFile stored(file);
    stored.write({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    stored.finish();
}

}  // namespace oxbeam
