// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in Mp4MetadataTest.cpp.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "TestFiles.h"

namespace {

TEST(Mp4Metadata, ListReReadFromTheFileEitherFitsOrFails) {
    // The list at file offset 3900 runs out of the buffer: it is read again
    // from the file. 600 bytes fit the 5000-byte file (no items: the walk
    // starts at the "ilst" header) and the file goes back where it was;
    // 2000 bytes do not, and the read fails with the file at its end.
    TempDir dir;
    ByteWriter w;
    w.fill(3900).bytes(Atom("ilst", TextItem(Copyright("nam"), "Song")));
    w.fill(5000 - w.size());
    const std::string path = dir.write("list.bin", w.data());
    ASSERT_EQ(w.size(), 5000u);

    HandlerBench bench;
    bench.reader.m_file = fopen(path.c_str(), "rb");
    ASSERT_NE(bench.reader.m_file, nullptr);
    fseek(bench.reader.m_file, 4096, SEEK_SET);
    bench.reader.m_cursor = 3900;
    EXPECT_EQ(bench.reader.GetMp4MusicInfo(bench.buffer + 3908, 600), 1);
    EXPECT_EQ(ftell(bench.reader.m_file), 4096);
    EXPECT_STREQ(bench.record().title, "");
    EXPECT_EQ(bench.reader.GetMp4MusicInfo(bench.buffer + 3908, 2000), -1);
    EXPECT_EQ(ftell(bench.reader.m_file), 5000);
    fclose(bench.reader.m_file);
    bench.reader.m_file = nullptr;
}

}  // namespace
