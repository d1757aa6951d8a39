// Reading crafted bytes as a file, for the MPEG audio, AAC and ID3 tests.
#ifndef FILEINFO_TESTS_MEDIA_MPEGTESTHELPERS_H
#define FILEINFO_TESTS_MEDIA_MPEGTESTHELPERS_H

#include <gtest/gtest.h>

#include <string>

#include "ByteWriter.h"
#include "TestFiles.h"
#include "media/Reading.h"

// The reading of `bytes` written to a file of their own.
inline fileinfo::media::Reading ReadBytes(const Bytes& bytes, const std::string& name = "file") {
    TempDir dir;
    fileinfo::media::Reading reading;
    EXPECT_EQ(fileinfo::media::ReadMediaPath(dir.write(name, bytes), reading), 0);
    return reading;
}

inline fileinfo::media::Reading ReadFixture(const std::string& path) {
    fileinfo::media::Reading reading;
    EXPECT_EQ(fileinfo::media::ReadMediaPath(path, reading), 0) << path;
    return reading;
}

// Bytes of a string literal that may hold NULs.
template <size_t N>
Bytes Raw(const char (&text)[N]) {
    return Bytes(reinterpret_cast<const uint8_t*>(text), reinterpret_cast<const uint8_t*>(text) + N - 1);
}

#endif  // FILEINFO_TESTS_MEDIA_MPEGTESTHELPERS_H
