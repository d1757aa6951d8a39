#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <type_traits>

#include "CapsBuilder.h"
#include "JudgeInfo.h"

namespace {

TEST(CapsParser, KeyVarStartsAsAnEmptyInteger) {
    const KEY_VAR_st kv;
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(kv.key, "");
    EXPECT_EQ(kv.value, "");
}

TEST(CapsParser, TagConstantsHoldTheirTexts) {
    EXPECT_STREQ(FileInfoFilter::KEY_BEGIN, "<key>");
    EXPECT_STREQ(FileInfoFilter::KEY_END, "</key>");
    ASSERT_EQ(sizeof FileInfoFilter::FILE_TYPE_TAG / sizeof FileInfoFilter::FILE_TYPE_TAG[0], 2u);
    EXPECT_STREQ(FileInfoFilter::FILE_TYPE_TAG[0], "AudioCodecs");
    EXPECT_STREQ(FileInfoFilter::FILE_TYPE_TAG[1], "VideoCodecs");
}

TEST(CapsParser, RequirementKeysAreListedInMatchingOrder) {
    const char* const expected[] = {
        "Mono", "Stereo", "Multichannel", "AppleDRM", "MaximumSampleRate", "MaximumBitDepth",
        "MaximumDataRate", "AAC", "LC", "VariableBitRate", "PerceptualNoiseSubsitution",
        "MaximumBitDepthUntruncated", "Type1", "Type2", "Type3", "Type4", "AppleVideoDRM",
        "MaximumEncryptionPercentage", "Profile", "Level", "ComplexityLevel", "MaximumPeakBitRate",
        "MaximumResolution", "MinimumHeight", "MaximumHeight", "MinimumWidth", "MaximumWidth",
        "Profile-Level-ID", "MaximumAverageBitRate", "MaximumBufferSize"};
    ASSERT_EQ(sizeof FileInfoFilter::FILE_INFO_TAG / sizeof FileInfoFilter::FILE_INFO_TAG[0], 30u);
    for (int i = 0; i < 30; ++i) EXPECT_STREQ(FileInfoFilter::FILE_INFO_TAG[i], expected[i]) << "row " << i;
}

TEST(CapsParser, ValueTextIsNotConverted) {
    FileInfoFilter f("<integer> +0048000 junk</integer>");
    EXPECT_EQ(f.GetValue().value, " +0048000 junk");
}

}  // namespace
