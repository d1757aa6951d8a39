#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>

#include "MediaFileInfoDefine.h"

namespace {

const char* TextFields(const MediaFileInfo_st& r) { return r.fileType; }

TEST(Record, HasTheFixedLayout) {
    EXPECT_EQ(sizeof(MediaFileInfo_st), 1836u);
    EXPECT_EQ(offsetof(MediaFileInfo_st, trackNumber), 4u);
    EXPECT_EQ(offsetof(MediaFileInfo_st, width), 16u);
    EXPECT_EQ(offsetof(MediaFileInfo_st, fileSize), 20u);  // two bytes of alignment after width
    EXPECT_EQ(offsetof(MediaFileInfo_st, durationMs), 40u);
    EXPECT_EQ(offsetof(MediaFileInfo_st, fileType), 44u);
    EXPECT_EQ(offsetof(MediaFileInfo_st, composer), 44u + 13 * 128);
}

TEST(Record, ConstructorClearsTheListedFieldsOnly) {
    alignas(MediaFileInfo_st) unsigned char storage[sizeof(MediaFileInfo_st)];
    memset(storage, 0xAB, sizeof storage);
    auto* r = new (storage) MediaFileInfo_st();
    EXPECT_EQ(r->isVbr, 0u);
    EXPECT_EQ(r->trackNumber, 0);
    EXPECT_EQ(r->level, 0);
    EXPECT_EQ(r->profile, 0);
    EXPECT_EQ(r->profileLevelId, 0);
    EXPECT_EQ(r->bitsPerSample, 0);
    EXPECT_EQ(r->height, 0);
    EXPECT_EQ(r->width, 0);
    EXPECT_EQ(r->sampleRate, 0u);
    EXPECT_EQ(r->bitRate, 0u);
    EXPECT_EQ(r->peakBitRate, 0u);
    EXPECT_EQ(r->durationMs, 0u);
    for (size_t i = 0; i < 14 * 128; ++i) ASSERT_EQ(TextFields(*r)[i], 0) << "text byte " << i;
    // fileSize and frameRate are the readers' to write.
    EXPECT_EQ(r->fileSize, 0xABABABABu);
    EXPECT_EQ(r->frameRate, 0xABABABABu);
}

TEST(Record, SharedTablesHoldTheirRowsExactly) {
    EXPECT_STREQ(Mp3Tail, ".mp3");
    EXPECT_STREQ(AacTail, ".aac");
    EXPECT_STREQ(Mp4Tail, ".mp4");
    EXPECT_STREQ(TGPTail, ".3gp");
    EXPECT_STREQ(M4vTail, ".m4v");
    EXPECT_STREQ(M4aTail, ".m4a");
    EXPECT_STREQ(WavTail, ".wav");
    EXPECT_STREQ(AifTail, ".aif");
    EXPECT_STREQ(MovTail, ".mov");
    EXPECT_STREQ(CHANNEL[0], "Mono");
    EXPECT_STREQ(CHANNEL[1], "Stero");
    EXPECT_STREQ(Mp3FileType[0], "MP3");
    EXPECT_STREQ(AacFileType[0], "AAC");
    EXPECT_STREQ(WavFileType[0], "WAV");
    EXPECT_STREQ(AIFTYPE[0], "AIFF");
    EXPECT_STREQ(AIFFORMAT[0], "Audio IFF");
    const char* formats[] = {"AMR", "AMR-WB", "AAC", "MPEG-4", "H.263", "H.264", "AppleLossless", "Unknown"};
    for (int i = 0; i < 8; ++i) EXPECT_STREQ(FormatType[i], formats[i]);
    EXPECT_STREQ(H264LCFileType[0], "H.264LC");
}

TEST(Record, StatusCodesHaveTheirNumbers) {
    EXPECT_EQ(MFI_UNREADABLE, 0);
    EXPECT_EQ(MFI_OK, 1);
    EXPECT_EQ(MFI_BAD_ARGUMENT, 2);
    EXPECT_EQ(MFI_NO_MEMORY, 3);
    EXPECT_EQ(MFI_OPEN_FAILED, 5);
    EXPECT_EQ(MFI_SHORT_FILE, 6);
    EXPECT_EQ(MFI_SHORT_WRITE, 7);
    EXPECT_EQ(MFI_SEEK_FAILED, 8);
    EXPECT_EQ(MFI_NOT_THIS_FORMAT, 10);
}

}  // namespace
