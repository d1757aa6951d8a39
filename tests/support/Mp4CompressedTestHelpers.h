// The helpers that Mp4CompressedTest.cpp and Mp4CompressedStateTest.cpp share.
#ifndef FILEINFO_TESTS_MP4COMPRESSEDTESTHELPERS_H
#define FILEINFO_TESTS_MP4COMPRESSEDTESTHELPERS_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "Mutation.h"
#include "TempBinTest.h"
#include "TestFiles.h"

namespace Mp4CompressedTestHelpers {

inline bool Exists(const char* path) { return access(path, F_OK) == 0; }

inline Bytes PlainMoov() {
    const Bytes video = VideoTrak(VisualEntry("avc1", 320, 240, AvcC(77, 0x40, 31, 0x67)),
                                  Stsz(0, 4, {1000, 2000, 3000, 4000}), 600, 6000);
    const Bytes sound = SoundTrak(SoundEntry("mp4a", 2, Esds({})), Stsz(0, 3, {1, 2, 3}), 44100, 441000);
    return Moov({Mvhd(600, 6000), video, sound});
}

inline void ExpectPlainValues(const MediaFileInfo_st& r) {
    EXPECT_EQ(r.durationMs, 10000u);
    EXPECT_EQ(r.width, 320);
    EXPECT_EQ(r.height, 240);
    EXPECT_STREQ(r.fileType, "H.264LC");
    EXPECT_STREQ(r.videoFormat, "H264 Main@L3.1");
    EXPECT_EQ(r.peakBitRate, 8000u);  // 10000 bytes in 10 s
    EXPECT_EQ(r.bitRate, 128000u);
    EXPECT_STREQ(r.audioFormat, "MPEG-4 AAC LC");
    EXPECT_STREQ(r.title, "movie");
}

class CompressedMovie : public TempBinTest {
protected:
    std::string Write(const Bytes& file, const std::string& name = "movie.mov") {
        return dir_.write(name, file);
    }

    TempDir dir_;
};

}  // namespace Mp4CompressedTestHelpers

#endif  // FILEINFO_TESTS_MP4COMPRESSEDTESTHELPERS_H
