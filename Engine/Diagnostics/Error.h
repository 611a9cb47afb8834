// How the engine fails, and with what exit status.
#pragma once

#include <stdexcept>
#include <string>

namespace oxbeam {

enum class ExitStatus : int {
    Done = 0,
    Usage = 2,
    BadScene = 3,
    BadPackage = 4,
    InputOutput = 5,
    Incomplete = 6,    // stopped before the picture was complete
    Interrupted = 130  // by the user; what was rendered so far is saved
};

// Its text is one complete message for the user, without the word "error".
class Error : public std::runtime_error {
public:
    Error(ExitStatus status, const std::string& message) : std::runtime_error(message), m_status(status) {}

    ExitStatus status() const { return m_status; }

private:
    ExitStatus m_status;
};

}  // namespace oxbeam
