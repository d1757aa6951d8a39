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

// --- arguments and failures ----------------------------------------------------

TEST(Id3Writer, NullRecordReturnsTwo) {
    Id3Info tag;
    EXPECT_EQ(tag.SetId3Info(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(tag.GetId3Info(), nullptr);
}

TEST(Id3Writer, InitRejectsMissingPieces) {
    Id3Info tag;
    MediaFileInfo_st r;
    EXPECT_EQ(tag.InitID3Info(&r), MFI_BAD_ARGUMENT);  // no fields allocated yet
    ASSERT_TRUE(tag.EnsureId3Info());
    EXPECT_EQ(tag.InitID3Info(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(tag.InitID3Info(&r), MFI_OK);
    EXPECT_STREQ(tag.GetId3Info()->pYear, "");
}

TEST(Id3Writer, Id3v1WriterChecksItsInput) {
    Id3Info tag;
    unsigned char buffer[128];
    EXPECT_EQ(tag.WriteId3v1Information(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(tag.WriteId3v1Information(buffer), MFI_BAD_ARGUMENT);
    ASSERT_TRUE(tag.EnsureId3Info());
    memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(tag.WriteId3v1Information(buffer), MFI_UNREADABLE);  // no file
    EXPECT_EQ(Bytes(buffer, buffer + 128), Bytes(128, 0));
}

TEST(Id3Writer, MoveAndTagWritingNeedAFile) {
    Id3Info tag;
    EXPECT_EQ(tag.MoveFile(5), MFI_OPEN_FAILED);
    EXPECT_EQ(tag.MoveFile(0), MFI_OPEN_FAILED);
    EXPECT_EQ(tag.WriteId3v2InfoToFile(), MFI_SEEK_FAILED);
    EXPECT_EQ(tag.WriteId3v2Information(), MFI_BAD_ARGUMENT);
}

// --- ID3v1 ---------------------------------------------------------------------

TEST(Id3Writer, NineCharacterCommentReadsBackAsYearAndComment) {
    Fields f = SameLengths("Hi");
    f.comment = "ABCDEFGHI";
    f.year = "1999";
    Written w(Join({V23({TextFrame("TIT2", "Hi")}), AudioBytes(2000), BuildId3v1({})}));
    w.Set(f);
    const Bytes now = w.Now();
    Bytes v1 = Slice(now, now.size() - 128, now.size());
    EXPECT_EQ(Slice(v1, 93, 102), (Bytes{'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H', 'I'}));
    EXPECT_EQ(Slice(v1, 102, 126), Bytes(24, 0));
    Id3Info reader;
    ASSERT_EQ(reader.ReadId3v1Information(v1.data()), MFI_OK);
    EXPECT_STREQ(reader.GetId3Info()->pYear, "ABCD");
    EXPECT_STREQ(reader.GetId3Info()->pComment, "EFGHI");
}

}  // namespace
