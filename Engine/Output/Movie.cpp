#include "Engine/Output/Movie.h"

#include "Engine/Diagnostics/Diagnostics.h"
#include "Engine/Diagnostics/Error.h"
#include "Engine/Output/Encoding.h"
#include "Engine/Output/PictureLibrary.h"
#include "Engine/System/System.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

extern char** environ;

namespace oxbeam {

namespace fs = std::filesystem;

static bool isMp4(const fs::path& file) { return extensionOf(file) == ".mp4"; }

bool isMovie(const fs::path& file) { return isMp4(file) || extensionOf(file) == ".gif"; }

// ---- GIF

namespace {

class Gif final : public Movie {
public:
    Gif(const fs::path& file, unsigned width, unsigned height, double fps)
        : m_file(file), m_stored(file), m_pictures(pictureLibrary().movie(m_stored, width, height, fps)),
          m_bytes(std::size_t{3} * width * height), m_width(width) {}

    void add(const std::vector<R3>& pixels, const ImageOptions& options) override {
        putForDisplay(pixels, m_width, options, m_bytes.data());
        if (const std::string why = m_pictures->add(m_bytes.data()); !why.empty()) throw cannotWrite(m_file, why);
    }
    void finish() override {
        if (const std::string why = m_pictures->finish(); !why.empty()) throw cannotWrite(m_file, why);
        m_stored.finish();
    }

private:
    fs::path m_file;
    StoredFile m_stored;
    std::unique_ptr<MoviePictures> m_pictures;
    std::vector<std::uint8_t> m_bytes;
    unsigned m_width;
};

// ---- MP4

constexpr const char* Encoder = "ffmpeg";

// A descriptor that closes itself, and is not inherited.
struct Descriptor {
    int number = -1;

    Descriptor() = default;
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }
    void reset() {
        if (number >= 0) close(number);
        number = -1;
    }
};

// A file without a name, in the folder where there will be one, or where the system has such.
int nameless(const fs::path& folder) {
    const int there = open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (there >= 0) return there;
    const std::string name = (fs::temp_directory_path() / "oxbeam-XXXXXX").string();
    std::vector<char> made(name.begin(), name.end());
    made.push_back('\0');
    const int other = mkostemp(made.data(), O_CLOEXEC);
    if (other >= 0) unlink(made.data());
    return other;
}

// The program reads the pictures from its standard input and writes into a file that has no name, so that whatever becomes
// of it or of this process, nothing is left.
class Mp4 final : public Movie {
public:
    Mp4(const fs::path& file, unsigned width, unsigned height, double fps)
        : m_file(file), m_made(nameless(storedAt(file).parent_path())), m_said(nameless(fs::temp_directory_path())),
          m_bytes(std::size_t{3} * width * height), m_width(width) {
        if (m_made.number < 0 || m_said.number < 0) throw cannotWrite(m_file, std::strerror(errno));
        start({"-hide_banner", "-nostdin", "-loglevel", "error", "-y", "-f", "rawvideo", "-pixel_format", "rgb24",
               "-video_size", fmt::format("{}x{}", width, height), "-framerate", fmt::format("{}", fps), "-i", "pipe:0",
               // Players want even sides, and colours by this standard.
               "-vf", "pad=ceil(iw/2)*2:ceil(ih/2)*2,scale=out_color_matrix=bt709:out_range=tv", "-c:v", "libx264",
               "-crf", "18", "-pix_fmt", "yuv420p", "-colorspace", "bt709", "-color_primaries", "bt709", "-color_trc",
               "bt709", "-movflags", "+faststart", "-f", "mp4", "/dev/fd/3"});
    }
    ~Mp4() override {
        m_pipe.reset();
        if (m_child < 0) return;
        kill(m_child, SIGKILL);
        waitpid(m_child, nullptr, 0);
    }

    void add(const std::vector<R3>& pixels, const ImageOptions& options) override {
        putForDisplay(pixels, m_width, options, m_bytes.data());
        for (std::size_t done = 0; done < m_bytes.size();) {
            const ssize_t n = send(m_pipe.number, m_bytes.data() + done, m_bytes.size() - done, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) fail();
            done += static_cast<std::size_t>(n);
        }
    }
    void finish() override {
        m_pipe.reset();
        if (ended() != 0) fail();
        StoredFile stored(m_file);
        std::array<unsigned char, 1 << 16> block;
        lseek(m_made.number, 0, SEEK_SET);
        ssize_t n = 0;
        while ((n = read(m_made.number, block.data(), block.size())) > 0)
            stored.write(std::span(block).first(static_cast<std::size_t>(n)));
        if (n < 0) throw cannotWrite(m_file, std::strerror(errno));
        if (stored.size() == 0) throw cannotWrite(m_file, fmt::format("{} made nothing", Encoder));
        stored.finish();
    }

private:
    void start(std::vector<std::string> words);
    int ended();
    [[noreturn]] void fail();

    fs::path m_file;
    Descriptor m_made, m_said, m_pipe;
    pid_t m_child = -1;
    std::vector<std::uint8_t> m_bytes;
    unsigned m_width;
};

// In a group of its own: who interrupts this process from a terminal does not mean the other to finish its file.
void Mp4::start(std::vector<std::string> words) {
    const fs::path program = programOnPath(Encoder);
    std::vector<char*> arguments = {const_cast<char*>(Encoder)};
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw cannotWrite(m_file, std::strerror(errno));
    const Descriptor reading(ends[0]);
    m_pipe.number = ends[1];
    // A descriptor that is duplicated onto itself would stay closed on execution.
    const Descriptor made(fcntl(m_made.number, F_DUPFD_CLOEXEC, 10));
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_adddup2(&actions, reading.number, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, m_said.number, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&actions, made.number, 3);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM}) sigaddset(&signals, number);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    const int problem = posix_spawn(&m_child, program.c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (problem == 0) return;
    m_child = -1;
    throw cannotWrite(m_file, fmt::format("{} cannot be started: {}", program.string(), std::strerror(problem)));
}

int Mp4::ended() {
    int status = 0;
    while (m_child >= 0 && waitpid(m_child, &status, 0) < 0 && errno == EINTR) {
    }
    m_child = -1;
    return status;
}

// With the last lines that the program has said.
void Mp4::fail() {
    m_pipe.reset();
    const int status = ended();
    std::array<char, 600> text{};
    const auto size = lseek(m_said.number, 0, SEEK_END);
    const auto from = std::max<off_t>(0, size - static_cast<off_t>(text.size()));
    const ssize_t n = std::max<ssize_t>(0, pread(m_said.number, text.data(), text.size(), from));
    std::string said(text.data(), static_cast<std::size_t>(n));
    while (!said.empty() && said.back() == '\n') said.pop_back();
    std::replace(said.begin(), said.end(), '\n', ' ');
    const std::string how = WIFSIGNALED(status) ? fmt::format("was ended by signal {}", WTERMSIG(status))
                                                : fmt::format("failed with status {}", WEXITSTATUS(status));
    throw cannotWrite(m_file, fmt::format("{} {}{}{}", Encoder, how, said.empty() ? "" : ": ", printable(said)));
}

}  // namespace

// ---- Either

void checkMovie(const fs::path& file, const ImageOptions& options) {
    if (!isMovie(file))
        throw Error(ExitStatus::Usage,
                    fmt::format("'{}' is no movie; expected a name that ends in .gif or .mp4", file.string()));
    if (options.bits != 8)
        throw Error(ExitStatus::Usage,
                    fmt::format("'{}' cannot have {} bits per channel", file.string(), options.bits));
    if (isMp4(file) && programOnPath(Encoder).empty())
        throw Error(
            ExitStatus::InputOutput,
            fmt::format("cannot write '{}': that takes the program {}, which is not installed; a name that ends in "
                        ".gif, or one with {{frame}} in it for pictures, takes nothing",
                        file.string(), Encoder));
    const StoredFile tried(file);
}

std::unique_ptr<Movie> Movie::create(const fs::path& file, unsigned width, unsigned height, double framesPerSecond) {
    if (isMp4(file)) return std::make_unique<Mp4>(file, width, height, framesPerSecond);
    return std::make_unique<Gif>(file, width, height, framesPerSecond);
}

}  // namespace oxbeam
