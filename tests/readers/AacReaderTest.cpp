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

namespace {

constexpr size_t kBuffer = AacInfo::kBufferSize;

// A load and the reader's frame counters after it.
struct Loaded : LoadResult {
    unsigned frames;
    unsigned totalBytes;
};

Loaded LoadWith(AacInfo& reader, const std::string& path) {
    Loaded out;
    static_cast<LoadResult&>(out) = ::LoadWith(reader, path);
    out.frames = reader.m_frameCount;
    out.totalBytes = reader.m_totalBytes;
    return out;
}

Loaded Load(const Bytes& bytes, const std::string& name = "clip.aac") {
    TempDir dir;
    AacInfo reader;
    return LoadWith(reader, dir.write(name, bytes));
}

AdtsFields Frame(unsigned length, unsigned rateIndex = 4, unsigned channels = 2) {
    AdtsFields s;
    s.length = length;
    s.rateIndex = rateIndex;
    s.channelConfig = channels;
    return s;
}

std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/aac/" + name; }

// --- ADTS ---

TEST(AacReader, ThousandFramesAt44100) {
    const Loaded r = Load(AdtsStream(Frame(372), 1000), "stream.aac");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 1000u);
    EXPECT_EQ(r.totalBytes, 372000u);
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_EQ(r.record.bitRate, 127972u);     // 8 * 372 * 43 + 4
    EXPECT_EQ(r.record.durationMs, 23000u);  // 1000 / 43 = 23 whole seconds
    EXPECT_STREQ(r.record.channelMode, "Stero");
    EXPECT_STREQ(r.record.audioFormat, "MPEG Version 4");
    EXPECT_STREQ(r.record.fileType, "");  // only the ADIF path names the type
    EXPECT_STREQ(r.record.title, "stream");
    EXPECT_EQ(r.record.fileSize, 372000u);
    EXPECT_EQ(r.record.frameRate, 0u);
    EXPECT_EQ(r.record.bitsPerSample, 0);
    EXPECT_EQ(r.isAudio, 1);
}

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

TEST(AacReader, ZeroLengthFrameFailsTheLoad) {
    Bytes file = AdtsStream(Frame(0, 3, 1), 1);
    file.resize(kBuffer, 0);
    TempDir dir;
    AacInfo reader;
    const Loaded r = LoadWith(reader, dir.write("bad.aac", file));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(reader.m_frameLength, 1u);
    EXPECT_EQ(r.frames, 0u);
    // The first header still named the channels, version and rate.
    EXPECT_STREQ(r.record.channelMode, "Mono");
    EXPECT_STREQ(r.record.audioFormat, "MPEG Version 4");
    EXPECT_EQ(r.record.sampleRate, 48000u);
    EXPECT_EQ(r.record.bitRate, 0u);
    EXPECT_STREQ(r.record.title, "bad");
    EXPECT_EQ(r.isAudio, 0);
}

TEST(AacReader, FrameLengthBoundIs4608) {
    Bytes longest = AdtsStream(Frame(4607), 3);
    const Loaded ok = Load(longest);
    EXPECT_EQ(ok.status, MFI_OK);
    EXPECT_EQ(ok.frames, 3u);
    Bytes tooLong = Join({AdtsStream(Frame(300), 2), AdtsHeader(Frame(4608))});
    tooLong.resize(2 * kBuffer, 0);
    EXPECT_EQ(Load(tooLong).status, MFI_NOT_THIS_FORMAT);
    Bytes maximal = Join({AdtsStream(Frame(300), 2), AdtsHeader(Frame(8191))});
    maximal.resize(2 * kBuffer, 0);
    EXPECT_EQ(Load(maximal).status, MFI_NOT_THIS_FORMAT);
}

TEST(AacReader, BadFrameAfterGoodOnesKeepsWhatTheyWrote) {
    Bytes file = Join({AdtsStream(Frame(372), 50), AdtsHeader(Frame(0))});
    file.resize(file.size() + kBuffer, 0);
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.frames, 50u);
    EXPECT_EQ(r.record.bitRate, 127972u);
    EXPECT_EQ(r.record.durationMs, 1000u);  // 50 / 43
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

TEST(AacReader, HeaderInTheLastSixBytesIsReadAfterMovingBack) {
    // Frames of 4602 bytes: the second header starts 6 bytes before the end
    // of the buffer, so the file is moved back 6 bytes and refilled.
    const Loaded r = Load(AdtsStream(Frame(4602), 3));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 3u);
    EXPECT_EQ(r.record.bitRate, 8u * 4602u * 43u + 4u);
    EXPECT_EQ(r.record.durationMs, 0u);  // 3 / 43 whole seconds
}

TEST(AacReader, FramesOfMixedLengthsAcrossRefills) {
    ByteWriter w;
    unsigned total = 0;
    for (unsigned i = 0; i < 400; ++i) {
        const unsigned length = 100 + (i * 37) % 700;
        w.bytes(AdtsFrame(Frame(length, 3, 2)));
        total += length;
    }
    const Loaded r = Load(w.take());
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 400u);
    EXPECT_EQ(r.totalBytes, total);
    EXPECT_EQ(r.record.bitRate, 8u * (total / 400u) * 46u + 4u);  // 48000 Hz: k = 46
    EXPECT_EQ(r.record.durationMs, 8000u);                        // 400 / 46
}

TEST(AacReader, JunkBetweenFramesIsSkippedBytewise) {
    const Bytes file = Join({Bytes(1000, 0x12), AdtsStream(Frame(372), 30), Bytes(77, 0x34),
                             AdtsStream(Frame(372), 30), Bytes(kBuffer, 0)});
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 60u);
    EXPECT_EQ(r.record.durationMs, 1000u);
}

TEST(AacReader, HeaderCutByTheEndOfTheDataReadsZerosBehindIt) {
    // A file of exactly one buffer whose last 4 bytes start a header: its
    // length bits beyond the data read as zero, leaving 1 << 11 = 2048.
    Bytes file = AdtsStream(Frame(460), 10);
    file.resize(kBuffer - 4, 0);
    const Bytes head = AdtsHeader(Frame(0x800 | 0x7FF));
    file.insert(file.end(), head.begin(), head.begin() + 4);
    ASSERT_EQ(file.size(), kBuffer);
    const Loaded r = Load(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 11u);
    EXPECT_EQ(r.totalBytes, 10u * 460u + 2048u);
}

TEST(AacReader, LeadingId3v2TagIsSkipped) {
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Tagged")};
    tag.padding = 500;
    const Loaded r = Load(Join({BuildId3v2(tag), AdtsStream(Frame(372), 1000)}), "v2.aac");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 1000u);
    EXPECT_EQ(r.record.bitRate, 127972u);
    EXPECT_EQ(r.record.durationMs, 23000u);
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

TEST(AacReader, TrailingId3v1TagIsWalkedOver) {
    Id3v1Fields v1;
    v1.title = "Tail";
    // Genre 255 is the file's last byte; the byte behind it in the buffer
    // is one left by the previous load (a zero payload byte here).
    const Loaded r = Load(Join({AdtsStream(Frame(372), 1000), BuildId3v1(v1)}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.frames, 1000u);
    EXPECT_EQ(r.record.bitRate, 127972u);
}

TEST(AacReader, ASecondLoadKeepsTheScanCounters) {
    TempDir dir;
    const std::string p = dir.write("twice.aac", AdtsStream(Frame(372), 1000));
    AacInfo reader;
    ASSERT_EQ(LoadWith(reader, p).status, MFI_OK);
    EXPECT_EQ(reader.m_bufferSize, 0u);  // the last refill found the end
    const Loaded r = LoadWith(reader, p);
    EXPECT_EQ(r.status, MFI_OK);
    // The stale buffer length makes the scan refill at once, from byte
    // 4608: the frames from the 13th on (at 4836) are counted again.
    EXPECT_EQ(r.frames, 1000u + 987u);
    // Frames are no longer first frames: no rate, texts or duration.
    EXPECT_EQ(r.record.sampleRate, 0u);
    EXPECT_STREQ(r.record.channelMode, "");
    EXPECT_STREQ(r.record.audioFormat, "");
    EXPECT_EQ(r.record.bitRate, 4u);
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_STREQ(r.record.title, "twice");
}

// --- GetInfo directly ---

TEST(AacGetInfo, RateBelow1024HzCountsNoWholeSecond) {
    AacInfo reader;
    reader.m_fileInfo = MediaFileInfoBase::NewZeroedRecord();
    reader.m_fileInfo->sampleRate = 1000;  // k = 1000 >> 10 = 0
    reader.m_fileInfo->durationMs = 5000;
    reader.m_frameCount = 1;  // not a first frame: the rate stays
    reader.m_totalBytes = 100;
    Bytes header = AdtsHeader(Frame(100));
    EXPECT_EQ(reader.GetInfo(header.data()), MFI_OK);
    EXPECT_EQ(reader.m_fileInfo->sampleRate, 1000u);
    EXPECT_EQ(reader.m_fileInfo->bitRate, 4u);
    EXPECT_EQ(reader.m_fileInfo->durationMs, 0u);
    EXPECT_EQ(reader.m_frameCount, 2u);
    EXPECT_EQ(reader.m_frameLength, 100u);
}

TEST(AacGetInfo, WithoutARecordNothingIsDecoded) {
    AacInfo reader;
    Bytes header = AdtsHeader(Frame(100));
    EXPECT_EQ(reader.GetInfo(header.data()), MFI_BAD_ARGUMENT);
    EXPECT_EQ(reader.m_frameCount, 0u);
}

// A stream whose every read fails: it never reaches its end.
struct FailingStream {
    static ssize_t Read(void*, char*, size_t) { return -1; }
    static FILE* Open() {
        cookie_io_functions_t io = {&Read, nullptr, nullptr, nullptr};
        return fopencookie(nullptr, "rb", io);
    }
};

TEST(AacReadFrame, ReadErrorEndsTheScan) {
    AacInfo reader;
    reader.m_fileInfo = MediaFileInfoBase::NewZeroedRecord();
    reader.m_file = FailingStream::Open();
    ASSERT_NE(reader.m_file, nullptr);
    reader.m_bufferSize = 0;
    Bytes buffer(AacInfo::kBufferAllocation, 0);
    EXPECT_EQ(reader.ReadFrame(buffer.data()), MFI_UNREADABLE);
    EXPECT_EQ(reader.m_bufferSize, 0u);
    fclose(reader.m_file);
    reader.m_file = nullptr;
}

// --- ADIF ---

// An ADIF file of `total` bytes.
Bytes Adif(uint32_t bitRate, size_t total, bool copyright = false, uint8_t copyrightFirstByte = 0) {
    AdifFields s;
    s.bitRate = bitRate;
    s.copyrightPresent = copyright;
    s.copyrightId[0] = copyrightFirstByte;
    return BuildAdif(s, total);
}

TEST(AacAdif, BitRateAndDurationFromTheFileLength) {
    const Loaded r = Load(Adif(8000, 40000), "adif.aac");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 8000u);
    EXPECT_EQ(r.record.durationMs, 40000u);  // 40000 / 8000 = 5, times 8000
    // The rate index is taken from bits of the bit-rate field (all zero): 96000.
    EXPECT_EQ(r.record.sampleRate, 96000u);
    EXPECT_STREQ(r.record.fileType, "AAC");
    EXPECT_STREQ(r.record.channelMode, "");
    EXPECT_STREQ(r.record.audioFormat, "");
    EXPECT_STREQ(r.record.title, "adif");
    EXPECT_EQ(r.isAudio, 0);
    EXPECT_EQ(r.frames, 0u);
}

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

struct FixtureCase {
    const char* name;
    unsigned fileSize, frames, totalBytes, sampleRate, bitRate, durationMs;
    const char* channelMode;
    const char* audioFormat;
};

TEST(AacFixtures, FfmpegAdtsStreams) {
    // Every file holds only whole ADTS frames; bit rate 8 * (total / frames)
    // * (rate >> 10) + 4, duration (frames / (rate >> 10)) whole seconds.
    const FixtureCase cases[] = {
        {"adts-44k-stereo.aac", 8447, 45, 8447, 44100, 64332, 1000, "Stero", "MPEG Version 4"},   // 187 * 43
        {"adts-22k-mono-mpeg2.aac", 7792, 23, 7792, 22050, 56788, 1000, "Mono", "MPEG Version 2"},  // 338 * 21
        {"adts-8k-mono.aac", 7289, 17, 7289, 8000, 23972, 2000, "Mono", "MPEG Version 4"},          // 428 * 7
        {"adts-48k-6ch.aac", 11448, 95, 11448, 48000, 44164, 2000, "Stero", "MPEG Version 4"},     // 120 * 46
    };
    for (const FixtureCase& c : cases) {
        AacInfo reader;
        const Loaded r = LoadWith(reader, Fixture(c.name));
        EXPECT_EQ(r.status, MFI_OK) << c.name;
        EXPECT_EQ(r.record.fileSize, c.fileSize) << c.name;
        EXPECT_EQ(r.frames, c.frames) << c.name;
        EXPECT_EQ(r.totalBytes, c.totalBytes) << c.name;
        EXPECT_EQ(r.record.sampleRate, c.sampleRate) << c.name;
        EXPECT_EQ(r.record.bitRate, c.bitRate) << c.name;
        EXPECT_EQ(r.record.durationMs, c.durationMs) << c.name;
        EXPECT_STREQ(r.record.channelMode, c.channelMode) << c.name;
        EXPECT_STREQ(r.record.audioFormat, c.audioFormat) << c.name;
        EXPECT_STREQ(r.record.fileType, "") << c.name;
        EXPECT_EQ(r.isAudio, 1) << c.name;
        EXPECT_EQ(reader.HasId3Info(), 0) << c.name;
    }
}

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
