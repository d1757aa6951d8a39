// MP4 sample descriptions: codec names, MPEG-4 audio and visual profiles,
// H.264 profile and level, Apple Lossless, and bit and frame rates from the
// sample-size tables.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"

namespace {

// A 10-second movie holding the given tracks, "moov" first.
Mp4Result LoadMovie(std::initializer_list<Bytes> traks, const Bytes& beforeTraks = {}) {
    std::vector<Bytes> children{Mvhd(1000, 10000), beforeTraks};
    children.insert(children.end(), traks.begin(), traks.end());
    return LoadMp4(FastStart(Atom("moov", Cat(children))));
}

// 10 s of sound whose table gives 80000 bit/s when consulted.
Bytes Sound(const Bytes& entry) { return SoundTrak(entry, Stsz(100, 1000), 44100, 441000); }

// 10 s of video, 25000 samples of 10 bytes: 200000 bit/s when the table is consulted.
Bytes Video(const Bytes& entry) { return VideoTrak(entry, Stsz(10, 25000), 600, 6000); }

Bytes AacEntry(const EsdsFields& esds) { return SoundEntry("mp4a", 2, Esds(esds)); }

EsdsFields WithConfig(Bytes decoderInfo) {
    EsdsFields s;
    s.decoderInfo = std::move(decoderInfo);
    return s;
}

EsdsFields WithObjectType(unsigned objectType) {
    EsdsFields s;
    s.objectType = objectType;
    return s;
}

// ---- esds forms and bit rates ------------------------------------------------

TEST(Mp4Sample, OneByteEsdsGivesTheSoundBitRate) {
    const Mp4Result r = LoadMovie({Sound(AacEntry({}))});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 128000u);  // the table is not consulted any more
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
    EXPECT_STREQ(r.record.audioCodec, "AAC");
    EXPECT_STREQ(r.record.fileType, "AAC");
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_STREQ(r.record.channelMode, "Stero");
}

TEST(Mp4Sample, FourByteEsdsGivesNoBitRate) {
    EsdsFields s;
    s.fourByteLengths = true;
    ASSERT_EQ(Esds(s).size(), 51u);  // with a two-byte configuration
    const Mp4Result r = LoadMovie({Sound(AacEntry(s))});
    EXPECT_EQ(r.record.bitRate, 80000u);  // from the table: 100 x 1000 bytes in 10 s
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
}

TEST(Mp4Sample, FourByteEsdsWithNonZeroEsIdIsReadAsOneByteForm) {
    // The four-byte test looks at the ES_ID's low byte: with ES_ID 1 the
    // descriptor is taken in the one-byte layout, so the "bit rate" comes
    // from the buffer-size bytes and the object type from the flags byte.
    EsdsFields s;
    s.fourByteLengths = true;
    s.esId = 1;
    s.maxBitRate = 0x00012345;
    const Mp4Result r = LoadMovie({Sound(AacEntry(s))});
    EXPECT_EQ(r.record.bitRate, 0x00000001u);  // bytes 00 00 00 | 01 of buffer size and max rate
    EXPECT_STREQ(r.record.audioFormat, "AAC from .mov");
}

TEST(Mp4Sample, LongerFourByteEsdsUnderAnMp4HandlerReadsAContinuationByte) {
    // 54 bytes and no "Appl" handler: the configuration length is looked
    // for 14 bytes on, where a 0x80 continuation byte stands; the "object
    // type" is then 0x80 >> 3 = 16.
    EsdsFields s;
    s.fourByteLengths = true;
    s.decoderInfo = {0x12, 0x10, 0x56, 0xE5, 0x00};
    ASSERT_EQ(Esds(s).size(), 54u);
    EXPECT_STREQ(LoadMovie({Sound(AacEntry(s))}).record.audioFormat, "MPEG-4 Algo Syn and Audio FX");
}

TEST(Mp4Sample, AppleHandlerReadsTheConfigurationBehindContinuationBytes) {
    EsdsFields s;
    s.fourByteLengths = true;
    s.decoderInfo = {0x2B, 0x10, 0x56, 0xE5, 0x00};  // object type 5
    const Bytes apple = Hdlr("soun", "Apple Sound Media Handler", true);
    const Mp4Result r =
        LoadMovie({SoundTrak(AacEntry(s), Stsz(100, 1000), 44100, 441000, apple)});
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC HE");
}

TEST(Mp4Sample, AppleHandlerWithOneByteEsdsReadsThreeBytesLate) {
    // One-byte lengths but an "Appl" handler: the length is taken from the
    // configuration's third byte and the object type from its fourth.
    const Bytes apple = Hdlr("soun", "Apple Sound Media Handler", true);
    const Bytes entry = AacEntry(WithConfig({0x12, 0x10, 0x05, 0x28}));
    EXPECT_STREQ(LoadMovie({SoundTrak(entry, Stsz(100, 1000), 44100, 441000, apple)}).record.audioFormat,
                 "MPEG-4 AAC HE");
    EXPECT_STREQ(LoadMovie({Sound(entry)}).record.audioFormat, "MPEG-4 AAC LC");
}

TEST(Mp4Sample, QuickTimeVersionOneSoundEntryCarriesEsdsInWave) {
    const Bytes wave = Wave("mp4a", Cat({Atom("mp4a", Bytes(4, 0)), Esds({})}));
    const Mp4Result r = LoadMovie({Sound(SoundEntry("mp4a", 1, wave, 1))});
    EXPECT_EQ(r.record.bitRate, 128000u);
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
    EXPECT_STREQ(r.record.channelMode, "Mono");
}

TEST(Mp4Sample, SoundEntryWithoutAConfigurationFailsTheWalk) {
    // Neither place holds a known child: the second answer, -1, fails the walk.
    EXPECT_EQ(LoadMovie({Sound(SoundEntry("mp4a", 2, Filler("junk", 40)))}).status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(LoadMovie({Sound(SoundEntry("alac", 2, Filler("junk", 40)))}).status, MFI_NOT_THIS_FORMAT);
}

// ---- MPEG-4 audio object types ---------------------------------------------------

TEST(Mp4Sample, AudioObjectTypesAreNamed) {
    const std::pair<uint8_t, const char*> cases[] = {
        {1, "MPEG-4 AAC main"},         {2, "MPEG-4 AAC LC"},       {5, "MPEG-4 AAC HE"},
        {17, "MPEG-4 ER AAC LC"},       {23, "MPEG-4 ER ACC LD"},   {27, "MPEG-4 ER Parametric"},
        {29, "MPEG-4 Unknown Profile"}, {8, "MPEG-4 Unknown Profile"}, {0, "MPEG-4 Unknown Profile"},
        {10, "MPEG-4 Unknown Profile"}, {11, "MPEG-4 Unknown Profile"}, {31, "MPEG-4 Unknown Profile"},
    };
    for (const auto& [type, name] : cases) {
        const Bytes entry = AacEntry(WithConfig({static_cast<uint8_t>(type << 3), 0x10}));
        EXPECT_STREQ(LoadMovie({Sound(entry)}).record.audioFormat, name) << "object type " << int(type);
    }
}

TEST(Mp4Sample, OneByteAudioConfigIsNoGaConfig) {
    EXPECT_STREQ(LoadMovie({Sound(AacEntry(WithConfig({0x12})))}).record.audioFormat,
                 "MPEG-4 (no GAConfig)");
}

TEST(Mp4Sample, UnnamedAudioObjectTypeLeavesTheFormatUnchanged) {
    // Object type 18 reaches an empty row: the first track's name stays.
    const Bytes first = Sound(AacEntry(WithConfig({0x28, 0x10})));  // type 5
    const Bytes second = Sound(AacEntry(WithConfig({0x90, 0x10})));  // type 18
    EXPECT_STREQ(LoadMovie({first, second}).record.audioFormat, "MPEG-4 AAC HE");
    EXPECT_STREQ(LoadMovie({second}).record.audioFormat, "");
}

TEST(Mp4Sample, OtherObjectTypesAreNamedByTheirPositionInTheList) {
    const std::pair<unsigned, const char*> cases[] = {
        {0x66, "MPEG-4 AAC main"}, {0x67, "MPEG-4 AAC LC"}, {0x69, "MPEG-4 AAC LTP"},
        {0x6B, "MPEG-4 AAC HE"},   {0xE0, "MPEG-4 AAC Scalable"}, {0xE6, ""},
        {0xE5, ""},                {0x41, ""},              {0x00, "AAC from .mov"},
    };
    for (const auto& [type, name] : cases) {
        EXPECT_STREQ(LoadMovie({Sound(AacEntry(WithObjectType(type)))}).record.audioFormat, name)
            << "objectTypeIndication " << type;
    }
}

TEST(Mp4Sample, UnlistedObjectTypeLeavesTheFormatUnchanged) {
    const Bytes first = Sound(AacEntry(WithObjectType(0x69)));
    const Bytes second = Sound(AacEntry(WithObjectType(0xE5)));
    EXPECT_STREQ(LoadMovie({first, second}).record.audioFormat, "MPEG-4 AAC LTP");
}

// ---- Codec names by sample-entry type -------------------------------------------

TEST(Mp4Sample, EntryTypesNameTheCodec) {
    const Mp4Result amr = LoadMovie({Sound(SoundEntry("samr", 1))});
    EXPECT_STREQ(amr.record.audioCodec, "AMR");
    EXPECT_STREQ(amr.record.fileType, "");
    EXPECT_EQ(amr.record.bitRate, 80000u);
    EXPECT_STREQ(LoadMovie({Sound(SoundEntry("sawb", 1))}).record.audioCodec, "AMR-WB");

    const Mp4Result h263 = LoadMovie({Video(VisualEntry("s263", 176, 144, Filler("d263", 15)))});
    EXPECT_EQ(h263.status, MFI_OK);
    EXPECT_STREQ(h263.record.fileType, "H.263");
    EXPECT_EQ(h263.record.width, 176);
    EXPECT_EQ(h263.record.height, 144);
    EXPECT_EQ(h263.record.peakBitRate, 200000u);
    EXPECT_EQ(h263.record.frameRate, 2500u);  // 25000 samples in 10 track seconds

    EXPECT_STREQ(LoadMovie({Video(VisualEntry("xyz1", 8, 8))}).record.fileType, "Unknown");
    EXPECT_STREQ(LoadMovie({Sound(SoundEntry("twos", 2))}).record.fileType, "Unknown");
}

TEST(Mp4Sample, SoundTrackAfterVideoKeepsOrReplacesTheFileType) {
    const Bytes avc = Video(VisualEntry("avc1", 64, 64, AvcC(77, 0x40, 30, 0x27)));
    EXPECT_STREQ(LoadMovie({avc, Sound(AacEntry({}))}).record.fileType, "H.264");
    EXPECT_STREQ(LoadMovie({avc, Sound(SoundEntry("twos", 2))}).record.fileType, "Unknown");
    EXPECT_STREQ(LoadMovie({avc, Sound(SoundEntry("alac", 2, AlacConfig(0, 1000)))}).record.fileType,
                 "AppleLossless");
}

TEST(Mp4Sample, GetTypeAnswersWithTheFieldItWrote) {
    HandlerBench bench;
    char mp4a[] = "mp4a";
    char samr[] = "samr";
    char avc1[] = "avc1";
    EXPECT_EQ(bench.reader.GetType(avc1), bench.record().fileType);
    EXPECT_EQ(bench.reader.GetType(mp4a), bench.record().audioCodec);
    EXPECT_EQ(bench.reader.GetType(samr), bench.record().audioCodec);
    EXPECT_STREQ(bench.record().fileType, "H.264");
    EXPECT_EQ(bench.reader.GetType(nullptr), nullptr);
}

// ---- MPEG-4 visual -------------------------------------------------------------------

// An MPEG-4 visual configuration: visual object sequence with the profile byte.
EsdsFields VisualEsds(uint8_t profile, bool fourByte = false) {
    EsdsFields s;
    s.objectType = 0x20;
    s.avgBitRate = 96000;
    s.fourByteLengths = fourByte;
    s.decoderInfo = {0x00, 0x00, 0x01, 0xB0, profile, 0x00, 0x00, 0x01, 0xB5, 0x09};
    return s;
}

Bytes Mp4v(const EsdsFields& esds) { return Video(VisualEntry("mp4v", 176, 144, Esds(esds))); }

TEST(Mp4Sample, VisualProfileFromTheStartCodeWithoutIods) {
    const Mp4Result r = LoadMovie({Mp4v(VisualEsds(0x03))});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.fileType, "MPEG-4");
    EXPECT_STREQ(r.record.videoFormat, "MPEG-4 Simple @ L3");
    EXPECT_EQ(r.record.profileLevelId, 3);
    EXPECT_EQ(r.record.peakBitRate, 96000u);
    // With the rate from the descriptor, the frame rate is samples per
    // millisecond, in whole numbers, times 1000: 25000 / 10000 -> 2000.
    EXPECT_EQ(r.record.frameRate, 2000u);
    EXPECT_EQ(r.record.width, 176);
}

TEST(Mp4Sample, VisualProfileFromIodsWhenPresent) {
    const Mp4Result r = LoadMovie({Mp4v(VisualEsds(0x03))}, Iods(0xF3));
    EXPECT_STREQ(r.record.videoFormat, "MPEG-4 Adv Simple@L3");
    EXPECT_EQ(r.record.profileLevelId, 3);
}

TEST(Mp4Sample, ProfileNameEndingInL3bGivesNoLevelId) {
    const Mp4Result r = LoadMovie({Mp4v(VisualEsds(0x03))}, Iods(0xF7));
    EXPECT_STREQ(r.record.videoFormat, "MPEG-4 Adv Simple@L3b");
    EXPECT_EQ(r.record.profileLevelId, 0);
}

TEST(Mp4Sample, VisualProfileNamesKeepTheirDoubleBlanks) {
    const Mp4Result r = LoadMovie({Mp4v(VisualEsds(0x51))});
    EXPECT_STREQ(r.record.videoFormat, "MPEG-4  Scalable Texture @ L1");
    EXPECT_EQ(r.record.profileLevelId, 1);
}

TEST(Mp4Sample, UnknownVisualProfile) {
    EXPECT_STREQ(LoadMovie({Mp4v(VisualEsds(0x03))}, Iods(0xFF)).record.videoFormat,
                 "MPEG-4 Unknown Profile");
    EsdsFields noStartCode = VisualEsds(0x03);
    noStartCode.decoderInfo = {0x00, 0x00, 0x01, 0xB5, 0x09};
    EXPECT_STREQ(LoadMovie({Mp4v(noStartCode)}).record.videoFormat, "MPEG-4 Unknown Profile");
}

TEST(Mp4Sample, FourByteVisualEsdsScansPastTheContinuationBytes) {
    // The length byte read is a 0x80 continuation: 128 positions are
    // scanned, which reach the start code behind the real length byte.
    const Mp4Result r = LoadMovie({Mp4v(VisualEsds(0x08, true))});
    EXPECT_STREQ(r.record.videoFormat, "MPEG-4 Simple @ L0");
    EXPECT_EQ(r.record.profileLevelId, 0);
    EXPECT_EQ(r.record.peakBitRate, 200000u);  // no rate in this form: from the table
    EXPECT_EQ(r.record.frameRate, 2500u);
}

TEST(Mp4Sample, OtherVisualObjectTypesAreNamedFromTheList) {
    EsdsFields s = VisualEsds(0x03);
    const std::pair<unsigned, const char*> cases[] = {
        {0x60, "MPEG-2 Simple"}, {0x65, "MPEG-2 4:2:2"}, {0x6A, "MPEG-1"}, {0x6C, "JPEG"},
        {0xF0, "YUV12"},         {0xF2, "H.263"},        {0xF3, "H.261"},  {0x99, ""},
    };
    for (const auto& [type, name] : cases) {
        s.objectType = type;
        EXPECT_STREQ(LoadMovie({Mp4v(s)}).record.videoFormat, name) << "objectTypeIndication " << type;
    }
}

TEST(Mp4Sample, GetProfileLevelStopsAtTheEndOfTheBuffer) {
    HandlerBench bench;
    unsigned char* near = bench.buffer + Mp4Info::kBufferAllocation - 6;
    near[0] = 255;  // claims 255 positions; only one start code fits
    EXPECT_EQ(bench.reader.GetProfileLevel(near), 0);
    const Bytes found{4, 0x00, 0x00, 0x01, 0xB0, 0xF5};
    memcpy(bench.buffer + Mp4Info::kBufferAllocation - 6, found.data(), found.size());
    EXPECT_EQ(bench.reader.GetProfileLevel(near), 0xF5);
    EXPECT_EQ(bench.reader.GetProfileLevel(nullptr), 0);
}

TEST(Mp4Sample, GetProfileNameFindsTheRowOrNothing) {
    HandlerBench bench;
    EXPECT_STREQ(bench.reader.GetProfileName(0x01), "MPEG-4 Simple @ L1");
    EXPECT_STREQ(bench.reader.GetProfileName(0xFD), "MPEG-4 FGS @ L5");
    EXPECT_STREQ(bench.reader.GetProfileName(0xB3), "MPEG-4 Adv Coding Efficieny @ L3");
    EXPECT_EQ(bench.reader.GetProfileName(0x00), nullptr);
    EXPECT_EQ(bench.reader.GetProfileName(0xF6), nullptr);
}

// ---- H.264 -----------------------------------------------------------------------------

Mp4Result LoadAvc(const Bytes& config) { return LoadMovie({Video(VisualEntry("avc1", 320, 240, config))}); }

TEST(Mp4Sample, AvcProfilesAndLevelsAreNamed) {
    struct Case {
        unsigned profile, level;
        const char* name;
    };
    const Case cases[] = {
        {100, 31, "H264 High@L3.1"},      {100, 9, "H264 High@Lunknown"},
        {77, 31, "H264 Main@L3.1"},       {66, 30, "H264 Baseline@L3"},
        {88, 12, "H264 Extended@L1.2"},   {110, 40, "H264 High 10@L4"},
        {122, 51, "H264 High 4:2:2@L5.1"}, {144, 50, "H264 High 4:4:4@L5"},
        {99, 9, "H264 @Lunknown"},        {100, 52, "H264 High@Lunknown"},
        {100, 10, "H264 High@L1"},        {66, 13, "H264 Baseline@L1.3"},
    };
    for (const Case& c : cases) {
        const Mp4Result r = LoadAvc(AvcC(c.profile, 0x40, c.level, 0x27));
        EXPECT_STREQ(r.record.videoFormat, c.name);
        EXPECT_EQ(r.record.profile, c.profile);
        EXPECT_EQ(r.record.level, c.level);
        EXPECT_STREQ(r.record.fileType, "H.264");
    }
}

TEST(Mp4Sample, AvcIsLowComplexityBySpsHeaderOrConstraintFlags) {
    EXPECT_STREQ(LoadAvc(AvcC(100, 0x00, 31, 0x67)).record.fileType, "H.264LC");
    EXPECT_STREQ(LoadAvc(AvcC(66, 0xE0, 30, 0x27)).record.fileType, "H.264LC");
    EXPECT_STREQ(LoadAvc(AvcC(66, 0xC0, 30, 0x27)).record.fileType, "H.264");
}

TEST(Mp4Sample, AvcTrackMeasuresItsRates) {
    const Mp4Result r = LoadAvc(AvcC(100, 0x00, 31));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_TRUE(r.video);
    EXPECT_EQ(r.record.width, 320);
    EXPECT_EQ(r.record.height, 240);
    EXPECT_EQ(r.record.peakBitRate, 200000u);
    EXPECT_EQ(r.record.frameRate, 2500u);
}

TEST(Mp4Sample, LowerCaseAvccIsReadUnderAnyHandler) {
    EXPECT_STREQ(LoadAvc(AvcC(77, 0x40, 21, 0x27, "avcc")).record.videoFormat, "H264 Main@L2.1");
    // Even as the child of a sound entry.
    const Mp4Result r = LoadMovie({Sound(SoundEntry("mp4a", 2, AvcC(66, 0x40, 30, 0x27, "avcc")))});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.videoFormat, "H264 Baseline@L3");
}

TEST(Mp4Sample, AvcCUnderASoundHandlerIsRefused) {
    const Mp4Result r = LoadMovie({Sound(SoundEntry("mp4a", 2, AvcC(66, 0x40, 30)))});
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(r.record.videoFormat, "");
}

// ---- Apple Lossless ------------------------------------------------------------------------

TEST(Mp4Sample, AlacGivesItsBitRateAndTheByteAfterTheFrameLength) {
    // The byte taken as the sample size is the configuration's compatible
    // version, 0 in real files; a 24 there shows which byte is read.
    const Mp4Result r = LoadMovie({Sound(SoundEntry("alac", 2, AlacConfig(0, 256000, 16)))});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.fileType, "AppleLossless");
    EXPECT_STREQ(r.record.audioFormat, "Apple Lossless");
    EXPECT_EQ(r.record.bitRate, 256000u);
    EXPECT_EQ(r.record.bitsPerSample, 0);
    EXPECT_EQ(LoadMovie({Sound(SoundEntry("alac", 2, AlacConfig(24, 256000)))}).record.bitsPerSample, 24);
}

TEST(Mp4Sample, AlacInAQuickTimeWaveAtom) {
    const Bytes entry = SoundEntry("alac", 2, Wave("alac", AlacConfig(20, 512000)), 1);
    const Mp4Result r = LoadMovie({Sound(entry)});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 512000u);
    EXPECT_EQ(r.record.bitsPerSample, 20);
}

TEST(Mp4Sample, AlacInTheFourByteLayoutGivesNoBitRate) {
    ByteWriter w;
    w.be32(0).fill(6).be16(0).be32(0x04808080).u8(0x11).u8(0x22).u8(0x33).u8(0x44).u8(0x55).u8(24).fill(10);
    const Mp4Result r = LoadMovie({Sound(SoundEntry("alac", 2, Atom("alac", w.data())))});
    EXPECT_EQ(r.record.bitsPerSample, 24);  // byte 4 from 21 bytes after the type
    EXPECT_EQ(r.record.bitRate, 80000u);    // from the table
}

TEST(Mp4Sample, AlacEntryWithEsdsIsNamedFromTheDescriptor) {
    const Mp4Result r = LoadMovie({Sound(SoundEntry("alac", 2, Esds({})))});
    EXPECT_STREQ(r.record.fileType, "AppleLossless");
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
    EXPECT_EQ(r.record.bitRate, 128000u);
}

// ---- Sample sizes ------------------------------------------------------------------------------

TEST(Mp4Sample, ConstantSampleSizeGivesTheBitRate) {
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(400, 1000), 1000, 10000);
    EXPECT_EQ(LoadMovie({sound}).record.bitRate, 320000u);  // 400 x 1000 x 8 / 10 s
}

TEST(Mp4Sample, SoundBitRateOf2To32AndMoreReadsAsTwoTo31) {
    // 0xFFFFFFFF bytes x 1000 samples x 8 / 10 s is far beyond 32 bits.
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(0xFFFFFFFFu, 1000), 1000, 10000);
    EXPECT_EQ(LoadMovie({sound}).record.bitRate, 2147483648u);
}

TEST(Mp4Sample, VideoBitRateOf2To32AndMoreReadsAsTwoTo31) {
    const Bytes video = VideoTrak(VisualEntry("s263", 176, 144), Stsz(0xFFFFFFFFu, 1000), 600, 6000);
    const Mp4Result r = LoadMovie({video});
    EXPECT_EQ(r.record.peakBitRate, 2147483648u);
    EXPECT_EQ(r.record.frameRate, 100u);  // 1000 samples / 10 s
}

TEST(Mp4Sample, SampleSizeTableInTheBufferIsSummed) {
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(0, 3, {1000, 2000, 3000}), 1000, 10000);
    EXPECT_EQ(LoadMovie({sound}).record.bitRate, 4800u);  // 6000 x 8 / 10 s
}

// A sound track whose size table starts at file offset `at`, with entries
// 1, 2, ... n and a 16-byte "stco" right after it.
Bytes TableAt(size_t at, uint32_t n) {
    std::vector<uint32_t> table(n);
    for (uint32_t k = 0; k < n; ++k) table[k] = k + 1;
    auto build = [&](uint32_t filler) {
        const Bytes stbl = Cat({Stsd(SoundEntry("samr", 1)), Filler("fill", filler), Stsz(0, n, table),
                                Filler("stco", 16)});
        return FastStart(Moov({Mvhd(1000, 10000), Trak("soun", 1000, 10000, stbl)}), 9000);
    };
    const size_t natural = OffsetOf(build(8), "stsz");
    return build(static_cast<uint32_t>(8 + at - natural));
}

TEST(Mp4Sample, SizeTableRunningOutOfTheBufferIsReadOnFromTheFile) {
    // At cursor 3800, entry 68 is the first whose end passes 4092: entries
    // 68 and 69 are left out, the file read resumes at entry 70, and the
    // last word summed is the one after the table (the "stco" size, 16).
    const Bytes file = TableAt(3800, 100);
    ASSERT_EQ(OffsetOf(file, "stsz"), 3800u);
    uint32_t expected = 0;
    for (uint32_t k = 1; k <= 68; ++k) expected += k;
    for (uint32_t k = 71; k <= 100; ++k) expected += k;
    expected += 16;
    EXPECT_EQ(expected, 4927u);
    EXPECT_EQ(LoadMp4(file).record.bitRate, 3941u);  // 4927 x 8 / 10 s
}

TEST(Mp4Sample, SizeTableRunningOutAtItsLastEntrySumsOneWordPastIt) {
    // The table ends exactly at the switch: entry 68 is the last; the file
    // read starts two entries on, 4 bytes past the "stco" size.
    const Bytes file = TableAt(3800, 69);
    // Entries 1..68, then the word 8 bytes after the table: the "stco" type.
    uint32_t expected = 68 * 69 / 2;
    expected += ('s' << 24) | ('t' << 16) | ('c' << 8) | 'o';
    EXPECT_EQ(LoadMp4(file).record.bitRate,
              MediaFileInfoBase::DoubleToUInt32(static_cast<double>(expected) / 10.0 * 8));
}

TEST(Mp4Sample, HugeSampleCountSumsOnlyWhatTheFileHolds) {
    // 0xFFFFFFFF samples claimed, three present, zeroes after them to the
    // file's end: the sum is over what exists, and it ends at once.
    ByteWriter stsz;
    stsz.be32(0).be32(0xFFFFFFFFu).be32(500).be32(600).be32(700);
    const Bytes video = VideoTrak(VisualEntry("avc1", 64, 64, AvcC(66, 0x40, 30, 0x27)),
                                  FullAtom("stsz", stsz.data()), 600, 6000);
    Bytes file = Cat({Ftyp(), Moov({Mvhd(1000, 10000), video}), Atom("mdat", Bytes(12000, 0))});
    const auto start = std::chrono::steady_clock::now();
    const Mp4Result r = LoadMp4(file);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(r.status, MFI_OK);
    // The words after the table in the buffer: the "mdat" header (size and
    // type), then zeroes.
    const uint32_t mdatSize = 12008;
    const uint32_t mdatType = ('m' << 24) | ('d' << 16) | ('a' << 8) | 't';
    EXPECT_EQ(r.record.peakBitRate,
              MediaFileInfoBase::DoubleToUInt32((500.0 + 600 + 700 + mdatSize + mdatType) / 10.0 * 8));
    EXPECT_EQ(r.record.frameRate, 429496729u);  // 0xFFFFFFFF / 10 s
}

TEST(Mp4Sample, HugeSampleCountReachingTheBufferEndIsReadFromTheFile) {
    // The same claim from cursor 3800: 68 entries in the buffer, then the
    // file from entry 70 to its end; everything there is zero but the
    // "stco" words and the "mdat" header.
    auto build = [&](uint32_t filler) {
        ByteWriter stsz;
        stsz.be32(0).be32(0xFFFFFFFFu).be32(7);
        const Bytes stbl = Cat({Stsd(SoundEntry("samr", 1)), Filler("fill", filler), FullAtom("stsz", stsz.data())});
        return Cat({Ftyp(), Moov({Mvhd(1000, 10000), Trak("soun", 1000, 10000, stbl)}), Atom("mdat", Bytes(9000, 0))});
    };
    const size_t natural = OffsetOf(build(8), "stsz");
    const Bytes file = build(static_cast<uint32_t>(8 + 3800 - natural));
    ASSERT_EQ(OffsetOf(file, "stsz"), 3800u);
    // Entry 0 is 7; entries 1.. are the "mdat" header and zeroes (entries
    // 68 and 69, left out, are zeroes too).
    const double sum = 7.0 + 9008 + (('m' << 24) | ('d' << 16) | ('a' << 8) | 't');
    EXPECT_EQ(LoadMp4(file).record.bitRate, MediaFileInfoBase::DoubleToUInt32(sum / 10.0 * 8));
}

TEST(Mp4Sample, ZeroTrackSecondsGivesNoRates) {
    const Bytes video = VideoTrak(VisualEntry("avc1", 64, 64, AvcC(66, 0x40, 30, 0x27)),
                                  Stsz(100, 250), 600, 0);
    const Mp4Result r = LoadMovie({video});
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.peakBitRate, 0u);
    EXPECT_EQ(r.record.frameRate, 0u);
}

TEST(Mp4Sample, ZeroMovieDurationGivesNoRates) {
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(400, 1000), 1000, 10000);
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 999), sound})));
    EXPECT_EQ(r.record.durationMs, 0u);
    EXPECT_EQ(r.record.bitRate, 0u);
}

TEST(Mp4Sample, NullPointersAreRefused) {
    HandlerBench bench;
    EXPECT_EQ(bench.reader.ReadBitRate(nullptr), -1);
    EXPECT_EQ(bench.reader.GetMp4vType(nullptr), -1);
    EXPECT_EQ(bench.reader.GetMp4aType(nullptr, 0), -1);
    EXPECT_EQ(bench.reader.GetAvcType(nullptr), -1);
    EXPECT_EQ(bench.reader.GetAlacType(nullptr), -1);
    EXPECT_EQ(bench.reader.GetBitRate(nullptr), 0u);
}

TEST(Mp4Sample, UnknownChildIsRefused) {
    HandlerBench bench;
    bench.Put(Atom("d263", Bytes(20, 0)));
    EXPECT_EQ(bench.reader.ReadBitRate(bench.buffer + 4), -1);
}

// ---- The tables, row by row ------------------------------------------------------------------

TEST(Mp4Sample, AudioFormatTableHasItsRows) {
    EXPECT_EQ(sizeof Mp4Info::Mpeg4AudioFormat / sizeof *Mp4Info::Mpeg4AudioFormat, 27u);
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[0], "MPEG-4 AAC main");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[9], "");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[10], "");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[15], "MPEG-4 Algo Syn and Audio FX");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[17], "");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[22], "MPEG-4 ER ACC LD");
    EXPECT_STREQ(Mp4Info::Mpeg4AudioFormat[26], "MPEG-4 ER Parametric");
    EXPECT_STREQ(Mp4Info::AppleLosslessAudioFormat[0], "Apple Lossless");
}

TEST(Mp4Sample, ObjectTypeListsHaveTheirBytes) {
    const unsigned char audio[] = {0x66, 0x67, 0x68, 0x69, 0x6B, 0xE0, 0xE1, 0xE3, 0xE4, 0xE5, 0xE6};
    const unsigned char video[] = {0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x6A, 0x6C, 0xF0, 0xF2, 0xF3};
    EXPECT_EQ(memcmp(Mp4Info::MpegAudioTypes, audio, sizeof audio), 0);
    EXPECT_EQ(memcmp(Mp4Info::MpegVideoTypes, video, sizeof video), 0);
    const char* names[] = {"MPEG-2 Simple", "MPEG-2 Main", "MPEG-2 SNR", "MPEG-2 Spatial", "MPEG-2 High",
                           "MPEG-2 4:2:2", "MPEG-1", "JPEG", "YUV12", "H.263", "H.261"};
    for (size_t i = 0; i < 11; ++i) EXPECT_STREQ(Mp4Info::Mpeg4VideoFormat[i], names[i]);
}

TEST(Mp4Sample, VisualProfileTableIsInByteOrderWithItsSpellings) {
    const size_t rows = sizeof Mp4Info::VideoProfileName / sizeof *Mp4Info::VideoProfileName;
    ASSERT_EQ(rows, 58u);
    for (size_t i = 1; i < rows; ++i) {
        EXPECT_LT(Mp4Info::VideoProfileName[i - 1].profileLevel, Mp4Info::VideoProfileName[i].profileLevel);
    }
    EXPECT_EQ(Mp4Info::VideoProfileName[0].profileLevel, 0x01);
    EXPECT_EQ(Mp4Info::VideoProfileName[57].profileLevel, 0xFD);
    const std::pair<unsigned char, const char*> spot[] = {
        {0x08, "MPEG-4 Simple @ L0"},           {0x51, "MPEG-4  Scalable Texture @ L1"},
        {0x62, "MPEG-4  Simple Face Anim @ L2"}, {0x63, "MPEG-4  Simple FBA @ L1"},
        {0x64, "MPEG-4 Simple FBA @ L2"},        {0xB1, "MPEG-4 Adv Coding Efficieny @ L1"},
        {0xC2, "MPEG-4 Adv Core Profile @ L2"},  {0xE8, "MPEG-4 Core Studio @ L4"},
        {0xF0, "MPEG-4 Adv Simple@L0"},          {0xF7, "MPEG-4 Adv Simple@L3b"},
        {0xF8, "MPEG-4 FGS @ L0"},               {0x94, "MPEG-4 Adv RT Simple @ L4"},
    };
    for (const auto& [b, name] : spot) {
        bool found = false;
        for (const auto& row : Mp4Info::VideoProfileName) {
            if (row.profileLevel == b) {
                EXPECT_STREQ(row.name, name);
                found = true;
            }
        }
        EXPECT_TRUE(found) << int(b);
    }
}

}  // namespace
