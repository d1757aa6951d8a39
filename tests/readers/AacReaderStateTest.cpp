// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in AacReaderTest.cpp.

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

}  // namespace
