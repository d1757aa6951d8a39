// AAC readings from crafted ADTS and ADIF streams: profiles, channel
// configurations, frames counted or estimated, tags in front and behind.
#include <gtest/gtest.h>

#include "AacBuilder.h"
#include "Id3Builder.h"
#include "MpegTestHelpers.h"
#include "Mutation.h"

namespace {

using fileinfo::media::Reading;

// 48 kHz, 400-byte frames: 1024 samples each, 150 kbit/s.
AdtsFields At48k() {
    AdtsFields f;
    f.rateIndex = 3;
    f.length = 400;
    return f;
}

TEST(Adts, FiveOneStreamHasSixChannels) {
    AdtsFields f = At48k();
    f.channelConfig = 6;
    const Reading r = ReadBytes(AdtsStream(f, 30), "surround.aac");
    EXPECT_EQ(r.type, "AAC");
    EXPECT_EQ(r.aac_format, "ADTS");
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 6u);
    EXPECT_EQ(r.duration_ms, 640u);  // 30 frames of 1024 samples
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 150000u);
    EXPECT_EQ(r.audio_bit_rate, 150000u);
}

TEST(Adts, ChannelConfigurationSevenIsEightChannels) {
    AdtsFields f = At48k();
    f.channelConfig = 7;
    EXPECT_EQ(ReadBytes(AdtsStream(f, 5)).channels, 8u);
    f.channelConfig = 1;
    EXPECT_EQ(ReadBytes(AdtsStream(f, 5)).channels, 1u);
}

TEST(Adts, ProfileNamesTheCodec) {
    const char* const names[4] = {"AAC Main", "AAC LC", "AAC SSR", "AAC LTP"};
    for (unsigned profile = 0; profile < 4; ++profile) {
        AdtsFields f = At48k();
        f.profile = profile;
        EXPECT_EQ(ReadBytes(AdtsStream(f, 5)).audio_codec, names[profile]) << profile;
    }
}

TEST(Adts, AacMainMpeg2WithCrc) {
    AdtsFields f;
    f.profile = 0;
    f.mpeg2 = true;
    f.crc = true;
    f.rateIndex = 7;  // 22050 Hz
    f.channelConfig = 1;
    f.length = 200;
    const Reading r = ReadBytes(AdtsStream(f, 20));
    EXPECT_EQ(r.audio_codec, "AAC Main");
    EXPECT_EQ(r.sample_rate, 22050u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.duration_ms, 929u);  // 20480 samples at 22.05 kHz
}

TEST(Adts, StreamBehindAnId3v2TagWithTrailer) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Tagged AAC"), TextFrame("TCON", "(17)")};
    Id3v1Fields v1;
    v1.title = "ignored";
    v1.album = "V1 Album";
    const Reading r = ReadBytes(Join({BuildId3v2(s), AdtsStream(At48k(), 30), BuildId3v1(v1)}));
    EXPECT_EQ(r.type, "AAC");
    EXPECT_EQ(r.duration_ms, 640u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 150000u);
    EXPECT_EQ(r.tags.title, "Tagged AAC");
    EXPECT_EQ(r.tags.genre, "Rock");
    EXPECT_EQ(r.tags.album, "V1 Album");
}

TEST(Adts, LongStreamIsEstimatedFromItsAverageFrame) {
    const Reading r = ReadBytes(AdtsStream(At48k(), 300));  // 120000 bytes: beyond the head
    EXPECT_TRUE(r.duration_estimated);
    EXPECT_EQ(r.duration_ms, 6400u);
    EXPECT_EQ(r.bit_rate, 150000u);
}

TEST(Adts, LongStreamIsMeasuredInItsMiddle) {
    AdtsFields small = At48k();
    small.length = 200;
    // An encoder's first frames differ from the rest: the estimate follows the middle's 400 bytes a frame.
    const Reading r = ReadBytes(Join({AdtsStream(small, 30), AdtsStream(At48k(), 270)}));
    EXPECT_TRUE(r.duration_estimated);
    EXPECT_EQ(r.bit_rate, 150000u);
    EXPECT_EQ(r.duration_ms, 6080u);  // 114000 bytes at 400 a frame: 285 frames
}

TEST(Adts, StreamAfterJunkNeedsARow) {
    EXPECT_EQ(ReadBytes(Join({AudioBytes(700), AdtsStream(At48k(), 6)})).type, "AAC");
    EXPECT_FALSE(ReadBytes(Join({AudioBytes(700), AdtsStream(At48k(), 2), AudioBytes(700)})).Identified());
}

TEST(Adts, ReservedRateAndShortLengthAreNotTaken) {
    AdtsFields f = At48k();
    f.rateIndex = 13;
    EXPECT_FALSE(ReadBytes(AdtsStream(f, 10)).Identified());
    AdtsFields g = At48k();
    g.length = 5;
    EXPECT_FALSE(ReadBytes(AdtsStream(g, 10)).Identified());
}

TEST(Adts, MutatedStreamsNeverTrap) {
    const Bytes seed = AdtsStream(At48k(), 40);
    for (uint32_t n = 0; n < 200; ++n) {
        const Reading r = ReadBytes(Mutate(seed, n));
        if (r.type == "AAC") {
            EXPECT_LE(r.channels, 8u) << n;
        }
    }
}

TEST(Adif, HeaderGivesRateProfileAndChannels) {
    const Reading r = ReadBytes(BuildAdif(AdifFields{}, 16000), "file.aac");
    EXPECT_EQ(r.type, "AAC");
    EXPECT_EQ(r.aac_format, "ADIF");
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 44100u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.bit_rate, 128000u);
    EXPECT_EQ(r.duration_ms, 1000u);  // 16000 bytes at 128 kbit/s
    EXPECT_TRUE(r.duration_estimated);
}

TEST(Adif, CopyrightIdAndMainProfile) {
    AdifFields f;
    f.copyrightPresent = true;
    f.copyrightId = Bytes(9, 0xFF);
    f.profile = 0;
    f.samplingIndex = 3;
    f.bitRate = 64000;
    const Reading r = ReadBytes(BuildAdif(f, 8000));
    EXPECT_EQ(r.audio_codec, "AAC Main");
    EXPECT_EQ(r.sample_rate, 48000u);
    EXPECT_EQ(r.channels, 2u);
    EXPECT_EQ(r.duration_ms, 1000u);
}

TEST(Adif, CutShortHeaderIsUnidentified) {
    const Bytes whole = BuildAdif(AdifFields{}, 0);
    EXPECT_FALSE(ReadBytes(Bytes(whole.begin(), whole.begin() + 8)).Identified());
}

}  // namespace
