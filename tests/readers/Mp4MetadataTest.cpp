// MP4 metadata: the udta / meta / ilst walk and the items copied into the
// record's tag fields.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "TestFiles.h"

namespace {

Bytes Sound() {
    return SoundTrak(SoundEntry("mp4a", 2, Esds({})), Stsz(0, 3, {1, 2, 3}), 44100, 441000);
}

// A movie-level "udta" after the only track: met while LoadStblStruct is current.
Mp4Result LoadTagged(const Bytes& items) {
    return LoadMp4(FastStart(Moov({Mvhd(1000, 10000), Sound(), Udta(items)})));
}

TEST(Mp4Metadata, TitleAndYearAreRead) {
    const Mp4Result r =
        LoadTagged(Cat({TextItem(Copyright("nam"), "Song"), TextItem(Copyright("day"), "2005-06-01")}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Song");
    EXPECT_STREQ(r.record.year, "2005");
    EXPECT_TRUE(r.tags);
    EXPECT_TRUE(r.audio);
}

TEST(Mp4Metadata, EveryTextItemFindsItsField) {
    const Mp4Result r = LoadTagged(Cat({
        TextItem(Copyright("ART"), "Artist"),
        TextItem(Copyright("alb"), "Album"),
        TextItem(Copyright("cmt"), "Comment"),
        TextItem(Copyright("wrt"), "Writer"),
        TextItem("gnre", "Jazz"),
        TextItem(Copyright("trk"), "12"),
    }));
    EXPECT_STREQ(r.record.artist, "Artist");
    EXPECT_STREQ(r.record.album, "Album");
    EXPECT_STREQ(r.record.comment, "Comment");
    EXPECT_STREQ(r.record.composer, "Writer");
    EXPECT_STREQ(r.record.genre, "Jazz");
    EXPECT_EQ(r.record.trackNumber, 12);
    EXPECT_STREQ(r.record.title, "clip");  // no title item: the file's name stays
    EXPECT_STREQ(r.record.lyrics, "");
    EXPECT_TRUE(r.tags);
}

TEST(Mp4Metadata, ComposerItemAfterWriterReplacesIt) {
    const Mp4Result r =
        LoadTagged(Cat({TextItem(Copyright("wrt"), "Writer"), TextItem(Copyright("com"), "Composer")}));
    EXPECT_STREQ(r.record.composer, "Composer");
}

TEST(Mp4Metadata, BinaryTrackNumberIsSkipped) {
    const Mp4Result r = LoadTagged(IlstItem("trkn", {0, 0, 0, 7, 0, 12, 0, 0}, 0));
    EXPECT_EQ(r.record.trackNumber, 0);
    EXPECT_FALSE(r.tags);
}

TEST(Mp4Metadata, TextTrackNumbersAreDecimal) {
    EXPECT_EQ(LoadTagged(TextItem("trkn", "7")).record.trackNumber, 7);
    EXPECT_EQ(LoadTagged(TextItem("trkn", "70000")).record.trackNumber, 70000 & 0xFFFF);
    EXPECT_EQ(LoadTagged(TextItem("trkn", "-1")).record.trackNumber, 0xFFFF);
    EXPECT_EQ(LoadTagged(TextItem("trkn", "9999999999")).record.trackNumber, 0xFFFF);  // saturated
    const Mp4Result text = LoadTagged(TextItem(Copyright("trk"), "abc"));
    EXPECT_EQ(text.record.trackNumber, 0);
    EXPECT_TRUE(text.tags);  // recognised all the same
}

TEST(Mp4Metadata, AnyFirstByteBeforeTheThreeLetterNames) {
    const Mp4Result r = LoadTagged(Cat({TextItem("Xnam", "Plain"), TextItem("!ART", "Bang")}));
    EXPECT_STREQ(r.record.title, "Plain");
    EXPECT_STREQ(r.record.artist, "Bang");
}

TEST(Mp4Metadata, UnknownNamesAreIgnored) {
    const Mp4Result r = LoadTagged(Cat({TextItem(Copyright("gen"), "Electronic"),
                                        TextItem(Copyright("too"), "Encoder"), TextItem("desc", "About")}));
    EXPECT_STREQ(r.record.genre, "");
    EXPECT_FALSE(r.tags);
    EXPECT_STREQ(r.record.title, "clip");
}

TEST(Mp4Metadata, ShortYearIsKeptWhole) {
    EXPECT_STREQ(LoadTagged(TextItem(Copyright("day"), "99")).record.year, "99");
}

TEST(Mp4Metadata, LongValuesAreCutTo127Characters) {
    const std::string longTitle(300, 'x');
    const Mp4Result r = LoadTagged(TextItem(Copyright("nam"), longTitle));
    EXPECT_EQ(std::string(r.record.title), std::string(127, 'x'));
}

TEST(Mp4Metadata, ValueStartingWithZeroIsSkipped) {
    const Mp4Result r = LoadTagged(IlstItem(Copyright("nam"), {0, 'a', 'b', 'c'}));
    EXPECT_STREQ(r.record.title, "clip");
    EXPECT_FALSE(r.tags);
}

TEST(Mp4Metadata, ValueWithAZeroInsideEndsThere) {
    EXPECT_STREQ(LoadTagged(IlstItem(Copyright("nam"), {'a', 'b', 0, 'c'})).record.title, "ab");
}

TEST(Mp4Metadata, MalformedItemEndsTheListSilently) {
    // A data atom of 16 bytes holds no value: the walk stops there.
    const Bytes tooShort = Atom(Copyright("cmt"), Atom("data", Bytes(8, 0)));
    const Mp4Result r = LoadTagged(
        Cat({TextItem(Copyright("nam"), "Song"), tooShort, TextItem(Copyright("ART"), "Lost")}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Song");
    EXPECT_STREQ(r.record.artist, "");

    const Bytes notData = Atom(Copyright("cmt"), Atom("name", Bytes(20, 'n')));
    const Mp4Result s = LoadTagged(Cat({notData, TextItem(Copyright("ART"), "Lost")}));
    EXPECT_STREQ(s.record.artist, "");
    EXPECT_STREQ(s.record.comment, "");
}

TEST(Mp4Metadata, ItemWalkReadsOneItemPastTheListsEnd) {
    // The walk over the items runs to the list's size counted from its
    // first item, 8 bytes past its end: an item-shaped atom right after the
    // list is read as one more item.
    ByteWriter meta;
    meta.be32(0).bytes(Hdlr("mdir", "")).bytes(Atom("ilst", TextItem(Copyright("nam"), "Song")));
    meta.bytes(TextItem(Copyright("ART"), "Ghost"));
    const Bytes udta = Box("udta", {Atom("meta", meta.data())});
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), Sound(), udta})));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Song");
    EXPECT_STREQ(r.record.artist, "Ghost");
}

// A movie whose "ilst" (4 items, `size` bytes) starts at file offset `at`.
Bytes IlstAt(size_t at, size_t* ilstSize) {
    const Bytes items = Cat({TextItem(Copyright("nam"), std::string(100, 'T')),
                             TextItem(Copyright("ART"), std::string(100, 'A')),
                             TextItem(Copyright("alb"), std::string(100, 'B')),
                             TextItem(Copyright("day"), "2001")});
    auto build = [&](uint32_t filler) {
        ByteWriter meta;
        meta.be32(0).bytes(Hdlr("mdir", "")).bytes(Filler("free", filler)).bytes(Atom("ilst", items));
        return FastStart(Moov({Mvhd(1000, 10000), Sound(), Box("udta", {Atom("meta", meta.data())})}), 9000);
    };
    *ilstSize = items.size() + 8;
    const size_t natural = OffsetOf(build(8), "ilst");
    return build(static_cast<uint32_t>(8 + at - natural));
}

TEST(Mp4Metadata, ListInsideTheBufferIsRead) {
    size_t size = 0;
    const Bytes file = IlstAt(3400, &size);
    ASSERT_EQ(OffsetOf(file, "ilst"), 3400u);
    ASSERT_LE(3400 + size, 4096u);
    const Mp4Result r = LoadMp4(file);
    EXPECT_EQ(r.record.title, std::string(100, 'T'));
    EXPECT_EQ(r.record.artist, std::string(100, 'A'));
    EXPECT_EQ(r.record.album, std::string(100, 'B'));
    EXPECT_STREQ(r.record.year, "2001");
    EXPECT_TRUE(r.tags);
}

TEST(Mp4Metadata, ListStraddlingTheBufferYieldsNoItems) {
    // Re-read from the "ilst" header, whose type is taken as the first
    // item's name; the next check finds no "data" and the walk stops.
    size_t size = 0;
    const Bytes file = IlstAt(3850, &size);
    ASSERT_EQ(OffsetOf(file, "ilst"), 3850u);
    ASSERT_GT(3850 + size, 4096u);
    const Mp4Result r = LoadMp4(file);
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "clip");
    EXPECT_STREQ(r.record.artist, "");
    EXPECT_STREQ(r.record.year, "");
    EXPECT_FALSE(r.tags);
    EXPECT_EQ(r.record.bitRate, 128000u);
}

TEST(Mp4Metadata, UdtaBeforeTheFirstTrakIsSkippedUnread) {
    const Bytes udta = Udta(TextItem(Copyright("nam"), "Hidden"));
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), udta, Sound()})));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "clip");
    EXPECT_FALSE(r.tags);
    EXPECT_TRUE(r.audio);
}

TEST(Mp4Metadata, TrackUdtaIsReadAndTheNextTrakWalked) {
    // A "udta" inside the first track, after its "mdia": read, and the
    // following "trak" is entered straight from LoadMetaStruct.
    const Bytes sound = Box("trak", {Filler("tkhd", 92),
                                     Box("mdia", {Mdhd(44100, 441000), Hdlr("soun"),
                                                  Box("minf", {Box("stbl", {Stsd(SoundEntry("mp4a", 2, Esds({}))),
                                                                            Stsz(0, 1, {1})})})}),
                                     Udta(TextItem(Copyright("nam"), "Track tag"))});
    const Bytes video = VideoTrak(VisualEntry("avc1", 64, 48, AvcC(66, 0xC0, 30)), Stsz(100, 250), 600, 6000);
    const Mp4Result r = LoadMp4(FastStart(Moov({Mvhd(1000, 10000), sound, video})));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Track tag");
    EXPECT_TRUE(r.audio);
    EXPECT_TRUE(r.video);
    EXPECT_EQ(r.record.width, 64);
    EXPECT_EQ(r.record.height, 48);
}

TEST(Mp4Metadata, ZeroSizeAtomsInsideMetaFailTheWalk) {
    ByteWriter meta;
    meta.be32(0).bytes(Hdlr("mdir", "")).bytes(AtomSized(0, "ilst", TextItem(Copyright("nam"), "Song")));
    const Bytes udta = Box("udta", {Atom("meta", meta.data())});
    EXPECT_EQ(LoadMp4(FastStart(Moov({Mvhd(1000, 10000), Sound(), udta}))).status, MFI_NOT_THIS_FORMAT);
}

TEST(Mp4Metadata, SaveIgnoresNullArguments) {
    HandlerBench bench;
    bench.reader.SaveMp4Id3Info(nullptr, "x");
    bench.reader.SaveMp4Id3Info("\xA9nam", nullptr);
    EXPECT_EQ(bench.reader.HasId3Info(), 0);
    bench.reader.SaveMp4Id3Info("\xA9nam", "Direct");
    EXPECT_STREQ(bench.record().title, "Direct");
    EXPECT_EQ(bench.reader.HasId3Info(), 1);
    EXPECT_EQ(bench.reader.GetMp4MusicInfo(nullptr, 10), -1);
}

TEST(Mp4Metadata, ValueRunningPastWhatWasReadKeepsItsTextAndEndsTheList) {
    // The album's "data" announces 0x80000000 bytes: its text is what was
    // read, up to the first zero; the walk then moves on by the announced
    // size, past the list, so the artist after it is not reached.
    ByteWriter album;
    album.be32(0x80000018u).str(Copyright("alb")).be32(0x80000000u).str("data").be32(1).be32(0).str("Mp4 Album");
    const Mp4Result r = LoadTagged(Cat({TextItem(Copyright("nam"), "Song"), album.data(),
                                        Bytes(4, 0), TextItem(Copyright("ART"), "Artist")}));
    EXPECT_EQ(r.status, MFI_OK);
    EXPECT_STREQ(r.record.title, "Song");
    EXPECT_STREQ(r.record.album, "Mp4 Album");
    EXPECT_STREQ(r.record.artist, "");
    EXPECT_TRUE(r.tags);
}

TEST(Mp4Metadata, ValueRunningPastTheListsBytesKeepsWhatTheyHold) {
    // A list handed in from outside the walk's buffer is all the walk has:
    // a value announcing 240 bytes keeps the 3 the list holds.
    HandlerBench bench;
    ByteWriter items;
    items.be32(0).str(Copyright("nam")).be32(0x100u).str("data").be32(1).be32(0).str("Cut");
    const Bytes list = items.data();
    ASSERT_EQ(list.size(), 27u);
    ASSERT_EQ(bench.reader.GetMp4MusicInfo(const_cast<unsigned char*>(list.data()),
                                           static_cast<unsigned int>(list.size())), 1);
    EXPECT_STREQ(bench.record().title, "Cut");
}

TEST(Mp4Metadata, ListMadeHugeStaysInsideTheBuffer) {
    // A size of 0xFFFFFFF0 wraps the 32-bit end check, so the list is
    // walked in place: the items found are read, and the walk stops where
    // the buffer ends.
    HandlerBench bench;
    bench.Put(Cat({AtomSized(0xFFFFFFF0u, "ilst"), TextItem(Copyright("nam"), "Song")}), 100);
    EXPECT_EQ(bench.reader.GetMp4MusicInfo(bench.buffer + 108, 0xFFFFFFF0u), 1);
    EXPECT_STREQ(bench.record().title, "Song");
}

}  // namespace
