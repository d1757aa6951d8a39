// The device verdict the front ends share: the library's judgement, the
// requirement that refused a file, and what a capability file must hold.
#include <gtest/gtest.h>

#include <string>

#include "CapsBuilder.h"
#include "Scan.h"
#include "TestFiles.h"
#include "Verdict.h"

using fileinfo::Device;
using fileinfo::DeviceVerdict;
using fileinfo::ScanItem;

namespace {

std::string Mp3UpTo48k() {
    CapsBuilder r;
    r.limit("MaximumSampleRate", 48000).limit("MaximumDataRate", 320);
    return DeviceWith("MP3", r.str());
}

MediaFileInfo_st Mp3At(unsigned sampleRate) {
    MediaFileInfo_st r = RecordOf("MP3");
    r.sampleRate = sampleRate;
    r.bitRate = 128000;
    return r;
}

TEST(Verdict, PlayableRecordHasNoExplanation) {
    const DeviceVerdict v = Device(Mp3UpTo48k()).Judge(Mp3At(44100));
    EXPECT_TRUE(v.playable);
    EXPECT_EQ(v.refusedBy, "");
    EXPECT_EQ(v.explanation, "");
}

TEST(Verdict, RefusalNamesTheRequirementAndTheFieldsItChecked) {
    const DeviceVerdict v = Device(Mp3UpTo48k()).Judge(Mp3At(96000));
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.refusedBy, "MaximumSampleRate");
    EXPECT_EQ(v.explanation, "requirement MaximumSampleRate = \"48000\" refuses it (sampleRate 96000)");
}

TEST(Verdict, TypeTheDeviceDoesNotListIsNamed) {
    const DeviceVerdict v = Device(Mp3UpTo48k()).Judge(RecordOf("AAC"));
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.refusedBy, "");
    EXPECT_EQ(v.explanation, "the device lists no AAC type");
}

TEST(Verdict, FilesThatDidNotLoadOrWereNotIdentifiedSaySo) {
    const Device device(Mp3UpTo48k());
    ScanItem failed;
    failed.status = MFI_NOT_THIS_FORMAT;
    EXPECT_EQ(device.Judge(failed).explanation, "the file did not load");
    ScanItem unidentified;
    unidentified.status = MFI_OK;
    unidentified.hasRecord = true;
    unidentified.record = RecordOf("");
    const DeviceVerdict v = device.Judge(unidentified);
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.explanation, "the file was not identified");
}

TEST(Verdict, AdtsStreamWithoutAFileTypeIsNotCalledUnidentified) {
    const Device device(Mp3UpTo48k());
    ScanItem adts;
    adts.status = MFI_OK;
    adts.hasRecord = true;
    adts.isAudio = true;
    adts.record = RecordOf("");
    const DeviceVerdict v = device.Judge(adts);
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.explanation, "the file has no file type to look up (ADTS streams carry none)");
}

TEST(Verdict, CapabilityFileWithoutADictionaryIsRefused) {
    TempDir dir;
    Device device("");
    std::string error;
    EXPECT_FALSE(Device::FromFile(dir.write("song.mp3", Bytes{0xFF, 0xFB, 0x90, 0x00}), device, error));
    EXPECT_EQ(error, "holds no <dict>: not a capability list");
    EXPECT_FALSE(Device::FromFile(dir.file("missing.plist"), device, error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_TRUE(Device::FromFile(dir.write("ok.plist", Bytes{'<', 'd', 'i', 'c', 't', '>'}), device, error));
}

TEST(Verdict, LimitsAreReadFromTheTypesEntry) {
    Device device("");
    std::string error;
    ASSERT_TRUE(Device::FromFile(std::string(FILEINFO_EXAMPLES_DIR) + "/../devices/player-caps.plist", device, error));
    EXPECT_EQ(device.Limit("H.264", "MaximumWidth"), 320);
    EXPECT_EQ(device.Limit("H.264", "MaximumHeight"), 240);
    EXPECT_EQ(device.Limit("MP3", "MaximumWidth"), -1);
    EXPECT_EQ(device.Limit("Nothing", "MaximumWidth"), -1);
}

}  // namespace

namespace {

TEST(RequirementFields, NameTheFieldsEachCheckReads) {
    EXPECT_STREQ(FileInfoRequirementFields("MaximumResolution"), "width height");
    EXPECT_STREQ(FileInfoRequirementFields("MaximumAverageBitRate"), "peakBitRate");
    EXPECT_STREQ(FileInfoRequirementFields("Stereo"), "channelMode");
    EXPECT_EQ(FileInfoRequirementFields("LC"), nullptr);  // read, never refuses
    EXPECT_EQ(FileInfoRequirementFields("Unknown"), nullptr);
    EXPECT_EQ(FileInfoRequirementFields(nullptr), nullptr);
}

TEST(Verdict, ResolutionRefusalShowsBothSides) {
    CapsBuilder r;
    r.limit("MaximumResolution", 76800);
    MediaFileInfo_st video = RecordOf("H.264");
    video.width = 640;
    video.height = 480;
    const DeviceVerdict v = Device(DeviceWith("H.264", r.str(), "VideoCodecs")).Judge(video);
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.explanation, "requirement MaximumResolution = \"76800\" refuses it (width 640, height 480)");
}

}  // namespace
