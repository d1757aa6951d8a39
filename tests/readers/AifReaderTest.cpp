#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "AifInfo.h"
#include "AiffBuilder.h"
#include "MediaFileInfo.h"
#include "Mutation.h"
#include "ReaderLoad.h"
#include "TestFiles.h"
#include "AifReaderTestHelpers.h"

using namespace AifReaderTestHelpers;

namespace {

Loaded Load(const Bytes& bytes, const std::string& name = "clip.aif") { return LoadBytes<AifInfo>(bytes, name); }

// A chunk of any id whose data runs up to `end`, so that the next chunk
// starts exactly there.
AiffBuilder& FillTo(AiffBuilder& b, size_t end, const std::string& id = "JUNK") {
    const size_t data = end - b.size() - 8;
    return b.chunk(id, Bytes(data, 0x20));
}

std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/aiff/" + name; }

// --- status codes and the lenient form check ---

TEST(AifReader, SixteenBytesOrFewerAreAShortFile) {
    Bytes b = CdAudio(100).build();
    b.resize(16);
    const Loaded r = Load(b, "short.aif");
    EXPECT_EQ(r.status, MFI_SHORT_FILE);
    EXPECT_EQ(r.record.fileSize, 16u);
    // The name fallback belongs to the branch that walks the chunks.
    EXPECT_STREQ(r.record.title, "");
    EXPECT_EQ(Load(Bytes{}, "empty.aif").status, MFI_SHORT_FILE);
}

TEST(AifReader, SeventeenBytesAreWalked) {
    Bytes b = CdAudio(100).build();
    b.resize(17);
    const Loaded r = Load(b, "seventeen.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "seventeen");
    EXPECT_STREQ(r.record.fileType, "");  // the whole file is in the first load: no chunk is read
}

TEST(AifReader, NonAiffFileLoadsWithOnlyItsTitle) {
    Bytes junk(3000);
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<uint8_t>(i * 7 + 3);
    const Loaded r = Load(junk, "not-aiff.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "not-aiff");
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_STREQ(r.record.channelMode, "");
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_EQ(r.record.fileSize, 3000u);
    EXPECT_EQ(r.isAudio, 0);
}

TEST(AifReader, FormOfAnotherTypeLoadsWithOnlyItsTitle) {
    AiffBuilder b("AIFX");
    b.comm(2, 16, 44100.0).ssnd(0, 1000);
    const Loaded r = Load(b.build(), "other.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_STREQ(r.record.title, "other");
}

TEST(AifReader, AifcIsReadAndNamedAiff) {
    AiffBuilder b("AIFC");
    b.fver().comm(1, 8, Ext80(8000.0), 0, {'N', 'O', 'N', 'E', 0, 0}).ssnd(0, 16000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.fileType, "AIFF");
    EXPECT_STREQ(r.record.audioFormat, "Audio IFF");
    EXPECT_EQ(r.record.sampleRate, 8000u);
    EXPECT_EQ(r.record.bitRate, 64000u);
    // (16000 + 8) / 64000 * 8000 = 2001
    EXPECT_EQ(r.record.durationMs, 2001u);
}

TEST(AifReader, FileShorterThanOneBufferHasOnlyItsTitle) {
    AiffBuilder b;
    b.comm(2, 16, 44100.0).text("NAME", "Never read").ssnd(0, 400);
    ASSERT_LT(b.size(), kBuffer);
    const Loaded r = Load(b.build(), "small.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "small");
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_EQ(r.isAudio, 0);
    EXPECT_EQ(r.hasTags, 0);
}

TEST(AifReader, ZeroSizeChunkIsNotThisFormat) {
    AiffBuilder b;
    b.comm(1, 16, 8000.0).chunk("JUNK", 0, {}).ssnd(0, 100, kBuffer);
    const Loaded r = Load(b.build(), "zero.aif");
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    // What the chunks before it wrote stays, and the name fallback still runs.
    EXPECT_EQ(r.record.sampleRate, 8000u);
    EXPECT_STREQ(r.record.fileType, "AIFF");
    EXPECT_STREQ(r.record.title, "zero");
    EXPECT_EQ(r.record.durationMs, 0u);
}

TEST(AifReader, NegativeChunkSizeIsNotThisFormat) {
    AiffBuilder b;
    b.chunk("JUNK", 0x80000000u, {}).raw(kBuffer);
    EXPECT_EQ(Load(b.build()).status, MFI_NOT_THIS_FORMAT);
}

TEST(AifReader, AllOnesChunkSizeWarnsAndIsNotThisFormat) {
    AiffBuilder b;
    b.chunk("JUNK", 0xFFFFFFFFu, {}).raw(kBuffer);
    const Bytes file = b.build();
    testing::internal::CaptureStdout();
    const int status = Load(file).status;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadWord warning!\n");
    EXPECT_EQ(status, MFI_NOT_THIS_FORMAT);
}

TEST(AifReader, HandlerRunsBeforeItsZeroSizeIsRefused) {
    // A COMM claiming size 0 still has its fields read before the walk stops.
    AiffBuilder b;
    ByteWriter comm;
    comm.be16(1).be32(0).be16(8).bytes(Ext80(22050.0));
    b.chunk("COMM", 0, comm.take()).raw(kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.record.sampleRate, 22050u);
    EXPECT_STREQ(r.record.channelMode, "Mono");
}

TEST(AifReader, NullPathAndMissingFile) {
    AifInfo reader;
    EXPECT_EQ(reader.LoadFile(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
    TempDir dir;
    EXPECT_EQ(reader.LoadFile(dir.file("missing.aif").c_str()), MFI_OPEN_FAILED);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
    EXPECT_EQ(reader.ReadHeader(nullptr), MFI_BAD_ARGUMENT);
}

// --- COMM, SSND and the duration ---

TEST(AifReader, CdAudioTenSeconds) {
    // 1,764,008 bytes of SSND, offset 0: 1764008 / 1411200 * 8000 = 10000.04
    const Loaded r = Load(CdAudio(1764000).build(), "cd.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 1411200u);
    EXPECT_EQ(r.record.durationMs, 10000u);
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_EQ(r.record.bitsPerSample, 16);
    EXPECT_STREQ(r.record.channelMode, "Stero");
    EXPECT_STREQ(r.record.audioFormat, "Audio IFF");
    EXPECT_STREQ(r.record.fileType, "AIFF");
    EXPECT_STREQ(r.record.title, "cd");
    EXPECT_EQ(r.record.frameRate, 0u);
    EXPECT_EQ(r.isAudio, 1);
    EXPECT_EQ(r.hasTags, 0);
}

TEST(AifReader, SoundOffsetIsSubtractedButNotTheEightHeaderBytes) {
    // (8 + 1411200 - 8) bytes = exactly one second.
    EXPECT_EQ(Load(CdAudio(1411200, 8).build()).record.durationMs, 8000u);
    AiffBuilder b;
    b.comm(2, 16, 44100.0).ssnd(0, 1411200, kBuffer);
    EXPECT_EQ(Load(b.build()).record.durationMs, 8000u);  // 1411208 / 1411200 * 8000 = 8000.04
}

TEST(AifReader, SoundSizeEqualToItsOffsetGivesNoDuration) {
    const Loaded r = Load(CdAudio(0, 8).build());
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_EQ(r.isAudio, 1);
}

TEST(AifReader, OffsetBeyondTheSoundWrapsAround) {
    // 8 - 9 as unsigned 32-bit: 4294967295 bytes; / 1411200 * 8000 = 24347887.16
    EXPECT_EQ(Load(CdAudio(0, 9).build()).record.durationMs, 24347887u);
}

TEST(AifReader, DurationOfTwoToThe31MillisecondsKeepsItsTopBit) {
    // One channel, one bit, 4000 Hz: 0x7FFFFFF7 + 8 bytes = 4294967294 ms.
    AiffBuilder b;
    b.comm(1, 1, 4000.0).ssnd(0, 0x7FFFFFF7u, kBuffer);
    EXPECT_EQ(Load(b.build()).record.durationMs, 4294967294u);
}

TEST(AifReader, MonoAndMultichannelTexts) {
    AiffBuilder mono;
    mono.comm(1, 16, 44100.0).ssnd(0, 100, kBuffer);
    EXPECT_STREQ(Load(mono.build()).record.channelMode, "Mono");
    AiffBuilder six;
    six.comm(6, 16, 48000.0).ssnd(0, 100, kBuffer);
    const Loaded r = Load(six.build());
    EXPECT_STREQ(r.record.channelMode, "Stero");
    EXPECT_EQ(r.record.bitRate, 48000u * 16u * 6u);
}

TEST(AifReader, ZeroChannelsGiveNoTextAndNoDuration) {
    AiffBuilder b;
    b.comm(0, 16, 44100.0).ssnd(0, 1764000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.channelMode, "");
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_EQ(r.record.sampleRate, 44100u);
}

TEST(AifReader, ZeroSampleSizeGivesNoDuration) {
    AiffBuilder b;
    b.comm(2, 0, 44100.0).ssnd(0, 1764000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_STREQ(r.record.channelMode, "Stero");
}

TEST(AifReader, BitRateIsAnUnsigned32BitProduct) {
    AiffBuilder b;
    b.comm(2, 1, 3000000000.0).ssnd(0, 100, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.record.sampleRate, 3000000000u);  // 2^31 and more keep the top bit
    EXPECT_EQ(r.record.bitRate, static_cast<uint32_t>(6000000000ull));
}

TEST(AifReader, StoredRateBytesOf44100) {
    AiffBuilder b;
    b.comm(2, 16, Ext80(0x400E, 0xAC44ull << 48)).ssnd(0, 100, kBuffer);
    EXPECT_EQ(Load(b.build()).record.sampleRate, 44100u);
}

TEST(AifReader, NegativeStoredRateIsReadAsPositive) {
    AiffBuilder b;
    b.comm(2, 16, Ext80(0xC00E, 0xAC44ull << 48)).ssnd(0, 1764000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_EQ(r.record.durationMs, 10000u);
}

TEST(AifReader, NanRateGivesZero) {
    AiffBuilder b;
    b.comm(2, 16, Ext80(0x7FFF, 0xC000000000000000ull)).ssnd(0, 1764000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);  // no rate, no duration
    EXPECT_STREQ(r.record.fileType, "AIFF");
}

TEST(AifReader, InfiniteRateGivesZero) {
    // Exponent 0x7FFF reads as 0.0 (a set mantissa) or as 0 times 2^E: a
    // sample rate of 0, and so no duration.
    const Bytes rates[] = {Ext80(0x7FFF, 0x8000000000000000ull), Ext80(0x7FFF, 0)};
    for (const Bytes& rate : rates) {
        AiffBuilder b;
        b.comm(2, 16, rate).ssnd(0, 1764000, kBuffer);
        const Loaded r = Load(b.build());
        EXPECT_EQ(r.status, MFI_OK);
        EXPECT_EQ(r.record.sampleRate, 0u);
        EXPECT_EQ(r.record.bitRate, 0u);
        EXPECT_EQ(r.record.durationMs, 0u);
    }
}

TEST(AifReader, RateTooLargeForADoubleReadsAsTwoTo31WithoutBitRateOrDuration) {
    // The largest exponent overflows the double to infinity, which converts
    // to 2^31 Hz; times 16 bits times 2 channels the 32-bit bit rate wraps
    // to 0, and with no rate to divide by there is no duration.
    AiffBuilder b;
    b.comm(2, 16, Ext80(0x7FFE, 0x8000000000000000ull)).ssnd(0, 1764000, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.sampleRate, 2147483648u);
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_EQ(r.record.durationMs, 0u);
}

TEST(AifReader, FractionalRateIsTruncated) {
    AiffBuilder b;
    b.comm(1, 8, 8000.75).ssnd(0, 100, kBuffer);
    EXPECT_EQ(Load(b.build()).record.sampleRate, 8000u);
}

// --- Ext2dbl ---

ExtFloat_st Ext(const Bytes& b) {
    ExtFloat_st e;
    memcpy(&e, b.data(), sizeof e);
    return e;
}

TEST(AifExt2dbl, ConvertsStoredNumbers) {
    EXPECT_EQ(AifInfo::Ext2dbl(Ext({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0})), 44100.0);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(8000.0))), 8000.0);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0.5))), 0.5);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0, 0))), 0.0);
}

TEST(AifExt2dbl, SignIsDropped) {
    EXPECT_EQ(AifInfo::Ext2dbl(Ext({0xC0, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0})), 44100.0);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(-96000.0))), 96000.0);
}

TEST(AifExt2dbl, NanIsZero) {
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0x7FFF, 1))), 0.0);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0xFFFF, 0xC000000000000000ull))), 0.0);
    // The stored infinity has its integer bit set, so its significand is
    // not zero and it takes the NaN rule too.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0x7FFF, 0x8000000000000000ull))), 0.0);
}

TEST(AifExt2dbl, InfinityIsNotSpecialCased) {
    // Top exponent with a zero significand goes through the general rule:
    // zero times 2^16321 is zero.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0x7FFF, 0))), 0.0);
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0xFFFF, 0))), 0.0);
    // Finite numbers beyond the range of a double come out infinite.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0x7FFE, 0x8000000000000000ull))),
              std::numeric_limits<double>::infinity());
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0xFFFE, 0x8000000000000000ull))),
              std::numeric_limits<double>::infinity());
}

TEST(AifExt2dbl, FullSignificandRoundsItsLowestBit) {
    // All 64 significand bits set, exponent 63: 2^64 - 1, which rounds to 2^64.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(16383 + 63, 0xFFFFFFFFFFFFFFFFull))), std::ldexp(1.0, 64));
    // Without its top bit the significand converts directly.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(16383 + 63, 0x0000000000000005ull))), 5.0);
}

TEST(AifExt2dbl, TinyNumbersUnderflowWithoutSpecialCases) {
    // Exponent field 0 with the integer bit set is 2^-16383: far below the
    // smallest double, so it comes out 0.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(0, 0x8000000000000000ull))), 0.0);
    // The smallest normal double is still reached.
    EXPECT_EQ(AifInfo::Ext2dbl(Ext(Ext80(16383 - 1022, 0x8000000000000000ull))), std::ldexp(1.0, -1022));
}

// --- texts ---

TEST(AifReader, NameAuthAnnoFillTitleArtistComment) {
    AiffBuilder b;
    b.text("NAME", "Song").text("AUTH", "Band").text("ANNO", "Note").comm(2, 16, 44100.0).ssnd(0, 100, kBuffer);
    const Loaded r = Load(b.build(), "file.aif");
    EXPECT_STREQ(r.record.title, "Song");
    EXPECT_STREQ(r.record.artist, "Band");
    EXPECT_STREQ(r.record.comment, "Note");
    EXPECT_EQ(r.hasTags, 1);
    EXPECT_EQ(r.isAudio, 1);
    AifInfo reader;
    MediaFileInfo_st tags;
    EXPECT_EQ(reader.SetId3Info(&tags), 0);  // AIFF texts are read-only
}

TEST(AifReader, LaterTextChunkReplacesEarlierOne) {
    AiffBuilder b;
    b.text("ANNO", "first").text("ANNO", "second").raw(kBuffer);
    EXPECT_STREQ(Load(b.build()).record.comment, "second");
}

TEST(AifReader, TextEndsAtItsFirstZeroByte) {
    AiffBuilder b;
    b.text("NAME", std::string("Tone\0junk", 9)).comm(1, 8, 8000.0).raw(kBuffer);
    EXPECT_STREQ(Load(b.build()).record.title, "Tone");
}

TEST(AifReader, LongTextIsCutTo127Characters) {
    AiffBuilder b;
    b.text("AUTH", std::string(300, 'a')).comm(1, 8, 8000.0).raw(kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(std::string(r.record.artist), std::string(127, 'a'));
    EXPECT_EQ(r.record.sampleRate, 8000u);
}

TEST(AifReader, EmptyNameIsAZeroSizeChunk) {
    AiffBuilder b;
    b.text("NAME", "").raw(kBuffer);
    const Loaded r = Load(b.build(), "unnamed.aif");
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.hasTags, 1);
    EXPECT_STREQ(r.record.title, "unnamed");
}

TEST(AifReader, NameLongerThanTheBufferCopiesOnlyWhatTheBufferHolds) {
    // NAME at index 900 claims 5000 bytes; its data starts at 908, so the
    // buffer holds 116 of them (the file has 300 'x' there).
    AiffBuilder b;
    FillTo(b, 900);
    b.chunk("NAME", 5000, Bytes(300, 'x')).raw(2 * kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(std::string(r.record.title), std::string(116, 'x'));
}

TEST(AifReader, PadByteAfterAnOddChunkIsNotSkipped) {
    // NAME "abc" and its pad byte: the walk reads the next chunk one byte
    // early ("\0COM", size 0x4D000000) and jumps past the end of the file.
    AiffBuilder b;
    b.text("NAME", "abc").raw(1).comm(2, 16, 44100.0).ssnd(0, 100, kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "abc");
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_STREQ(r.record.fileType, "");
}

TEST(AifReader, VersionChunkChangesNothing) {
    AiffBuilder b("AIFC");
    b.fver(0xFFFFFFFFu).comm(1, 16, 8000.0).ssnd(0, 100, kBuffer);
    testing::internal::CaptureStdout();
    const Loaded r = Load(b.build());
    // The timestamp is read like every 32-bit field, warning included.
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadWord warning!\n");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.sampleRate, 8000u);
}

// --- the walk through buffer loads ---

TEST(AifReader, ChunkInTheLastHundredBytesIsReadAfterMovingBack) {
    // AUTH starts 74 bytes before the end of the first load: the file is
    // moved back by 74 bytes (a signed move) and the buffer refilled there.
    AiffBuilder b;
    b.comm(1, 16, 8000.0);
    FillTo(b, kBuffer - 74);
    b.text("AUTH", "Back").ssnd(0, 16000, 2 * kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.artist, "Back");
    EXPECT_EQ(r.record.durationMs, 1000u);  // 16008 / 128000 * 8000 = 1000.5
}

TEST(AifReader, ChunkJustBeforeTheMarginIsReadInTheSameLoad) {
    // Index 923 is still below 1024 - 100: read in place.
    AiffBuilder b;
    b.comm(1, 16, 8000.0);
    FillTo(b, kBuffer - 101);
    b.text("ANNO", "Here").ssnd(0, 16000, kBuffer);
    EXPECT_STREQ(Load(b.build()).record.comment, "Here");
}

TEST(AifcCrossingRefills, ChunksInLaterLoadsAreRead) {
    // FVER and COMM in the first load, a big ANNO, then NAME and SSND
    // about 3000 bytes into the file.
    AiffBuilder b("AIFC");
    b.fver().comm(2, 24, Ext80(96000.0), 0, {'N', 'O', 'N', 'E', 0, 0});
    b.chunk("ANNO", Bytes(2900, 'c'));
    b.text("NAME", "Later").ssnd(0, 576000 * 2, 2 * kBuffer);
    const Bytes file = b.build();
    ASSERT_GT(file.size(), 3 * kBuffer);
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Later");
    EXPECT_EQ(std::string(r.record.comment), std::string(127, 'c'));
    EXPECT_EQ(r.record.sampleRate, 96000u);
    EXPECT_EQ(r.record.bitRate, 4608000u);
    // (1152000 + 8) / 4608000 * 8000 = 2000.01
    EXPECT_EQ(r.record.durationMs, 2000u);
}

TEST(AifReader, ChunksInTheLastPartialLoadAreNotRead) {
    // NAME starts at 1000: read only with a refill, which reaches the end
    // of the 1500-byte file and stops the walk.
    AiffBuilder b;
    b.comm(1, 16, 8000.0);
    FillTo(b, 1000);
    b.text("NAME", "Lost");
    b.raw(1500 - b.size());
    const Loaded r = Load(b.build(), "partial.aif");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "partial");
    EXPECT_EQ(r.record.sampleRate, 8000u);
    EXPECT_EQ(r.hasTags, 0);
}

TEST(AifReader, HugeChunkSizeEndsTheWalkPastTheEnd) {
    AiffBuilder b;
    b.comm(1, 16, 8000.0).chunk("JUNK", 0x7FFFFFFFu, {}).raw(kBuffer);
    const Loaded r = Load(b.build());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.sampleRate, 8000u);
}

// --- files made by real encoders ---

struct AiffCase {
    const char* name;
    unsigned fileSize, sampleRate, bitsPerSample, bitRate, durationMs;
    const char* channelMode;
    const char* title;
    const char* artist;
    const char* comment;
};

TEST(AifFixtures, FilesMadeBySoxAndFfmpeg) {
    // Duration: SSND size / (rate * bits * channels) * 8000, truncated.
    const AiffCase cases[] = {
        // COMT (not read), COMM, SSND 8008: 8008 / 128000 * 8000 = 500.5
        {"sox-mono-8k.aif", 8088, 8000, 16, 128000, 500, "Mono", "sox-mono-8k", "", ""},
        // FVER, COMM with "NONE", SSND 11032: 11032 / 352800 * 8000 = 250.16
        {"sox-stereo-22k.aifc", 11110, 22050, 8, 352800, 250, "Stero", "sox-stereo-22k", "", ""},
        // SSND 26468: 26468 / 2116800 * 8000 = 100.03
        {"sox-stereo-44k-24bit.aif", 26548, 44100, 24, 2116800, 100, "Stero", "sox-stereo-44k-24bit", "", ""},
        // NAME, AUTH, ANNO before COMM; SSND 22060: 22060 / 352800 * 8000 = 500.23
        {"ffmpeg-tagged-11k.aif", 22162, 11025, 16, 352800, 500, "Stero", "Tuning Tone", "Test Lab", "A4 reference"},
        // FVER, COMM with "fl32"; SSND 19208: 19208 / 512000 * 8000 = 300.13
        {"ffmpeg-float-16k.aifc", 19272, 16000, 32, 512000, 300, "Mono", "ffmpeg-float-16k", "", ""},
    };
    for (const AiffCase& c : cases) {
        AifInfo reader;
        const Loaded r = LoadWith(reader, Fixture(c.name));
        EXPECT_EQ(r.status, MFI_OK) << c.name;
        EXPECT_EQ(r.record.fileSize, c.fileSize) << c.name;
        EXPECT_EQ(r.record.sampleRate, c.sampleRate) << c.name;
        EXPECT_EQ(r.record.bitsPerSample, c.bitsPerSample) << c.name;
        EXPECT_EQ(r.record.bitRate, c.bitRate) << c.name;
        EXPECT_EQ(r.record.durationMs, c.durationMs) << c.name;
        EXPECT_STREQ(r.record.channelMode, c.channelMode) << c.name;
        EXPECT_STREQ(r.record.fileType, "AIFF") << c.name;
        EXPECT_STREQ(r.record.audioFormat, "Audio IFF") << c.name;
        EXPECT_STREQ(r.record.title, c.title) << c.name;
        EXPECT_STREQ(r.record.artist, c.artist) << c.name;
        EXPECT_STREQ(r.record.comment, c.comment) << c.name;
        EXPECT_EQ(r.hasTags, c.artist[0] != '\0' ? 1 : 0) << c.name;
        EXPECT_EQ(r.isAudio, 1) << c.name;
    }
}

TEST(AifFixtures, SoxTinyFileHasOnlyItsTitle) {
    AifInfo reader;
    const Loaded r = LoadWith(reader, Fixture("sox-tiny.aif"));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.fileSize, 488u);
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_STREQ(r.record.title, "sox-tiny");
    EXPECT_EQ(r.isAudio, 0);
}

TEST(AifFixtures, MutatedFilesNeverCrash) {
    for (const char* name : {"sox-mono-8k.aif", "sox-stereo-22k.aifc", "ffmpeg-tagged-11k.aif",
                             "ffmpeg-float-16k.aifc"}) {
        SCOPED_TRACE(name);
        const Bytes seed = ReadAll(Fixture(name));
        ASSERT_FALSE(seed.empty());
        for (int status : LoadMutants<AifInfo>(seed, 75, "m.aif")) EXPECT_NE(status, MFI_UNREADABLE);
    }
}

// --- through the facade ---

TEST(AifFacade, AifExtensionLoadsThroughTheAiffReader) {
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(Fixture("ffmpeg-tagged-11k.aif").c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "AIFF");
    EXPECT_EQ(facade.HasId3Info(), 1);
    EXPECT_EQ(facade.IsAudio(), 1);
    EXPECT_EQ(facade.SetId3Info(facade.GetFileInfo()), 0);
}

TEST(AifFacade, AiffNamedWavIsFoundByFallingBack) {
    TempDir dir;
    const std::string p = dir.write("misnamed.wav", ReadAll(Fixture("sox-mono-8k.aif")));
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "AIFF");
    EXPECT_EQ(facade.GetFileInfo()->durationMs, 500u);
}

TEST(AifFacade, AnyFileRefusedBeforeItIsAcceptedByTheAiffReader) {
    TempDir dir;
    const std::string p = dir.write("noise.wav", Bytes(2000, 0x5A));
    MediaFileInfo facade;
    EXPECT_EQ(facade.LoadFile(p.c_str()), MFI_OK);
    EXPECT_STREQ(facade.GetFileInfo()->fileType, "");
    EXPECT_STREQ(facade.GetFileInfo()->title, "noise");
    EXPECT_EQ(facade.IsAudio(), 0);
}

}  // namespace

namespace {

// On a pipe the refill's seek fails, so every refill reads on from where
// the last read stopped, and the walk goes on to the end of the data.

TEST(AifReader, PipeIsWalkedToItsEnd) {
    ByteWriter w;
    w.str("FORM").be32(0).str("AIFF");
    w.str("COMM").be32(18).be16(2).be32(0).be16(16).bytes(Ext80(44100.0));
    w.str("APPL").be32(1000).fill(1000, 0);  // the next chunk lies past the margin
    // The first refill reads file bytes 1024..2047: a chunk header at 1024.
    Bytes b = w.take();
    const Bytes second = ByteWriter().str("APPL").be32(1000).take();
    std::copy(second.begin(), second.end(), b.begin() + 1024);
    b.resize(2048, 0);
    // The second refill reads from 2048: the sound data's header. Its block
    // must not be the last one (chunks of the last, partial load are not
    // handled), so a fourth block follows with one chunk running past it.
    const Bytes ssnd = ByteWriter().str("SSND").be32(1764008).be32(0).be32(0).take();
    b.insert(b.end(), ssnd.begin(), ssnd.end());
    b.resize(3072, 0);
    const Bytes last = ByteWriter().str("APPL").be32(2000).fill(1016, 0).take();
    b.insert(b.end(), last.begin(), last.end());

    TempDir dir;
    const std::string fifo = dir.file("piped.aif");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        FILE* out = fopen(fifo.c_str(), "wb");
        if (out != nullptr) {
            fwrite(b.data(), 1, b.size(), out);
            fclose(out);
        }
        _exit(0);
    }
    AifInfo reader;
    const int status = reader.LoadFile(fifo.c_str());
    waitpid(writer, nullptr, 0);
    EXPECT_EQ(status, MFI_OK);
    EXPECT_EQ(reader.GetFileInfo()->sampleRate, 44100u);
    // 1764008 / (44100 * 16 * 2) * 8000, truncated.
    EXPECT_EQ(reader.GetFileInfo()->durationMs, 10000u);
}

}  // namespace
