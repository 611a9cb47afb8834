// What becomes of users' files: those that the command writes, and those that it must not.
#include "Tests/Support/Command.h"

#include <nlohmann/json.hpp>

#include <chrono>

using namespace oxbeam;
using namespace oxbeam::test;
namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string error = "oxbeam: error: ";

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

// ---- Checkpoints

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

TEST_F(Command, WhatIsNoExrIsRefusedAsACheckpointAtOnce) {
    writeImage(scratch() / "p.png", 2, 1, {Black, White});
    fs::rename(scratch() / "p.png", scratch() / "png.exr");
    writeFile("zeros.exr", "");
    fs::resize_file(scratch() / "zeros.exr", 500u << 20);
    const auto before = std::chrono::steady_clock::now();
    for (const std::string name : {"png.exr", "zeros.exr"}) {
        const Outcome outcome = run("render scene.toml -o q.png --resume --checkpoint " + name);
        EXPECT_EQ(outcome.status, 5);
        EXPECT_EQ(outcome.err,
                  error + "checkpoint '" + name + "' is damaged: it does not begin as an EXR picture does\n");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

// ---- Files that must stay as they are

TEST_F(Command, NoOutputIsAnInputOrAnotherOutput) {
    writeFile("tri.obj", "mtllib tri.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl m\nf 1 2 3\n");
    writeImage(scratch() / "wood.png", 2, 1, {Black, White});
    writeFile("tri.mtl", "newmtl m\nKd 1 1 1\nmap_Kd wood.png\n");
    writeFile("textured.toml", std::string(SceneText) + "[texture.wood]\nfile = \"wood.png\"\n");
    fs::create_symlink("wood.png", scratch() / "link.png");
    fs::create_hard_link(scratch() / "wood.png", scratch() / "hard.png");
    fs::create_symlink("new.png", scratch() / "new.json");
    fs::create_directory(scratch() / "folder");
    fs::create_directory_symlink("folder", scratch() / "same");
    const std::map<std::string, std::string> before = {{"tri.obj", contentOf("tri.obj")},
                                                       {"tri.mtl", contentOf("tri.mtl")},
                                                       {"wood.png", contentOf("wood.png")},
                                                       {"textured.toml", contentOf("textured.toml")},
                                                       {"scene.toml", SceneText}};
    const std::string would = " would overwrite ", read = ", which is read\n",
                      wood = would + "the file '" + (scratch() / "wood.png").string() + "'" + read;
    const struct {
        std::string arguments, message;
    } cases[] = {
        {"scene tri.obj -o tri.obj", "--output 'tri.obj'" + would + "the model 'tri.obj'" + read},
        {"scene tri.obj -o ./wood.png", "--output './wood.png'" + wood},
        {"scene tri.obj --environment wood.png -o hard.png",
         "--output 'hard.png'" + would + "the environment 'wood.png'" + read},
        {"render scene.toml -o p.png --stats scene.toml",
         "--stats 'scene.toml'" + would + "the scene 'scene.toml'" + read},
        {"render scene.toml -o new.png --stats new.json", "--output and --stats name the same file\n"},
        {"render scene.toml -o folder/new.png --stats same/new.png", "--output and --stats name the same file\n"},
        {"render scene.toml -o c.exr --checkpoint ./c.exr", "--checkpoint and --output name the same file\n"},
        {"render scene.toml -o p.png --checkpoint c.exr --stats c.exr",
         "--checkpoint and --stats name the same file\n"},
        {"render textured.toml -o wood.png", "--output 'wood.png'" + wood},
        {"render textured.toml -o link.png", "--output 'link.png'" + wood},
        {"render tri.obj -o p.png --stats hard.png", "--stats 'hard.png'" + wood},
        {"render tri.obj -o p.png --stats tri.mtl",
         "--stats 'tri.mtl'" + would + "the file '" + (scratch() / "tri.mtl").string() + "'" + read},
        {"sweep textured.toml --set shader.body.shininess=1,2 -o link.png", "--output 'link.png'" + wood},
        {"sheet link.png -o wood.png", "--output 'wood.png'" + would + "the picture 'link.png'" + read},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const Outcome outcome = run(c.arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.err, error + c.message);
        for (const auto& [name, content] : before) ASSERT_TRUE(contentOf(name) == content) << name;
    }
    // Going on from a checkpoint is what it is there for.
    ASSERT_EQ(run("render scene.toml -q -o p.png --checkpoint c.exr").status, 0);
    EXPECT_EQ(run("render scene.toml -q -o p.png --checkpoint c.exr --resume").status, 0);
}

TEST_F(Command, APackageIsNoOutputEither) {
    fs::create_directory(scratch() / "packages");
    fs::copy_file(TEST_PACKAGES "/libStranger.so", scratch() / "packages/libStranger.so");
    const Outcome outcome = run("render scene.toml -o p.png --package-path packages --stats packages/libStranger.so");
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr("--stats 'packages/libStranger.so' would overwrite the package '"));
    EXPECT_TRUE(contentOf("packages/libStranger.so") == contentOf(TEST_PACKAGES "/libStranger.so"));
}

// ---- What the system refuses

TEST_F(Command, ErrorsOfTheFileSystemAreNoErrorsOfTheScene) {
    fs::create_symlink("/proc/self/mem", scratch() / "broken.toml");  // cannot be read where it begins
    fs::create_symlink("loop.toml", scratch() / "loop.toml");
    const std::string longer(300, 'n');
    expectFailures({
        {"check broken.toml", 5, error + "broken.toml: cannot be read: Input/output error\n"},
        {"check loop.toml", 5, error + "loop.toml: cannot be read: Too many levels of symbolic links\n"},
        {"check " + longer + ".toml", 5, error + longer + ".toml: cannot be read: File name too long\n"},
        {"render scene.toml -o " + longer + ".png", 5,
         error + "cannot write '" + longer + ".png': File name too long\n"},
    });
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
