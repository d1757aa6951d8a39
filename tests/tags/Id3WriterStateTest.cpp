// These tests pin tag reader and writer state that hosts do not see: the m_
// members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// Id3WriterTest.cpp.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "MediaFileInfoBase.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "Id3WriterTestHelpers.h"

using namespace Id3WriterTestHelpers;

namespace {

constexpr size_t kBlock = 1024;

// A tag holding a frame for every field bit except the track, as read:
// TIT2 <title>, TPE1 "Band", TALB "Album", TCON "(17)" (no genre name, so
// a write drops it), USLT -> "eng", TYER "2001", COMM -> "ello".
std::vector<Id3Frame> EveryFrameButTrack(const std::string& title) {
    return {TextFrame("TIT2", title),     TextFrame("TPE1", "Band"), TextFrame("TALB", "Album"),
            TextFrame("TCON", "(17)"),    CommentFrame("USLT", "eng", "words"), TextFrame("TYER", "2001"),
            CommentFrame("COMM", "eng", "Hello")};
}
constexpr int kEveryFrameButTrackSize = 101;  // plus 11 + the title's length

// A frame as the writer puts it: 4 id bytes (a 3-letter id padded with a
// zero), size = text length + 1, two flag bytes, encoding 0, the text.
void PutFrame(ByteWriter& w, const std::string& id, const std::string& text) {
    w.fixed(id, 4).be32(static_cast<uint32_t>(text.size() + 1)).be16(0).u8(0).str(text);
}

// The frames written for EveryFrameButTrack after such a write (TCON gone).
Bytes WrittenFrames(const std::string& title) {
    ByteWriter w;
    const std::pair<const char*, std::string> frames[] = {{"TIT2", title}, {"TPE1", "Bend"}, {"TALB", "Alban"},
                                                          {"USLT", "fra"}, {"TYER", "2002"}, {"COMM", "ello"}};
    for (const auto& [id, text] : frames) PutFrame(w, id, text);
    return w.take();
}

Bytes Header(uint8_t s6, uint8_t s7, uint8_t s8, uint8_t s9) { return Bytes{'I', 'D', '3', 3, 0, 0, s6, s7, s8, s9}; }

// The layout after a tag grew by d through the upward block loop: old
// bytes below the new tag size + d, then the old bytes from the new tag
// size on shifted by d up to one block short of the old end, the old bytes
// below the old end, d zero bytes, and the old last block one block beyond
// its shifted place. The first tagBytes bytes hold the new tag and are
// checked by the caller. `before` is the file as the move found it.
void ExpectGrown(const Bytes& before, const Bytes& after, size_t newTagSize, size_t d, size_t tagBytes) {
    const size_t length = before.size();
    Bytes expected(length + d + kBlock, 0);
    for (size_t x = 0; x < newTagSize + d && x < length; ++x) expected[x] = before[x];
    for (size_t x = newTagSize + d; x < length - kBlock + d; ++x) expected[x] = before[x - d];
    for (size_t x = length - kBlock + d; x < length; ++x) expected[x] = before[x];
    for (size_t x = length + d; x < expected.size(); ++x) expected[x] = before[x - d - kBlock];
    ASSERT_EQ(after.size(), expected.size());
    EXPECT_EQ(Slice(after, tagBytes, after.size()), Slice(expected, tagBytes, expected.size()));
}

// The file as the move found it: the original with the ID3v1 tag that
// was written (the last 128 bytes of the result's moved last block).
Bytes BeforeMove(const Bytes& original, const Bytes& after, bool hadV1) {
    Bytes before(original.begin(), original.end() - (hadV1 ? 128 : 0));
    before.insert(before.end(), after.end() - 128, after.end());
    return before;
}

// The new tag at the front of the written file and the grown layout after it.
void ExpectTagThenGrown(const Bytes& original, const Bytes& now, bool hadV1, const Bytes& tag, size_t newTagSize,
                        size_t d) {
    EXPECT_EQ(Slice(now, 0, tag.size()), tag);
    ExpectGrown(BeforeMove(original, now, hadV1), now, newTagSize, d, tag.size());
}

// --- arguments and failures ----------------------------------------------------

TEST(Id3Writer, WithoutAnEarlierLoadNothingCanBeOpened) {
    Id3Info tag;
    MediaFileInfo_st r = Record({"Title", "", "", "", "", "", "", "Composer", 4});
    EXPECT_EQ(tag.SetId3Info(&r), MFI_OPEN_FAILED);
    // The fields were taken all the same; empty ones as empty texts.
    ASSERT_NE(tag.GetId3Info(), nullptr);
    EXPECT_STREQ(tag.GetId3Info()->pTitle, "Title");
    EXPECT_STREQ(tag.GetId3Info()->pComposer, "Composer");
    EXPECT_STREQ(tag.GetId3Info()->pArtist, "");
    EXPECT_EQ(tag.GetId3Info()->nTrack, 4);
    EXPECT_EQ(tag.m_file, nullptr);
}

TEST(Id3Writer, DeletedFileReturnsFiveAndIsNotCreated) {
    Written w(Join({V23({TextFrame("TIT2", "Hi")}), AudioBytes(3000)}));
    std::filesystem::remove(w.path);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OPEN_FAILED);
    EXPECT_FALSE(std::filesystem::exists(w.path));
    EXPECT_EQ(w.m_file, nullptr);
}

TEST(Id3Writer, DirectoryInPlaceOfTheFileReturnsFive) {
    Written w(Join({V23({TextFrame("TIT2", "Hi")}), AudioBytes(3000)}));
    std::filesystem::remove(w.path);
    std::filesystem::create_directory(w.path);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OPEN_FAILED);
    EXPECT_EQ(w.m_file, nullptr);
}

// --- ID3v1 ---------------------------------------------------------------------

// One ID3v1 tag built from fields into a buffer, the file being `stream`.
Bytes V1Bytes(const Fields& f, FILE* stream, int* status = nullptr) {
    Id3Info tag;
    tag.EnsureId3Info();
    MediaFileInfo_st r = Record(f);
    tag.InitID3Info(&r);
    tag.m_file = stream;
    unsigned char buffer[128];
    const int s = tag.WriteId3v1Information(buffer);
    if (status != nullptr) *status = s;
    tag.m_file = nullptr;
    return Bytes(buffer, buffer + 128);
}

TEST(Id3Writer, Id3v1TextsAreCutTo29BytesAndTheCommentCoversTheYear) {
    TempDir dir;
    FILE* out = fopen(dir.file("v1.bin").c_str(), "wb+");
    ASSERT_NE(out, nullptr);
    Fields f;
    f.title = std::string(35, 'T');
    f.artist = "Artist";
    f.album = "Album";
    f.year = "1999";
    f.comment = "ABCDEFGHI";
    f.genre = "Rock";
    f.track = 300;
    int status = 0;
    const Bytes v1 = V1Bytes(f, out, &status);
    fclose(out);
    ByteWriter expected;
    expected.str("TAG").fixed(std::string(29, 'T'), 30).fixed("Artist", 30).fixed("Album", 30);
    expected.fixed("ABCDEFGHI", 33).u8(300 & 0xFF).u8(17);
    EXPECT_EQ(v1, expected.data());
    // The inverted test: a tag that was written answers 7.
    EXPECT_EQ(status, MFI_SHORT_WRITE);
}

TEST(Id3Writer, Id3v1WriteThatWritesNothingAnswersOne) {
    TempDir dir;
    const std::string p = dir.write("ro.bin", Bytes(10, 0));
    FILE* in = fopen(p.c_str(), "rb");
    int status = 0;
    V1Bytes(Fields{}, in, &status);
    fclose(in);
    EXPECT_EQ(status, MFI_OK);
}

TEST(Id3Writer, Id3v1YearKeepsThreeDigitsWhenNoCommentIsSet) {
    TempDir dir;
    FILE* out = fopen(dir.file("v1.bin").c_str(), "wb+");
    Id3Info tag;
    tag.EnsureId3Info();
    tag.GetId3Info()->pYear = strdup("2004");
    tag.m_file = out;
    unsigned char buffer[128];
    tag.WriteId3v1Information(buffer);
    tag.m_file = nullptr;
    fclose(out);
    EXPECT_EQ(Bytes(buffer + 93, buffer + 97), (Bytes{'2', '0', '0', 0}));
    EXPECT_EQ(buffer[127], 148);  // no genre at all
    EXPECT_EQ(Bytes(buffer + 3, buffer + 93), Bytes(90, 0));
}

TEST(Id3Writer, Id3v1GenreIsTheRowIndexOr148) {
    TempDir dir;
    FILE* out = fopen(dir.file("v1.bin").c_str(), "wb+");
    const std::pair<const char*, int> cases[] = {
        {"Rock", 17}, {"Blues", 0}, {"SynthPop", 147}, {"Polka2", 148}, {"", 148}, {"rock", 148}};
    for (const auto& [name, index] : cases) {
        Fields f;
        f.genre = name;
        EXPECT_EQ(V1Bytes(f, out)[127], index) << name;
    }
    fclose(out);
}

TEST(Id3Writer, Id3v1TagIsReplacedWhenPresent) {
    Id3v1Fields old;
    old.title = "Old";
    const Bytes original = Join({V23(EveryFrameButTrack("Hi")), AudioBytes(2000), BuildId3v1(old)});
    Written w(original);
    ASSERT_EQ(w.m_bHasV1, 1);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OK);
    const Bytes now = w.Now();
    ASSERT_EQ(now.size(), original.size());
    ByteWriter v1;
    v1.str("TAG").fixed("Hi", 30).fixed("Bend", 30).fixed("Alban", 30).fixed("ello", 33).u8(0).u8(17);
    EXPECT_EQ(Slice(now, now.size() - 128, now.size()), v1.data());
}

TEST(Id3Writer, Id3v1TagIsAppendedWhenAbsent) {
    const Bytes original = Join({V23(EveryFrameButTrack("Hi")), AudioBytes(2000)});
    Written w(original);
    ASSERT_EQ(w.m_bHasV1, 0);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OK);
    const Bytes now = w.Now();
    ASSERT_EQ(now.size(), original.size() + 128);
    EXPECT_EQ(Slice(now, 10 + kEveryFrameButTrackSize + 13, original.size()),
              Slice(original, 10 + kEveryFrameButTrackSize + 13, original.size()));
    EXPECT_EQ(Slice(now, original.size(), original.size() + 3), (Bytes{'T', 'A', 'G'}));
    // The flag is not raised by the write: a second write appends again.
    // The genre frame is gone by now, so it is appended (12) and the file
    // grows through the block loop as well.
    EXPECT_EQ(w.m_bHasV1, 0);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 114 + 12);
    EXPECT_EQ(w.Now().size(), original.size() + 128 + 128 + 12 + 1024);
}

// --- frame list edits and the ID3v2 header ------------------------------------

TEST(Id3Writer, SameLengthsChangeNothingButTheTexts) {
    const Bytes original = Join({V23(EveryFrameButTrack("Hi")), AudioBytes(2000), BuildId3v1({})});
    Written w(original);
    const int size = w.m_nTagSize;
    EXPECT_EQ(size, kEveryFrameButTrackSize + 13);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, size);
    const Bytes now = w.Now();
    EXPECT_EQ(Slice(now, 0, 10), Header(0, 0, 0, static_cast<uint8_t>(size)));
    const Bytes frames = WrittenFrames("Hi");
    EXPECT_EQ(Slice(now, 10, 10 + frames.size()), frames);
    // The dropped genre frame's slot is empty; the others keep their places.
    EXPECT_EQ(w.m_arrFrames[3], nullptr);
    EXPECT_EQ(w.m_nFrameCount, 7);
}

TEST(Id3Writer, TitleThreeBytesLongerGrowsTheFileThroughTheBlockLoop) {
    const Bytes original = Join({V23(EveryFrameButTrack("Hi")), AudioBytes(3000), BuildId3v1({})});
    Written w(original);
    ASSERT_EQ(w.m_nTagSize, 114);
    EXPECT_EQ(w.Set(SameLengths("Hello")), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 117);  // D = 3
    const Bytes now = w.Now();
    EXPECT_EQ(now.size(), original.size() + 3 + 1024);
    ExpectTagThenGrown(original, now, true, Join({Header(0, 0, 0, 117), WrittenFrames("Hello")}), 117, 3);
    EXPECT_STREQ(w.m_arrFrames[0]->pValue, "Hello");
}

TEST(Id3Writer, GrowingWhenTheTagReachesTheFileEndMovesNothing) {
    // The header announces more bytes than the file holds: the block loop
    // does not run and the rest to move lies past the end.
    Id3v2Fields s;
    s.frames = EveryFrameButTrack("Hi");
    s.overrideSize = true;
    s.size = 3000;
    const Bytes original = Join({BuildId3v2(s), AudioBytes(1500), BuildId3v1({})});
    Written w(original);
    ASSERT_EQ(w.m_nTagSize, 3000);
    EXPECT_EQ(w.Set(SameLengths("Hello")), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 3003);
    const Bytes now = w.Now();
    ASSERT_EQ(now.size(), original.size());
    EXPECT_EQ(Slice(now, 0, 10), Header(0, 0, 23, 59));  // 3003 = 23 * 128 + 59
    const Bytes frames = WrittenFrames("Hello");
    EXPECT_EQ(Slice(now, 10, 10 + frames.size()), frames);
    EXPECT_EQ(Slice(now, 10 + frames.size(), original.size() - 128),
              Slice(original, 10 + frames.size(), original.size() - 128));
}

TEST(Id3Writer, FileShorterThanOneBlockCannotGrow) {
    const Bytes original = Join({V23(EveryFrameButTrack("Hi")), AudioBytes(300)});
    Written w(original);
    EXPECT_EQ(w.Set(SameLengths("Hello")), MFI_SEEK_FAILED);
    EXPECT_EQ(w.m_nTagSize, 117);  // raised before the move failed
    const Bytes now = w.Now();
    ASSERT_EQ(now.size(), original.size() + 128);  // the ID3v1 tag went on
    EXPECT_EQ(Slice(now, 0, original.size()), original);
    EXPECT_EQ(w.m_file, nullptr);
}

TEST(Id3Writer, ShorterTitleMovesEveryBlockToOneOffset) {
    // Old size 117, new 114, d = 3: blocks read from 114 on are all written
    // at 111. 2548 bytes from 114 to the end: two full blocks and 500.
    const Bytes original = Join({V23(EveryFrameButTrack("Hello")), AudioBytes(2407), BuildId3v1({})});
    ASSERT_EQ(original.size(), 2662u);
    Written w(original);
    EXPECT_EQ(w.Set(SameLengths("Hi")), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 114);
    const Bytes now = w.Now();
    ASSERT_EQ(now.size(), original.size());  // never truncated
    const Bytes before = BeforeMove(original, now, true);
    const Bytes frames = WrittenFrames("Hi");
    EXPECT_EQ(Slice(now, 0, 10), Header(0, 0, 0, 114));
    EXPECT_EQ(Slice(now, 10, 10 + frames.size()), frames);
    EXPECT_EQ(Slice(now, 10 + frames.size(), 111), Slice(before, 10 + frames.size(), 111));
    EXPECT_EQ(Slice(now, 111, 611), Slice(before, 2162, 2662));    // the last, short block
    EXPECT_EQ(Slice(now, 611, 1135), Slice(before, 1638, 2162));   // the rest of the block before
    EXPECT_EQ(Slice(now, 1135, now.size()), Slice(before, 1135, before.size()));
}

TEST(Id3Writer, GenreFrameByAnotherTaggerAndTitleX) {
    const Bytes original = Join({V23({TextFrame("TCON", "Rock")}), AudioBytes(3000), BuildId3v1({})});
    Written w(original);
    ASSERT_EQ(w.m_nTagSize, 15);
    Fields f;
    f.title = "X";
    EXPECT_EQ(w.Set(f), MFI_OK);
    // 1 - 4 for the genre, then TIT2 appended: 11 + 1.
    EXPECT_EQ(w.m_nTagSize, 15 + 9);
    ASSERT_EQ(w.m_nFrameCount, 2);
    EXPECT_STREQ(w.m_arrFrames[0]->pValue, "\x11");
    EXPECT_STREQ(w.m_arrFrames[1]->pFrameID, "TIT2");
    const Bytes now = w.Now();
    ByteWriter tag;
    tag.bytes(Header(0, 0, 0, 24));
    PutFrame(tag, "TCON", "\x11");
    PutFrame(tag, "TIT2", "X");
    ExpectTagThenGrown(original, now, true, tag.data(), 24, 9);

    // Read back, the raw byte names the genre again.
    Id3Info reader;
    reader.LoadFile(w.path.c_str());
    EXPECT_STREQ(reader.GetId3Info()->pGenre, "Rock");
    EXPECT_STREQ(reader.GetId3Info()->pTitle, "X");
}

TEST(Id3Writer, GenreFrameFromAnEarlierWriteIsDropped) {
    Written w(Join({V23({TextFrame("TIT2", "Hi"), RawFrame("TCON", Bytes{0, 17})}), AudioBytes(3000)}));
    ASSERT_STREQ(w.m_arrFrames[1]->pValue, "\x11");
    Fields f = SameLengths("Hi");
    f.genre = "Rock";
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_EQ(w.m_arrFrames[1], nullptr);
    // The genre bit is seen, so the next missing frame is the artist.
    ASSERT_EQ(w.m_nFrameCount, 3);
    EXPECT_STREQ(w.m_arrFrames[2]->pFrameID, "TPE1");
    EXPECT_EQ(w.m_nTagSize, 13 + 12 + 11 + 4);  // TIT2, TCON, then TPE1 "Bend"
}

TEST(Id3Writer, TrackFrameBecomesOneByte) {
    std::vector<Id3Frame> frames = EveryFrameButTrack("Hi");
    frames.push_back(TextFrame("TRCK", "12"));
    Written w(Join({V23(frames), AudioBytes(3000)}));
    const int size = w.m_nTagSize;
    Fields f = SameLengths("Hi");
    f.track = 5;
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_STREQ(w.m_arrFrames[7]->pValue, "\x05");
    // 1 - 2 for the track. Every other field's frame is in the list, so the
    // composer's (empty) is the one appended: 11 + 0.
    EXPECT_STREQ(w.m_arrFrames[8]->pFrameID, "TCOM");
    EXPECT_EQ(w.m_nTagSize, size - 1 + 11);
}

TEST(Id3Writer, TrackZeroDropsTheTrackFrameAndTrack256EmptiesIt) {
    std::vector<Id3Frame> frames = {TextFrame("TRCK", "12")};
    Written zero(Join({V23(frames), AudioBytes(3000)}));
    Fields f;
    f.title = "T";
    zero.Set(f);
    EXPECT_EQ(zero.m_arrFrames[0], nullptr);
    EXPECT_EQ(zero.m_nTagSize, 13 + 12);

    Written big(Join({V23(frames), AudioBytes(3000)}));
    f.track = 256;
    big.Set(f);
    EXPECT_STREQ(big.m_arrFrames[0]->pValue, "");
    EXPECT_EQ(big.m_nTagSize, 13 + (1 - 2) + 12);
    const Bytes now = big.Now();
    ByteWriter trackFrame;
    PutFrame(trackFrame, "TRCK", "");
    EXPECT_EQ(Slice(now, 10, 21), trackFrame.data());
}

TEST(Id3Writer, AppendedGenreFrameHasAnEmptyTextButCountsOneByte) {
    Written w(Join({V23({TextFrame("TIT2", "Hi"), TextFrame("TPE1", "A"), TextFrame("TALB", "B")}),
                    AudioBytes(3000)}));
    Fields f;
    f.title = "Hi";
    f.artist = "A";
    f.album = "B";
    f.genre = "Rock";
    EXPECT_EQ(w.Set(f), MFI_OK);
    ASSERT_EQ(w.m_nFrameCount, 4);
    EXPECT_STREQ(w.m_arrFrames[3]->pFrameID, "TCON");
    EXPECT_STREQ(w.m_arrFrames[3]->pValue, "");
    EXPECT_EQ(w.m_nTagSize, 13 + 12 + 12 + 12);
    const Bytes now = w.Now();
    ByteWriter genreFrame;
    PutFrame(genreFrame, "TCON", "");
    EXPECT_EQ(Slice(now, 10 + 13 + 12 + 12, 10 + 13 + 12 + 12 + 11), genreFrame.data());
    // Read back, an empty genre text is row 0.
    Id3Info reader;
    reader.LoadFile(w.path.c_str());
    EXPECT_STREQ(reader.GetId3Info()->pGenre, "Blues");
}

TEST(Id3Writer, AppendedTrackTextIsTheBigEndianValueAsAString) {
    // All text bits seen but the track's: the track frame is next.
    std::vector<Id3Frame> frames = EveryFrameButTrack("Hi");
    Written w(Join({V23(frames), AudioBytes(3000)}));
    Fields f = SameLengths("Hi");
    f.track = 9;
    EXPECT_EQ(w.Set(f), MFI_OK);
    ASSERT_EQ(w.m_nFrameCount, 8);
    EXPECT_STREQ(w.m_arrFrames[7]->pFrameID, "TRCK");
    EXPECT_STREQ(w.m_arrFrames[7]->pValue, "");
    EXPECT_EQ(w.m_nTagSize, 114 + 12);

    // A value with a non-zero top byte shows the byte order: 41 42 43 44.
    Id3Info direct;
    direct.EnsureId3Info();
    direct.GetId3Info()->nTrack = 0x41424344;
    for (const char* id : {"TIT2", "TPE1", "TALB", "TCON", "USLT", "TYER", "COMM"}) direct.RecordId3v2Info(id, "x");
    TempDir dir;
    direct.m_file = fopen(dir.write("t.bin", Bytes(10, 0)).c_str(), "rb+");
    direct.WriteId3v2Information();
    fclose(direct.m_file);
    direct.m_file = nullptr;
    EXPECT_STREQ(direct.m_arrFrames[7]->pValue, "ABCD");
}

TEST(Id3Writer, FullFrameListTakesNoAppendedFrame) {
    std::vector<Id3Frame> frames;
    for (int i = 0; i < 74; ++i) frames.push_back(TextFrame("TXXX", "v" + std::to_string(i)));
    Written w(Join({V23(frames), AudioBytes(3000)}));
    ASSERT_EQ(w.m_nFrameCount, 74);
    const int size = w.m_nTagSize;
    Fields f;
    f.title = "Title";
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_EQ(w.m_nFrameCount, 74);
    EXPECT_EQ(w.m_nTagSize, size);
}

TEST(Id3Writer, TagSizeIsWrittenUnmasked) {
    // D = 0 keeps the padded size: 20000 is 00 01 9C 20.
    Written a(Join({V23(EveryFrameButTrack("Hi"), 20000 - 114), AudioBytes(100)}));
    ASSERT_EQ(a.m_nTagSize, 20000);
    EXPECT_EQ(a.Set(SameLengths("Hi")), MFI_OK);
    EXPECT_EQ(Slice(a.Now(), 0, 10), Header(0x00, 0x01, 0x9C, 0x20));

    // 16384 sets the top bit of byte 8 and reads back as 0.
    Written b(Join({V23(EveryFrameButTrack("Hi"), 16384 - 114), AudioBytes(100)}));
    EXPECT_EQ(b.Set(SameLengths("Hi")), MFI_OK);
    EXPECT_EQ(Slice(b.Now(), 0, 10), Header(0x00, 0x01, 0x80, 0x00));
    Id3Info reader;
    EXPECT_EQ(reader.LoadFile(b.path.c_str()), MFI_NOT_THIS_FORMAT);
}

TEST(Id3Writer, FileWithAnId3v22TagGetsAVersion3Header) {
    // TT2 "Hi" (9 bytes); title "Hey" (+1) and TPE1 "Bob" appended with the
    // ID3v2.2 count, 7 + 3: D = 11. No ID3v1 tag: one is appended first.
    Id3v2Fields s;
    s.majorVersion = 2;
    s.frames = {TextFrame("TT2", "Hi")};
    const Bytes original = Join({BuildId3v2(s), AudioBytes(2000)});
    Written w(original);
    ASSERT_EQ(w.m_nVersion, 2);
    Fields f;
    f.title = "Hey";
    f.artist = "Bob";
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 20);
    const Bytes now = w.Now();
    ByteWriter tag;
    tag.bytes(Header(0, 0, 0, 20));
    PutFrame(tag, "TT2", "Hey");
    PutFrame(tag, "TPE1", "Bob");
    ExpectTagThenGrown(original, now, false, tag.data(), 20, 11);
}

TEST(Id3Writer, FileWithoutAnyTagGetsATitleFrame) {
    const Bytes original = AudioBytes(3000);
    Written w(original);
    ASSERT_EQ(w.loadStatus, MFI_UNREADABLE);
    EXPECT_EQ(w.m_nVersion, 3);
    Fields f;
    f.title = "Song";
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 15);
    const Bytes now = w.Now();
    ByteWriter tag;
    tag.bytes(Header(0, 0, 0, 15));
    PutFrame(tag, "TIT2", "Song");
    ExpectTagThenGrown(original, now, false, tag.data(), 15, 15);
}

TEST(Id3Writer, SecondWriteWorksOnTheEditedList) {
    Written w(AudioBytes(3000));
    Fields f;
    f.title = "Song";
    ASSERT_EQ(w.Set(f), MFI_OK);
    ASSERT_EQ(w.m_nTagSize, 15);
    // TIT2 is in the list now: the artist (empty) is the next one missing.
    EXPECT_EQ(w.Set(f), MFI_OK);
    EXPECT_EQ(w.m_nTagSize, 15 + 11);
    ASSERT_EQ(w.m_nFrameCount, 2);
    EXPECT_STREQ(w.m_arrFrames[1]->pFrameID, "TPE1");
    EXPECT_STREQ(w.m_arrFrames[1]->pValue, "");
}

TEST(Id3Writer, TagWritingToAReadOnlyStreamIsAShortWrite) {
    TempDir dir;
    Id3Info tag;
    tag.m_file = fopen(dir.write("ro.bin", Bytes(100, 0)).c_str(), "rb");
    EXPECT_EQ(tag.WriteId3v2InfoToFile(), MFI_SHORT_WRITE);
    fclose(tag.m_file);
    tag.m_file = nullptr;
}

TEST(Id3Writer, EmptyFrameListWritesOnlyTheHeader) {
    TempDir dir;
    const std::string p = dir.write("t.bin", Bytes(20, 0xAA));
    Id3Info tag;
    tag.m_nTagSize = 300;
    tag.m_file = fopen(p.c_str(), "rb+");
    EXPECT_EQ(tag.WriteId3v2InfoToFile(), MFI_UNREADABLE);
    fclose(tag.m_file);
    tag.m_file = nullptr;
    Bytes expected = Header(0, 0, 2, 44);
    expected.resize(20, 0xAA);
    EXPECT_EQ(ReadAll(p), expected);
}

TEST(Id3Writer, DownwardMoveEndsOnAReadError) {
    // Reading low addresses of this process's memory fails with an error,
    // not an end of file; the move must still return.
    FILE* mem = fopen("/proc/self/mem", "rb+");
    if (mem == nullptr) GTEST_SKIP() << "no /proc/self/mem";
    Id3Info tag;
    tag.m_nTagSize = 4096;
    tag.m_file = mem;
    EXPECT_EQ(tag.MoveFile(-3), MFI_SHORT_FILE);
    fclose(mem);
    tag.m_file = nullptr;
}

TEST(Id3Writer, MutatedFilesAlwaysGetAnAnswer) {
    const Bytes seed = Join({V23({TextFrame("TIT2", "Song"), TextFrame("TCON", "Rock"), TextFrame("TRCK", "7")}, 30),
                             AudioBytes(2500), BuildId3v1({"T", "A", "B", "1999", "C", 3, 17})});
    Fields f = SameLengths("A longer title");
    f.track = 3;
    MediaFileInfo_st r = Record(f);
    TempDir dir;
    for (uint32_t n = 0; n < 200; ++n) {
        const std::string p = dir.write("m" + std::to_string(n) + ".mp3", Mutate(seed, n));
        Id3Info w;
        w.LoadFile(p.c_str());
        const int status = w.SetId3Info(&r);
        EXPECT_TRUE(IsKnownStatus(status)) << "mutation " << n << " gave " << status;
        EXPECT_EQ(w.m_file, nullptr);
    }
}

}  // namespace
