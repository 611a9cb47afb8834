// Files that are written beside their target and then renamed: what becomes of what was there, and of what is left over.
#include "Engine/System/StoredFile.h"

#include "Tests/Support/Processes.h"
#include "Tests/Support/SceneText.h"

#include <sys/stat.h>

#include <csignal>
#include <random>

using namespace oxbeam::test;

namespace {

class StoredFiles : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(m_folder);
        fs::create_directory(m_folder);
    }
    std::ptrdiff_t files() const { return std::distance(fs::directory_iterator(m_folder), {}); }
    static void write(FileSink& sink, std::string_view text) {
        sink.write({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    }

    const fs::path m_folder = scratch() / "stored", m_file = m_folder / "file";
};

}  // namespace

// Against a plain string: parts that cross blocks, go back, overlap, and leave holes.
TEST_F(StoredFiles, WhatIsWrittenInAnyOrderIsInItsPlace) {
    std::mt19937 random(7);
    const auto upTo = [&](std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(random); };
    std::string expected;
    StoredFile file(m_file);
    for (int i = 0; i < 120; ++i) {
        const std::size_t at = i % 4 ? upTo(expected.size()) : expected.size() + upTo(100'000);
        const std::size_t size = upTo(i % 3 ? 5000 : 700'000);
        const std::string part(size, static_cast<char>('a' + i % 26));
        if (expected.size() < at + size) expected.resize(at + size, '\0');
        expected.replace(at, size, part);
        file.seek(at);
        write(file, part);
        ASSERT_EQ(file.position(), at + size);
    }
    EXPECT_GT(expected.size(), 5u << 20);
    EXPECT_EQ(file.size(), expected.size());
    EXPECT_FALSE(fs::exists(m_file));
    file.finish();
    EXPECT_TRUE(contentOf(m_file) == expected);
    EXPECT_EQ(files(), 1);
}

TEST_F(StoredFiles, LinksAreFollowedAndRightsHandedOn) {
    fs::create_directory(m_folder / "elsewhere");
    fs::create_symlink("elsewhere/real", m_folder / "link");  // to what is not there yet
    storeFile(m_folder / "link", "one");
    EXPECT_TRUE(fs::is_symlink(m_folder / "link"));
    EXPECT_EQ(contentOf(m_folder / "elsewhere/real"), "one");
    struct stat now {};
    const auto replaced = [&] {
        storeFile(m_folder / "link", "two");
        ASSERT_EQ(stat((m_folder / "link").c_str(), &now), 0);
    };
    for (const unsigned mode : {0600u, 0640u, 0755u, 0444u}) {
        chmod((m_folder / "elsewhere/real").c_str(), mode);
        replaced();
        EXPECT_EQ(now.st_mode & 07777, mode);
    }
    if (geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    ASSERT_EQ(chown((m_folder / "elsewhere/real").c_str(), 1234, 5678), 0);
    replaced();
    EXPECT_EQ(std::pair(now.st_uid, now.st_gid), std::pair(1234u, 5678u));
}

TEST_F(StoredFiles, ANameMayBeAsLongAsTheSystemTakesIt) {
    const std::string longest(255, 'n'), longer(256, 'n');
    storeFile(m_folder / longest, "text");
    EXPECT_EQ(contentOf(m_folder / longest), "text");
    EXPECT_EQ(failure(ExitStatus::InputOutput, [&] { StoredFile(m_folder / longer); }),
              "cannot write 'stored/" + longer + "': File name too long");
    EXPECT_EQ(files(), 1);
}

TEST_F(StoredFiles, WhatAKilledWriterLeftIsClearedAwayAndOthersAtWorkAreNot) {
    writeFile("stored/file", "old");
    StoredFile atWork(m_file);
    write(atWork, "of the first");
    statusOf([&] {
        StoredFile file(m_file);
        write(file, std::string(3u << 20, 'x'));
        return std::raise(SIGKILL);
    });
    EXPECT_EQ(files(), 3) << "the target and two that are or were being written";
    storeFile(m_file, "new");
    EXPECT_EQ(contentOf(m_file), "new");
    EXPECT_EQ(files(), 2);
    atWork.finish();
    EXPECT_EQ(contentOf(m_file), "of the first");
    EXPECT_EQ(files(), 1);
}
