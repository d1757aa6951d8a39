#include <gtest/gtest.h>

#include <string>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "Id3Builder.h"
#include "Id3Info.h"
#include "ReaderLoad.h"
#include "TestFiles.h"

namespace {

constexpr size_t kBuffer = AacInfo::kBufferSize;

using Tagged = LoadResult;

Tagged Load(const Bytes& bytes, const std::string& name = "song.aac") { return LoadBytes<AacInfo>(bytes, name); }

Bytes Stream(size_t frames = 100) {
    AdtsFields s;
    return AdtsStream(s, frames);
}

Id3v1Fields V1() {
    Id3v1Fields v1;
    v1.title = "Old Title";
    v1.artist = "V1 Artist";
    v1.album = "V1 Album";
    v1.year = "1999";
    v1.comment = "V1 note";
    v1.track = 3;
    v1.genre = 17;  // Rock
    return v1;
}

Bytes V23(std::vector<Id3Frame> frames) {
    Id3v2Fields s;
    s.frames = std::move(frames);
    s.padding = 64;
    return BuildId3v2(s);
}

TEST(AacTags, BothTagsAreCopiedWithTheLaterValuesWinning) {
    const Bytes tag = V23({TextFrame("TIT2", "New Title"), TextFrame("TPE1", "V2 Artist"),
                           TextFrame("TALB", "V2 Album"), TextFrame("TYER", "2024"), TextFrame("TCON", "(12)"),
                           TextFrame("TRCK", "9"), CommentFrame("COMM", "eng", "Hello"),
                           CommentFrame("USLT", "eng", "Words"), TextFrame("TCOM", "Writer")});
    const Tagged r = Load(Join({tag, Stream(), BuildId3v1(V1())}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.hasTags, 1);
    EXPECT_STREQ(r.record.title, "New Title");
    EXPECT_STREQ(r.record.artist, "V2 Artist");
    EXPECT_STREQ(r.record.album, "V2 Album");
    EXPECT_STREQ(r.record.year, "2024");
    EXPECT_STREQ(r.record.genre, "Alternative Rock");  // '(' is genre 40
    EXPECT_STREQ(r.record.comment, "ello");           // the first text byte is lost
    EXPECT_STREQ(r.record.lyrics, "eng");             // only the language letters
    EXPECT_STREQ(r.record.composer, "");              // never read from a tag
    EXPECT_EQ(r.record.trackNumber, 3);               // the ID3v1 track wins
    // The stream is read as without tags.
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_EQ(r.record.bitRate, 127972u);
}

TEST(AacTags, Id3v1AloneFillsTheFields) {
    const Tagged r = Load(Join({Stream(), BuildId3v1(V1())}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.hasTags, 1);
    EXPECT_STREQ(r.record.title, "Old Title");
    EXPECT_STREQ(r.record.artist, "V1 Artist");
    EXPECT_STREQ(r.record.album, "V1 Album");
    EXPECT_STREQ(r.record.year, "1999");
    EXPECT_STREQ(r.record.comment, "V1 note");
    EXPECT_STREQ(r.record.genre, "Rock");
    EXPECT_EQ(r.record.trackNumber, 3);
    EXPECT_STREQ(r.record.lyrics, "");
}

TEST(AacTags, Id3v2AloneIsFoundButNotCopied) {
    // The tag reader answers 0 without an ID3v1 tag, so nothing is copied,
    // although it reports a tag.
    const Tagged r = Load(Join({V23({TextFrame("TIT2", "Only V2")}), Stream()}), "plain.aac");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.hasTags, 1);
    EXPECT_STREQ(r.record.title, "plain");
    EXPECT_EQ(r.record.sampleRate, 44100u);
}

TEST(AacTags, NoTagsLeaveTheNameAsTitle) {
    const Tagged r = Load(Stream(), "bare.aac");
    EXPECT_EQ(r.hasTags, 0);
    EXPECT_STREQ(r.record.title, "bare");
    EXPECT_EQ(r.record.trackNumber, 0);
}

TEST(AacTags, NegativeTrackIsStoredIn16Bits) {
    Id3v1Fields v1 = V1();
    v1.track = 200;  // read as the signed byte -56
    EXPECT_EQ(Load(Join({Stream(), BuildId3v1(v1)})).record.trackNumber, 65480);
}

TEST(AacTags, LongTagTextIsCutTo127Characters) {
    // A 300-byte frame is sized 172 by the tag reader: still longer than
    // the record's field.
    const Bytes tag = V23({TextFrame("TIT2", std::string(299, 'a'))});
    const Tagged r = Load(Join({tag, Stream(), BuildId3v1(V1())}));
    EXPECT_EQ(std::string(r.record.title), std::string(127, 'a'));
}

TEST(AacTags, ShortFileStillGetsItsTags) {
    Bytes file = Join({Stream(5), BuildId3v1(V1())});
    ASSERT_LT(file.size(), kBuffer);
    const Tagged r = Load(file);
    EXPECT_EQ(r.status, MFI_SHORT_FILE);
    EXPECT_STREQ(r.record.title, "Old Title");
    EXPECT_EQ(r.record.trackNumber, 3);
}

TEST(AacTags, EmptyId3v2TagStopsTheCopyButNotTheScan) {
    // Size 0: the tag reader returns 10 and nothing is copied; the skip
    // reloads the file's start and the frames after the header are found.
    Id3v2Fields empty;
    const Tagged r = Load(Join({BuildId3v2(empty), Stream(), BuildId3v1(V1())}), "empty.aac");
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "empty");
    EXPECT_EQ(r.record.sampleRate, 44100u);
}

}  // namespace
