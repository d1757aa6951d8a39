// The helpers that BaseTest.cpp and BaseStateTest.cpp share.
#ifndef FILEINFO_TESTS_BASETESTHELPERS_H
#define FILEINFO_TESTS_BASETESTHELPERS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "MediaFileInfoBase.h"
#include "TestFiles.h"

namespace BaseTestHelpers {

// The base is abstract; this reader only opens the file so the helpers that
// work on m_file can be driven.
class ProbeReader : public MediaFileInfoBase {
public:
    ProbeReader() { m_bufferSize = 16; }
    int LoadFile(const char*) override { return MFI_NOT_THIS_FORMAT; }
};

}  // namespace BaseTestHelpers

#endif  // FILEINFO_TESTS_BASETESTHELPERS_H
