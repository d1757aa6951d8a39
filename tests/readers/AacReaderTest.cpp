#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "Id3Builder.h"
#include "MediaFileInfo.h"
#include "Mutation.h"
#include "ReaderLoad.h"
#include "TestFiles.h"
#include "AacReaderTestHelpers.h"

using namespace AacReaderTestHelpers;

namespace {

// --- ADTS ---

TEST(AacReader, UnassignedSamplingIndexGivesRateZeroAndBitRateFour) {
    for (unsigned index = 13; index <= 15; ++index) {
        const Loaded r = Load(AdtsStream(Frame(372, index), 100));
        EXPECT_EQ(r.status, MFI_OK) << index;
        EXPECT_EQ(r.record.sampleRate, 0u) << index;
        EXPECT_EQ(r.record.durationMs, 0u) << index;
        EXPECT_EQ(r.record.bitRate, 4u) << index;  // (372 * 0 + 0.5) * 8
    }
}

TEST(AacReader, SamplingIndexesGiveTheTableRates) {
    const unsigned rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                              22050, 16000, 12000, 11025, 8000,  7350};
    for (unsigned index = 0; index < 13; ++index) {
        EXPECT_EQ(SAMPLE[index], rates[index]);
        EXPECT_EQ(Load(AdtsStream(Frame(300, index), 20)).record.sampleRate, rates[index]) << index;
    }
}

TEST(AacReader, ChannelConfigurations) {
    EXPECT_STREQ(Load(AdtsStream(Frame(300, 4, 0), 20)).record.channelMode, "");
    EXPECT_STREQ(Load(AdtsStream(Frame(300, 4, 1), 20)).record.channelMode, "Mono");
    EXPECT_STREQ(Load(AdtsStream(Frame(300, 4, 2), 20)).record.channelMode, "Stero");
    EXPECT_STREQ(Load(AdtsStream(Frame(300, 4, 4), 20)).record.channelMode, "Stero");  // high bit in byte 2
    EXPECT_STREQ(Load(AdtsStream(Frame(300, 4, 7), 20)).record.channelMode, "Stero");
}

TEST(AacReader, IdBitNamesTheVersion) {
    AdtsFields s = Frame(300);
    s.mpeg2 = true;
    EXPECT_STREQ(Load(AdtsStream(s, 20)).record.audioFormat, "MPEG Version 2");
    s.mpeg2 = false;
    s.crc = true;  // the protection bit is ignored by the sync test
    EXPECT_STREQ(Load(AdtsStream(s, 20)).record.audioFormat, "MPEG Version 4");
}

TEST(AacReader, OnlyTheFirstFrameSetsRateChannelsAndVersion) {
    AdtsFields second = Frame(400, 7, 2);  // 22050 Hz stereo MPEG-2
    second.mpeg2 = true;
    const Bytes file = Join({AdtsFrame(Frame(200, 4, 1)), AdtsStream(second, 99)});
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_STREQ(r.record.channelMode, "Mono");
    EXPECT_STREQ(r.record.audioFormat, "MPEG Version 4");
    // Average (200 + 99 * 400) / 100 = 398; k = 43.
    EXPECT_EQ(r.record.bitRate, 8u * 398u * 43u + 4u);
    EXPECT_EQ(r.record.durationMs, 2000u);  // 100 / 43
}

TEST(AacReader, BitRateAndDurationAreThoseAfterTheLastFrame) {
    // 8000 Hz: k = 7; 15 frames are 2 whole seconds.
    const Loaded r = Load(AdtsStream(Frame(500, 11, 1), 15));
    EXPECT_EQ(r.record.durationMs, 2000u);
    EXPECT_EQ(r.record.bitRate, 8u * 500u * 7u + 4u);
}

TEST(AacReader, NoSyncIsUnreadable) {
    const Loaded r = Load(Bytes(kBuffer, 0), "silence.aac");
    EXPECT_EQ(r.status, MFI_UNREADABLE);
    EXPECT_STREQ(r.record.title, "silence");
    EXPECT_EQ(r.isAudio, 0);
    // Layer bits set, as in an MP3 frame: not an ADTS sync.
    Bytes mp3Like(3 * kBuffer, 0);
    for (size_t i = 0; i + 1 < mp3Like.size(); i += 417) {
        mp3Like[i] = 0xFF;
        mp3Like[i + 1] = 0xFB;
    }
    EXPECT_EQ(Load(mp3Like).status, MFI_UNREADABLE);
}

TEST(AacReader, FilesShorterThanOneBufferAreShort) {
    Bytes file = AdtsStream(Frame(372), 20);
    file.resize(kBuffer - 1);
    const Loaded r = Load(file, "short.aac");
    EXPECT_EQ(r.status, MFI_SHORT_FILE);
    EXPECT_STREQ(r.record.title, "short");  // the name fallback runs for this result too
    EXPECT_EQ(r.record.fileSize, kBuffer - 1);
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_EQ(Load(Bytes{}).status, MFI_SHORT_FILE);
}

TEST(AacReader, NullPathAndMissingFile) {
    AacInfo reader;
    EXPECT_EQ(reader.LoadFile(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
    TempDir dir;
    EXPECT_EQ(reader.LoadFile(dir.file("missing.aac").c_str()), MFI_OPEN_FAILED);
    // The record is made before the file is opened; no name is filled in.
    ASSERT_NE(reader.GetFileInfo(), nullptr);
    EXPECT_STREQ(reader.GetFileInfo()->title, "");
    EXPECT_EQ(reader.GetFileInfo()->fileSize, 0u);
    EXPECT_EQ(reader.ReadFrame(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(reader.GetInfo(nullptr), MFI_BAD_ARGUMENT);
}

TEST(AacReader, SyncInTheLastTenTagBytesIsTakenForAFrame) {
    // The skip lands 10 bytes before the end of the tag; a header-like
    // pattern there is decoded, and its zero length fails the load.
    Bytes data = {'o', 'w', 'n', 0};
    const Bytes fake = AdtsHeader(Frame(0, 8, 1));
    data.insert(data.end(), fake.begin(), fake.end());
    data.insert(data.end(), 3, 0);
    Id3v2Fields tag;
    tag.frames = {RawFrame("PRIV", data)};
    const Loaded r = Load(Join({BuildId3v2(tag), AdtsStream(Frame(372), 100)}));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.record.sampleRate, 16000u);
    EXPECT_STREQ(r.record.channelMode, "Mono");
}

TEST(AacReader, TagLeavingLessThanOneBufferReadsNothing) {
    // The skip refills from inside the tag and reaches the end of the
    // file at once: the scan never starts.
    Id3v2Fields tag;
    tag.padding = 1000;
    const Loaded r = Load(Join({BuildId3v2(tag), AdtsStream(Frame(372), 12)}), "brief.aac");
    EXPECT_EQ(r.status, MFI_UNREADABLE);
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_STREQ(r.record.title, "brief");
}

// --- ADIF ---

TEST(AacAdif, DurationDividesWholeNumbers) {
    // 39999 / 8000 = 4: 32000 ms.
    EXPECT_EQ(Load(Adif(8000, 39999)).record.durationMs, 32000u);
    EXPECT_EQ(Load(Adif(128000, 2 * kBuffer)).record.durationMs, 0u);
}

TEST(AacAdif, LowestBitRateBitsAreNotShifted) {
    // 8005: the three low bits (5) stand at the top of their byte: 8000 | 0xA0.
    const Loaded r = Load(Adif(8005, 40000));
    EXPECT_EQ(r.record.bitRate, 8160u);
    EXPECT_EQ(r.record.durationMs, 32000u);  // 40000 / 8160 = 4
}

TEST(AacAdif, SampleRateComesFromBitRateBits) {
    // Bits 21..18 of the bit rate are taken as the sampling index: 4 -> 44100.
    EXPECT_EQ(Load(Adif(4u << 18, 2 * kBuffer)).record.sampleRate, 44100u);
    EXPECT_EQ(Load(Adif(11u << 18, 2 * kBuffer)).record.sampleRate, 8000u);
}

TEST(AacAdif, ZeroBitRateGivesNoDuration) {
    const Loaded r = Load(Adif(0, 40000));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_STREQ(r.record.fileType, "AAC");
}

TEST(AacAdif, CopyrightFieldIsSkippedWhenByteFourHasBit8) {
    // With the copyright id present, bit 0x08 of byte 4 is a bit of the id
    // (0x10 of its first byte); when set, the fields are read 9 bytes on.
    const Loaded skipped = Load(Adif(8000, 40000, true, 0x10));
    EXPECT_EQ(skipped.record.bitRate, 8000u);
    EXPECT_EQ(skipped.record.durationMs, 40000u);
    // When clear, the copyright id itself is read as the fields: all zero.
    const Loaded unskipped = Load(Adif(8000, 40000, true, 0x00));
    EXPECT_EQ(unskipped.record.bitRate, 0u);
    EXPECT_EQ(unskipped.record.durationMs, 0u);
    EXPECT_EQ(unskipped.record.sampleRate, 96000u);
}

TEST(AacAdif, FileLengthIncludesTrailingTags) {
    Id3v1Fields v1;
    v1.genre = 12;
    const Bytes file = Join({Adif(8000, 40000 - 128), BuildId3v1(v1)});
    EXPECT_EQ(Load(file).record.durationMs, 40000u);  // 39872 alone would give 4 * 8000
}

TEST(AacAdif, Id3v2SkipLandingBeforeTheHeaderMissesIt) {
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Front")};
    tag.padding = 100;
    const Loaded r = Load(Join({BuildId3v2(tag), Adif(8000, 40000)}), "front.aac");
    EXPECT_EQ(r.status, MFI_UNREADABLE);
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_EQ(r.record.bitRate, 0u);
}

TEST(AacAdif, Id3v2SizeCountingItsHeaderLandsOnTheHeader) {
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Front")};
    tag.padding = 100;
    const size_t body = BuildId3v2(tag).size() - 10;
    tag.overrideSize = true;
    tag.size = static_cast<uint32_t>(body + 10);
    Bytes file = BuildId3v2(tag);
    // The skip goes to the announced size, body + 10: right after the tag.
    ASSERT_EQ(file.size(), body + 10);
    const Bytes adif = Adif(8000, 40000 - file.size());
    file.insert(file.end(), adif.begin(), adif.end());
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.fileType, "AAC");
    EXPECT_EQ(r.record.durationMs, 40000u);  // the whole file's length
}

TEST(AacAdif, DurationProductWrapsLike32BitArithmetic) {
    // 2,200,000 bytes at 8 bit/s: 275000 * 8000 = 2.2e9 wraps to a negative
    // int; adding 0.5 and truncating gives -2094967295, i.e. 2200000001.
    const Loaded r = Load(Adif(8, 2200000));
    EXPECT_EQ(r.record.bitRate, 8u);
    EXPECT_EQ(r.record.durationMs, 2200000001u);
}

TEST(AacAdif, NotRecognisedOnceFramesWereCounted) {
    TempDir dir;
    const std::string adts = dir.write("a.aac", AdtsStream(Frame(372), 100));
    const std::string adif = dir.write("b.aac", Adif(8000, 40000));
    AacInfo reader;
    ASSERT_EQ(LoadWith(reader, adts).status, MFI_OK);
    const Loaded r = LoadWith(reader, adif);
    EXPECT_EQ(r.status, MFI_UNREADABLE);
    EXPECT_STREQ(r.record.fileType, "");
}

// --- files made by a real encoder ---

TEST(AacFixtures, ShortFfmpegStreamIsAShortFile) {
    AacInfo reader;
    const Loaded r = LoadWith(reader, Fixture("adts-short.aac"));
    EXPECT_EQ(r.status, MFI_SHORT_FILE);
    EXPECT_EQ(r.record.fileSize, 1930u);
    EXPECT_STREQ(r.record.title, "adts-short");
}

TEST(AacFixtures, MutatedFilesNeverCrash) {
    for (const char* name : {"adts-44k-stereo.aac", "adts-22k-mono-mpeg2.aac", "adts-44k-tagged.aac",
                             "adts-48k-6ch.aac"}) {
        SCOPED_TRACE(name);
        const Bytes seed = ReadAll(Fixture(name));
        ASSERT_FALSE(seed.empty());
        LoadMutants<AacInfo>(seed, 60, "m.aac");
    }
}

TEST(AacFixtures, MutatedAdifNeverCrashes) { LoadMutants<AacInfo>(Adif(8000, 3 * kBuffer, true, 0x10), 60, "m.aac"); }

// --- through the facade ---

TEST(AacFacade, AacExtensionLoadsThroughTheAacReader) {
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(Fixture("adts-44k-stereo.aac").c_str()), MFI_OK);
    EXPECT_EQ(facade.GetFileInfo()->bitRate, 64332u);
    EXPECT_STREQ(facade.GetFileInfo()->audioFormat, "MPEG Version 4");
    EXPECT_EQ(facade.IsAudio(), 1);
}

TEST(AacFacade, RefusedAacFallsBackToTheLenientAiffReader) {
    // The short file fails with 6; WAV refuses it and AIFF, tried before
    // AAC's turn would come again, lets it through with only its title.
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(Fixture("adts-short.aac").c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->title, "adts-short");
    EXPECT_EQ(facade.GetFileInfo()->sampleRate, 0u);
    EXPECT_EQ(facade.IsAudio(), 0);
}

TEST(AacFacade, MissingAacFileTriesEveryReader) {
    TempDir dir;
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(dir.file("gone.aac").c_str()), MFI_OPEN_FAILED);
}

}  // namespace
