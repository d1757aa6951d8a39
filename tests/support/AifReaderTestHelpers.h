// The helpers that AifReaderTest.cpp and AifReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_AIFREADERTESTHELPERS_H
#define FILEINFO_TESTS_AIFREADERTESTHELPERS_H

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include "AifInfo.h"
#include "AiffBuilder.h"
#include "MediaFileInfo.h"
#include "Mutation.h"
#include "ReaderLoad.h"
#include "TestFiles.h"

namespace AifReaderTestHelpers {

constexpr size_t kBuffer = AifInfo::kBufferSize;

using Loaded = LoadResult;

// COMM for CD audio and an SSND whose size field announces `soundBytes`
// while only enough bytes are written for the file to fill the first
// buffer load: the walk never needs the sound itself.
inline AiffBuilder CdAudio(uint32_t soundBytes, uint32_t offset = 0) {
    AiffBuilder b;
    b.comm(2, 16, 44100.0).ssnd(offset, soundBytes, kBuffer);
    return b;
}

}  // namespace AifReaderTestHelpers

#endif  // FILEINFO_TESTS_AIFREADERTESTHELPERS_H
