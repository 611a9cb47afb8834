#include "Engine/System/StandardOutput.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace oxbeam {

static Error failure() {
    return {ExitStatus::InputOutput, std::string("cannot write to standard output: ") + std::strerror(errno)};
}

StandardOutput::StandardOutput() {
    if (isatty(STDOUT_FILENO))
        throw Error(ExitStatus::Usage, "-o -: standard output is a terminal; expected a pipe or a file");
    std::cout.flush();
    std::fflush(stdout);
    m_descriptor = dup(STDOUT_FILENO);
    if (m_descriptor < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) throw failure();
    std::signal(SIGPIPE, SIG_IGN);
}

StandardOutput::~StandardOutput() { close(m_descriptor); }

void StandardOutput::write(std::span<const unsigned char> bytes) {
    const std::uint64_t end = m_position + bytes.size();
    m_bytes.resize(std::max<std::uint64_t>(m_bytes.size(), end));
    std::ranges::copy(bytes, m_bytes.begin() + static_cast<std::ptrdiff_t>(m_position));
    m_position = end;
}

void StandardOutput::finish() {
    for (std::size_t done = 0; done < m_bytes.size();) {
        const ssize_t written = ::write(m_descriptor, m_bytes.data() + done, m_bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw failure();
        done += static_cast<std::size_t>(written);
    }
}

}  // namespace oxbeam
