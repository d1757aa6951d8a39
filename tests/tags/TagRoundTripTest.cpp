// Writing tags through the readers and reading them back. Every value is
// what the tag writer stores and the tag reader then takes from it:
// - ID3v1 as written: texts of up to 29 bytes, the comment over the year at
//   byte 93, the track's low 8 bits at 126, the genre index at 127 (148 for
//   an unknown or empty genre). Read back, the year is bytes 93..96 (the
//   comment's first four characters), the comment starts at byte 97, and the
//   track byte is signed.
// - ID3v2 as written: version 3, frames with an 11-byte header whose size
//   is text length + 1; existing frames take the new texts, a genre or track
//   frame takes one raw byte, at most one missing frame is appended. Read
//   back, ID3v2 values replace ID3v1 values except a non-zero track, a
//   comment frame loses its first five text characters, a genre frame is
//   the table row of its first byte, and the composer is never read.
// - The file is moved in place: growing adds the size change plus one
//   1024-byte block to the file, shrinking keeps its length.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <type_traits>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "AiffBuilder.h"
#include "Id3Builder.h"
#include "MediaFileInfo.h"
#include "Mp3Builder.h"
#include "Mp3Info.h"
#include "TagRoundTrip.h"
#include "TestFiles.h"
#include "WavBuilder.h"

namespace {

// 24 CD-quality frames padded with zeros to 12288 bytes.
Bytes Mp3Audio() { return PadTo(Mp3Frames(Mp3Header{}, 417, 24), 3 * 4096); }
// 100 ADTS frames of 372 bytes: 37200 bytes.
Bytes AacAudio() { return AdtsStream(AdtsFields{}, 100); }

// A reader, and whether it is given an MP3 stream or an AAC one.
template <class R, bool kMp3>
struct ReaderAndStream {
    using Reader = R;
    static Bytes Audio() { return kMp3 ? Mp3Audio() : AacAudio(); }
    static std::string Name() { return kMp3 ? "song.mp3" : "song.aac"; }
};

template <class Kind>
class TagRoundTrip : public testing::Test {
protected:
    using Reader = typename Kind::Reader;

    // The file: what comes before the audio, the audio, what comes after.
    std::string Write(const Bytes& before, const Bytes& after = {}) {
        audioSize_ = Kind::Audio().size();
        return dir_.write(Kind::Name(), Join({before, Kind::Audio(), after}));
    }
    RoundTrip WriteTags(const std::string& path, const Tags& t) { return WriteTagsAndReload<Reader>(path, t); }
    RoundTrip Change(const std::string& path, const std::function<void(MediaFileInfo_st&)>& change) {
        return WriteAndReload<Reader>(path, change);
    }
    // Loads the file, lets `meddle` change what lies at its path, then hands
    // the loaded record back to SetId3Info.
    int SetAfter(const std::string& path, const std::function<void(const std::string&)>& meddle) {
        Reader reader;
        EXPECT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
        MediaFileInfo_st record = *reader.GetFileInfo();
        meddle(path);
        return reader.SetId3Info(&record);
    }
    size_t audioSize_ = 0;
    TempDir dir_;
};

using Kinds = testing::Types<ReaderAndStream<Mp3Info, true>, ReaderAndStream<AacInfo, false>,
                             ReaderAndStream<MediaFileInfo, true>, ReaderAndStream<MediaFileInfo, false>>;
class KindNames {
public:
    template <class T>
    static std::string GetName(int) {
        const std::string stream = T::Name() == "song.mp3" ? "Mp3" : "Aac";
        if (std::is_same<typename T::Reader, MediaFileInfo>()) return "Facade" + stream;
        return stream + "Info";
    }
};
TYPED_TEST_SUITE(TagRoundTrip, Kinds, KindNames);

Bytes Slice(const Bytes& b, size_t from, size_t n) {
    return Bytes(b.begin() + static_cast<long>(from), b.begin() + static_cast<long>(from + n));
}

// The 10-byte ID3v2 header the writer puts at offset 0.
Bytes WrittenHeader(uint8_t size2, uint8_t size3) { return Bytes{'I', 'D', '3', 3, 0, 0, 0, 0, size2, size3}; }

// An 11-byte frame header as written, then the text.
Bytes WrittenFrame(const std::string& id, const std::string& text) {
    ByteWriter w;
    w.fixed(id, 4).be32(static_cast<uint32_t>(text.size() + 1)).be16(0).u8(0).str(text);
    return w.take();
}

// A change that gives the record a new title and nothing else.
std::function<void(MediaFileInfo_st&)> NewTitle(const std::string& title) {
    return [title](MediaFileInfo_st& f) { MediaFileInfoBase::CopyField(f.title, title.c_str()); };
}

constexpr Tags kNoTags = {"song", "", "", "", "", "", "", "", 0};

TYPED_TEST(TagRoundTrip, FileWithoutTagsGainsAnId3v1TagAndATitleFrame) {
    const std::string path = this->Write({});
    const RoundTrip r = this->WriteTags(path, {"New", "Art", "Alb", "Rock", "Lyr", "1999", "Hello world", "Comp", 5});
    ASSERT_EQ(r.loadStatus, MFI_OK);
    ExpectTags(r.loaded, kNoTags);
    EXPECT_EQ(r.setStatus, MFI_OK);
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // Only the title frame is appended (the first missing one): lyrics and
    // composer have no frame; the year is the comment's first four letters.
    ExpectTags(r.reloaded, {"New", "Art", "Alb", "Rock", "", "Hell", "o world", "", 5});
    // Tag size 14: one frame of 11 + 3 bytes. The file grows by 128 (ID3v1),
    // 14 and one block.
    EXPECT_EQ(Slice(r.file, 0, 24), Join({WrittenHeader(0, 14), WrittenFrame("TIT2", "New")}));
    EXPECT_EQ(r.file.size(), this->audioSize_ + 128 + 14 + 1024);
    EXPECT_EQ(r.reloaded.fileSize, r.file.size());
    const Bytes v1 = Slice(r.file, r.file.size() - 128, 128);
    EXPECT_EQ(Slice(v1, 0, 6), (Bytes{'T', 'A', 'G', 'N', 'e', 'w'}));
    EXPECT_EQ(Slice(v1, 93, 12), (Bytes{'H', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', 0}));
    EXPECT_EQ(v1[126], 5);
    EXPECT_EQ(v1[127], 17);  // Rock
}

// An ID3v2.3 tag written by another tagger over an ID3v1 tag.
Bytes TaggersId3v23() {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Old"),  TextFrame("TPE1", "Singer"),
                TextFrame("TCON", "Rock"), TextFrame("TRCK", "7"),
                CommentFrame("COMM", "eng", "Hello there"), TextFrame("TYER", "2001")};
    s.padding = 16;
    return BuildId3v2(s);  // body: 99 bytes of frames and 16 of padding
}
Bytes TaggersId3v1() { return BuildId3v1(Id3v1Fields{"V1 Title", "V1 Artist", "V1 Album", "1990", "v1 note", 4, 13}); }

// What the readers take from that pair: "Rock" begins with 'R' (82), the
// comment loses its first letter, the ID3v1 track 4 wins over "7".
constexpr Tags kTaggersTags = {"Old", "Singer", "V1 Album", "National Folk", "", "2001", "ello there", "", 4};
constexpr Tags kNewTags = {"A much longer title", "Singer", "New Album", "Jazz", "la la", "1984", "Sunny days",
                           "Writer", 9};
// Title +16, genre frame "Rock" -> byte 17 (-3), album frame appended (+20):
// the tag grows by 33 to 148.
constexpr Tags kAfterFirstWrite = {"A much longer title", "Singer", "New Album", "Rock", "", "1984", " days", "", 9};

TYPED_TEST(TagRoundTrip, TaggersId3v23TagIsRewrittenInPlace) {
    const std::string path = this->Write(TaggersId3v23(), TaggersId3v1());
    const RoundTrip r = this->WriteTags(path, kNewTags);
    ASSERT_EQ(r.loadStatus, MFI_OK);
    ExpectTags(r.loaded, kTaggersTags);
    EXPECT_EQ(r.setStatus, MFI_OK);
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // The genre frame keeps its own genre (Rock), not the record's Jazz,
    // which only ID3v1 holds; the comment frame reads from its sixth letter;
    // lyrics and composer got no frame.
    ExpectTags(r.reloaded, kAfterFirstWrite);
    EXPECT_EQ(Slice(r.file, 0, 10), WrittenHeader(1, 20));  // 148 = 1 * 128 + 20
    const Bytes frames = Join({WrittenFrame("TIT2", "A much longer title"), WrittenFrame("TPE1", "Singer"),
                               WrittenFrame("TCON", "\x11"), WrittenFrame("TRCK", "\x09"),
                               WrittenFrame("COMM", "Sunny days"), WrittenFrame("TYER", "1984"),
                               WrittenFrame("TALB", "New Album")});
    EXPECT_EQ(Slice(r.file, 10, frames.size()), frames);
    EXPECT_EQ(r.file.size(), 10 + 115 + this->audioSize_ + 128 + 33 + 1024);
    const Bytes v1 = Slice(r.file, r.file.size() - 128, 128);
    EXPECT_EQ(v1[127], 8);  // Jazz
    EXPECT_EQ(v1[126], 9);
}

TYPED_TEST(TagRoundTrip, SecondWriteDropsTheGenreFrameTheFirstOneWrote) {
    const std::string path = this->Write(TaggersId3v23(), TaggersId3v1());
    ASSERT_EQ(this->WriteTags(path, kNewTags).setStatus, MFI_OK);
    // The record as read back, written again unchanged: the one-byte genre
    // names no genre and its frame goes; the lyrics frame is appended empty
    // (+11, tag 159); the five-letter comment " days" gives a comment frame
    // of size 6, which reads as empty, and an ID3v1 year " day".
    const RoundTrip r = this->Change(path, [](MediaFileInfo_st&) {});
    ExpectTags(r.loaded, kAfterFirstWrite);
    EXPECT_EQ(r.setStatus, MFI_OK);
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    ExpectTags(r.reloaded, {"A much longer title", "Singer", "New Album", "Rock", "", "1984", "", "", 9});
    EXPECT_EQ(Slice(r.file, 0, 10), WrittenHeader(1, 31));  // 159
    const Bytes frames = Join({WrittenFrame("TIT2", "A much longer title"), WrittenFrame("TPE1", "Singer"),
                               WrittenFrame("TRCK", "\x09"), WrittenFrame("COMM", " days"),
                               WrittenFrame("TYER", "1984"), WrittenFrame("TALB", "New Album"),
                               WrittenFrame("USLT", "")});
    EXPECT_EQ(Slice(r.file, 10, frames.size()), frames);
    EXPECT_EQ(r.file.size(), 10 + 115 + this->audioSize_ + 128 + 33 + 1024 + 11 + 1024);
}

TYPED_TEST(TagRoundTrip, Id3v22FramesAreWrittenBackUnderTheirThreeLetterIds) {
    Id3v2Fields s;
    s.majorVersion = 2;
    s.frames = {TextFrame("TT2", "Old"), TextFrame("TP1", "Band")};
    s.padding = 20;  // body 41
    const std::string path =
        this->Write(BuildId3v2(s), BuildId3v1(Id3v1Fields{"V1 Title", "V1 Artist", "V1 Album", "1990", "note", 4, 13}));
    const RoundTrip r = this->Change(path, NewTitle("New title"));
    ASSERT_EQ(r.loadStatus, MFI_OK);
    ExpectTags(r.loaded, {"Old", "Band", "V1 Album", "Pop", "", "1990", "note", "", 4});
    EXPECT_EQ(r.setStatus, MFI_OK);
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // The tag comes back as version 3 holding "TT2\0" and "TP1\0", which the
    // ID3v2.3 scan does not know: title and artist come from ID3v1. The
    // appended album frame counted 7 + 8 bytes and still lies inside the
    // 62-byte tag. The comment "note" is the ID3v1 year now.
    ExpectTags(r.reloaded, {"New title", "Band", "V1 Album", "Pop", "", "note", "", "", 4});
    const Bytes written = Join({WrittenHeader(0, 62), WrittenFrame("TT2", "New title"), WrittenFrame("TP1", "Band"),
                                WrittenFrame("TALB", "V1 Album")});
    EXPECT_EQ(Slice(r.file, 0, written.size()), written);
    EXPECT_EQ(r.file.size(), 10 + 41 + this->audioSize_ + 128 + 21 + 1024);
}

TYPED_TEST(TagRoundTrip, Id3v2OnlyFileShrinksItsTagAndGainsAnId3v1Tag) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "A long old title"), TextFrame("TPE1", "Artist"), TextFrame("TALB", "Album")};
    const std::string path = this->Write(BuildId3v2(s));  // body 60, no padding
    const RoundTrip r = this->Change(path, NewTitle("Short"));
    ASSERT_EQ(r.loadStatus, MFI_OK);
    // Without an ID3v1 tag nothing was copied: artist and album are empty in
    // the record, so the write empties their frames.
    ExpectTags(r.loaded, kNoTags);
    EXPECT_EQ(r.setStatus, MFI_OK);
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // -11 - 6 - 5, then an empty genre frame appended (+12): tag 50. The
    // empty genre frame reads as row 0.
    ExpectTags(r.reloaded, {"Short", "", "", "Blues", "", "", "", "", 0});
    const Bytes written = Join({WrittenHeader(0, 50), WrittenFrame("TIT2", "Short"), WrittenFrame("TPE1", ""),
                                WrittenFrame("TALB", ""), WrittenFrame("TCON", "")});
    EXPECT_EQ(Slice(r.file, 0, written.size()), written);
    // Shrinking never truncates: only the appended ID3v1 tag adds bytes.
    EXPECT_EQ(r.file.size(), 10 + 60 + this->audioSize_ + 128);
    EXPECT_EQ(r.file.back(), 148);  // the empty genre
}

TYPED_TEST(TagRoundTrip, TrackAbove127ReadsBackAsANegativeByte) {
    const std::string path = this->Write({});
    const RoundTrip r = this->Change(path, [](MediaFileInfo_st& f) {
        MediaFileInfoBase::CopyField(f.title, "T");
        f.trackNumber = 200;
    });
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // ID3v1 byte 126 = 200, read as -56, stored in 16 bits.
    ExpectTags(r.reloaded, {"T", "", "", "", "", "", "", "", 65480});
}

TYPED_TEST(TagRoundTrip, TrackKeepsOnlyItsLowEightBits) {
    const std::string path = this->Write({});
    const RoundTrip r = this->Change(path, [](MediaFileInfo_st& f) { f.trackNumber = 300; });
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    // The record's title was the file name; it is written as the tag title.
    ExpectTags(r.reloaded, {"song", "", "", "", "", "", "", "", 44});
}

TYPED_TEST(TagRoundTrip, LongTitleKeepsAll127CharactersInTheId3v2Frame) {
    const std::string path = this->Write({});
    const std::string title(127, 'x');
    const RoundTrip r = this->Change(path, NewTitle(title));
    ASSERT_EQ(r.reloadStatus, MFI_OK);
    EXPECT_EQ(std::string(r.reloaded.title), title);  // ID3v1 holds 29 of them
    EXPECT_EQ(Slice(r.file, 0, 18), Join({WrittenHeader(1, 10), Bytes{'T', 'I', 'T', '2', 0, 0, 1, 0}}));  // 138; 128
}

TYPED_TEST(TagRoundTrip, DeletedFileCannotBeOpenedForWriting) {
    const std::string path = this->Write({});
    EXPECT_EQ(this->SetAfter(path, [](const std::string& p) { ASSERT_EQ(std::remove(p.c_str()), 0); }),
              MFI_OPEN_FAILED);
    EXPECT_FALSE(std::filesystem::exists(path));
}

TYPED_TEST(TagRoundTrip, FileReplacedByADirectoryCannotBeOpenedForWriting) {
    const std::string path = this->Write({});
    EXPECT_EQ(this->SetAfter(path,
                             [](const std::string& p) {
                                 ASSERT_EQ(std::remove(p.c_str()), 0);
                                 ASSERT_TRUE(std::filesystem::create_directory(p));
                             }),
              MFI_OPEN_FAILED);
    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TYPED_TEST(TagRoundTrip, NullRecordIsABadArgumentAndWritesNothing) {
    const std::string path = this->Write({});
    const Bytes before = ReadAll(path);
    typename TestFixture::Reader reader;
    ASSERT_EQ(reader.LoadFile(path.c_str()), MFI_OK);
    EXPECT_EQ(reader.SetId3Info(nullptr), MFI_BAD_ARGUMENT);
    EXPECT_EQ(ReadAll(path), before);
}

TYPED_TEST(TagRoundTrip, ReaderThatNeverLoadedWritesNothing) {
    typename TestFixture::Reader reader;
    MediaFileInfo_st record;
    EXPECT_EQ(reader.SetId3Info(&record), MFI_UNREADABLE);
}

// A reader keeps its tag object after refusing a file: the write goes
// ahead, appends an ID3v1 tag and then fails to seek a block before the end
// of a file shorter than a block (8).
template <class Reader>
void ExpectRefusedFileIsStillWritten(const std::string& name) {
    TempDir dir;
    const std::string path = dir.write(name, Bytes(100, 0x20));
    Reader reader;
    ASSERT_EQ(reader.LoadFile(path.c_str()), MFI_SHORT_FILE);
    MediaFileInfo_st record = *reader.GetFileInfo();
    MediaFileInfoBase::CopyField(record.title, "T");
    EXPECT_EQ(reader.SetId3Info(&record), MFI_SEEK_FAILED);
    const Bytes after = ReadAll(path);
    ASSERT_EQ(after.size(), 228u);
    EXPECT_EQ(Slice(after, 100, 4), (Bytes{'T', 'A', 'G', 'T'}));
}

TEST(TagWrite, Mp3ReaderThatRefusedItsFileStillWrites) { ExpectRefusedFileIsStillWritten<Mp3Info>("x.mp3"); }

TEST(TagWrite, AacReaderThatRefusedItsFileStillWrites) { ExpectRefusedFileIsStillWritten<AacInfo>("x.aac"); }

// Formats without tags answer 0 and leave the file as it was.
void ExpectStoresNoTags(const std::string& name, const Bytes& bytes) {
    TempDir dir;
    const std::string path = dir.write(name, bytes);
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(path.c_str()), MFI_OK);
    MediaFileInfo_st record = *facade.GetFileInfo();
    SetTags(record, kNewTags);
    EXPECT_EQ(facade.SetId3Info(&record), MFI_UNREADABLE);
    EXPECT_EQ(ReadAll(path), bytes);
}

TEST(TagWrite, WavStoresNoTags) {
    WavFields s;
    s.dataBytes = 4000;
    s.writeData = true;
    ExpectStoresNoTags("a.wav", BuildWav(s));
}

TEST(TagWrite, AiffStoresNoTags) {
    ExpectStoresNoTags("a.aif", AiffBuilder().comm(1, 16, 8000.0).ssnd(0, 400).build());
}

TEST(TagWrite, Mp3TakenByTheLenientAiffReaderStoresNoTags) {
    // Named .wav, an MP3 stream is let through by the AIFF reader first.
    ExpectStoresNoTags("a.wav", Join({Mp3Audio(), TaggersId3v1()}));
}

}  // namespace
