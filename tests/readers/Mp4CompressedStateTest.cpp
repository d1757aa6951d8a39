// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in Mp4CompressedTest.cpp.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "Mutation.h"
#include "TempBinTest.h"
#include "TestFiles.h"
#include "Mp4CompressedTestHelpers.h"

using namespace Mp4CompressedTestHelpers;

namespace {

TEST_F(CompressedMovie, IsInflatedIntoTempBinAndWalked) {
    const Bytes moov = PlainMoov();
    const std::string path = Write(Cat({Ftyp("qt  "), CompressedMoov(moov), Filler("mdat", 5000)}));
    {
        Mp4Info reader;
        EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
        ExpectPlainValues(*reader.GetFileInfo());
        EXPECT_EQ(reader.IsVideo(), 1);
        EXPECT_EQ(reader.IsAudio(), 1);
        EXPECT_EQ(reader.m_useTempFile, 1u);
        EXPECT_STREQ(reader.m_tempPath, kTempBin);
        // The inflated movie header stays on disk while the reader lives.
        ASSERT_TRUE(Exists(kTempBin));
        EXPECT_EQ(ReadAll(kTempBin), moov);
    }
    EXPECT_FALSE(Exists(kTempBin));
}

TEST_F(CompressedMovie, TempFileIsDeletedByTheNextLoad) {
    const std::string compressed = Write(Cat({Ftyp("qt  "), CompressedMoov(PlainMoov()), Filler("mdat", 5000)}));
    const std::string plain = Write(FastStart(PlainMoov()), "plain.mov");
    Mp4Info reader;
    ASSERT_EQ(reader.LoadFile(compressed.c_str()), MFI_OK);
    ASSERT_TRUE(Exists(kTempBin));
    EXPECT_EQ(reader.LoadFile(plain.c_str()), MFI_NOT_THIS_FORMAT);  // the walk is not reset
    EXPECT_FALSE(Exists(kTempBin));
    EXPECT_EQ(reader.m_useTempFile, 0u);
}

TEST_F(CompressedMovie, MethodOtherThanZlibIsRefused) {
    const std::string path = Write(Cat({Ftyp("qt  "), CompressedMoov(PlainMoov(), "gzip"), Filler("mdat", 5000)}));
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_FALSE(Exists(kTempBin));
    EXPECT_EQ(reader.m_useTempFile, 0u);
}

TEST_F(CompressedMovie, CorruptDataFailsButTheTempFileStaysUntilDestruction) {
    const Bytes junk(300, 0x42);
    const std::string path =
        Write(Cat({Ftyp("qt  "), CompressedMoov(PlainMoov(), "zlib", &junk), Filler("mdat", 5000)}));
    {
        Mp4Info reader;
        EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
        EXPECT_EQ(reader.m_useTempFile, 1u);
        EXPECT_TRUE(Exists(kTempBin));
        EXPECT_EQ(ReadAll(kTempBin).size(), 0u);
    }
    EXPECT_FALSE(Exists(kTempBin));
}

TEST_F(CompressedMovie, TruncatedDataEndsWithWhatWasInflated) {
    // The file ends a third of the way before the compressed data does: the
    // movie header is inflated as far as it goes, its walk reaches the end
    // of the inflated bytes and the refill there reads nothing.
    const Bytes moov = PlainMoov();
    Bytes file = Cat({Ftyp("qt  "), Filler("mdat", 5000), CompressedMoov(moov)});
    file.resize(file.size() - Deflate(moov).size() / 3);
    const std::string path = Write(file);
    const auto start = std::chrono::steady_clock::now();
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(reader.m_useTempFile, 1u);
    const Bytes inflated = ReadAll(kTempBin);
    EXPECT_LT(inflated.size(), moov.size());
    EXPECT_TRUE(std::equal(inflated.begin(), inflated.end(), moov.begin()));
}

}  // namespace
