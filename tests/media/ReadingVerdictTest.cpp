// The device verdict on a reading: each requirement key the filter checks,
// once where the reading refuses and once where it passes, with the words a
// user reads; and the type a reading is looked up by.
#include <string>

#include <gtest/gtest.h>

#include "CapsBuilder.h"
#include "Verdict.h"
#include "media/Reading.h"

namespace {

using fileinfo::Device;
using fileinfo::ReadingVerdict;
using fileinfo::media::Reading;

Reading Sound(const char* type, const char* codec, uint32_t rate, uint32_t channels) {
    Reading r;
    r.type = type;
    r.audio_codec = codec;
    r.sample_rate = rate;
    r.channels = channels;
    return r;
}

Reading H264(uint32_t width, uint32_t height, uint32_t profile, uint32_t level) {
    Reading r;
    r.type = "MP4";
    r.video_codec = "H.264";
    r.width = width;
    r.height = height;
    r.profile_id = profile;
    r.level = level;
    return r;
}

ReadingVerdict JudgeUnder(const std::string& type, const std::string& requirements, const Reading& r,
                          const char* section = "AudioCodecs") {
    return Device(DeviceWith(type, requirements, section)).JudgeReading(r);
}

std::string Keys(const ReadingVerdict& v) {
    std::string keys;
    for (const std::string& k : v.refusedBy) keys += (keys.empty() ? "" : ",") + k;
    return keys;
}

TEST(ReadingVerdict, MonoFalseRefusesOneChannelAndPassesTwo) {
    const std::string req = CapsBuilder().flag("Mono", false).str();
    const ReadingVerdict refused = JudgeUnder("MP3", req, Sound("MP3", "MP3", 44100, 1));
    EXPECT_FALSE(refused.playable);
    EXPECT_EQ(Keys(refused), "Mono");
    EXPECT_EQ(refused.explanation, "mono sound, and the device plays no mono");
    EXPECT_TRUE(JudgeUnder("MP3", req, Sound("MP3", "MP3", 44100, 2)).playable);
}

TEST(ReadingVerdict, StereoFalseRefusesTwoChannelsAndPassesOne) {
    const std::string req = CapsBuilder().flag("Stereo", false).str();
    const ReadingVerdict refused = JudgeUnder("MP3", req, Sound("MP3", "MP3", 44100, 2));
    EXPECT_EQ(Keys(refused), "Stereo");
    EXPECT_EQ(refused.explanation, "stereo sound, and the device plays no stereo");
    EXPECT_TRUE(JudgeUnder("MP3", req, Sound("MP3", "MP3", 44100, 1)).playable);
}

TEST(ReadingVerdict, MultichannelFalseRefusesSixChannelsAndPassesStereo) {
    const std::string req = CapsBuilder().flag("Multichannel", false).str();
    const ReadingVerdict refused = JudgeUnder("AAC", req, Sound("AAC", "AAC LC", 48000, 6));
    EXPECT_EQ(Keys(refused), "Multichannel");
    EXPECT_EQ(refused.explanation, "6 channels, and the device plays at most stereo");
    EXPECT_TRUE(JudgeUnder("AAC", req, Sound("AAC", "AAC LC", 48000, 2)).playable);
}

TEST(ReadingVerdict, MaximumSampleRateRefusesAboveAndPassesAtTheLimit) {
    const std::string req = CapsBuilder().limit("MaximumSampleRate", 48000).str();
    const ReadingVerdict refused = JudgeUnder("WAV", req, Sound("WAV", "PCM", 96000, 2));
    EXPECT_EQ(Keys(refused), "MaximumSampleRate");
    EXPECT_EQ(refused.explanation, "sample rate 96 kHz is above the device's 48 kHz");
    EXPECT_TRUE(JudgeUnder("WAV", req, Sound("WAV", "PCM", 48000, 2)).playable);
    EXPECT_EQ(JudgeUnder("WAV", CapsBuilder().limit("MaximumSampleRate", 32000).str(), Sound("WAV", "PCM", 44100, 2))
                  .explanation,
              "sample rate 44.1 kHz is above the device's 32 kHz");
}

TEST(ReadingVerdict, MaximumBitDepthHoldsForWavToo) {
    const std::string req = CapsBuilder().limit("MaximumBitDepth", 16).str();
    Reading deep = Sound("WAV", "PCM", 48000, 2);
    deep.bits_per_sample = 24;
    const ReadingVerdict refused = JudgeUnder("WAV", req, deep);
    EXPECT_EQ(Keys(refused), "MaximumBitDepth");
    EXPECT_EQ(refused.explanation, "24-bit samples are deeper than the device's 16 bits");
    Reading floating = deep;
    floating.bits_per_sample = 32;
    floating.pcm_format = "float";
    EXPECT_EQ(JudgeUnder("WAV", req, floating).explanation,
              "32-bit floating-point samples are deeper than the device's 16 bits");
    deep.bits_per_sample = 16;
    EXPECT_TRUE(JudgeUnder("WAV", req, deep).playable);
}

TEST(ReadingVerdict, MaximumDataRateComparesWholeKilobits) {
    const std::string req = CapsBuilder().limit("MaximumDataRate", 320).str();
    Reading r = Sound("MP3", "MP3", 44100, 2);
    r.bit_rate = 320999;
    EXPECT_TRUE(JudgeUnder("MP3", req, r).playable);
    r.bit_rate = 1411200;
    const ReadingVerdict refused = JudgeUnder("MP3", req, r);
    EXPECT_EQ(Keys(refused), "MaximumDataRate");
    EXPECT_EQ(refused.explanation, "bit rate 1,411 kbit/s is above the device's 320 kbit/s");
}

TEST(ReadingVerdict, AacRequiresAacSound) {
    const std::string req = CapsBuilder().key("AAC").dict().flag("LC", true).end().str();
    Reading movie = H264(320, 240, 66, 30);
    movie.audio_codec = "MP2";
    const ReadingVerdict refused = JudgeUnder("H.264", req, movie, "VideoCodecs");
    EXPECT_EQ(Keys(refused), "AAC");
    EXPECT_EQ(refused.explanation, "the sound is MP2, and the device takes only AAC sound here");
    movie.audio_codec = "AAC LC";
    EXPECT_TRUE(JudgeUnder("H.264", req, movie, "VideoCodecs").playable);
}

TEST(ReadingVerdict, LcRequiresAacLc) {
    const std::string req = CapsBuilder().flag("LC", true).str();
    const ReadingVerdict refused = JudgeUnder("AAC", req, Sound("M4A", "AAC Main", 44100, 2));
    EXPECT_EQ(Keys(refused), "LC");
    EXPECT_EQ(refused.explanation, "AAC Main is not AAC LC, the AAC profile the device lists");
    EXPECT_TRUE(JudgeUnder("AAC", req, Sound("M4A", "AAC LC", 44100, 2)).playable);
}

TEST(ReadingVerdict, VariableBitRateFalseRefusesVbr) {
    const std::string req = CapsBuilder().flag("VariableBitRate", false).str();
    Reading r = Sound("MP3", "MP3", 44100, 2);
    r.vbr = true;
    const ReadingVerdict refused = JudgeUnder("MP3", req, r);
    EXPECT_EQ(Keys(refused), "VariableBitRate");
    EXPECT_EQ(refused.explanation, "a variable bit rate, and the device plays only constant bit rates");
    r.vbr = false;
    EXPECT_TRUE(JudgeUnder("MP3", req, r).playable);
}

TEST(ReadingVerdict, ProfileLetterNamesTheH264Profile) {
    const std::string req = CapsBuilder().text("Profile", "B").str();
    const ReadingVerdict refused = JudgeUnder("H.264", req, H264(320, 240, 100, 30), "VideoCodecs");
    EXPECT_EQ(Keys(refused), "Profile");
    EXPECT_EQ(refused.explanation, "H.264 High profile is not the device's Baseline");
    EXPECT_TRUE(JudgeUnder("H.264", req, H264(320, 240, 66, 30), "VideoCodecs").playable);
}

TEST(ReadingVerdict, LevelRefusesAboveTheLimit) {
    const std::string req = CapsBuilder().limit("Level", 30).str();
    const ReadingVerdict refused = JudgeUnder("H.264", req, H264(320, 240, 66, 40), "VideoCodecs");
    EXPECT_EQ(Keys(refused), "Level");
    EXPECT_EQ(refused.explanation, "H.264 level 4 is above the device's 3");
    EXPECT_TRUE(JudgeUnder("H.264", req, H264(320, 240, 66, 30), "VideoCodecs").playable);
}

TEST(ReadingVerdict, MaximumPeakBitRateJudgesTheVideoPeak) {
    const std::string req = CapsBuilder().limit("MaximumPeakBitRate", 768).str();
    Reading r = H264(320, 240, 66, 30);
    r.video_peak_bit_rate = 2000000;
    const ReadingVerdict refused = JudgeUnder("H.264", req, r, "VideoCodecs");
    EXPECT_EQ(Keys(refused), "MaximumPeakBitRate");
    EXPECT_EQ(refused.explanation, "peak video bit rate 2,000 kbit/s is above the device's 768 kbit/s");
    r.video_peak_bit_rate = 768999;
    EXPECT_TRUE(JudgeUnder("H.264", req, r, "VideoCodecs").playable);
}

TEST(ReadingVerdict, MaximumAverageBitRateJudgesTheVideoAverage) {
    const std::string req = CapsBuilder().limit("MaximumAverageBitRate", 768).str();
    Reading r = H264(320, 240, 66, 30);
    r.video_peak_bit_rate = 5000000;  // the average is judged, not the peak
    r.video_bit_rate = 500000;
    EXPECT_TRUE(JudgeUnder("H.264", req, r, "VideoCodecs").playable);
    r.video_bit_rate = 900000;
    const ReadingVerdict refused = JudgeUnder("H.264", req, r, "VideoCodecs");
    EXPECT_EQ(Keys(refused), "MaximumAverageBitRate");
    EXPECT_EQ(refused.explanation, "average video bit rate 900 kbit/s is above the device's 768 kbit/s");
}

TEST(ReadingVerdict, MaximumResolutionUsesTheWholeNumber) {
    const std::string req = CapsBuilder().limit("MaximumResolution", 76800).str();
    EXPECT_TRUE(JudgeUnder("H.264", req, H264(320, 240, 66, 30), "VideoCodecs").playable);
    const ReadingVerdict refused = JudgeUnder("H.264", req, H264(640, 480, 66, 30), "VideoCodecs");
    EXPECT_EQ(Keys(refused), "MaximumResolution");
    EXPECT_EQ(refused.explanation, "picture 640\xC3\x97" "480 (307,200 pixels) is larger than the device's 76,800 pixels");
}

TEST(ReadingVerdict, HeightAndWidthBounds) {
    const std::string req = CapsBuilder()
                                .limit("MinimumHeight", 16)
                                .limit("MaximumHeight", 240)
                                .limit("MinimumWidth", 16)
                                .limit("MaximumWidth", 320)
                                .str();
    EXPECT_TRUE(JudgeUnder("H.264", req, H264(320, 240, 66, 30), "VideoCodecs").playable);
    const ReadingVerdict large = JudgeUnder("H.264", req, H264(1920, 1080, 66, 30), "VideoCodecs");
    EXPECT_EQ(Keys(large), "MaximumHeight,MaximumWidth");
    EXPECT_EQ(large.explanation,
              "height 1080 is above the device's maximum 240; width 1920 is above the device's maximum 320");
    const ReadingVerdict small = JudgeUnder("H.264", req, H264(8, 8, 66, 30), "VideoCodecs");
    EXPECT_EQ(Keys(small), "MinimumHeight,MinimumWidth");
    EXPECT_EQ(small.explanation,
              "height 8 is below the device's minimum 16; width 8 is below the device's minimum 16");
}

TEST(ReadingVerdict, ProfileLevelIdRefusesAboveTheLimit) {
    const std::string req = CapsBuilder().limit("Profile-Level-ID", 3).str();
    Reading r;
    r.type = "M4V";
    r.video_codec = "MPEG-4 Visual";
    r.profile = "Advanced Simple Profile";
    r.profile_id = 0xF5;
    const ReadingVerdict refused = JudgeUnder("MPEG-4", req, r, "VideoCodecs");
    EXPECT_EQ(Keys(refused), "Profile-Level-ID");
    EXPECT_EQ(refused.explanation, "MPEG-4 Visual profile and level 245 (Advanced Simple Profile) is above the device's 3");
    r.profile = "Simple Profile";
    r.profile_id = 3;
    EXPECT_TRUE(JudgeUnder("MPEG-4", req, r, "VideoCodecs").playable);
}

TEST(ReadingVerdict, UncheckedKeysOfTheFilterStayUnchecked) {
    const std::string req = CapsBuilder()
                                .flag("AppleDRM", false)
                                .flag("PerceptualNoiseSubsitution", false)
                                .limit("MaximumBitDepthUntruncated", 1)
                                .flag("Type1", false)
                                .limit("ComplexityLevel", 0)
                                .limit("MaximumBufferSize", 1)
                                .limit("SomethingElse", 0)
                                .str();
    EXPECT_TRUE(JudgeUnder("AAC", req, Sound("AAC", "AAC LC", 44100, 2)).playable);
}

TEST(ReadingVerdict, EveryRefusingKeyIsListed) {
    const std::string req =
        CapsBuilder().flag("Multichannel", false).limit("MaximumSampleRate", 48000).flag("LC", true).str();
    const ReadingVerdict v = JudgeUnder("AAC", req, Sound("AAC", "AAC Main", 96000, 6));
    EXPECT_EQ(Keys(v), "Multichannel,MaximumSampleRate,LC");
}

TEST(ReadingVerdict, AdtsIsLookedUpAsAac) {
    Reading adts = Sound("AAC", "AAC LC", 44100, 2);
    adts.aac_format = "ADTS";
    EXPECT_TRUE(JudgeUnder("AAC", "", adts).playable);
}

TEST(ReadingVerdict, TypeTheListDoesNotNameIsRefusedWithoutAKey) {
    const ReadingVerdict v = JudgeUnder("MP3", "", Sound("MP3", "MP2", 32000, 2));
    EXPECT_FALSE(v.playable);
    EXPECT_TRUE(v.refusedBy.empty());
    EXPECT_EQ(v.explanation, "the device lists no MP2 type");
}

TEST(ReadingVerdict, UnidentifiedFileIsRefused) {
    const ReadingVerdict v = JudgeUnder("MP3", "", Reading());
    EXPECT_FALSE(v.playable);
    EXPECT_EQ(v.explanation, "the file was not identified");
}

TEST(ReadingVerdict, NestedSoundEntryJudgesOnlyTheSound) {
    const std::string req = CapsBuilder()
                                .limit("MaximumWidth", 320)
                                .key("AAC")
                                .dict()
                                .flag("LC", true)
                                .limit("MaximumSampleRate", 48000)
                                .flag("Multichannel", false)
                                .end()
                                .str();
    Reading movie = H264(320, 240, 66, 30);
    movie.audio_codec = "AAC LC";
    movie.sample_rate = 48000;
    movie.channels = 6;
    const ReadingVerdict v = JudgeUnder("H.264", req, movie, "VideoCodecs");
    EXPECT_EQ(Keys(v), "Multichannel");
}

TEST(ReadingVerdict, LookupTypes) {
    using fileinfo::ReadingLookupType;
    EXPECT_EQ(ReadingLookupType(Sound("MP3", "MP3", 1, 1)), "MP3");
    EXPECT_EQ(ReadingLookupType(Sound("MP3", "MP2", 1, 1)), "MP2");
    EXPECT_EQ(ReadingLookupType(Sound("AAC", "AAC LC", 1, 1)), "AAC");
    EXPECT_EQ(ReadingLookupType(Sound("AIFC", "PCM", 1, 1)), "AIFF");
    EXPECT_EQ(ReadingLookupType(Sound("M4A", "ALAC", 1, 1)), "AppleLossless");
    EXPECT_EQ(ReadingLookupType(Sound("3GP", "AMR-NB", 1, 1)), "AMR");
    EXPECT_EQ(ReadingLookupType(Sound("M4A", "HE-AAC", 1, 1)), "AAC");
    EXPECT_EQ(ReadingLookupType(H264(1, 1, 66, 1)), "H.264");
    Reading mpeg4 = H264(1, 1, 0, 0);
    mpeg4.video_codec = "MPEG-4 Visual";
    EXPECT_EQ(ReadingLookupType(mpeg4), "MPEG-4");
    EXPECT_EQ(ReadingLookupType(Reading()), "");
}

TEST(ReadingVerdict, PlayerCapsRefusesAacMainAnd51ButTakesStereoLc) {
    std::string error;
    Device device("");
    ASSERT_TRUE(Device::FromFile(FILEINFO_EXAMPLES_DIR "/../devices/player-caps.plist", device, error)) << error;
    EXPECT_TRUE(device.JudgeReading(Sound("AAC", "AAC LC", 44100, 2)).playable);
    EXPECT_EQ(Keys(device.JudgeReading(Sound("AAC", "AAC LC", 48000, 6))), "Multichannel");
    EXPECT_EQ(Keys(device.JudgeReading(Sound("M4A", "AAC Main", 44100, 2))), "LC");
    Reading deep = Sound("WAV", "PCM", 44100, 2);
    deep.bits_per_sample = 24;
    EXPECT_EQ(Keys(device.JudgeReading(deep)), "MaximumBitDepth");
}

}  // namespace
