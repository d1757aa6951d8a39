// Files made by a real encoder (scripts/make_mp4_media.sh), with the values
// this reader's rules give for them, and corrupted copies of them.
//
// ffmpeg writes the ES_ID of an "esds" as the track number (1 or 2) and
// its descriptors with four-byte lengths. The reader's four-byte test wants
// a zero ES_ID low byte, so these descriptors are read in the one-byte
// layout: the "average bit rate" is made of buffer-size bytes (zero, or 1
// for the MPEG-4 Visual track, whose next byte starts the maximum rate
// 0x00016840) and the "object type" is the flags byte, 0 - "AAC from .mov"
// for sound, and no video name.
#include <gtest/gtest.h>

#include <string>

#include "MediaFileInfo.h"
#include "Mp4Info.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "Mp4FixtureTestHelpers.h"

using namespace Mp4FixtureTestHelpers;

namespace {

struct Kinds {
    bool audio, video, tags;
};

// Loads a fixture that must be read, checking the track kinds and tags
// found, its size and its duration; gives the record.
MediaFileInfo_st LoadFixture(const std::string& name, Kinds kinds, unsigned int fileSize,
                             unsigned int durationMs = 1000) {
    Mp4Info reader;
    MediaFileInfo_st r;
    EXPECT_EQ(reader.LoadFile(Fixture(name).c_str()), MFI_OK) << name;
    if (reader.GetFileInfo() == nullptr) {
        ADD_FAILURE() << name << " has no record";
        return r;
    }
    r = *reader.GetFileInfo();
    EXPECT_EQ(reader.IsAudio() != 0, kinds.audio) << name;
    EXPECT_EQ(reader.IsVideo() != 0, kinds.video) << name;
    EXPECT_EQ(reader.HasId3Info() != 0, kinds.tags) << name;
    EXPECT_EQ(r.fileSize, fileSize) << name;
    EXPECT_EQ(r.durationMs, durationMs) << name;  // mvhd duration / time scale, whole seconds
    return r;
}

constexpr Kinds kSound{true, false, false};
constexpr Kinds kVideo{false, true, false};
constexpr Kinds kBoth{true, true, false};

// The AAC sound track all the files with sound share: 16 kHz, 17 frames of
// 3440 bytes in all over 17024/16000 s: 3440 x 8 / 1.064 = 25864.66.
void ExpectFfmpegAac(const MediaFileInfo_st& r, const char* channels) {
    EXPECT_EQ(r.sampleRate, 16000u);
    EXPECT_EQ(r.bitRate, 25864u);
    EXPECT_STREQ(r.audioCodec, "AAC");
    EXPECT_STREQ(r.audioFormat, "AAC from .mov");
    EXPECT_STREQ(r.channelMode, channels);
}

TEST(Mp4Fixture, TaggedAacM4a) {
    const MediaFileInfo_st r = LoadFixture("aac-tagged.m4a", {true, false, true}, 4589);
    EXPECT_STREQ(r.fileType, "AAC");
    ExpectFfmpegAac(r, "Stero");  // ffmpeg writes a channel count of 2 in MP4 sound entries
    EXPECT_STREQ(r.title, "Test Tone");
    EXPECT_STREQ(r.artist, "The Builders");
    EXPECT_STREQ(r.album, "Fixtures");
    EXPECT_STREQ(r.year, "2005");
    EXPECT_STREQ(r.comment, "made by ffmpeg");
    EXPECT_STREQ(r.composer, "A. Composer");
    EXPECT_STREQ(r.genre, "");       // written as "\xA9gen", a name this reader does not know
    EXPECT_EQ(r.trackNumber, 0);     // "trkn" is binary
    EXPECT_EQ(r.frameRate, 0u);
    EXPECT_EQ(r.peakBitRate, 0u);
    EXPECT_EQ(r.width, 0);
}

TEST(Mp4Fixture, AppleLosslessM4a) {
    const MediaFileInfo_st r = LoadFixture("alac.m4a", kSound, 10552);
    EXPECT_STREQ(r.fileType, "AppleLossless");
    EXPECT_STREQ(r.audioFormat, "Apple Lossless");
    EXPECT_STREQ(r.audioCodec, "");
    EXPECT_EQ(r.sampleRate, 16000u);
    EXPECT_STREQ(r.channelMode, "Mono");
    EXPECT_EQ(r.bitRate, 256000u);    // the configuration's average bit rate field, 0x0003E800
    EXPECT_EQ(r.bitsPerSample, 0);    // the compatible-version byte
    EXPECT_STREQ(r.title, "alac");
}

TEST(Mp4Fixture, H263With3gpAac) {
    const MediaFileInfo_st r = LoadFixture("h263-aac.3gp", kBoth, 22558);
    EXPECT_STREQ(r.fileType, "H.263");
    EXPECT_EQ(r.width, 176);
    EXPECT_EQ(r.height, 144);
    EXPECT_EQ(r.peakBitRate, 140648u);  // 10 frames, 17581 bytes, in 10240/10240 s
    EXPECT_EQ(r.frameRate, 10u);
    EXPECT_STREQ(r.videoFormat, "");
    ExpectFfmpegAac(r, "Stero");
    EXPECT_STREQ(r.title, "h263-aac");
}

TEST(Mp4Fixture, QuickTimeMovWithH264MainAndAac) {
    const MediaFileInfo_st r = LoadFixture("h264-aac.mov", kBoth, 8586);
    EXPECT_STREQ(r.fileType, "H.264LC");  // the SPS starts 0x67
    EXPECT_STREQ(r.videoFormat, "H264 Main@L2.1");
    EXPECT_EQ(r.profile, 77);
    EXPECT_EQ(r.level, 21);
    EXPECT_EQ(r.width, 160);
    EXPECT_EQ(r.height, 120);
    EXPECT_EQ(r.peakBitRate, 26856u);  // 3357 bytes in 1 s
    EXPECT_EQ(r.frameRate, 10u);
    ExpectFfmpegAac(r, "Mono");  // version-1 entry in a "wave" atom, channel count 1
    EXPECT_STREQ(r.title, "h264-aac");
}

TEST(Mp4Fixture, H264BaselineWithMoovAfterMdat) {
    const MediaFileInfo_st r = LoadFixture("h264-baseline.mp4", kVideo, 4420);
    EXPECT_STREQ(r.fileType, "H.264LC");
    EXPECT_STREQ(r.videoFormat, "H264 Baseline@L3");
    EXPECT_EQ(r.profile, 66);
    EXPECT_EQ(r.level, 30);
    EXPECT_EQ(r.peakBitRate, 28232u);  // 3529 bytes in 1 s
    EXPECT_EQ(r.frameRate, 10u);
    EXPECT_EQ(r.bitRate, 0u);
    EXPECT_EQ(r.sampleRate, 0u);
    EXPECT_STREQ(r.channelMode, "");
    EXPECT_STREQ(r.title, "h264-baseline");
}

TEST(Mp4Fixture, H264HighWithAacFastStart) {
    const MediaFileInfo_st r = LoadFixture("h264-high-aac.mp4", kBoth, 8496);
    EXPECT_STREQ(r.fileType, "H.264LC");
    EXPECT_STREQ(r.videoFormat, "H264 High@L3.1");
    EXPECT_EQ(r.profile, 100);
    EXPECT_EQ(r.level, 31);
    EXPECT_EQ(r.peakBitRate, 26504u);  // 3313 bytes in 1 s
    EXPECT_EQ(r.frameRate, 10u);
    ExpectFfmpegAac(r, "Stero");
}

TEST(Mp4Fixture, Mpeg4VisualWithAacM4v) {
    const MediaFileInfo_st r = LoadFixture("mpeg4-aac.m4v", kBoth, 16674);
    EXPECT_STREQ(r.fileType, "MPEG-4");
    EXPECT_STREQ(r.videoFormat, "");  // the flags byte, 0, names no video type
    EXPECT_EQ(r.profileLevelId, 0);
    EXPECT_EQ(r.peakBitRate, 1u);     // bytes 00 00 00 | 01 of the descriptor
    // With a rate from the descriptor the frame rate is 10 samples per
    // 1000 ms in whole numbers, times 1000: 0.
    EXPECT_EQ(r.frameRate, 0u);
    EXPECT_EQ(r.width, 160);
    EXPECT_EQ(r.height, 120);
    ExpectFfmpegAac(r, "Stero");
}

TEST(Mp4Fixture, ThousandFramesRunTheSizeTablePastTheBuffer) {
    const MediaFileInfo_st r = LoadFixture("many-frames.mp4", kVideo, 15595, 10000);
    // The table starts at 710: entries 840 and 841 (10 and 10 bytes) are
    // left out and the "stco" size after it (20) is summed, so the sum
    // happens to equal the table's own, 10731 bytes over 128000/12800 s.
    EXPECT_STREQ(r.videoFormat, "H264 Baseline@L1.1");
    EXPECT_EQ(r.level, 11);
    EXPECT_EQ(r.width, 64);
    EXPECT_EQ(r.peakBitRate, 8584u);
    EXPECT_EQ(r.frameRate, 100u);
}

TEST(Mp4Fixture, ExampleFileIsTheTaggedM4a) {
    MediaFileInfo facade;
    const std::string path = std::string(FILEINFO_EXAMPLES_DIR) + "/tone-tagged.m4a";
    ASSERT_EQ(facade.LoadFile(path.c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->title, "Test Tone");
    EXPECT_EQ(facade.HasId3Info(), 1);
}

// Corrupted copies: sizes zeroed or made huge, bytes changed, files cut
// short or grown. Whatever they hold, a load ends, answers a known status
// and leaves every text field terminated.

TEST(Mp4Fixture, CorruptedCopiesNeverCrash) {
    TempDir dir;
    int ok = 0;
    for (const char* name : kFixtures) {
        const Bytes seed = ReadAll(Fixture(name));
        ASSERT_FALSE(seed.empty()) << name;
        for (uint32_t n = 0; n < 40; ++n) {
            const std::string path = dir.write("mutant.mp4", Mutate(seed, n));
            Mp4Info reader;
            const int status = reader.LoadFile(path.c_str());
            EXPECT_TRUE(IsKnownStatus(status)) << name << " #" << n << ": " << status;
            ExpectTextsTerminated(reader.GetFileInfo());
            if (status == MFI_OK) ++ok;
        }
    }
    // Most corruptions leave a readable movie: the walk did run.
    EXPECT_GT(ok, 100);
}

// Sizes overwritten atom by atom: every atom header of each file in turn
// gets 0, 1, 7, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF8 and 0xFFFFFFFF.

TEST(Mp4Fixture, EveryAtomSizeBrokenInTurn) {
    const char* names[] = {"aac-tagged.m4a", "h264-aac.mov", "many-frames.mp4"};
    const uint32_t sizes[] = {0, 1, 7, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFF8u, 0xFFFFFFFFu};
    const char* kinds[] = {"moov", "mvhd", "trak", "tkhd", "mdia", "mdhd", "hdlr", "minf", "stbl",
                           "stsd", "stsz", "udta", "meta", "ilst", "esds", "avcC", "data"};
    TempDir dir;
    int runs = 0;
    for (const char* name : names) {
        const Bytes seed = ReadAll(Fixture(name));
        for (const char* kind : kinds) {
            const std::string type(kind);
            for (size_t at = 4; at + 4 <= seed.size(); ++at) {
                if (!std::equal(type.begin(), type.end(), seed.begin() + static_cast<long>(at))) continue;
                for (uint32_t size : sizes) {
                    Bytes copy = seed;
                    copy[at - 4] = static_cast<uint8_t>(size >> 24);
                    copy[at - 3] = static_cast<uint8_t>(size >> 16);
                    copy[at - 2] = static_cast<uint8_t>(size >> 8);
                    copy[at - 1] = static_cast<uint8_t>(size);
                    const std::string path = dir.write("sized.mp4", copy);
                    Mp4Info reader;
                    const int status = reader.LoadFile(path.c_str());
                    EXPECT_TRUE(IsKnownStatus(status)) << name << " " << kind << " " << size;
                    ExpectTextsTerminated(reader.GetFileInfo());
                    ++runs;
                }
            }
        }
    }
    EXPECT_GT(runs, 200);
}

}  // namespace
