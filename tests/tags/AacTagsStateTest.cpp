// These tests pin tag reader and writer state that hosts do not see: the m_
// members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// AacTagsTest.cpp.

#include <gtest/gtest.h>

#include <string>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "Id3Builder.h"
#include "Id3Info.h"
#include "ReaderLoad.h"
#include "TestFiles.h"

namespace {

TEST(AacTags, RealTaggerFile) {
    // id3v2 wrote an ID3v2.3 tag (COMM "A4 reference", TCON "(12)",
    // TRCK "7") and an ID3v1.1 tag with track 7 and genre 12.
    const std::string p = std::string(FILEINFO_FIXTURES_DIR) + "/aac/adts-44k-tagged.aac";
    AacInfo reader;
    ASSERT_EQ(reader.LoadFile(p.c_str()), MFI_OK);
    const MediaFileInfo_st& r = *reader.GetFileInfo();
    EXPECT_EQ(reader.HasId3Info(), 1);
    EXPECT_STREQ(r.title, "Tuning Tone");
    EXPECT_STREQ(r.artist, "Test Lab");
    EXPECT_STREQ(r.album, "Fixtures");
    EXPECT_STREQ(r.year, "2024");
    EXPECT_STREQ(r.comment, "4 reference");
    EXPECT_STREQ(r.genre, "Alternative Rock");
    EXPECT_EQ(r.trackNumber, 7);
    // The audio is the 45 frames of adts-44k-stereo.aac.
    EXPECT_EQ(r.fileSize, 10368u);
    EXPECT_EQ(reader.m_frameCount, 45u);
    EXPECT_EQ(r.bitRate, 64332u);
    EXPECT_EQ(r.durationMs, 1000u);
}

// A tag object whose writer answers with a marker value.
struct MarkerTags : Id3Info {
    int SetId3Info(MediaFileInfo_st*) override { return 42; }
};

TEST(AacTags, TagQuestionsGoToTheTagReader) {
    AacInfo reader;
    MediaFileInfo_st record;
    EXPECT_EQ(reader.HasId3Info(), 0);  // no tag reader yet
    EXPECT_EQ(reader.SetId3Info(&record), 0);
    reader.m_id3 = new MarkerTags();
    reader.m_id3->m_hasId3 = 1;
    reader.m_hasId3 = 0;
    EXPECT_EQ(reader.HasId3Info(), 1);
    EXPECT_EQ(reader.SetId3Info(&record), 42);
    reader.Destory();
    EXPECT_EQ(reader.m_id3, nullptr);
    EXPECT_EQ(reader.HasId3Info(), 0);
}

}  // namespace
