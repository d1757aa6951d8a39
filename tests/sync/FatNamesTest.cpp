#include <gtest/gtest.h>

#include <string>

#include "sync/FatNames.h"

using namespace fileinfo::sync;

TEST(FatNames, RefusedCharactersBecomeUnderscores) {
    EXPECT_EQ(FatName("a:b?.mp3"), "a_b_.mp3");
    EXPECT_EQ(FatName("\"*<>\\|.m4a"), "______.m4a");
    EXPECT_EQ(FatName(std::string("tab\there\x7f.mp3")), "tab_here_.mp3");
}

TEST(FatNames, TrailingDotsAndSpacesGo) {
    EXPECT_EQ(FatName("Album. . "), "Album");
    EXPECT_EQ(FatName("..."), "_");
    EXPECT_EQ(FatName(" "), "_");
}

TEST(FatNames, BytesThatAreNoUtf8BecomeUnderscores) {
    EXPECT_EQ(FatName("caf\xe9.mp3"), "caf_.mp3");
    EXPECT_EQ(FatName("\xc3\xa9t\xc3\xa9.mp3"), "\xc3\xa9t\xc3\xa9.mp3");
}

TEST(FatNames, NameOver255UnitsIsCutBeforeItsExtensionOnACharacterBoundary) {
    std::string name;
    for (int k = 0; k < 200; ++k) name += "\xe6\x97\xa5";  // 600 bytes, 200 units
    name += name;                                           // 400 units
    const std::string fat = FatName(name + ".mp3");
    EXPECT_EQ(Utf16Units(fat), 255u);
    EXPECT_EQ(fat.substr(fat.size() - 4), ".mp3");
    EXPECT_EQ(fat.size(), 251u * 3 + 4);
}

TEST(FatNames, CharactersOutsideTheBasicPlaneCountTwoUnits) {
    EXPECT_EQ(Utf16Units("\xf0\x9f\x8e\xb5"), 2u);
    std::string name;
    for (int k = 0; k < 200; ++k) name += "\xf0\x9f\x8e\xb5";
    const std::string fat = FatName(name);
    EXPECT_EQ(Utf16Units(fat), 254u);  // 127 whole characters; half of one is no character
}

TEST(FatNames, FoldKeyIgnoresCaseOfAsciiAndLatin1) {
    EXPECT_EQ(FatFoldKey("Song.MP3"), FatFoldKey("song.mp3"));
    EXPECT_EQ(FatFoldKey("\xc3\x89t\xc3\xa9"), FatFoldKey("\xc3\xa9t\xc3\xa9"));
    EXPECT_NE(FatFoldKey("a"), FatFoldKey("b"));
}

TEST(FatNames, NumberedNameGoesBeforeTheExtensionAndStaysWithinTheLimit) {
    EXPECT_EQ(NumberedName("Song.mp3", 2), "Song (2).mp3");
    EXPECT_EQ(NumberedName("README", 3), "README (3)");
    const std::string longName = std::string(251, 'x') + ".mp3";
    const std::string numbered = NumberedName(longName, 12);
    EXPECT_EQ(Utf16Units(numbered), 255u);
    EXPECT_EQ(numbered.substr(numbered.size() - 9), " (12).mp3");
}
