// The programs that read what others have made: models and pictures. Malformed files make the libraries that read them
// crash, hang or swell, and no exception handling helps; so each program stands apart, in a process with limits.
#pragma once

#include "Oxbeam/OxTypes.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace oxbeam {

inline constexpr const char* ModelProgram = "oxbeam-import";
inline constexpr const char* PictureProgram = "oxbeam-decode";

// What reading one file may take. A machine that is busy with much else must not fail a good file: the seconds are those
// of a processor, and thrice as many may pass by the clock.
struct ImportLimits {
    unsigned seconds = 20;
    std::size_t bytes = std::size_t{4} << 30;  // of addresses, and of what is handed back
    std::string advice = {};                   // what to do, said where one of the two is reached

    // For a file of so many bytes: a second more for each two MiB, and sixteen bytes for each of its own.
    ImportLimits forFile(std::uintmax_t size) const;
    // With so many seconds, and where these are more, with as many times the memory.
    ImportLimits lifted(unsigned toSeconds) const {
        ImportLimits higher = *this;
        higher.seconds = toSeconds;
        if (toSeconds > seconds) higher.bytes = bytes / seconds * toSeconds;
        return higher;
    }
};

inline constexpr const char* ImportAdvice = "; --import-limit SECONDS allows it more";

// One process, which reads one file after the other. When it has failed once, it is of no more use.
class ImportProcess {
public:
    // `program` stands beside the library. Throws Error(InputOutput) where it does not, or cannot be started.
    explicit ImportProcess(const std::string& program, const ImportLimits& limits = {});
    ImportProcess(const ImportProcess&) = delete;
    ImportProcess& operator=(const ImportProcess&) = delete;
    ~ImportProcess();

    // Has it read a file, which messages call `what`, and answers the length of what it hands back; of no file, what
    // the program says of itself. Words in front of the file's name ask a program for something else of the file than it
    // commonly reads. `descriptor` is lent to it for that: the file behind it is PassedFile. Throws as the next does.
    std::uint64_t ask(const std::filesystem::path& file, std::string what, const std::string& words = {},
                      int descriptor = -1);
    // Takes the next bytes of it. Throws Error(BadScene) where the file breaks the process or a limit,
    // Error(InputOutput) where somebody else ended the process or the machine is short of something, and Interruption
    // where somebody wishes to stop.
    void take(void* to, std::size_t size);
    std::string takeText(std::size_t size);
    // Of the library that it reads with.
    std::string version();

    pid_t id() const { return m_pid; }

private:
    [[noreturn]] void fail(const std::string& why) const;
    [[noreturn]] void failForTheMachine(const std::string& why) const;
    [[noreturn]] void failAsItEnded();
    [[noreturn]] void failAsSignalled(int signal) const;
    std::uint64_t askFor(const std::string& name, int descriptor = -1);
    bool sendRequest(std::uint64_t number, const std::string& name, int descriptor) const;
    [[noreturn]] void failAsTooSlow() const;

    ImportLimits m_limits;
    std::string m_what;
    std::chrono::steady_clock::time_point m_deadline;
    int m_socket = -1;
    pid_t m_pid = -1;
    bool m_ended = false;
};

// What a program says of itself.
struct ImportReport {
    std::string version;                   // of the library that it reads with; or why there is none
    std::vector<std::string> confinement;  // "name: text": what holds while it reads a file
};

OXBEAM_API ImportReport importReport(const std::string& program);

}  // namespace oxbeam
