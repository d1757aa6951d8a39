// The MP4-family reading of every real file in tests/fixtures/mp4 and of
// examples/*.m4a (made by scripts/make_mp4_media.sh with ffmpeg). The
// expected values were checked against ffprobe (-show_format
// -show_streams) and the tag texts against mutagen; where ffprobe is
// wrong, the test says so.
#include <gtest/gtest.h>

#include <string>

#include "media/Reading.h"

namespace {

using fileinfo::media::Reading;

Reading ReadFixture(const std::string& name) {
    Reading r;
    EXPECT_EQ(fileinfo::media::ReadMediaPath(std::string(FILEINFO_FIXTURES_DIR) + "/mp4/" + name, r), 0) << name;
    return r;
}

// The test tone of every fixture: AAC LC, 16 kHz, one channel,
// 17 frames in 1 s of movie.
void ExpectTone(const Reading& r) {
    EXPECT_EQ(r.audio_codec, "AAC LC");
    EXPECT_EQ(r.sample_rate, 16000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.bits_per_sample, 0u);
    EXPECT_EQ(r.audio_bit_rate, 25864u);
}

void ExpectTaggedTone(const Reading& r) {
    EXPECT_EQ(r.type, "M4A");
    ExpectTone(r);
    EXPECT_FALSE(r.HasVideo());
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.size, 4589u);
    EXPECT_EQ(r.bit_rate, 36712u);
    EXPECT_EQ(r.tags.title, "Test Tone");
    EXPECT_EQ(r.tags.artist, "The Builders");
    EXPECT_EQ(r.tags.album, "Fixtures");
    EXPECT_EQ(r.tags.genre, "Electronic");
    EXPECT_EQ(r.tags.year, "2005");  // from "2005-06-01"
    EXPECT_EQ(r.tags.comment, "made by ffmpeg");
    EXPECT_EQ(r.tags.composer, "A. Composer");
    EXPECT_EQ(r.tags.track, 7u);
    EXPECT_EQ(r.tags.track_total, 0u);
}

TEST(Mp4Fixture, TaggedAacInM4a) { ExpectTaggedTone(ReadFixture("aac-tagged.m4a")); }

TEST(Mp4Fixture, ExampleTaggedM4a) {
    Reading r;
    ASSERT_EQ(fileinfo::media::ReadMediaPath(std::string(FILEINFO_EXAMPLES_DIR) + "/tone-tagged.m4a", r), 0);
    ExpectTaggedTone(r);
}

TEST(Mp4Fixture, AppleLossless) {
    const Reading r = ReadFixture("alac.m4a");
    EXPECT_EQ(r.type, "M4A");
    EXPECT_EQ(r.audio_codec, "ALAC");
    EXPECT_EQ(r.sample_rate, 16000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.bits_per_sample, 16u);
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 84416u);
    EXPECT_EQ(r.audio_bit_rate, 78408u);
    // Only the encoder item (©too), which a reading does not carry.
    EXPECT_TRUE(r.tags.Empty());
}

TEST(Mp4Fixture, H263WithAacIn3gp) {
    const Reading r = ReadFixture("h263-aac.3gp");
    EXPECT_EQ(r.type, "3GP");
    EXPECT_EQ(r.video_codec, "H.263");
    EXPECT_EQ(r.width, 176u);
    EXPECT_EQ(r.height, 144u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.profile, "");
    EXPECT_EQ(r.video_bit_rate, 140648u);
    ExpectTone(r);
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 180464u);
    EXPECT_TRUE(r.tags.Empty());
}

TEST(Mp4Fixture, H264MainWithAacInQuickTime) {
    const Reading r = ReadFixture("h264-aac.mov");
    EXPECT_EQ(r.type, "MOV");
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.profile, "Main");
    EXPECT_EQ(r.profile_id, 77u);
    EXPECT_EQ(r.level, 21u);
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.video_bit_rate, 26856u);
    ExpectTone(r);  // the esds sits inside the version-1 entry's "wave"
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 68688u);
}

TEST(Mp4Fixture, H265MainInAnHvc1Entry) {
    const Reading r = ReadFixture("h265-main.mp4");
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.video_codec, "H.265");
    EXPECT_EQ(r.profile, "Main");
    EXPECT_EQ(r.profile_id, 1u);
    EXPECT_EQ(r.level, 30u);  // level 1
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.video_bit_rate, 22640u);
    EXPECT_FALSE(r.HasAudio());
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 49616u);
}

TEST(Mp4Fixture, H265Main10InAnHev1Entry) {
    const Reading r = ReadFixture("h265-main10.mp4");
    EXPECT_EQ(r.video_codec, "H.265");
    EXPECT_EQ(r.profile, "Main 10");
    EXPECT_EQ(r.profile_id, 2u);
    EXPECT_EQ(r.level, 30u);
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_EQ(r.video_bit_rate, 23568u);
}

TEST(Mp4Fixture, H264ConstrainedBaselineVideoOnly) {
    const Reading r = ReadFixture("h264-baseline.mp4");
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.profile, "Constrained Baseline");
    EXPECT_EQ(r.profile_id, 66u);
    EXPECT_EQ(r.level, 30u);
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.video_bit_rate, 28232u);
    EXPECT_FALSE(r.HasAudio());
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 35360u);
}

TEST(Mp4Fixture, H264HighWithAac) {
    const Reading r = ReadFixture("h264-high-aac.mp4");
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.profile, "High");
    EXPECT_EQ(r.profile_id, 100u);
    EXPECT_EQ(r.level, 31u);
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.video_bit_rate, 26504u);
    ExpectTone(r);
    EXPECT_EQ(r.bit_rate, 67968u);
}

TEST(Mp4Fixture, ManyFramesGiveFrameRateAndPeak) {
    const Reading r = ReadFixture("many-frames.mp4");
    EXPECT_EQ(r.type, "MP4");
    EXPECT_EQ(r.video_codec, "H.264");
    EXPECT_EQ(r.profile, "Constrained Baseline");
    EXPECT_EQ(r.level, 11u);
    EXPECT_EQ(r.width, 64u);
    EXPECT_EQ(r.height, 64u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 100.0);
    EXPECT_EQ(r.duration_ms, 10000u);
    EXPECT_EQ(r.bit_rate, 12476u);
    EXPECT_EQ(r.video_bit_rate, 8584u);
    // The first second (the key frame's) holds 1654 bytes: summed from
    // ffprobe -show_packets by decoding time.
    EXPECT_EQ(r.video_peak_bit_rate, 13232u);
}

TEST(Mp4Fixture, MpegFourVisualWithAacInM4v) {
    const Reading r = ReadFixture("mpeg4-aac.m4v");
    EXPECT_EQ(r.type, "M4V");
    EXPECT_EQ(r.video_codec, "MPEG-4 Visual");
    EXPECT_EQ(r.profile, "Simple Profile");
    EXPECT_EQ(r.profile_id, 1u);
    EXPECT_EQ(r.level, 1u);
    EXPECT_EQ(r.width, 160u);
    EXPECT_EQ(r.height, 120u);
    EXPECT_DOUBLE_EQ(r.frame_rate, 10.0);
    EXPECT_EQ(r.video_bit_rate, 92224u);
    ExpectTone(r);
    EXPECT_EQ(r.bit_rate, 133392u);
}

TEST(Mp4Fixture, LayerTwoSoundInMp4IsMp2) {
    const Reading r = ReadFixture("mp2-sound.mp4");
    EXPECT_EQ(r.type, "MP4");
    // ffprobe names this stream "mp3": its demuxer maps object type 0x6B
    // to one codec for all three layers without looking at a frame. The
    // frames are Layer II (FF FD: layer bits 10), made with -c:a mp2.
    EXPECT_EQ(r.audio_codec, "MP2");
    EXPECT_EQ(r.sample_rate, 32000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.audio_bit_rate, 64000u);
    EXPECT_EQ(r.duration_ms, 993u);
    EXPECT_EQ(r.bit_rate, 71049u);
}

TEST(Mp4Fixture, AacMainWithAlbumArtistAndTrackTotal) {
    const Reading r = ReadFixture("aac-main-tagged.m4a");
    EXPECT_EQ(r.type, "M4A");
    EXPECT_EQ(r.audio_codec, "AAC Main");
    EXPECT_EQ(r.sample_rate, 16000u);
    EXPECT_EQ(r.channels, 1u);
    EXPECT_EQ(r.audio_bit_rate, 25894u);
    EXPECT_EQ(r.duration_ms, 1000u);
    EXPECT_EQ(r.bit_rate, 35864u);
    EXPECT_EQ(r.tags.title, "\xC5\xBB\xC3\xB3\xC5\x82w \xE2\x99\xAB Main");  // "Żółw ♫ Main"
    // The file has no ©ART, only aART (the album's artist): no artist.
    EXPECT_EQ(r.tags.artist, "");
    EXPECT_EQ(r.tags.genre, "Jazz");
    EXPECT_EQ(r.tags.year, "1987");
    EXPECT_EQ(r.tags.track, 3u);
    EXPECT_EQ(r.tags.track_total, 12u);
    EXPECT_EQ(r.tags.album, "");
}

}  // namespace
