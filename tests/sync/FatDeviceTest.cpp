// A sync to a FAT device: a loop-mounted vfat image where mounting is
// permitted, otherwise a folder with --fat-names. The test says which.
#include <gtest/gtest.h>

#include <sys/mount.h>

#include <iostream>
#include <string>

#include <nlohmann/json.hpp>

#include "SyncTestHelpers.h"

using namespace synctest;

namespace {

class FatDevice : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(Src());
        files_ = MakeCollection(Src());
        const std::string song = Slurp(Src() + "/Loose.mp3");
        Spit(Src() + "/Case/song.mp3", song + "a");
        Spit(Src() + "/Case/Song.mp3", song + "b");
        Spit(Src() + "/Case/Live: Why?.mp3", song + "c");
        const std::string image = work_.file("fat.img");
        const std::string mountPoint = work_.file("fat");
        fs::create_directories(mountPoint);
        Spit(image, "");
        fs::resize_file(image, 32u << 20);
        const ChildResult made = RunChild({"/sbin/mkfs.vfat", image}, {}, work_.path().string());
        const ChildResult mounted =
            made.exitCode == 0 ? RunChild({"/bin/mount", "-o", "loop", image, mountPoint}, {}, work_.path().string()) : made;
        if (mounted.exitCode == 0) {
            device_ = mountPoint;
            mounted_ = true;
            what_ = "a loop-mounted vfat image";
        } else {
            device_ = work_.file("folder");
            fs::create_directories(device_);
            what_ = "a folder with --fat-names (mounting a vfat image failed here: " + mounted.err.substr(0, mounted.err.find('\n')) + ")";
        }
        std::cout << "ran on " << what_ << "\n";
        RecordProperty("device", what_);
    }
    void TearDown() override {
        if (mounted_) RunChild({"/bin/umount", device_}, {}, work_.path().string());
    }
    std::string Src() const { return work_.file("music"); }
    nlohmann::json Sync() {
        std::vector<std::string> args{SYNC_DRIVER_PATH, "--to", device_, Src()};
        if (!mounted_) args.insert(args.begin() + 1, "--fat-names");
        const ChildResult run = RunChild(args, {}, work_.path().string());
        EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
        return nlohmann::json::parse(run.out);
    }

    TempDir work_;
    std::vector<std::string> files_;
    std::string device_;
    bool mounted_ = false;
    std::string what_;
};

}  // namespace

TEST_F(FatDevice, CopiesAreByteIdenticalUnderNamesFatTakesAndAreKeptOnTheNextRun) {
    const auto first = Sync();
    EXPECT_EQ(first["copy"], 9);
    for (const std::string& f : files_) EXPECT_EQ(Slurp(device_ + "/" + f), Slurp(Src() + "/" + f)) << f;
    EXPECT_EQ(Slurp(device_ + "/Case/Song.mp3"), Slurp(Src() + "/Case/Song.mp3"));
    EXPECT_EQ(Slurp(device_ + "/Case/song (2).mp3"), Slurp(Src() + "/Case/song.mp3"));
    EXPECT_EQ(Slurp(device_ + "/Case/Live_ Why_.mp3"), Slurp(Src() + "/Case/Live: Why?.mp3"));
    for (const std::string& f : DeviceFiles(device_)) EXPECT_EQ(MtimeNs(device_ + "/" + f) % 2000000000, 0) << f;
    EXPECT_EQ(Disagreements(device_), "");
    const auto second = Sync();
    EXPECT_EQ(second["keep"], 9);
    EXPECT_EQ(second["loads"], 0);
}
