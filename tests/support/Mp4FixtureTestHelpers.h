// The helpers that Mp4FixtureTest.cpp and Mp4FixtureStateTest.cpp share.
#ifndef FILEINFO_TESTS_MP4FIXTURETESTHELPERS_H
#define FILEINFO_TESTS_MP4FIXTURETESTHELPERS_H

#include <gtest/gtest.h>

#include <string>

#include "MediaFileInfo.h"
#include "Mp4Info.h"
#include "Mutation.h"
#include "TestFiles.h"

namespace Mp4FixtureTestHelpers {

const char* const kFixtures[] = {"aac-tagged.m4a",    "alac.m4a",          "h263-aac.3gp",
                                 "h264-aac.mov",      "h264-baseline.mp4", "h264-high-aac.mp4",
                                 "mpeg4-aac.m4v",     "many-frames.mp4"};

inline std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/mp4/" + name; }

}  // namespace Mp4FixtureTestHelpers

#endif  // FILEINFO_TESTS_MP4FIXTURETESTHELPERS_H
