// The command at work on files of the test's own.
#pragma once

#include "Tests/Support/SceneText.h"

#include <OpenImageIO/imagebuf.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <iterator>
#include <sstream>

namespace oxbeam::test {

struct Outcome {
    int status;  // of the exit, or the negative signal
    std::string out, err;
    std::uint64_t peak = 0;  // bytes that it had at most, or one of the processes that it started
};

// The command at work in the scratch folder; arguments are separated by blanks.
class Process {
public:
    explicit Process(const std::string& arguments) : Process(OXBEAM_COMMAND, split("oxbeam " + arguments)) {}
    Process(const char* program, std::vector<std::string> words) {
        static int count = 0;
        m_name = std::to_string(++count);
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        const std::string folder = scratch().string(), out = m_name + ".out", err = m_name + ".err";
        m_child = fork();
        if (m_child != 0) return;
        const auto redirect = [](const std::string& file, int to) {
            return dup2(open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), to) == to;
        };
        if (chdir(folder.c_str()) == 0 && redirect(out, 1) && redirect(err, 2)) execv(program, argv.data());
        _exit(127);
    }

    std::string errors() const { return contentOf(m_name + ".err"); }
    pid_t id() const { return m_child; }
    void signal(int number) const { kill(m_child, number); }
    Outcome finish() const {
        int status = 0;
        rusage usage{};
        EXPECT_EQ(wait4(m_child, &status, 0, &usage), m_child);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contentOf(m_name + ".out"), errors(),
                static_cast<std::uint64_t>(usage.ru_maxrss) * 1024};
    }

private:
    static std::vector<std::string> split(const std::string& text) {
        std::istringstream stream(text);
        return {std::istream_iterator<std::string>(stream), {}};
    }

    std::string m_name;
    pid_t m_child;
};

inline Outcome run(const std::string& arguments) { return Process(arguments).finish(); }

// What a shell makes of a script in which $oxbeam is the command.
inline Outcome shell(const std::string& script) {
    return Process("/bin/bash", {"bash", "-c", "oxbeam='" OXBEAM_COMMAND "'; " + script}).finish();
}

struct Failure {
    std::string arguments;
    int status;
    testing::Matcher<const std::string&> message;  // all of standard error
};

// Nothing else is printed or left behind.
inline void expectFailures(const std::vector<Failure>& cases) {
    writeFile("old.png", "an old picture");
    for (const Failure& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = run(c.arguments);
        EXPECT_EQ(outcome.status, c.status);
        EXPECT_THAT(outcome.err, c.message);
        EXPECT_EQ(outcome.out, "");
        ASSERT_EQ(contentOf("old.png"), "an old picture");
    }
}

// As floats. Not through the library's cache, which knows a file by its name and the second in which it was written.
inline OIIO::ImageBuf picture(const std::filesystem::path& file) {
    // On this thread: the library's own are not instrumented for the thread sanitizer.
    OIIO::attribute("threads", 1);
    OIIO::attribute("exr_threads", -1);
    OIIO::ImageSpec hints;
    hints["oiio:UnassociatedAlpha"] = 1;  // as it is in the file
    const auto input = OIIO::ImageInput::open((scratch() / file).string(), &hints);
    if (!input) {
        ADD_FAILURE() << OIIO::geterror();
        return {};
    }
    OIIO::ImageSpec spec = input->spec();
    spec.set_format(OIIO::TypeDesc::FLOAT);
    OIIO::ImageBuf image(spec);
    EXPECT_TRUE(input->read_image(0, 0, 0, spec.nchannels, OIIO::TypeDesc::FLOAT, image.localpixels()))
        << input->geterror();
    return image;
}

inline R3 pixel(const std::filesystem::path& file, int x, int y) {
    const OIIO::ImageBuf image = picture(file);
    R3 color;
    image.getpixel(x, y, &color.x, 3);
    return color;
}

// A sphere of 192 triangles over a floor of two, of which a light throws the shadow.
inline const char* const SceneText = R"(
[image]
width = 40
height = 30
samples = 2
[render]
receiveShadow = true
[camera]
position = [0, 1, 5]
lookAt = [0, 0, 0]
[shader.body]
object = "KelPhong"
diffuseColor = [0.8, 0.4, 0.2]
reflective = [0.5, 0.5, 0.5]
[[light]]
object = "KelPointLight"
position = [2, 3, 4]
intensity = [20, 20, 20]
[[mesh]]
shape = "sphere"
segments = 14
shader = "body"
[[mesh]]
shape = "plane"
shader = "body"
scale = 4
translate = [0, -1, 0]
)";

class Command : public testing::Test {
protected:
    void SetUp() override {
        for (const auto& entry : std::filesystem::directory_iterator(scratch())) std::filesystem::remove_all(entry);
        writeFile("scene.toml", SceneText);
    }
};

}  // namespace oxbeam::test
