// Tag edits under failure: every write, sync, rename and link failing in
// turn, the tool killed at any moment of a 50 MB edit, a full file system,
// the file changed from outside, and two edits at once; with each writer.
// After each, the file holds its old bytes or the complete new ones, no
// temporary file of the edit stays, and a backup, if any, holds the old
// bytes.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/file.h>

#include <chrono>
#include <map>
#include <sstream>
#include <thread>

#include "Child.h"
#include "TestFiles.h"

namespace {

const std::string kFixture = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-id3v2.mp3";
// The edit of every run, by the writer the test runs with.
std::vector<std::string> EditArguments(const std::string& writer) {
    std::vector<std::string> args = {"--set", "title=New", "--set", "track=12"};
    if (writer == "library") args.insert(args.begin(), {"--writer", "library", "--force"});
    return args;
}

class SafeEditUnderFault : public testing::TestWithParam<const char*> {
protected:
    std::vector<std::string> EditOf(const std::string& path) const {
        std::vector<std::string> args = EditArguments(GetParam());
        args.push_back(path);
        return args;
    }

    void SetUp() override {
        folder_ = files_.path().string();
        logs_ = logDir_.path().string();
        path_ = folder_ + "/song.mp3";
    }

    // The bytes a fault-free edit of `original` gives, made in a folder of
    // its own under the same file name.
    std::string CleanResult(const std::string& original, const std::vector<std::string>& extra = {}) {
        TempDir reference;
        const std::string path = reference.file("song.mp3");
        WriteFile(path, original);
        std::vector<std::string> args = EditOf(path);
        args.insert(args.begin(), extra.begin(), extra.end());
        const ToolResult run = RunToolIn(logs_, args);
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return ReadFile(path);
    }

    // Leaves the folder with the original file alone in it (a file that
    // still holds the original stays: rewriting 50 MB takes long).
    void Reset(const std::string& original) {
        const bool intact = ReadFile(path_) == original;
        for (const std::string& name : NamesIn(folder_))
            if (!(intact && name == "song.mp3")) unlink((folder_ + "/" + name).c_str());
        if (!intact) WriteFile(path_, original);
    }

    // A run that edits another file of the folder removes the temporary
    // files a killed run left there (a dry run removes nothing).
    void Cleanup() {
        const std::string other = folder_ + "/other.mp3";
        WriteFile(other, ReadFile(kFixture));
        RunToolIn(logs_, {"--set", "title=x", "--no-backup", other});
        unlink(other.c_str());
    }

    void ExpectIntact(const std::string& original, const std::string& result, const std::string& context) {
        ExpectOldOrNew(path_, folder_, original, result, context);
    }

    TempDir files_;
    TempDir logDir_;
    std::string folder_;
    std::string logs_;
    std::string path_;
};

TEST_P(SafeEditUnderFault, EveryFailingWriteSyncRenameOrLinkLeavesTheOldOrTheNewFile) {
    const std::string original = ReadFile(kFixture);
    const std::string result = CleanResult(original);
    ASSERT_NE(result, original);
    Reset(original);
    const std::map<std::string, long> counts = CallCounts(logs_, EditOf(path_));
    ASSERT_GT(counts.at("write"), 2);
    ASSERT_GE(counts.at("fsync"), 2);
    ASSERT_EQ(counts.at("rename"), 1);
    ASSERT_EQ(counts.at("link"), 1);
    int failed = 0, changed = 0;
    for (const auto& [kind, count] : counts) {
        for (long at = 1; at <= count; ++at) {
            for (const char* error : {"ENOSPC", "EIO"}) {
                Reset(original);
                const ToolResult run = RunToolIn(logs_, EditOf(path_),
                                                 {"LD_PRELOAD=" FILEINFO_FAULT_SHIM, "FILEINFO_FAULT_CALL=" + kind,
                                                  "FILEINFO_FAULT_AT=" + std::to_string(at),
                                                  "FILEINFO_FAULT_ERRNO=" + std::string(error),
                                                  "ASAN_OPTIONS=verify_asan_link_order=0"});
                const std::string context = kind + " #" + std::to_string(at) + " " + error;
                ExpectIntact(original, result, context);
                ASSERT_TRUE(run.exitCode == 0 || run.exitCode == 1) << context << ": " << run.err;
                if (run.exitCode == 0) {
                    ++changed;
                    EXPECT_EQ(ReadFile(path_), result) << context;
                } else {
                    ++failed;
                    EXPECT_EQ(run.err.rfind("fileinfo: ", 0), 0u) << context << ": " << run.err;
                }
            }
        }
    }
    // Failing syncs of the folder after the rename and writes of the tool's
    // own messages do not undo an edit; every other failure does.
    EXPECT_GT(failed, 0);
    EXPECT_GT(changed, 0);
}

TEST_P(SafeEditUnderFault, AFailedRenameSaysWhyAndKeepsNoBackup) {
    const std::string original = ReadFile(kFixture);
    Reset(original);
    const ToolResult run = RunToolIn(logs_, EditOf(path_),
                                     {"LD_PRELOAD=" FILEINFO_FAULT_SHIM, "FILEINFO_FAULT_CALL=rename",
                                      "FILEINFO_FAULT_AT=1", "FILEINFO_FAULT_ERRNO=EIO",
                                      "ASAN_OPTIONS=verify_asan_link_order=0"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + path_ + ": replacing the file failed: Input/output error; the file is "
                           "unchanged\n"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(ReadFile(path_), original);
    EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>());
    EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>());
}

TEST_P(SafeEditUnderFault, WithoutHardLinksTheBackupIsACopyWithTheOriginalsModeAndTimes) {
    const std::string original = ReadFile(kFixture);
    const std::string result = CleanResult(original);
    Reset(original);
    chmod(path_.c_str(), 0604);
    const timespec times[2] = {{1000000000, 0}, {1234567890, 123456789}};
    utimensat(AT_FDCWD, path_.c_str(), times, 0);
    const ToolResult run = RunToolIn(logs_, EditOf(path_),
                                     {"LD_PRELOAD=" FILEINFO_FAULT_SHIM, "FILEINFO_FAULT_CALL=link",
                                      "FILEINFO_FAULT_AT=1", "FILEINFO_FAULT_ERRNO=EPERM",
                                      "ASAN_OPTIONS=verify_asan_link_order=0"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadFile(path_), result);
    const std::string backup = folder_ + "/song.orig.mp3";
    EXPECT_EQ(ReadFile(backup), original);
    struct stat st;
    ASSERT_EQ(stat(backup.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    EXPECT_EQ(st.st_mtim.tv_sec, 1234567890);
    EXPECT_EQ(st.st_mtim.tv_nsec, 123456789);
    EXPECT_EQ(st.st_nlink, 1u);
    EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>());
}

// The size of the killed edit: 50 MB; in a sanitizer build, where every
// byte the library moves is checked and the edit runs some fifty times
// slower, 4 MB, to keep the run in seconds.
#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kBigMegabytes = 4;
#else
constexpr size_t kBigMegabytes = 50;
#endif

// About kBigMegabytes of MPEG 1 Layer III frames with varied payload behind
// the fixture's ID3v2 tag: quick to make, nothing sparse.
std::string BigMp3() {
    const std::string fixture = ReadFile(kFixture);
    const size_t tagEnd = 10 + 1990;  // the fixture's ID3v2 header and body
    std::string bytes = fixture.substr(0, tagEnd);
    const size_t frame = 417;
    const size_t frames = (kBigMegabytes << 20) / frame;
    bytes.reserve(tagEnd + frames * frame);
    uint32_t state = 2463534242u;
    std::string body(frame - 4, '\0');
    for (size_t i = 0; i < frames; ++i) {
        bytes += std::string("\xFF\xFB\x90\x64", 4);
        for (char& c : body) {
            state ^= state << 13;
            state ^= state >> 17;
            state ^= state << 5;
            c = static_cast<char>(state);
        }
        bytes += body;
    }
    return bytes;
}

// Where a kill test's files go: a memory file system when there is one. A
// kill does not depend on the file system, and there the edit's syncs do
// not wait for a disk that other programs may keep busy.
std::filesystem::path KillTestBase() {
    std::error_code error;
    if (std::filesystem::is_directory("/dev/shm", error) && access("/dev/shm", W_OK) == 0) return "/dev/shm";
    return std::filesystem::temp_directory_path();
}

TEST_P(SafeEditUnderFault, KillingA50MegabyteEditAtAnyMomentLeavesTheOldOrTheNewFile) {
    TempDir memory(KillTestBase());
    folder_ = memory.path().string();
    path_ = folder_ + "/song.mp3";
    const std::string original = BigMp3();
    const std::string result = CleanResult(original);
    ASSERT_NE(result, original);
    const std::string out = logs_ + "/out.txt", err = logs_ + "/err.txt";

    // At every named point of the edit.
    for (const char* point : {"locked", "checked", "copied", "written", "verified", "backed-up", "before-rename",
                              "renamed"}) {
        Reset(original);
        const pid_t pid = StartTool(EditOf(path_), {std::string("FILEINFO_TEST_STOP_AT=") + point}, out, err);
        int exitStatus = -1;
        ASSERT_TRUE(WaitStopped(pid, exitStatus)) << point << " never reached: " << exitStatus << ReadFile(err);
        kill(pid, SIGKILL);
        EXPECT_EQ(WaitTool(pid), 128 + SIGKILL);
        // Between the copy and the rename the killed run leaves its
        // temporary file; the next run on the folder removes it.
        const std::string p = point;
        const bool copyExists = p != "locked" && p != "checked" && p != "renamed";
        EXPECT_EQ(TempFilesIn(folder_).size(), copyExists ? 1u : 0u) << point;
        Cleanup();
        ExpectIntact(original, result, point);
        // A killed edit that never replaced the file leaves no backup, and
        // the next edit of the file goes through.
        if (ReadFile(path_) == original) {
            EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>()) << point << ": a stray backup";
            std::vector<std::string> next = EditOf(path_);
            next.insert(next.begin(), "--no-backup");
            EXPECT_EQ(RunToolIn(logs_, next).exitCode, 0) << point;
            EXPECT_TRUE(ReadFile(path_) == result) << point;
        }
    }

    // And at moments spread over a whole edit.
    const auto start = std::chrono::steady_clock::now();
    Reset(original);
    ASSERT_EQ(RunToolIn(logs_, EditOf(path_)).exitCode, 0);
    const auto whole = std::chrono::steady_clock::now() - start;
    const int kills = 4;
    for (int k = 0; k < kills; ++k) {
        Reset(original);
        const pid_t pid = StartTool(EditOf(path_), {}, out, err);
        std::this_thread::sleep_for(whole * k / kills);
        kill(pid, SIGKILL);
        WaitTool(pid);
        Cleanup();
        ExpectIntact(original, result, "killed after " + std::to_string(k) + "/" + std::to_string(kills));
    }
}

// ---- the file changed from outside between the copy and the rename ----

struct Disturbance {
    const char* name;
    void (*apply)(const std::string& path, const std::string& folder);
};

const Disturbance kDisturbances[] = {
    {"replaced",
     [](const std::string& path, const std::string& folder) {
         WriteFile(folder + "/other", "another file");
         rename((folder + "/other").c_str(), path.c_str());
     }},
    {"truncated", [](const std::string& path, const std::string&) { truncate(path.c_str(), 1000); }},
    {"appended",
     [](const std::string& path, const std::string&) {
         std::ofstream(path, std::ios::binary | std::ios::app) << "more";
     }},
};

TEST_P(SafeEditUnderFault, AFileChangedFromOutsideDuringTheEditIsLeftAsTheOtherProcessMadeIt) {
    const std::string original = ReadFile(kFixture);
    const std::string out = logs_ + "/out.txt", err = logs_ + "/err.txt";
    for (const Disturbance& d : kDisturbances) {
        for (const char* point : {"copied", "verified", "before-rename"}) {
            const std::string context = std::string(d.name) + " at " + point;
            Reset(original);
            const pid_t pid = StartTool(EditOf(path_), {std::string("FILEINFO_TEST_STOP_AT=") + point}, out, err);
            int exitStatus = -1;
            ASSERT_TRUE(WaitStopped(pid, exitStatus)) << context;
            // A second process changes the file while the edit waits.
            const pid_t other = fork();
            if (other == 0) {
                d.apply(path_, folder_);
                _exit(0);
            }
            ASSERT_EQ(WaitTool(other), 0);
            const std::string disturbed = ReadFile(path_);
            kill(pid, SIGCONT);
            EXPECT_EQ(WaitTool(pid), 1) << context;
            EXPECT_NE(ReadFile(err).find(std::string("fileinfo: ") + path_ + ": the file was " +
                                         (d.name == std::string("replaced") ? "replaced" : "changed") +
                                         " while it was being edited; the file is unchanged\n"),
                      std::string::npos)
                << context << ": " << ReadFile(err);
            EXPECT_EQ(ReadFile(path_), disturbed) << context;
            EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>()) << context;
            EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>()) << context;
        }
    }
}

// ---- two edits of one file ----

TEST_P(SafeEditUnderFault, ASecondEditOfAFileBeingEditedIsRefused) {
    const std::string original = ReadFile(kFixture);
    const std::string result = CleanResult(original);
    Reset(original);
    const pid_t first = StartTool(EditOf(path_), {"FILEINFO_TEST_STOP_AT=verified"}, logs_ + "/1.out", logs_ + "/1.err");
    int exitStatus = -1;
    ASSERT_TRUE(WaitStopped(first, exitStatus));
    const ToolResult second = RunToolIn(logs_, EditOf(path_));
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.err.find("fileinfo: " + path_ +
                              ": another edit of this file is in progress; the file is unchanged\n"),
              std::string::npos)
        << second.err;
    kill(first, SIGCONT);
    EXPECT_EQ(WaitTool(first), 0);
    EXPECT_EQ(ReadFile(path_), result);
    EXPECT_EQ(ReadFile(folder_ + "/song.orig.mp3"), original);
    EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>());
}

TEST_P(SafeEditUnderFault, TwoEditsStartedTogetherGiveOneOrTwoWholeEdits) {
    const std::string original = ReadFile(kFixture);
    const std::string once = CleanResult(original, {"--no-backup"});
    TempDir twiceDir;
    WriteFile(twiceDir.file("song.mp3"), once);
    std::vector<std::string> again = EditOf(twiceDir.file("song.mp3"));
    again.insert(again.begin(), "--no-backup");
    ASSERT_EQ(RunToolIn(logs_, again).exitCode, 0);
    const std::string twice = ReadFile(twiceDir.file("song.mp3"));
    for (int round = 0; round < 10; ++round) {
        Reset(original);
        std::vector<std::string> args = EditOf(path_);
        args.insert(args.begin(), "--no-backup");
        const pid_t a = StartTool(args, {}, logs_ + "/a.out", logs_ + "/a.err");
        const pid_t b = StartTool(args, {}, logs_ + "/b.out", logs_ + "/b.err");
        const int exitA = WaitTool(a), exitB = WaitTool(b);
        ASSERT_TRUE(exitA == 0 || exitA == 1) << ReadFile(logs_ + "/a.err");
        ASSERT_TRUE(exitB == 0 || exitB == 1) << ReadFile(logs_ + "/b.err");
        ASSERT_TRUE(exitA == 0 || exitB == 0) << "both refused";
        const int edits = (exitA == 0) + (exitB == 0);
        EXPECT_EQ(ReadFile(path_), edits == 2 ? twice : once) << "round " << round;
        for (const auto& [code, errFile] : {std::pair<int, std::string>{exitA, "/a.err"}, {exitB, "/b.err"}}) {
            if (code == 1) {
                EXPECT_NE(ReadFile(logs_ + errFile).find("another edit of this file is in progress"), std::string::npos)
                    << ReadFile(logs_ + errFile);
            }
        }
        EXPECT_EQ(TempFilesIn(folder_), std::vector<std::string>());
    }
}

// ---- a small file system that fills up ----

class LoopMount {
public:
    explicit LoopMount(const std::string& folder) : image_(folder + "/fs.img"), mountPoint_(folder + "/mnt") {
        mkdir(mountPoint_.c_str(), 0755);
        const std::string make = "truncate -s 8M " + image_ + " && mkfs.ext4 -q -F -m 0 " + image_ + " >/dev/null 2>&1";
        if (system(make.c_str()) != 0) return;
        mounted_ = system(("mount -o loop " + image_ + " " + mountPoint_ + " >/dev/null 2>&1").c_str()) == 0;
    }
    ~LoopMount() {
        if (mounted_) umount2(mountPoint_.c_str(), MNT_DETACH);
    }
    bool mounted() const { return mounted_; }
    const std::string& path() const { return mountPoint_; }

private:
    std::string image_;
    std::string mountPoint_;
    bool mounted_ = false;
};

// Fills the file system until `leave` bytes stay free (to a block).
void FillLeaving(const std::string& folder, unsigned long long leave) {
    struct statvfs fs;
    statvfs(folder.c_str(), &fs);
    const unsigned long long available = static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
    if (available <= leave) return;
    const std::string filler = folder + "/filler";
    const int fd = open(filler.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    std::string block(available - leave > 65536 ? 65536 : available - leave, 'f');
    unsigned long long left = available - leave;
    while (left > 0) {
        const size_t n = left < block.size() ? static_cast<size_t>(left) : block.size();
        if (write(fd, block.data(), n) <= 0) break;
        left -= n;
    }
    fsync(fd);
    close(fd);
}

TEST_P(SafeEditUnderFault, AFileSystemThatFillsUpLeavesTheOldOrTheNewFile) {
    TempDir base;
    LoopMount mount(base.path().string());
    if (!mount.mounted()) GTEST_SKIP() << "mounting a loop file system is not permitted here";
    const std::string folder = mount.path() + "/music";
    const std::string path = folder + "/song.mp3";
    const std::string original = BigMp3().substr(0, 2u << 20);  // 2 MB
    const std::string result = CleanResult(original);
    const std::string out = logs_ + "/out.txt", err = logs_ + "/err.txt";

    // Too little room from the start: refused before anything is copied.
    mkdir(folder.c_str(), 0755);
    WriteFile(path, original);
    FillLeaving(mount.path(), original.size() / 2);
    ToolResult run = RunToolIn(logs_, EditOf(path));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("not enough free space for a copy of the file"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("No space left on device; the file is unchanged"), std::string::npos) << run.err;
    EXPECT_EQ(ReadFile(path), original);
    EXPECT_EQ(TempFilesIn(folder), std::vector<std::string>());

    // Room at the check, then the disk fills up: during the copy, or during
    // the writer's own growth of the copy.
    for (const long long leave : {0LL, 1LL << 20, static_cast<long long>(original.size()) + 600,
                                  static_cast<long long>(original.size()) + 20000}) {
        unlink((mount.path() + "/filler").c_str());
        for (const std::string& name : NamesIn(folder)) unlink((folder + "/" + name).c_str());
        WriteFile(path, original);
        const pid_t pid = StartTool(EditOf(path), {"FILEINFO_TEST_STOP_AT=checked"}, out, err);
        int exitStatus = -1;
        ASSERT_TRUE(WaitStopped(pid, exitStatus)) << ReadFile(err);
        FillLeaving(mount.path(), static_cast<unsigned long long>(leave));
        kill(pid, SIGCONT);
        const int code = WaitTool(pid);
        const std::string context = "leaving " + std::to_string(leave) + " bytes";
        EXPECT_TRUE(code == 0 || code == 1) << context;
        const std::string now = ReadFile(path);
        EXPECT_TRUE(now == original || now == result) << context;
        if (code == 1) {
            EXPECT_EQ(now, original) << context;
            EXPECT_NE(ReadFile(err).find("; the file is unchanged"), std::string::npos) << context << ReadFile(err);
        }
        EXPECT_EQ(TempFilesIn(folder), std::vector<std::string>()) << context;
        for (const std::string& backup : BackupsIn(folder)) EXPECT_EQ(ReadFile(backup), original) << context;
    }
}

INSTANTIATE_TEST_SUITE_P(Writers, SafeEditUnderFault, testing::Values("fields", "library"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
