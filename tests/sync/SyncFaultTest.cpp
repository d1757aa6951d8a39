// Runs that are killed, meet a full device, or have calls fail: each time
// only complete files remain under final names, the manifest agrees with
// the device, and the next run completes without copying again what had
// finished. The sync runs in sync_driver, a child process, with the fault
// shim preloaded.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/stat.h>

#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "FaultCounts.h"
#include "SyncTestHelpers.h"

using namespace synctest;

namespace {

class SyncFault : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(Src());
        files_ = MakeCollection(Src());
        // More files than a few batches of the driver's four.
        for (int k = 1; k <= 6; ++k) CopyInto(Src() + "/Loose.mp3", Src() + "/More/" + std::to_string(k) + ".mp3");
        for (int k = 1; k <= 6; ++k) files_.push_back("More/" + std::to_string(k) + ".mp3");
    }
    std::string Src() const { return work_.file("music"); }

    ChildResult Driver(const std::string& device, const std::vector<std::string>& environment,
                       const std::vector<std::string>& options = {}) {
        // A sanitizer build's runtime must come first; the shim comes first
        // here, which the runtime then allows.
        // A write is a file's: SQLite's pwrite() of its pages and the
        // driver's report are not counted.
        std::vector<std::string> env{"LD_PRELOAD=" FILEINFO_FAULT_SHIM, "ASAN_OPTIONS=verify_asan_link_order=0",
                                     "FILEINFO_FAULT_WRITES=files"};
        env.insert(env.end(), environment.begin(), environment.end());
        std::vector<std::string> arguments{SYNC_DRIVER_PATH};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--to", device, Src()});
        return RunChild(arguments, env, work_.path().string());
    }

    // Inodes of the files whose rows are done: a file copied again gets a
    // new one.
    static std::map<std::string, ino_t> Finished(const std::string& device) {
        std::map<std::string, ino_t> inodes;
        for (const auto& row : Rows(device)) {
            struct stat st;
            if (!row.pending && lstat((device + "/" + row.devicePath).c_str(), &st) == 0) inodes[row.devicePath] = st.st_ino;
        }
        return inodes;
    }

    // After a run that failed: consistent; the next run completes, copies
    // nothing that had finished, and leaves no temporary file.
    void ExpectRecovery(const std::string& device, const std::string& what) {
        EXPECT_EQ(Disagreements(device), "") << what;
        const auto finished = Finished(device);
        const ChildResult next = Driver(device, {});
        EXPECT_EQ(next.exitCode, 0) << what << "\n" << next.out << next.err;
        EXPECT_EQ(Disagreements(device), "") << what;
        EXPECT_TRUE(TempFiles(device).empty()) << what;
        EXPECT_EQ(DeviceFiles(device), std::set<std::string>(files_.begin(), files_.end())) << what;
        for (const auto& f : finished) {
            struct stat st;
            ASSERT_EQ(lstat((device + "/" + f.first).c_str(), &st), 0) << what;
            EXPECT_EQ(st.st_ino, f.second) << what << ": " << f.first << " was copied again";
        }
        const auto again = nlohmann::json::parse(Driver(device, {}).out);
        EXPECT_EQ(again["keep"], files_.size()) << what;
        EXPECT_EQ(again["loads"], 0) << what;
    }

    // The run after a killed one, with `options`: it completes with the
    // device holding `expected`, and the run after that keeps every file
    // without loading one.
    void ExpectNextRunCompletes(const std::string& device, const std::vector<std::string>& options,
                                const std::set<std::string>& expected, const std::string& what) {
        const ChildResult next = Driver(device, {}, options);
        EXPECT_EQ(next.exitCode, 0) << what << "\n" << next.out << next.err;
        EXPECT_EQ(Disagreements(device), "") << what;
        EXPECT_TRUE(TempFiles(device).empty()) << what;
        EXPECT_EQ(DeviceFiles(device), expected) << what;
        EXPECT_EQ(Rows(device).size(), files_.size()) << what;
        const auto again = nlohmann::json::parse(Driver(device, {}, options).out);
        EXPECT_EQ(again["keep"], files_.size()) << what;
        EXPECT_EQ(again["loads"], 0) << what;
    }

    TempDir work_;
    std::vector<std::string> files_;
};

}  // namespace

TEST_F(SyncFault, KilledAtManyMomentsLeavesOnlyCompleteFilesAndTheNextRunCompletes) {
    TempDir counted;
    const std::string countsFile = work_.file("counts.txt");
    ASSERT_EQ(Driver(counted.path().string(), {"FILEINFO_FAULT_COUNTS=" + countsFile}).exitCode, 0);
    const long calls = TotalCalls(ReadFaultCounts(countsFile));
    ASSERT_GT(calls, 20);
    const long step = std::max(1L, calls / 40);
    int killed = 0;
    for (long at = 1; at <= calls; at += step) {
        TempDir device;
        const ChildResult run = Driver(device.path().string(), {"FILEINFO_FAULT_KILL_AT=" + std::to_string(at)});
        ASSERT_EQ(run.exitCode, 128 + SIGKILL) << "call " << at;
        ++killed;
        ExpectRecovery(device.path().string(), "killed at call " + std::to_string(at) + " of " + std::to_string(calls));
    }
    std::cout << "killed " << killed << " runs, at every " << step << ". of " << calls << " calls\n";
}

TEST_F(SyncFault, KilledAtManyMomentsOfReplacingFilesByAnotherTypeLosesNoneAndTheNextRunCompletes) {
    // Every .mp3 on the device becomes an .m4a: the new file lands, then
    // the old one goes.
    const std::vector<std::string> becomes{"--becomes", ".m4a"};
    std::set<std::string> after;
    std::vector<std::pair<std::string, std::string>> replaced;  // old, new
    for (const std::string& f : files_) {
        const bool mp3 = f.size() > 4 && f.compare(f.size() - 4, 4, ".mp3") == 0;
        const std::string now = mp3 ? f.substr(0, f.size() - 4) + ".m4a" : f;
        after.insert(now);
        if (mp3) replaced.emplace_back(f, now);
    }
    ASSERT_EQ(replaced.size(), 9u);
    TempDir counted;
    ASSERT_EQ(Driver(counted.path().string(), {}).exitCode, 0);
    const std::string countsFile = work_.file("replace-counts.txt");
    ASSERT_EQ(Driver(counted.path().string(), {"FILEINFO_FAULT_COUNTS=" + countsFile}, becomes).exitCode, 0);
    ASSERT_EQ(DeviceFiles(counted.path().string()), after);
    const long calls = TotalCalls(ReadFaultCounts(countsFile));
    ASSERT_GT(calls, 20);
    const long step = std::max(1L, calls / 40);
    int killed = 0;
    for (long at = 1; at <= calls; at += step) {
        TempDir device;
        const std::string dir = device.path().string();
        const std::string what = "killed at call " + std::to_string(at) + " of " + std::to_string(calls);
        ASSERT_EQ(Driver(dir, {}).exitCode, 0);
        const ChildResult run = Driver(dir, {"FILEINFO_FAULT_KILL_AT=" + std::to_string(at)}, becomes);
        ASSERT_EQ(run.exitCode, 128 + SIGKILL) << what;
        ++killed;
        EXPECT_EQ(Disagreements(dir), "") << what;
        // Of each file, the old or the new is there, complete.
        for (const auto& r : replaced) {
            const bool old = fs::exists(dir + "/" + r.first), now = fs::exists(dir + "/" + r.second);
            EXPECT_TRUE(old || now) << what << ": " << r.first;
            if (now) {
                EXPECT_TRUE(Slurp(dir + "/" + r.second) == Slurp(Src() + "/" + r.first)) << what << ": " << r.second;
            }
        }
        ExpectNextRunCompletes(dir, becomes, after, what);
    }
    std::cout << "killed " << killed << " replacing runs, at every " << step << ". of " << calls << " calls\n";
}

TEST_F(SyncFault, ReplacementKilledAtManyMomentsAndThenUndoneByTheNextRunLeavesTheOldFilesOnly) {
    // Converted .m4a files are being replaced by copies when the run is
    // killed; the next run's list wants the .m4a files again.
    const std::vector<std::string> becomes{"--becomes", ".m4a"};
    std::set<std::string> converted;
    for (const std::string& f : files_) {
        const bool mp3 = f.size() > 4 && f.compare(f.size() - 4, 4, ".mp3") == 0;
        converted.insert(mp3 ? f.substr(0, f.size() - 4) + ".m4a" : f);
    }
    TempDir counted;
    ASSERT_EQ(Driver(counted.path().string(), {}, becomes).exitCode, 0);
    const std::string countsFile = work_.file("undo-counts.txt");
    ASSERT_EQ(Driver(counted.path().string(), {"FILEINFO_FAULT_COUNTS=" + countsFile}).exitCode, 0);
    ASSERT_EQ(DeviceFiles(counted.path().string()), std::set<std::string>(files_.begin(), files_.end()));
    const long calls = TotalCalls(ReadFaultCounts(countsFile));
    ASSERT_GT(calls, 20);
    const long step = std::max(1L, calls / 20);
    for (long at = 1; at <= calls; at += step) {
        TempDir device;
        const std::string dir = device.path().string();
        const std::string what = "killed at call " + std::to_string(at) + " of " + std::to_string(calls);
        ASSERT_EQ(Driver(dir, {}, becomes).exitCode, 0);
        const ChildResult run = Driver(dir, {"FILEINFO_FAULT_KILL_AT=" + std::to_string(at)});
        ASSERT_EQ(run.exitCode, 128 + SIGKILL) << what;
        EXPECT_EQ(Disagreements(dir), "") << what;
        ExpectNextRunCompletes(dir, becomes, converted, what);
    }
}

TEST_F(SyncFault, FailingWriteFsyncOrRenameLeavesAConsistentDevice) {
    for (const char* call : {"write", "fsync", "rename"}) {
        for (const int at : {1, 2, 5, 9}) {
            for (const char* error : {"ENOSPC", "EIO"}) {
                TempDir device;
                const std::string what = std::string(call) + " #" + std::to_string(at) + " " + error;
                const ChildResult run = Driver(device.path().string(), {std::string("FILEINFO_FAULT_CALL=") + call,
                                                                        "FILEINFO_FAULT_AT=" + std::to_string(at),
                                                                        std::string("FILEINFO_FAULT_ERRNO=") + error});
                // SQLite syncs its folder as best it can, and goes on when
                // that fails: a failing fsync may fail nothing.
                if (std::string(call) == "fsync") {
                    EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 1) << what << "\n" << run.out << run.err;
                } else {
                    EXPECT_EQ(run.exitCode, 1) << what << "\n" << run.out << run.err;
                }
                EXPECT_TRUE(TempFiles(device.path().string()).empty()) << what;
                ExpectRecovery(device.path().string(), what);
            }
        }
    }
}

TEST_F(SyncFault, DeviceThatFillsUpStopsTheRunAndTheNextRunCompletesOnceThereIsRoom) {
    const std::string mount = work_.file("small");
    fs::create_directories(mount);
    // Room for the files and the new manifest, and not a page more.
    TempDir empty;
    const auto dry = nlohmann::json::parse(
        RunChild({SYNC_DRIVER_PATH, "--dry-run", "--to", empty.path().string(), Src()}, {}, work_.path().string()).out);
    const uint64_t needed = dry["needed"].get<uint64_t>();
    const uint64_t size = needed + 64 * 1024;
    if (::mount("tmpfs", mount.c_str(), "tmpfs", 0, ("size=" + std::to_string(size)).c_str()) != 0) {
        GTEST_SKIP() << "mounting a small file system is not permitted here (" << strerror(errno)
                     << "); the failing-write test covers ENOSPC";
    }
    std::cout << "ran on a tmpfs of " << size << " bytes\n";
    struct Unmount {
        std::string path;
        ~Unmount() { umount2(path.c_str(), MNT_DETACH); }
    } unmount{mount};
    const std::string device = mount + "/player";
    fs::create_directories(device);
    // The manifest first (a sync of nothing makes it), then fill the rest
    // so that the plan just fits: the manifest's next commits find no room.
    const std::string nothing = work_.file("nothing");
    fs::create_directories(nothing);
    ASSERT_EQ(RunChild({SYNC_DRIVER_PATH, "--to", device, nothing}, {}, work_.path().string()).exitCode, 0);
    struct statvfs vfs;
    ASSERT_EQ(statvfs(mount.c_str(), &vfs), 0);
    const uint64_t available = static_cast<uint64_t>(vfs.f_bavail) * vfs.f_frsize;
    ASSERT_GT(available, needed);
    const std::string filler = mount + "/filler";
    Spit(filler, std::string(available - needed, 'f'));
    const ChildResult run = Driver(device, {});
    EXPECT_EQ(run.exitCode, 1) << run.out << run.err;
    const auto result = nlohmann::json::parse(run.out);
    EXPECT_TRUE(result["deviceFailed"].get<bool>()) << run.out;
    EXPECT_TRUE(TempFiles(device).empty());
    fs::remove(filler);
    ExpectRecovery(device, "after the device filled up");
}

TEST_F(SyncFault, CtrlCStopsAfterTheFilesInFlightAndLeavesAConsistentDevice) {
    // Interrupted in the middle of the run: the file being written lands,
    // with the others of its batch already written; nothing after is started.
    int stopped = 0;
    for (const int at : {12, 20, 30}) {
        TempDir device;
        const ChildResult run = Driver(device.path().string(), {"FILEINFO_FAULT_INTERRUPT_AT=" + std::to_string(at)});
        const std::string what = "SIGINT at call " + std::to_string(at);
        if (run.exitCode == 0) continue;  // after the last file: nothing left to stop
        ++stopped;
        EXPECT_EQ(run.exitCode, 130) << what << run.out << run.err;
        EXPECT_TRUE(nlohmann::json::parse(run.out)["interrupted"].get<bool>()) << what;
        EXPECT_TRUE(TempFiles(device.path().string()).empty()) << what;
        const size_t copied = DeviceFiles(device.path().string()).size();
        EXPECT_GT(copied, 0u) << what;
        EXPECT_LT(copied, files_.size()) << what;
        for (const auto& row : Rows(device.path().string())) EXPECT_FALSE(row.pending) << what << row.devicePath;
        ExpectRecovery(device.path().string(), what);
    }
    EXPECT_GE(stopped, 2);
}
