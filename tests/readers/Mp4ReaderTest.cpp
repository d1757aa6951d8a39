// The MP4 atom walker: file loop, refills, movie-end bookkeeping, the
// handler chain and its zero-size rules, whole-second durations.
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

void ExpectAvValues(const Mp4Result& r) {
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_TRUE(r.video);
    EXPECT_TRUE(r.audio);
    EXPECT_FALSE(r.tags);
    EXPECT_EQ(r.record.durationMs, 10000u);
    EXPECT_EQ(r.record.width, 320);
    EXPECT_EQ(r.record.height, 240);
    EXPECT_STREQ(r.record.fileType, "H.264LC");
    EXPECT_STREQ(r.record.videoFormat, "H264 Baseline@L3");
    EXPECT_EQ(r.record.profile, 66);
    EXPECT_EQ(r.record.level, 30);
    EXPECT_EQ(r.record.peakBitRate, 200000u);  // 250000 bytes in 10 s
    EXPECT_EQ(r.record.frameRate, 25u);
    EXPECT_EQ(r.record.sampleRate, 44100u);
    EXPECT_STREQ(r.record.channelMode, "Stero");
    EXPECT_STREQ(r.record.audioCodec, "AAC");
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
    EXPECT_EQ(r.record.bitRate, 128000u);
    EXPECT_STREQ(r.record.title, "clip");
}

TEST(Mp4Walker, FastStartMovieIsWalkedToTheEndOfMoov) {
    const Bytes file = FastStart(AvMoov());
    ExpectAvValues(LoadMp4(file));
}

TEST(Mp4Walker, MoovAfterMdatIsFoundBySkippingMdat) {
    // "mdat" is skipped by its size while LoadMoov searches; the walk ends
    // at the end of "moov", which is also the end of the file.
    const Bytes file = Cat({Ftyp(), Filler("mdat", 20000, 0x5A), AvMoov()});
    const Mp4Result r = LoadMp4(file);
    ExpectAvValues(r);
    EXPECT_EQ(r.record.fileSize, file.size());
}

TEST(Mp4Walker, MoovLargerThanTheBufferEndsByItsEndNotAtMdat) {
    // A 6000-byte "stts" makes the sample tables span three buffers; after
    // the last track the movie end, kept relative to each refilled buffer,
    // ends the walk before the following "mdat" is taken for a table.
    const Bytes sound = SoundTrak(SoundEntry("samr", 1),
                                  Cat({Filler("stts", 6000), Stsz(32, 500)}), 8000, 80000);
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), sound}), 12000));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.audioCodec, "AMR");
    EXPECT_EQ(r.record.bitRate, 12800u);  // 32 bytes x 500 samples in 10 s
    EXPECT_STREQ(r.record.channelMode, "Mono");
    EXPECT_EQ(r.record.sampleRate, 8000u);
}

TEST(Mp4Walker, FileOf4095BytesIsShort) {
    Bytes file = FastStart(AvMoov());
    file.resize(4095);
    TempDir dir;
    const std::string path = dir.write("short.mp4", file);
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_SHORT_FILE);
    // The record exists with the storage information and nothing else.
    ASSERT_NE(reader.GetFileInfo(), nullptr);
    EXPECT_EQ(reader.GetFileInfo()->fileSize, 4095u);
    EXPECT_STREQ(reader.GetFileInfo()->title, "");
    EXPECT_EQ(reader.GetFileInfo()->durationMs, 0u);
    EXPECT_EQ(reader.GetFileInfo()->frameRate, 0u);
}

TEST(Mp4Walker, FileOf4095JunkBytesIsShortToo) {
    const Mp4Result r = LoadMp4(Bytes(4095, 0xAB));
    EXPECT_EQ(r.status, MFI_SHORT_FILE);
}

TEST(Mp4Walker, NullPathAndMissingFile) {
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(nullptr), MFI_BAD_ARGUMENT);
    TempDir dir;
    EXPECT_EQ(reader.LoadFile(dir.file("missing.mp4").c_str()), MFI_OPEN_FAILED);
    EXPECT_EQ(reader.GetFileInfo(), nullptr);
    EXPECT_EQ(reader.LoadFile(dir.file("again.mp4").c_str()), MFI_OPEN_FAILED);  // no leak of the first path
}

TEST(Mp4Walker, ReadFrameWithoutBufferIsABadArgument) {
    Mp4Info reader;
    EXPECT_EQ(reader.ReadFrame(nullptr), MFI_BAD_ARGUMENT);
}

TEST(Mp4Walker, AnythingWithoutATrackIsNotThisFormat) {
    EXPECT_EQ(LoadMp4(Bytes(6000, 0)).status, MFI_NOT_THIS_FORMAT);  // zero sizes: LoadMoov fails
    Bytes junk(6000);
    for (size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<uint8_t>(i * 7 + 3);
    EXPECT_EQ(LoadMp4(junk).status, MFI_NOT_THIS_FORMAT);
}

TEST(Mp4Walker, DurationKeepsWholeSecondsOnly) {
    const Bytes moov = Moov({Mvhd(600, 59999), AacSound()});
    EXPECT_EQ(LoadMp4(FastStart(moov)).record.durationMs, 99000u);
}

TEST(Mp4Walker, ZeroTimeScaleGivesZeroDuration) {
    const Bytes moov = Moov({Mvhd(0, 59999), AacSound()});
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.durationMs, 0u);
}

TEST(Mp4Walker, FreeBeforeTheFirstTrakEndsTheWalkWithOk) {
    const Bytes moov = Moov({Mvhd(1000, 5000), Filler("free", 16), AacSound()});
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_OK);  // LoadTrak's "walk finished" is returned at once
    EXPECT_EQ(r.record.durationMs, 5000u);
    EXPECT_FALSE(r.audio);
    EXPECT_FALSE(r.video);
    EXPECT_STREQ(r.record.fileType, "");
    EXPECT_EQ(r.record.sampleRate, 0u);
}

TEST(Mp4Walker, MdatBeforeTheFirstTrakEndsTheWalkWithOk) {
    const Bytes moov = Moov({Mvhd(1000, 5000), Filler("mdat", 16), AacSound()});
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_FALSE(r.audio);
}

TEST(Mp4Walker, NonFtypFirstAtomIsSkippedAndMoovFound) {
    const Bytes file = Cat({Filler("wide", 8), Filler("skip", 100), AvMoov(), Filler("mdat", 5000)});
    ExpectAvValues(LoadMp4(file));
}

TEST(Mp4Walker, MoovAsTheFirstAtomIsEntered) {
    ExpectAvValues(LoadMp4(Cat({AvMoov(), Filler("mdat", 5000)})));
}

TEST(Mp4Walker, ZeroSizeFirstAtomMovesTheSearchOnByOneByte) {
    // 00 00 00 00 | 10 'f' 'r' 'e' 'e' ...: from offset 1 the bytes read as
    // a 16-byte "free" atom, after which "moov" stands at offset 17.
    ByteWriter w;
    w.be32(0).u8(0x10).str("free").fill(8);
    const Bytes file = Cat({w.data(), AvMoov(), Filler("mdat", 5000)});
    ASSERT_EQ(OffsetOf(file, "moov"), 17u);
    ExpectAvValues(LoadMp4(file));
}

TEST(Mp4Walker, ZeroSizeFtypFails) {
    const Bytes file = Cat({AtomSized(0, "ftyp", Bytes(16, 0x20)), AvMoov(), Filler("mdat", 5000)});
    EXPECT_EQ(LoadMp4(file).status, MFI_NOT_THIS_FORMAT);
}

TEST(Mp4Walker, ZeroSizeAtomWhileSearchingMoovFails) {
    const Bytes file = Cat({Ftyp(), AtomSized(0, "junk", Bytes(8, 1)), AvMoov(), Filler("mdat", 5000)});
    EXPECT_EQ(LoadMp4(file).status, MFI_NOT_THIS_FORMAT);
}

TEST(Mp4Walker, ZeroSizeMvhdFailsAfterWritingTheDuration) {
    const Bytes mvhd = Mvhd(600, 59999);
    Bytes broken = mvhd;
    broken[0] = broken[1] = broken[2] = broken[3] = 0;
    const Mp4Result r = LoadMp4(FastStart(Moov({broken, AacSound()})));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.record.durationMs, 99000u);
}

TEST(Mp4Walker, MvhdIsSearchedForByteByByte) {
    // Three stray bytes between the "moov" header and "mvhd".
    const Bytes moov = Box("moov", {Bytes{0xEE, 0xEE, 0xEE}, Mvhd(1000, 7000), AacSound()});
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.durationMs, 7000u);
    EXPECT_TRUE(r.audio);
}

TEST(Mp4Walker, ZeroSizeAtomInsideTrakEndsTheWalk) {
    // LoadTrakStruct does not move on a zero size: the walk would stand on
    // that atom for ever. It ends as if the data had run out; no track was
    // complete, so the file is refused.
    const Bytes stuck = Box("trak", {AtomSized(0, "tkhd", Bytes(84, 0)), Box("mdia", {})});
    const auto start = std::chrono::steady_clock::now();
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 4000), stuck, AacSound()})));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(r.record.durationMs, 4000u);
    EXPECT_FALSE(r.audio);
}

TEST(Mp4Walker, ZeroSizeAtomInsideALaterTrakKeepsTheTracksBefore) {
    const Bytes stuck = Box("trak", {AtomSized(0, "tkhd", Bytes(84, 0))});
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 4000), AacSound(), stuck})));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_TRUE(r.audio);
    EXPECT_EQ(r.record.bitRate, 128000u);
    EXPECT_STREQ(r.record.audioFormat, "MPEG-4 AAC LC");
}

TEST(Mp4Walker, SizesThatLeadBackInACircleEndTheWalk) {
    // 0xFFFFFFF8 moves the 32-bit cursor 8 bytes back onto "skip", whose
    // size leads forward again: the two atoms would alternate for ever.
    const Bytes circle = Cat({Filler("skip", 8), AtomSized(0xFFFFFFF8u, "back")});
    const Mp4Result none = LoadMp4(FastStart(Moov({Mvhd(1000, 4000), circle, AacSound()})));
    EXPECT_EQ(none.status, MFI_NOT_THIS_FORMAT);

    // Inside a track's tables (after a complete sound track), the same.
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Cat({Stsz(10, 100), circle}), 8000, 80000);
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), sound})));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_EQ(r.record.bitRate, 800u);
}

TEST(Mp4Walker, SizeReachingBeforeTheFileStartEndsTheSearch) {
    // While LoadMoov searches, 0xFFFF0000 moves the cursor 64 KB back as a
    // signed step: the refill's seek would land before the file's start and
    // fails, nothing is refilled, and the walk ends without a track.
    const Bytes file = Cat({Ftyp(), AtomSized(0xFFFF0000u, "back"), AvMoov(), Filler("mdat", 5000)});
    EXPECT_EQ(LoadMp4(file).status, MFI_NOT_THIS_FORMAT);
}

TEST(Mp4Walker, SizePastTheMovieEndEndsTheWalk) {
    const Bytes moov = Moov({Mvhd(1000, 10000), AacSound(), AtomSized(0x80000000u, "huge")});
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_TRUE(r.audio);
    EXPECT_EQ(r.record.bitRate, 128000u);
}

TEST(Mp4Walker, RefillThatReadsNothingFails) {
    // "moov" claims 1 MB: past the last table the walk goes on into "mdat",
    // skips it to the file's end, and the refill there reads nothing.
    Bytes moov = AvMoov();
    ByteWriter w;
    w.be32(1000000);
    std::copy(w.data().begin(), w.data().end(), moov.begin());
    const Mp4Result r = LoadMp4(FastStart(moov));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_TRUE(r.video);  // the tracks were read all the same
    EXPECT_TRUE(r.audio);
}

TEST(Mp4Walker, SecondTrackOfAKindIsMeasuredAfresh) {
    // "stbl" clears the kind's bit rate, so the last track of a kind counts.
    const Bytes second = SoundTrak(SoundEntry("samr", 1), Stsz(20, 400), 8000, 80000);
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), AacSound(), second})));
    EXPECT_EQ(r.record.bitRate, 6400u);  // 20 x 400 bytes in 10 s
    EXPECT_EQ(r.record.sampleRate, 8000u);
    EXPECT_STREQ(r.record.channelMode, "Mono");
    EXPECT_STREQ(r.record.audioCodec, "AMR");
}

TEST(Mp4Walker, TrackWithoutSampleSizesIsNotCounted) {
    const Bytes sound = Trak("soun", 8000, 80000, Stsd(SoundEntry("samr", 1)));
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), sound})));
    EXPECT_EQ(r.status, MFI_NOT_THIS_FORMAT);
    EXPECT_STREQ(r.record.audioCodec, "AMR");
    EXPECT_FALSE(r.audio);
}

}  // namespace

