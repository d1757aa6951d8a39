// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in Mp3ReaderTest.cpp.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "Id3Info.h"
#include "Mp3Info.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "Mp3ReaderTestHelpers.h"

using namespace Mp3ReaderTestHelpers;

namespace {

// A reader that owns a fresh record, for decoding headers directly.
struct DecodingReader : Mp3Info {
    DecodingReader() { m_fileInfo = NewConstructedRecord(); }
};

// `count` CD frames at `offset` (zeros before them) in a file of exactly
// `size` bytes: zeros after them, or the last frames cut.
Bytes CdStreamAt(size_t offset, int count, size_t size) {
    ByteWriter w;
    w.fill(offset).bytes(Mp3Frames(Cd128(), kCdFrame, count));
    Bytes b = w.take();
    b.resize(size);
    return b;
}

// ---- Header decoding -------------------------------------------------------

TEST(Mp3Reader, Mpeg1Layer3At128kAnd44100HzIs417BytesOr418WithPadding) {
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 417);
    EXPECT_EQ(r.m_versionId, 3u);
    EXPECT_EQ(r.m_layer, 3u);
    EXPECT_EQ(r.m_fileInfo->sampleRate, 44100u);
    EXPECT_EQ(r.m_fileInfo->bitRate, 128000u);
    EXPECT_STREQ(r.m_fileInfo->audioFormat, "MPEG Version 1");
    Mp3Header padded = Cd128();
    padded.padding = 1;
    EXPECT_EQ(r.GetInfo(HeaderWord(padded)), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 418);
}

TEST(Mp3Reader, Mpeg2Layer3At64kAnd22050HzIs208Bytes) {
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg2, 3, 8, 0))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 208);  // 144000 * 64 / 44100
    EXPECT_EQ(r.m_fileInfo->sampleRate, 22050u);
    EXPECT_EQ(r.m_fileInfo->bitRate, 64000u);
    EXPECT_STREQ(r.m_fileInfo->audioFormat, "MPEG Version 2");
}

TEST(Mp3Reader, Mpeg25Layer3UsesTheLowestRates) {
    DecodingReader r;
    // 8 kbit/s at 8000 Hz: 144000 * 8 / 16000 = 72.
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg25, 3, 1, 2))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 72);
    EXPECT_EQ(r.m_fileInfo->sampleRate, 8000u);
    EXPECT_EQ(r.m_fileInfo->bitRate, 8000u);
    EXPECT_EQ(r.m_versionId, 0u);
    EXPECT_STREQ(r.m_fileInfo->audioFormat, "MPEG Version 2.5");
}

TEST(Mp3Reader, Mpeg1Layer1At448kAnd32000HzIs672Bytes) {
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 1, 14, 2))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 672);  // (12000 * 448 / 32000 + 0) * 4
    EXPECT_EQ(r.m_layer, 1u);
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 1, 14, 2, 1))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 676);  // the padding is one 4-byte slot
}

TEST(Mp3Reader, Mpeg1Layer2At384kAnd32000HzIs1728AndRejected) {
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 2, 14, 2))), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameLength, 0);
    // Written before the length check.
    EXPECT_EQ(r.m_fileInfo->sampleRate, 32000u);
    EXPECT_EQ(r.m_fileInfo->bitRate, 384000u);
}

TEST(Mp3Reader, Mpeg1Layer3At320kAnd32000HzIs1440AndRejected) {
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 3, 14, 2))), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameLength, 0);
    EXPECT_EQ(r.m_fileInfo->bitRate, 320000u);
}

TEST(Mp3Reader, Layer2LengthIsTheSameForEveryVersion) {
    DecodingReader r;
    // MPEG 2 Layer II at 160 kbit/s, 24000 Hz: 144000 * 160 / 24000 = 960.
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg2, 2, 14, 1))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 960);
    // MPEG 1 Layer II at 192 kbit/s, 48000 Hz: 576.
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 2, 10, 1))), MFI_OK);
    EXPECT_EQ(r.m_frameLength, 576);
}

TEST(Mp3Reader, FreeFormatIsRejectedBeforeTheRecordIsTouched) {
    DecodingReader r;
    ASSERT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_OK);
    r.m_fileInfo->sampleRate = 1;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 3, 0, 1))), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_fileInfo->sampleRate, 1u);
    // A valid length from an earlier frame is kept by this early refusal.
    EXPECT_EQ(r.m_frameLength, 417);
    r.m_frameLength = 5000;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 3, 0, 1))), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameLength, 0);
}

TEST(Mp3Reader, ReservedSampleRateDecodedDirectlyRunsIntoTheNextRow) {
    // The frame search never passes sample-rate field 3 on. Decoded
    // directly, MPEG 1 takes the first MPEG 2 rate; MPEG 2.5 runs off the
    // table and is refused before the record is touched.
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 3, 9, 3))), MFI_OK);
    EXPECT_EQ(r.m_fileInfo->sampleRate, 22050u);
    EXPECT_EQ(r.m_frameLength, 835);  // 144000 * 128 / 22050
    r.m_fileInfo->sampleRate = 0;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpeg25, 3, 9, 3))), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_fileInfo->sampleRate, 0u);
    EXPECT_EQ(r.m_frameLength, 835);
}

TEST(Mp3Reader, WithoutARecordNothingIsDecoded) {
    Mp3Info r;
    r.m_frameLength = 417;
    EXPECT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_UNREADABLE);
    EXPECT_EQ(r.m_frameLength, 417);
    EXPECT_EQ(r.m_layer, 0u);
    r.m_frameLength = 0;
    EXPECT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_NOT_THIS_FORMAT);
    r.m_frameLength = 1281;
    EXPECT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameLength, 0);
}

TEST(Mp3Reader, EveryChannelModeIsRecordedAsStero) {
    for (unsigned mode : {kStereo, kJointStereo, kDualChannel, kMono}) {
        DecodingReader r;
        Mp3Header h = Cd128();
        h.channelMode = mode;
        ASSERT_EQ(r.GetInfo(HeaderWord(h)), MFI_OK);
        EXPECT_STREQ(r.m_fileInfo->channelMode, "Stero") << "channel mode " << mode;
    }
}

TEST(Mp3Reader, ReservedVersionDecodedDirectlyIsNamedUnknow) {
    // The frame search never passes version 1 on; decoded directly it takes
    // the MPEG 2.5 sample rates and the MPEG 2 tables.
    DecodingReader r;
    EXPECT_EQ(r.GetInfo(HeaderWord(Header(kMpegReserved, 3, 8, 0))), MFI_OK);
    EXPECT_STREQ(r.m_fileInfo->audioFormat, "Unknow");
    EXPECT_EQ(r.m_fileInfo->sampleRate, 11025u);
    EXPECT_EQ(r.m_frameLength, 417);  // 144000 * 64 / 22050
}

TEST(Mp3Reader, LayerFieldZeroDecodedDirectlyHasNoLength) {
    DecodingReader r;
    Mp3Header h = Header(kMpeg2, 3, 8, 0);
    h.rawLayerField = true;
    h.layerField = 0;
    EXPECT_EQ(r.GetInfo(HeaderWord(h)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_layer, 4u);
    EXPECT_EQ(r.m_frameLength, 0);
    EXPECT_EQ(r.m_fileInfo->bitRate, 0u);  // beyond the bit-rate table
    EXPECT_EQ(r.GetDuration(), 0);         // and beyond the samples table
}

TEST(Mp3Reader, ConstructorSetsTheReadSizeAndClearsTheCounters) {
    Mp3Info r;
    EXPECT_EQ(r.m_bufferSize, 4096u);
    EXPECT_EQ(r.m_frameLength, 0);
    EXPECT_EQ(r.m_frameCount, 0);
    EXPECT_EQ(r.m_vbrFrameCounter, 0);
    EXPECT_EQ(r.m_bufferPos, 0u);
    EXPECT_EQ(r.m_isVbr, 0);
    EXPECT_EQ(r.m_id3, nullptr);
    EXPECT_EQ(r.GetFileInfo(), nullptr);
    EXPECT_EQ(r.HasId3Info(), 0);
    EXPECT_EQ(r.SetId3Info(nullptr), 0);
}

// ---- Duration --------------------------------------------------------------

TEST(Mp3Reader, DurationFollowsVersionAndLayer) {
    DecodingReader r;
    ASSERT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_OK);
    r.m_frameCount = 2408;
    EXPECT_EQ(r.GetDuration(), 62902);  // 2408 * 1152 / 44100 * 1000
    ASSERT_EQ(r.GetInfo(HeaderWord(Header(kMpeg2, 3, 8, 0))), MFI_OK);
    r.m_frameCount = 100;
    EXPECT_EQ(r.GetDuration(), 2612);  // 100 * 576 / 22050 * 1000
    ASSERT_EQ(r.GetInfo(HeaderWord(Header(kMpeg1, 1, 14, 2))), MFI_OK);
    EXPECT_EQ(r.GetDuration(), 1200);  // 100 * 384 / 32000 * 1000
    r.m_fileInfo->sampleRate = 0;
    EXPECT_EQ(r.GetDuration(), 0);
    r.m_fileInfo->sampleRate = 32000;
    r.m_versionId = 1;
    EXPECT_EQ(r.GetDuration(), 0);  // no samples per frame for the reserved version
}

TEST(Mp3Reader, DurationProductWrapsAsA32BitValue) {
    DecodingReader r;
    ASSERT_EQ(r.GetInfo(HeaderWord(Cd128())), MFI_OK);
    r.m_frameCount = 2000000;  // * 1152 = 2304000000, past 2^31: -1990967296
    EXPECT_EQ(r.GetDuration(), -45146650);
    r.m_frameCount = -1;
    EXPECT_EQ(r.GetDuration(), -26);  // -1152 / 44100 * 1000 = -26.1
}

// ---- Files: status codes ---------------------------------------------------

TEST(Mp3Reader, FileOf4095BytesIsTooShort) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, CdStreamAt(0, 9, kRead - 1)), MFI_SHORT_FILE);
    EXPECT_EQ(r.GetFileInfo()->fileSize, 4095u);
    EXPECT_EQ(r.m_bufferSize, 4095u);
    EXPECT_EQ(r.IsAudio(), 0);
}

TEST(Mp3Reader, FiveConstantRateFramesAreTooFew) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, CdStreamAt(0, 5, kRead)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 10);  // each frame counts twice
    // The record keeps what the scan wrote, without type or title.
    EXPECT_EQ(r.GetFileInfo()->sampleRate, 44100u);
    EXPECT_STREQ(r.GetFileInfo()->fileType, "");
    EXPECT_STREQ(r.GetFileInfo()->title, "");
    EXPECT_EQ(r.IsAudio(), 0);
}

TEST(Mp3Reader, FileWithoutSyncIsNotThisFormat) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, PadTo({}, 3 * kRead, 0x55)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 0);
    EXPECT_EQ(r.GetFileInfo()->fileSize, 3 * kRead);
}

TEST(Mp3Reader, FreeFormatFileYieldsNoFrames) {
    TempDir dir;
    Mp3Info r;
    ByteWriter w;
    w.bytes(Mp3Frames(Header(kMpeg1, 3, 0, 0), kCdFrame, 30));
    EXPECT_EQ(Load(r, dir, PadTo(w.take(), 3 * kRead)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 0);
    EXPECT_EQ(r.GetFileInfo()->sampleRate, 0u);
}

TEST(Mp3Reader, FramesOf1440BytesYieldNoFrames) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, PadTo(Mp3Frames(Header(kMpeg1, 3, 14, 2), 1440, 20), 30000)),
              MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 0);
    EXPECT_EQ(r.m_frameLength, 0);
}

TEST(Mp3Reader, FramesOf1728BytesYieldNoFrames) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, PadTo(Mp3Frames(Header(kMpeg1, 2, 14, 2), 1728, 20), 40000)),
              MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 0);
}

// ---- Files: constant rate --------------------------------------------------

TEST(Mp3Reader, ConstantRateCountIsEstimatedFromTheFileSize) {
    TempDir dir;
    Mp3Info r;
    // The sixth frame is accepted within the first 4096 bytes; 1,000,000
    // bytes follow the end of that read.
    ASSERT_EQ(Load(r, dir, CdStreamAt(0, 9, kRead + 1000000), "Take Five.mp3"), MFI_OK);
    EXPECT_EQ(r.m_audioStart, 4096u);
    EXPECT_EQ(r.m_frameCount, 2408);  // 1000000 / 417 + 10
    const MediaFileInfo_st* f = r.GetFileInfo();
    EXPECT_EQ(f->durationMs, 62902u);  // 2408 * 1152 / 44100 * 1000
    EXPECT_EQ(f->bitRate, 128000u);
    EXPECT_EQ(f->sampleRate, 44100u);
    EXPECT_EQ(f->fileSize, 1004096u);
    EXPECT_STREQ(f->fileType, "MP3");
    EXPECT_STREQ(f->audioFormat, "MPEG Version 1");
    EXPECT_STREQ(f->channelMode, "Stero");
    EXPECT_STREQ(f->title, "Take Five");
    EXPECT_EQ(f->isVbr, 0u);
    EXPECT_EQ(f->frameRate, 0u);
    EXPECT_EQ(f->trackNumber, 0);
    EXPECT_EQ(r.m_isVbr, 0);
    EXPECT_EQ(r.IsAudio(), 1);
    EXPECT_EQ(r.IsVideo(), 0);
    EXPECT_EQ(r.HasId3Info(), 0);
}

struct ConstantRateCase {
    const char* what;
    Mp3Header header;
    size_t frameLength;
    int frames;
    int count;            // 50000 bytes after the first read / frame length + 10
    unsigned durationMs;  // count * samples per frame / rate * 1000
    unsigned bitRate, sampleRate;
    const char* audioFormat;
};

TEST(Mp3Reader, ConstantRateFilesOfEveryVersionAndLayer) {
    const ConstantRateCase cases[] = {
        // 250 * 576 / 22050 * 1000
        {"MPEG 2 Layer III", Header(kMpeg2, 3, 8, 0), 208, 10, 250, 6530, 64000, 22050, "MPEG Version 2"},
        // 32 kbit/s: 144000 * 32 / 22050 = 208; 250 * 576 / 11025 * 1000
        {"MPEG 2.5 Layer III", Header(kMpeg25, 3, 4, 0), 208, 10, 250, 13061, 32000, 11025, "MPEG Version 2.5"},
        // 50000 / 672 + 10 = 84; 84 * 384 / 32000 * 1000
        {"MPEG 1 Layer I", Header(kMpeg1, 1, 14, 2), 672, 6, 84, 1008, 448000, 32000, "MPEG Version 1"},
        // 50000 / 576 + 10 = 96; 96 * 1152 / 48000 * 1000
        {"MPEG 1 Layer II", Header(kMpeg1, 2, 10, 1), 576, 7, 96, 2304, 192000, 48000, "MPEG Version 1"},
    };
    for (const ConstantRateCase& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        Mp3Info r;
        ASSERT_EQ(Load(r, dir, PadTo(Mp3Frames(c.header, c.frameLength, c.frames), kRead + 50000)), MFI_OK);
        EXPECT_EQ(r.m_frameCount, c.count);
        EXPECT_EQ(r.GetFileInfo()->durationMs, c.durationMs);
        EXPECT_EQ(r.GetFileInfo()->bitRate, c.bitRate);
        EXPECT_EQ(r.GetFileInfo()->sampleRate, c.sampleRate);
        EXPECT_STREQ(r.GetFileInfo()->audioFormat, c.audioFormat);
    }
}

TEST(Mp3Reader, EstimateUsesTheSixthFramesLength) {
    TempDir dir;
    ByteWriter w;
    Mp3Header padded = Cd128();
    padded.padding = 1;
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 5)).bytes(Mp3Frame(padded, 418)).bytes(Mp3Frames(Cd128(), kCdFrame, 2));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), kRead + 41800)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 110);  // 41800 / 418 + 10
}

TEST(Mp3Reader, JunkAfterAFrameTakesTheFrameBack) {
    // Junk after the first and second frames takes both back: six frames
    // then count 2 - 1 + 2 - 1 + 2 + 2 + 2 + 2 = 10, too few.
    auto build = [](int frames) {
        ByteWriter w;
        w.bytes(Mp3Frame(Cd128(), kCdFrame)).u8(0).bytes(Mp3Frame(Cd128(), kCdFrame)).u8(0);
        w.bytes(Mp3Frames(Cd128(), kCdFrame, frames - 2));
        return PadTo(w.take(), kRead + 41700);
    };
    TempDir dir;
    Mp3Info six;
    EXPECT_EQ(Load(six, dir, build(6)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(six.m_frameCount, 10);
    Mp3Info seven;
    ASSERT_EQ(Load(seven, dir, build(7)), MFI_OK);
    EXPECT_EQ(seven.m_frameCount, 110);  // 41700 / 417 + 10
}

TEST(Mp3Reader, JunkBeforeTheFirstFrameTakesNothingBack) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, CdStreamAt(100, 6, kRead + 41700)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 110);
}

TEST(Mp3Reader, FrameStraddlingTheRefillIsFollowedIntoTheNextRead) {
    TempDir dir;
    Mp3Info r;
    // Frames at 3000, 3417, 3834 (runs to 4251), 4251, ...: after the third
    // the file moves forward to 4251 and reads from there, so the sixth
    // frame is accepted in a buffer that ends at 4251 + 4096 = 8347.
    ASSERT_EQ(Load(r, dir, CdStreamAt(3000, 8, 8347 + 41700 + 416)), MFI_OK);
    EXPECT_EQ(r.m_audioStart, 8347u);
    EXPECT_EQ(r.m_frameCount, 110);
    EXPECT_EQ(r.m_shortStream, 0);
}

TEST(Mp3Reader, FirstFrameNearTheBufferEndIsReadAgainFromItsStart) {
    TempDir dir;
    Mp3Info r;
    // 3900 + 417 reaches past 4092: the file goes back to 3900 and reads
    // 4096 bytes from there, in which all six frames lie.
    ASSERT_EQ(Load(r, dir, CdStreamAt(3900, 6, 7996 + 41700)), MFI_OK);
    EXPECT_EQ(r.m_audioStart, 7996u);
    EXPECT_EQ(r.m_frameCount, 110);
}

TEST(Mp3Reader, TakenBackFrameEndingTheReadMarksAShortStream) {
    // The second frame (3675 to 4092) ends the first read after the first
    // was taken back (count 1); the search goes on from 4092, and the read
    // in which the sixth frame is accepted ends at 4092 + 4096 = 8188.
    ByteWriter w;
    w.bytes(Mp3Frame(Cd128(), kCdFrame)).fill(3675 - kCdFrame).bytes(Mp3Frames(Cd128(), kCdFrame, 8));
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), 8188 + 41700)), MFI_OK);
    EXPECT_EQ(r.m_shortStream, 1);
    EXPECT_EQ(r.m_audioStart, 8188u);
    EXPECT_EQ(r.m_frameCount, 110);
}

TEST(Mp3Reader, FirstFrameEndingAShortReadMarksAShortStream) {
    // The first frame at 3900 is read again from its start, but only 419
    // bytes remain: passing it ends that read while nothing is counted.
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, CdStreamAt(3900, 1, 3900 + kCdFrame + 2)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_shortStream, 1);
    EXPECT_EQ(r.m_frameCount, 2);
}

TEST(Mp3Reader, SyncInTheLastFourBytesOfABufferIsSkipped) {
    TempDir dir;
    // A header at 4091 is examined; one at 4092 is not, and the next read
    // starts at 4096 inside that frame, so only five of six frames count.
    Mp3Info examined;
    ASSERT_EQ(Load(examined, dir, CdStreamAt(4091, 6, 30000)), MFI_OK);
    Mp3Info skipped;
    EXPECT_EQ(Load(skipped, dir, CdStreamAt(4092, 6, 30000)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(skipped.m_frameCount, 10);
    Mp3Info lastByte;
    EXPECT_EQ(Load(lastByte, dir, CdStreamAt(4095, 6, 30000)), MFI_NOT_THIS_FORMAT);
}

TEST(Mp3Reader, FramesAfterTheLastShortReadAreNotCounted) {
    // The read that reaches the end of the file ends the search once the
    // frame it was made for has been passed.
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, CdStreamAt(4091, 6, 4091 + 6 * kCdFrame)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 2);
}

TEST(Mp3Reader, SixthFrameRunningPastTheEndWrapsTheEstimate) {
    // Frames at 1915 + 417k; the sixth starts at 4000 and would end at 4417
    // in a 4100-byte file. The file moves forward to 4417, so the estimate
    // counts 4100 - 4417 as an unsigned difference.
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, CdStreamAt(1915, 6, 4100)), MFI_OK);
    EXPECT_EQ(r.m_audioStart, 4417u);
    EXPECT_EQ(r.m_frameCount, 10299691);  // 0xFFFFFEC3 / 417 + 10
    // 10299691 * 1152 wraps to -1019657856; / 44100 * 1000 = -23121493.
    EXPECT_EQ(r.GetFileInfo()->durationMs, 4271845803u);
}

TEST(Mp3Reader, LeadingId3v2TagIsSkippedTenBytesEarly) {
    // A 1010-byte tag: the search reads from 1000, passes the last ten tag
    // bytes as junk and accepts six frames from 1010 on within that read,
    // which ends at 5096. 41705 bytes follow it: 41705 / 417 = 100. Had the
    // skip landed at 1010, it would count 41695 / 417 = 99.
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Tagged")};
    tag.padding = 1000 - 17;
    Bytes b = BuildId3v2(tag);
    ASSERT_EQ(b.size(), 1010u);
    ByteWriter w;
    w.bytes(b).bytes(Mp3Frames(Cd128(), kCdFrame, 8));
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), 5096 + 41705)), MFI_OK);
    EXPECT_EQ(r.m_audioStart, 5096u);
    EXPECT_EQ(r.m_frameCount, 110);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 2873u);  // 110 * 1152 / 44100 * 1000
}

TEST(Mp3Reader, TrailingTagIsCountedAsAudio) {
    TempDir dir;
    Bytes b = CdStreamAt(0, 9, kRead + 41700 - 128);
    const Bytes v1 = BuildId3v1(Id3v1Fields{"Title", "Artist", "Album", "1999", "Note", 3, 17});
    b.insert(b.end(), v1.begin(), v1.end());
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, b), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 110);  // 41700 / 417 + 10: the tag's 128 bytes included
}

// ---- Files: VBR headers ----------------------------------------------------

TEST(Mp3Reader, XingHeaderGivesCountDurationAndBitRate) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x0F, 1000, 3000000, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_isVbr, 1);
    EXPECT_EQ(r.m_frameCount, 1003);  // the header's count + 3
    EXPECT_EQ(r.m_vbrFrameCounter, 2);
    EXPECT_EQ(r.m_vbrBytes, 3000000.0);
    const MediaFileInfo_st* f = r.GetFileInfo();
    EXPECT_EQ(f->durationMs, 26200u);  // 1003 * 1152 / 44100 * 1000
    EXPECT_EQ(f->bitRate, 916030u);    // 3000000 / 26200 * 8000
    EXPECT_EQ(f->isVbr, 0u);           // never set by the reader
    EXPECT_STREQ(f->fileType, "MP3");
}

TEST(Mp3Reader, XingBitRateOf2To32AndMoreReadsAsTwoTo31) {
    // 0xFFFFFFF0 bytes over (8 + 3) * 1152 / 44100 * 1000 = 287 ms, the
    // shortest duration a VBR header may give: far beyond 32 bits, which
    // the conversion turns into 2^31.
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x0F, 8, 0xFFFFFFF0u, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 11);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 287u);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 2147483648u);
}

TEST(Mp3Reader, InfoHeaderAlsoSwitchesToVbr) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Info", 0x0F, 1000, 3000000, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_isVbr, 1);
    EXPECT_EQ(r.m_frameCount, 1003);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 916030u);
}

TEST(Mp3Reader, VbrHeaderWithoutFramesFlagIsTooFew) {
    for (const char* tag : {"Xing", "Info"}) {
        TempDir dir;
        Mp3Info r;
        EXPECT_EQ(Load(r, dir, XingFile(tag, 0x0E, 1000, 3000000, 3 * kRead)), MFI_NOT_THIS_FORMAT) << tag;
        EXPECT_EQ(r.m_isVbr, 1);
        EXPECT_EQ(r.m_frameCount, 3);
        EXPECT_EQ(r.m_vbrBytes, 0.0);
    }
}

TEST(Mp3Reader, VbrHeaderIsFoundAtAnyOffsetOfTheFirstFrame) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x0F, 1000, 3000000, 3 * kRead, 13)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 1003);
    Mp3Info late;
    // The header's last field ends with the frame's last byte.
    ASSERT_EQ(Load(late, dir, XingFile("Xing", 0x0F, 1000, 3000000, 3 * kRead, 401)), MFI_OK);
    EXPECT_EQ(late.m_frameCount, 1003);
}

TEST(Mp3Reader, VbrHeaderOnlyInTheFirstFrameCounts) {
    TempDir dir;
    ByteWriter w;
    w.bytes(Mp3Frame(Cd128(), kCdFrame)).bytes(XingFrame(Cd128(), kCdFrame, "Xing", 0x0F, 1000, 3000000));
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 6));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), kRead + 41700)), MFI_OK);
    EXPECT_EQ(r.m_isVbr, 0);
    EXPECT_EQ(r.m_frameCount, 110);
}

TEST(Mp3Reader, VbriHeaderCountsToTheEndOfTheFile) {
    TempDir dir;
    ByteWriter w;
    w.bytes(VbriFrame(Cd128(), kCdFrame, 123456, 500)).bytes(Mp3Frames(Cd128(), kCdFrame, 4));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), kRead + 100000)), MFI_OK);
    EXPECT_EQ(r.m_isVbr, 1);
    EXPECT_EQ(r.m_frameCount, 503);
    // File size - file position (4096) + buffer position (0); the header's
    // own byte count is not read.
    EXPECT_EQ(r.m_vbrBytes, 100000.0);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 13139u);  // 503 * 1152 / 44100 * 1000
    EXPECT_EQ(r.GetFileInfo()->bitRate, 60887u);     // 100000 / 13139 * 8000
}

TEST(Mp3Reader, JunkAfterAFrameInVbrModeTakesBackTheCounter) {
    TempDir dir;
    ByteWriter w;
    w.bytes(XingFrame(Cd128(), kCdFrame, "Xing", 0x0F, 1000, 3000000)).u8(0);
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 4));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 1004);
    EXPECT_EQ(r.m_vbrFrameCounter, 2);
}

TEST(Mp3Reader, VbrFileWithJunkAfterEveryFrameEndsAtTheFileEnd) {
    // Each frame's take-back undoes the counter step, so the counter never
    // reaches its limit: the search goes on to the end of the file.
    TempDir dir;
    ByteWriter w;
    w.bytes(XingFrame(Cd128(), kCdFrame, "Xing", 0x0F, 1000, 3000000));
    for (int i = 0; i < 5; ++i) w.u8(0).bytes(Mp3Frame(Cd128(), kCdFrame));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 1007);  // 1000 + the header frame twice + five frames
    EXPECT_EQ(r.m_vbrFrameCounter, 2);
}

TEST(Mp3Reader, VbrHeaderFrameNearTheBufferEndIsReadAgainFromItsStart) {
    TempDir dir;
    ByteWriter w;
    w.fill(3900).bytes(XingFrame(Cd128(), kCdFrame, "Xing", 0x0F, 1000, 3000000));
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 4));
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(w.take(), 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 1003);
}

TEST(Mp3Reader, NegativeVbrFrameCountEndsWithTooFew) {
    // A count of 0xFFFFFFFF is -1: the counter passes 0, the header frame
    // is examined again, and the loop still ends after three frames.
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, XingFile("Xing", 0x0F, 0xFFFFFFFFu, 3000000, 3 * kRead)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.m_frameCount, 0);
    EXPECT_EQ(r.m_vbrFrameCounter, 2);
}

TEST(Mp3Reader, DecodeVbrHeaderNamesTheType) {
    Mp3Info r;
    EXPECT_EQ(r.DecodeVbrHeader(nullptr), 0);
    ByteWriter x;
    x.str("Xing").be32(3).be32(77).be32(9999);
    Bytes xing = x.take();
    EXPECT_EQ(r.DecodeVbrHeader(xing.data()), 1);
    EXPECT_EQ(r.m_frameCount, 77);
    EXPECT_EQ(r.m_vbrBytes, 9999.0);
    memcpy(xing.data(), "Info", 4);
    EXPECT_EQ(r.DecodeVbrHeader(xing.data()), 2);
    memcpy(xing.data(), "xing", 4);
    EXPECT_EQ(r.DecodeVbrHeader(xing.data()), 0);
    ByteWriter v;
    v.str("VBRI").be16(1).be16(0).be16(0).be32(5555).be32(66);
    Bytes vbri = v.take();
    r.m_bufferPos = 10;
    EXPECT_EQ(r.DecodeVbrHeader(vbri.data()), 3);  // no record, no file: 0 - 0 + 10
    EXPECT_EQ(r.m_frameCount, 66);
    EXPECT_EQ(r.m_vbrBytes, 10.0);
    EXPECT_EQ(r.CheckVbrFormat(nullptr), 0);
}

// ---- Files made by real encoders ------------------------------------------

struct FixtureFacts {
    const char* name;
    int frameCount;
    int isVbr;
    unsigned durationMs, bitRate, sampleRate, fileSize;
    const char* audioFormat;
};

// Worked out from each file's bytes:
// - cbr128: lame CBR without a VBR header; frames of 417 then 418 bytes from
//   0; the sixth (418) is accepted in the first read: (32600 - 4096) / 418
//   + 10 = 78 frames, 78 * 1152 / 44100 s = 2037 ms, its 128 kbit/s.
// - cbr128-info: lame's "Info" header (78 frames, 33017 bytes) at +36 of
//   the first frame: 81 frames, 2115 ms, 33017 / 2115 * 8000 = 124886.
// - vbr-xing: "Xing" (78 frames, 12928 bytes): 81, 2115 ms, 48900 bit/s.
// - mono-ffmpeg: a 10-byte ID3v2.4 body, skipped to offset 10; mono "Info"
//   at +21 (78 frames, 16508 bytes): 81, 2115 ms, 62441 bit/s, "Stero".
// - mpeg2-22050: MPEG 2 frames of 208 then 209 bytes: (16509 - 4096) / 209
//   + 10 = 69, 69 * 576 / 22050 s = 1802 ms.
// - layer2: ffmpeg's Layer II, 626 then 627 bytes: (48274 - 4096) / 627 +
//   10 = 80, 80 * 1152 / 44100 s = 2089 ms.
// - tagged-id3v2: a 2000-byte ID3v2.3 tag, skipped to 1990; 432-byte frames
//   at 32000 Hz; the read ends at 1990 + 4096 = 6086: (26752 - 6086) / 432
//   + 10 = 57 (the ID3v1 trailer counted as audio), 57 * 1152 / 32 = 2052 ms.
// - tagged-eyed3: the vbr-xing stream behind a 378-byte ID3v2.3 tag.
const FixtureFacts kFixtures[] = {
    {"cbr128.mp3", 78, 0, 2037, 128000, 44100, 32600, "MPEG Version 1"},
    {"cbr128-info.mp3", 81, 1, 2115, 124886, 44100, 33017, "MPEG Version 1"},
    {"vbr-xing.mp3", 81, 1, 2115, 48900, 44100, 12928, "MPEG Version 1"},
    {"mono-ffmpeg.mp3", 81, 1, 2115, 62441, 44100, 16528, "MPEG Version 1"},
    {"mpeg2-22050.mp3", 69, 0, 1802, 64000, 22050, 16509, "MPEG Version 2"},
    {"layer2.mp3", 80, 0, 2089, 192000, 44100, 48274, "MPEG Version 1"},
    {"tagged-id3v2.mp3", 57, 0, 2052, 96000, 32000, 26752, "MPEG Version 1"},
    {"tagged-eyed3.mp3", 81, 1, 2115, 48900, 44100, 13306, "MPEG Version 1"},
};

TEST(Mp3Reader, EncoderFixturesGiveTheirWorkedOutValues) {
    for (const FixtureFacts& x : kFixtures) {
        SCOPED_TRACE(x.name);
        Mp3Info r;
        ASSERT_EQ(r.LoadFile(Fixture(x.name).c_str()), MFI_OK);
        const MediaFileInfo_st* f = r.GetFileInfo();
        EXPECT_EQ(r.m_frameCount, x.frameCount);
        EXPECT_EQ(r.m_isVbr, x.isVbr);
        EXPECT_EQ(f->durationMs, x.durationMs);
        EXPECT_EQ(f->bitRate, x.bitRate);
        EXPECT_EQ(f->sampleRate, x.sampleRate);
        EXPECT_EQ(f->fileSize, x.fileSize);
        EXPECT_STREQ(f->audioFormat, x.audioFormat);
        EXPECT_STREQ(f->channelMode, "Stero");
        EXPECT_STREQ(f->fileType, "MP3");
        EXPECT_EQ(f->frameRate, 0u);
        EXPECT_EQ(r.IsAudio(), 1);
    }
}

TEST(Mp3Reader, ExampleFileLoads) {
    // "Xing" with 40 frames and 7337 bytes behind an 855-byte ID3v2.3 tag:
    // 43 frames, 43 * 1152 / 44100 s = 1123 ms, 7337 / 1123 * 8000 bit/s.
    Mp3Info r;
    ASSERT_EQ(r.LoadFile((std::string(FILEINFO_EXAMPLES_DIR) + "/chord-vbr.mp3").c_str()), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 43);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 1123u);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 52267u);
    EXPECT_EQ(r.GetFileInfo()->fileSize, 8320u);
}

// ---- Endings and lifecycle -------------------------------------------------

TEST(Mp3Reader, ReadFrameEndsOnAStreamThatCannotBeRead) {
    // A read error leaves the end-of-file flag clear while every read
    // returns nothing: the search stops instead of refilling forever.
    TempDir dir;
    const std::string p = dir.write("w.mp3", Bytes(10, 0));
    Mp3Info r;
    r.m_file = fopen(p.c_str(), "wb");
    ASSERT_NE(r.m_file, nullptr);
    r.m_bufferSize = 0;
    unsigned char buffer[Mp3Info::kReadSize] = {};
    EXPECT_EQ(r.ReadFrame(buffer), MFI_UNREADABLE);
    EXPECT_EQ(r.m_bufferSize, 0u);
    fclose(r.m_file);
    r.m_file = nullptr;
}

TEST(Mp3Reader, SecondLoadKeepsTheScanCounters) {
    TempDir dir;
    const std::string a = dir.write("a.mp3", XingFile("Xing", 0x0F, 1000, 3000000, 3 * kRead));
    const std::string b = dir.write("b.mp3", XingFile("Xing", 0x0F, 500, 3000000, 3 * kRead));
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(a.c_str()), MFI_OK);
    // The count goes on from 1003 and the counter is already at its limit:
    // one frame is read and the second header is never looked at.
    ASSERT_EQ(r.LoadFile(b.c_str()), MFI_OK);
    EXPECT_EQ(r.m_frameCount, 1004);
    EXPECT_STREQ(r.GetFileInfo()->title, "b");
    r.Destory();
    EXPECT_EQ(r.GetFileInfo(), nullptr);
    EXPECT_EQ(r.m_id3, nullptr);
    EXPECT_EQ(r.m_filePath, nullptr);
    EXPECT_EQ(r.m_frameCount, 1004);
}

TEST(Mp3Reader, LoadOwnsATagReader) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, CdStreamAt(0, 9, 3 * kRead)), MFI_OK);
    ASSERT_NE(r.m_id3, nullptr);
    EXPECT_EQ(r.HasId3Info(), r.m_id3->HasId3Info());
}

}  // namespace

