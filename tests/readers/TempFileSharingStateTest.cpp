// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in TempFileSharingTest.cpp.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "MediaFileInfo.h"
#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "TempBinTest.h"
#include "TestFiles.h"
#include "TempFileSharingTestHelpers.h"

using namespace TempFileSharingTestHelpers;

namespace {

TEST_F(TempFileSharing, FileReplacedAfterTheLoadIsNotRemovedByTheReader) {
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    Mp4Info reader;
    ASSERT_EQ(reader.LoadFile(movie.c_str()), MFI_OK);
    // Another program's file now has the name.
    ASSERT_EQ(remove(kTempBin), 0);
    {
        std::ofstream replacement(kTempBin, std::ios::binary);
        replacement << "not the reader's";
    }
    reader.Destory();
    EXPECT_TRUE(fs::exists(kTempBin));
    EXPECT_EQ(reader.m_useTempFile, 0u);
}

}  // namespace
