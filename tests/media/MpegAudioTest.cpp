// MPEG audio readings from crafted streams: versions and layers, Xing, Info
// and VBRI headers, durations counted or estimated, tags around the stream
// left out of the audio bytes, and bytes that only pretend to be frames.
#include <gtest/gtest.h>

#include <random>

#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "MpegTestHelpers.h"
#include "Mutation.h"

namespace {

using fileinfo::media::Reading;

// MPEG 1 Layer III, 128 kbit/s at 48 kHz: 384-byte frames of 24 ms.
Mp3Header Mpeg1At48k() {
    Mp3Header h;
    h.sampleRateIndex = 1;
    return h;
}

// An APE tag as taggers append it: header, one item, footer.
Bytes ApeTag() {
    ByteWriter items;
    items.le32(5).le32(0).str("Title").u8(0).str("Hello");
    auto frame = [&](uint32_t flags) {
        ByteWriter w;
        w.str("APETAGEX").le32(2000).le32(static_cast<uint32_t>(items.size() + 32)).le32(1).le32(flags).fill(8);
        return w.take();
    };
    return Join({frame(0xA0000000u), items.data(), frame(0x80000000u)});
}

TEST(MpegAudio, LayerTwoAt32kHz384kbitFourSeconds) {
    Mp3Header h;
    h.layer = 2;
    h.bitRateIndex = 14;     // 384 kbit/s
    h.sampleRateIndex = 2;   // 32 kHz
    h.channelMode = kStereo;
    // 111 frames of 1728 bytes and the start of one more: 192000 bytes, 4 s at 384 kbit/s.
    const Bytes file = Join({Mp3Frames(h, 1728, 111), Mp3Frame(h, 192)});
    const Reading r = ReadBytes(file, "layer2.mp2");
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.audio_codec, "MP2");
    EXPECT_EQ(r.sample_rate, 32000u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bit_rate, 384000u);
    EXPECT_EQ(r.audio_bit_rate, 384000u);
    EXPECT_EQ(r.duration_ms, 4000u);
    EXPECT_TRUE(r.duration_estimated);  // the stream runs past the bytes read
    EXPECT_FALSE(r.vbr);
}

TEST(MpegAudio, LayerOneFramesCountedExactly) {
    Mp3Header h;
    h.layer = 1;
    h.bitRateIndex = 12;    // 384 kbit/s
    h.sampleRateIndex = 1;  // 48 kHz: 384-byte frames of 384 samples, 8 ms
    const Reading r = ReadBytes(Mp3Frames(h, 384, 50));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.audio_codec, "MP1");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.duration_ms, 400u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 384000u);
}

TEST(MpegAudio, ConstantRateStreamWithinTheHeadIsCounted) {
    const Reading r = ReadBytes(Mp3Frames(Mpeg1At48k(), 384, 100));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.audio_codec, "MP3");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.duration_ms, 2400u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_FALSE(r.vbr);
}

TEST(MpegAudio, Mpeg2MonoLayerThree) {
    Mp3Header h;
    h.version = kMpeg2;
    h.bitRateIndex = 8;     // 64 kbit/s
    h.sampleRateIndex = 1;  // 24 kHz: 192-byte frames of 576 samples, 24 ms
    h.channelMode = kMono;
    const Reading r = ReadBytes(Mp3Frames(h, 192, 25));
    EXPECT_EQ(r.audio_codec, "MP3");
    EXPECT_EQ(r.sample_rate, 24000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.duration_ms, 600u);
    EXPECT_EQ(r.bit_rate, 64000u);
}

TEST(MpegAudio, Mpeg25At8kHz) {
    Mp3Header h;
    h.version = kMpeg25;
    h.bitRateIndex = 1;     // 8 kbit/s
    h.sampleRateIndex = 2;  // 8 kHz: 72-byte frames of 576 samples, 72 ms
    h.channelMode = kDualChannel;
    const Reading r = ReadBytes(Mp3Frames(h, 72, 10));
    EXPECT_EQ(r.sample_rate, 8000u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.duration_ms, 720u);
    EXPECT_EQ(r.bit_rate, 8000u);
}

TEST(MpegAudio, XingHeaderGivesExactDurationAndVbr) {
    const Mp3Header h;  // MPEG 1 Layer III, 44.1 kHz, joint stereo
    const Bytes file = Join({XingFrame(h, 417, "Xing", 3, 1000, 8340), Mp3Frames(h, 417, 20)});
    const Reading r = ReadBytes(file);
    EXPECT_EQ(r.duration_ms, 26122u);  // 1000 frames of 1152 samples
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_TRUE(r.vbr);
    EXPECT_EQ(r.bit_rate, 2554u);  // the header's 8340 bytes over 26.122 s
}

TEST(MpegAudio, XingByteCountBeyondTheFileIsNotTrusted) {
    const Mp3Header h;
    const Reading r = ReadBytes(Join({XingFrame(h, 417, "Xing", 3, 1000, 500000), Mp3Frames(h, 417, 20)}));
    EXPECT_EQ(r.duration_ms, 26122u);
    EXPECT_EQ(r.bit_rate, 2682u);  // the 21 frames' 8757 bytes
}

TEST(MpegAudio, InfoHeaderIsConstantRate) {
    const Mp3Header h;
    const Reading r = ReadBytes(Join({XingFrame(h, 417, "Info", 1, 500, 0), Mp3Frames(h, 417, 5)}));
    EXPECT_EQ(r.duration_ms, 13061u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_FALSE(r.vbr);
}

TEST(MpegAudio, XingHeaderOfMonoAndMpeg2Frames) {
    Mp3Header mono;
    mono.channelMode = kMono;
    EXPECT_EQ(ReadBytes(Join({XingFrame(mono, 417, "Xing", 1, 100, 0, 21), Mp3Frames(mono, 417, 3)})).duration_ms,
              2612u);
    Mp3Header low;
    low.version = kMpeg2;
    low.bitRateIndex = 8;
    low.sampleRateIndex = 1;
    EXPECT_EQ(ReadBytes(Join({XingFrame(low, 192, "Xing", 1, 100, 0, 21), Mp3Frames(low, 192, 3)})).duration_ms,
              2400u);  // 100 frames of 576 samples at 24 kHz
    low.channelMode = kMono;
    EXPECT_EQ(ReadBytes(Join({XingFrame(low, 192, "Xing", 1, 50, 0, 13), Mp3Frames(low, 192, 3)})).duration_ms,
              1200u);
}

TEST(MpegAudio, VbriHeaderGivesExactDuration) {
    const Mp3Header h;
    const Reading r = ReadBytes(Join({VbriFrame(h, 417, 4000, 441), Mp3Frames(h, 417, 10)}));
    EXPECT_EQ(r.duration_ms, 11520u);  // 441 frames of 1152 samples at 44.1 kHz
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_TRUE(r.vbr);
    EXPECT_EQ(r.bit_rate, 2778u);  // the header's 4000 bytes over 11.52 s
}

TEST(MpegAudio, FramesOfSeveralRatesAreVbr) {
    Mp3Header low = Mpeg1At48k(), high = Mpeg1At48k();
    low.bitRateIndex = 7;    // 96 kbit/s: 288 bytes
    high.bitRateIndex = 10;  // 160 kbit/s: 480 bytes
    ByteWriter w;
    for (int i = 0; i < 10; ++i) w.bytes(Mp3Frame(i % 2 ? high : low, i % 2 ? 480 : 288));
    const Reading r = ReadBytes(w.data());
    EXPECT_TRUE(r.vbr);
    EXPECT_EQ(r.duration_ms, 240u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 128000u);
}

TEST(MpegAudio, LongStreamWithoutHeaderIsEstimatedFromItsAverage) {
    Mp3Header low = Mpeg1At48k(), high = Mpeg1At48k();
    low.bitRateIndex = 7;
    high.bitRateIndex = 10;
    ByteWriter w;
    for (int i = 0; i < 400; ++i) w.bytes(Mp3Frame(i % 2 ? high : low, i % 2 ? 480 : 288));
    const Reading r = ReadBytes(w.data());  // 153600 bytes, 9.6 s: beyond the head
    EXPECT_TRUE(r.vbr);
    EXPECT_TRUE(r.duration_estimated);
    // The average of the run read from the middle: 21 frames of each rate.
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.duration_ms, 9600u);
}

TEST(MpegAudio, FiveGibibyteFileKeepsItsSize) {
    TempDir dir;
    const std::string path = dir.write("huge.mp3", Mp3Frames(Mpeg1At48k(), 384, 10));
    const uint64_t size = 5ull << 30;
    std::error_code error;
    std::filesystem::resize_file(path, size, error);  // sparse: the rest reads as zeros
    if (error) GTEST_SKIP() << "cannot make a sparse file here: " << error.message();
    const Reading r = ReadFixture(path);
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.size, size);
    EXPECT_TRUE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.duration_ms, 335544320u);  // 5 GiB at 128 kbit/s
}

TEST(MpegAudio, TagsBehindAreNotAudio) {
    Id3v1Fields v1;
    v1.title = "Trailer";
    Id3v2Fields s;
    s.majorVersion = 4;
    s.flags = 0x10;
    s.frames = {TextFrame("TPE1", "Footed")};
    Bytes footed = BuildId3v2(s);
    Bytes footer(footed.begin(), footed.begin() + 10);
    footer[0] = '3', footer[1] = 'D', footer[2] = 'I';
    // 200 frames: 76800 bytes, 4.8 s, beyond the head, so the duration comes from the size.
    const Bytes file = Join({Mp3Frames(Mpeg1At48k(), 384, 200), footed, footer, ApeTag(), BuildId3v1(v1)});
    const Reading r = ReadBytes(file);
    EXPECT_EQ(r.type, "MP3");
    EXPECT_TRUE(r.duration_estimated);
    EXPECT_EQ(r.duration_ms, 4800u);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.tags.title, "Trailer");
    EXPECT_EQ(r.tags.artist, "Footed");
}

TEST(MpegAudio, TagInFrontIsNotAudio) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Front")};
    s.padding = 3000;
    const Reading r = ReadBytes(Join({BuildId3v2(s), Bytes(500, 0), Mp3Frames(Mpeg1At48k(), 384, 200)}));
    EXPECT_EQ(r.duration_ms, 4800u);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.tags.title, "Front");
}

TEST(MpegAudio, StreamAfterJunkIsFoundByARowOfFrames) {
    const Reading r = ReadBytes(Join({AudioBytes(1000), Mp3Frames(Mpeg1At48k(), 384, 10)}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.duration_ms, 240u);
    EXPECT_EQ(r.bit_rate, 128000u);
}

TEST(MpegAudio, FewFramesAfterJunkAreNotBelieved) {
    EXPECT_FALSE(ReadBytes(Join({AudioBytes(1000), Mp3Frames(Mpeg1At48k(), 384, 3), AudioBytes(1000)})).Identified());
}

TEST(MpegAudio, LoneHeaderIsNotAStream) {
    // A valid header whose next frame does not follow.
    EXPECT_FALSE(ReadBytes(Join({Mp3Frame(Mpeg1At48k(), 384), AudioBytes(2000)})).Identified());
    EXPECT_FALSE(ReadBytes(HeaderBytes(Mpeg1At48k())).Identified());
}

TEST(MpegAudio, FramesThatChangeLayerAreNotAStream) {
    Mp3Header other = Mpeg1At48k();
    other.layer = 2;
    ByteWriter w;
    for (int i = 0; i < 10; ++i) w.bytes(Mp3Frame(i % 2 ? other : Mpeg1At48k(), 384));
    EXPECT_FALSE(ReadBytes(w.data()).Identified());
}

TEST(MpegAudio, FreeFormatAndReservedValuesAreNotTaken) {
    Mp3Header free = Mpeg1At48k();
    free.bitRateIndex = 0;
    EXPECT_FALSE(ReadBytes(Mp3Frames(free, 384, 10)).Identified());
    Mp3Header reserved = Mpeg1At48k();
    reserved.version = kMpegReserved;
    EXPECT_FALSE(ReadBytes(Mp3Frames(reserved, 384, 10)).Identified());
    Mp3Header badRate = Mpeg1At48k();
    badRate.sampleRateIndex = 3;
    EXPECT_FALSE(ReadBytes(Mp3Frames(badRate, 384, 10)).Identified());
}

TEST(MpegAudio, RandomBytesAreUnidentified) {
    std::mt19937 rng(2024);
    for (int i = 0; i < 20; ++i) {
        Bytes b(100000);
        for (uint8_t& x : b) x = static_cast<uint8_t>(rng());
        EXPECT_FALSE(ReadBytes(b).Identified()) << i;
    }
}

TEST(MpegAudio, TruncatedLastFrameIsLeftOut) {
    const Bytes full = Mp3Frames(Mpeg1At48k(), 384, 10);
    const Reading r = ReadBytes(Bytes(full.begin(), full.end() - 200));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.duration_ms, 216u);  // nine whole frames
    EXPECT_FALSE(r.duration_estimated);
}

TEST(MpegAudio, TagClaiming256MiBInASmallFileIsBounded) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Liar")};
    s.overrideSize = true;
    s.size = 0x0FFFFFFF;
    const Reading r = ReadBytes(Join({BuildId3v2(s), Mp3Frames(Mpeg1At48k(), 384, 2)}));
    EXPECT_FALSE(r.Identified());  // the tag swallows the whole file: no stream behind it
}

TEST(MpegAudio, LyingTrailerSizesStayInsideTheFile) {
    ByteWriter ape;
    ape.str("APETAGEX").le32(2000).le32(0xFFFFFFF0u).le32(1).le32(0x80000000u).fill(8);
    const Reading r = ReadBytes(Join({Mp3Frames(Mpeg1At48k(), 384, 10), ape.data()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.sample_rate, 48000u);
    Bytes footer = Raw("3DI\x04\0\x10\x7f\x7f\x7f\x7f");
    EXPECT_EQ(ReadBytes(Join({Mp3Frames(Mpeg1At48k(), 384, 10), footer})).type, "MP3");
}

TEST(MpegAudio, MutatedFilesNeverTrap) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {TextFrame("TIT2", "Seed"), CommentFrame("COMM", "eng", "seed comment"), TextFrame("TCON", "(17)")};
    Id3v1Fields v1;
    v1.title = "Seed v1";
    const Bytes seed = Join({BuildId3v2(s), XingFrame(Mp3Header{}, 417, "Xing", 3, 30, 12000),
                             Mp3Frames(Mp3Header{}, 417, 12), BuildId3v1(v1)});
    for (uint32_t n = 0; n < 300; ++n) {
        const Reading r = ReadBytes(Mutate(seed, n));
        // Texts come only from bytes that are there: at most 3 bytes of UTF-8 per byte read.
        EXPECT_LE(r.tags.title.size(), 3 * r.size) << n;
        EXPECT_LE(r.tags.comment.size(), 3 * r.size) << n;
    }
}

}  // namespace
