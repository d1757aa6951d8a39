// These tests pin reader state that hosts do not see: the m_ members and the
// internal steps that set them. A refactoring that keeps the public results may
// rewrite them. The public results are pinned in Mp4ReaderTest.cpp.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "TestFiles.h"
#include "Mp4ReaderTestHelpers.h"

using namespace Mp4ReaderTestHelpers;

namespace {

TEST(Mp4Walker, QuickTimeBrandIsRecorded) {
    TempDir dir;
    const std::string path = dir.write("qt.mov", Cat({Ftyp("qt  "), AvMoov(), Filler("mdat", 5000)}));
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
    EXPECT_EQ(reader.m_isQuickTime, 1u);
    EXPECT_EQ(reader.m_moovOpen, 1u);
    reader.Destory();
    EXPECT_EQ(reader.m_isQuickTime, 0u);
    EXPECT_EQ(reader.m_moovOpen, 0u);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
}

TEST(Mp4Walker, ReusedReaderKeepsItsHandlerAndCursor) {
    // Destory does not reset the walk: a second load of the same file goes
    // on from where the first walk stood (the "mdat" after "moov", taken by
    // LoadStblStruct as one more atom to skip) and finds nothing.
    TempDir dir;
    const std::string path = dir.write("clip.mp4", FastStart(AvMoov()));
    Mp4Info reader;
    ASSERT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
    EXPECT_TRUE(reader.m_loadHandler == &Mp4Info::LoadStblStruct);
    const unsigned int cursor = reader.m_cursor;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_GE(reader.m_cursor, cursor);
    EXPECT_EQ(reader.GetFileInfo()->durationMs, 0u);
    EXPECT_STREQ(reader.GetFileInfo()->title, "clip");
}

TEST(Mp4Walker, ConstructorStartsAtLoadFtyp) {
    Mp4Info reader;
    EXPECT_TRUE(reader.m_loadHandler == &Mp4Info::LoadFtyp);
    EXPECT_EQ(reader.m_bufferSize, 4096u);
    EXPECT_EQ(reader.m_cursor, 0u);
    EXPECT_EQ(reader.m_tempPath[0], '\0');
    EXPECT_EQ(reader.IsAudio(), 0);
    EXPECT_EQ(reader.SetId3Info(nullptr), 0);  // the format's tags are read-only here
}

// ---- The handler table, atom by atom --------------------------------------

struct HandlerRow {
    const char* name;
    Mp4Info::AtomHandler handler;
    const char* type;
    uint32_t size;
    int result;
    unsigned int advance;
    Mp4Info::AtomHandler next;  // null: unchanged
};

void PrintTo(const HandlerRow& row, std::ostream* os) { *os << row.name; }

class HandlerTable : public testing::TestWithParam<HandlerRow> {};

TEST_P(HandlerTable, AdvancesAndHandsOver) {
    const HandlerRow& row = GetParam();
    HandlerBench bench;
    bench.reader.m_loadHandler = row.handler;
    bench.Put(AtomSized(row.size, row.type, Bytes(200, 0)), 100);
    EXPECT_EQ(bench.Run(row.handler), row.result);
    if (row.result == -1) return;
    EXPECT_EQ(bench.reader.m_cursor, 100 + row.advance);
    EXPECT_TRUE(bench.reader.m_loadHandler == (row.next != nullptr ? row.next : row.handler));
}

using M = Mp4Info;
const HandlerRow kRows[] = {
    {"FtypFtypZero", &M::LoadFtyp, "ftyp", 0, -1, 0, nullptr},
    {"FtypFtyp", &M::LoadFtyp, "ftyp", 32, 0, 32, &M::LoadMoov},
    {"FtypMoov", &M::LoadFtyp, "moov", 500, 0, 0, &M::LoadMoov},
    {"FtypOtherZero", &M::LoadFtyp, "wide", 0, 0, 1, &M::LoadMoov},
    {"FtypOther", &M::LoadFtyp, "wide", 8, 0, 8, &M::LoadMoov},
    {"MoovOtherZero", &M::LoadMoov, "free", 0, -1, 0, nullptr},
    {"MoovOther", &M::LoadMoov, "mdat", 40, 0, 40, nullptr},
    {"MoovMoov", &M::LoadMoov, "moov", 300, 0, 8, &M::LoadMvhd},
    {"MvhdZero", &M::LoadMvhd, "mvhd", 0, -1, 0, nullptr},
    {"MvhdMvhd", &M::LoadMvhd, "mvhd", 108, 0, 108, &M::LoadTrak},
    {"MvhdOther", &M::LoadMvhd, "iods", 24, 0, 1, nullptr},
    {"TrakTrak", &M::LoadTrak, "trak", 300, 0, 8, &M::LoadTrakStruct},
    {"TrakIodsZero", &M::LoadTrak, "iods", 0, 0, 4, nullptr},
    {"TrakFree", &M::LoadTrak, "free", 8, 1, 0, nullptr},
    {"TrakMdat", &M::LoadTrak, "mdat", 8, 1, 0, nullptr},
    {"TrakUdta", &M::LoadTrak, "udta", 60, 0, 60, nullptr},
    {"TrakOtherZero", &M::LoadTrak, "abcd", 0, 0, 4, nullptr},
    {"TrakStructTrak", &M::LoadTrakStruct, "trak", 300, 0, 0, &M::LoadTrak},
    {"TrakStructMdia", &M::LoadTrakStruct, "mdia", 300, 0, 8, &M::LoadMdiaStruct},
    {"TrakStructOther", &M::LoadTrakStruct, "tkhd", 92, 0, 92, nullptr},
    {"TrakStructOtherZero", &M::LoadTrakStruct, "tkhd", 0, 0, 0, nullptr},
    {"MdiaTrak", &M::LoadMdiaStruct, "trak", 300, 0, 0, &M::LoadTrak},
    {"MdiaHdlrZero", &M::LoadMdiaStruct, "hdlr", 0, 0, 4, nullptr},
    {"MdiaMdhdZero", &M::LoadMdiaStruct, "mdhd", 0, 0, 4, nullptr},
    {"MdiaMinf", &M::LoadMdiaStruct, "minf", 300, 0, 8, &M::LoadMinfStruct},
    {"MdiaOtherZero", &M::LoadMdiaStruct, "elng", 0, 0, 4, nullptr},
    {"MinfTrak", &M::LoadMinfStruct, "trak", 300, 0, 0, &M::LoadTrak},
    {"MinfStbl", &M::LoadMinfStruct, "stbl", 300, 0, 8, &M::LoadStblStruct},
    {"MinfOtherZero", &M::LoadMinfStruct, "vmhd", 0, 0, 4, nullptr},
    {"StblTrak", &M::LoadStblStruct, "trak", 300, 0, 0, &M::LoadTrak},
    {"StblStsdZero", &M::LoadStblStruct, "stsd", 0, 0, 4, nullptr},
    {"StblStszZero", &M::LoadStblStruct, "stsz", 0, 0, 4, nullptr},
    {"StblUdta", &M::LoadStblStruct, "udta", 300, 0, 8, &M::LoadMeta},
    {"StblOtherZero", &M::LoadStblStruct, "stco", 0, 0, 4, nullptr},
    {"StblMdat", &M::LoadStblStruct, "mdat", 40, 0, 40, nullptr},
    {"MetaMeta", &M::LoadMeta, "meta", 300, 0, 12, &M::LoadMetaStruct},
    {"MetaTrak", &M::LoadMeta, "trak", 300, 0, 8, &M::LoadTrakStruct},
    {"MetaOtherZero", &M::LoadMeta, "name", 0, 0, 4, nullptr},
    {"MetaStructHdlrZero", &M::LoadMetaStruct, "hdlr", 0, -1, 0, nullptr},
    {"MetaStructIlstZero", &M::LoadMetaStruct, "ilst", 0, -1, 0, nullptr},
    {"MetaStructOtherZero", &M::LoadMetaStruct, "free", 0, -1, 0, nullptr},
    {"MetaStructHdlr", &M::LoadMetaStruct, "hdlr", 33, 0, 33, nullptr},
    {"MetaStructOther", &M::LoadMetaStruct, "free", 20, 0, 20, nullptr},
    {"MetaStructUdta", &M::LoadMetaStruct, "udta", 300, 0, 8, &M::LoadMeta},
    {"MetaStructTrak", &M::LoadMetaStruct, "trak", 300, 0, 8, &M::LoadTrakStruct},
};

INSTANTIATE_TEST_SUITE_P(Mp4Walker, HandlerTable, testing::ValuesIn(kRows),
                         [](const testing::TestParamInfo<HandlerRow>& info) { return info.param.name; });

TEST(Mp4Walker, IodsRecordsTheVisualProfileByte) {
    HandlerBench bench;
    bench.Put(Iods(0xF3));
    EXPECT_EQ(bench.Run(&Mp4Info::LoadTrak), 0);
    EXPECT_EQ(bench.reader.m_hasIods, 1u);
    EXPECT_EQ(bench.reader.m_visualProfile, 0xF3);
}

TEST(Mp4Walker, HdlrTakesTheNameAfterACountByteFromApple) {
    HandlerBench bench;
    bench.Put(Hdlr("soun", "Apple Sound Media Handler", true));
    bench.Run(&Mp4Info::LoadMdiaStruct);
    EXPECT_STREQ(bench.reader.m_handlerType, "soun");
    EXPECT_STREQ(bench.reader.m_handlerName, "Appl");
    bench.Put(Hdlr("vide", "VideoHandler"));
    bench.Run(&Mp4Info::LoadMdiaStruct);
    EXPECT_STREQ(bench.reader.m_handlerType, "vide");
    EXPECT_STREQ(bench.reader.m_handlerName, "Vide");
}

TEST(Mp4Walker, MdhdNeedsBothFieldsForTrackSeconds) {
    HandlerBench bench;
    bench.Put(Mdhd(44100, 441000));
    bench.Run(&Mp4Info::LoadMdiaStruct);
    EXPECT_EQ(bench.reader.m_trackTimeScale, 44100u);
    EXPECT_DOUBLE_EQ(bench.reader.m_trackSeconds, 10.0);
    bench.Put(Mdhd(8000, 0));
    bench.Run(&Mp4Info::LoadMdiaStruct);
    EXPECT_EQ(bench.reader.m_trackTimeScale, 8000u);
    EXPECT_DOUBLE_EQ(bench.reader.m_trackSeconds, 10.0);  // kept from the track before
}

TEST(Mp4Walker, StblClearsTheBitRateOfTheTrackKind) {
    HandlerBench bench;
    bench.record().bitRate = 5;
    bench.record().peakBitRate = 7;
    memcpy(bench.reader.m_handlerType, "soun", 4);
    bench.Put(Atom("stbl"));
    bench.Run(&Mp4Info::LoadMinfStruct);
    EXPECT_EQ(bench.record().bitRate, 0u);
    EXPECT_EQ(bench.record().peakBitRate, 7u);
    memcpy(bench.reader.m_handlerType, "vide", 4);
    bench.Put(Atom("stbl"));
    bench.Run(&Mp4Info::LoadMinfStruct);
    EXPECT_EQ(bench.record().peakBitRate, 0u);
}

}  // namespace

namespace {

// Refills near the end of the file ask for no more than it holds.

TEST(Mp4Walker, ReadsAheadNoFurtherThanTheFileEnd) {
    TempDir dir;
    const std::string p = dir.write("f.bin", Bytes(10000, 7));
    Mp4Info reader;
    reader.m_file = MediaFileInfoBase::OpenForReading(p.c_str());
    ASSERT_NE(reader.m_file, nullptr);
    // End not known: the whole request.
    EXPECT_EQ(reader.ReadableAhead(4096), 4096u);
    reader.m_fileEnd = 10000;
    EXPECT_EQ(reader.ReadableAhead(4096), 4096u);
    ASSERT_EQ(fseek(reader.m_file, 8000, SEEK_SET), 0);
    EXPECT_EQ(reader.ReadableAhead(4096), 2000u);
    EXPECT_EQ(reader.ReadableAhead(100), 100u);
    // At or past the end the read is left to find the end itself.
    ASSERT_EQ(fseek(reader.m_file, 10000, SEEK_SET), 0);
    EXPECT_EQ(reader.ReadableAhead(4096), 4096u);
    ASSERT_EQ(fseek(reader.m_file, 12000, SEEK_SET), 0);
    EXPECT_EQ(reader.ReadableAhead(4096), 4096u);
    fclose(reader.m_file);
    reader.m_file = nullptr;
    EXPECT_EQ(reader.ReadableAhead(4096), 4096u);
}

TEST(Mp4Walker, ForgetsTheFileEndWhenTheLoadEnds) {
    TempDir dir;
    // The movie after the media data: the walk refills up to the file's end.
    const std::string p = dir.write("av.mp4", Cat({Ftyp(), Filler("mdat", 20000, 0x5A), AvMoov()}));
    Mp4Info reader;
    EXPECT_EQ(reader.m_fileEnd, -1);
    ASSERT_EQ(reader.LoadFile(p.c_str()), MFI_OK);
    EXPECT_EQ(reader.m_file, nullptr);
    EXPECT_EQ(reader.m_fileEnd, -1);
}

}  // namespace
