// AIFF text-chunk edits under failure, as FaultTest.cpp and RecoveryTest.cpp
// run the MP3 edits: every write, sync, rename and link failing in turn, and
// the tool killed at every named point and in the middle of moving the
// sound. The edit grows NAME, so the sound behind it moves in the copy.
// After each, the file holds its old bytes or the complete new ones, no
// temporary file stays once the next edit ran, no backup of a killed edit
// is left behind, and the next edit goes through.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <sstream>
#include <thread>

#include "AiffBuilder.h"
#include "Child.h"
#include "TestFiles.h"

namespace {

const std::string kFixture = std::string(FILEINFO_FIXTURES_DIR) + "/aiff/ffmpeg-tagged-11k.aif";

std::vector<std::string> EditOf(const std::string& path) {
    return {"--set", "title=A title longer than the one there", "--set", "comment=Note", path};
}

// An AIFF file of `megabytes` of varied sound behind NAME, AUTH and ANNO.
std::string BigAiff(size_t megabytes) {
    const size_t bytes = megabytes << 20;
    ByteWriter sound;
    sound.be32(0).be32(0);
    uint32_t state = 2463534242u;
    for (size_t i = 0; i < bytes; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        sound.u8(static_cast<uint8_t>(state));
    }
    AiffBuilder b;
    b.text("NAME", "Tone").text("AUTH", "Labs").text("ANNO", "Long").comm(2, 16, 44100.0, static_cast<uint32_t>(bytes / 4));
    b.chunk("SSND", sound.take());
    const Bytes built = b.build();
    return std::string(built.begin(), built.end());
}

class SafeEditOfAiffTextsUnderFault : public testing::Test {
protected:
    void SetUp() override {
        folder_ = files_.path().string();
        logs_ = logDir_.path().string();
        path_ = folder_ + "/tone.aif";
    }

    // The bytes a fault-free edit of `original` gives.
    std::string CleanResult(const std::string& original) {
        TempDir reference;
        const std::string path = reference.file("tone.aif");
        WriteFile(path, original);
        const ToolResult run = RunToolIn(logs_, EditOf(path));
        EXPECT_EQ(run.exitCode, 0) << run.err;
        return ReadFile(path);
    }

    void Reset(const std::string& original) {
        for (const std::string& name : NamesIn(folder_)) unlink((folder_ + "/" + name).c_str());
        WriteFile(path_, original);
    }

    // An edit of another file of the folder removes what a killed run left.
    void Cleanup() {
        const std::string other = folder_ + "/other.aif";
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

TEST_F(SafeEditOfAiffTextsUnderFault, EveryFailingWriteSyncRenameOrLinkLeavesTheOldOrTheNewFile) {
    const std::string original = ReadFile(kFixture);
    const std::string result = CleanResult(original);
    ASSERT_TRUE(result != original);
    Reset(original);
    const std::map<std::string, long> counts = CallCounts(logs_, EditOf(path_));
    ASSERT_GT(counts.at("write"), 2);
    ASSERT_EQ(counts.at("rename"), 1);
    int failed = 0, changed = 0, inTextWriter = 0;
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
                    if (run.err.find("writing the AIFF text chunks into a copy failed") != std::string::npos)
                        ++inTextWriter;
                }
            }
        }
    }
    EXPECT_GT(failed, 0);
    EXPECT_GT(changed, 0);
    // Among them the text-chunk writer's own writes, moving the sound.
    EXPECT_GT(inTextWriter, 0);
}

std::filesystem::path KillTestBase() {
    std::error_code error;
    if (std::filesystem::is_directory("/dev/shm", error) && access("/dev/shm", W_OK) == 0) return "/dev/shm";
    return std::filesystem::temp_directory_path();
}

#if defined(__SANITIZE_ADDRESS__)
constexpr size_t kBigMegabytes = 4;
#else
constexpr size_t kBigMegabytes = 40;
#endif

TEST_F(SafeEditOfAiffTextsUnderFault, KillingAnEditAtAnyMomentLeavesTheOldOrTheNewFileAndNeverBlocksTheNext) {
    TempDir memory(KillTestBase());
    folder_ = memory.path().string();
    path_ = folder_ + "/tone.aif";
    const std::string original = BigAiff(kBigMegabytes);
    const std::string result = CleanResult(original);
    ASSERT_TRUE(result != original);
    const std::string out = logs_ + "/out.txt", err = logs_ + "/err.txt";

    for (const char* point : {"locked", "checked", "copied", "written", "verified", "backed-up", "before-rename",
                              "renamed"}) {
        Reset(original);
        const pid_t pid = StartTool(EditOf(path_), {std::string("FILEINFO_TEST_STOP_AT=") + point}, out, err);
        int exitStatus = -1;
        ASSERT_TRUE(WaitStopped(pid, exitStatus)) << point << " never reached: " << exitStatus << ReadFile(err);
        kill(pid, SIGKILL);
        EXPECT_EQ(WaitTool(pid), 128 + SIGKILL);
        Cleanup();
        ExpectIntact(original, result, point);
        if (ReadFile(path_) == original) {
            EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>()) << point << ": a stray backup";
            std::vector<std::string> next = EditOf(path_);
            next.insert(next.begin(), "--no-backup");
            EXPECT_EQ(RunToolIn(logs_, next).exitCode, 0) << point;
            EXPECT_TRUE(ReadFile(path_) == result) << point;
        }
    }

    // And at moments spread over a whole edit, the move of the sound among them.
    const auto start = std::chrono::steady_clock::now();
    Reset(original);
    ASSERT_EQ(RunToolIn(logs_, EditOf(path_)).exitCode, 0);
    const auto whole = std::chrono::steady_clock::now() - start;
    const int kills = 6;
    for (int k = 1; k < kills; ++k) {
        Reset(original);
        const pid_t pid = StartTool(EditOf(path_), {}, out, err);
        std::this_thread::sleep_for(whole * k / kills);
        kill(pid, SIGKILL);
        WaitTool(pid);
        Cleanup();
        const std::string context = "killed after " + std::to_string(k) + "/" + std::to_string(kills);
        ExpectIntact(original, result, context);
        if (ReadFile(path_) == original) {
            EXPECT_EQ(BackupsIn(folder_), std::vector<std::string>()) << context << ": a stray backup";
        }
    }
}

}  // namespace
