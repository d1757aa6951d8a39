// QuickTime movies whose "moov" is zlib-compressed ("cmov"): inflated into
// the fixed file "/temp.bin" and walked from there.
//
// Every test here writes the same "/temp.bin", and ctest runs tests in
// parallel processes: the fixture holds an exclusive lock on a lock file
// for the length of each test.
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

TEST_F(CompressedMovie, MissingCompressedDataIsRefused) {
    ByteWriter dcom;
    dcom.str("zlib");
    const Bytes moov = Box("moov", {Box("cmov", {Atom("dcom", dcom.data())})});
    const std::string path = Write(Cat({Ftyp("qt  "), moov, Filler("mdat", 5000)}));
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_FALSE(Exists(kTempBin));
}

TEST_F(CompressedMovie, CompressedLengthBelowOneIsRefused) {
    Bytes moov = CompressedMoov(PlainMoov());
    const size_t cmvd = OffsetOf(moov, "cmvd");
    moov[cmvd] = 0x80;  // a negative count
    const std::string path = Write(Cat({Ftyp("qt  "), moov, Filler("mdat", 5000)}));
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_FALSE(Exists(kTempBin));
}

TEST_F(CompressedMovie, HeaderLargerThanOneChunkIsInflatedInPieces) {
    // 20000 bytes that do not compress well make the compressed data span
    // several 4096-byte reads and the inflated "moov" several buffers.
    Bytes noise(20000);
    uint32_t x = 12345;
    for (uint8_t& b : noise) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 24);
    }
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(32, 500), 8000, 80000);
    const Bytes moov = Moov({Mvhd(1000, 10000), Atom("junk", noise), sound});
    ASSERT_GT(Deflate(moov).size(), 4096u * 3);
    const std::string path = Write(Cat({Ftyp("qt  "), CompressedMoov(moov), Filler("mdat", 5000)}));
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
    EXPECT_EQ(reader.GetFileInfo()->bitRate, 12800u);
    EXPECT_STREQ(reader.GetFileInfo()->audioCodec, "AMR");
    EXPECT_EQ(ReadAll(kTempBin), moov);
}

TEST_F(CompressedMovie, HeaderAtTheEndOfTheFileEnds) {
    // The compressed length counts the 12-byte atom header, so the last
    // read wants 12 bytes past the file's end: at the end of the file the
    // reading stops (it could never get them).
    const std::string path = Write(Cat({Ftyp("qt  "), Filler("mdat", 20000), CompressedMoov(PlainMoov())}));
    const auto start = std::chrono::steady_clock::now();
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    ExpectPlainValues(*reader.GetFileInfo());
}

TEST_F(CompressedMovie, CorruptedCopiesNeverCrash) {
    // The compressed data, its sizes and the method corrupted in turn:
    // every load ends with a known status, and no copy leaves "/temp.bin"
    // behind once its reader is gone.
    const Bytes seed = Cat({Ftyp("qt  "), CompressedMoov(PlainMoov()), Filler("mdat", 5000)});
    for (uint32_t n = 0; n < 150; ++n) {
        const std::string path = Write(Mutate(seed, n), "mutant.mov");
        {
            Mp4Info reader;
            const int status = reader.LoadFile(path.c_str());
            EXPECT_TRUE(IsKnownStatus(status)) << "#" << n << ": " << status;
            ExpectTextsTerminated(reader.GetFileInfo());
        }
        EXPECT_FALSE(Exists(kTempBin)) << "#" << n;
    }
}

}  // namespace
