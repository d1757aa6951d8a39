#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "CapsBuilder.h"
#include "JudgeInfo.h"
#include "Mutation.h"
#include "JudgeTestHelpers.h"

using namespace JudgeTestHelpers;

namespace {

// The verdict of a device whose entry for the record's type holds these requirements.
int Verdict(const CapsBuilder& requirements, const MediaFileInfo_st& r) {
    return Judge(DeviceWith(r.fileType, requirements.str()), r);
}

int VerdictWithLimit(const char* key, const std::string& number, const MediaFileInfo_st& r) {
    return Verdict(CapsBuilder().limit(key, number), r);
}

// `key` with `number` accepts the record with `field` at `accepted` and
// refuses it at `refused`.
template <typename Field>
void ExpectBoundary(const char* key, const std::string& number, MediaFileInfo_st r, Field MediaFileInfo_st::*field,
                    Field accepted, Field refused) {
    r.*field = accepted;
    EXPECT_EQ(VerdictWithLimit(key, number, r), 1) << key << " " << number << " against " << accepted;
    r.*field = refused;
    EXPECT_EQ(VerdictWithLimit(key, number, r), 0) << key << " " << number << " against " << refused;
}

using U16 = unsigned short;

// ---- The walk over the capability list -----------------------------------

TEST(CapsJudge, NullRecordIsRefused) {
    FileInfoFilter f(DeviceWith("MP3", ""));
    EXPECT_EQ(f.AdjudgeFile(nullptr), 0);
    EXPECT_EQ(f.JudgeValue(nullptr), 0);
}

TEST(CapsJudge, CapabilitiesWithoutTheTypeRefuse) {
    EXPECT_EQ(Judge(DeviceWith("WAV", ""), Mp3()), 0);
    EXPECT_EQ(Judge("", Mp3()), 0);
}

TEST(CapsJudge, TypeMatchesOnlyAsAWholeCaseSensitiveKey) {
    EXPECT_EQ(Judge(DeviceWith("mp3", ""), Mp3()), 0);
    EXPECT_EQ(Judge(DeviceWith("MP3 ", ""), Mp3()), 0);
    EXPECT_EQ(Judge(DeviceWith("MP3", ""), RecordOf("MP")), 0);
}

TEST(CapsJudge, EmptyTypeDictionaryAccepts) {
    EXPECT_EQ(Judge("<key>MP3</key>\n<dict>\n</dict>\n", Mp3()), 1);
    EXPECT_EQ(Judge(DeviceWith("MP3", ""), Mp3()), 1);
}

TEST(CapsJudge, EmptyFileTypeLooksForAnEmptyKey) {
    const MediaFileInfo_st untyped = RecordOf("");
    EXPECT_EQ(Judge(DeviceWith("MP3", ""), untyped), 0);
    EXPECT_EQ(Judge(DeviceWith("", ""), untyped), 1);
}

TEST(CapsJudge, TypeAtTheEndOfTheTextAccepts) {
    EXPECT_EQ(Judge("<key>MP3</key>", Mp3()), 1);
    EXPECT_EQ(Judge("<key>MP3</key>\n", Mp3()), 1);
}

TEST(CapsJudge, TypeWhoseValueIsNotADictionaryRefuses) {
    for (const char* value : {"<string>yes</string>\n", "<integer>1</integer>\n", "<true/>\n", "<array>\n"}) {
        const std::string caps = std::string("<key>MP3</key>\n") + value + "<key>WAV</key>\n<dict>\n</dict>\n";
        EXPECT_EQ(Judge(caps, Mp3()), 0) << value;
    }
}

TEST(CapsJudge, TypeFollowedByAnotherTypeIsJudgedByThatTypesDictionary) {
    const std::string refusing = CapsBuilder()
                                     .key("MP3")
                                     .key("WAV")
                                     .dict()
                                     .limit("MaximumSampleRate", 8000)
                                     .end()
                                     .str();
    EXPECT_EQ(Judge(refusing, Mp3()), 0);
    const std::string accepting = CapsBuilder().key("MP3").key("WAV").dict().limit("MaximumSampleRate", 48000).end().str();
    EXPECT_EQ(Judge(accepting, Mp3()), 1);
}

TEST(CapsJudge, FirstOccurrenceOfTheTypeCounts) {
    const std::string caps = CapsBuilder()
                                 .key("MP3").dict().limit("MaximumSampleRate", 22050).end()
                                 .key("MP3").dict().limit("MaximumSampleRate", 48000).end()
                                 .str();
    EXPECT_EQ(Judge(caps, Mp3()), 0);
}

TEST(CapsJudge, TypeKeyInsideAStringValueStartsTheWalkThere) {
    // The needle inside the string is found first; the walk then meets
    // "</string>" as a pseudo-key outside any dictionary.
    const std::string caps = CapsBuilder()
                                 .text("Notes", "plays <key>MP3</key> and more")
                                 .key("MP3").dict().end()
                                 .str();
    EXPECT_EQ(Judge(caps, Mp3()), 0);
}

TEST(CapsJudge, TypeKeyInsideAnotherTypesRequirementsIsTheOneUsed) {
    // A movie type's nested "AAC" dictionary comes before the audio type
    // "AAC": an AAC record is judged by the nested one.
    const std::string caps = CapsBuilder()
                                 .dict()
                                 .key("VideoCodecs").dict()
                                 .key("H.264").dict()
                                 .key("AAC").dict().limit("MaximumSampleRate", 32000).end()
                                 .end()
                                 .end()
                                 .key("AudioCodecs").dict()
                                 .key("AAC").dict().limit("MaximumSampleRate", 48000).end()
                                 .end()
                                 .end()
                                 .str();
    MediaFileInfo_st m4a = RecordOf("AAC");
    SetText(m4a.audioCodec, "AAC");
    m4a.sampleRate = 44100;
    EXPECT_EQ(Judge(caps, m4a), 0);
    m4a.sampleRate = 32000;
    EXPECT_EQ(Judge(caps, m4a), 1);
}

TEST(CapsJudge, NestedDictionaryKeysAreCheckedAndTheWalkGoesOnAfterIt) {
    const MediaFileInfo_st r = Movie();
    EXPECT_EQ(Verdict(CapsBuilder().key("AAC").dict().limit("MaximumSampleRate", 32000).end(), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().key("AAC").dict().limit("MaximumSampleRate", 48000).end()
                          .limit("MaximumWidth", 176), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().key("AAC").dict().limit("MaximumSampleRate", 48000).end()
                          .limit("MaximumWidth", 320), r), 1);
}

TEST(CapsJudge, WalkEndsWhereTheTypesOwnDictionaryCloses) {
    const std::string caps = CapsBuilder()
                                 .key("MP3").dict().limit("MaximumSampleRate", 48000).end()
                                 .limit("MaximumSampleRate", 8000)
                                 .key("WAV").dict().limit("MaximumSampleRate", 8000).end()
                                 .str();
    EXPECT_EQ(Judge(caps, Mp3()), 1);
}

TEST(CapsJudge, LastPairEndingTheTextIsNotChecked) {
    const std::string pair = "<key>MP3</key>\n<dict>\n<key>MaximumSampleRate</key>\n<integer>8000</integer>";
    EXPECT_EQ(Judge(pair, Mp3()), 1);         // the cursor reaches the end with the pair
    EXPECT_EQ(Judge(pair + "\n", Mp3()), 0);  // one more character and it is checked

    MediaFileInfo_st mono = Mp3();
    SetText(mono.channelMode, "Mono");
    // An empty element's skip passes its line end too.
    const std::string flag = "<key>MP3</key>\n<dict>\n<key>Mono</key>\n<false/>";
    EXPECT_EQ(Judge(flag, mono), 1);
    EXPECT_EQ(Judge(flag + "\n", mono), 1);
    EXPECT_EQ(Judge(flag + "\n\n", mono), 0);
}

TEST(CapsJudge, UnknownKeysPass) {
    const MediaFileInfo_st r = Mp3();
    EXPECT_EQ(VerdictWithLimit("SampleRate", "1", r), 1);
    EXPECT_EQ(VerdictWithLimit("maximumsamplerate", "1", r), 1);
    EXPECT_EQ(VerdictWithLimit("MaximumSampleRate ", "1", r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().flag("Stero", false), r), 1);
}

TEST(CapsJudge, KeysMatchWholeSoProfileLevelIdIsNotProfile) {
    MediaFileInfo_st r = Movie();
    r.profile = 0;
    r.profileLevelId = 9;
    EXPECT_EQ(VerdictWithLimit("Profile-Level-ID", "9", r), 1);  // as "Profile", '9' would refuse 0
}

// ---- One test per requirement key ----------------------------------------

TEST(CapsJudge, MonoFalseRefusesMonoFilesOnly) {
    MediaFileInfo_st mono = Mp3();
    SetText(mono.channelMode, "Mono");
    EXPECT_EQ(Verdict(CapsBuilder().flag("Mono", false), mono), 0);
    EXPECT_EQ(Verdict(CapsBuilder().text("Mono", "false"), mono), 0);  // the value's text counts
    EXPECT_EQ(Verdict(CapsBuilder().flag("Mono", true), mono), 1);
    EXPECT_EQ(Verdict(CapsBuilder().text("Mono", "False"), mono), 1);
    EXPECT_EQ(Verdict(CapsBuilder().flag("Mono", false), Mp3()), 1);
}

TEST(CapsJudge, StereoFalseAcceptsTwoChannelFilesRecordedAsStero) {
    EXPECT_EQ(Verdict(CapsBuilder().flag("Stereo", false), Mp3()), 1);
    MediaFileInfo_st spelled = Mp3();
    SetText(spelled.channelMode, "Stereo");  // no reader writes this
    EXPECT_EQ(Verdict(CapsBuilder().flag("Stereo", false), spelled), 0);
    EXPECT_EQ(Verdict(CapsBuilder().flag("Stereo", true), spelled), 1);
}

TEST(CapsJudge, MultichannelFalseRefusesOnlyTheMultichannelText) {
    MediaFileInfo_st surround = Mp3();
    SetText(surround.channelMode, "Multichannel");
    EXPECT_EQ(Verdict(CapsBuilder().flag("Multichannel", false), surround), 0);
    EXPECT_EQ(Verdict(CapsBuilder().flag("Multichannel", true), surround), 1);
    EXPECT_EQ(Verdict(CapsBuilder().flag("Multichannel", false), Mp3()), 1);
}

TEST(CapsJudge, MaximumSampleRateIsInclusive) {
    ExpectBoundary("MaximumSampleRate", "48000", Mp3(), &MediaFileInfo_st::sampleRate, 48000u, 48001u);
}

TEST(CapsJudge, MaximumBitDepthIsInclusive) {
    ExpectBoundary("MaximumBitDepth", "16", RecordOf("AIFF"), &MediaFileInfo_st::bitsPerSample, U16(16), U16(24));
}

TEST(CapsJudge, MaximumDataRateComparesWholeKilobits) {
    ExpectBoundary("MaximumDataRate", "320", Mp3(), &MediaFileInfo_st::bitRate, 320999u, 321000u);
}

TEST(CapsJudge, AacRefusesEveryFileWithoutAacSoundWhateverItsValue) {
    MediaFileInfo_st r = Movie();
    for (const char* codec : {"", "AMR", "AMR-WB", "aac", "AAC ", "AACX"}) {
        SetText(r.audioCodec, codec);
        EXPECT_EQ(Verdict(CapsBuilder().flag("AAC", true), r), 0) << codec;
    }
    SetText(r.audioCodec, "AAC");
    EXPECT_EQ(Verdict(CapsBuilder().flag("AAC", false), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().limit("AAC", 0), r), 1);
}

TEST(CapsJudge, VariableBitRateFalseRefusesOnlyAFlagOfOne) {
    MediaFileInfo_st r = Mp3();
    r.isVbr = 1;
    EXPECT_EQ(Verdict(CapsBuilder().flag("VariableBitRate", false), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().flag("VariableBitRate", true), r), 1);
    r.isVbr = 0;
    EXPECT_EQ(Verdict(CapsBuilder().flag("VariableBitRate", false), r), 1);
    r.isVbr = 2;
    EXPECT_EQ(Verdict(CapsBuilder().flag("VariableBitRate", false), r), 1);
}

TEST(CapsJudge, ProfileIsTheCodeOfTheValuesFirstCharacter) {
    MediaFileInfo_st r = Movie();
    r.profile = 66;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "B"), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "Baseline"), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().limit("Profile", 66), r), 0);  // '6' is 54
    r.profile = 77;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "B"), r), 0);
    r.profile = 54;
    EXPECT_EQ(Verdict(CapsBuilder().limit("Profile", 66), r), 1);
}

TEST(CapsJudge, EmptyProfileValueIsTheTerminator) {
    MediaFileInfo_st r = Movie();
    r.profile = 0;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", ""), r), 1);
    r.profile = 66;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", ""), r), 0);
}

TEST(CapsJudge, ProfileCharacterIsSignedSoHighCodesMatchNothing) {
    MediaFileInfo_st r = Movie();
    r.profile = 0xC8;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "\xC8"), r), 0);  // -56 as a signed character
    r.profile = 100;
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "d"), r), 1);
}

TEST(CapsJudge, LevelComparesSigned) {
    ExpectBoundary("Level", "30", Movie(), &MediaFileInfo_st::level, U16(30), U16(31));
    MediaFileInfo_st r = Movie();
    r.level = 0;
    EXPECT_EQ(VerdictWithLimit("Level", "-1", r), 0);  // a negative level refuses every file
    r.level = 0xFFFF;
    EXPECT_EQ(VerdictWithLimit("Level", "65535", r), 1);
}

TEST(CapsJudge, MaximumPeakBitRateLimitsThePeakInKilobits) {
    ExpectBoundary("MaximumPeakBitRate", "768", Movie(), &MediaFileInfo_st::peakBitRate, 768999u, 769000u);
    MediaFileInfo_st r = Movie();
    r.peakBitRate = UINT_MAX;
    EXPECT_EQ(VerdictWithLimit("MaximumPeakBitRate", "0", r), 1);   // 0: no limit
    EXPECT_EQ(VerdictWithLimit("MaximumPeakBitRate", "-5", r), 1);  // 4294967291 as unsigned
    r.bitRate = UINT_MAX;
    r.peakBitRate = 0;
    EXPECT_EQ(VerdictWithLimit("MaximumPeakBitRate", "1", r), 1);   // the average is not looked at
}

TEST(CapsJudge, MaximumResolutionKeepsOnlyTheLow16BitsOfTheNumber) {
    MediaFileInfo_st r = Movie();
    r.width = 320;
    r.height = 240;
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "76800", r), 0);  // 76800 - 65536 = 11264
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "76799", r), 0);
    r.width = 88;
    r.height = 128;  // 11264 pixels
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "76800", r), 1);
    r.width = 89;
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "76800", r), 0);
    r.width = 176;
    r.height = 144;  // 25344 pixels
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "25344", r), 1);
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "25343", r), 0);
}

TEST(CapsJudge, MaximumResolutionComparesSigned) {
    MediaFileInfo_st r = Movie();
    r.width = 255;
    r.height = 257;  // 65535 pixels
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "-1", r), 1);  // low 16 bits: 65535
    r.width = 256;
    r.height = 256;
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "-1", r), 0);
    r.width = 1;
    r.height = 1;
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "0", r), 0);
    // 2^31 pixels and more come out negative in 32 bits and pass any limit.
    r.width = 0xFFFF;
    r.height = 0xFFFF;
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "0", r), 1);
    r.width = 0xFFFF;
    r.height = 32768;  // 2147450880, just below 2^31
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "0", r), 0);
    r.height = 32769;  // 2147516415, just above
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "0", r), 1);
}

TEST(CapsJudge, MinimumHeightRefusesOnlyKnownSmallHeights) {
    ExpectBoundary("MinimumHeight", "100", Movie(), &MediaFileInfo_st::height, U16(100), U16(99));
    ExpectBoundary("MinimumHeight", "100", Movie(), &MediaFileInfo_st::height, U16(0), U16(1));
    MediaFileInfo_st r = Movie();
    r.height = 0xFFFF;
    EXPECT_EQ(VerdictWithLimit("MinimumHeight", "-1", r), 0);  // 4294967295 as unsigned
}

TEST(CapsJudge, MaximumHeightIsInclusive) {
    ExpectBoundary("MaximumHeight", "240", Movie(), &MediaFileInfo_st::height, U16(240), U16(241));
}

TEST(CapsJudge, MinimumWidthAcceptsAnUnknownWidth) {
    ExpectBoundary("MinimumWidth", "100", Movie(), &MediaFileInfo_st::width, U16(0), U16(99));
    ExpectBoundary("MinimumWidth", "100", Movie(), &MediaFileInfo_st::width, U16(100), U16(1));
}

TEST(CapsJudge, MaximumWidthIsInclusive) {
    ExpectBoundary("MaximumWidth", "320", Movie(), &MediaFileInfo_st::width, U16(320), U16(321));
}

TEST(CapsJudge, ProfileLevelIdIsAMaximum) {
    ExpectBoundary("Profile-Level-ID", "3", RecordOf("MPEG-4"), &MediaFileInfo_st::profileLevelId, U16(3), U16(8));
}

TEST(CapsJudge, MaximumAverageBitRateLimitsThePeakFigure) {
    MediaFileInfo_st fastAverage = Movie();
    fastAverage.bitRate = 5000000;  // not looked at
    ExpectBoundary("MaximumAverageBitRate", "768", fastAverage, &MediaFileInfo_st::peakBitRate, 768999u, 769000u);
    MediaFileInfo_st r = Movie();
    r.peakBitRate = 769000;
    EXPECT_EQ(VerdictWithLimit("MaximumAverageBitRate", "0", r), 1);
}

// A record that every check in the table would refuse if it were made.
MediaFileInfo_st Extreme() {
    MediaFileInfo_st r = RecordOf("AAC");
    SetText(r.audioCodec, "AMR");
    SetText(r.audioFormat, "MPEG-4 AAC Main");
    SetText(r.channelMode, "Mono");
    r.isVbr = 1;
    r.level = r.profile = r.profileLevelId = r.bitsPerSample = r.height = r.width = 0x7FFF;
    r.sampleRate = r.bitRate = r.peakBitRate = r.durationMs = r.fileSize = UINT_MAX;
    return r;
}

class CapsJudgeKeyWithoutCheck : public testing::TestWithParam<const char*> {};

TEST_P(CapsJudgeKeyWithoutCheck, NeverRefuses) {
    const MediaFileInfo_st r = Extreme();
    const char* key = GetParam();
    EXPECT_EQ(Verdict(CapsBuilder().flag(key, false), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().flag(key, true), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().limit(key, 0), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().limit(key, -1), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().text(key, ""), r), 1);
    EXPECT_EQ(Verdict(CapsBuilder().text(key, "false"), r), 1);
}

INSTANTIATE_TEST_SUITE_P(CapsJudge, CapsJudgeKeyWithoutCheck,
                         testing::Values("AppleDRM", "LC", "PerceptualNoiseSubsitution",
                                         "MaximumBitDepthUntruncated", "Type1", "Type2", "Type3", "Type4",
                                         "AppleVideoDRM", "MaximumEncryptionPercentage", "ComplexityLevel",
                                         "MaximumBufferSize"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(CapsJudge, ExtremeRecordIsRefusedByEveryCheckedKey) {
    // The other side of the keys without a check: the same record and values do refuse here.
    const MediaFileInfo_st r = Extreme();
    EXPECT_EQ(Verdict(CapsBuilder().flag("Mono", false), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().flag("AAC", true), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().flag("VariableBitRate", false), r), 0);
    EXPECT_EQ(Verdict(CapsBuilder().text("Profile", "false"), r), 0);
    for (const char* key : {"MaximumSampleRate", "MaximumBitDepth", "MaximumDataRate", "Level",
                            "MaximumPeakBitRate", "MaximumResolution", "MaximumHeight", "MaximumWidth",
                            "Profile-Level-ID", "MaximumAverageBitRate"}) {
        EXPECT_EQ(VerdictWithLimit(key, "1", r), 0) << key;
    }
    EXPECT_EQ(VerdictWithLimit("MinimumHeight", "-1", r), 0);
    EXPECT_EQ(VerdictWithLimit("MinimumWidth", "-1", r), 0);
}

// ---- Numbers --------------------------------------------------------------

TEST(CapsJudge, NumbersAreReadLikeDecimalTextToInt) {
    MediaFileInfo_st r = Mp3();
    r.sampleRate = 48000;
    const std::pair<const char*, int> cases[] = {
        {"48000", 1},  {" \t48000", 1}, {"+48000", 1},   {"48000 Hz", 1}, {"48000.9", 1}, {"047999", 0},
        {"4.8e4", 0},  {"0x10000", 0},  {"abc", 0},      {"", 0},         {"- 1", 0},     {"-1", 1},
        {"47999", 0}};
    for (const auto& [text, verdict] : cases) {
        EXPECT_EQ(VerdictWithLimit("MaximumSampleRate", text, r), verdict) << '"' << text << '"';
    }
}

TEST(CapsJudge, NonNumericLimitIsZero) {
    MediaFileInfo_st r = Mp3();
    r.sampleRate = 1;
    EXPECT_EQ(Verdict(CapsBuilder().flag("MaximumSampleRate", true), r), 0);
    r.sampleRate = 0;
    EXPECT_EQ(Verdict(CapsBuilder().flag("MaximumSampleRate", true), r), 1);
}

TEST(CapsJudge, NumbersOutsideIntSaturate) {
    MediaFileInfo_st r = Movie();
    r.level = 0xFFFF;
    EXPECT_EQ(VerdictWithLimit("Level", "99999999999", r), 1);  // INT_MAX
    r.level = 0;
    EXPECT_EQ(VerdictWithLimit("Level", "-99999999999", r), 0);  // INT_MIN
    r.sampleRate = 0x7FFFFFFF;
    EXPECT_EQ(VerdictWithLimit("MaximumSampleRate", "99999999999", r), 1);
    r.sampleRate = 0x80000000u;
    EXPECT_EQ(VerdictWithLimit("MaximumSampleRate", "99999999999", r), 0);
    EXPECT_EQ(VerdictWithLimit("MaximumSampleRate", "-99999999999", r), 1);  // 2^31 as unsigned
    r.sampleRate = 0x80000001u;
    EXPECT_EQ(VerdictWithLimit("MaximumSampleRate", "-99999999999", r), 0);
    r.width = 0xFFFF;
    r.height = 1;
    // INT_MAX's low 16 bits are 65535.
    EXPECT_EQ(VerdictWithLimit("MaximumResolution", "99999999999", r), 1);
}

// ---- Texts that cannot be walked to their end -----------------------------

TEST(CapsJudge, UnreadableElementInsideTheTypeEndsTheWalkWithoutRefusing) {
    // The element never moves the cursor: the walk would meet it for ever,
    // and nothing after it can be reached.
    const CapsBuilder caps = CapsBuilder().limit("MaximumSampleRate", 48000).line("<array>").limit("MaximumSampleRate", 8000);
    EXPECT_EQ(Verdict(caps, Mp3()), 1);
}

TEST(CapsJudge, UnreadableElementNamedLikeAKeyIsCheckedOnce) {
    MediaFileInfo_st r = Movie();
    const CapsBuilder caps = CapsBuilder().line("<AAC>").limit("MaximumWidth", 1);
    EXPECT_EQ(Verdict(caps, r), 1);
    SetText(r.audioCodec, "AMR");
    EXPECT_EQ(Verdict(caps, r), 0);
    // Its value is empty, so a limit named by it is 0.
    EXPECT_EQ(Verdict(CapsBuilder().line("<MaximumSampleRate>"), r), 0);
}

TEST(CapsJudge, UnterminatedValueEndsTheWalkWithoutRefusing) {
    const CapsBuilder caps = CapsBuilder().key("Note").line("<string>no end").limit("MaximumSampleRate", 8000);
    EXPECT_EQ(Verdict(caps, Mp3()), 1);
    // A known key with an unterminated value is checked against an empty value.
    EXPECT_EQ(Verdict(CapsBuilder().key("MaximumSampleRate").line("<integer>48000"), Mp3()), 0);
}

TEST(CapsJudge, UnterminatedLastKeyEndsTheWalkWithoutRefusing) {
    EXPECT_EQ(Verdict(CapsBuilder().limit("MaximumSampleRate", 48000).line("<key>MaximumSampleRate"), Mp3()), 1);
}

TEST(CapsJudge, KeyWithoutItsClosingTagSwallowsTheNextKey) {
    // "<key>Note\n<key>MaximumSampleRate</key>" is one key; its value is not checked.
    const CapsBuilder caps = CapsBuilder().line("<key>Note").limit("MaximumSampleRate", 8000);
    EXPECT_EQ(Verdict(caps, Mp3()), 1);
}

TEST(CapsJudge, EmptyTagNameEndsTheWalk) {
    EXPECT_EQ(Verdict(CapsBuilder().line("<>").limit("MaximumSampleRate", 8000), Mp3()), 1);
}

TEST(CapsJudge, ClosingBracketBeforeTheNextTagEndsTheWalk) {
    EXPECT_EQ(Verdict(CapsBuilder().line("a > b").limit("MaximumSampleRate", 8000), Mp3()), 1);
}

TEST(CapsJudge, MegabyteLongTagIsOnePseudoKey) {
    const std::string longTag = "<" + std::string(1 << 20, '<') + ">\n";
    EXPECT_EQ(Verdict(CapsBuilder().raw(longTag).limit("MaximumSampleRate", 8000), Mp3()), 1);
    const std::string longEmpty = "<" + std::string(1 << 20, 'x') + "/>\n";
    EXPECT_EQ(Verdict(CapsBuilder().raw(longEmpty).limit("MaximumSampleRate", 8000), Mp3()), 0);
}

// ---- The example device ---------------------------------------------------

TEST(CapsJudge, ExamplePlayerTakesEveryTypeWithinItsLimits) {
    const std::string caps = PlayerCaps();
    ASSERT_FALSE(caps.empty());

    MediaFileInfo_st mp3 = Mp3();
    EXPECT_EQ(Judge(caps, mp3), 1);
    mp3.sampleRate = 96000;
    EXPECT_EQ(Judge(caps, mp3), 0);
    mp3 = Mp3();
    mp3.bitRate = 321000;
    EXPECT_EQ(Judge(caps, mp3), 0);

    MediaFileInfo_st m4a = RecordOf("AAC");
    SetText(m4a.audioCodec, "AAC");
    SetText(m4a.channelMode, "Stero");
    m4a.sampleRate = 44100;
    m4a.bitsPerSample = 16;
    m4a.bitRate = 256000;
    EXPECT_EQ(Judge(caps, m4a), 1);
    m4a.bitsPerSample = 24;
    EXPECT_EQ(Judge(caps, m4a), 0);

    MediaFileInfo_st wav = RecordOf("WAV");
    SetText(wav.channelMode, "Mono");
    wav.sampleRate = 8000;
    wav.bitRate = 128000;
    EXPECT_EQ(Judge(caps, wav), 1);
    wav.sampleRate = 96000;
    EXPECT_EQ(Judge(caps, wav), 0);

    MediaFileInfo_st aiff = RecordOf("AIFF");
    aiff.sampleRate = 44100;
    aiff.bitsPerSample = 24;
    EXPECT_EQ(Judge(caps, aiff), 0);
    aiff.bitsPerSample = 16;
    EXPECT_EQ(Judge(caps, aiff), 1);

    EXPECT_EQ(Judge(caps, RecordOf("H.263")), 0);
}

TEST(CapsJudge, ExamplePlayerTakesSmallBaselineMoviesWithAacSound) {
    const std::string caps = PlayerCaps();
    MediaFileInfo_st movie = Movie();
    EXPECT_EQ(Judge(caps, movie), 1);
    SetText(movie.fileType, "H.264");
    EXPECT_EQ(Judge(caps, movie), 1);
    movie.profile = 77;
    EXPECT_EQ(Judge(caps, movie), 0);
    movie = Movie();
    movie.width = 640;
    movie.height = 480;
    EXPECT_EQ(Judge(caps, movie), 0);
    movie = Movie();
    SetText(movie.audioCodec, "AMR");
    EXPECT_EQ(Judge(caps, movie), 0);
    movie = Movie();
    movie.sampleRate = 96000;  // checked in the nested AAC dictionary
    EXPECT_EQ(Judge(caps, movie), 0);

    MediaFileInfo_st mpeg4 = Movie();
    SetText(mpeg4.fileType, "MPEG-4");
    mpeg4.profileLevelId = 3;
    EXPECT_EQ(Judge(caps, mpeg4), 1);
    mpeg4.profileLevelId = 0xF5;
    EXPECT_EQ(Judge(caps, mpeg4), 0);
}

}  // namespace
