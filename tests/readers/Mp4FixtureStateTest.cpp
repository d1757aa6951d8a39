// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in Mp4FixtureTest.cpp.

#include <gtest/gtest.h>

#include <string>

#include "MediaFileInfo.h"
#include "Mp4Info.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "Mp4FixtureTestHelpers.h"

using namespace Mp4FixtureTestHelpers;

namespace {

TEST(Mp4Fixture, FacadeReadsEachExtension) {
    for (const char* name : kFixtures) {
        MediaFileInfo facade;
        EXPECT_EQ(facade.LoadFile(Fixture(name).c_str()), MFI_OK) << name;
        EXPECT_NE(dynamic_cast<Mp4Info*>(facade.m_reader), nullptr) << name;
    }
}

}  // namespace
