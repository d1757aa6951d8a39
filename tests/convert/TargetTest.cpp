// The target a refused file becomes, worked out from the capability list.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DeviceLists.h"
#include "Verdict.h"
#include "convert/Target.h"

namespace fileinfo {
namespace convert {
namespace {

Device PlayerCaps() {
    Device device("");
    std::string error;
    EXPECT_TRUE(Device::FromFile(std::string(FILEINFO_DEVICES_DIR) + "/player-caps.plist", device, error)) << error;
    return device;
}

// A capability list as lists are written, a line per element: the filter
// steps one character past the end of an empty element's line.
Device Caps(std::string text) {
    for (size_t at = 0; (at = text.find("><", at)) != std::string::npos; at += 2) text.insert(at + 1, "\n");
    return Device(text);
}

media::Reading Sound(const std::string& type, const std::string& codec, uint32_t rate, uint32_t channels,
                     uint32_t bits = 0) {
    media::Reading r;
    r.type = type;
    r.audio_codec = codec;
    r.sample_rate = rate;
    r.channels = channels;
    r.bits_per_sample = bits;
    r.duration_ms = 2000;
    if (codec == "PCM") r.pcm_format = "integer";
    return r;
}

media::Reading Movie(const std::string& codec, uint32_t width, uint32_t height, double fps) {
    media::Reading r = Sound("MP4", "AAC LC", 48000, 2);
    r.video_codec = codec;
    r.width = width;
    r.height = height;
    r.frame_rate = fps;
    return r;
}

Target Find(const Device& device, const media::Reading& r) {
    Target target;
    std::string why;
    const ReadingVerdict verdict = device.JudgeReading(r);
    EXPECT_FALSE(verdict.playable);
    EXPECT_TRUE(FindTarget(device, r, verdict.refusedBy, target, why)) << why;
    return target;
}

TEST(Target, Wav96kHzKeepsWavAtTheHighestStandardRateNotAboveTheLimit) {
    const Target t = Find(PlayerCaps(), Sound("WAV", "PCM", 96000, 2, 16));
    EXPECT_EQ(t.Text(), "convert/1 type=WAV container=wav ext=.wav audio=pcm rate=48000 channels=2 bits=16");
}

TEST(Target, TwentyFourBitAiffKeepsAiffAtSixteenBits) {
    const Target t = Find(PlayerCaps(), Sound("AIFF", "PCM", 44100, 2, 24));
    EXPECT_EQ(t.Text(), "convert/1 type=AIFF container=aiff ext=.aif audio=pcm rate=44100 channels=2 bits=16");
}

TEST(Target, PcmDataRateLimitLowersTheRate) {
    // 24-bit stereo at 48 kHz within a 1,000 kbit/s data rate: 16 bits at
    // 22.05 kHz is the most that fits (31,250 Hz would).
    const Device device = Caps(
        "<dict><key>AudioCodecs</key><dict><key>WAV</key><dict><key>MaximumBitDepth</key><integer>16</integer>"
        "<key>MaximumDataRate</key><integer>1000</integer></dict></dict></dict>");
    const Target t = Find(device, Sound("WAV", "PCM", 48000, 2, 24));
    EXPECT_EQ(t.sound.bitsPerSample, 16u);
    EXPECT_EQ(t.sound.sampleRate, 24000u);
}

TEST(Target, MultichannelAacBecomesStereoAacLcInM4a) {
    const Target t = Find(PlayerCaps(), Sound("AAC", "AAC LC", 48000, 6));
    EXPECT_EQ(t.Text(), "convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=48000 channels=2 arate=192000");
    EXPECT_EQ(t.Words(), "AAC LC 48 kHz stereo 192 kbit/s in .m4a");
}

TEST(Target, AacMainBecomesAacLc) {
    const Target t = Find(PlayerCaps(), Sound("M4A", "AAC Main", 16000, 1));
    EXPECT_EQ(t.Text(), "convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=16000 channels=1 arate=32000");
}

TEST(Target, AlacBecomesAac) {
    const Target t = Find(PlayerCaps(), Sound("M4A", "ALAC", 44100, 2, 16));
    EXPECT_EQ(t.type, "AAC");
    EXPECT_EQ(t.sound.bitRate, 176400u);
}

TEST(Target, Mp3IsTheFallbackWhenTheDeviceListsNoAac) {
    const Device device = Caps(
        "<dict><key>AudioCodecs</key><dict><key>MP3</key><dict><key>MaximumSampleRate</key><integer>44100</integer>"
        "<key>MaximumDataRate</key><integer>160</integer></dict></dict></dict>");
    const Target t = Find(device, Sound("M4A", "ALAC", 48000, 2, 16));
    EXPECT_EQ(t.Text(), "convert/1 type=MP3 container=mp3 ext=.mp3 audio=mp3 rate=44100 channels=2 arate=160000");
}

TEST(Target, StereoFalseGivesMono) {
    const Device device = Caps(
        "<dict><key>AudioCodecs</key><dict><key>AAC</key><dict><key>Multichannel</key><false/><key>Stereo</key>"
        "<false/><key>LC</key><true/></dict></dict></dict>");
    const Target t = Find(device, Sound("AAC", "AAC LC", 44100, 6));
    EXPECT_EQ(t.sound.channels, 1u);
}

TEST(Target, NoTargetWhenTheDeviceListsNothingToBecome) {
    const Device device = Caps(
"<dict><key>AudioCodecs</key><dict><key>WAV</key><dict><key>Stereo</key><false/></dict></dict></dict>");
    Target target;
    std::string why;
    EXPECT_FALSE(FindTarget(device, Sound("M4A", "ALAC", 44100, 2, 16), {}, target, why));
    EXPECT_EQ(why, "the device lists neither AAC nor MP3");
}

TEST(Target, NoTargetForAFileNotIdentified) {
    Target target;
    std::string why;
    EXPECT_FALSE(FindTarget(PlayerCaps(), media::Reading(), {}, target, why));
    EXPECT_EQ(why, "the file was not identified");
}

TEST(Target, HighProfile1080pBecomesBaseline320x180) {
    media::Reading r = Movie("H.264", 1920, 1080, 25);
    r.profile_id = 100;
    r.level = 40;
    const Target t = Find(PlayerCaps(), r);
    EXPECT_EQ(t.Text(),
              "convert/1 type=H.264 container=mp4 ext=.mp4 video=h264 size=320x180 fps=25000 profile=66 level=30 "
              "vrate=216000 vpeak=345600 audio=aac rate=48000 channels=2 arate=128000");
    EXPECT_EQ(t.Words(), "H.264 Baseline 3.0 320x180 25 fps 216 kbit/s + AAC LC 48 kHz stereo 128 kbit/s in .mp4");
}

TEST(Target, Mpeg4Asp640x480BecomesH264At320x240) {
    media::Reading r = Movie("MPEG-4 Visual", 640, 480, 30);
    r.profile_id = 0xF5;
    const Target t = Find(PlayerCaps(), r);
    EXPECT_EQ(t.picture.codec, "h264");
    EXPECT_EQ(t.picture.width, 320u);
    EXPECT_EQ(t.picture.height, 240u);
    EXPECT_EQ(t.picture.frameRateMilli, 30000u);
}

TEST(Target, OddSizesBecomeEven) {
    const Target t = Find(PlayerCaps(), Movie("H.263", 355, 201, 25));
    // Held by the width: 201 * 320/355 is 181.2, and 180 is even.
    EXPECT_EQ(t.picture.width, 320u);
    EXPECT_EQ(t.picture.height, 180u);
}

TEST(Target, TheLevelLowersTheFrameRate) {
    // Level 1.3: 11,880 macroblocks a second; 320x240 is 300 a frame.
    const Device device = Caps(
        "<dict><key>VideoCodecs</key><dict><key>H.264</key><dict><key>Profile</key><string>B</string>"
        "<key>Level</key><integer>13</integer></dict></dict></dict>");
    const Target t = Find(device, Movie("H.264", 320, 240, 60));
    EXPECT_EQ(t.picture.frameRateMilli, 39600u);
    EXPECT_EQ(t.picture.level, 13u);
}

TEST(Target, Mpeg4VisualWhenTheDeviceListsNoH264) {
    const Device device = Caps(
        "<dict><key>VideoCodecs</key><dict><key>MPEG-4</key><dict><key>Profile-Level-ID</key><integer>3</integer>"
        "<key>MaximumWidth</key><integer>352</integer><key>MaximumHeight</key><integer>288</integer></dict></dict>"
        "</dict>");
    const Target t = Find(device, Movie("H.264", 1280, 720, 25));
    EXPECT_EQ(t.Text(),
              "convert/1 type=MPEG-4 container=mp4 ext=.mp4 video=mpeg4 size=352x198 fps=25000 profile=3 level=0 "
              "vrate=172800 vpeak=172800 audio=aac rate=48000 channels=2 arate=128000");
}

TEST(Target, MovieWithoutSoundGetsASilentTrackWhereTheListAsksForAac) {
    // The player's H.264 entry names AAC: the library's filter refuses a
    // movie without AAC sound, so the target carries silence.
    media::Reading r = Movie("H.264", 640, 480, 25);
    r.audio_codec.clear();
    r.sample_rate = r.channels = 0;
    r.profile_id = 100;
    const Target t = Find(PlayerCaps(), r);
    EXPECT_TRUE(t.silentSound);
    EXPECT_EQ(t.Text(),
              "convert/1 type=H.264 container=mp4 ext=.mp4 video=h264 size=320x240 fps=25000 profile=66 level=30 "
              "vrate=288000 vpeak=345600 audio=aac rate=44100 channels=1 arate=64000 silence=1");
    EXPECT_EQ(t.Words(),
              "H.264 Baseline 3.0 320x240 25 fps 288 kbit/s + silent AAC LC 44.1 kHz mono 64 kbit/s in .mp4");
    Target back;
    ASSERT_TRUE(Target::Parse(t.Text(), back));
    EXPECT_EQ(back.Text(), t.Text());
}

TEST(Target, MovieWithoutSoundStaysSilentWhereTheListAsksForNoSound) {
    const Device device = Caps(
        "<dict><key>VideoCodecs</key><dict><key>H.264</key><dict><key>Profile</key><string>B</string>"
        "<key>Level</key><integer>30</integer></dict></dict></dict>");
    media::Reading r = Movie("H.264", 320, 240, 25);
    r.audio_codec.clear();
    r.profile_id = 100;
    const Target t = Find(device, r);
    EXPECT_FALSE(t.silentSound);
    EXPECT_FALSE(t.hasSound);
}

TEST(Target, ParseTakesSilenceOnlyAsAMoviesAacTrack) {
    Target t;
    const std::string movie = "convert/1 type=H.264 container=mp4 ext=.mp4 video=h264 size=320x240 fps=25000 profile=66 "
                              "level=30 vrate=288000 vpeak=460800";
    EXPECT_TRUE(Target::Parse(movie + " audio=aac rate=44100 channels=1 arate=64000 silence=1", t));
    EXPECT_FALSE(Target::Parse(movie + " silence=1", t));                                          // no sound
    EXPECT_FALSE(Target::Parse(movie + " audio=aac rate=44100 channels=1 arate=64000 silence=2", t));
    EXPECT_FALSE(Target::Parse("convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=44100 channels=1 silence=1", t));
}

TEST(Target, EntryKeysMarkTheNestedSoundEntry) {
    std::vector<EntryKey> keys;
    ASSERT_TRUE(EntryKeys(PlayerCaps().Text(), "H.264", keys));
    std::string seen;
    for (const EntryKey& k : keys) seen += (k.sound ? "sound:" : "") + k.key + "=" + k.value + " ";
    EXPECT_EQ(seen,
              "Profile=B Level=30 MinimumWidth=16 MaximumWidth=320 MinimumHeight=16 MaximumHeight=240 "
              "MaximumPeakBitRate=768 MaximumAverageBitRate=768 MaximumBufferSize=10000000 sound:AAC= sound:LC=true "
              "sound:MaximumSampleRate=48000 sound:Multichannel=false ");
}

TEST(Target, TextReadsBackAsTheSameTarget) {
    media::Reading r = Movie("H.264", 1920, 1080, 29.97);
    const Target t = Find(PlayerCaps(), r);
    Target back;
    ASSERT_TRUE(Target::Parse(t.Text(), back));
    EXPECT_EQ(back.Text(), t.Text());
    EXPECT_EQ(back.picture.frameRateMilli, 29970u);
}

TEST(Target, ParseRefusesOtherTexts) {
    Target t;
    EXPECT_FALSE(Target::Parse("", t));
    EXPECT_FALSE(Target::Parse("playlist", t));
    EXPECT_FALSE(Target::Parse("convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=0 channels=2", t));
    EXPECT_FALSE(Target::Parse("convert/1 type=AAC container=sh ext=.m4a audio=aac rate=8000 channels=2", t));
    EXPECT_FALSE(Target::Parse("convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=99999999999 channels=2", t));
    EXPECT_FALSE(Target::Parse("convert/1 type=A;B container=m4a ext=.m4a audio=aac rate=8000 channels=2", t));
}

TEST(Target, EstimateIsBitRateTimesDurationAndTheContainer) {
    const Target t = Find(PlayerCaps(), Sound("AAC", "AAC LC", 48000, 6));
    // 192 kbit/s for 2 s is 48,000 bytes; MP4 adds 4,096 and 1 %.
    EXPECT_EQ(t.EstimateBytes(2000), 48000u + 4096u + 480u);
}

TEST(Target, APictureLargerThanAConversionMakesHasNoTarget) {
    // A list without size limits, and a file that claims to be 3 billion
    // pixels wide: a target that size is no picture a conversion makes.
    const Device device = Caps(
        "<dict><key>VideoCodecs</key><dict><key>MPEG-4</key><dict><key>Profile-Level-ID</key><integer>3</integer>"
        "</dict></dict></dict>");
    const media::Reading r = Movie("H.264", 3217080770u, 3284452806u, 25);
    const ReadingVerdict verdict = device.JudgeReading(r);
    ASSERT_FALSE(verdict.playable);
    Target target;
    std::string why;
    EXPECT_FALSE(FindTarget(device, r, verdict.refusedBy, target, why));
    EXPECT_EQ(why.rfind("the file would become MPEG-4 Visual", 0), 0u) << why;
    EXPECT_NE(why.find(", more than a conversion makes"), std::string::npos) << why;
    EXPECT_EQ(target.Text(), Target().Text());
}

TEST(Target, APictureNearlyTwoToThe32WideCountsItsMacroblocksWithoutWrapping) {
    const Device device = Caps(
        "<dict><key>VideoCodecs</key><dict><key>H.264</key><dict><key>Profile</key><string>B</string>"
        "<key>Level</key><integer>30</integer></dict></dict></dict>");
    const media::Reading r = Movie("MPEG-4 Visual", 4294967294u, 2, 25);
    const ReadingVerdict verdict = device.JudgeReading(r);
    ASSERT_FALSE(verdict.playable);
    Target target;
    std::string why;
    EXPECT_FALSE(FindTarget(device, r, verdict.refusedBy, target, why));
    EXPECT_EQ(why, "no picture size keeps the aspect ratio within the device's limits");
}

}  // namespace
}  // namespace convert
}  // namespace fileinfo
