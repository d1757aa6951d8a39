#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "Id3ReaderTestHelpers.h"

using namespace Id3ReaderTestHelpers;

namespace {

// --- tables ---------------------------------------------------------------

TEST(Id3Tables, Id3v23IdsFollowTheFrameListOrder) {
    EXPECT_STREQ(ID3V2_TAG[0], "AENC");
    EXPECT_STREQ(ID3V2_TAG[14], "PRIV");
    EXPECT_STREQ(ID3V2_TAG[15], "PCNT");
    EXPECT_STREQ(ID3V2_TAG[35], "TIT2");
    EXPECT_STREQ(ID3V2_TAG[60], "TYER");
    EXPECT_STREQ(ID3V2_TAG[61], "TXXX");
    EXPECT_STREQ(ID3V2_TAG[73], "WXXX");
    for (const char* id : ID3V2_TAG) EXPECT_EQ(strlen(id), 4u) << id;
}

TEST(Id3Tables, Id3v22IdsAreTheSixteenRecognised) {
    const char* expected[16] = {"TT2", "TP1", "TAL", "TRK", "TYE", "TCO", "COM", "TCM",
                                "TEN", "TCR", "TLA", "WXX", "TOR", "TOA", "TT1", "TOT"};
    for (int i = 0; i < 16; ++i) EXPECT_STREQ(ID3V2Ver2_TAG[i], expected[i]) << i;
    EXPECT_STREQ(ID3V1TAG[0], "TAG");
}

// --- ID3v1 ------------------------------------------------------------------

TEST(Id3Reader, Id3v1FieldsEndAtTheirFullWidth) {
    Id3v1Fields v1;
    v1.title = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123";
    v1.comment = "abcdefghijklmnopqrstuvwxyz0123";  // 30 characters: ID3v1.0
    Loaded t(Join({AudioBytes(10), BuildId3v1(v1)}));
    ASSERT_EQ(t.status, MFI_OK);
    EXPECT_STREQ(t.info()->pTitle, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123");
    EXPECT_STREQ(t.info()->pComment, "abcdefghijklmnopqrstuvwxyz0123");
    // No test of byte 125: the comment's last character is the track.
    EXPECT_EQ(t.info()->nTrack, '3');
    EXPECT_STREQ(t.info()->pYear, "");
}

TEST(Id3Reader, Id3v1TrackByteIsSigned) {
    Id3v1Fields v1;
    v1.track = 200;
    Loaded t(Join({AudioBytes(10), BuildId3v1(v1)}));
    ASSERT_EQ(t.status, MFI_OK);
    EXPECT_EQ(t.info()->nTrack, -56);
}

TEST(Id3Reader, Id3v1GenreBytesAboveOneTwentySevenNameNoGenre) {
    const std::pair<int, const char*> cases[] = {
        {255, ""}, {148, ""}, {128, ""}, {147, ""}, {127, "Drum & Bass"}, {0, "Blues"}, {17, "Rock"}};
    for (const auto& [byte, name] : cases) {
        Id3v1Fields v1;
        v1.genre = byte;
        Loaded t(BuildId3v1(v1));
        ASSERT_EQ(t.status, MFI_OK) << byte;
        EXPECT_STREQ(t.info()->pGenre, name) << byte;
    }
}

TEST(Id3Reader, FileShorterThanAnId3v1TagReturnsSeekFailure) {
    Loaded t(AudioBytes(100));
    EXPECT_EQ(t.status, MFI_SEEK_FAILED);
    EXPECT_EQ(t.GetId3Info(), nullptr);
    EXPECT_EQ(t.HasId3Info(), 0);
}

TEST(Id3Reader, HeaderShorterThanTenBytesReadsNothing) {
    Loaded t(Bytes{'I', 'D', '3', 3});
    EXPECT_EQ(t.status, MFI_SEEK_FAILED);
    EXPECT_EQ(t.GetId3Info(), nullptr);
}

TEST(Id3Reader, ExactlyOneTwentyEightBytesOfId3v1) {
    Id3v1Fields v1;
    v1.title = "Only";
    Loaded t(BuildId3v1(v1));
    EXPECT_EQ(t.status, MFI_OK);
    EXPECT_STREQ(t.info()->pTitle, "Only");
}

// --- ID3v2.3 ----------------------------------------------------------------

TEST(Id3Reader, Id3v23TagWithExtendedHeaderIsNotRead) {
    Id3v2Fields s;
    s.flags = 0x40;
    s.frames = {TextFrame("TIT2", "Hi")};
    Loaded t(Join({BuildId3v2(s), AudioBytes(300)}));
    EXPECT_EQ(t.status, MFI_UNREADABLE);
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.HasId3Info(), 0);
}

TEST(Id3Reader, LaterFramesReplaceEarlierAndId3v1Values) {
    Id3v1Fields v1;
    v1.title = "Old";
    v1.album = "Kept";
    Loaded t(Join({V23({TextFrame("TIT2", "First"), TextFrame("TIT2", "Second")}), AudioBytes(300),
                   BuildId3v1(v1)}));
    EXPECT_EQ(t.status, MFI_OK);
    EXPECT_STREQ(t.info()->pTitle, "Second");
    EXPECT_STREQ(t.info()->pAlbum, "Kept");
}

TEST(Id3Reader, TrackFrameGivesTheCodeOfItsFirstCharacter) {
    EXPECT_EQ(Loaded(TagThenAudio({TextFrame("TRCK", "7")})).info()->nTrack, 55);
    EXPECT_EQ(Loaded(TagThenAudio({TextFrame("TRCK", "12/20")})).info()->nTrack, 49);
}

TEST(Id3Reader, GenreFrameIsItsFirstByte) {
    const std::pair<Bytes, const char*> cases[] = {
        {Bytes{0, 17}, "Rock"},  {Bytes{0, 147}, "SynthPop"}, {Bytes{0, 148}, ""},
        {Bytes{0, 200}, ""},     {Bytes{0}, "Blues"},         {Bytes{0, 'R', 'o', 'c', 'k'}, "National Folk"},
        {Bytes{0, '(', '1', '7', ')'}, "Alternative Rock"}};
    for (const auto& [data, name] : cases) {
        EXPECT_STREQ(Loaded(TagThenAudio({RawFrame("TCON", data)})).info()->pGenre, name) << name;
    }
}

TEST(Id3Reader, StandardCommentLosesItsFirstCharacter) {
    EXPECT_STREQ(Loaded(TagThenAudio({CommentFrame("COMM", "eng", "Hello")})).info()->pComment, "ello");
}

TEST(Id3Reader, LittleEndianUtf16TextIsEmptied) {
    EXPECT_STREQ(Loaded(TagThenAudio({RawFrame("TIT2", Bytes{1, 0xFF, 0xFE, 'A', 0, 'B', 0})})).info()->pTitle, "");
}

TEST(Id3Reader, BigEndianUtf16TextKeepsItsMark) {
    Loaded t(TagThenAudio({RawFrame("TIT2", Bytes{1, 0xFE, 0xFF, 0, 'A'})}));
    EXPECT_EQ(Text(t.info()->pTitle), "\xFE\xFF");
}

TEST(Id3Reader, StandardLyricsFrameGivesItsLanguage) {
    EXPECT_STREQ(Loaded(TagThenAudio({CommentFrame("USLT", "eng", "La la la")})).info()->pLyrics, "eng");
}

// --- ID3v2.2 ----------------------------------------------------------------

TEST(Id3Reader, Id3v22FrameOfTwoHundredBytesEndsTheScan) {
    Loaded t(Join({V22({TextFrame("TP1", "A"), TextFrame("TT2", std::string(199, 'x')), TextFrame("TAL", "B")}),
                   AudioBytes(300)}));
    EXPECT_STREQ(t.info()->pArtist, "A");
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.info()->pAlbum, nullptr);
}

TEST(Id3Reader, Id3v22FlagsAreNotLookedAt) {
    Id3v2Fields s;
    s.majorVersion = 2;
    s.flags = 0x40;
    s.frames = {TextFrame("TT2", "Hi")};
    EXPECT_STREQ(Loaded(Join({BuildId3v2(s), AudioBytes(300)})).info()->pTitle, "Hi");
}

}  // namespace
