// The helpers that FacadeTest.cpp and FacadeStateTest.cpp share.
#ifndef FILEINFO_TESTS_FACADETESTHELPERS_H
#define FILEINFO_TESTS_FACADETESTHELPERS_H

#include <gtest/gtest.h>

#include <cstring>

#include "AifInfo.h"
#include "MediaFileInfo.h"
#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "Mp4Info.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"

namespace FacadeTestHelpers {

inline WavFields OneSecond() {
    WavFields s;
    s.dataBytes = 176400;
    return s;
}

}  // namespace FacadeTestHelpers

#endif  // FILEINFO_TESTS_FACADETESTHELPERS_H
