// The WAV reading: RIFF/WAVE and RF64 files crafted chunk by chunk, and the
// real WAV files of examples/, whose values were checked against ffprobe.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "Id3Builder.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "media/Reading.h"

namespace {

using fileinfo::media::Reading;
using fileinfo::media::ReadMediaPath;

Reading ReadBytes(const Bytes& bytes, const std::string& name = "test.wav") {
    TempDir dir;
    Reading r;
    EXPECT_EQ(ReadMediaPath(dir.write(name, bytes), r), 0);
    return r;
}

Bytes Text(const std::string& s) { return Bytes(s.begin(), s.end()); }

// ---- format, numbers and duration

TEST(WavReading, Pcm16StereoHasExactNumbers) {
    // 0.5 s at 44.1 kHz, 16-bit stereo.
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 2, 44100, 16).data(22050 * 4).build());
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.sample_rate, 44100u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bits_per_sample, 16u);
    EXPECT_EQ(r.bit_rate, 1411200u);
    EXPECT_EQ(r.audio_bit_rate, 1411200u);
    EXPECT_EQ(r.duration_ms, 500u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.size, 44u + 22050u * 4u);
    EXPECT_TRUE(r.tags.Empty());
    EXPECT_TRUE(r.video_codec.empty());
}

TEST(WavReading, TwentyFourBitHasItsBitsAndWholeBitRate) {
    // 12345 frames of 6 bytes at 48 kHz: 257.1875 ms.
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 2, 48000, 24).data(12345 * 6).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(r.bit_rate, 2304000u);
    EXPECT_EQ(r.audio_bit_rate, 2304000u);
    EXPECT_EQ(r.duration_ms, 257u);
    EXPECT_FALSE(r.duration_estimated);
}

TEST(WavReading, FloatIsPcmFloat) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(3, 2, 44100, 32).data(44100 * 8 / 4).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "float");
    EXPECT_EQ(r.bits_per_sample, 32u);
    EXPECT_EQ(r.bit_rate, 2822400u);
    EXPECT_EQ(r.duration_ms, 250u);
}

TEST(WavReading, SixtyFourBitFloat) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(3, 1, 96000, 64).data(96000 * 8 / 10).build());
    EXPECT_EQ(r.pcm_format, "float");
    EXPECT_EQ(r.bits_per_sample, 64u);
    EXPECT_EQ(r.bit_rate, 6144000u);
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(WavReading, ExtensibleTakesTheSubFormatAndTheValidBits) {
    // 24 valid bits in 32-bit containers: the depth is 24, the data rate 32.
    const Reading r = ReadBytes(WavChunkBuilder().fmtExtensible(1, 2, 48000, 32, 24).data(48000 * 8).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(r.bit_rate, 3072000u);
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
}

TEST(WavReading, ExtensiblePacked24Bit) {
    const Reading r = ReadBytes(WavChunkBuilder().fmtExtensible(1, 6, 48000, 24, 24, 0x3F).data(4800 * 18).build());
    EXPECT_EQ(r.channels, 6u);
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(r.bit_rate, 6912000u);
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(WavReading, ExtensibleFloat) {
    const Reading r = ReadBytes(WavChunkBuilder().fmtExtensible(3, 2, 48000, 32, 32).data(4800 * 8).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "float");
    EXPECT_EQ(r.bits_per_sample, 32u);
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(WavReading, ExtensibleValidBitsAboveTheContainerAreNotTaken) {
    const Reading r = ReadBytes(WavChunkBuilder().fmtExtensible(1, 2, 48000, 16, 40).data(4800 * 4).build());
    EXPECT_EQ(r.bits_per_sample, 16u);
}

TEST(WavReading, G711IsNamedWithEightBits) {
    const Reading alaw = ReadBytes(WavChunkBuilder().fmt(6, 1, 8000, 8).data(8000).build());
    EXPECT_EQ(alaw.audio_codec, "A-law");
    EXPECT_EQ(alaw.pcm_format, "");
    EXPECT_EQ(alaw.bits_per_sample, 8u);
    EXPECT_EQ(alaw.bit_rate, 64000u);
    EXPECT_EQ(alaw.duration_ms, 1000u);
    const Reading mulaw = ReadBytes(WavChunkBuilder().fmt(7, 1, 8000, 8).data(4000).build());
    EXPECT_EQ(mulaw.audio_codec, "mu-law");
    EXPECT_EQ(mulaw.duration_ms, 500u);
}

TEST(WavReading, CompressedFormatsAreNamed) {
    struct Case {
        unsigned tag;
        const char* name;
    };
    const Case cases[] = {{2, "MS ADPCM"},   {0x11, "IMA ADPCM"}, {0x50, "MP2"},
                          {0x55, "MP3"},     {0x2000, "AC-3"},    {0x1234, "WAVE format 0x1234"}};
    for (const Case& c : cases) {
        const Reading r = ReadBytes(WavChunkBuilder().fmt(c.tag, 2, 44100, 0, 1024).data(1024).build());
        EXPECT_EQ(r.audio_codec, c.name) << c.tag;
        EXPECT_EQ(r.pcm_format, "") << c.tag;
        EXPECT_EQ(r.bits_per_sample, 0u) << c.tag;
    }
}

TEST(WavReading, CompressedDurationCountsTheFactFrames) {
    // IMA ADPCM, 4 bits: 22050 frames in the fact chunk, 1 s.
    const Reading r = ReadBytes(WavChunkBuilder().fmt(0x11, 1, 22050, 4, 256).fact(22050).data(11264).build());
    EXPECT_EQ(r.audio_codec, "IMA ADPCM");
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 22050u * 256u * 8u);  // the header's byte rate
}

TEST(WavReading, CompressedDurationWithoutFactComesFromTheByteRate) {
    // MP3; fmt() writes sampleRate * blockAlign as the byte rate: 44100.
    const Reading r = ReadBytes(WavChunkBuilder().fmt(0x55, 2, 44100, 0, 1).data(8000).build());
    EXPECT_EQ(r.bit_rate, 352800u);
    EXPECT_EQ(r.duration_ms, 8000u * 1000u / 44100u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(WavReading, CompressedWithoutByteRateAveragesTheData) {
    // MP3 whose header says 0 bytes per second: 16000 bytes over 1 s.
    Bytes bytes = WavChunkBuilder().fmt(0x55, 2, 44100, 0, 1).fact(44100).data(16000).build();
    for (size_t i = 12 + 8 + 8; i < 12 + 8 + 12; ++i) bytes[i] = 0;  // fmt's byte rate
    const Reading r = ReadBytes(bytes);
    EXPECT_EQ(r.audio_codec, "MP3");
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.audio_bit_rate, 128000u);
}

TEST(WavReading, PartialLastFrameIsNotCounted) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 2, 1000, 16).data(4 * 1000 + 3).build());
    EXPECT_EQ(r.duration_ms, 1000u);
}

TEST(WavReading, ZeroBlockAlignIsWorkedOutFromTheSampleSize) {
    Bytes zeroAlign = WavChunkBuilder().fmt(1, 2, 8000, 16).data(3200).build();
    zeroAlign[12 + 8 + 12] = 0;  // fmt's block align
    zeroAlign[12 + 8 + 13] = 0;
    const Reading z = ReadBytes(zeroAlign);
    EXPECT_EQ(z.duration_ms, 100u);
    EXPECT_EQ(z.bit_rate, 256000u);
}

TEST(WavReading, SampleRateZeroGivesNoDuration) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 2, 0, 16).data(400).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 0u);
    EXPECT_EQ(r.bit_rate, 0u);
}

// ---- data sizes that cannot be taken as they are

TEST(WavReading, DataSizePastTheEndIsEstimatedFromTheFile) {
    // Says 10 s, holds 1 s.
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).data(160000, 16000).build());
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(WavReading, StreamedDataSizeIsEstimatedFromTheFile) {
    for (const uint32_t declared : {0xFFFFFFFFu, 0u}) {
        const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).data(declared, 8000).build());
        EXPECT_EQ(r.duration_ms, 500u) << declared;
        EXPECT_TRUE(r.duration_estimated) << declared;
    }
}

TEST(WavReading, EmptyDataAtTheEndIsZeroExactly) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).data(0).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 0u);
    EXPECT_FALSE(r.duration_estimated);
}

TEST(WavReading, NoDataChunkGivesNoDuration) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 0u);
    EXPECT_FALSE(r.duration_estimated);
}

// A file of `size` bytes that begins with `header`, made by ftruncate so
// that it takes no space; empty when the file system refuses.
std::string SparseFile(const TempDir& dir, const Bytes& header, uint64_t size) {
    const std::string path = dir.write("big.wav", header);
    if (truncate(path.c_str(), static_cast<off_t>(size)) != 0) return "";
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || static_cast<uint64_t>(st.st_size) != size) return "";
    if (static_cast<uint64_t>(st.st_blocks) * 512 > (64u << 20)) return "";  // not sparse
    return path;
}

constexpr uint64_t kFiveGiB = 5368709120ull;
// 16-bit stereo at 48 kHz after a 44-byte header: the frames of 5 GiB.
constexpr uint64_t kFiveGiBMs = (kFiveGiB - 44) / 4 * 1000 / 48000;

TEST(WavReading, OverFourGiBWithUnsetDataSizeIsEstimatedFromTheSize) {
    TempDir dir;
    const Bytes header = WavChunkBuilder().fmt(1, 2, 48000, 16).data(0xFFFFFFFFu, 0).riffSize(0xFFFFFFFFu).build();
    ASSERT_EQ(header.size(), 44u);
    const std::string path = SparseFile(dir, header, kFiveGiB);
    if (path.empty()) GTEST_SKIP() << "the temporary folder's file system refuses sparse files";
    Reading r;
    ASSERT_EQ(ReadMediaPath(path, r), 0);
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.size, 5368709120u);
    EXPECT_EQ(r.duration_ms, kFiveGiBMs);
    EXPECT_EQ(r.duration_ms, 27962026u);
    EXPECT_TRUE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 1536000u);
}

TEST(WavReading, OverFourGiBWithWrappedDataSizeIsEstimatedFromTheSize) {
    TempDir dir;
    const uint32_t wrapped = static_cast<uint32_t>(kFiveGiB - 44);  // 1 GiB - 44
    const Bytes header = WavChunkBuilder().fmt(1, 2, 48000, 16).data(wrapped, 0).riffSize(
        static_cast<uint32_t>(kFiveGiB - 8)).build();
    const std::string path = SparseFile(dir, header, kFiveGiB);
    if (path.empty()) GTEST_SKIP() << "the temporary folder's file system refuses sparse files";
    Reading r;
    ASSERT_EQ(ReadMediaPath(path, r), 0);
    EXPECT_EQ(r.size, 5368709120u);
    EXPECT_EQ(r.duration_ms, kFiveGiBMs);
    EXPECT_TRUE(r.duration_estimated);
}

// ---- RF64

TEST(WavReading, Rf64TakesTheDataSizeFromDs64) {
    const Reading r = ReadBytes(WavChunkBuilder("RF64")
                                    .ds64(0, 48000 * 4, 48000)
                                    .fmt(1, 2, 48000, 16)
                                    .data(0xFFFFFFFFu, 48000 * 4)
                                    .riffSize(0xFFFFFFFFu)
                                    .build());
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
}

TEST(WavReading, Rf64ReadsTheTagsAfterItsData) {
    const Reading r = ReadBytes(WavChunkBuilder("RF64")
                                    .ds64(0, 8000, 4000)
                                    .fmt(1, 1, 8000, 16)
                                    .data(0xFFFFFFFFu, 8000)
                                    .info({{"INAM", "After the data"}})
                                    .build());
    EXPECT_EQ(r.duration_ms, 500u);
    EXPECT_EQ(r.tags.title, "After the data");
}

TEST(WavReading, Rf64WithoutDs64IsEstimatedFromTheFile) {
    const Reading r =
        ReadBytes(WavChunkBuilder("RF64").fmt(1, 2, 48000, 16).data(0xFFFFFFFFu, 48000 * 2).build());
    EXPECT_EQ(r.duration_ms, 500u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(WavReading, Rf64Ds64SizePastTheFileIsEstimated) {
    const Reading r = ReadBytes(
        WavChunkBuilder("RF64").ds64(0, 1ull << 40, 0).fmt(1, 2, 48000, 16).data(0xFFFFFFFFu, 48000).build());
    EXPECT_EQ(r.duration_ms, 250u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(WavReading, Ds64InAPlainRiffFileIsIgnored) {
    const Reading r = ReadBytes(
        WavChunkBuilder().ds64(0, 4, 1).fmt(1, 2, 48000, 16).data(0xFFFFFFFFu, 48000).build());
    EXPECT_EQ(r.duration_ms, 250u);
    EXPECT_TRUE(r.duration_estimated);
}

// ---- RIFF INFO

TEST(WavReading, InfoTextsAreTheTags) {
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", std::string("Title\0", 6)},
                                           {"IART", "Artist"},
                                           {"IPRD", "Album"},
                                           {"IGNR", "Jazz"},
                                           {"ICRD", "2021-05-06"},
                                           {"ICMT", "A comment"},
                                           {"ITRK", "3/10"},
                                           {"IMUS", "Composer"},
                                           {"ISFT", "Some Writer 1.0"}})
                                    .data(1600)
                                    .build());
    EXPECT_EQ(r.tags.title, "Title");
    EXPECT_EQ(r.tags.artist, "Artist");
    EXPECT_EQ(r.tags.album, "Album");
    EXPECT_EQ(r.tags.genre, "Jazz");
    EXPECT_EQ(r.tags.year, "2021");
    EXPECT_EQ(r.tags.comment, "A comment");
    EXPECT_EQ(r.tags.track, 3u);
    EXPECT_EQ(r.tags.track_total, 10u);
    EXPECT_EQ(r.tags.composer, "Composer");
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(WavReading, InfoAfterTheDataIsRead) {
    const Reading r = ReadBytes(
        WavChunkBuilder().fmt(1, 1, 8000, 16).data(1601).info({{"IART", "Behind"}, {"IPRT", "12"}}).build());
    EXPECT_EQ(r.tags.artist, "Behind");
    EXPECT_EQ(r.tags.track, 12u);
    EXPECT_EQ(r.tags.track_total, 0u);
}

TEST(WavReading, YearThatIsNotFourDigitsIsKeptWhole) {
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).info({{"ICRD", "May 99"}}).data(16).build());
    EXPECT_EQ(r.tags.year, "May 99");
}

TEST(WavReading, InfoTextsAreUtf8WhenValidElseLatin1) {
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", "Caf\xC3\xA9"}, {"IART", "Caf\xE9"}, {"ICMT", "\xC3("}})
                                    .data(16)
                                    .build());
    EXPECT_EQ(r.tags.title, "Caf\xC3\xA9");
    EXPECT_EQ(r.tags.artist, "Caf\xC3\xA9");
    EXPECT_EQ(r.tags.comment, "\xC3\x83(");
}

TEST(WavReading, InfoTextIsCutAtItsNulAndAtTheChunk) {
    // A text chunk whose size runs past its list: cut at the list's end.
    ByteWriter list;
    list.str("INFO").str("INAM").le32(6).str(std::string("Ab\0cd", 5)).u8(0);
    list.str("IART").le32(1000).str("Tail");
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).chunk("LIST", list.take()).data(16).build());
    EXPECT_EQ(r.tags.title, "Ab");
    EXPECT_EQ(r.tags.artist, "Tail");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 1u);
}

TEST(WavReading, InfoWithoutPadBytesIsStillRead) {
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", "Odd"}, {"IART", "Next"}, {"IPRD", "Last"}}, false)
                                    .data(16)
                                    .build());
    EXPECT_EQ(r.tags.title, "Odd");
    EXPECT_EQ(r.tags.artist, "Next");
    EXPECT_EQ(r.tags.album, "Last");
}

TEST(WavReading, FirstInfoValueWins) {
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", "First"}, {"ITRK", "2"}})
                                    .info({{"INAM", "Second"}, {"IPRT", "9"}})
                                    .data(16)
                                    .build());
    EXPECT_EQ(r.tags.title, "First");
    EXPECT_EQ(r.tags.track, 2u);
}

TEST(WavReading, ListThatIsNotInfoHoldsNoTags) {
    ByteWriter adtl;
    adtl.str("adtl").str("INAM").le32(4).str("Nope");
    const Reading r = ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).chunk("LIST", adtl.take()).data(16).build());
    EXPECT_TRUE(r.tags.Empty());
}

TEST(WavReading, TrackTextsThatAreNotNumbersAreNotTaken) {
    const Reading r = ReadBytes(
        WavChunkBuilder().fmt(1, 1, 8000, 16).info({{"ITRK", "one"}, {"IPRT", "12345678901"}}).data(16).build());
    EXPECT_EQ(r.tags.track, 0u);
    EXPECT_EQ(r.tags.track_total, 0u);
}

// An ID3 chunk's fields win over INFO texts, which stay where it has none.
TEST(WavReading, Id3ChunkWinsOverInfo) {
    Id3v2Fields id3;
    id3.frames = {TextFrame("TIT2", "Id3 Title"), TextFrame("TCOM", "Id3 Composer")};
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", "Info Title"}, {"IART", "Info Artist"}})
                                    .data(16)
                                    .chunk("id3 ", BuildId3v2(id3))
                                    .build());
    EXPECT_EQ(r.tags.title, "Id3 Title");
    EXPECT_EQ(r.tags.composer, "Id3 Composer");
    EXPECT_EQ(r.tags.artist, "Info Artist");
}

TEST(WavReading, Id3ChunkIsHarmlessBeforeItsParserIsIn) {
    Id3v2Fields id3;
    id3.frames = {TextFrame("TIT2", "Id3 Title")};
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .chunk("ID3 ", BuildId3v2(id3))
                                    .info({{"IART", "Info Artist"}})
                                    .data(1600)
                                    .build());
    EXPECT_EQ(r.tags.artist, "Info Artist");
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(WavReading, HostileId3ChunkSizeIsReadWithinTheFile) {
    Id3v2Fields id3;
    id3.frames = {TextFrame("TIT2", "Id3 Title")};
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .fmt(1, 1, 8000, 16)
                                    .info({{"INAM", "Info Title"}})
                                    .data(1600)
                                    .chunk("id3 ", 0xFFFFFFF0u, BuildId3v2(id3))
                                    .build());
    EXPECT_EQ(r.tags.title.empty(), false);
    EXPECT_EQ(r.duration_ms, 100u);
}

// ---- chunk walking

TEST(WavReading, OddChunkIsPadded) {
    const Reading r = ReadBytes(
        WavChunkBuilder().chunk("junk", Text("abc")).fmt(1, 1, 8000, 16).chunk("bext", Text("x")).data(800).build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 50u);
}

TEST(WavReading, OddChunkWithoutItsPadByteIsStillWalked) {
    const Reading r = ReadBytes(WavChunkBuilder()
                                    .chunk("junk", Text("abc"), false)
                                    .fmt(1, 1, 8000, 16)
                                    .chunk("bext", Text("x"), false)
                                    .data(800)
                                    .build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 50u);
}

TEST(WavReading, HostileChunkSizeEndsTheWalk) {
    const Reading r =
        ReadBytes(WavChunkBuilder().chunk("junk", 0xFFFFFFF0u, Text("abcd")).fmt(1, 1, 8000, 16).data(800).build());
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "");
    EXPECT_EQ(r.duration_ms, 0u);
}

TEST(WavReading, HostileFmtSizeIsReadWithinTheFile) {
    // "fmt " says 4 GiB but the file ends after its 16 bytes.
    const Reading r = ReadBytes(WavChunkBuilder().chunk("fmt ", 0xFFFFFFFFu, Bytes{1, 0, 1, 0, 0x40, 0x1F, 0, 0, 0x80,
                                                                                    0x3E, 0, 0, 2, 0, 16, 0})
                                    .build());
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.sample_rate, 8000u);
    EXPECT_EQ(r.duration_ms, 0u);
}

TEST(WavReading, ShortFmtIsNotTaken) {
    const Reading r = ReadBytes(WavChunkBuilder().chunk("fmt ", Bytes(14, 1)).data(16).build());
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "");
}

TEST(WavReading, HostileListSizeIsReadWithinTheFile) {
    ByteWriter list;
    list.str("INFO").str("INAM").le32(0xFFFFFFF0u).str("Cut");
    const Reading r =
        ReadBytes(WavChunkBuilder().fmt(1, 1, 8000, 16).data(16).chunk("LIST", 0xFFFFFFF0u, list.take()).build());
    EXPECT_EQ(r.tags.title, "Cut");
    EXPECT_EQ(r.duration_ms, 1u);
}

TEST(WavReading, ManyEmptyChunksEndTheWalkInTime) {
    WavChunkBuilder b;
    for (int i = 0; i < 100000; ++i) b.chunk("pad ", Bytes{});
    const Reading r = ReadBytes(b.fmt(1, 1, 8000, 16).data(16).build());
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "");  // beyond the chunks that are looked at
}

TEST(WavReading, HeaderOnlyFileIsAWavWithNothingElse) {
    const Reading r = ReadBytes(Text(std::string("RIFF\x04\0\0\0WAVE", 12)));
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "");
    EXPECT_EQ(r.size, 12u);
}

TEST(WavReading, TruncatedChunkHeaderEndsTheWalk) {
    Bytes bytes = WavChunkBuilder().fmt(1, 1, 8000, 16).build();
    bytes.insert(bytes.end(), {'d', 'a', 't'});
    const Reading r = ReadBytes(bytes);
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.duration_ms, 0u);
}

// ---- any name

TEST(WavReading, NameDoesNotMatter) {
    const Bytes bytes = WavChunkBuilder().fmt(1, 2, 44100, 16).info({{"INAM", "Same"}}).data(17640).build();
    const Reading wav = ReadBytes(bytes, "a.wav");
    for (const char* name : {"a.mp3", "a", "a.WAVE"}) {
        const Reading other = ReadBytes(bytes, name);
        EXPECT_EQ(other.type, "WAV") << name;
        EXPECT_EQ(other.audio_codec, wav.audio_codec) << name;
        EXPECT_EQ(other.duration_ms, 100u) << name;
        EXPECT_EQ(other.tags.title, "Same") << name;
    }
}

// ---- the real files, against ffprobe

TEST(WavReading, ExampleChordIsUnsigned8BitStereo) {
    // ffprobe: pcm_u8, 4000 Hz, 2 channels, 8 bits, 64000 bit/s, 8.000000 s.
    Reading r;
    ASSERT_EQ(ReadMediaPath(FILEINFO_EXAMPLES_DIR "/chord-8s.wav", r), 0);
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.sample_rate, 4000u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bits_per_sample, 8u);
    EXPECT_EQ(r.bit_rate, 64000u);
    EXPECT_EQ(r.duration_ms, 8000u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.size, 64044u);
    EXPECT_TRUE(r.tags.Empty());  // ffprobe and mutagen: no tags
}

TEST(WavReading, ExampleToneIs16BitMono) {
    // ffprobe: pcm_s16le, 8000 Hz, 1 channel, 16 bits, 128000 bit/s, 1.000000 s.
    Reading r;
    ASSERT_EQ(ReadMediaPath(FILEINFO_EXAMPLES_DIR "/tone-mono.wav", r), 0);
    EXPECT_EQ(r.type, "WAV");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.sample_rate, 8000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.bits_per_sample, 16u);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.size, 16044u);
    EXPECT_TRUE(r.tags.Empty());
}

}  // namespace
