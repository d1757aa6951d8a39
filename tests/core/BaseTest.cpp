#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "MediaFileInfoBase.h"
#include "TestFiles.h"
#include "BaseTestHelpers.h"

using namespace BaseTestHelpers;

namespace {

std::string Name(const char* path, int* result) {
    char* out = nullptr;
    *result = MediaFileInfoBase::GetFileName(&out, path);
    std::string name = out == nullptr ? "<none>" : out;
    free(out);
    return name;
}

TEST(ReaderBase, IsEmptyStrCountsOnlyBlanksAsEmpty) {
    EXPECT_EQ(MediaFileInfoBase::IsEmptyStr("   "), 1);
    EXPECT_EQ(MediaFileInfoBase::IsEmptyStr(" a"), 0);
    EXPECT_EQ(MediaFileInfoBase::IsEmptyStr("\t"), 0);
    EXPECT_EQ(MediaFileInfoBase::IsEmptyStr(""), 1);
    EXPECT_EQ(MediaFileInfoBase::IsEmptyStr(nullptr), 1);
}

TEST(ReaderBase, GetFileNameDropsDirectoryAndLastExtension) {
    int result = -1;
    EXPECT_EQ(Name("/music/a.b.mp3", &result), "a.b");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Name("song.mp3", &result), "song");
    EXPECT_EQ(result, 1);
}

TEST(ReaderBase, GetFileNameRefusesALastComponentWithoutDot) {
    int result = -1;
    EXPECT_EQ(Name("/music.d/song", &result), "<none>");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(Name("/song", &result), "<none>");
    EXPECT_EQ(result, 0);
}

TEST(ReaderBase, GetFileNameOfABareWordIsEmpty) {
    int result = -1;
    EXPECT_EQ(Name("song", &result), "");
    EXPECT_EQ(result, 1);
    EXPECT_EQ(Name("/x/.hidden", &result), "");
    EXPECT_EQ(result, 1);
}

TEST(ReaderBase, GetFileNameWithNullArgumentsAllocatesNothing) {
    char* out = nullptr;
    EXPECT_EQ(MediaFileInfoBase::GetFileName(&out, nullptr), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(MediaFileInfoBase::GetFileName(nullptr, "a.mp3"), 0);
}

TEST(ReaderBase, ReadWordIsBigEndian) {
    unsigned char b[] = {0x12, 0x34, 0x56, 0x78};
    EXPECT_EQ(MediaFileInfoBase::ReadWord(b), 0x12345678u);
}

TEST(ReaderBase, ReadWordWarnsOnAllOnes) {
    unsigned char b[] = {0xFF, 0xFF, 0xFF, 0xFF};
    testing::internal::CaptureStdout();
    EXPECT_EQ(MediaFileInfoBase::ReadWord(b), 0xFFFFFFFFu);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "ReadWord warning!\n");
}

TEST(ReaderBase, GetChannelNamesEveryCountAboveOneStero) {
    EXPECT_EQ(MediaFileInfoBase::GetChannel(0), nullptr);
    EXPECT_STREQ(MediaFileInfoBase::GetChannel(1), "Mono");
    EXPECT_STREQ(MediaFileInfoBase::GetChannel(2), "Stero");
    EXPECT_STREQ(MediaFileInfoBase::GetChannel(6), "Stero");
}

TEST(ReaderBase, GetFileStorageInfoStoresTheSize) {
    TempDir dir;
    const std::string p = dir.write("f.bin", Bytes(1234, 7));
    MediaFileInfo_st record;
    MediaFileInfo_st* r = &record;
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, p.c_str()), MFI_OK);
    EXPECT_EQ(record.fileSize, 1234u);
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, dir.file("missing").c_str()), MFI_SHORT_FILE);
}

TEST(ReaderBase, OverleapID3V2LeavesFilesWithoutTagAlone) {
    ProbeReader reader;
    char buffer[16] = "RIFF";
    char* b = buffer;
    EXPECT_EQ(reader.OverleapID3V2(&b), 0);
    char* none = nullptr;
    EXPECT_EQ(reader.OverleapID3V2(&none), 2);
    EXPECT_EQ(reader.OverleapID3V2(nullptr), 2);
}

TEST(ReaderBase, CopyFieldCutsAt127AndTerminates) {
    char field[128];
    memset(field, 'x', sizeof field);
    const std::string longText(300, 'a');
    MediaFileInfoBase::CopyField(field, longText.c_str());
    EXPECT_EQ(strlen(field), 127u);
    MediaFileInfoBase::CopyField(field, "short");
    EXPECT_STREQ(field, "short");
}

TEST(ReaderBase, DoubleToUInt32TruncatesAndSetsTheTopBitAbove2To31) {
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(916030.53), 916030u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(2147483648.0), 0x80000000u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(3000000000.9), 3000000000u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(-1.0), 0xFFFFFFFFu);
    // Out of range and NaN: what the 32-bit conversion gives, never a trap.
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(std::numeric_limits<double>::quiet_NaN()), 0x80000000u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(-2147483649.0), 0x80000000u);
}

TEST(ReaderBase, DoubleToUInt32GivesTwoTo31For2To32AndMore) {
    // What remains after subtracting 2^31 is itself out of range and
    // converts to 0x80000000; setting the top bit leaves it so.
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(4294967295.9), 0xFFFFFFFFu);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(4294967296.0), 2147483648u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(5e9), 2147483648u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(1e300), 2147483648u);
    EXPECT_EQ(MediaFileInfoBase::DoubleToUInt32(std::numeric_limits<double>::infinity()), 2147483648u);
}

TEST(ReaderBase, SeekRelativeTakesTheDifferenceAsSigned) {
    TempDir dir;
    const std::string p = dir.write("f.bin", Bytes(100));
    FILE* f = fopen(p.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    fseek(f, 50, SEEK_SET);
    const unsigned int cursor = 10, length = 30;
    EXPECT_EQ(MediaFileInfoBase::SeekRelative(f, cursor - length), 0);
    EXPECT_EQ(ftell(f), 30);
    fclose(f);
}

}  // namespace

namespace {

TEST(ReaderBase, GetFileStorageInfoOfAnOpenFileAsksItsDescriptor) {
    TempDir dir;
    const std::string p = dir.write("f.bin", Bytes(4321, 1));
    FILE* f = MediaFileInfoBase::OpenForReading(p.c_str());
    ASSERT_NE(f, nullptr);
    MediaFileInfo_st record;
    MediaFileInfo_st* r = &record;
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, p.c_str(), f), MFI_OK);
    EXPECT_EQ(record.fileSize, 4321u);
    // Without an open file it falls back to the path.
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, dir.file("missing").c_str(), nullptr), MFI_SHORT_FILE);
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, nullptr, f), MFI_BAD_ARGUMENT);
    fclose(f);
}

}  // namespace

namespace {

TEST(ReaderBase, GetFileStorageInfoGivesTheWholeSizeBeyondFourGigabytes) {
    TempDir dir;
    const std::string p = dir.write("big.bin", Bytes(16, 1));
    // Sparse: no disk space is used for the hole.
    constexpr long long kSize = (5LL << 30) + 123;
    ASSERT_EQ(truncate(p.c_str(), static_cast<off_t>(kSize)), 0);
    FILE* f = MediaFileInfoBase::OpenForReading(p.c_str());
    ASSERT_NE(f, nullptr);
    MediaFileInfo_st record;
    MediaFileInfo_st* r = &record;
    long long size = 0;
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, p.c_str(), f, &size), MFI_OK);
    EXPECT_EQ(size, kSize);
    EXPECT_EQ(record.fileSize, static_cast<unsigned int>(kSize & 0xFFFFFFFF));  // the low 32 bits
    fclose(f);
}

TEST(ReaderBase, GetFileStorageInfoWithoutAnOpenFileGivesNoWholeSize) {
    TempDir dir;
    const std::string p = dir.write("f.bin", Bytes(77, 1));
    MediaFileInfo_st record;
    MediaFileInfo_st* r = &record;
    long long size = 0;
    // The path still gives the record its size; the whole size is unknown.
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, p.c_str(), nullptr, &size), MFI_OK);
    EXPECT_EQ(record.fileSize, 77u);
    EXPECT_EQ(size, -1);
    size = 0;
    EXPECT_EQ(MediaFileInfoBase::GetFileStorageInfo(&r, nullptr, nullptr, &size), MFI_BAD_ARGUMENT);
    EXPECT_EQ(size, -1);
}

}  // namespace
