#include "Engine/System/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace oxbeam {

InputFile inputFile(const std::filesystem::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return {InputFile::Missing};
        return {InputFile::Refused, std::strerror(errno)};
    }
    if (!S_ISREG(status.st_mode)) return {InputFile::NotRegular};
    const int opened = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (opened < 0) return {InputFile::Refused, std::strerror(errno)};
    close(opened);
    return {};
}

}  // namespace oxbeam
