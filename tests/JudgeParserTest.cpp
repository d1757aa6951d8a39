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

TEST(CapsParser, ConstructorKeepsTheTextAndStartsAtTheBeginning) {
    const FileInfoFilter f("<key>A</key>");
    EXPECT_EQ(f.m_pos, 0u);
    EXPECT_EQ(f.m_depth, 0);
    EXPECT_EQ(f.m_text, "<key>A</key>");
}

TEST(CapsParser, MembersKeepTheirOrderAndNothingIsVirtual) {
    static_assert(!std::is_polymorphic_v<FileInfoFilter>, "the filter has no virtual operations");
    static_assert(std::is_same_v<decltype(FileInfoFilter::m_pos), unsigned int>);
    static_assert(std::is_same_v<decltype(FileInfoFilter::m_depth), int>);
    static_assert(std::is_same_v<decltype(KEY_VAR_st::type), unsigned int>);
    const FileInfoFilter f("");
    const char* pos = reinterpret_cast<const char*>(&f.m_pos);
    const char* depth = reinterpret_cast<const char*>(&f.m_depth);
    const char* text = reinterpret_cast<const char*>(&f.m_text);
    EXPECT_LT(pos, depth);
    EXPECT_LT(depth, text);
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

TEST(CapsParser, KeyFollowedByAnEmptyElementOnTheNextLine) {
    FileInfoFilter f("<key>A</key>\n<false/>");
    const KEY_VAR_st kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "A");
    EXPECT_EQ(kv.value, "false");
    EXPECT_EQ(kv.type, 1u);
    EXPECT_EQ(f.m_pos, 22u);  // two past the '>' at 20: one beyond the end of this text
}

TEST(CapsParser, IntegerKeepsItsTextWithTypeZero) {
    FileInfoFilter f("<key>Rate</key>\n<integer>48000</integer>\nrest");
    const KEY_VAR_st kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "Rate");
    EXPECT_EQ(kv.value, "48000");
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(f.m_pos, 40u);  // just past "</integer>"
}

TEST(CapsParser, RealKeepsItsTextWithTypeTwo) {
    FileInfoFilter f("<real>1.5</real>\n");
    const KEY_VAR_st kv = f.GetValue();
    EXPECT_EQ(kv.value, "1.5");
    EXPECT_EQ(kv.type, 2u);
    EXPECT_EQ(kv.key, "");
    EXPECT_EQ(f.m_pos, 16u);
}

TEST(CapsParser, StringKeepsItsTextWithTypeOne) {
    FileInfoFilter f("<string>B</string>\n");
    const KEY_VAR_st kv = f.GetValue();
    EXPECT_EQ(kv.value, "B");
    EXPECT_EQ(kv.type, 1u);
    EXPECT_EQ(f.m_pos, 18u);
}

TEST(CapsParser, EmptyScalarElementsGiveEmptyValues) {
    FileInfoFilter f("<string></string><integer></integer>");
    KEY_VAR_st kv = f.GetValue();
    EXPECT_EQ(kv.value, "");
    EXPECT_EQ(kv.type, 1u);
    EXPECT_EQ(f.m_pos, 17u);
    kv = f.GetValue();
    EXPECT_EQ(kv.value, "");
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(f.m_pos, 36u);
}

TEST(CapsParser, ValueTextIsNotConverted) {
    FileInfoFilter f("<integer> +0048000 junk</integer>");
    EXPECT_EQ(f.GetValue().value, " +0048000 junk");
}

TEST(CapsParser, DictionaryDepthReturnsToItsFormerValue) {
    const std::string text =
        CapsBuilder().dict().limit("A", 1).key("Inner").dict().limit("B", 2).end().limit("C", 3).end().str();
    FileInfoFilter f(text);
    KEY_VAR_st kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "A");
    EXPECT_EQ(f.m_depth, 1);
    kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "Inner");
    EXPECT_EQ(kv.value, "");
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(f.m_depth, 2);
    kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "B");
    EXPECT_EQ(f.m_depth, 2);
    kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "C");
    EXPECT_EQ(kv.value, "3");
    EXPECT_EQ(f.m_depth, 1);
    kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "");
    EXPECT_EQ(f.m_depth, 0);
    EXPECT_EQ(f.m_pos, text.size() - 1);  // just past the last "</dict>"
}

TEST(CapsParser, LeavingTheStartingDictionaryEndsTheWalk) {
    FileInfoFilter f("<dict>\n</dict>\n<key>After</key>\n");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.m_depth, 0);
    EXPECT_EQ(f.m_pos, 14u);
    // Nothing stops a caller from going on: the next key is there.
    EXPECT_EQ(f.GetKey(), "After");
}

TEST(CapsParser, EmptyKeyReadsNoValue) {
    FileInfoFilter f("<dict>\n</dict>\n<string>x</string>\n");
    const KEY_VAR_st kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "");
    EXPECT_EQ(kv.value, "");
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(f.m_pos, 14u);  // the <string> after it is untouched
}

TEST(CapsParser, ClosingDictAtDepthZeroKeepsWalking) {
    FileInfoFilter f("</dict>\n<key>A</key>\n");
    EXPECT_EQ(f.GetKey(), "A");
    EXPECT_EQ(f.m_depth, -1);
}

TEST(CapsParser, NoOpeningBracketAfterTheCursorYieldsAnEmptyKey) {
    FileInfoFilter f("<key>A</key>\nplain text > only");
    f.m_pos = 13;
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.m_pos, 13u);
    const KEY_VAR_st kv = f.GetNextKeyVar();
    EXPECT_EQ(kv.key, "");
    EXPECT_EQ(kv.type, 0u);
    EXPECT_EQ(f.m_pos, 13u);
}

TEST(CapsParser, EmptyTextYieldsNothing) {
    FileInfoFilter f("");
    EXPECT_EQ(f.GetKey(), "");
    const KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "");
    EXPECT_EQ(v.type, 0u);
    EXPECT_EQ(f.GetNextKeyVar().key, "");
    EXPECT_EQ(f.m_pos, 0u);
    EXPECT_EQ(f.m_depth, 0);
}

TEST(CapsParser, UnterminatedTagYieldsNothing) {
    FileInfoFilter f("<key");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.GetValue().value, "");
    EXPECT_EQ(f.m_pos, 0u);
}

TEST(CapsParser, OpeningBracketAfterTheClosingOneYieldsNothing) {
    FileInfoFilter f("a > b <key>A</key>\n<integer>1</integer>");
    EXPECT_EQ(f.GetKey(), "");
    const KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "");
    EXPECT_EQ(v.type, 0u);
    EXPECT_EQ(f.m_pos, 0u);
}

TEST(CapsParser, UnterminatedKeyYieldsTheTagName) {
    FileInfoFilter f("<key>Rate\n<integer>1</integer>");
    EXPECT_EQ(f.GetKey(), "key");
    EXPECT_EQ(f.m_pos, 0u);
}

TEST(CapsParser, OtherTagsArePseudoKeysAndTheCursorStays) {
    FileInfoFilter f("<string>x</string>");
    EXPECT_EQ(f.GetKey(), "string");
    EXPECT_EQ(f.m_pos, 0u);
    FileInfoFilter empty("<false/>\n");
    EXPECT_EQ(empty.GetKey(), "false/");
    EXPECT_EQ(empty.m_pos, 0u);
    // The pseudo-key's value is then the element itself.
    const KEY_VAR_st kv = empty.GetNextKeyVar();
    EXPECT_EQ(kv.key, "false/");
    EXPECT_EQ(kv.value, "false");
    EXPECT_EQ(kv.type, 1u);
}

TEST(CapsParser, TagNamesMatchCaseSensitivelyAndWhole) {
    FileInfoFilter upper("<Dict>\n<KEY>A</KEY>");
    EXPECT_EQ(upper.GetKey(), "Dict");
    EXPECT_EQ(upper.m_depth, 0);
    // Attributes are not understood: the whole text between the brackets is the name.
    FileInfoFilter attributed("<dict id=\"1\">\n<key>A</key>");
    EXPECT_EQ(attributed.GetKey(), "dict id=\"1\"");
    FileInfoFilter spaced("<key >A</key>");
    EXPECT_EQ(spaced.GetKey(), "key ");
}

TEST(CapsParser, EmptyTagNameIsAnEmptyKey) {
    FileInfoFilter f("<>\n<key>A</key>");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.m_pos, 0u);
    const KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "");
    EXPECT_EQ(v.type, 0u);
    EXPECT_EQ(f.m_pos, 0u);
}

TEST(CapsParser, KeyTextMayHoldOtherTags) {
    FileInfoFilter f("<key>a<b>c</key>\n");
    EXPECT_EQ(f.GetKey(), "a<b>c");
    EXPECT_EQ(f.m_pos, 16u);
}

TEST(CapsParser, EmptyElementSkipsTwoCharactersPastItsBracket) {
    FileInfoFilter f("<true/>X<key>A</key>");
    KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "true");
    EXPECT_EQ(v.type, 1u);
    EXPECT_EQ(f.m_pos, 8u);
    EXPECT_EQ(f.GetKey(), "A");

    // Without a line end the skip eats the next tag's '<': from there the
    // next '<' (of "</key>") lies beyond the next '>', and the walk ends.
    FileInfoFilter tight("<true/><key>A</key>");
    tight.GetValue();
    EXPECT_EQ(tight.m_pos, 8u);
    EXPECT_EQ(tight.GetKey(), "");
    EXPECT_EQ(tight.m_pos, 8u);
}

TEST(CapsParser, EmptyElementNamesLoseOnlyTheirSlash) {
    FileInfoFilter f("<key/>\n</>\n");
    KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "key");
    EXPECT_EQ(f.m_pos, 7u);
    v = f.GetValue();
    EXPECT_EQ(v.value, "");
    EXPECT_EQ(v.type, 1u);
    EXPECT_EQ(f.m_pos, 11u);
}

TEST(CapsParser, ScalarWithoutItsClosingTagKeepsTypeAndCursor) {
    const std::pair<const char*, unsigned int> cases[] = {
        {"<string>abc\n<key>A</key>", 1u}, {"<integer>5\n", 0u}, {"<real>1.5</integer>", 2u}};
    for (const auto& [text, type] : cases) {
        FileInfoFilter f(text);
        const KEY_VAR_st v = f.GetValue();
        EXPECT_EQ(v.type, type) << text;
        EXPECT_EQ(v.value, "") << text;
        EXPECT_EQ(f.m_pos, 0u) << text;
    }
}

TEST(CapsParser, DictValueRaisesTheDepthAndEntersIt) {
    FileInfoFilter f("<dict>\n<key>A</key>");
    const KEY_VAR_st v = f.GetValue();
    EXPECT_EQ(v.value, "");
    EXPECT_EQ(v.type, 0u);
    EXPECT_EQ(f.m_pos, 6u);
    EXPECT_EQ(f.m_depth, 1);
    EXPECT_EQ(f.GetKey(), "A");
}

TEST(CapsParser, OtherValueElementsChangeNothing) {
    for (const char* text : {"<array>\n<string>a</string>\n</array>", "<key>A</key>", "<date>2024</date>"}) {
        FileInfoFilter f(text);
        const KEY_VAR_st v = f.GetValue();
        EXPECT_EQ(v.value, "") << text;
        EXPECT_EQ(v.type, 0u) << text;
        EXPECT_EQ(f.m_pos, 0u) << text;
        EXPECT_EQ(f.m_depth, 0) << text;
    }
}

TEST(CapsParser, TypeDictionaryWalkYieldsEveryPairInOrder) {
    const std::string text = CapsBuilder()
                                 .dict()
                                 .limit("MaximumSampleRate", 48000)
                                 .flag("Mono", false)
                                 .text("Profile", "B")
                                 .key("Ratio")
                                 .real("0.5")
                                 .end()
                                 .str();
    FileInfoFilter f(text);
    const std::tuple<const char*, const char*, unsigned int> expected[] = {
        {"MaximumSampleRate", "48000", 0u}, {"Mono", "false", 1u}, {"Profile", "B", 1u}, {"Ratio", "0.5", 2u}};
    for (const auto& [key, value, type] : expected) {
        const KEY_VAR_st kv = f.GetNextKeyVar();
        EXPECT_EQ(kv.key, key);
        EXPECT_EQ(kv.value, value);
        EXPECT_EQ(kv.type, type);
    }
    EXPECT_EQ(f.GetNextKeyVar().key, "");
    EXPECT_EQ(f.m_depth, 0);
}

TEST(CapsParser, MegabytesOfNestedDictsDoNotExhaustTheStack) {
    const int depth = 1 << 20;  // 6 MB of "<dict>"
    std::string text;
    text.reserve(depth * 13 + 32);
    for (int i = 0; i < depth; ++i) text += "<dict>";
    text += "<key>Deep</key>";
    const size_t closingAt = text.size();
    for (int i = 0; i < depth; ++i) text += "</dict>";
    FileInfoFilter f(text);
    EXPECT_EQ(f.GetKey(), "Deep");
    EXPECT_EQ(f.m_depth, depth);
    EXPECT_EQ(f.m_pos, closingAt);
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.m_depth, 0);
    EXPECT_EQ(f.m_pos, text.size());
}

TEST(CapsParser, MegabytesOfClosingDictsKeepWalkingBelowZero) {
    const int count = 1 << 20;
    std::string text;
    for (int i = 0; i < count; ++i) text += "</dict>";
    text += "<key>Low</key>";
    FileInfoFilter f(text);
    EXPECT_EQ(f.GetKey(), "Low");
    EXPECT_EQ(f.m_depth, -count);
}

TEST(CapsParser, MegabytesOfUnclosedDictsEndWithAnEmptyKey) {
    std::string text;
    for (int i = 0; i < (1 << 20); ++i) text += "<dict>";
    FileInfoFilter f(text);
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_EQ(f.m_depth, 1 << 20);
    EXPECT_EQ(f.m_pos, text.size());
}

}  // namespace
