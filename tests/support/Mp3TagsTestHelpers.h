// The helpers that Mp3TagsTest.cpp and Mp3TagsStateTest.cpp share.
#ifndef FILEINFO_TESTS_MP3TAGSTESTHELPERS_H
#define FILEINFO_TESTS_MP3TAGSTESTHELPERS_H

#include <gtest/gtest.h>

#include <string>

#include "Id3Builder.h"
#include "Id3Info.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "TestFiles.h"

namespace Mp3TagsTestHelpers {

// Nine CD frames and zeros: a stream the reader accepts wherever it starts.
inline Bytes Stream() { return PadTo(Mp3Frames(Mp3Header{}, 417, 9), 3 * 4096); }

}  // namespace Mp3TagsTestHelpers

#endif  // FILEINFO_TESTS_MP3TAGSTESTHELPERS_H
