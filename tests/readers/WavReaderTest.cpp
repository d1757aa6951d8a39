#include <gtest/gtest.h>

#include "MediaFileInfo.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"
#include "WavReaderTestHelpers.h"

using namespace WavReaderTestHelpers;

namespace {

MediaFileInfo_st LoadWav(const WavFields& wav, int expectedStatus = MFI_OK) {
    TempDir dir;
    const std::string p = dir.write("clip.wav", BuildWav(wav));
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(p.c_str()), expectedStatus);
    return *reader.GetFileInfo();
}

TEST(WavReader, CanonicalCdAudioFillsTheRecord) {
    const MediaFileInfo_st r = LoadWav(CdAudio(8));
    EXPECT_EQ(r.sampleRate, 44100u);
    EXPECT_EQ(r.bitRate, 705600u);  // channels are not part of the figure
    EXPECT_STREQ(r.channelMode, "Stero");
    EXPECT_STREQ(r.audioFormat, "PCM");
    EXPECT_STREQ(r.fileType, "WAV");
    EXPECT_STREQ(r.title, "clip");
    EXPECT_EQ(r.fileSize, 44u);
    EXPECT_EQ(r.bitsPerSample, 0);
    EXPECT_EQ(r.frameRate, 0u);
}

TEST(WavReader, DurationIsAWholeMultipleOfEightSeconds) {
    EXPECT_EQ(LoadWav(CdAudio(1)).durationMs, 0u);
    EXPECT_EQ(LoadWav(CdAudio(8)).durationMs, 8000u);
    EXPECT_EQ(LoadWav(CdAudio(15)).durationMs, 8000u);
    EXPECT_EQ(LoadWav(CdAudio(16)).durationMs, 16000u);
}

TEST(WavReader, MonoIsRecordedAsMono) {
    WavFields s = CdAudio(1);
    s.channels = 1;
    EXPECT_STREQ(LoadWav(s).channelMode, "Mono");
}

TEST(WavReader, FormatTagsAreNamed) {
    const std::pair<unsigned, const char*> names[] = {
        {1, "PCM"}, {0x101, "MULAW"}, {0x102, "IBM_ALAW"}, {0x103, "IBM_ADPCM"}, {3, "UNKNOWN"}, {0, "UNKNOWN"}};
    for (const auto& [tag, name] : names) {
        WavFields s = CdAudio(1);
        s.formatTag = tag;
        EXPECT_STREQ(LoadWav(s).audioFormat, name) << "format tag " << tag;
    }
}

TEST(WavReader, ZeroChannelCountLeavesChannelModeEmptyAndDurationZero) {
    WavFields s = CdAudio(16);
    s.channels = 0;
    const MediaFileInfo_st r = LoadWav(s);
    EXPECT_STREQ(r.channelMode, "");
    EXPECT_EQ(r.durationMs, 0u);
}

TEST(WavReader, ZeroSampleRateOrBitDepthGivesDurationZero) {
    WavFields s = CdAudio(16);
    s.sampleRate = 0;
    EXPECT_EQ(LoadWav(s).durationMs, 0u);
    s = CdAudio(16);
    s.bitsPerSample = 0;
    EXPECT_EQ(LoadWav(s).durationMs, 0u);
}

TEST(WavReader, ThirtyFiveBytesAreUnreadable) {
    TempDir dir;
    Bytes b = BuildWav(CdAudio(1));
    b.resize(35);
    const std::string p = dir.write("short.wav", b);
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(p.c_str()), MFI_UNREADABLE);
    // A rejected file still keeps its size and its name as title.
    EXPECT_EQ(reader.GetFileInfo()->fileSize, 35u);
    EXPECT_STREQ(reader.GetFileInfo()->title, "short");
    EXPECT_EQ(reader.IsAudio(), 0);
}

TEST(WavReader, ThirtySixBytesWithoutRiffAreNotThisFormat) {
    TempDir dir;
    Bytes b = BuildWav(CdAudio(1));
    b.resize(36);
    b[0] = 'X';
    const std::string p = dir.write("odd.wav", b);
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(p.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(reader.GetFileInfo()->fileType, "");
    EXPECT_STREQ(reader.GetFileInfo()->title, "odd");
}

TEST(WavReader, RiffWithoutWaveIsNotThisFormat) {
    TempDir dir;
    Bytes b = BuildWav(CdAudio(1));
    b[8] = 'A';
    b[9] = 'V';
    b[10] = 'I';
    b[11] = ' ';
    const std::string p = dir.write("movie.wav", b);
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(p.c_str()), MFI_NOT_THIS_FORMAT);
}

TEST(WavReader, NullPathAndMissingFile) {
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
    TempDir dir;
    EXPECT_EQ(reader.LoadFile(dir.file("missing.wav").c_str()), MFI_OPEN_FAILED);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
}

TEST(WavReader, ASecondLoadReplacesTheRecord) {
    TempDir dir;
    const std::string a = dir.write("a.wav", BuildWav(CdAudio(8)));
    WavFields mono = CdAudio(1);
    mono.channels = 1;
    const std::string b = dir.write("b.wav", BuildWav(mono));
    WavInfo reader;
    ASSERT_EQ(reader.LoadFile(a.c_str()), MFI_OK);
    ASSERT_EQ(reader.LoadFile(b.c_str()), MFI_OK);
    EXPECT_STREQ(reader.GetFileInfo()->title, "b");
    EXPECT_STREQ(reader.GetFileInfo()->channelMode, "Mono");
}

TEST(WavReader, RiffSizeBelowHeaderWrapsAround) {
    WavFields s = CdAudio(0);
    s.overrideRiffSize = true;
    s.riffSize = 35;  // 35 - 36 wraps to 0xFFFFFFFF
    EXPECT_EQ(LoadWav(s).durationMs, (0xFFFFFFFFu / 1411200u) * 8000u);
}

TEST(WavReader, WavWritesNoTags) {
    TempDir dir;
    const std::string p = dir.write("a.wav", BuildWav(CdAudio(1)));
    WavInfo reader;
    ASSERT_EQ(reader.LoadFile(p.c_str()), MFI_OK);
    MediaFileInfo_st tags;
    EXPECT_EQ(reader.SetId3Info(&tags), 0);
    EXPECT_EQ(reader.HasId3Info(), 0);
    EXPECT_EQ(reader.IsVideo(), 0);
    EXPECT_EQ(reader.IsAudio(), 1);
}

}  // namespace

