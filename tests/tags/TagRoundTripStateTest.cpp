// These tests pin tag reader and writer state that hosts do not see: the m_
// members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// TagRoundTripTest.cpp.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "AiffBuilder.h"
#include "Id3Builder.h"
#include "MediaFileInfo.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "TagRoundTrip.h"
#include "TestFiles.h"
#include "WavBuilder.h"

namespace {

TEST(TagWrite, FacadeWritesThroughTheLastReaderAfterATotalFailure) {
    // 16 bytes: every reader refuses them, the MP3 reader last; its tag
    // object still writes.
    TempDir dir;
    const std::string path = dir.write("x.aac", Bytes(16, 0x20));
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(path.c_str()), MFI_SHORT_FILE);
    ASSERT_NE(dynamic_cast<Mp3Info*>(facade.m_reader), nullptr);
    MediaFileInfo_st record = *facade.GetFileInfo();
    EXPECT_EQ(facade.SetId3Info(&record), MFI_SEEK_FAILED);
    EXPECT_EQ(ReadAll(path).size(), 16u + 128u);
}

}  // namespace
