// The MP4-family reading on crafted files: the type by brand, durations,
// every sound and picture codec the sample entries name, the sample
// tables' numbers, compressed movie headers, 64-bit sizes, items, and
// hostile sizes that must neither trap nor run long.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Mp4Builder.h"
#include "TestFiles.h"
#include "media/Id3.h"
#include "media/Reading.h"

namespace {

using fileinfo::media::Reading;

Reading ReadBytes(const Bytes& bytes) {
    TempDir dir;
    Reading r;
    EXPECT_EQ(fileinfo::media::ReadMediaPath(dir.write("file", bytes), r), 0);
    return r;
}

// A sound track with one sample entry, 10 samples of 100 bytes over 10 s.
Bytes SoundMovie(const Bytes& entry, const std::vector<uint64_t>& chunks = {}) {
    const Bytes stbl = Cat({Stsd(entry), Stts({{10, 4410}}), Stsz(100, 10), Stco(chunks)});
    return Moov({Mvhd(1000, 1000), Trak("soun", 4410, 44100, stbl)});
}

Bytes VideoMovie(const Bytes& entry) {
    const Bytes stbl = Cat({Stsd(entry), Stts({{25, 40}}), Stsz(1000, 25), Stco({})});
    return Moov({Mvhd(1000, 1000), Trak("vide", 1000, 1000, stbl)});
}

Bytes AacEntry(const Bytes& audioSpecificConfig, unsigned channels = 2) {
    EsdsFields esds;
    esds.decoderInfo = audioSpecificConfig;
    return SoundEntry("mp4a", channels, Esds(esds));
}

Reading ReadSound(const Bytes& entry) { return ReadBytes(FastStart(SoundMovie(entry))); }
Reading ReadPicture(const Bytes& entry) { return ReadBytes(FastStart(VideoMovie(entry))); }

Bytes MpegVisualEntry(unsigned objectType, const Bytes& info = {}) {
    EsdsFields esds;
    esds.objectType = objectType;
    esds.decoderInfo = info;
    return VisualEntry("mp4v", 352, 288, Esds(esds));
}

// A visual object sequence header with the given profile_and_level_indication.
Bytes VisualObjectSequence(unsigned indication) {
    return Bytes{0x00, 0x00, 0x01, 0xB0, static_cast<uint8_t>(indication)};
}

// --- The type by brand ---

std::string TypeOf(const Bytes& ftyp) {
    return ReadBytes(Cat({ftyp, SoundMovie(AacEntry(AacLcStereo44k()))})).type;
}

TEST(Mp4Type, MajorBrandNamesTheType) {
    const std::pair<const char*, const char*> cases[] = {
        {"M4A ", "M4A"}, {"M4B ", "M4A"}, {"M4V ", "M4V"}, {"M4VH", "M4V"}, {"M4VP", "M4V"},
        {"qt  ", "MOV"}, {"3gp4", "3GP"}, {"3gp6", "3GP"}, {"3g2a", "3GP"}, {"isom", "MP4"},
        {"iso2", "MP4"}, {"iso6", "MP4"}, {"mp41", "MP4"}, {"mp42", "MP4"}, {"avc1", "MP4"},
        {"dash", "MP4"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TypeOf(FtypBrands(c.first, {"zzzz"})), c.second) << c.first;
    }
}

TEST(Mp4Type, UnknownMajorBrandFallsBackToCompatibleBrands) {
    EXPECT_EQ(TypeOf(FtypBrands("abcd", {"wxyz", "M4A ", "isom"})), "M4A");
    EXPECT_EQ(TypeOf(FtypBrands("abcd", {"3gp5"})), "3GP");
}

TEST(Mp4Type, UnknownBrandsAreMp4) { EXPECT_EQ(TypeOf(FtypBrands("abcd", {"efgh"})), "MP4"); }

TEST(Mp4Type, MovieWithoutFtypIsMov) {
    const Bytes moov = SoundMovie(AacEntry(AacLcStereo44k()));
    EXPECT_EQ(ReadBytes(moov).type, "MOV");
    EXPECT_EQ(ReadBytes(Cat({Filler("wide", 8), Filler("mdat", 100), moov})).type, "MOV");
    EXPECT_EQ(ReadBytes(Cat({Filler("mdat", 100), moov})).type, "MOV");
}

TEST(Mp4Type, BoxesWithoutFtypOrMovieAreNotMp4) {
    const Reading r = ReadBytes(Cat({Filler("free", 64), Filler("skip", 64)}));
    EXPECT_NE(r.type, "MOV");
    EXPECT_NE(r.type, "MP4");
}

TEST(Mp4Type, FtypWithoutMovieIsStillItsType) {
    const Reading r = ReadBytes(Cat({FtypBrands("M4A ", {}), Filler("mdat", 100)}));
    EXPECT_EQ(r.type, "M4A");
    EXPECT_FALSE(r.HasAudio());
    EXPECT_EQ(r.duration_ms, 0u);
}

// --- Durations and bit rates ---

TEST(Mp4Duration, MovieHeaderGivesExactMilliseconds) {
    const Bytes moov = Moov({Mvhd(600, 1234)});
    const Reading r = ReadBytes(Cat({Ftyp(), moov}));
    EXPECT_EQ(r.duration_ms, 2057u);  // 1234 / 600 s
}

TEST(Mp4Duration, VersionOneMovieHeaderHas64BitDuration) {
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({MvhdV1(1000, 6000000000ull)})}));
    EXPECT_EQ(r.duration_ms, 6000000000ull);
}

TEST(Mp4Duration, ZeroMovieDurationTakesTheLongestTrack) {
    const Bytes stbl = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(100, 10)});
    const Bytes video = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stsz(10, 10)});
    const Bytes moov = Moov({Mvhd(1000, 0), Trak("soun", 44100, 132300, stbl), Trak("vide", 600, 2400, video)});
    EXPECT_EQ(ReadBytes(Cat({Ftyp(), moov})).duration_ms, 4000u);
}

TEST(Mp4Duration, VersionOneMediaHeaderIsRead) {
    const Bytes stbl = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(100, 10)});
    const Bytes trak = Box("trak", {Box("mdia", {MdhdV1(48000, 96000), Hdlr("soun"),
                                                 Box("minf", {Atom("stbl", stbl)})})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 0), trak})}));
    EXPECT_EQ(r.duration_ms, 2000u);
    EXPECT_EQ(r.audio_bit_rate, 4000u);  // 1000 bytes over 2 s
}

TEST(Mp4Duration, BitRateIsTheFileOverTheMovieDuration) {
    const Bytes file = FastStart(SoundMovie(AacEntry(AacLcStereo44k())), 10000);
    const Reading r = ReadBytes(file);
    ASSERT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.size, file.size());
    EXPECT_EQ(r.bit_rate, file.size() * 8);
    EXPECT_EQ(r.audio_bit_rate, 800u);  // 10 samples of 100 bytes over 10 s
}

// --- Sound ---

TEST(Mp4Sound, AacLcFromAudioSpecificConfig) {
    const Reading r = ReadSound(AacEntry(AacLcStereo44k()));
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 44100u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bits_per_sample, 0u);
}

TEST(Mp4Sound, AacMainInMp4IsAacMain) {
    // Object type 1, 48 kHz (index 3), one channel.
    const Reading r = ReadSound(AacEntry(Bits({{1, 5}, {3, 4}, {1, 4}, {0, 3}}), 2));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.audio_codec, "AAC Main");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 1u);
}

TEST(Mp4Sound, AacSsrAndLtpAreNamed) {
    EXPECT_EQ(ReadSound(AacEntry(Bits({{3, 5}, {4, 4}, {2, 4}}))).audio_codec, "AAC SSR");
    EXPECT_EQ(ReadSound(AacEntry(Bits({{4, 5}, {4, 4}, {2, 4}}))).audio_codec, "AAC LTP");
}

TEST(Mp4Sound, ExplicitSamplingRateIsRead) {
    const Reading r = ReadSound(AacEntry(Bits({{2, 5}, {15, 4}, {37800, 24}, {2, 4}, {0, 3}})));
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 37800u);
}

TEST(Mp4Sound, SixChannelConfigurationIsSixChannels) {
    EXPECT_EQ(ReadSound(AacEntry(Bits({{2, 5}, {3, 4}, {6, 4}, {0, 3}}))).channels, 6u);
    EXPECT_EQ(ReadSound(AacEntry(Bits({{2, 5}, {3, 4}, {7, 4}, {0, 3}}))).channels, 8u);
}

TEST(Mp4Sound, HierarchicalSbrIsHeAacAtTheExtensionRate) {
    // Object type 5, core 22.05 kHz (7), stereo, extension 44.1 kHz (4), core LC.
    const Reading r = ReadSound(AacEntry(Bits({{5, 5}, {7, 4}, {2, 4}, {4, 4}, {2, 5}, {0, 3}})));
    EXPECT_EQ(r.audio_codec, "HE-AAC");
    EXPECT_EQ(r.sample_rate, 44100u);
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, ParametricStereoIsHeAacV2WithTwoChannels) {
    const Reading r = ReadSound(AacEntry(Bits({{29, 5}, {6, 4}, {1, 4}, {3, 4}, {2, 5}, {0, 3}}), 1));
    EXPECT_EQ(r.audio_codec, "HE-AACv2");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, BackwardCompatibleSbrSignalIsHeAac) {
    // LC at 24 kHz mono, then sync extension 0x2B7, SBR object type, present, 48 kHz.
    const Reading r = ReadSound(AacEntry(Bits({{2, 5}, {6, 4}, {1, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}})));
    EXPECT_EQ(r.audio_codec, "HE-AAC");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 1u);
}

TEST(Mp4Sound, BackwardCompatiblePsSignalIsHeAacV2) {
    const Reading r = ReadSound(AacEntry(
        Bits({{2, 5}, {6, 4}, {1, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {1, 1}, {3, 4}, {0x548, 11}, {1, 1}})));
    EXPECT_EQ(r.audio_codec, "HE-AACv2");
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, SbrSignalledAbsentStaysAacLc) {
    const Reading r = ReadSound(AacEntry(Bits({{2, 5}, {6, 4}, {1, 4}, {0, 3}, {0x2B7, 11}, {5, 5}, {0, 1}})));
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 24000u);
}

TEST(Mp4Sound, Mpeg2AacObjectTypesAreNamed) {
    for (const auto& c : {std::make_pair(0x66u, "AAC Main"), std::make_pair(0x67u, "AAC LC"),
                          std::make_pair(0x68u, "AAC SSR")}) {
        EsdsFields esds;
        esds.objectType = c.first;
        EXPECT_EQ(ReadSound(SoundEntry("mp4a", 2, Esds(esds))).audio_codec, c.second);
    }
}

TEST(Mp4Sound, EsdsWithFourByteLengthsIsRead) {
    EsdsFields esds;
    esds.fourByteLengths = true;
    esds.decoderInfo = Bits({{1, 5}, {4, 4}, {2, 4}});
    EXPECT_EQ(ReadSound(SoundEntry("mp4a", 2, Esds(esds))).audio_codec, "AAC Main");
}

TEST(Mp4Sound, QuickTimeEsdsInsideWaveIsRead) {
    EsdsFields esds;
    esds.decoderInfo = Bits({{1, 5}, {8, 4}, {1, 4}});
    const Reading r = ReadSound(SoundEntry("mp4a", 1, Wave("mp4a", Esds(esds)), 1, 16000));
    EXPECT_EQ(r.audio_codec, "AAC Main");
    EXPECT_EQ(r.sample_rate, 16000u);
    EXPECT_EQ(r.channels, 1u);
}

// MPEG audio in an mp4a entry: the layer is in the first frame's header,
// at the first chunk's offset.
Reading ReadMpegAudioInMp4(unsigned objectType, const Bytes& frameHeader) {
    EsdsFields esds;
    esds.objectType = objectType;
    esds.decoderInfo = {};
    const Bytes ftyp = Ftyp();
    const Bytes mdat = Atom("mdat", Cat({frameHeader, Bytes(400, 0x55)}));
    const uint64_t firstChunk = ftyp.size() + 8;
    return ReadBytes(Cat({ftyp, mdat, SoundMovie(SoundEntry("mp4a", 2, Esds(esds)), {firstChunk})}));
}

TEST(Mp4Sound, LayerTwoSoundInMp4IsMp2) {
    // MPEG-1 Layer II, 192 kbit/s, 32 kHz, one channel.
    const Reading r = ReadMpegAudioInMp4(0x6B, {0xFF, 0xFD, 0xA8, 0xC4});
    EXPECT_EQ(r.audio_codec, "MP2");
    EXPECT_EQ(r.sample_rate, 32000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.audio_bit_rate, 800u);
}

TEST(Mp4Sound, LayerThreeAndLayerOneAreMp3AndMp1) {
    EXPECT_EQ(ReadMpegAudioInMp4(0x6B, {0xFF, 0xFB, 0x90, 0x00}).audio_codec, "MP3");
    EXPECT_EQ(ReadMpegAudioInMp4(0x6B, {0xFF, 0xFF, 0x90, 0x00}).audio_codec, "MP1");
    const Reading mpeg2 = ReadMpegAudioInMp4(0x69, {0xFF, 0xF5, 0x84, 0x00});
    EXPECT_EQ(mpeg2.audio_codec, "MP2");
    EXPECT_EQ(mpeg2.sample_rate, 24000u);
    EXPECT_EQ(mpeg2.channels, 2u);
}

TEST(Mp4Sound, MpegAudioWithoutAFrameHeaderIsMp3) {
    EXPECT_EQ(ReadMpegAudioInMp4(0x6B, {0x00, 0x00, 0x00, 0x00}).audio_codec, "MP3");
}

TEST(Mp4Sound, ChunkOffsetPastTheFileIsNotRead) {
    EsdsFields esds;
    esds.objectType = 0x6B;
    esds.decoderInfo = {};
    const Reading r = ReadBytes(Cat({Ftyp(), SoundMovie(SoundEntry("mp4a", 2, Esds(esds)), {0xFFFFFF00u})}));
    EXPECT_EQ(r.audio_codec, "MP3");
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, AlacTakesItsNumbersFromTheCookie) {
    ByteWriter cookie;
    cookie.be32(4096).u8(0).u8(24).u8(40).u8(10).u8(14).u8(2).be16(255).be32(0).be32(0).be32(48000);
    const Reading r = ReadSound(SoundEntry("alac", 2, FullAtom("alac", cookie.data()), 0, 44100));
    EXPECT_EQ(r.audio_codec, "ALAC");
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, NamedSoundEntries) {
    const std::pair<const char*, const char*> cases[] = {
        {"samr", "AMR-NB"}, {"sawb", "AMR-WB"}, {"ac-3", "AC-3"}, {"ec-3", "E-AC-3"},
        {".mp3", "MP3"},    {"Opus", "Opus"},   {"fLaC", "FLAC"},
    };
    for (const auto& c : cases) EXPECT_EQ(ReadSound(SoundEntry(c.first, 1)).audio_codec, c.second) << c.first;
}

TEST(Mp4Sound, AmrRatesAreFixed) {
    EXPECT_EQ(ReadSound(SoundEntry("samr", 1, {}, 0, 8000)).sample_rate, 8000u);
    EXPECT_EQ(ReadSound(SoundEntry("sawb", 1, {}, 0, 16000)).sample_rate, 16000u);
    EXPECT_EQ(ReadSound(SoundEntry("samr", 1, {}, 0, 8000)).channels, 1u);
}

TEST(Mp4Sound, Ac3ChannelsComeFromItsConfiguration) {
    // 48 kHz, bsid 8, bsmod 0, acmod 7 (3/2), LFE: 5.1.
    const Bytes dac3 = Bits({{0, 2}, {8, 5}, {0, 3}, {7, 3}, {1, 1}, {0, 5}, {0, 5}});
    const Reading r = ReadSound(SoundEntry("ac-3", 2, Atom("dac3", dac3)));
    EXPECT_EQ(r.audio_codec, "AC-3");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 6u);
}

TEST(Mp4Sound, OpusDecodesAt48kHz) {
    ByteWriter dops;
    dops.u8(0).u8(2).be16(312).be32(44100).be16(0).u8(0);
    const Reading r = ReadSound(SoundEntry("Opus", 2, Atom("dOps", dops.data()), 0, 48000));
    EXPECT_EQ(r.audio_codec, "Opus");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, FlacTakesItsNumbersFromStreamInfo) {
    ByteWriter dfla;
    dfla.be32(0).u8(0x80).be24(34).be16(4096).be16(4096).be24(0).be24(0);
    dfla.bytes(Bits({{96000, 20}, {5, 3}, {23, 5}, {0, 4}, {0, 32}})).fill(16);
    const Reading r = ReadSound(SoundEntry("fLaC", 2, Atom("dfLa", dfla.data()), 0, 48000));
    EXPECT_EQ(r.audio_codec, "FLAC");
    EXPECT_EQ(r.sample_rate, 96000u);
    EXPECT_EQ(r.channels, 6u);
    EXPECT_EQ(r.bits_per_sample, 24u);
}

TEST(Mp4Sound, IntegerPcmEntries) {
    const Reading sowt = ReadSound(SoundEntry("sowt", 2));
    EXPECT_EQ(sowt.audio_codec, "PCM");
    EXPECT_EQ(sowt.pcm_format, "integer");
    EXPECT_EQ(sowt.bits_per_sample, 16u);
    EXPECT_EQ(ReadSound(SoundEntry("twos", 2)).bits_per_sample, 16u);
    EXPECT_EQ(ReadSound(SoundEntry("in24", 2)).bits_per_sample, 24u);
    EXPECT_EQ(ReadSound(SoundEntry("in32", 2)).bits_per_sample, 32u);
    EXPECT_EQ(ReadSound(SoundEntry("raw ", 1)).bits_per_sample, 8u);
}

TEST(Mp4Sound, FloatPcmEntries) {
    const Reading fl32 = ReadSound(SoundEntry("fl32", 2));
    EXPECT_EQ(fl32.audio_codec, "PCM");
    EXPECT_EQ(fl32.pcm_format, "float");
    EXPECT_EQ(fl32.bits_per_sample, 32u);
    EXPECT_EQ(ReadSound(SoundEntry("fl64", 2)).bits_per_sample, 64u);
}

TEST(Mp4Sound, VersionTwoEntryHasAFloatRateAndWideChannels) {
    const Reading r = ReadSound(SoundEntryV2("lpcm", 96000.0, 6, 24, 0x0C));
    EXPECT_EQ(r.audio_codec, "PCM");
    EXPECT_EQ(r.pcm_format, "integer");
    EXPECT_EQ(r.sample_rate, 96000u);
    EXPECT_EQ(r.channels, 6u);
    EXPECT_EQ(r.bits_per_sample, 24u);
    EXPECT_EQ(ReadSound(SoundEntryV2("lpcm", 192000.0, 2, 32, 0x09)).pcm_format, "float");
}

TEST(Mp4Sound, VersionOneQuickTimeEntryKeepsItsRate) {
    const Reading r = ReadSound(SoundEntry("twos", 2, {}, 1, 22050));
    EXPECT_EQ(r.sample_rate, 22050u);
    EXPECT_EQ(r.channels, 2u);
}

TEST(Mp4Sound, UnknownSoundEntryIsNamedByItsType) {
    EXPECT_EQ(ReadSound(SoundEntry("QDM2", 2)).audio_codec, "QDM2");
}

TEST(Mp4Sound, OnlyTheFirstSoundTrackIsRead) {
    const Bytes first = Cat({Stsd(SoundEntry("samr", 1, {}, 0, 8000)), Stsz(10, 10)});
    const Bytes second = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(10, 10)});
    const Bytes moov = Moov({Mvhd(1000, 1000), Trak("soun", 8000, 8000, first), Trak("soun", 44100, 44100, second)});
    EXPECT_EQ(ReadBytes(Cat({Ftyp(), moov})).audio_codec, "AMR-NB");
}

TEST(Mp4Sound, QuickTimeDataHandlerInMinfDoesNotChangeTheTrackKind) {
    const Bytes stbl = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(10, 10)});
    const Bytes trak = Box("trak", {Box("mdia", {Mdhd(44100, 44100), Hdlr("soun", "Sound", true),
                                                 Box("minf", {Hdlr("alis", "Data", true), Atom("stbl", stbl)})})});
    const Reading r = ReadBytes(Cat({FtypBrands("qt  ", {"qt  "}), Moov({Mvhd(600, 600), trak})}));
    EXPECT_EQ(r.type, "MOV");
    EXPECT_EQ(r.audio_codec, "AAC LC");
}

// --- Picture ---

TEST(Mp4Picture, H264ProfilesAreNamed) {
    const struct {
        unsigned profile, constraints;
        const char* name;
    } cases[] = {
        {66, 0x00, "Baseline"}, {66, 0x40, "Constrained Baseline"}, {77, 0x00, "Main"},
        {88, 0x00, "Extended"}, {100, 0x00, "High"},                {110, 0x00, "High 10"},
        {122, 0x00, "High 4:2:2"}, {244, 0x00, "High 4:4:4 Predictive"},
    };
    for (const auto& c : cases) {
        const Reading r = ReadPicture(VisualEntry("avc1", 1280, 720, AvcC(c.profile, c.constraints, 31)));
        EXPECT_EQ(r.video_codec, "H.264");
        EXPECT_EQ(r.profile, c.name) << c.profile;
        EXPECT_EQ(r.profile_id, c.profile);
        EXPECT_EQ(r.level, 31u);
        EXPECT_EQ(r.width, 1280u);
        EXPECT_EQ(r.height, 720u);
    }
}

TEST(Mp4Picture, Avc3IsH264) {
    EXPECT_EQ(ReadPicture(VisualEntry("avc3", 640, 480, AvcC(77, 0, 40))).profile, "Main");
}

TEST(Mp4Picture, MpegFourVisualProfileAndLevelFromTheSequenceHeader) {
    const Reading simple = ReadPicture(MpegVisualEntry(0x20, VisualObjectSequence(0x03)));
    EXPECT_EQ(simple.video_codec, "MPEG-4 Visual");
    EXPECT_EQ(simple.profile, "Simple Profile");
    EXPECT_EQ(simple.profile_id, 3u);
    EXPECT_EQ(simple.level, 3u);
    EXPECT_EQ(simple.width, 352u);
    EXPECT_EQ(simple.height, 288u);
    const Reading advanced = ReadPicture(MpegVisualEntry(0x20, VisualObjectSequence(0xF5)));
    EXPECT_EQ(advanced.profile, "Advanced Simple Profile");
    EXPECT_EQ(advanced.profile_id, 0xF5u);
    EXPECT_EQ(advanced.level, 5u);
}

TEST(Mp4Picture, SimpleProfileLevelZeroIsLevelZero) {
    const Reading r = ReadPicture(MpegVisualEntry(0x20, VisualObjectSequence(0x08)));
    EXPECT_EQ(r.profile, "Simple Profile");
    EXPECT_EQ(r.level, 0u);
}

TEST(Mp4Picture, MpegVisualWithoutSequenceHeaderHasNoProfile) {
    const Reading r = ReadPicture(MpegVisualEntry(0x20));
    EXPECT_EQ(r.video_codec, "MPEG-4 Visual");
    EXPECT_EQ(r.profile, "");
    EXPECT_EQ(r.level, 0u);
}

TEST(Mp4Picture, EsdsObjectTypesNameTheVideoCodec) {
    EXPECT_EQ(ReadPicture(MpegVisualEntry(0x60)).video_codec, "MPEG-2 Video");
    EXPECT_EQ(ReadPicture(MpegVisualEntry(0x61)).video_codec, "MPEG-2 Video");
    EXPECT_EQ(ReadPicture(MpegVisualEntry(0x65)).video_codec, "MPEG-2 Video");
    EXPECT_EQ(ReadPicture(MpegVisualEntry(0x6A)).video_codec, "MPEG-1 Video");
    EXPECT_EQ(ReadPicture(MpegVisualEntry(0x6C)).video_codec, "MJPEG");
}

TEST(Mp4Picture, NamedVisualEntries) {
    const std::pair<const char*, const char*> cases[] = {
        {"s263", "H.263"}, {"h263", "H.263"}, {"jpeg", "MJPEG"}, {"mjpa", "MJPEG"}, {"mjpb", "MJPEG"},
        {"hvc1", "H.265"}, {"hev1", "H.265"}, {"av01", "AV1"},
    };
    for (const auto& c : cases) {
        const Reading r = ReadPicture(VisualEntry(c.first, 176, 144));
        EXPECT_EQ(r.video_codec, c.second) << c.first;
        EXPECT_EQ(r.width, 176u);
        EXPECT_EQ(r.height, 144u);
    }
}

TEST(Mp4Picture, FrameRateAndBitRateFromTheSampleTables) {
    const Reading r = ReadPicture(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30)));
    EXPECT_DOUBLE_EQ(r.frame_rate, 25.0);            // 25 samples of 40 ms
    EXPECT_EQ(r.video_bit_rate, 200000u);            // 25000 bytes in 1 s
    EXPECT_EQ(r.video_peak_bit_rate, 200000u);
}

TEST(Mp4Picture, PeakBitRateIsTheBusiestSecond) {
    // Samples at 0, 0.5, 1.0, 1.5 and 2.0 s; sizes 100, 200, 300, 400, 50.
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{5, 500}}),
                            Stsz(0, 5, {100, 200, 300, 400, 50}), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 2500), Trak("vide", 1000, 2500, stbl)})}));
    EXPECT_EQ(r.video_peak_bit_rate, 5600u);  // 700 bytes in the second from 1 s
    EXPECT_EQ(r.video_bit_rate, 3360u);       // 1050 bytes over 2.5 s
    EXPECT_DOUBLE_EQ(r.frame_rate, 2.0);
}

TEST(Mp4Picture, VariableFrameDurationsGiveTheAverageRate) {
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))),
                            Stts({{30, 1000}, {15, 2000}}), Stsz(10, 45), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 2000), Trak("vide", 30000, 60000, stbl)})}));
    EXPECT_DOUBLE_EQ(r.frame_rate, 22.5);  // 45 frames in 2 s
}

TEST(Mp4Picture, CompactSampleSizesAreRead) {
    ByteWriter stz2;
    stz2.be24(0).u8(16).be32(4).be16(100).be16(200).be16(300).be16(400);
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{4, 250}}),
                            FullAtom("stz2", stz2.data()), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("vide", 1000, 1000, stbl)})}));
    EXPECT_EQ(r.video_bit_rate, 8000u);
}

TEST(Mp4Picture, SoundAndPictureTogether) {
    const Bytes sound = Cat({Stsd(AacEntry(AacLcStereo44k())), Stts({{43, 1024}}), Stsz(200, 43)});
    const Bytes picture = Cat({Stsd(VisualEntry("avc1", 320, 240, AvcC(100, 0, 30))), Stts({{30, 1}}), Stsz(500, 30)});
    const Bytes moov = Moov({Mvhd(1000, 1000), Trak("vide", 30, 30, picture), Trak("soun", 44100, 44032, sound)});
    const Reading r = ReadBytes(FastStart(moov));
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_DOUBLE_EQ(r.frame_rate, 30.0);
    EXPECT_EQ(r.video_bit_rate, 120000u);
    EXPECT_EQ(r.audio_bit_rate, 68906u);  // 8600 bytes over 44032 / 44100 s, the fraction dropped
}

// --- Box walk ---

TEST(Mp4Boxes, LargeSizeBoxIsSkippedByItsSixtyFourBitSize) {
    const Bytes file = Cat({Ftyp(), LargeAtom("free", Bytes(40, 0xEE)), SoundMovie(AacEntry(AacLcStereo44k()))});
    const Reading r = ReadBytes(file);
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.duration_ms, 1000u);
}

TEST(Mp4Boxes, LargeSizeMovieIsRead) {
    const Bytes moov = SoundMovie(AacEntry(AacLcStereo44k()));
    const Bytes large = LargeAtom("moov", Bytes(moov.begin() + 8, moov.end()));
    EXPECT_EQ(ReadBytes(Cat({Ftyp(), large})).audio_codec, "AAC LC");
}

TEST(Mp4Boxes, SizeZeroRunsToTheEndOfTheFile) {
    const Bytes moov = SoundMovie(AacEntry(AacLcStereo44k()));
    Bytes open = moov;
    open[0] = open[1] = open[2] = open[3] = 0;
    EXPECT_EQ(ReadBytes(Cat({Ftyp(), open})).audio_codec, "AAC LC");
}

TEST(Mp4Boxes, MovieAfterTheMediaDataIsFound) {
    const Bytes file = Cat({Ftyp(), Filler("mdat", 100000, 0x11), SoundMovie(AacEntry(AacLcStereo44k()))});
    EXPECT_EQ(ReadBytes(file).audio_codec, "AAC LC");
}

TEST(Mp4Boxes, CompressedMovieHeaderIsInflated) {
    const Bytes stbl = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(100, 10)});
    const Bytes moov = Moov({Mvhd(1000, 2500), Trak("soun", 44100, 110250, stbl),
                             Udta(TextItem(Copyright("nam"), "Packed"))});
    const Reading r = ReadBytes(Cat({FtypBrands("qt  ", {"qt  "}), CompressedMoov(moov)}));
    EXPECT_EQ(r.type, "MOV");
    EXPECT_EQ(r.duration_ms, 2500u);
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.tags.title, "Packed");
}

TEST(Mp4Boxes, CompressedMovieWithAnotherMethodIsNotRead) {
    const Bytes moov = Moov({Mvhd(1000, 2500)});
    const Reading r = ReadBytes(Cat({Ftyp(), CompressedMoov(moov, "lzma")}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 0u);
}

TEST(Mp4Boxes, CorruptCompressedMovieIsNotRead) {
    const Bytes junk(300, 0xA5);
    const Reading r = ReadBytes(Cat({Ftyp(), CompressedMoov(Moov({Mvhd(1000, 2500)}), "zlib", &junk)}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 0u);
}

TEST(Mp4Boxes, CompressedMovieLyingAboutItsSizeIsCutAtTheSize) {
    const Bytes moov = Moov({Mvhd(1000, 2500), Filler("free", 5000)});
    Bytes file = Cat({Ftyp(), CompressedMoov(moov)});
    const size_t cmvd = OffsetOf(file, "cmvd");
    // Declares 4 GiB: inflating stops at what the data holds.
    file[cmvd + 8] = file[cmvd + 9] = file[cmvd + 10] = file[cmvd + 11] = 0xFF;
    EXPECT_EQ(ReadBytes(file).duration_ms, 2500u);
    // Declares 20 bytes: the movie header is cut short, its own box still read.
    file[cmvd + 8] = file[cmvd + 9] = file[cmvd + 10] = 0;
    file[cmvd + 11] = 8 + 20;
    EXPECT_EQ(ReadBytes(file).duration_ms, 0u);
}

TEST(Mp4Boxes, CompressedMovieInsideACompressedMovieIsNotInflated) {
    const Bytes inner = CompressedMoov(Moov({Mvhd(1000, 2500)}));
    const Reading r = ReadBytes(Cat({Ftyp(), CompressedMoov(inner)}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 0u);
}

// --- Items ---

Reading ReadItems(const Bytes& items) {
    return ReadBytes(FastStart(Moov({Mvhd(1000, 1000), Udta(items)})));
}

Bytes TrackNumber(unsigned track, unsigned total) {
    ByteWriter w;
    w.be16(0).be16(track).be16(total).be16(0);
    return IlstItem("trkn", w.data(), 0);
}

Bytes GenreNumber(unsigned number) {
    ByteWriter w;
    w.be16(number);
    return IlstItem("gnre", w.data(), 0);
}

TEST(Mp4Items, TextItemsAreRead) {
    const Reading r = ReadItems(Cat({TextItem(Copyright("nam"), "Title"), TextItem(Copyright("ART"), "Artist"),
                                     TextItem(Copyright("alb"), "Album"), TextItem(Copyright("gen"), "Jazz"),
                                     TextItem(Copyright("day"), "1999-12-31T00:00:00Z"),
                                     TextItem(Copyright("cmt"), "A comment"), TextItem(Copyright("wrt"), "Composer"),
                                     TrackNumber(3, 12)}));
    EXPECT_EQ(r.tags.title, "Title");
    EXPECT_EQ(r.tags.artist, "Artist");
    EXPECT_EQ(r.tags.album, "Album");
    EXPECT_EQ(r.tags.genre, "Jazz");
    EXPECT_EQ(r.tags.year, "1999");
    EXPECT_EQ(r.tags.comment, "A comment");
    EXPECT_EQ(r.tags.composer, "Composer");
    EXPECT_EQ(r.tags.track, 3u);
    EXPECT_EQ(r.tags.track_total, 12u);
}

TEST(Mp4Items, TrackWithoutTotal) {
    const Reading r = ReadItems(TrackNumber(7, 0));
    EXPECT_EQ(r.tags.track, 7u);
    EXPECT_EQ(r.tags.track_total, 0u);
}

TEST(Mp4Items, Utf8TextKeepsItsCharacters) {
    EXPECT_EQ(ReadItems(TextItem(Copyright("nam"), "Caf\xC3\xA9 \xE2\x99\xAB")).tags.title, "Caf\xC3\xA9 \xE2\x99\xAB");
}

TEST(Mp4Items, Utf16TextBecomesUtf8) {
    const Bytes utf16 = {0x00, 'C', 0x00, 'a', 0x00, 'f', 0x00, 0xE9, 0xD8, 0x3D, 0xDE, 0x00};
    EXPECT_EQ(ReadItems(IlstItem(Copyright("nam"), utf16, 2)).tags.title, "Caf\xC3\xA9\xF0\x9F\x98\x80");
}

TEST(Mp4Items, AlbumArtistIsNotTheArtist) {
    EXPECT_EQ(ReadItems(TextItem("aART", "Band")).tags.artist, "");
    EXPECT_EQ(ReadItems(Cat({TextItem("aART", "Band"), TextItem(Copyright("ART"), "Singer")})).tags.artist, "Singer");
}

TEST(Mp4Items, GenreNumberIsId3GenrePlusOne) {
    EXPECT_EQ(ReadItems(GenreNumber(18)).tags.genre, "Rock");
    EXPECT_EQ(ReadItems(GenreNumber(1)).tags.genre, "Blues");
}

TEST(Mp4Items, GenreNumberOutOfTableIsNoGenre) {
    EXPECT_EQ(ReadItems(GenreNumber(0)).tags.genre, "");
    EXPECT_EQ(ReadItems(GenreNumber(60000)).tags.genre, "");
}

TEST(Mp4Items, GenreTextWinsOverGenreNumber) {
    EXPECT_EQ(ReadItems(Cat({GenreNumber(18), TextItem(Copyright("gen"), "Trip-Hop")})).tags.genre, "Trip-Hop");
    EXPECT_EQ(ReadItems(Cat({TextItem(Copyright("gen"), "Trip-Hop"), GenreNumber(18)})).tags.genre, "Trip-Hop");
}

// Found by fuzzing: an item's UTF-8 was taken as it stood, bad bytes and all.
TEST(Mp4Items, IllFormedUtf8BecomesReplacementCharacters) {
    EXPECT_EQ(ReadItems(TextItem("\xA9" "ART", "The Build\xFFrs")).tags.artist, "The Build\xEF\xBF\xBDrs");
}

TEST(Mp4Items, YearIsCutByCharactersNotBytes) {
    EXPECT_EQ(ReadItems(TextItem(Copyright("day"), "\xC3\xA9t\xC3\xA9 2001")).tags.year, "\xC3\xA9t\xC3\xA9 ");
}

TEST(Mp4Items, ShortYearIsKept) { EXPECT_EQ(ReadItems(TextItem(Copyright("day"), "98")).tags.year, "98"); }

TEST(Mp4Items, ValueRunningPastItsBoxIsCut) {
    // The data box says 200 bytes but its item holds only "Short".
    Bytes item = TextItem(Copyright("nam"), "Short");
    const size_t data = OffsetOf(item, "data");
    item[data + 3] = 200;
    const Reading r = ReadItems(Cat({item, TextItem(Copyright("ART"), "After")}));
    EXPECT_EQ(r.tags.title, "Short");
    EXPECT_EQ(r.tags.artist, "After");
}

TEST(Mp4Items, TextStopsAtANul) {
    EXPECT_EQ(ReadItems(IlstItem(Copyright("nam"), Bytes{'A', 'B', 0, 'C'})).tags.title, "AB");
}

TEST(Mp4Items, QuickTimeMetaWithoutVersionIsRead) {
    const Bytes meta = Box("meta", {Hdlr("mdir", ""), Atom("ilst", TextItem(Copyright("nam"), "QuickTime"))});
    const Reading r = ReadBytes(FastStart(Moov({Mvhd(1000, 1000), Box("udta", {meta})})));
    EXPECT_EQ(r.tags.title, "QuickTime");
}

TEST(Mp4Items, NoItemsLeaveTheTagsEmpty) {
    EXPECT_TRUE(ReadBytes(FastStart(SoundMovie(AacEntry(AacLcStereo44k())))).tags.Empty());
}

// --- Hostile sizes and depth ---

TEST(Mp4Hostile, HugeSampleCountInASmallFileReadsOnlyWhatIsThere) {
    // 2^31 sizes declared, three present.
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{0x80000000u, 1}}),
                            Stsz(0, 0x80000000u, {100, 200, 300}), Stco({})});
    const Bytes file = Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("vide", 1000, 1000, stbl)})});
    ASSERT_LT(file.size(), 1024u);
    const Reading r = ReadBytes(file);
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.video_bit_rate, 4800u);
    EXPECT_EQ(r.video_peak_bit_rate, 4800u);
}

TEST(Mp4Hostile, HugeConstantSampleCountEndsInBoundedSteps) {
    // 4 billion samples of one tick each, at one tick per second.
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))),
                            Stts({{0xFFFFFFFFu, 1}, {0xFFFFFFFFu, 0xFFFFFFFFu}}), Stsz(7, 0xFFFFFFFFu), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1, 1), Trak("vide", 1, 0xFFFFFFFFu, stbl)})}));
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.video_peak_bit_rate, 56u);
}

TEST(Mp4Hostile, ZeroDurationsPutEverySampleInOneSecond) {
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{0xFFFFFFFFu, 0}}),
                            Stsz(2, 0xFFFFFFFFu), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("vide", 1000, 0, stbl)})}));
    EXPECT_EQ(r.video_peak_bit_rate, 0xFFFFFFFFull * 16);
    EXPECT_EQ(r.frame_rate, 0.0);
}

TEST(Mp4Hostile, TableEntryCountsBeyondTheirBoxAreCut) {
    ByteWriter stts;
    stts.be32(0x7FFFFFFF).be32(10).be32(100);  // one pair held, 2^31 declared
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), FullAtom("stts", stts.data()),
                            Stsz(10, 10), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("vide", 1000, 1000, stbl)})}));
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
}

TEST(Mp4Hostile, DeepNestingStopsAtTheDepthLimit) {
    Bytes inner = Udta(TextItem(Copyright("nam"), "Deep"));
    for (int i = 0; i < 200; ++i) inner = Box("udta", {inner});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), inner})}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.tags.title, "");
    EXPECT_EQ(r.duration_ms, 1000u);
}

TEST(Mp4Hostile, ManyBoxesEndTheWalk) {
    Bytes many;
    for (int i = 0; i < 150000; ++i) {
        const Bytes empty = Atom("free");
        many.insert(many.end(), empty.begin(), empty.end());
    }
    const Reading r = ReadBytes(Cat({Ftyp(), Atom("moov", Cat({many, Mvhd(1000, 1000)}))}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 0u);  // the movie header came after the limit
}

TEST(Mp4Hostile, SizeSmallerThanAHeaderEndsTheWalk) {
    Bytes file = Cat({Ftyp(), AtomSized(4, "free"), SoundMovie(AacEntry(AacLcStereo44k()))});
    const Reading r = ReadBytes(file);
    EXPECT_EQ(r.type, "MP4");
    EXPECT_FALSE(r.HasAudio());
}

TEST(Mp4Hostile, ChildLargerThanItsParentIsCutToIt) {
    Bytes moov = SoundMovie(AacEntry(AacLcStereo44k()));
    const size_t mvhd = OffsetOf(moov, "mvhd");
    moov[mvhd] = 0x7F;  // mvhd claims 2 GiB
    const Reading r = ReadBytes(Cat({Ftyp(), moov, Filler("free", 64)}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 1000u);  // its own fields are still inside
    EXPECT_FALSE(r.HasAudio());       // the track after it was swallowed
}

TEST(Mp4Hostile, TruncatedFileGivesWhatItHolds) {
    const Bytes whole = FastStart(SoundMovie(AacEntry(AacLcStereo44k())));
    for (size_t cut = 0; cut < 400 && cut < whole.size(); cut += 7) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<long>(cut));
        ReadBytes(part);  // must neither trap nor hang
    }
    SUCCEED();
}

TEST(Mp4Hostile, LargeSizeBelowItsHeaderEndsTheWalk) {
    ByteWriter w;
    w.be32(1).str("free").be64(4);
    const Reading r = ReadBytes(Cat({Ftyp(), w.take(), SoundMovie(AacEntry(AacLcStereo44k()))}));
    EXPECT_EQ(r.type, "MP4");
    EXPECT_FALSE(r.HasAudio());
}

TEST(Mp4Hostile, EmptySampleEntryTableGivesNoCodec) {
    const Bytes stbl = Cat({FullAtom("stsd", Bytes{0, 0, 0, 0}), Stsz(100, 10)});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("soun", 1000, 1000, stbl)})}));
    EXPECT_FALSE(r.HasAudio());
}

namespace {

// An hvcC record's first 13 bytes: version 1, the profile byte, the 32
// compatibility flags, six bytes of constraint flags, general_level_idc.
Bytes HvcConfig(uint8_t profileByte, uint32_t compatible, uint8_t level) {
    ByteWriter w;
    w.u8(1).u8(profileByte).be32(compatible);
    for (int k = 0; k < 6; ++k) w.u8(0);
    w.u8(level);
    return Atom("hvcC", w.take());
}

}  // namespace

TEST(Mp4Picture, H265ProfileAndLevelComeFromHvcC) {
    const struct {
        const char* what;
        const char* entry;
        uint8_t profileByte;  // profile space, tier, profile
        uint32_t compatible;
        uint8_t level;
        const char* profile;
        unsigned profileId;
    } cases[] = {
        {"Main 10, level 4.1", "hvc1", 0x02, 0x20000000, 123, "Main 10", 2},
        {"the high tier keeps its profile", "hev1", 0x20 | 0x01, 0x40000000, 150, "Main", 1},
        {"no profile given: the first compatible one", "hvc1", 0x00, 0x60000000, 93, "Main", 1},
        {"another profile space: not named", "hvc1", 0x40 | 0x01, 0x40000000, 93, "", 0},
        {"an unknown profile number: no name", "hvc1", 0x1F, 0, 93, "", 31},
    };
    for (const auto& c : cases) {
        const Reading r = ReadPicture(VisualEntry(c.entry, 64, 64, HvcConfig(c.profileByte, c.compatible, c.level)));
        EXPECT_EQ(r.video_codec, "H.265") << c.what;
        EXPECT_EQ(r.profile, c.profile) << c.what;
        EXPECT_EQ(r.profile_id, c.profileId) << c.what;
        EXPECT_EQ(r.level, c.level) << c.what;
    }
}

TEST(Mp4Hostile, ShortConfigurationsAreIgnored) {
    EXPECT_EQ(ReadSound(SoundEntry("mp4a", 2, FullAtom("esds", Bytes{0x03, 0x7F}))).audio_codec, "AAC");
    EXPECT_EQ(ReadPicture(VisualEntry("avc1", 64, 64, Atom("avcC", Bytes{1}))).profile, "");
    const Reading shortHvc = ReadPicture(VisualEntry("hvc1", 64, 64, Atom("hvcC", Bytes{1, 1, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0})));
    EXPECT_EQ(shortHvc.profile, "");
    EXPECT_EQ(shortHvc.level, 0u);
    EXPECT_EQ(ReadSound(SoundEntry("alac", 2, FullAtom("alac", Bytes{0, 0}))).bits_per_sample, 0u);
}

}  // namespace

namespace {

// Old QuickTime user data text: length, language, the text.
Bytes QuickTimeText(const std::string& name, const std::string& text, unsigned language) {
    ByteWriter w;
    w.be16(static_cast<unsigned>(text.size())).be16(language).str(text);
    return Atom(name, w.data());
}

TEST(Mp4Items, QuickTimeUserDataTextsAreRead) {
    const Bytes udta = Box("udta", {QuickTimeText(Copyright("nam"), "Old Movie", 0x55C4),
                                    QuickTimeText(Copyright("ART"), "Director", 0x55C4),
                                    QuickTimeText(Copyright("day"), "1996-04-01", 0x55C4)});
    const Reading r = ReadBytes(Cat({FtypBrands("qt  ", {"qt  "}), Moov({Mvhd(600, 600), udta})}));
    EXPECT_EQ(r.tags.title, "Old Movie");
    EXPECT_EQ(r.tags.artist, "Director");
    EXPECT_EQ(r.tags.year, "1996");
}

TEST(Mp4Items, QuickTimeTextWithAMacintoshLanguageIsMacRoman) {
    // 0x8E is "é" in Mac OS Roman; language 0 is English.
    const Bytes udta = Box("udta", {QuickTimeText(Copyright("nam"), "Caf\x8E", 0)});
    EXPECT_EQ(ReadBytes(Cat({Moov({Mvhd(600, 600), udta})})).tags.title, "Caf\xC3\xA9");
}

TEST(Mp4Items, QuickTimeTextLongerThanItsBoxIsCut) {
    Bytes item = QuickTimeText(Copyright("nam"), "Cut", 0x55C4);
    item[8] = 0x7F;  // the text claims 32 KiB
    EXPECT_EQ(ReadBytes(Moov({Mvhd(600, 600), Box("udta", {item})})).tags.title, "Cut");
}

TEST(Mp4Duration, FragmentedMovieTakesTheFragmentDuration) {
    ByteWriter mehd;
    mehd.be32(0).be32(4500);
    const Bytes moov = Moov({Mvhd(1000, 0), Box("mvex", {Atom("mehd", mehd.data())})});
    EXPECT_EQ(ReadBytes(Cat({FtypBrands("iso6", {"dash"}), moov})).duration_ms, 4500u);
    ByteWriter wide;
    wide.u8(1).be24(0).be64(7000000000ull);
    const Bytes moov64 = Moov({Mvhd(1000, 0), Box("mvex", {Atom("mehd", wide.data())})});
    EXPECT_EQ(ReadBytes(Cat({FtypBrands("iso6", {"dash"}), moov64})).duration_ms, 7000000000ull);
}

}  // namespace

namespace {

TEST(Mp4Sound, Eac3ChannelsComeFromItsConfiguration) {
    // Data rate, one independent substream: 44.1 kHz, bsid 16, acmod 1 (one channel), no LFE.
    const Bytes dec3 = Bits({{192, 13}, {0, 3}, {1, 2}, {16, 5}, {0, 1}, {0, 1}, {0, 3}, {1, 3}, {0, 1}, {0, 3},
                             {0, 4}, {0, 1}});
    const Reading r = ReadSound(SoundEntry("ec-3", 2, Atom("dec3", dec3), 0, 48000));
    EXPECT_EQ(r.audio_codec, "E-AC-3");
    EXPECT_EQ(r.sample_rate, 44100u);
    EXPECT_EQ(r.channels, 1u);
}

TEST(Mp4Sound, QuickTimeMpegAudioEntryTakesTheLayerFromTheFrame) {
    const Bytes ftyp = FtypBrands("qt  ", {"qt  "});
    const Bytes mdat = Atom("mdat", Cat({Bytes{0xFF, 0xFD, 0xA8, 0xC4}, Bytes(400, 0x55)}));
    const uint64_t firstChunk = ftyp.size() + 8;
    const Reading mp2 = ReadBytes(Cat({ftyp, mdat, SoundMovie(SoundEntry(".mp3", 2), {firstChunk})}));
    EXPECT_EQ(mp2.audio_codec, "MP2");
    EXPECT_EQ(mp2.channels, 1u);
    EXPECT_EQ(ReadBytes(Cat({ftyp, SoundMovie(SoundEntry(".mp2", 2))})).audio_codec, "MP2");
}

}  // namespace

namespace {

// A sparse file: ftyp, a 64-bit "mdat" of 5 GiB that holds one MPEG audio
// frame header at its start, and the movie after it, whose co64 points at
// the frame.
TEST(Mp4Boxes, MovieAfterFiveGibibytesOfMediaDataIsRead) {
    const uint64_t mdatSize = 5ull << 30;
    const Bytes ftyp = Ftyp();
    ByteWriter mdatHeader;
    mdatHeader.be32(1).str("mdat").be64(mdatSize).bytes({0xFF, 0xFD, 0xA8, 0xC4});
    const uint64_t frameAt = ftyp.size() + 16;
    const uint64_t moovAt = ftyp.size() + mdatSize;
    EsdsFields esds;
    esds.objectType = 0x6B;
    esds.decoderInfo = {};
    const Bytes stbl = Cat({Stsd(SoundEntry("mp4a", 2, Esds(esds))), Stts({{10, 4410}}), Stsz(100, 10),
                            Stco({frameAt}, true)});
    const Bytes moov = Moov({Mvhd(1000, 4000), Trak("soun", 4410, 44100, stbl)});

    TempDir dir;
    const std::string path = dir.file("large.mp4");
    const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    const Bytes head = Cat({ftyp, mdatHeader.data()});
    ASSERT_EQ(pwrite(fd, head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
    ASSERT_EQ(pwrite(fd, moov.data(), moov.size(), static_cast<off_t>(moovAt)), static_cast<ssize_t>(moov.size()));
    close(fd);

    Reading r;
    ASSERT_EQ(fileinfo::media::ReadMediaPath(path, r), 0);
    EXPECT_EQ(r.size, moovAt + moov.size());
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.duration_ms, 4000u);
    EXPECT_EQ(r.audio_codec, "MP2");
    EXPECT_EQ(r.bit_rate, (moovAt + moov.size()) * 2);  // bytes * 8 / 4 s
}

}  // namespace

namespace {

// 40000 samples of 1 ms with sizes 1 to 1000 in turn: 160 KB of sizes, read
// in more than one piece when the movie header is walked in the file.
struct LongTrack {
    std::vector<uint32_t> sizes;
    uint64_t total = 0;
    uint64_t peak = 0;
    Bytes moov;

    LongTrack() {
        std::vector<uint64_t> perSecond(40, 0);
        for (uint32_t i = 0; i < 40000; ++i) {
            const uint32_t size = i % 1000 + 1 + (i / 1000 == 17 ? 5 : 0);  // second 17 the busiest
            sizes.push_back(size);
            total += size;
            perSecond[i / 1000] += size;
        }
        for (uint64_t s : perSecond) peak = std::max(peak, s);
        const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{40000, 1}}),
                                Stsz(0, 40000, sizes), Stco({})});
        moov = Moov({Mvhd(1000, 40000), Trak("vide", 1000, 40000, stbl)});
    }
};

void ExpectLongTrack(const Reading& r, const LongTrack& t) {
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_DOUBLE_EQ(r.frame_rate, 1000.0);
    EXPECT_EQ(r.video_bit_rate, t.total * 8 / 40);
    EXPECT_EQ(r.video_peak_bit_rate, t.peak * 8);
}

TEST(Mp4Boxes, LargeMovieHeaderWalkedInTheFileGivesTheSameNumbers) {
    const LongTrack t;
    ASSERT_GT(t.moov.size(), 150000u);
    const Reading r = ReadBytes(Cat({Ftyp(), t.moov}));
    ExpectLongTrack(r, t);
    EXPECT_EQ(r.video_peak_bit_rate, 4044000u);
}

TEST(Mp4Boxes, LargeMovieHeaderInMemoryGivesTheSameNumbers) {
    const LongTrack t;
    ExpectLongTrack(ReadBytes(Cat({Ftyp(), CompressedMoov(t.moov)})), t);
}

TEST(Mp4Picture, FourBitCompactSampleSizesAreRead) {
    ByteWriter stz2;
    stz2.be24(0).u8(4).be32(5).u8(0x12).u8(0x34).u8(0x50);  // 1, 2, 3, 4, 5 and a pad nibble
    const Bytes stbl = Cat({Stsd(VisualEntry("avc1", 64, 64, AvcC(66, 0xC0, 30))), Stts({{5, 200}}),
                            FullAtom("stz2", stz2.data()), Stco({})});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), Trak("vide", 1000, 1000, stbl)})}));
    EXPECT_EQ(r.video_bit_rate, 120u);
    EXPECT_EQ(r.video_peak_bit_rate, 120u);
}

}  // namespace

namespace {

TEST(Mp4Boxes, HandlerAfterTheSampleTableStillNamesTheTrack) {
    const Bytes stbl = Cat({Stsd(AacEntry(AacLcStereo44k())), Stsz(100, 10)});
    const Bytes mdia = Box("mdia", {Box("minf", {Atom("stbl", stbl)}), Mdhd(44100, 44100), Hdlr("soun")});
    const Bytes trak = Box("trak", {mdia});
    const Reading r = ReadBytes(Cat({Ftyp(), Moov({Mvhd(1000, 1000), trak})}));
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.audio_bit_rate, 8000u);
}

}  // namespace

namespace {

TEST(Mp4Type, StillImageBrandsAreNoMovie) {
    EXPECT_FALSE(ReadBytes(Cat({FtypBrands("heic", {"mif1", "heic"}), Filler("meta", 64)})).Identified());
    EXPECT_FALSE(ReadBytes(Cat({FtypBrands("avif", {"mif1"}), Filler("mdat", 64)})).Identified());
}

}  // namespace
