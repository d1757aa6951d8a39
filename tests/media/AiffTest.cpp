// The AIFF and AIFF-C reading: files crafted chunk by chunk, the 80-bit
// sample rate at its edges, names that do not matter, and the real AIFF
// files of tests/fixtures/aiff and examples/, whose values were checked
// against ffprobe (and their tags against ffprobe's; mutagen reads only ID3
// chunks, which none of them holds, and gives no tags for any of them).
#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "AiffBuilder.h"
#include "Id3Builder.h"
#include "TestFiles.h"
#include "media/Extended80.h"
#include "media/Reading.h"

namespace {

using fileinfo::media::Extended80ToUint32;
using fileinfo::media::Reading;
using fileinfo::media::ReadMediaPath;

Reading ReadBytes(const Bytes& bytes, const std::string& name = "test.aif") {
    TempDir dir;
    Reading r;
    EXPECT_EQ(ReadMediaPath(dir.write(name, bytes), r), 0);
    return r;
}

// AIFF-C's COMM tail: the compression type and its name as a Pascal string.
Bytes Compression(const std::string& type, const std::string& name = "") {
    ByteWriter w;
    w.fixed(type, 4).u8(static_cast<unsigned>(name.size())).str(name);
    if (name.size() % 2 == 0) w.u8(0);  // the string is padded to an even length
    return w.take();
}

uint32_t Rate(const Bytes& ext80) { return Extended80ToUint32(ext80.data()); }

// ---- numbers and duration

TEST(AiffReading, PlainAiffIsPcmIntegerWithExactDuration) {
    // 5513 frames at 11025 Hz: 500.045 ms.
    const Reading r = ReadBytes(AiffBuilder().comm(2, 16, 11025, 5513).ssnd(0, 5513 * 4).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.sample_rate, 11025u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bits_per_sample, 16u);
    EXPECT_EQ(r.bit_rate, 352800u);
    EXPECT_EQ(r.audio_bit_rate, 352800u);
    EXPECT_EQ(r.duration_ms, 500u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_TRUE(r.tags.Empty());
}

TEST(AiffReading, DurationComesFromCommNotFromTheSoundBytes) {
    // COMM counts 10 s; the sound chunk holds only a little of it.
    const Reading r = ReadBytes(AiffBuilder().comm(1, 16, 8000, 80000).ssnd(0, 160000, 64).build());
    EXPECT_EQ(r.duration_ms, 10000u);
    EXPECT_FALSE(r.duration_estimated);
}

TEST(AiffReading, TwentyFourBitStereo) {
    const Reading r = ReadBytes(AiffBuilder().comm(2, 24, 44100, 4410).ssnd(0, 4410 * 6).build());
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(r.bit_rate, 2116800u);
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(AiffReading, TwelveBitSamplesTakeTwoBytesOfBitRate) {
    const Reading r = ReadBytes(AiffBuilder().comm(1, 12, 8000, 800).ssnd(0, 1600).build());
    EXPECT_EQ(r.bits_per_sample, 12u);
    EXPECT_EQ(r.bit_rate, 128000u);
}

TEST(AiffReading, CommWithoutFramesIsEstimatedFromTheSound) {
    const Reading r = ReadBytes(AiffBuilder().comm(2, 16, 8000, 0).ssnd(0, 3200).build());
    EXPECT_EQ(r.duration_ms, 100u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(AiffReading, SoundOffsetIsNotSound) {
    // 1600 bytes before the first sample, then 1600 bytes of sound: 50 ms.
    const Reading r = ReadBytes(AiffBuilder().comm(2, 16, 8000, 0).ssnd(1600, 3200).build());
    EXPECT_EQ(r.duration_ms, 50u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(AiffReading, SoundCutShortIsCountedWithinTheFile) {
    // SSND says 1 s of sound, the file holds 0.1 s of it.
    const Reading r = ReadBytes(AiffBuilder().comm(2, 16, 8000, 0).ssnd(0, 32000, 3200).build());
    EXPECT_EQ(r.duration_ms, 100u);
    EXPECT_TRUE(r.duration_estimated);
}

TEST(AiffReading, NoCommLeavesOnlyTheType) {
    const Reading r = ReadBytes(AiffBuilder().text("NAME", "Only a name").ssnd(0, 100).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "");
    EXPECT_EQ(r.duration_ms, 0u);
    EXPECT_EQ(r.tags.title, "Only a name");
}

TEST(AiffReading, ShortCommIsNotTaken) {
    ByteWriter comm;
    comm.be16(2).be32(100).be16(16).be32(0x400EAC44);  // 12 of its 18 bytes
    const Reading r = ReadBytes(AiffBuilder().chunk("COMM", comm.take()).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "");
}

// ---- AIFF-C compression types

TEST(AiffReading, AifcSowtIsPcmInteger) {
    const Reading r =
        ReadBytes(AiffBuilder("AIFC").fver().comm(2, 16, Ext80(44100), 4410, Compression("sowt", "")).ssnd(0, 17640)
                      .build());
    EXPECT_EQ(r.type, "AIFC");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.bits_per_sample, 16u);
    EXPECT_EQ(r.bit_rate, 1411200u);
    EXPECT_EQ(r.duration_ms, 100u);
}

TEST(AiffReading, AifcIntegerTypes) {
    for (const char* type : {"NONE", "twos", "sowt", "raw ", "in24", "in32"}) {
        const Reading r =
            ReadBytes(AiffBuilder("AIFC").comm(1, 24, Ext80(48000), 480, Compression(type, "x")).build());
        EXPECT_EQ(r.audio_codec, "PCM") << type;
        EXPECT_EQ(r.pcm_format, "integer") << type;
        EXPECT_EQ(r.bits_per_sample, 24u) << type;
        EXPECT_EQ(r.duration_ms, 10u) << type;
    }
}

TEST(AiffReading, AifcFl32IsPcmFloat) {
    const Reading r = ReadBytes(
        AiffBuilder("AIFC").fver().comm(1, 32, Ext80(16000), 4800, Compression("fl32", "32-bit floating point"))
            .ssnd(0, 19200)
            .build());
    EXPECT_EQ(r.type, "AIFC");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "float");
    EXPECT_EQ(r.bits_per_sample, 32u);
    EXPECT_EQ(r.bit_rate, 512000u);
    EXPECT_EQ(r.duration_ms, 300u);
}

TEST(AiffReading, FloatBitsComeFromTheType) {
    // Some writers leave COMM's sample size at 16 or 0 for float sound.
    struct Case {
        const char* type;
        unsigned commBits;
        unsigned bits;
    };
    for (const Case& c : {Case{"fl32", 0, 32}, Case{"FL32", 16, 32}, Case{"fl64", 0, 64}, Case{"FL64", 64, 64}}) {
        const Reading r = ReadBytes(AiffBuilder("AIFC").comm(2, c.commBits, Ext80(8000), 800, Compression(c.type)).build());
        EXPECT_EQ(r.pcm_format, "float") << c.type;
        EXPECT_EQ(r.bits_per_sample, c.bits) << c.type;
        EXPECT_EQ(r.bit_rate, 8000u * 2u * c.bits) << c.type;
    }
}

TEST(AiffReading, AifcG711IsNamedWithEightBits) {
    struct Case {
        const char* type;
        const char* name;
    };
    for (const Case& c : {Case{"ulaw", "mu-law"}, Case{"ULAW", "mu-law"}, Case{"alaw", "A-law"}, Case{"ALAW", "A-law"}}) {
        // QuickTime writes 16 as the sample size of G.711 sound.
        const Reading r = ReadBytes(AiffBuilder("AIFC").comm(1, 16, Ext80(8000), 4000, Compression(c.type)).build());
        EXPECT_EQ(r.audio_codec, c.name) << c.type;
        EXPECT_EQ(r.pcm_format, "") << c.type;
        EXPECT_EQ(r.bits_per_sample, 8u) << c.type;
        EXPECT_EQ(r.bit_rate, 64000u) << c.type;
        EXPECT_EQ(r.duration_ms, 500u) << c.type;
    }
}

TEST(AiffReading, AifcIma4CountsPacketsOf64Frames) {
    // 689 packets of 64 frames at 44100 Hz: 44096 frames, 999.909 ms.
    const Reading r = ReadBytes(AiffBuilder("AIFC").comm(2, 16, Ext80(44100), 689, Compression("ima4")).build());
    EXPECT_EQ(r.audio_codec, "IMA ADPCM");
    EXPECT_EQ(r.bits_per_sample, 0u);
    EXPECT_EQ(r.duration_ms, 999u);
    EXPECT_EQ(r.bit_rate, 44100u * 2u * 34u * 8u / 64u);
}

TEST(AiffReading, OtherCompressionIsNamedByItsFourCharacters) {
    const Reading qdm = ReadBytes(
        AiffBuilder("AIFC").comm(2, 16, Ext80(44100), 44100, Compression("QDM2", "QDesign")).ssnd(0, 16000).build());
    EXPECT_EQ(qdm.audio_codec, "QDM2");
    EXPECT_EQ(qdm.bits_per_sample, 0u);
    EXPECT_EQ(qdm.duration_ms, 1000u);
    EXPECT_EQ(qdm.bit_rate, 128000u);  // 16000 bytes over 1 s
    const Reading gsm = ReadBytes(AiffBuilder("AIFC").comm(1, 16, Ext80(8000), 8000, Compression("GSM ")).build());
    EXPECT_EQ(gsm.audio_codec, "GSM");
    Bytes odd = {0x01, 'a', 'b', 0xFF};
    odd.push_back(0);
    odd.push_back(0);
    const Reading hex = ReadBytes(AiffBuilder("AIFC").comm(1, 16, Ext80(8000), 8000, odd).build());
    EXPECT_EQ(hex.audio_codec, "0x016162FF");
}

TEST(AiffReading, AifcWithoutCompressionTypeIsPcmInteger) {
    const Reading r = ReadBytes(AiffBuilder("AIFC").comm(1, 8, 8000, 400).build());
    EXPECT_EQ(r.type, "AIFC");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.duration_ms, 50u);
}

TEST(AiffReading, PlainAiffIgnoresBytesAfterTheCommonFields) {
    // A compression type in a plain AIFF's COMM means nothing.
    const Reading r = ReadBytes(AiffBuilder("AIFF").comm(1, 16, Ext80(8000), 800, Compression("fl32")).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.bits_per_sample, 16u);
}

// ---- the 80-bit sample rate

TEST(AiffExtended80, CommonRates) {
    EXPECT_EQ(Rate(Ext80(44100)), 44100u);
    EXPECT_EQ(Rate(Ext80(48000)), 48000u);
    EXPECT_EQ(Rate(Ext80(8000)), 8000u);
    EXPECT_EQ(Rate(Ext80(22050)), 22050u);
    EXPECT_EQ(Rate(Ext80(1)), 1u);
    EXPECT_EQ(Rate(Ext80(0x400E, 0xAC44000000000000ull)), 44100u);
}

TEST(AiffExtended80, FractionsRoundToTheNearest) {
    EXPECT_EQ(Rate(Ext80(7999.75)), 8000u);
    EXPECT_EQ(Rate(Ext80(44100.4)), 44100u);
    EXPECT_EQ(Rate(Ext80(0.5)), 1u);
    EXPECT_EQ(Rate(Ext80(0.25)), 0u);
}

TEST(AiffExtended80, EdgesGiveZero) {
    EXPECT_EQ(Rate(Ext80(0.0)), 0u);
    EXPECT_EQ(Rate(Ext80(-44100)), 0u);
    EXPECT_EQ(Rate(Ext80(0x7FFF, 0x8000000000000000ull)), 0u);  // +infinity
    EXPECT_EQ(Rate(Ext80(0xFFFF, 0x8000000000000000ull)), 0u);  // -infinity
    EXPECT_EQ(Rate(Ext80(0x7FFF, 0xC000000000000000ull)), 0u);  // quiet NaN
    EXPECT_EQ(Rate(Ext80(0x7FFF, 0x0000000000000001ull)), 0u);  // signalling NaN
    EXPECT_EQ(Rate(Ext80(0x0000, 0x0000000000000001ull)), 0u);  // smallest denormal
    EXPECT_EQ(Rate(Ext80(0x0000, 0xFFFFFFFFFFFFFFFFull)), 0u);  // pseudo-denormal
    EXPECT_EQ(Rate(Ext80(0x401F, 0x8000000000000000ull)), 0u);  // 2^32
    EXPECT_EQ(Rate(Ext80(0x7FFE, 0xFFFFFFFFFFFFFFFFull)), 0u);  // the largest finite
    EXPECT_EQ(Rate(Ext80(0x0001, 0x8000000000000000ull)), 0u);  // the smallest normal
    EXPECT_EQ(Rate(Ext80(0x400E, 0)), 0u);                      // a zero significand
}

TEST(AiffExtended80, LargestThatFits) {
    EXPECT_EQ(Rate(Ext80(4294967295.0)), 4294967295u);
    EXPECT_EQ(Rate(Ext80(4294967295.5)), 0u);  // rounds to 2^32
    EXPECT_EQ(Rate(Ext80(4294967294.5)), 4294967295u);
}

TEST(AiffExtended80, UnnormalIsTakenAtItsValue) {
    // The integer bit clear: 0x5622... * 2^(14 - 63) = 22050.
    EXPECT_EQ(Rate(Ext80(0x400E, 0x5622000000000000ull)), 22050u);
}

TEST(AiffReading, InfiniteRateGivesNoRateAndNoDuration) {
    const Reading r =
        ReadBytes(AiffBuilder().comm(2, 16, Ext80(0x7FFF, 0x8000000000000000ull), 1000).ssnd(0, 4000).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.sample_rate, 0u);
    EXPECT_EQ(r.duration_ms, 0u);
    EXPECT_EQ(r.bit_rate, 0u);
}

TEST(AiffReading, HugeRateAndFramesDoNotOverflow) {
    const Reading r = ReadBytes(AiffBuilder().comm(65535, 65535, 4294967295.0, 0xFFFFFFFFu).build());
    EXPECT_EQ(r.sample_rate, 4294967295u);
    EXPECT_EQ(r.duration_ms, 1000u);
}

// ---- texts

TEST(AiffReading, NameAuthAnnoAreTitleArtistComment) {
    const Reading r = ReadBytes(AiffBuilder()
                                    .text("NAME", std::string("Tuning Tone\0", 12))
                                    .text("AUTH", "Test Lab")
                                    .text("(c) ", "2024 Someone")
                                    .text("ANNO", "A4 reference")
                                    .text("ANNO", "second note")
                                    .comm(2, 16, 11025, 5513)
                                    .ssnd(0, 5513 * 4)
                                    .build());
    EXPECT_EQ(r.tags.title, "Tuning Tone");
    EXPECT_EQ(r.tags.artist, "Test Lab");
    EXPECT_EQ(r.tags.comment, "A4 reference");
    EXPECT_EQ(r.tags.album, "");
    EXPECT_EQ(r.tags.year, "");
    EXPECT_EQ(r.tags.composer, "");
    EXPECT_EQ(r.duration_ms, 500u);
}

TEST(AiffReading, TextsAreUtf8WhenValidElseLatin1) {
    const Reading r = ReadBytes(AiffBuilder()
                                    .text("NAME", "Caf\xC3\xA9")
                                    .raw(1)
                                    .text("AUTH", "Caf\xE9")
                                    .comm(1, 16, 8000, 8)
                                    .build());
    EXPECT_EQ(r.tags.title, "Caf\xC3\xA9");
    EXPECT_EQ(r.tags.artist, "Caf\xC3\xA9");
    EXPECT_EQ(r.duration_ms, 1u);
}

TEST(AiffReading, OddTextIsPadded) {
    const Reading r =
        ReadBytes(AiffBuilder().text("NAME", "Odd").raw(1).text("AUTH", "Even").comm(1, 16, 8000, 80).build());
    EXPECT_EQ(r.tags.title, "Odd");
    EXPECT_EQ(r.tags.artist, "Even");
    EXPECT_EQ(r.duration_ms, 10u);
}

TEST(AiffReading, OddTextWithoutItsPadByteIsStillWalked) {
    const Reading r =
        ReadBytes(AiffBuilder().text("NAME", "Odd").text("AUTH", "Next").comm(1, 16, 8000, 80).build());
    EXPECT_EQ(r.tags.title, "Odd");
    EXPECT_EQ(r.tags.artist, "Next");
    EXPECT_EQ(r.duration_ms, 10u);
}

// The ID3 chunk's fields win over NAME/AUTH/ANNO, which stay where it has
// none.
TEST(AiffReading, Id3ChunkWinsOverTheTextChunks) {
    Id3v2Fields id3;
    id3.majorVersion = 4;
    id3.frames = {TextFrame("TIT2", "Id3 Title"), TextFrame("TALB", "Id3 Album")};
    const Reading r = ReadBytes(AiffBuilder()
                                    .text("NAME", "Name Title")
                                    .text("AUTH", "Auth Artist")
                                    .comm(1, 16, 8000, 80)
                                    .chunk("ID3 ", BuildId3v2(id3))
                                    .build());
    EXPECT_EQ(r.tags.title, "Id3 Title");
    EXPECT_EQ(r.tags.album, "Id3 Album");
    EXPECT_EQ(r.tags.artist, "Auth Artist");
}

TEST(AiffReading, Id3ChunkIsHarmlessBeforeItsParserIsIn) {
    Id3v2Fields id3;
    id3.frames = {TextFrame("TIT2", "Id3 Title")};
    const Reading r = ReadBytes(
        AiffBuilder().chunk("ID3 ", BuildId3v2(id3)).text("AUTH", "Auth Artist").comm(1, 16, 8000, 80).build());
    EXPECT_EQ(r.tags.artist, "Auth Artist");
    EXPECT_EQ(r.duration_ms, 10u);
}

// ---- sizes that lie

TEST(AiffReading, HostileId3ChunkSizeIsReadWithinTheFile) {
    Id3v2Fields id3;
    id3.frames = {TextFrame("TIT2", "Id3 Title")};
    const Reading r = ReadBytes(
        AiffBuilder().text("NAME", "Name Title").comm(1, 16, 8000, 80).chunk("ID3 ", 0xFFFFFFF0u, BuildId3v2(id3)).build());
    EXPECT_EQ(r.tags.title.empty(), false);
    EXPECT_EQ(r.duration_ms, 10u);
}

TEST(AiffReading, HostileChunkSizeEndsTheWalk) {
    ByteWriter junk;
    junk.str("abcd");
    const Reading r =
        ReadBytes(AiffBuilder().chunk("APPL", 0xFFFFFFF0u, junk.take()).comm(1, 16, 8000, 80).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "");
}

TEST(AiffReading, HostileTextSizeIsReadWithinTheFile) {
    ByteWriter name;
    name.str("Cut short");
    const Reading r = ReadBytes(AiffBuilder().comm(1, 16, 8000, 80).chunk("NAME", 0xFFFFFFF0u, name.take()).build());
    EXPECT_EQ(r.tags.title, "Cut short");
    EXPECT_EQ(r.duration_ms, 10u);
}

TEST(AiffReading, FormSizePastTheFileIsBoundedByTheFile) {
    Bytes bytes = AiffBuilder().comm(1, 16, 8000, 80).text("NAME", "In the file").build();
    bytes[4] = 0x7F;  // the FORM size: 2 GiB
    const Reading r = ReadBytes(bytes);
    EXPECT_EQ(r.duration_ms, 10u);
    EXPECT_EQ(r.tags.title, "In the file");
}

TEST(AiffReading, ChunksBeyondTheFormAreNotRead) {
    AiffBuilder b;
    b.comm(1, 16, 8000, 80);
    Bytes bytes = b.build();
    const Bytes tail = AiffBuilder().text("NAME", "Outside").build();
    bytes.insert(bytes.end(), tail.begin() + 12, tail.end());
    const Reading r = ReadBytes(bytes);
    EXPECT_EQ(r.duration_ms, 10u);
    EXPECT_EQ(r.tags.title, "");
}

TEST(AiffReading, ManyEmptyChunksEndTheWalkInTime) {
    AiffBuilder b;
    for (int i = 0; i < 100000; ++i) b.chunk("pad ", Bytes{});
    const Reading r = ReadBytes(b.comm(1, 16, 8000, 80).build());
    EXPECT_EQ(r.type, "AIFF");
    EXPECT_EQ(r.audio_codec, "");  // beyond the chunks that are looked at
}

TEST(AiffReading, HeaderOnlyFileIsAnAiffWithNothingElse) {
    const Reading r = ReadBytes(AiffBuilder("AIFC").build());
    EXPECT_EQ(r.type, "AIFC");
    EXPECT_EQ(r.audio_codec, "");
    EXPECT_EQ(r.size, 12u);
}

// ---- the real files, against ffprobe

struct Fixture {
    const char* path;
    const char* type;
    const char* pcmFormat;
    uint32_t sampleRate;
    uint32_t channels;
    uint32_t bits;
    uint64_t bitRate;
    uint64_t durationMs;
    uint64_t size;
    const char* title;
    const char* artist;
    const char* comment;
};

// ffprobe -show_streams: codec, sample_rate, channels, bits_per_sample,
// bit_rate, duration; -show_format: size and the tags (title, author,
// comment). Every one is PCM: pcm_s8, pcm_s16be, pcm_s24be or pcm_f32be.
const Fixture kFixtures[] = {
    {FILEINFO_EXAMPLES_DIR "/tone-tagged.aif", "AIFF", "integer", 11025, 2, 16, 352800, 500, 22162, "Tuning Tone",
     "Test Lab", "A4 reference"},  // 0.500045 s
    {FILEINFO_FIXTURES_DIR "/aiff/ffmpeg-tagged-11k.aif", "AIFF", "integer", 11025, 2, 16, 352800, 500, 22162,
     "Tuning Tone", "Test Lab", "A4 reference"},
    {FILEINFO_FIXTURES_DIR "/aiff/ffmpeg-float-16k.aifc", "AIFC", "float", 16000, 1, 32, 512000, 300, 19272, "", "",
     ""},
    {FILEINFO_FIXTURES_DIR "/aiff/sox-mono-8k.aif", "AIFF", "integer", 8000, 1, 16, 128000, 500, 8088, "", "", ""},
    {FILEINFO_FIXTURES_DIR "/aiff/sox-stereo-22k.aifc", "AIFC", "integer", 22050, 2, 8, 352800, 249, 11110, "", "",
     ""},  // 0.249977 s
    {FILEINFO_FIXTURES_DIR "/aiff/sox-stereo-44k-24bit.aif", "AIFF", "integer", 44100, 2, 24, 2116800, 100, 26548, "",
     "", ""},
    {FILEINFO_FIXTURES_DIR "/aiff/sox-tiny.aif", "AIFF", "integer", 8000, 1, 8, 64000, 50, 488, "", "", ""},
};

TEST(AiffReading, RealFilesReadAsFfprobeReadsThem) {
    for (const Fixture& f : kFixtures) {
        Reading r;
        ASSERT_EQ(ReadMediaPath(f.path, r), 0) << f.path;
        EXPECT_EQ(r.type, f.type) << f.path;
        EXPECT_EQ(r.audio_codec, "PCM") << f.path;
        EXPECT_EQ(r.pcm_format, f.pcmFormat) << f.path;
        EXPECT_EQ(r.sample_rate, f.sampleRate) << f.path;
        EXPECT_EQ(r.channels, f.channels) << f.path;
        EXPECT_EQ(r.bits_per_sample, f.bits) << f.path;
        EXPECT_EQ(r.bit_rate, f.bitRate) << f.path;
        EXPECT_EQ(r.audio_bit_rate, f.bitRate) << f.path;
        EXPECT_EQ(r.duration_ms, f.durationMs) << f.path;
        EXPECT_FALSE(r.duration_estimated) << f.path;
        EXPECT_EQ(r.size, f.size) << f.path;
        EXPECT_EQ(r.tags.title, f.title) << f.path;
        EXPECT_EQ(r.tags.artist, f.artist) << f.path;
        EXPECT_EQ(r.tags.comment, f.comment) << f.path;
        // sox's COMT ("Processed by SoX") is not a comment for ffprobe either.
        EXPECT_EQ(r.tags.album, "") << f.path;
        EXPECT_EQ(r.tags.track, 0u) << f.path;
    }
}

// ---- any name

void ExpectSameReading(const Reading& a, const Reading& b, const std::string& name) {
    EXPECT_EQ(a.type, b.type) << name;
    EXPECT_EQ(a.audio_codec, b.audio_codec) << name;
    EXPECT_EQ(a.pcm_format, b.pcm_format) << name;
    EXPECT_EQ(a.sample_rate, b.sample_rate) << name;
    EXPECT_EQ(a.channels, b.channels) << name;
    EXPECT_EQ(a.bits_per_sample, b.bits_per_sample) << name;
    EXPECT_EQ(a.bit_rate, b.bit_rate) << name;
    EXPECT_EQ(a.duration_ms, b.duration_ms) << name;
    EXPECT_EQ(a.duration_estimated, b.duration_estimated) << name;
    EXPECT_EQ(a.size, b.size) << name;
    EXPECT_EQ(a.tags.title, b.tags.title) << name;
    EXPECT_EQ(a.tags.artist, b.tags.artist) << name;
    EXPECT_EQ(a.tags.comment, b.tags.comment) << name;
}

TEST(AiffReading, AiffExtensionAndNoExtensionReadLikeAif) {
    TempDir dir;
    const Bytes bytes = ReadAll(FILEINFO_EXAMPLES_DIR "/tone-tagged.aif");
    ASSERT_EQ(bytes.size(), 22162u);
    Reading aif;
    ASSERT_EQ(ReadMediaPath(dir.write("tone.aif", bytes), aif), 0);
    EXPECT_EQ(aif.type, "AIFF");
    EXPECT_EQ(aif.tags.title, "Tuning Tone");
    EXPECT_EQ(aif.duration_ms, 500u);
    for (const char* name : {"tone.aiff", "tone", "TONE.AIFF", "tone.wav"}) {
        Reading other;
        ASSERT_EQ(ReadMediaPath(dir.write(name, bytes), other), 0) << name;
        ExpectSameReading(aif, other, name);
    }
}

TEST(AiffReading, AifcReadsTheSameUnderAnyName) {
    TempDir dir;
    const Bytes bytes = ReadAll(FILEINFO_FIXTURES_DIR "/aiff/ffmpeg-float-16k.aifc");
    Reading aifc;
    ASSERT_EQ(ReadMediaPath(dir.write("f.aifc", bytes), aifc), 0);
    EXPECT_EQ(aifc.type, "AIFC");
    for (const char* name : {"f.aif", "f.aiff", "f"}) {
        Reading other;
        ASSERT_EQ(ReadMediaPath(dir.write(name, bytes), other), 0) << name;
        ExpectSameReading(aifc, other, name);
    }
}

}  // namespace
