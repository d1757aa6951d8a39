// These tests pin reader and facade state that hosts do not see: the m_ members
// and the internal steps that set them. A refactoring that keeps the public
// results may rewrite them. The public results are pinned in BaseTest.cpp.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "MediaFileInfoBase.h"
#include "TestFiles.h"
#include "BaseTestHelpers.h"

using namespace BaseTestHelpers;

namespace {

TEST(ReaderBase, OverleapID3V2SeeksToTheSizeWithoutTheHeader) {
    TempDir dir;
    Bytes file(600);
    for (size_t i = 0; i < file.size(); ++i) file[i] = static_cast<uint8_t>(i);
    const unsigned char header[] = {'I', 'D', '3', 3, 0, 0, 0x00, 0x00, 0x02, 0x01};
    memcpy(file.data(), header, sizeof header);
    const std::string p = dir.write("t.mp3", file);

    ProbeReader reader;
    reader.m_file = fopen(p.c_str(), "rb");
    ASSERT_NE(reader.m_file, nullptr);
    char buffer[16];
    memcpy(buffer, file.data(), sizeof buffer);
    char* b = buffer;
    EXPECT_EQ(reader.OverleapID3V2(&b), 1);
    EXPECT_EQ(ftell(reader.m_file), 257 + 16);
    EXPECT_EQ(static_cast<uint8_t>(buffer[0]), static_cast<uint8_t>(257));
    fclose(reader.m_file);
    reader.m_file = nullptr;
}

}  // namespace

