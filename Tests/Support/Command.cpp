#include "Tests/Support/Command.h"

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
#include <sstream>
#include <thread>

namespace oxbeam::test {

// ---- Processes

static std::vector<std::string> split(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

Process::Process(const std::string& arguments) : Process(OXBEAM_COMMAND, split("oxbeam " + arguments)) {}

Process::Process(const char* program, std::vector<std::string> words) {
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

bool Process::hasSaid(const std::string& what) const {
    for (int i = 0; i < 3000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
        if (errors().find(what) != std::string::npos) return true;
    return false;
}

void Process::signal(int number) const { kill(m_child, number); }

Outcome Process::finish() const {
    int status = 0;
    rusage usage{};
    EXPECT_EQ(wait4(m_child, &status, 0, &usage), m_child);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), contentOf(m_name + ".out"), errors(),
            static_cast<std::uint64_t>(usage.ru_maxrss) * 1024};
}

Outcome run(const std::string& arguments) { return Process(arguments).finish(); }

Outcome shell(const std::string& script) {
    return Process("/bin/bash", {"bash", "-c", "oxbeam='" OXBEAM_COMMAND "'; " + script}).finish();
}

// ---- Transcripts

bool fits(const std::string& text, std::string pattern) {
    for (auto at = pattern.find_first_of("[]?*\\"); at != pattern.npos; at = pattern.find_first_of("[]?*\\", at + 2))
        pattern.insert(at, 1, '\\');
    for (auto at = pattern.find("..."); at != pattern.npos; at = pattern.find("...", at)) pattern.replace(at, 3, "*");
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

// What the scratch folder holds, but for what calls have printed and what is too large to look at.
static std::map<std::string, std::string> filesNow() {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(scratch()))
        if (const fs::path ending = entry.path().extension(); fs::is_regular_file(entry.symlink_status()) &&
                                                              entry.file_size() < 10'000'000 && ending != ".out" &&
                                                              ending != ".err")
            files[entry.path()] = contentOf(entry.path());
    return files;
}

void expectTranscript(const std::string& name) {
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

// ---- Pictures

OIIO::ImageBuf picture(const fs::path& file) {
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

void expectSame(const std::string& one, const std::string& other) {
    const OIIO::ImageBuf a = picture(one), b = picture(other);
    ASSERT_EQ(a.spec().channelnames, b.spec().channelnames);
    ASSERT_EQ(a.roi(), b.roi());
    EXPECT_EQ(std::memcmp(a.localpixels(), b.localpixels(), a.spec().image_bytes()), 0)
        << one << " differs from " << other;
}

R3 pixel(const fs::path& file, int x, int y) {
    const OIIO::ImageBuf image = picture(file);
    R3 color;
    image.getpixel(x, y, &color.x, 3);
    return color;
}

// ---- The test's own files

void writeTexturedScene(const std::string& name) {
    makePicture();
    writeFile(name, SceneText + "[texture.wood]\nfile = \"wood.png\"\n");
}

void writeBrokenPackage() {
    fs::create_directory(scratch() / "packages");
    writeFile("packages/libBroken.so", "no library");
}

void Command::SetUp() {
    for (const auto& entry : fs::directory_iterator(scratch())) fs::remove_all(entry);
    writeFile("scene.toml", SceneText);
}

}  // namespace oxbeam::test
