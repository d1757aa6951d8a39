// Every MPEG audio and AAC file among the fixtures and examples, read and
// checked against what ffprobe and mutagen say of it. The durations here
// are the reading's own, exact to the millisecond; beside each is ffprobe's,
// which the reading must meet within 1 % or 50 ms. Where they part, ffprobe
// is the one that estimates:
//  - tagged-id3v2.mp3 and adts-44k-tagged.aac: ffprobe counts the 128-byte
//    ID3v1 trailer as sound (2.0627 s is 24752 bytes at 96 kbit/s; the
//    stream holds 57 frames, 2.052 s);
//  - adts-48k-6ch.aac: ffprobe estimates from the first frames' bit rate;
//    the file holds 95 frames (ffprobe -count_packets), 2.0267 s.
// Tags are mutagen's texts (mutagen merges the ID3v1 trailer in as we do).
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "MpegTestHelpers.h"

namespace {

using fileinfo::media::Reading;

struct ExpectedTags {
    const char* title;
    const char* artist;
    const char* album;
    const char* genre;
    const char* year;
    const char* comment;
    uint32_t track;
};

struct Fixture {
    const char* path;
    const char* type;
    const char* aacFormat;
    const char* codec;
    uint32_t sampleRate;
    uint32_t channels;
    uint64_t durationMs;
    bool estimated;
    double ffprobeMs;
    bool vbr;
    ExpectedTags tags;
};

const Fixture kFixtures[] = {
    {FILEINFO_FIXTURES_DIR "/mp3/cbr128-info.mp3", "MP3", "", "MP3", 44100, 2, 2038, false, 2037.551, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/mp3/cbr128.mp3", "MP3", "", "MP3", 44100, 2, 2038, false, 2037.500, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/mp3/layer2.mp3", "MP3", "", "MP2", 44100, 2, 2011, false, 2011.417, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/mp3/mono-ffmpeg.mp3", "MP3", "", "MP3", 44100, 1, 2038, false, 2037.551, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/mp3/mpeg2-22050.mp3", "MP3", "", "MP3", 22050, 2, 2064, false, 2063.625, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/mp3/tagged-eyed3.mp3", "MP3", "", "MP3", 44100, 2, 2038, false, 2037.551, true,
     {"Eye Title", "Eye Artist", "Eye Album", "", "", "", 3}},
    {FILEINFO_FIXTURES_DIR "/mp3/tagged-id3v2.mp3", "MP3", "", "MP3", 32000, 2, 2052, false, 2062.667, false,
     {"Chord in A", "The Testers", "Fixtures", "Rock", "2009", "made for tests", 7}},
    {FILEINFO_FIXTURES_DIR "/mp3/vbr-xing.mp3", "MP3", "", "MP3", 44100, 2, 2038, false, 2037.551, true,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-22k-mono-mpeg2.aac", "AAC", "ADTS", "AAC LC", 22050, 1, 1068, false, 1068.037, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-44k-stereo.aac", "AAC", "ADTS", "AAC LC", 44100, 2, 1045, false, 1044.952, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-44k-tagged.aac", "AAC", "ADTS", "AAC LC", 44100, 2, 1045, false, 1060.786, false,
     {"Tuning Tone", "Test Lab", "Fixtures", "Other", "2024", "A4 reference", 7}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-48k-6ch.aac", "AAC", "ADTS", "AAC LC", 48000, 6, 2027, false, 2014.518, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-8k-mono.aac", "AAC", "ADTS", "AAC LC", 8000, 1, 2176, false, 2175.902, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_FIXTURES_DIR "/aac/adts-short.aac", "AAC", "ADTS", "AAC LC", 8000, 1, 512, false, 512.004, false,
     {"", "", "", "", "", "", 0}},
    {FILEINFO_EXAMPLES_DIR "/chord-vbr.mp3", "MP3", "", "MP3", 44100, 2, 1045, false, 1044.898, true,
     {"Chord", "libFileInfo", "", "", "", "", 0}},
    {FILEINFO_EXAMPLES_DIR "/tone-stereo.aac", "AAC", "ADTS", "AAC LC", 44100, 2, 1045, false, 1044.952, false,
     {"", "", "", "", "", "", 0}},
};

class MpegFixtures : public testing::TestWithParam<Fixture> {};

TEST_P(MpegFixtures, StreamMatchesFfprobe) {
    const Fixture& f = GetParam();
    const Reading r = ReadFixture(f.path);
    EXPECT_EQ(r.type, f.type);
    EXPECT_EQ(r.aac_format, f.aacFormat);
    EXPECT_EQ(r.audio_codec, f.codec);
    EXPECT_EQ(r.sample_rate, f.sampleRate);
    EXPECT_EQ(r.channels, f.channels);
    EXPECT_EQ(r.duration_ms, f.durationMs);
    EXPECT_EQ(r.duration_estimated, f.estimated);
    EXPECT_EQ(r.vbr, f.vbr);
    const double allowed = std::max(50.0, f.ffprobeMs / 100);
    EXPECT_LE(std::fabs(static_cast<double>(r.duration_ms) - f.ffprobeMs), allowed);
    EXPECT_GT(r.bit_rate, 0u);
    EXPECT_EQ(r.bit_rate, r.audio_bit_rate);
}

TEST_P(MpegFixtures, TagsMatchMutagen) {
    const Fixture& f = GetParam();
    const Reading r = ReadFixture(f.path);
    EXPECT_EQ(r.tags.title, f.tags.title);
    EXPECT_EQ(r.tags.artist, f.tags.artist);
    EXPECT_EQ(r.tags.album, f.tags.album);
    EXPECT_EQ(r.tags.genre, f.tags.genre);
    EXPECT_EQ(r.tags.year, f.tags.year);
    EXPECT_EQ(r.tags.comment, f.tags.comment);
    EXPECT_EQ(r.tags.track, f.tags.track);
    EXPECT_EQ(r.tags.composer, "");
    EXPECT_EQ(r.tags.track_total, 0u);
}

std::string FixtureName(const testing::TestParamInfo<Fixture>& info) {
    std::string name = info.param.path;
    name = name.substr(name.rfind('/') + 1);
    for (char& c : name) {
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(All, MpegFixtures, testing::ValuesIn(kFixtures), FixtureName);

TEST(MpegFixtures, LayerTwoFixtureIsMp2At192kbit) {
    const Reading r = ReadFixture(FILEINFO_FIXTURES_DIR "/mp3/layer2.mp3");
    EXPECT_EQ(r.bit_rate, 191999u);  // 48274 bytes over 77 frames, as ffprobe says
}

TEST(MpegFixtures, FiveOneAdtsFixture) {
    const Reading r = ReadFixture(FILEINFO_FIXTURES_DIR "/aac/adts-48k-6ch.aac");
    EXPECT_EQ(r.channels, 6u);
    EXPECT_EQ(r.duration_ms, 2027u);  // 95 frames of 1024 samples at 48 kHz
}

}  // namespace
