// These tests pin tag reader and writer state that hosts do not see: the m_
// members and the internal steps that set them. A refactoring that keeps the
// public results may rewrite them. The public results are pinned in
// Mp3TagsTest.cpp.

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

TEST(Mp3Tags, SetId3InfoReachesTheTagObject) {
    TempDir dir;
    Mp3Info r;
    ASSERT_EQ(r.LoadFile(dir.write("a.mp3", Stream()).c_str()), MFI_OK);
    ASSERT_NE(r.m_id3, nullptr);
    // Whatever the tag object answers, the reader passes it on unchanged.
    EXPECT_EQ(r.SetId3Info(nullptr), r.m_id3->SetId3Info(nullptr));
}

}  // namespace
