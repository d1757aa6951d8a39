// These tests pin filter state (the parser's cursor) that hosts do not see: the
// m_ members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// JudgeParserTest.cpp.

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <type_traits>

#include "CapsBuilder.h"
#include "JudgeInfo.h"

namespace {

// What GetValue reads at the cursor, and where it leaves the cursor.
testing::AssertionResult ReadsValue(FileInfoFilter& f, const std::string& value, unsigned int type,
                                    unsigned int pos) {
    const KEY_VAR_st v = f.GetValue();
    if (v.key.empty() && v.value == value && v.type == type && f.m_pos == pos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "read \"" << v.value << "\" type " << v.type << " cursor " << f.m_pos
                                       << (v.key.empty() ? "" : " with a key") << "; wanted \"" << value
                                       << "\" type " << type << " cursor " << pos;
}

// What GetKey reads at the cursor, and where it leaves the cursor.
testing::AssertionResult ReadsKey(FileInfoFilter& f, const std::string& key, size_t pos) {
    const std::string k = f.GetKey();
    if (k == key && f.m_pos == pos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "read \"" << k << "\" cursor " << f.m_pos << "; wanted \"" << key
                                       << "\" cursor " << pos;
}

// What GetNextKeyVar reads at the cursor.
testing::AssertionResult ReadsPair(FileInfoFilter& f, const std::string& key, const std::string& value,
                                   unsigned int type) {
    const KEY_VAR_st kv = f.GetNextKeyVar();
    if (kv.key == key && kv.value == value && kv.type == type) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "read \"" << kv.key << "\" = \"" << kv.value << "\" type " << kv.type
                                       << "; wanted \"" << key << "\" = \"" << value << "\" type " << type;
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

TEST(CapsParser, KeyFollowedByAnEmptyElementOnTheNextLine) {
    FileInfoFilter f("<key>A</key>\n<false/>");
    EXPECT_TRUE(ReadsPair(f, "A", "false", 1));
    EXPECT_EQ(f.m_pos, 22u);  // two past the '>' at 20: one beyond the end of this text
}

TEST(CapsParser, IntegerKeepsItsTextWithTypeZero) {
    FileInfoFilter f("<key>Rate</key>\n<integer>48000</integer>\nrest");
    EXPECT_TRUE(ReadsPair(f, "Rate", "48000", 0));
    EXPECT_EQ(f.m_pos, 40u);  // just past "</integer>"
}

TEST(CapsParser, RealKeepsItsTextWithTypeTwo) {
    FileInfoFilter f("<real>1.5</real>\n");
    EXPECT_TRUE(ReadsValue(f, "1.5", 2, 16));
}

TEST(CapsParser, StringKeepsItsTextWithTypeOne) {
    FileInfoFilter f("<string>B</string>\n");
    EXPECT_TRUE(ReadsValue(f, "B", 1, 18));
}

TEST(CapsParser, EmptyScalarElementsGiveEmptyValues) {
    FileInfoFilter f("<string></string><integer></integer>");
    EXPECT_TRUE(ReadsValue(f, "", 1, 17));
    EXPECT_TRUE(ReadsValue(f, "", 0, 36));
}

TEST(CapsParser, DictionaryDepthReturnsToItsFormerValue) {
    const std::string text =
        CapsBuilder().dict().limit("A", 1).key("Inner").dict().limit("B", 2).end().limit("C", 3).end().str();
    FileInfoFilter f(text);
    EXPECT_TRUE(ReadsPair(f, "A", "1", 0));
    EXPECT_EQ(f.m_depth, 1);
    EXPECT_TRUE(ReadsPair(f, "Inner", "", 0));
    EXPECT_EQ(f.m_depth, 2);
    EXPECT_TRUE(ReadsPair(f, "B", "2", 0));
    EXPECT_EQ(f.m_depth, 2);
    EXPECT_TRUE(ReadsPair(f, "C", "3", 0));
    EXPECT_EQ(f.m_depth, 1);
    EXPECT_TRUE(ReadsPair(f, "", "", 0));
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
    EXPECT_TRUE(ReadsPair(f, "", "", 0));
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
    EXPECT_TRUE(ReadsKey(f, "", 13));
    EXPECT_TRUE(ReadsPair(f, "", "", 0));
    EXPECT_EQ(f.m_pos, 13u);
}

TEST(CapsParser, EmptyTextYieldsNothing) {
    FileInfoFilter f("");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_TRUE(ReadsValue(f, "", 0, 0));
    EXPECT_TRUE(ReadsPair(f, "", "", 0));
    EXPECT_EQ(f.m_pos, 0u);
    EXPECT_EQ(f.m_depth, 0);
}

TEST(CapsParser, UnterminatedTagYieldsNothing) {
    FileInfoFilter f("<key");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_TRUE(ReadsValue(f, "", 0, 0));
}

TEST(CapsParser, OpeningBracketAfterTheClosingOneYieldsNothing) {
    FileInfoFilter f("a > b <key>A</key>\n<integer>1</integer>");
    EXPECT_EQ(f.GetKey(), "");
    EXPECT_TRUE(ReadsValue(f, "", 0, 0));
}

TEST(CapsParser, UnterminatedKeyYieldsTheTagName) {
    FileInfoFilter f("<key>Rate\n<integer>1</integer>");
    EXPECT_TRUE(ReadsKey(f, "key", 0));
}

TEST(CapsParser, OtherTagsArePseudoKeysAndTheCursorStays) {
    FileInfoFilter f("<string>x</string>");
    EXPECT_TRUE(ReadsKey(f, "string", 0));
    FileInfoFilter empty("<false/>\n");
    EXPECT_TRUE(ReadsKey(empty, "false/", 0));
    // The pseudo-key's value is then the element itself.
    EXPECT_TRUE(ReadsPair(empty, "false/", "false", 1));
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
    EXPECT_TRUE(ReadsKey(f, "", 0));
    EXPECT_TRUE(ReadsValue(f, "", 0, 0));
}

TEST(CapsParser, KeyTextMayHoldOtherTags) {
    FileInfoFilter f("<key>a<b>c</key>\n");
    EXPECT_TRUE(ReadsKey(f, "a<b>c", 16));
}

TEST(CapsParser, EmptyElementSkipsTwoCharactersPastItsBracket) {
    FileInfoFilter f("<true/>X<key>A</key>");
    EXPECT_TRUE(ReadsValue(f, "true", 1, 8));
    EXPECT_EQ(f.GetKey(), "A");

    // Without a line end the skip eats the next tag's '<': from there the
    // next '<' (of "</key>") lies beyond the next '>', and the walk ends.
    FileInfoFilter tight("<true/><key>A</key>");
    EXPECT_TRUE(ReadsValue(tight, "true", 1, 8));
    EXPECT_TRUE(ReadsKey(tight, "", 8));
}

TEST(CapsParser, EmptyElementNamesLoseOnlyTheirSlash) {
    FileInfoFilter f("<key/>\n</>\n");
    EXPECT_TRUE(ReadsValue(f, "key", 1, 7));
    EXPECT_TRUE(ReadsValue(f, "", 1, 11));
}

TEST(CapsParser, ScalarWithoutItsClosingTagKeepsTypeAndCursor) {
    const std::pair<const char*, unsigned int> cases[] = {
        {"<string>abc\n<key>A</key>", 1u}, {"<integer>5\n", 0u}, {"<real>1.5</integer>", 2u}};
    for (const auto& [text, type] : cases) {
        FileInfoFilter f(text);
        EXPECT_TRUE(ReadsValue(f, "", type, 0)) << text;
    }
}

TEST(CapsParser, DictValueRaisesTheDepthAndEntersIt) {
    FileInfoFilter f("<dict>\n<key>A</key>");
    EXPECT_TRUE(ReadsValue(f, "", 0, 6));
    EXPECT_EQ(f.m_depth, 1);
    EXPECT_EQ(f.GetKey(), "A");
}

TEST(CapsParser, OtherValueElementsChangeNothing) {
    for (const char* text : {"<array>\n<string>a</string>\n</array>", "<key>A</key>", "<date>2024</date>"}) {
        FileInfoFilter f(text);
        EXPECT_TRUE(ReadsValue(f, "", 0, 0)) << text;
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
    for (const auto& [key, value, type] : expected) EXPECT_TRUE(ReadsPair(f, key, value, type));
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
