// The MP3 reader's tags: what its Id3Info reads is copied into the record
// only when that load reports an ID3v1 tag (status 1) and a tag was seen.
#include <gtest/gtest.h>

#include <string>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "TestFiles.h"
#include "Mp3TagsTestHelpers.h"

using namespace Mp3TagsTestHelpers;

namespace {

std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/mp3/" + name; }

// The record's tag fields, in record order.
struct Tags {
    const char *title, *artist, *album, *genre, *lyrics, *year, *comment, *composer;
    int track;
};

void ExpectTags(const MediaFileInfo_st* f, const Tags& t) {
    EXPECT_STREQ(f->title, t.title);
    EXPECT_STREQ(f->artist, t.artist);
    EXPECT_STREQ(f->album, t.album);
    EXPECT_STREQ(f->genre, t.genre);
    EXPECT_STREQ(f->lyrics, t.lyrics);
    EXPECT_STREQ(f->year, t.year);
    EXPECT_STREQ(f->comment, t.comment);
    EXPECT_STREQ(f->composer, t.composer);
    EXPECT_EQ(f->trackNumber, t.track);
}

TEST(Mp3Tags, Id3v1AndId3v2FixtureFillsTheTagFields) {
    // Written by id3v2: ID3v1 first (title, artist, album, year, comment
    // "made for tests", track 7, genre 17), then the ID3v2.3 frames replace
    // the texts: "TCON" "(17)" gives genre entry 40 ('('), "COMM" with an
    // empty language and description loses its first character, and the
    // ID3v1 track 7 wins over "TRCK".
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(Fixture("tagged-id3v2.mp3").c_str()), MFI_OK);
    ExpectTags(r.GetFileInfo(), {"Chord in A", "The Testers", "Fixtures", "Alternative Rock", "", "2009",
                                 "ade for tests", "", 7});
    EXPECT_EQ(r.HasId3Info(), 1);
}

TEST(Mp3Tags, Id3v2OnlyFixtureIsNotCopied) {
    // eyeD3 wrote an ID3v2.3 tag and no ID3v1 trailer: the tag reader finds
    // frames but its load returns 0, so the record keeps no tag text and the
    // title falls back to the file's name.
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(Fixture("tagged-eyed3.mp3").c_str()), MFI_OK);
    ExpectTags(r.GetFileInfo(), {"tagged-eyed3", "", "", "", "", "", "", "", 0});
    EXPECT_EQ(r.HasId3Info(), 1);
}

TEST(Mp3Tags, ExampleFileCarriesItsTags) {
    // ID3v1: "Chord", "libFileInfo", genre byte 255 (none); ID3v2.3 repeats
    // title and artist.
    Mp3Info r;
    ASSERT_EQ(r.LoadFile((std::string(FILEINFO_EXAMPLES_DIR) + "/chord-vbr.mp3").c_str()), MFI_OK);
    ExpectTags(r.GetFileInfo(), {"Chord", "libFileInfo", "", "", "", "", "", "", 0});
}

TEST(Mp3Tags, Id3v1TagFillsTheRecord) {
    TempDir dir;
    const Bytes file = Join({Stream(), BuildId3v1(Id3v1Fields{"Song", "Band", "Record", "1987", "Fine", 12, 13})});
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("a.mp3", file).c_str()), MFI_OK);
    ExpectTags(r.GetFileInfo(), {"Song", "Band", "Record", "Pop", "", "1987", "Fine", "", 12});
    EXPECT_EQ(r.HasId3Info(), 1);
}

TEST(Mp3Tags, NegativeTrackIsStoredAsSixteenBits) {
    // Track byte 200 reads as -56, which the 16-bit field holds as 65480.
    TempDir dir;
    const Bytes file = Join({Stream(), BuildId3v1(Id3v1Fields{"Song", "", "", "", "", 200, 0})});
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("a.mp3", file).c_str()), MFI_OK);
    EXPECT_EQ(r.GetFileInfo()->trackNumber, 65480);
    EXPECT_STREQ(r.GetFileInfo()->genre, "Blues");
}

TEST(Mp3Tags, Id3v2TagWithoutId3v1IsNotCopied) {
    TempDir dir;
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Only Two"), TextFrame("TPE1", "Nobody")};
    tag.padding = 64;
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("plain name.mp3", Join({BuildId3v2(tag), Stream()})).c_str()), MFI_OK);
    EXPECT_STREQ(r.GetFileInfo()->title, "plain name");
    EXPECT_STREQ(r.GetFileInfo()->artist, "");
    EXPECT_EQ(r.HasId3Info(), 1);
}

TEST(Mp3Tags, Id3v2ReplacesId3v1TextsButNotItsTrack) {
    TempDir dir;
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", "Longer Title"), TextFrame("TRCK", "9"), TextFrame("TYER", "2020")};
    tag.padding = 32;
    const Bytes file =
        Join({BuildId3v2(tag), Stream(), BuildId3v1(Id3v1Fields{"Short", "Band", "", "1999", "", 3, 255})});
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("a.mp3", file).c_str()), MFI_OK);
    ExpectTags(r.GetFileInfo(), {"Longer Title", "Band", "", "", "", "2020", "", "", 3});
}

TEST(Mp3Tags, LongTitleIsCutTo127Characters) {
    // A 300-byte "TIT2" (size bytes 00 00 01 2C) reads as 172 bytes: 171
    // characters of text, cut to 127 in the record.
    TempDir dir;
    Id3v2Fields tag;
    tag.frames = {TextFrame("TIT2", std::string(299, 'a'))};
    const Bytes file = Join({BuildId3v2(tag), Stream(), BuildId3v1(Id3v1Fields{"Short", "", "", "", "", 0, 255})});
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("a.mp3", file).c_str()), MFI_OK);
    EXPECT_EQ(std::string(r.GetFileInfo()->title), std::string(127, 'a'));
}

TEST(Mp3Tags, TagsAreCopiedAlsoWhenTheStreamIsRefused) {
    TempDir dir;
    const Bytes file = Join({PadTo({}, 8000), BuildId3v1(Id3v1Fields{"Song", "", "", "", "", 0, 255})});
    Mp3Info r;
    EXPECT_EQ(r.LoadFile(dir.write("a.mp3", file).c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(r.GetFileInfo()->title, "Song");
    EXPECT_EQ(r.HasId3Info(), 1);
}

}  // namespace
