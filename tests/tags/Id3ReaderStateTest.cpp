// These tests pin tag reader and writer state that hosts do not see: the m_
// members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// Id3ReaderTest.cpp.

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

// A tag header with raw size bytes, then the body.
Bytes RawHeader(unsigned version, unsigned flags, const Bytes& sizeBytes, const Bytes& body) {
    ByteWriter w;
    w.str("ID3").u8(version).u8(0).u8(flags).bytes(sizeBytes).bytes(body);
    return w.take();
}

std::string FrameId(const Id3Info& tag, int i) {
    return tag.m_arrFrames[i] == nullptr ? "<none>" : Text(tag.m_arrFrames[i]->pFrameID);
}
std::string FrameText(const Id3Info& tag, int i) {
    return tag.m_arrFrames[i] == nullptr ? "<none>" : Text(tag.m_arrFrames[i]->pValue);
}

// --- tables ---------------------------------------------------------------

TEST(Id3Tables, GenreRowsKeepTheirOwnSpellings) {
    const std::pair<int, const char*> rows[] = {
        {0, "Blues"},          {17, "Rock"},       {40, "Alternative Rock"}, {67, "Psychadelic"},
        {69, "ShowTunes"},     {82, "National Folk"}, {85, "Bebob"},      {118, "Rhytmic Soul"},
        {123, "A Capella"},    {127, "Drum & Bass"}, {132, "BritPop"},    {133, "Negerpunk"},
        {136, "Christian Gangsta Rap"}, {140, "Contemporary Christian"}, {144, "Trash Metal"},
        {146, "JPop"},         {147, "SynthPop"},  {148, ""}};
    for (const auto& [index, name] : rows) EXPECT_STREQ(Id3Info::m_arrMP3ID3v2Genre[index], name) << index;
    for (const char* name : Id3Info::m_arrMP3ID3v2Genre) EXPECT_NE(name, nullptr);
}

// --- life cycle -------------------------------------------------------------

TEST(Id3Reader, ConstructedObjectHoldsNoTag) {
    Id3Info tag;
    EXPECT_EQ(tag.m_nTagSize, 0);
    EXPECT_EQ(tag.m_nFrameCount, 0);
    EXPECT_EQ(tag.m_nVersion, 3);
    EXPECT_EQ(tag.m_bHasV1, 0);
    EXPECT_EQ(tag.GetId3Info(), nullptr);
    EXPECT_EQ(tag.HasId3Info(), 0);
}

TEST(Id3Reader, NullPathReturnsZeroAndReadsNothing) {
    Id3Info tag;
    EXPECT_EQ(tag.LoadFile(nullptr), MFI_UNREADABLE);
    EXPECT_EQ(tag.GetId3Info(), nullptr);
    EXPECT_EQ(tag.m_filePath, nullptr);
}

TEST(Id3Reader, MissingFileReturnsZeroButKeepsThePath) {
    TempDir dir;
    Id3Info tag;
    const std::string p = dir.file("absent.mp3");
    EXPECT_EQ(tag.LoadFile(p.c_str()), MFI_UNREADABLE);
    EXPECT_EQ(Text(tag.m_filePath), p);
    EXPECT_EQ(tag.GetId3Info(), nullptr);
}

TEST(Id3Reader, DestoryKeepsFrameCountAndTagSize) {
    Loaded t(Join({V23({TextFrame("TIT2", "Hi")}), AudioBytes(300), BuildId3v1({})}));
    ASSERT_EQ(t.status, MFI_OK);
    t.Destory();
    EXPECT_EQ(t.GetId3Info(), nullptr);
    EXPECT_EQ(t.m_arrFrames[0], nullptr);
    EXPECT_EQ(t.m_filePath, nullptr);
    EXPECT_EQ(t.m_nFrameCount, 1);
    EXPECT_EQ(t.m_nTagSize, 13);
    EXPECT_EQ(t.m_nVersion, 0);
    EXPECT_EQ(t.m_bHasV1, 0);
    EXPECT_EQ(t.HasId3Info(), 0);
}

// --- ID3v1 ------------------------------------------------------------------

TEST(Id3Reader, Id3v1TagFillsTheFields) {
    Id3v1Fields v1;
    v1.title = "Title";
    v1.artist = "Artist";
    v1.album = "Album";
    v1.year = "1999";
    v1.comment = "Comment";
    v1.track = 7;
    v1.genre = 17;
    Loaded t(Join({AudioBytes(300), BuildId3v1(v1)}));
    EXPECT_EQ(t.status, MFI_OK);
    ASSERT_NE(t.info(), nullptr);
    EXPECT_STREQ(t.info()->pTitle, "Title");
    EXPECT_STREQ(t.info()->pArtist, "Artist");
    EXPECT_STREQ(t.info()->pAlbum, "Album");
    EXPECT_STREQ(t.info()->pYear, "1999");
    EXPECT_STREQ(t.info()->pComment, "Comment");
    EXPECT_STREQ(t.info()->pGenre, "Rock");
    EXPECT_EQ(t.info()->nTrack, 7);
    EXPECT_EQ(t.info()->pLyrics, nullptr);
    EXPECT_EQ(t.info()->pComposer, nullptr);
    EXPECT_EQ(t.m_bHasV1, 1);
    EXPECT_EQ(t.HasId3Info(), 1);
    EXPECT_EQ(t.m_nFrameCount, 0);
}

TEST(Id3Reader, FileShorterThanAnId3v1TagStillHasItsId3v2TagRead) {
    Loaded t(Join({V23({TextFrame("TIT2", "Hi")}), AudioBytes(20)}));
    EXPECT_EQ(t.status, MFI_SEEK_FAILED);
    ASSERT_NE(t.info(), nullptr);
    EXPECT_STREQ(t.info()->pTitle, "Hi");
    EXPECT_EQ(t.HasId3Info(), 1);
    EXPECT_EQ(t.m_bHasV1, 0);
}

TEST(Id3Reader, DirectId3v1CallsCheckTheirInput) {
    Id3Info tag;
    EXPECT_EQ(tag.ReadId3v1Information(nullptr), MFI_BAD_ARGUMENT);
    Bytes notATag(128, 'x');
    EXPECT_EQ(tag.ReadId3v1Information(notATag.data()), MFI_UNREADABLE);
    EXPECT_EQ(tag.GetId3Info(), nullptr);
    EXPECT_EQ(tag.m_bHasV1, 0);
}

// --- ID3v2.3 ----------------------------------------------------------------

TEST(Id3Reader, OnlyAnId3v23TagFillsFieldsYetReturnsZero) {
    Loaded t(Join({V23({TextFrame("TIT2", "Song"), TextFrame("TPE1", "Band"), TextFrame("TALB", "Record"),
                        TextFrame("TYER", "2001")}),
                   AudioBytes(500)}));
    EXPECT_EQ(t.status, MFI_UNREADABLE);
    EXPECT_EQ(t.HasId3Info(), 1);
    EXPECT_STREQ(t.info()->pTitle, "Song");
    EXPECT_STREQ(t.info()->pArtist, "Band");
    EXPECT_STREQ(t.info()->pAlbum, "Record");
    EXPECT_STREQ(t.info()->pYear, "2001");
    EXPECT_EQ(t.m_nVersion, 3);
    EXPECT_EQ(t.m_nTagSize, 4 * 10 + 5 + 5 + 7 + 5);
    EXPECT_EQ(t.m_bufferSize, 62u);
}

TEST(Id3Reader, EveryMappedFrameAndTheFrameList) {
    Loaded t(Join({V23({TextFrame("TIT2", "Song"), TextFrame("TPE1", "Band"), TextFrame("TALB", "Record"),
                        TextFrame("TYER", "2001"), TextFrame("TCON", "(17)"),
                        CommentFrame("COMM", "eng", "Hello"), CommentFrame("USLT", "eng", "Some words"),
                        TextFrame("TRCK", "7"), TextFrame("TCOM", "Writer"), TextFrame("TPE2", "Others")}),
                   AudioBytes(500), BuildId3v1({})}));
    EXPECT_EQ(t.status, MFI_OK);
    EXPECT_STREQ(t.info()->pTitle, "Song");
    EXPECT_STREQ(t.info()->pArtist, "Band");
    EXPECT_STREQ(t.info()->pAlbum, "Record");
    EXPECT_STREQ(t.info()->pYear, "2001");
    EXPECT_STREQ(t.info()->pGenre, "Alternative Rock");  // '(' is 40
    EXPECT_STREQ(t.info()->pComment, "ello");
    EXPECT_STREQ(t.info()->pLyrics, "eng");
    EXPECT_EQ(t.info()->nTrack, 55);  // '7'; the ID3v1 track was 0
    EXPECT_EQ(t.info()->pComposer, nullptr);  // never read from a tag
    const char* ids[] = {"TIT2", "TPE1", "TALB", "TYER", "TCON", "COMM", "USLT", "TRCK", "TCOM", "TPE2"};
    const char* texts[] = {"Song", "Band", "Record", "2001", "(17)", "ello", "eng", "7", "Writer", "Others"};
    ASSERT_EQ(t.m_nFrameCount, 10);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(FrameId(t, i), ids[i]);
        EXPECT_EQ(FrameText(t, i), texts[i]);
    }
}

TEST(Id3Reader, Id3v24TagIsNotRead) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {TextFrame("TIT2", "Hi")};
    Loaded t(Join({BuildId3v2(s), AudioBytes(300)}));
    EXPECT_EQ(t.status, MFI_UNREADABLE);
    ASSERT_NE(t.info(), nullptr);
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.HasId3Info(), 0);
    EXPECT_EQ(t.m_nFrameCount, 0);
    EXPECT_EQ(t.m_nTagSize, 13);
}

TEST(Id3Reader, FrameOfTwoHundredBytesReadsNegativeAndEndsTheScan) {
    const Id3Frame big = TextFrame("TIT2", std::string(199, 'x'));  // size bytes 00 00 00 C8
    const std::vector<Id3Frame> frames = {TextFrame("TPE1", "A"), big, TextFrame("TALB", "B")};
    Loaded t(TagThenAudio(frames));
    EXPECT_STREQ(t.info()->pArtist, "A");
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.info()->pAlbum, nullptr);
    EXPECT_EQ(t.m_nFrameCount, 1);

    const Bytes tagBytes = V23(frames);
    Bytes body(tagBytes.begin() + 10, tagBytes.end());
    Id3Info direct;
    EXPECT_EQ(direct.ReadId3v2Information(body.data(), static_cast<int>(body.size())), MFI_NOT_THIS_FORMAT);
}

TEST(Id3Reader, FrameOfThreeHundredBytesReadsAsOneSeventyTwo) {
    // Size bytes 00 00 01 2C read 7 bits a byte: 172. The scan resumes at
    // body offset 182, inside the text, where a frame is hidden.
    ByteWriter text;
    text.fill(171, 'x').str("TALB").be32(2).be16(0).u8(0).str("Z");
    text.fill(299 - text.size(), 'y');
    Id3Frame big{"TIT2", {0}};
    big.data.insert(big.data.end(), text.data().begin(), text.data().end());
    ASSERT_EQ(big.data.size(), 300u);
    Loaded t(TagThenAudio({big, TextFrame("TPE1", "A")}));
    EXPECT_EQ(Text(t.info()->pTitle), std::string(171, 'x'));
    EXPECT_STREQ(t.info()->pAlbum, "Z");
    EXPECT_STREQ(t.info()->pArtist, "A");  // found by the byte-wise walk
    ASSERT_EQ(t.m_nFrameCount, 3);
    EXPECT_EQ(FrameId(t, 1), "TALB");
}

TEST(Id3Reader, ZeroFrameSizeEndsTheScan) {
    Id3Frame empty = TextFrame("TIT2", "Hi");
    empty.sizeField = 0;
    Loaded t(TagThenAudio({TextFrame("TALB", "B"), empty, TextFrame("TPE1", "A")}));
    EXPECT_STREQ(t.info()->pAlbum, "B");
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.info()->pArtist, nullptr);
    EXPECT_EQ(t.m_nFrameCount, 1);
}

TEST(Id3Reader, FrameSizePastTheTagEndsTheScanButSetsTheFlag) {
    Id3Frame tooLong = TextFrame("TIT2", "Hi");
    tooLong.sizeField = 100;
    Loaded t(TagThenAudio({tooLong}));
    EXPECT_EQ(t.info()->pTitle, nullptr);
    EXPECT_EQ(t.HasId3Info(), 1);
    EXPECT_EQ(t.m_nFrameCount, 0);
}

TEST(Id3Reader, UnknownFramesAreWalkedBytewise) {
    ByteWriter hidden;
    hidden.u8(0).str("TIT2").be32(3).be16(0).u8(0).str("Hi");
    Loaded t(TagThenAudio({RawFrame("XYZW", hidden.data()), RawFrame("APIC", Bytes{0, 'i', 'm', 'g', 0, 3, 0, 0xFF}),
                           RawFrame("PRIV", Bytes{'o', 'w', 'n', 'e', 'r', 0, 1, 2})},
                          20));
    EXPECT_STREQ(t.info()->pTitle, "Hi");
    ASSERT_EQ(t.m_nFrameCount, 3);
    EXPECT_EQ(FrameId(t, 0), "TIT2");
    EXPECT_EQ(FrameText(t, 1), "img");   // up to the first zero
    EXPECT_EQ(FrameText(t, 2), "wner");  // no encoding byte, yet one is skipped
}

TEST(Id3Reader, Id3v1TrackWinsOverTheTrackFrame) {
    Id3v1Fields v1;
    v1.track = 3;
    Loaded t(Join({V23({TextFrame("TRCK", "7")}), AudioBytes(300), BuildId3v1(v1)}));
    EXPECT_EQ(t.status, MFI_OK);
    EXPECT_EQ(t.info()->nTrack, 3);
    EXPECT_EQ(FrameText(t, 0), "7");
}

TEST(Id3Reader, CommentOfSixBytesOrLessIsEmpty) {
    Loaded t(TagThenAudio({RawFrame("COMM", Bytes{0, 'e', 'n', 'g', 0, 'H'})}));
    EXPECT_STREQ(t.info()->pComment, "");
    EXPECT_EQ(FrameText(t, 0), "");
}

TEST(Id3Reader, SynchronisedLyricsTextStartsSixBytesIn) {
    Loaded t(TagThenAudio({RawFrame("SYLT", Bytes{0, 'e', 'n', 'g', 2, 1, 'W', 'o', 'r', 'd', 's'})}));
    EXPECT_EQ(FrameText(t, 0), "Words");
    EXPECT_EQ(t.info()->pLyrics, nullptr);
}

TEST(Id3Reader, MoreThanSeventyFourFramesKeepTheFirstSeventyFour) {
    std::vector<Id3Frame> frames;
    for (int i = 0; i < 80; ++i) frames.push_back(TextFrame("TIT2", "t" + std::to_string(100 + i)));
    Loaded t(TagThenAudio(frames));
    EXPECT_EQ(t.m_nFrameCount, Id3Info::kMaxFrames);
    EXPECT_EQ(FrameText(t, 73), "t173");
    EXPECT_STREQ(t.info()->pTitle, "t179");  // the fields still follow every frame
}

TEST(Id3Reader, EmptyTagReturnsTenEvenWithAnId3v1Tag) {
    Id3v1Fields v1;
    v1.title = "V1";
    Loaded t(Join({RawHeader(3, 0, Bytes{0, 0, 0, 0}, {}), AudioBytes(300), BuildId3v1(v1)}));
    EXPECT_EQ(t.status, MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(t.info()->pTitle, "V1");
    EXPECT_EQ(t.m_bufferSize, 0u);
}

TEST(Id3Reader, ReadSizeIsTheTagSizeClippedToOneKilobyte) {
    Loaded t(TagThenAudio({TextFrame("TIT2", "Hi")}, 5000));
    EXPECT_EQ(t.m_nTagSize, 5013);
    EXPECT_EQ(t.m_bufferSize, 1024u);
    EXPECT_STREQ(t.info()->pTitle, "Hi");
}

TEST(Id3Reader, SizeByteWithTopBitSetGivesANegativeSizeAndNoScan) {
    ByteWriter body;
    body.str("TIT2").be32(3).be16(0).u8(0).str("Hi");
    Loaded t(Join({RawHeader(3, 0, Bytes{0, 0, 0, 0x80}, body.data()), AudioBytes(300)}));
    EXPECT_EQ(t.status, MFI_UNREADABLE);
    EXPECT_EQ(t.m_nTagSize, -128);
    EXPECT_EQ(t.m_bufferSize, static_cast<unsigned int>(-128));
    EXPECT_EQ(t.info()->pTitle, nullptr);
}

TEST(Id3Reader, HugeAnnouncedSizeReadsLikeTheExactOne) {
    const std::vector<Id3Frame> frames = {TextFrame("TIT2", "Song"), TextFrame("TPE1", "Band")};
    Id3v2Fields huge;
    huge.frames = frames;
    huge.overrideSize = true;
    huge.size = 0x0FFFFFFF;
    Id3v1Fields v1;
    v1.album = "Album";
    Loaded a(Join({V23(frames), AudioBytes(300), BuildId3v1(v1)}));
    Loaded b(Join({BuildId3v2(huge), AudioBytes(300), BuildId3v1(v1)}));
    EXPECT_EQ(a.status, MFI_OK);
    EXPECT_EQ(b.status, MFI_OK);
    EXPECT_EQ(b.m_nTagSize, 0x0FFFFFFF);
    ASSERT_EQ(b.m_nFrameCount, a.m_nFrameCount);
    for (int i = 0; i < a.m_nFrameCount; ++i) {
        EXPECT_EQ(FrameId(b, i), FrameId(a, i));
        EXPECT_EQ(FrameText(b, i), FrameText(a, i));
    }
    EXPECT_STREQ(b.info()->pTitle, "Song");
    EXPECT_STREQ(b.info()->pArtist, "Band");
    EXPECT_STREQ(b.info()->pAlbum, "Album");
}

TEST(Id3Reader, BytesPastTheFileEndReadAsZero) {
    // The tag announces 1000 bytes; the file ends inside the title frame,
    // whose declared size still fits the tag: its text ends at the file end.
    ByteWriter body;
    body.str("TIT2").be32(50).be16(0).u8(0).str("Hell");
    Loaded t(RawHeader(3, 0, Bytes{0, 0, 7, 0x68}, body.data()));
    EXPECT_EQ(t.status, MFI_SEEK_FAILED);
    EXPECT_EQ(t.m_nTagSize, 1000);
    EXPECT_STREQ(t.info()->pTitle, "Hell");

    // A known id at the very end meets zero size bytes and ends the scan.
    ByteWriter cut;
    cut.str("TALB").be32(2).be16(0).u8(0).str("A").str("TPE1");
    Loaded u(RawHeader(3, 0, Bytes{0, 0, 7, 0x68}, cut.data()));
    EXPECT_STREQ(u.info()->pAlbum, "A");
    EXPECT_EQ(u.info()->pArtist, nullptr);
    EXPECT_EQ(u.m_nFrameCount, 1);
}

TEST(Id3Reader, SecondLoadAppendsFramesAndBuildsOnTheOldSize) {
    Id3v1Fields v1;
    v1.title = "V1";
    Loaded t(Join({V23({TextFrame("TIT2", "Hi"), TextFrame("TPE1", "Yo")}), AudioBytes(300), BuildId3v1(v1)}));
    ASSERT_EQ(t.status, MFI_OK);
    EXPECT_EQ(t.m_nTagSize, 26);
    EXPECT_EQ(t.m_nFrameCount, 2);

    // The size sum starts from 26: 26 shifted three times by 7, plus 26.
    EXPECT_EQ(t.LoadFile(t.file.path.c_str()), MFI_OK);
    EXPECT_EQ(t.m_nTagSize, (26 << 21) + 26);
    ASSERT_EQ(t.m_nFrameCount, 4);
    EXPECT_EQ(t.m_arrFrames[0], nullptr);
    EXPECT_EQ(t.m_arrFrames[1], nullptr);
    EXPECT_EQ(FrameId(t, 2), "TIT2");
    EXPECT_EQ(FrameText(t, 3), "Yo");
    EXPECT_STREQ(t.info()->pTitle, "Hi");
    EXPECT_EQ(t.HasId3Info(), 1);
    EXPECT_EQ(t.m_nVersion, 3);
}

// --- ID3v2.2 ----------------------------------------------------------------

TEST(Id3Reader, Id3v22TagFillsTheFields) {
    Loaded t(Join({V22({TextFrame("TT2", "Song"), TextFrame("TP1", "Band"), TextFrame("TAL", "Record"),
                        TextFrame("TYE", "2001"), RawFrame("TCO", Bytes{0, 17}),
                        CommentFrame("COM", "eng", "Hello"), TextFrame("TRK", "5"), TextFrame("TCM", "Writer")}),
                   AudioBytes(300), BuildId3v1({})}));
    EXPECT_EQ(t.status, MFI_OK);
    EXPECT_EQ(t.m_nVersion, 2);
    EXPECT_STREQ(t.info()->pTitle, "Song");
    EXPECT_STREQ(t.info()->pArtist, "Band");
    EXPECT_STREQ(t.info()->pAlbum, "Record");
    EXPECT_STREQ(t.info()->pYear, "2001");
    EXPECT_STREQ(t.info()->pGenre, "Rock");
    EXPECT_STREQ(t.info()->pComment, "eng");  // no language skip in ID3v2.2
    EXPECT_EQ(t.info()->nTrack, '5');
    EXPECT_EQ(t.info()->pComposer, nullptr);
    ASSERT_EQ(t.m_nFrameCount, 8);
    EXPECT_EQ(FrameId(t, 7), "TCM");
    EXPECT_EQ(FrameText(t, 7), "Writer");
}

TEST(Id3Reader, DirectScansRejectNullBodies) {
    Id3Info tag;
    EXPECT_EQ(tag.ReadId3v2Information(nullptr, 10), MFI_BAD_ARGUMENT);
    EXPECT_EQ(tag.ReadId3v2Ver2Information(nullptr, 10), MFI_BAD_ARGUMENT);
    EXPECT_EQ(tag.SaveId3Info(nullptr, "x"), MFI_OK);
    EXPECT_EQ(tag.SaveId3Info("TIT2", nullptr), MFI_OK);
    EXPECT_EQ(tag.m_nFrameCount, 0);
    tag.GetAnsiFromUnicode(nullptr);
    Bytes body = {'T', 'T', '2', 0, 0, 3, 0, 'H', 'i'};
    EXPECT_EQ(tag.ReadId3v2Ver2Information(body.data(), static_cast<int>(body.size())), MFI_OK);
    EXPECT_STREQ(tag.GetId3Info()->pTitle, "Hi");
}

// --- robustness -------------------------------------------------------------

TEST(Id3Reader, MutatedTagsAlwaysReturnAKnownStatus) {
    const Bytes seed = Join({V23({TextFrame("TIT2", "Song"), TextFrame("TCON", "(17)"),
                                  CommentFrame("COMM", "eng", "Hello"), TextFrame("TRCK", "7")},
                                 40),
                             AudioBytes(600), BuildId3v1({"T", "A", "B", "1999", "C", 3, 17})});
    // One folder, a new name per file: rewriting one file forces a flush.
    TempDir dir;
    for (uint32_t n = 0; n < 300; ++n) {
        const std::string p = dir.write("m" + std::to_string(n) + ".mp3", Mutate(seed, n));
        Id3Info t;
        const int status = t.LoadFile(p.c_str());
        EXPECT_TRUE(status == MFI_UNREADABLE || status == MFI_OK || status == MFI_SEEK_FAILED ||
                    status == MFI_NOT_THIS_FORMAT)
            << "mutation " << n << " gave " << status;
        EXPECT_LE(t.m_nFrameCount, Id3Info::kMaxFrames);
        if (const ID3Info_st* info = t.GetId3Info()) {
            for (const char* s : {info->pTitle, info->pArtist, info->pAlbum, info->pGenre, info->pLyrics,
                                  info->pYear, info->pComment, info->pComposer}) {
                if (s != nullptr) {
                    EXPECT_LT(strlen(s), 100000u);
                }
            }
        }
    }
}

}  // namespace
