// What killed edits leave, and what the next edit does with it: a backup
// made by an edit that never replaced its file is found and removed, so a
// kill never blocks later edits; the cleaner removes only its own
// leftovers (same owner, the edit's mark, not locked), and a dry run
// removes nothing.
#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/stat.h>

#include "Child.h"
#include "TestFiles.h"

namespace {

const std::string kFixture = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-id3v2.mp3";

// The same checks for both writers.
struct Writer {
    const char* name;
    std::vector<std::string> options;  // before --set
};

const Writer kWriters[] = {{"fields", {}}, {"library", {"--writer", "library", "--force"}}};

class Recovery : public testing::TestWithParam<Writer> {
protected:
    void SetUp() override {
        folder_ = files_.path().string();
        path_ = folder_ + "/song.mp3";
        WriteFile(path_, ReadFile(kFixture));
    }
    std::vector<std::string> Edit(const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args(GetParam().options);
        args.insert(args.end(), {"--set", "title=New", "--set", "track=12"});
        args.insert(args.end(), extra.begin(), extra.end());
        args.push_back(path_);
        return args;
    }
    // Starts an edit, stops it at `point` and kills it there.
    void KillAt(const std::string& point) {
        const std::string out = logs_.file("out.txt"), err = logs_.file("err.txt");
        const pid_t pid = StartTool(Edit(), {"FILEINFO_TEST_STOP_AT=" + point}, out, err);
        int exitStatus = -1;
        ASSERT_TRUE(WaitStopped(pid, exitStatus)) << point << ": " << ReadFile(err);
        kill(pid, SIGKILL);
        ASSERT_EQ(WaitTool(pid), 128 + SIGKILL);
    }
    nlink_t Links() {
        struct stat st;
        return stat(path_.c_str(), &st) == 0 ? st.st_nlink : 0;
    }
    TempDir files_;
    TempDir logs_;
    std::string folder_;
    std::string path_;
};

TEST_P(Recovery, AKillBetweenTheBackupAndTheRenameNeverBlocksTheNextEdit) {
    const std::string original = ReadFile(kFixture);
    for (const char* point : {"backed-up", "before-rename"}) {
        SetUp();
        for (const std::string& name : NamesIn(folder_))
            if (name != "song.mp3") unlink((folder_ + "/" + name).c_str());
        KillAt(point);
        // The killed edit's second name of the file is still there.
        ASSERT_EQ(Links(), 2u) << point;
        ASSERT_EQ(BackupsIn(folder_), std::vector<std::string>{folder_ + "/song.orig.mp3"}) << point;

        // A dry run sees through it and removes nothing.
        const ToolResult dry = RunToolIn(logs_.path().string(), Edit({"--dry-run"}));
        EXPECT_EQ(dry.exitCode, 0) << point << ": " << dry.err;
        EXPECT_EQ(Links(), 2u) << point;
        EXPECT_EQ(TempFilesIn(folder_).size(), 1u) << point;

        // The next edit removes the stale backup and its copy, and edits.
        const ToolResult next = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
        EXPECT_EQ(next.exitCode, 0) << point << ": " << next.err;
        EXPECT_NE(ReadFile(path_), original) << point;
        EXPECT_EQ(Links(), 1u) << point;
        EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>()) << point << ": a stray backup";
        EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>()) << point;
    }
}

TEST_P(Recovery, ABackupOfAnEditThatReplacedTheFileStays) {
    const std::string original = ReadFile(kFixture);
    KillAt("renamed");
    ASSERT_EQ(Links(), 1u);
    const ToolResult next = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>{folder_ + "/song.orig.mp3"});
    EXPECT_EQ(ReadFile(folder_ + "/song.orig.mp3"), original);
}

TEST_P(Recovery, TheCleanerLeavesAForeignFileNamedLikeALeftover) {
    const std::string foreign = folder_ + "/.song.mp3.fileinfo-abcdef";
    WriteFile(foreign, "not an edit's");
    const ToolResult run = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadFile(foreign), "not an edit's");
}

TEST_P(Recovery, TheCleanerLeavesAMarkedLeftoverOfAnotherOwner) {
    if (geteuid() != 0) GTEST_SKIP() << "giving a file to another owner needs root";
    const std::string other = folder_ + "/.song.mp3.fileinfo-abcdef";
    WriteFile(other, "another user's");
    ASSERT_TRUE(MarkAsEditCopy(other));
    ASSERT_EQ(chown(other.c_str(), 65534, 65534), 0);
    const ToolResult run = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadFile(other), "another user's");
}

TEST_P(Recovery, TheCleanerRemovesItsOwnLeftoversButNotDuringADryRun) {
    const std::string stale = folder_ + "/.song.mp3.fileinfo-abcdef";
    WriteFile(stale, "left by a killed edit");
    ASSERT_TRUE(MarkAsEditCopy(stale));
    const ToolResult dry = RunToolIn(logs_.path().string(), Edit({"--dry-run"}));
    EXPECT_EQ(dry.exitCode, 0) << dry.err;
    EXPECT_EQ(ReadFile(stale), "left by a killed edit");
    const ToolResult run = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>());
}

TEST_P(Recovery, TheCleanerLeavesALeftoverARunningEditHolds) {
    const std::string held = folder_ + "/.song.mp3.fileinfo-abcdef";
    WriteFile(held, "held");
    ASSERT_TRUE(MarkAsEditCopy(held));
    const int fd = open(held.c_str(), O_RDONLY);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    const ToolResult run = RunToolIn(logs_.path().string(), Edit({"--no-backup"}));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadFile(held), "held");
    close(fd);
}

INSTANTIATE_TEST_SUITE_P(Writers, Recovery, testing::ValuesIn(kWriters),
                         [](const testing::TestParamInfo<Writer>& info) { return std::string(info.param.name); });

// A mark that names a backup of another inode (an older, finished backup)
// or a file that is no backup of the original never removes it.
TEST(Cleaner, RemovesOnlyTheSecondNameOfTheSameFile) {
    TempDir dir;
    const std::string folder = dir.path().string();
    WriteFile(dir.file("song.mp3"), "new bytes");
    WriteFile(dir.file("song.orig.mp3"), "an older backup");
    WriteFile(dir.file("other.mp3"), "another file");
    struct stat song;
    stat(dir.file("song.mp3").c_str(), &song);
    struct stat older;
    stat(dir.file("song.orig.mp3").c_str(), &older);
    const std::string a = dir.file(".song.mp3.fileinfo-aaaaaa"), b = dir.file(".song.mp3.fileinfo-bbbbbb");
    WriteFile(a, "x");
    WriteFile(b, "x");
    ASSERT_TRUE(MarkAsEditCopy(a, "copy " + std::to_string(older.st_ino) + " song.orig.mp3"));
    ASSERT_TRUE(link(dir.file("song.mp3").c_str(), dir.file("other.orig.mp3").c_str()) == 0);
    ASSERT_TRUE(MarkAsEditCopy(b, "copy " + std::to_string(song.st_ino) + " other.orig.mp3"));
    EXPECT_EQ(fileinfo::RemoveStaleTempFiles(folder), 2);
    EXPECT_EQ(ReadFile(dir.file("song.orig.mp3")), "an older backup");
    EXPECT_EQ(ReadFile(dir.file("other.orig.mp3")), "new bytes");
    EXPECT_EQ(TempFilesIn(folder), std::vector<std::string>());
}

}  // namespace
