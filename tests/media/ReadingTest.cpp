// What ReadMedia does before any reader: opening, refusing what is not a
// regular file, and reading what no reader takes as unidentified.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "media/Reading.h"

namespace {

using fileinfo::media::Reading;
using fileinfo::media::ReadMediaPath;

std::string WriteTemp(const std::string& bytes) {
    char name[] = "/tmp/reading-XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    return name;
}

TEST(Reading, PathWithNulIsInvalidArgument) {
    Reading r;
    EXPECT_EQ(ReadMediaPath(std::string("/tmp\0x", 6), r), EINVAL);
    EXPECT_FALSE(r.Identified());
}

TEST(Reading, MissingFileGivesItsErrno) {
    Reading r;
    EXPECT_EQ(ReadMediaPath("/nonexistent/file.mp3", r), ENOENT);
}

TEST(Reading, FolderIsNotRead) {
    Reading r;
    EXPECT_EQ(ReadMediaPath("/tmp", r), EISDIR);
}

TEST(Reading, EmptyFileIsUnidentifiedWithSizeZero) {
    const std::string path = WriteTemp("");
    Reading r;
    EXPECT_EQ(ReadMediaPath(path, r), 0);
    EXPECT_FALSE(r.Identified());
    EXPECT_EQ(r.size, 0u);
    std::remove(path.c_str());
}

TEST(Reading, TextFileIsUnidentifiedWithItsSize) {
    const std::string path = WriteTemp("just some words, no media here\n");
    Reading r;
    EXPECT_EQ(ReadMediaPath(path, r), 0);
    EXPECT_FALSE(r.Identified());
    EXPECT_EQ(r.size, 31u);
    EXPECT_TRUE(r.tags.Empty());
    std::remove(path.c_str());
}

}  // namespace
