// What becomes of users' files: those that the command writes, and those that it must not.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <chrono>

using namespace oxbeam::test;

namespace {

std::uint64_t peakBytes(const std::string& arguments) {
    const Outcome outcome = run("render scene.toml -q --samples 1 --stats s.json " + arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return nlohmann::json::parse(contentOf("s.json")).at("peak_bytes");
}

// The last byte of an attribute's value changed, in a file as the format lays it out: name, type, length, value.
std::string withOtherAttribute(std::string file, const std::string& name) {
    const std::size_t type = file.find(name + std::string(1, '\0')) + name.size() + 1;
    const std::size_t length = file.find('\0', type) + 1;
    std::uint32_t size = 0;
    std::memcpy(&size, file.data() + length, sizeof size);
    file[length + sizeof size + size - 1] ^= 1;
    return file;
}

// As somebody who owns nothing here; only root can become that.
std::string asNobody(const std::string& script) {
    return "setpriv --reuid=65534 --regid=65534 --clear-groups bash -c \"" + script + "\"";
}

bool canBeNobody() { return geteuid() == 0 && shell(asNobody("$oxbeam --version")).status == 0; }

}  // namespace

TEST_F(Command, SavingTakesNoMemoryOfThePicturesSize) {
    const std::string size = "--size 1200x1200 --aov normal -o p.exr ";
    const std::uint64_t without = peakBytes(size), with = peakBytes(size + "--checkpoint c.exr");
    const std::uint64_t saved = fs::file_size(scratch() / "c.exr");
    EXPECT_GT(saved, 60u << 20);
    if (!Sanitized) {
        EXPECT_LT(with, without + saved / 4);
    }
}

TEST_F(Command, ACheckpointIsWhatWasSavedInAllThatIsReadOfIt) {
    ASSERT_EQ(run("render scene.toml -q -o p.exr --checkpoint c.exr --aov depth").status, 0);
    const std::string saved = contentOf("c.exr"), resume = "render scene.toml -q -o p.exr --resume --checkpoint ";
    const std::string damaged = error + "checkpoint 'd.exr' is damaged: ";
    for (const char* name : {"oxbeam:random", "oxbeam:renderTime", "oxbeam:content", "oxbeam:command", "oxbeam:samples",
                             "oxbeam:inputs", "oxbeam:engine", "dataWindow"}) {
        SCOPED_TRACE(name);
        writeFile("d.exr", withOtherAttribute(saved, name));
        const Outcome outcome = run(resume + "d.exr");
        EXPECT_EQ(outcome.status, 5);
        EXPECT_THAT(outcome.err, StartsWith(damaged));
    }
    std::string older = saved;
    older.replace(older.find("oxbeam:checkpoint") + 18 + 4 + 4, 1, "\1");
    writeFile("d.exr", older);
    EXPECT_EQ(run(resume + "d.exr").err, error + "cannot resume from 'd.exr': it is of version 1; expected 2\n");
    EXPECT_EQ(run(resume + "c.exr").status, 0);
}

TEST_F(Command, NoOutputIsAnInputOrAnotherOutput) {
    writeFile("tri.obj", "mtllib tri.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl m\nf 1 2 3\n");
    writeFile("tri.mtl", "newmtl m\nKd 1 1 1\nmap_Kd wood.png\n");
    writeTexturedScene("textured.toml");
    fs::create_symlink("wood.png", scratch() / "link.png");
    fs::create_hard_link(scratch() / "wood.png", scratch() / "hard.png");
    fs::create_symlink("new.png", scratch() / "new.json");
    fs::create_directory(scratch() / "folder");
    fs::create_directory_symlink("folder", scratch() / "same");
    fs::create_directory(scratch() / "packages");
    fs::copy_file(TEST_PACKAGES "/libStranger.so", scratch() / "packages/libStranger.so");
    expectTranscript("outputs.txt");
}

TEST_F(Command, NothingThatIsPrintedIsLostUnnoticed) {
    for (const std::string arguments : {"--help", "--version", "render --help", "list", "describe KelPhong", "doctor",
                                        "describe --format json", "check scene.toml", "completion bash"}) {
        const Outcome outcome = shell("$oxbeam " + arguments + " > /dev/full");
        EXPECT_EQ(outcome.status, 5) << arguments;
        EXPECT_EQ(outcome.err, error + "cannot write to standard output\n") << arguments;
    }
}

TEST_F(Command, AFileThatGetsLargerThanAllowedIsAnErrorOfWriting) {
    ASSERT_EQ(run("render scene.toml -q --size 200x200 -o p.png").status, 0);
    for (const std::string arguments : {"render scene.toml --size 300x300 -o q.png", "sheet p.png p.png -o q.png",
                                        "scene " SCENES "/assets/materials.glb -o q.toml"}) {
        const Outcome outcome = shell("ulimit -f 1; $oxbeam " + arguments);
        EXPECT_EQ(outcome.status, 5) << arguments;
        EXPECT_THAT(outcome.err, HasSubstr("error: cannot write 'q.")) << arguments;
        EXPECT_THAT(outcome.err, HasSubstr("File too large")) << arguments;
    }
}

TEST_F(Command, WhatBelongsToOthersIsRefusedBeforeRendering) {
    if (!canBeNobody()) GTEST_SKIP() << "needs root, setpriv, and a build that everybody may run";
    ASSERT_EQ(run("render scene.toml -q -o p.png --checkpoint c.exr").status, 0);
    fs::create_directory(scratch() / "sticky");
    for (const auto& folder : {scratch(), scratch() / "sticky"}) fs::permissions(folder, fs::perms(01777));
    writeFile("sticky/p.png", "another user's");
    writeFile("closed.toml", SceneText);
    for (const char* name : {"closed.toml", "c.exr"}) fs::permissions(scratch() / name, fs::perms(0600));
    const struct {
        std::string arguments, message;
    } cases[] = {
        {"render scene.toml -o sticky/p.png",
         "cannot write 'sticky/p.png': it is another user's, in a directory where only owners replace files\n"},
        {"render closed.toml -o sticky/q.png", "closed.toml: cannot be read: Permission denied\n"},
        {"render scene.toml -o sticky/q.png --checkpoint c.exr --resume",
         "cannot write 'c.exr': it is another user's, in a directory where only owners replace files\n"},
    };
    for (const auto& c : cases) {
        const Outcome outcome = shell(asNobody("$oxbeam " + c.arguments));
        EXPECT_EQ(outcome.status, 5) << c.arguments;
        EXPECT_EQ(outcome.err, error + c.message);
    }
    fs::permissions(scratch(), fs::perms(0777));
    const Outcome resumed = shell(asNobody("$oxbeam render scene.toml -q -o q.png --checkpoint c.exr --resume"));
    EXPECT_EQ(resumed.err, error + "cannot resume from 'c.exr': Permission denied\n");
    EXPECT_EQ(contentOf("sticky/p.png"), "another user's");
}
