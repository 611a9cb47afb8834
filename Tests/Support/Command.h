// The command at work on files of the test's own.
#pragma once

#include "Tests/Support/SceneText.h"

#include <OpenImageIO/imagebuf.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

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

    // Waits until it has, but not for ever.
    bool hasSaid(const std::string& what) const {
        for (int i = 0; i < 3000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
            if (errors().find(what) != std::string::npos) return true;
        return false;
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

// Whether a text is as the pattern, in which "..." stands for anything.
inline bool fits(const std::string& text, std::string pattern) {
    pattern = std::regex_replace(pattern, std::regex(R"([\[\]?*\\])"), R"(\$&)");
    pattern = std::regex_replace(pattern, std::regex(R"(\.\.\.)"), "*");
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

// What the scratch folder holds, but for what calls have printed and what is too large to look at.
inline std::map<std::string, std::string> filesNow() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(scratch()))
        if (const fs::path ending = entry.path().extension(); fs::is_regular_file(entry.symlink_status()) &&
                                                              entry.file_size() < 10'000'000 && ending != ".out" &&
                                                              ending != ".err")
            files[entry.path()] = contentOf(entry.path());
    return files;
}

// Files and calls of a file in Tests/Apps/Transcripts: "> NAME" begins a file, "$ ARGUMENTS" a call with what it says on
// standard error, in which "..." stands for anything; "= STATUS" ends it. What fails prints nothing else and leaves all
// files as they are.
inline void expectTranscript(const std::string& name) {
    std::ifstream stream(TEST_TRANSCRIPTS "/" + name);
    ASSERT_TRUE(stream) << name;
    std::string head, text;
    const auto finish = [&] {
        if (head.starts_with("> ")) writeFile(head.substr(2), text);
    };
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("> ") || line.starts_with("$ ")) {
            finish();
            head = line;
            text.clear();
        } else if (line.starts_with("= ")) {
            SCOPED_TRACE(name + ": " + head);
            const auto before = filesNow();
            const Outcome outcome = run(head.substr(2));
            EXPECT_EQ(std::to_string(outcome.status), line.substr(2)) << outcome.err;
            EXPECT_TRUE(fits(withoutFolder(outcome.err), text)) << outcome.err;
            if (outcome.status == 0) continue;
            EXPECT_EQ(outcome.out, "");
            EXPECT_TRUE(filesNow() == before);
        } else {
            text += line + '\n';
        }
    }
}

// As floats. Not through the library's cache, which knows a file by its name and the second in which it was written.
inline OIIO::ImageBuf picture(const fs::path& file) {
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

// All channels of two pictures, bit for bit.
inline void expectSame(const std::string& one, const std::string& other) {
    const OIIO::ImageBuf a = picture(one), b = picture(other);
    ASSERT_EQ(a.spec().channelnames, b.spec().channelnames);
    ASSERT_EQ(a.roi(), b.roi());
    EXPECT_EQ(std::memcmp(a.localpixels(), b.localpixels(), a.spec().image_bytes()), 0)
        << one << " differs from " << other;
}

inline R3 pixel(const fs::path& file, int x, int y) {
    const OIIO::ImageBuf image = picture(file);
    R3 color;
    image.getpixel(x, y, &color.x, 3);
    return color;
}

// A sphere of 192 triangles over a floor of two, of which a light throws the shadow.
inline const std::string SceneText = contentOf(TEST_SCENES "/scene.toml");

inline const std::string error = "oxbeam: error: ";  // as messages begin that are about no file

// The scene with a texture, "wood.png".
inline void writeTexturedScene(const std::string& name = "scene.toml") {
    makePicture();
    writeFile(name, SceneText + "[texture.wood]\nfile = \"wood.png\"\n");
}

// "packages/libBroken.so", which does not load.
inline void writeBrokenPackage() {
    fs::create_directory(scratch() / "packages");
    writeFile("packages/libBroken.so", "no library");
}

class Command : public testing::Test {
protected:
    void SetUp() override {
        for (const auto& entry : fs::directory_iterator(scratch())) fs::remove_all(entry);
        writeFile("scene.toml", SceneText);
    }
};

}  // namespace oxbeam::test
