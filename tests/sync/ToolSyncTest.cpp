// fileinfo sync as people and scripts run it: the plan's lines, the exit
// statuses, and whole syncs of real fixtures judged by the verdict on the
// reading. Tests that need the readers say so and are skipped while the
// build's readers identify nothing.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "MediaFileInfo.h"
#include "SyncTestHelpers.h"
#include "Scan.h"
#include "Verdict.h"
#include "media/Reading.h"

using namespace synctest;

namespace {

const std::string kCaps = std::string(FILEINFO_DEVICES_DIR) + "/player-caps.plist";

std::vector<nlohmann::json> JsonLines(const std::string& text) {
    std::vector<nlohmann::json> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(nlohmann::json::parse(line));
    return lines;
}

// Whether this build's readers and verdict say the device plays `path`.
bool DevicePlays(const std::string& path) {
    fileinfo::Device device("");
    std::string error;
    if (!fileinfo::Device::FromFile(kCaps, device, error)) return false;
    fileinfo::media::Reading reading;
    if (fileinfo::media::ReadMediaPath(path, reading) != 0) return false;
    return device.JudgeReading(reading).playable;
}

class ToolSync : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(Src());
        fs::create_directories(Dev());
        files_ = MakeCollection(Src());
    }
    std::string Src() const { return work_.file("music"); }
    std::string Dev() const { return work_.file("device"); }
    ChildResult Tool(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {FILEINFO_TOOL_PATH, "sync"});
        return RunChild(arguments, {}, work_.path().string());
    }
    bool Readers() const { return DevicePlays(Src() + "/Album A/01 First.mp3"); }

    TempDir work_;
    std::vector<std::string> files_;
};

}  // namespace

TEST_F(ToolSync, DryRunPrintsOneJsonLinePerFileThenThePlanAndWritesNothing) {
    Spit(Src() + "/notes.txt", "text");
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--dry-run", "--format", "json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto lines = JsonLines(run.out);
    ASSERT_EQ(lines.size(), files_.size() + 2);
    for (size_t k = 0; k + 1 < lines.size(); ++k) {
        for (const char* key : {"action", "source", "devicePath", "reason", "bytes"}) EXPECT_TRUE(lines[k].contains(key)) << key;
    }
    EXPECT_EQ(lines.back()["plan"]["skipped"]["not a media file"], 1);
    EXPECT_EQ(lines.back()["plan"]["fits"], true);
    EXPECT_TRUE(fs::is_empty(Dev()));
}

TEST_F(ToolSync, UsageMistakesExitWithStatus2) {
    EXPECT_EQ(Tool({Src(), "--device", kCaps}).exitCode, 2);                    // no --to
    EXPECT_EQ(Tool({Src(), "--to", Dev(), "--device", Src() + "/Loose.mp3"}).exitCode, 2);  // no capability list
    const ChildResult inside = Tool({Src(), "--to", Src() + "/Album A", "--device", kCaps});
    EXPECT_EQ(inside.exitCode, 2);
    EXPECT_NE(inside.err.find("lies inside the source"), std::string::npos) << inside.err;
    EXPECT_EQ(Tool({Src(), "--to", Dev(), "--device", kCaps, "--format", "xml"}).exitCode, 2);
    const ChildResult missing = Tool({Src() + "/Nope", "--to", Dev(), "--device", kCaps});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_EQ(missing.err, "fileinfo: sync: " + Src() + "/Nope: No such file or directory\n");
    EXPECT_EQ(missing.out, "");
}

TEST_F(ToolSync, SecondSyncWhileOneRunsExitsWithStatus5) {
    const int fd = open(Dev().c_str(), O_RDONLY | O_DIRECTORY);
    fileinfo::sync::SyncLock lock;
    std::string error;
    ASSERT_EQ(lock.Take(fd, error), fileinfo::sync::ManifestStatus::kOk);
    close(fd);
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps});
    EXPECT_EQ(run.exitCode, 5);
    EXPECT_EQ(run.err, "fileinfo: sync: another sync to this folder is running\n");
}

TEST_F(ToolSync, PlanThatDoesNotFitWritesNothingSaysHowShortAndExitsWithStatus4) {
    if (!Readers()) GTEST_SKIP() << "this build's readers identify nothing yet";
    const std::string small = work_.file("small");
    fs::create_directories(small);
    if (mount("tmpfs", small.c_str(), "tmpfs", 0, "size=48k") != 0) GTEST_SKIP() << "mounting is not permitted here";
    const ChildResult run = Tool({Src(), "--to", small, "--device", kCaps, "--format", "json"});
    umount2(small.c_str(), MNT_DETACH);
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("bytes short; nothing was written"), std::string::npos) << run.err;
    const auto plan = JsonLines(run.out).back()["plan"];
    EXPECT_FALSE(plan["fits"].get<bool>());
    EXPECT_EQ(plan["shortBy"].get<uint64_t>(), plan["neededBytes"].get<uint64_t>() - plan["freeBytes"].get<uint64_t>());
}

TEST_F(ToolSync, SyncOfRealFixturesCopiesWhatTheDevicePlaysAndKeepsItInStep) {
    if (!Readers()) GTEST_SKIP() << "this build's readers identify nothing yet";
    // Every fixture and example the device plays, and those it refuses.
    TempDir all;
    for (const std::string& folder : {std::string(FILEINFO_FIXTURES_DIR), std::string(FILEINFO_EXAMPLES_DIR)}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file()) CopyInto(entry.path().string(), all.file(fs::relative(entry.path(), folder.substr(0, folder.rfind('/'))).string()));
        }
    }
    const std::string src = all.path().string();
    // Copies only: what the device refuses stays off it (conversion has
    // tests of its own, in tests/convert).
    const ChildResult first = Tool({src, "--to", Dev(), "--device", kCaps, "--no-convert", "--format", "json"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    const auto lines = JsonLines(first.out);
    size_t copies = 0;
    for (const auto& line : lines) {
        if (!line.contains("action")) continue;
        const std::string source = line["source"];
        if (line["action"] == "copy") {
            ++copies;
            const std::string copy = Dev() + "/" + line["devicePath"].get<std::string>();
            EXPECT_EQ(Slurp(copy), Slurp(source)) << source;
            EXPECT_TRUE(DevicePlays(copy)) << copy;
            fileinfo::ScanItem item;
            fileinfo::LoadInto(copy, item);
            EXPECT_EQ(item.status, MFI_OK) << copy;
        } else if (line["action"] == "skip" && line["reason"].get<std::string>().rfind("refused by the device", 0) == 0) {
            EXPECT_FALSE(DevicePlays(source)) << source;
        }
    }
    EXPECT_GT(copies, 0u);
    EXPECT_EQ(lines.back()["result"]["copied"], copies);
    EXPECT_EQ(DeviceFiles(Dev()).size(), copies);

    const ChildResult second = Tool({src, "--to", Dev(), "--device", kCaps, "--no-convert", "--format", "json"});
    const auto again = JsonLines(second.out);
    const auto plan = again[again.size() - 2]["plan"];
    EXPECT_EQ(plan["actions"]["keep"]["files"], copies);
    EXPECT_EQ(plan["loaded"], 0);

    // A tag written with fileinfo --set is one update (forced: the
    // library's size-based duration moves with the tag).
    std::string edited;
    for (const auto& line : lines) {
        if (line.contains("action") && line["action"] == "copy" && line["source"].get<std::string>().find("cbr128.mp3") != std::string::npos) {
            edited = line["source"];
        }
    }
    ASSERT_FALSE(edited.empty());
    ASSERT_EQ(RunChild({FILEINFO_TOOL_PATH, "--set", "title=Edited", "--force", "--no-backup", edited}, {}, work_.path().string()).exitCode, 0);
    const auto third = JsonLines(Tool({src, "--to", Dev(), "--device", kCaps, "--no-convert", "--format", "json"}).out);
    EXPECT_EQ(third[third.size() - 2]["plan"]["actions"]["update"]["files"], 1);
    EXPECT_EQ(third[third.size() - 2]["plan"]["loaded"], 1);
}

TEST_F(ToolSync, AiffAndExtensionlessFilesLandUnderNamesTheDevicesLibraryLoads) {
    if (!Readers()) GTEST_SKIP() << "this build's readers do not judge the fixtures playable";
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/aiff/sox-mono-8k.aif", Src() + "/Album C/one.aiff");
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3", Src() + "/Album C/untitled");
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--no-convert", "--format", "json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::map<std::string, nlohmann::json> bySource;
    for (const auto& line : JsonLines(run.out)) {
        if (line.contains("source")) bySource[line["source"].get<std::string>()] = line;
    }
    const auto& aiff = bySource.at(Src() + "/Album C/one.aiff");
    EXPECT_EQ(aiff["action"], "copy");
    EXPECT_EQ(aiff["devicePath"], "Album C/one.aif");
    EXPECT_EQ(aiff["libraryPlayable"], true);  // loaded by the library as "one.aif"
    const auto& bare = bySource.at(Src() + "/Album C/untitled");
    EXPECT_EQ(bare["action"], "copy");
    EXPECT_EQ(bare["devicePath"], "Album C/untitled.mp3");
    EXPECT_EQ(bare["libraryPlayable"], true);
    EXPECT_TRUE(Slurp(Dev() + "/Album C/one.aif") == Slurp(Src() + "/Album C/one.aiff"));
    EXPECT_TRUE(Slurp(Dev() + "/Album C/untitled.mp3") == Slurp(Src() + "/Album C/untitled"));
    // The device's copies are what the library loads.
    for (const char* copy : {"/Album C/one.aif", "/Album C/untitled.mp3"}) {
        MediaFileInfo info;
        EXPECT_EQ(info.LoadFile((Dev() + copy).c_str()), MFI_OK) << copy;
    }
}
