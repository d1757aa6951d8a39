// The helpers that WavReaderTest.cpp and WavReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_WAVREADERTESTHELPERS_H
#define FILEINFO_TESTS_WAVREADERTESTHELPERS_H

#include <gtest/gtest.h>

#include "MediaFileInfo.h"
#include "TestFiles.h"
#include "WavBuilder.h"
#include "WavInfo.h"

namespace WavReaderTestHelpers {

constexpr uint32_t kCdBytesPerSecond = 44100 * 2 * 2;

inline WavFields CdAudio(uint32_t seconds) {
    WavFields s;
    s.dataBytes = seconds * kCdBytesPerSecond;
    return s;
}

}  // namespace WavReaderTestHelpers

#endif  // FILEINFO_TESTS_WAVREADERTESTHELPERS_H
