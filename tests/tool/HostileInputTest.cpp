// Paths, files and neighbours that must not crash or stall a front end: a
// path holding a NUL byte, a file replaced by a FIFO after it was checked,
// capability files that are folders, devices or FIFOs, more threads than
// the system gives, and names that only the backslash tells apart.
//
// Whatever could hang runs in a child process under an alarm or `timeout`,
// so that a hang fails the test instead of stalling the run.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "FileOps.h"
#include "MediaFileInfo.h"
#include "SafeEdit.h"
#include "Scan.h"
#include "TestFiles.h"
#include "ToolParse.h"
#include "ToolRun.h"
#include "UnderValgrind.h"
#include "Verdict.h"

namespace fs = std::filesystem;
using fileinfo::Outcome;
using fileinfo::ScanItem;

namespace {

const std::string kExamples = FILEINFO_EXAMPLES_DIR;
const std::string kFixtures = FILEINFO_FIXTURES_DIR;

// Runs body in a child process that an alarm ends after `seconds`: the
// child's exit status, or -SIGNAL when a signal ended it.
template <class Body>
int InChild(unsigned seconds, Body body) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(seconds);
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::vector<ScanItem> ScanAll(const std::vector<std::string>& roots, unsigned jobs = 1) {
    fileinfo::ScanOptions options;
    options.jobs = jobs;
    fileinfo::Scan scan(roots, options);
    std::vector<ScanItem> items;
    ScanItem item;
    while (scan.Next(item)) items.push_back(item);
    return items;
}

// ---- 1. A path holding a NUL byte ----

TEST(HostilePath, ScanOfAPathWithANulIsAnErrorWithItsReason) {
    const std::string path("/tmp\0x", 6);
    const int result = InChild(30, [&] {
        const std::vector<ScanItem> items = ScanAll({path});
        return items.size() == 1 && items[0].outcome == Outcome::kError && items[0].error == EINVAL &&
                       items[0].reason == "the path holds a NUL byte" && items[0].path == path
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result, 0) << "ended by signal " << -result;
}

TEST(HostilePath, LoadOfAPathWithANulLoadsNothing) {
    TempDir dir;
    const std::string song = dir.write("song.mp3", ReadAll(kFixtures + "/mp3/tagged-v23.mp3"));
    ScanItem item;
    fileinfo::LoadInto(song + std::string("\0.wav", 5), item);
    EXPECT_EQ(item.status, MFI_OPEN_FAILED);
    EXPECT_EQ(item.error, EINVAL);
    EXPECT_EQ(item.reason, "the path holds a NUL byte");
    EXPECT_FALSE(item.hasRecord);
}

TEST(HostilePath, TagEditOfAPathWithANulTouchesNothing) {
    TempDir dir;
    const Bytes original = ReadAll(kFixtures + "/mp3/tagged-v23.mp3");
    const std::string song = dir.write("song.mp3", original);
    fileinfo::TagEdits edits;
    std::string mistake;
    ASSERT_TRUE(fileinfo::ParseTagEdits({"title=New"}, edits, mistake)) << mistake;
    const fileinfo::EditResult result = fileinfo::EditTags(song + std::string("\0x", 2), edits, {});
    EXPECT_EQ(result.status, fileinfo::EditStatus::Failed);
    EXPECT_EQ(result.error, EINVAL);
    EXPECT_EQ(result.reason, "the path holds a NUL byte");
    EXPECT_EQ(ReadAll(song), original);
}

TEST_F(Tool, PathWithANulFromAListIsAnErrorWithItsReason) {
    TempDir dir;
    int status = -1;
    Shell("printf '/tmp\\0x\\n' | timeout 30 " + std::string(FILEINFO_TOOL_PATH) + " --json --from - 2>" +
              dir.file("err"),
          &status);
    const Bytes err = ReadAll(dir.file("err"));
    EXPECT_EQ(status, 1);
    EXPECT_EQ(std::string(err.begin(), err.end()), std::string("fileinfo: /tmp") + '\0' + "x: the path holds a NUL byte\n");
}

// ---- 3. A file replaced after its check ----

TEST(HostilePath, LoadOfAFileReplacedByAFifoDoesNotOpenIt) {
    // The walk saw a regular file; by the load a FIFO stands there.
    TempDir dir;
    const std::string fifo = dir.file("song.mp3");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const int result = InChild(20, [&] {
        ScanItem item;
        fileinfo::LoadInto(fifo, item);
        return item.outcome == Outcome::kSkipped && item.skip == fileinfo::SkipReason::kSpecialFile &&
                       item.reason == "FIFO"
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result, 0) << "ended by signal " << -result;
}

TEST(HostilePath, LoadThroughTheOpenFileGivesTheLibrarysRecordOfThePath) {
    // Every fixture and example, and names whose title, extension and
    // leading dot the library reads from the path.
    TempDir dir;
    std::vector<std::string> files;
    for (const std::string& root : {kFixtures, kExamples}) {
        for (const auto& e : fs::recursive_directory_iterator(root)) {
            if (e.is_regular_file()) files.push_back(e.path().string());
        }
    }
    const Bytes wav = ReadAll(kExamples + "/tone-mono.wav");
    for (const char* name : {"Name With Spaces.WAV", ".wav", "x.y.wav", "noextension", ".hidden.wav", "a\\x0ab.wav"}) {
        files.push_back(dir.write(name, wav));
    }
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    files.push_back(".wav");
    files.push_back("x.y.wav");
    for (const std::string& path : files) {
        MediaFileInfo facade;
        const int status = facade.LoadFile(path.c_str());
        ScanItem item;
        fileinfo::LoadInto(path, item);
        EXPECT_EQ(item.status, status) << path;
        EXPECT_EQ(item.isAudio, facade.IsAudio() != 0) << path;
        EXPECT_EQ(item.isVideo, facade.IsVideo() != 0) << path;
        EXPECT_EQ(item.hasTags, facade.HasId3Info() != 0) << path;
        const MediaFileInfo_st* record = facade.GetFileInfo();
        ASSERT_EQ(item.hasRecord, record != nullptr) << path;
        if (record != nullptr) {
            EXPECT_EQ(memcmp(&item.record, record, sizeof item.record), 0) << path;
        }
    }
    ASSERT_EQ(chdir("/"), 0);
}

TEST(HostilePath, UnreadableFileGivesTheLibrarysRecordAndTheReason) {
    // Measured by its path but not read: the record the library makes of a
    // file it cannot open holds its size. Root reads every file, so the
    // loads run as another user.
    TempDir dir;
    chmod(dir.path().c_str(), 0755);
    const std::string path = dir.write("locked.wav", ReadAll(kExamples + "/tone-mono.wav"));
    chmod(path.c_str(), 0);
    const int result = InChild(20, [&] {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return 3;
        MediaFileInfo facade;
        const int status = facade.LoadFile(path.c_str());
        ScanItem item;
        fileinfo::LoadInto(path, item);
        const MediaFileInfo_st* record = facade.GetFileInfo();
        if (item.status != status || item.error != EACCES || item.hasRecord != (record != nullptr)) return 1;
        if (record != nullptr && memcmp(&item.record, record, sizeof item.record) != 0) return 2;
        return 0;
    });
    EXPECT_EQ(result, 0);
}

// The folders of links in the temporary folder that belong to a process.
size_t FoldersOf(pid_t pid) {
    const std::string prefix = ".fileinfo-fd-" + std::to_string(pid) + "-";
    size_t n = 0;
    for (const auto& e : fs::directory_iterator(fs::temp_directory_path())) {
        n += e.path().filename().string().rfind(prefix, 0) == 0;
    }
    return n;
}

TEST(HostilePath, LoadsLeaveNoLinkBehind) {
    const std::string path = kExamples + "/tone-mono.wav";
    const pid_t pid = fork();
    if (pid == 0) {
        ScanItem item;
        fileinfo::LoadInto(path, item);
        exit(item.status == MFI_OK && FoldersOf(getpid()) == 1 ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(FoldersOf(pid), 0u);
}

TEST(HostilePath, LinksOfAProcessThatWasKilledAreRemovedByTheNext) {
    const std::string path = kExamples + "/tone-mono.wav";
    const pid_t killed = fork();
    if (killed == 0) {
        ScanItem item;
        fileinfo::LoadInto(path, item);
        _exit(0);  // no exit handlers: the folder stays
    }
    waitpid(killed, nullptr, 0);
    ASSERT_EQ(FoldersOf(killed), 1u);
    const pid_t next = fork();
    if (next == 0) {
        ScanItem item;
        fileinfo::LoadInto(path, item);
        exit(0);
    }
    waitpid(next, nullptr, 0);
    EXPECT_EQ(FoldersOf(killed), 0u);
}

// ---- 4. Capability files ----

TEST(HostileCapabilityFile, FolderIsRefusedWithTheReason) {
    fileinfo::Device device("");
    std::string error;
    EXPECT_FALSE(fileinfo::Device::FromFile(kExamples, device, error));
    EXPECT_EQ(error, "not a regular file (folder)");
}

TEST(HostileCapabilityFile, DeviceAndFifoAreRefusedWithoutReading) {
    TempDir dir;
    const std::string fifo = dir.file("caps.plist");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const int result = InChild(20, [&] {
        fileinfo::Device device("");
        std::string zero, pipe;
        const bool a = fileinfo::Device::FromFile("/dev/zero", device, zero);
        const bool b = fileinfo::Device::FromFile(fifo, device, pipe);
        return !a && !b && zero == "not a regular file (character device)" && pipe == "not a regular file (FIFO)" ? 0
                                                                                                                : 1;
    });
    EXPECT_EQ(result, 0) << "ended by signal " << -result;
}

TEST(HostileCapabilityFile, FileAboveTheLimitIsRefused) {
    TempDir dir;
    const std::string big = dir.file("big.plist");
    ASSERT_EQ(truncate(dir.write("big.plist", Bytes{'<'}).c_str(),
                       static_cast<off_t>(fileinfo::Device::kLargestCapabilityFile + 1)),
              0);
    fileinfo::Device device("");
    std::string error;
    EXPECT_FALSE(fileinfo::Device::FromFile(big, device, error));
    EXPECT_EQ(error, "larger than the 64 MiB a capability list may have");
}

TEST_F(Tool, CapabilityFilesThatAreNoRegularFilesAreUsageErrors) {
    TempDir dir;
    const std::string fifo = dir.file("caps.plist");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
    const std::string tool = "timeout 30 " + std::string(FILEINFO_TOOL_PATH);
    const std::string song = kExamples + "/tone-mono.wav";
    const struct {
        std::string caps, reason;
    } cases[] = {{kExamples, "not a regular file (folder)"},
                 {"/dev/zero", "not a regular file (character device)"},
                 {fifo, "not a regular file (FIFO)"}};
    for (const auto& c : cases) {
        for (const std::string& command : {tool + " --device " + c.caps + " " + song,
                                           tool + " report --device " + c.caps + " -o " + dir.file("r.html") + " " +
                                               song}) {
            int status = -1;
            Shell(command + " >/dev/null 2>" + dir.file("err"), &status);
            const Bytes err = ReadAll(dir.file("err"));
            EXPECT_EQ(status, 2) << command;
            EXPECT_EQ(std::string(err.begin(), err.end()), "fileinfo: " + c.caps + ": " + c.reason + "\n") << command;
        }
    }
}

// ---- 5. Threads that cannot start ----

TEST(HostileSystem, ScanWhoseThreadsCannotStartThrowsInsteadOfEnding) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // A sanitizer's runtime needs more address space than the limit leaves.
    GTEST_SKIP() << "the address-space limit leaves a sanitizer's runtime no room";
#endif
    // Valgrind alone maps more than the limit before the scan starts.
    if (UnderValgrind()) GTEST_SKIP() << "the address-space limit leaves valgrind no room";
    const int result = InChild(60, [] {
        // Too little address space for the threads' stacks.
        struct rlimit limit;
        getrlimit(RLIMIT_AS, &limit);
        limit.rlim_cur = 512ull << 20;
        setrlimit(RLIMIT_AS, &limit);
        try {
            ScanAll({kExamples}, 1024);
        } catch (const std::system_error&) {
            return 0;
        }
        return 2;
    });
    EXPECT_EQ(result, 0) << (result < 0 ? "ended by signal " + std::to_string(-result) : "no thread failed");
}

// ---- 7. Backslashes in the list and table views ----

TEST_F(Tool, ListAndTableTellABackslashEscapeFromTheCharacter) {
    TempDir dir;
    const Bytes wav = ReadAll(kExamples + "/tone-mono.wav");
    dir.write("a\\x0ab.wav", wav);
    dir.write("a\nb.wav", wav);
    for (const char* format : {"list", "table"}) {
        const ToolRun run = RunTool(std::string("--format ") + format + " " + dir.path().string());
        EXPECT_NE(run.out.find("a\\\\x0ab"), std::string::npos) << run.out;
        EXPECT_NE(run.out.find("a\\x0ab"), std::string::npos) << run.out;
    }
}

}  // namespace
