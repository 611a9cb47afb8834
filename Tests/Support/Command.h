// The command at work on files of the test's own.
#pragma once

#include "Tests/Support/SceneText.h"

#include <OpenImageIO/imagebuf.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace oxbeam::test {

struct Outcome {
    int status;  // of the exit, or the negative signal
    std::string out, err;
    std::uint64_t peak = 0;  // bytes that it had at most, or one of the processes that it started
};

// The command at work in the scratch folder; arguments are separated by blanks.
class Process {
public:
    explicit Process(const std::string& arguments);
    Process(const char* program, std::vector<std::string> words);

    // Waits until it has, but not for ever.
    bool hasSaid(const std::string& what) const;
    std::string errors() const { return contentOf(m_name + ".err"); }
    pid_t id() const { return m_child; }
    void signal(int number) const;
    Outcome finish() const;

private:
    std::string m_name;
    pid_t m_child;
};

Outcome run(const std::string& arguments);

// What a shell makes of a script in which $oxbeam is the command.
Outcome shell(const std::string& script);

// Whether a text is as the pattern, in which "..." stands for anything.
bool fits(const std::string& text, std::string pattern);

// Files and calls of a file in Tests/Apps/Transcripts: "> NAME" begins a file, "$ ARGUMENTS" a call with what it says on
// standard error, in which "..." stands for anything; "= STATUS" ends it. What fails prints nothing else and leaves all
// files as they are.
void expectTranscript(const std::string& name);

// As floats. Not through the library's cache, which knows a file by its name and the second in which it was written.
OIIO::ImageBuf picture(const fs::path& file);

// All channels of two pictures, bit for bit.
void expectSame(const std::string& one, const std::string& other);

R3 pixel(const fs::path& file, int x, int y);

// A sphere of 192 triangles over a floor of two, of which a light throws the shadow.
inline const std::string SceneText = contentOf(TEST_SCENES "/scene.toml");

inline const std::string error = "oxbeam: error: ";  // as messages begin that are about no file

// The scene with a texture, "wood.png".
void writeTexturedScene(const std::string& name = "scene.toml");

// "packages/libBroken.so", which does not load.
void writeBrokenPackage();

class Command : public testing::Test {
protected:
    void SetUp() override;
};

}  // namespace oxbeam::test
