// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in WavReaderTest.cpp.

#include <gtest/gtest.h>

#include "MediaFileInfo.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"
#include "WavReaderTestHelpers.h"

using namespace WavReaderTestHelpers;

namespace {

TEST(WavReader, ALoadAfterAFailedOpenReleasesTheOldPath) {
    // The sanitizer run fails this test if the first path copy leaks.
    TempDir dir;
    const std::string good = dir.write("good.wav", BuildWav(CdAudio(1)));
    WavInfo reader;
    EXPECT_EQ(reader.LoadFile(dir.file("missing.wav").c_str()), MFI_OPEN_FAILED);
    EXPECT_STREQ(reader.m_filePath, dir.file("missing.wav").c_str());
    EXPECT_EQ(reader.LoadFile(good.c_str()), MFI_OK);
    EXPECT_STREQ(reader.m_filePath, good.c_str());
    EXPECT_STREQ(reader.GetFileInfo()->title, "good");
}

}  // namespace
