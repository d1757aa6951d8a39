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

// ---- Header decoding -------------------------------------------------------

TEST(Mp3Reader, CandidateTestRefusesReservedFieldsInFiles) {
    // Reserved version, layer field 0, bit-rate index 15, sample-rate
    // field 3: none is a candidate, so such files yield no frames.
    Mp3Header reservedVersion = Cd128();
    reservedVersion.version = kMpegReserved;
    Mp3Header layerZero = Cd128();
    layerZero.rawLayerField = true;
    layerZero.layerField = 0;
    Mp3Header forbiddenRate = Cd128();
    forbiddenRate.bitRateIndex = 15;
    Mp3Header reservedFrequency = Cd128();
    reservedFrequency.sampleRateIndex = 3;
    for (const Mp3Header& h : {reservedVersion, layerZero, forbiddenRate, reservedFrequency}) {
        TempDir dir;
        Mp3Info r;
        EXPECT_EQ(Load(r, dir, PadTo(Mp3Frames(h, kCdFrame, 20), 3 * kRead)), MFI_NOT_THIS_FORMAT);
        EXPECT_EQ(r.GetFileInfo()->sampleRate, 0u);
        EXPECT_STREQ(r.GetFileInfo()->audioFormat, "");
    }
}

TEST(Mp3Reader, TablesHoldTheirRows) {
    const unsigned int mpeg1Layer1[16] = {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0};
    const unsigned int mpeg2Layer3[16] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(Mp3Info::tabsel[0][i], mpeg1Layer1[i]);
        EXPECT_EQ(Mp3Info::tabsel[4][i], mpeg2Layer3[i]);
        EXPECT_EQ(Mp3Info::tabsel[5][i], mpeg2Layer3[i]);
    }
    EXPECT_EQ(Mp3Info::tabsel[1][14], 384u);
    EXPECT_EQ(Mp3Info::tabsel[2][14], 320u);
    EXPECT_EQ(Mp3Info::tabsel[3][9], 144u);
    const unsigned int rates[9] = {44100, 48000, 32000, 22050, 24000, 16000, 11025, 12000, 8000};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(Mp3Info::freqs[i], rates[i]);
    const unsigned int samples[6] = {384, 1152, 1152, 384, 1152, 576};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(Mp3Info::SamplePerFrame[i], samples[i]);
    EXPECT_STREQ(Mp3Info::MPEGVersion[0], "MPEG Version 2.5");
    EXPECT_STREQ(Mp3Info::MPEGVersion[1], "Unknow");
    EXPECT_STREQ(Mp3Info::MPEGVersion[2], "MPEG Version 2");
    EXPECT_STREQ(Mp3Info::MPEGVersion[3], "MPEG Version 1");
}

// ---- Files: status codes ---------------------------------------------------

TEST(Mp3Reader, NullPathIsABadArgument) {
    Mp3Info r;
    EXPECT_EQ(r.LoadFile(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(r.GetFileInfo(), nullptr);
}

TEST(Mp3Reader, MissingFileCannotBeOpened) {
    TempDir dir;
    Mp3Info r;
    EXPECT_EQ(r.LoadFile(dir.file("missing.mp3").c_str()), MFI_OPEN_FAILED);
    // The record was made before the open; its size stays 0 and no title is set.
    ASSERT_NE(r.GetFileInfo(), nullptr);
    EXPECT_EQ(r.GetFileInfo()->fileSize, 0u);
    EXPECT_STREQ(r.GetFileInfo()->title, "");
    EXPECT_EQ(r.IsAudio(), 0);
}

TEST(Mp3Reader, RejectedCandidateLeavesItsValuesInTheRecord) {
    TempDir dir;
    ByteWriter w;
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 3)).bytes(HeaderBytes(Header(kMpeg1, 3, 14, 2)));
    Mp3Info r;
    EXPECT_EQ(Load(r, dir, PadTo(w.take(), 2 * kRead)), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.GetFileInfo()->sampleRate, 32000u);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 320000u);
    EXPECT_STREQ(r.GetFileInfo()->audioFormat, "MPEG Version 1");
}

// ---- Files: constant rate --------------------------------------------------

TEST(Mp3Reader, MonoFileIsRecordedAsStero) {
    TempDir dir;
    Mp3Header h = Cd128();
    h.channelMode = kMono;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, PadTo(Mp3Frames(h, kCdFrame, 8), 3 * kRead)), MFI_OK);
    EXPECT_STREQ(r.GetFileInfo()->channelMode, "Stero");
}

TEST(Mp3Reader, LargeJunkFileIsScannedInLinearTime) {
    TempDir dir;
    // A free-format header, which passes the candidate test and is refused,
    // every four bytes: 4 MB of them.
    const Bytes h = HeaderBytes(Header(kMpeg1, 3, 0, 0));
    Bytes b(4u << 20);
    for (size_t i = 0; i < b.size(); ++i) b[i] = h[i % 4];
    const std::string p = dir.write("junk.mp3", b);
    Mp3Info r;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(r.LoadFile(p.c_str()), MFI_NOT_THIS_FORMAT);
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 10.0);
}

// ---- Files: VBR headers ----------------------------------------------------

TEST(Mp3Reader, XingByteCountIsTakenWithoutItsFlag) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x01, 1000, 3000000, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 916030u);
}

TEST(Mp3Reader, XingByteCountZeroKeepsTheFramesBitRate) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x01, 1000, 0, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.GetFileInfo()->bitRate, 128000u);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 26200u);
}

TEST(Mp3Reader, HugeVbrBitRateConvertsWithTheTopBitSet) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(Load(r, dir, XingFile("Xing", 0x0F, 8, 100000000, 3 * kRead)), MFI_OK);
    EXPECT_EQ(r.GetFileInfo()->durationMs, 287u);       // 11 * 1152 / 44100 * 1000
    EXPECT_EQ(r.GetFileInfo()->bitRate, 2787456445u);  // 100000000 / 287 * 8000
}

// ---- Files made by real encoders ------------------------------------------

TEST(Mp3Reader, UntaggedFixturesTakeTheFileNameAsTitle) {
    for (const char* name : {"cbr128", "vbr-xing", "mono-ffmpeg", "layer2"}) {
        Mp3Info r;
        ASSERT_EQ(r.LoadFile(Fixture(std::string(name) + ".mp3").c_str()), MFI_OK);
        EXPECT_STREQ(r.GetFileInfo()->title, name);
    }
}

TEST(Mp3Reader, MutatedFixturesNeverCrash) {
    TempDir dir;
    const char* seeds[] = {"cbr128.mp3", "vbr-xing.mp3", "mono-ffmpeg.mp3", "tagged-id3v2.mp3"};
    const Bytes vbri = PadTo(VbriFrame(Cd128(), kCdFrame, 5000, 40), 2 * kRead);
    int loaded = 0;
    for (uint32_t n = 0; n < 300; ++n) {
        const Bytes seed = n % 5 == 4 ? vbri : ReadAll(Fixture(seeds[n % 4]));
        const std::string p = dir.write("m" + std::to_string(n) + ".mp3", Mutate(seed, n));
        Mp3Info r;
        const int status = r.LoadFile(p.c_str());
        EXPECT_TRUE(IsKnownStatus(status)) << "copy " << n << " gave " << status;
        ExpectTextsTerminated(r.GetFileInfo());
        if (status == MFI_OK) ++loaded;
    }
    EXPECT_GT(loaded, 0);
}

// ---- Endings and lifecycle -------------------------------------------------

TEST(Mp3Reader, ReadFrameWithoutBufferIsABadArgument) {
    Mp3Info r;
    EXPECT_EQ(r.ReadFrame(nullptr), MFI_BAD_ARGUMENT);
}

TEST(Mp3Reader, ReadFrameWithoutFileFindsNothing) {
    Mp3Info r;
    unsigned char buffer[Mp3Info::kReadSize] = {};
    EXPECT_EQ(r.ReadFrame(buffer), MFI_UNREADABLE);
}

}  // namespace

namespace {

TEST(Mp3Reader, AllOnesPaddingScansWithoutWarnings) {
    TempDir dir;
    const std::string p = dir.write("padding.mp3", Bytes(8192, 0xFF));
    Mp3Info reader;
    testing::internal::CaptureStdout();
    EXPECT_EQ(reader.LoadFile(p.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
