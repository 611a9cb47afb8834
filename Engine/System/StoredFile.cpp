#include "Engine/System/StoredFile.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace oxbeam {

namespace fs = std::filesystem;

Error cannotWrite(const fs::path& file, const std::string& why) {
    return {ExitStatus::InputOutput, fmt::format("cannot write '{}': {}", file.string(), why)};
}

namespace {

// A file under a temporary name that is gone again unless it was renamed.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path& target) : m_target(target) {
        m_name = target.string() + ".XXXXXX";
        m_descriptor = mkstemp(m_name.data());
        if (m_descriptor < 0) throw cannotWrite(target, std::strerror(errno));
    }
    ~TemporaryFile() {
        if (m_descriptor >= 0) close(m_descriptor);
        if (!m_name.empty()) unlink(m_name.c_str());
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    void write(std::span<const unsigned char> bytes) {
        for (std::size_t done = 0; done < bytes.size();) {
            const ssize_t n = ::write(m_descriptor, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) throw cannotWrite(m_target, std::strerror(errno));
            done += static_cast<std::size_t>(n);
        }
        if (fsync(m_descriptor) != 0) throw cannotWrite(m_target, std::strerror(errno));
    }

    void verify(std::span<const unsigned char> bytes) const {
        std::vector<unsigned char> back(bytes.size() + 1);
        std::size_t done = 0;
        for (ssize_t n; done < back.size(); done += static_cast<std::size_t>(n))
            if ((n = pread(m_descriptor, back.data() + done, back.size() - done, static_cast<off_t>(done))) <= 0) break;
        if (done != bytes.size() || !std::equal(bytes.begin(), bytes.end(), back.begin()))
            throw cannotWrite(m_target, "what was written does not read back");
    }

    // mkstemp makes files for their owner alone; the result gets the rights that any new file has.
    void rename() {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(m_descriptor, 0666 & ~mask) != 0 || close(std::exchange(m_descriptor, -1)) != 0 ||
            ::rename(m_name.c_str(), m_target.c_str()) != 0)
            throw cannotWrite(m_target, std::strerror(errno));
        m_name.clear();
    }

private:
    fs::path m_target;
    std::string m_name;
    int m_descriptor = -1;
};

}  // namespace

void storeFile(const fs::path& file, std::span<const unsigned char> bytes) {
    if (fs::exists(file) && !fs::is_regular_file(file)) throw cannotWrite(file, "it exists and is not a regular file");
    TemporaryFile temporary(file);
    temporary.write(bytes);
    temporary.verify(bytes);
    temporary.rename();
}

}  // namespace oxbeam
