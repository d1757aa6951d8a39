// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in AifReaderTest.cpp.

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
#include "AifReaderTestHelpers.h"

using namespace AifReaderTestHelpers;

namespace {

// --- the walk through buffer loads ---

TEST(AifReader, ASecondLoadContinuesFromTheEarlierChunkIndex) {
    TempDir dir;
    // The first file stops at a zero-size chunk at index 12 ...
    AiffBuilder first;
    first.chunk("JUNK", 0, {}).raw(kBuffer);
    // ... so the second is walked from 12 + 12 = 24, past its NAME.
    AiffBuilder second;
    second.text("NAME", "abcd").comm(1, 16, 8000.0).ssnd(0, 100, kBuffer);
    const std::string a = dir.write("a.aif", first.build());
    const std::string b = dir.write("b.aif", second.build());

    AifInfo fresh;
    EXPECT_STREQ(LoadWith(fresh, b).record.title, "abcd");

    AifInfo reused;
    EXPECT_EQ(LoadWith(reused, a).status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(reused.m_chunkPos, 12u);
    const Loaded r = LoadWith(reused, b);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "b");
    EXPECT_EQ(r.record.sampleRate, 8000u);
}

TEST(AifReader, ASecondLoadAfterACompleteWalkStartsAtTheFirstChunk) {
    TempDir dir;
    const std::string p = dir.write("cd.aif", CdAudio(1764000).build());
    AifInfo reader;
    ASSERT_EQ(reader.LoadFile(p.c_str()), MFI_OK);
    EXPECT_EQ(reader.m_chunkPos, 0u);  // the walk ended with a refill
    ASSERT_EQ(reader.LoadFile(p.c_str()), MFI_OK);
    EXPECT_EQ(reader.GetFileInfo()->durationMs, 10000u);
}

// A stream that never reaches its end and never moves: every read hands
// out the same bytes again, every seek leaves it at position 0.
struct StuckStream {
    Bytes bytes;
    static ssize_t Read(void* cookie, char* out, size_t n) {
        const Bytes& b = static_cast<StuckStream*>(cookie)->bytes;
        const size_t k = std::min(n, b.size());
        memcpy(out, b.data(), k);
        return static_cast<ssize_t>(k);
    }
    static int Seek(void*, off64_t* offset, int) {
        *offset = 0;
        return 0;
    }
    FILE* Open() {
        cookie_io_functions_t io = {&Read, nullptr, &Seek, nullptr};
        FILE* f = fopencookie(this, "rb", io);
        if (f != nullptr) setvbuf(f, nullptr, _IONBF, 0);
        return f;
    }
};

TEST(AifReader, StreamThatNeverMovesEndsTheWalk) {
    AiffBuilder b;
    b.comm(1, 16, 8000.0).chunk("JUNK", 900, Bytes(900, 0));  // the next chunk lies in the margin
    b.raw(kBuffer - b.size());
    StuckStream stream{b.build()};
    Bytes buffer(AifInfo::kBufferAllocation, 0);
    memcpy(buffer.data(), stream.bytes.data(), kBuffer);

    AifInfo reader;
    reader.m_fileInfo = MediaFileInfoBase::NewZeroedRecord();
    reader.m_file = stream.Open();
    ASSERT_NE(reader.m_file, nullptr);
    reader.m_bufferSize = kBuffer;
    EXPECT_EQ(reader.ReadHeader(buffer.data()), MFI_OK);
    EXPECT_EQ(reader.GetFileInfo()->sampleRate, 8000u);
    EXPECT_EQ(reader.m_chunkPos, 0u);
    fclose(reader.m_file);
    reader.m_file = nullptr;
}

TEST(AifReader, ShortLoadWithoutEndOfFileEndsTheWalkAtTheBufferEnd) {
    // A read that failed short of the end leaves a buffer length below the
    // 100-byte margin: the unsigned margin test wraps and every chunk counts
    // as inside the buffer. The walk stops once a chunk would start past it.
    TempDir dir;
    const std::string p = dir.write("long.aif", Bytes(3000, 0));
    Bytes buffer(AifInfo::kBufferAllocation, 0);
    ByteWriter w;
    w.str("FORM").be32(0).str("AIFF");
    while (w.size() < buffer.size()) w.str("JUNK").be32(2).be16(0);
    memcpy(buffer.data(), w.data().data(), buffer.size());

    AifInfo reader;
    reader.m_fileInfo = MediaFileInfoBase::NewZeroedRecord();
    reader.m_file = fopen(p.c_str(), "rb");
    ASSERT_NE(reader.m_file, nullptr);
    reader.m_bufferSize = 40;
    EXPECT_EQ(reader.ReadHeader(buffer.data()), MFI_OK);
    EXPECT_EQ(reader.m_chunkPos, 1032u);  // 12 + 102 chunks of 10 bytes
    EXPECT_EQ(ftell(reader.m_file), 0L);  // never refilled
    fclose(reader.m_file);
    reader.m_file = nullptr;
}

}  // namespace

