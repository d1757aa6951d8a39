// ID3 tags as the readings take them: ID3v1 and v1.1 trailers, ID3v2.2 to
// 2.4 frames in their four encodings, unsynchronisation, extended headers,
// compressed and encrypted frames, genre references, and sizes that lie.
// Expected texts are those mutagen gives for the same bytes, except where a
// test says otherwise.
#include <zlib.h>

#include <gtest/gtest.h>

#include <string>

#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "MpegTestHelpers.h"
#include "media/Id3.h"

namespace {

using fileinfo::media::Id3GenreName;
using fileinfo::media::Id3v2TagSize;
using fileinfo::media::ParseId3v1;
using fileinfo::media::ParseId3v2;
using fileinfo::media::Tags;

Tags ParseV2(const Bytes& tag) {
    Tags tags;
    EXPECT_TRUE(ParseId3v2(tag.data(), tag.size(), tags));
    return tags;
}

Id3Frame Encoded(const std::string& id, uint8_t encoding, const Bytes& text) {
    Id3Frame f{id, {encoding}};
    f.data.insert(f.data.end(), text.begin(), text.end());
    return f;
}

Bytes Utf8(const std::string& s) { return Bytes(s.begin(), s.end()); }

// What a tagger does to a tag body before it sets the unsynchronisation
// flag: a zero after every 0xFF that a false sync or a zero follows.
Bytes Unsynchronise(const Bytes& in) {
    Bytes out;
    for (size_t i = 0; i < in.size(); ++i) {
        out.push_back(in[i]);
        if (in[i] == 0xFF && (i + 1 == in.size() || in[i + 1] >= 0xE0 || in[i + 1] == 0)) out.push_back(0);
    }
    return out;
}

// A whole tag whose body is given as is, with the tag size written for it.
Bytes TagWithBody(int version, unsigned flags, const Bytes& body) {
    ByteWriter w;
    w.str("ID3").u8(static_cast<unsigned>(version)).u8(0).u8(flags);
    PutSyncSafe(w, static_cast<uint32_t>(body.size()));
    w.bytes(body);
    return w.take();
}

Bytes FramesOnly(const Id3v2Fields& fields) {
    const Bytes tag = BuildId3v2(fields);
    return Bytes(tag.begin() + 10, tag.end());
}

// A short MPEG 1 Layer III stream to put behind tags: 10 frames of 384
// bytes, 128 kbit/s at 48 kHz, 240 ms.
Bytes Audio() {
    Mp3Header h;
    h.sampleRateIndex = 1;
    return Mp3Frames(h, 384, 10);
}

TEST(Id3v2, V24Utf8TagGivesEveryField) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {Encoded("TIT2", 3, Utf8("Grüße aus Köln")),
                Encoded("TPE1", 3, Utf8("Ænima ♪")),
                Encoded("TALB", 3, Utf8("Album 𝄞")),
                Encoded("TCON", 3, Utf8("(17)")),
                Encoded("TDRC", 3, Utf8("2021-05-01")),
                Encoded("TRCK", 3, Utf8("3/12")),
                Encoded("TCOM", 3, Utf8("Komponist")),
                Encoded("COMM", 3, Raw("eng\0a comment"))};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "Grüße aus Köln");
    EXPECT_EQ(t.artist, "Ænima ♪");
    EXPECT_EQ(t.album, "Album 𝄞");
    EXPECT_EQ(t.genre, "Rock");
    EXPECT_EQ(t.year, "2021");
    EXPECT_EQ(t.track, 3u);
    EXPECT_EQ(t.track_total, 12u);
    EXPECT_EQ(t.composer, "Komponist");
    EXPECT_EQ(t.comment, "a comment");
}

TEST(Id3v2, V23FramesInLatin1BecomeUtf8) {
    Id3v2Fields s;
    s.frames = {Encoded("TIT2", 0, Raw("Caf\xe9")), TextFrame("TYER", "1999"), TextFrame("TRCK", "07")};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "Café");
    EXPECT_EQ(t.year, "1999");
    EXPECT_EQ(t.track, 7u);
    EXPECT_EQ(t.track_total, 0u);
}

// Found by fuzzing: a year cut to four bytes split the UTF-8 of "ÿ".
TEST(Id3v2, YearIsCutByCharactersNotBytes) {
    Id3v2Fields s;
    s.frames = {Encoded("TYER", 0, Raw("202\xff"))};
    EXPECT_EQ(ParseV2(BuildId3v2(s)).year, "202\xC3\xBF");
}

TEST(Id3v2, V22ThreeLetterFrames) {
    Id3v2Fields s;
    s.majorVersion = 2;
    s.frames = {TextFrame("TT2", "Old Title"), TextFrame("TP1", "Old Artist"), TextFrame("TAL", "Old Album"),
                TextFrame("TCO", "(8)"),       TextFrame("TYE", "1987"),       TextFrame("TRK", "2/9"),
                TextFrame("TCM", "Writer"),    CommentFrame("COM", "eng", "old note")};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "Old Title");
    EXPECT_EQ(t.artist, "Old Artist");
    EXPECT_EQ(t.album, "Old Album");
    EXPECT_EQ(t.genre, "Jazz");
    EXPECT_EQ(t.year, "1987");
    EXPECT_EQ(t.track, 2u);
    EXPECT_EQ(t.track_total, 9u);
    EXPECT_EQ(t.composer, "Writer");
    EXPECT_EQ(t.comment, "old note");
}

TEST(Id3v2, Utf16WithoutByteOrderMarkIsLittleEndian) {
    Id3v2Fields s;
    s.frames = {Encoded("TIT2", 1, Raw("H\0\xe9\0l\0l\0o\0")), Encoded("TPE1", 1, Raw("\0H\0i"))};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "Héllo");
    // Big-endian bytes without a mark read as little-endian, as mutagen reads them.
    EXPECT_EQ(t.artist, "\xe4\xa0\x80\xe6\xa4\x80");  // U+4800 U+6900
}

TEST(Id3v2, Utf16FollowsItsByteOrderMark) {
    Id3v2Fields s;
    s.frames = {Encoded("TIT2", 1, Raw("\xfe\xff\0H\0\xe9")), Encoded("TPE1", 1, Raw("\xff\xfeH\0\xe9\0"))};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "Hé");
    EXPECT_EQ(t.artist, "Hé");
}

TEST(Id3v2, Utf16BigEndianWithSurrogatePair) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {Encoded("TIT2", 2, Raw("\xd8\x34\xdd\x1e\0!"))};
    EXPECT_EQ(ParseV2(BuildId3v2(s)).title, "𝄞!");
}

TEST(Id3v2, InvalidSequencesBecomeReplacementCharacters) {
    // mutagen refuses such frames whole; a reading keeps what can be read.
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {Encoded("TIT2", 3, Raw("a\xc3(b\xff")), Encoded("TPE1", 1, Raw("\xff\xfe\x00\xdcx\0"))};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.title, "a\xef\xbf\xbd(b\xef\xbf\xbd");
    EXPECT_EQ(t.artist, "\xef\xbf\xbdx");  // a lone low surrogate
}

TEST(Id3v2, V23TextEndsAtFirstNul) {
    Id3v2Fields s;
    s.frames = {Encoded("TIT2", 0, Raw("First\0Second"))};
    EXPECT_EQ(ParseV2(BuildId3v2(s)).title, "First");
}

TEST(Id3v2, V24MultipleValuesAreJoinedWithSlashes) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {Encoded("TPE1", 3, Raw("One\0Two\0Three\0")), Encoded("TCOM", 1, Raw("\xff\xfex\0\0\0y\0"))};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.artist, "One / Two / Three");
    EXPECT_EQ(t.composer, "x / y");
}

TEST(Id3v2, GenreReferencesResolveAsMutagenDoes) {
    const struct {
        const char* value;
        const char* genre;
    } cases[] = {{"(17)", "Rock"},     {"(17)Rock", "Rock"}, {"17", "Rock"},           {"(RX)", "Remix"},
                 {"(CR)", "Cover"},    {"RX", "Remix"},      {"(17)(18)", "Rock / Techno"},
                 {"(17)Foo", "Rock / Foo"}, {"(255)", "Unknown"}, {"((Foo)", "(Foo)"}, {"Synthpop", "Synthpop"}};
    for (const auto& c : cases) {
        Id3v2Fields s;
        s.frames = {TextFrame("TCON", c.value)};
        EXPECT_EQ(ParseV2(BuildId3v2(s)).genre, c.genre) << c.value;
    }
}

TEST(Id3v2, CommentWithoutDescriptorWins) {
    Id3v2Fields s;
    s.frames = {RawFrame("COMM", Raw("\0engiTunNORM\0 0000")), CommentFrame("COMM", "eng", "the real one")};
    EXPECT_EQ(ParseV2(BuildId3v2(s)).comment, "the real one");
    s.frames = {RawFrame("COMM", Raw("\0engNote\0described"))};
    EXPECT_EQ(ParseV2(BuildId3v2(s)).comment, "described");
}

TEST(Id3v2, V23WholeTagUnsynchronisation) {
    Id3v2Fields s;
    s.frames = {Encoded("TIT2", 0, Raw("\xff\xe9t\xe9")), TextFrame("TPE1", "After")};
    const Bytes body = Unsynchronise(FramesOnly(s));
    ASSERT_GT(body.size(), FramesOnly(s).size());
    const Tags t = ParseV2(TagWithBody(3, 0x80, body));
    EXPECT_EQ(t.title, "ÿété");
    EXPECT_EQ(t.artist, "After");
}

TEST(Id3v2, V22WholeTagUnsynchronisation) {
    Id3v2Fields s;
    s.majorVersion = 2;
    // Before v2.4 a text frame holds one value, ended by its first NUL
    // (mutagen shows every NUL-separated part, "ÿ / ÿ").
    s.frames = {Encoded("TT2", 0, Raw("\xff\0\xff")), TextFrame("TP1", "Next")};
    const Tags t = ParseV2(TagWithBody(2, 0x80, Unsynchronise(FramesOnly(s))));
    EXPECT_EQ(t.title, "ÿ");
    EXPECT_EQ(t.artist, "Next");
}

TEST(Id3v2, V24FrameUnsynchronisationAndDataLength) {
    const Bytes data = Unsynchronise(Raw("\0\xff\xe0ok"));
    ByteWriter frame;
    frame.str("TIT2");
    PutSyncSafe(frame, static_cast<uint32_t>(data.size() + 4));
    frame.u8(0).u8(0x03);  // unsynchronised, with a data length indicator
    PutSyncSafe(frame, 5);
    frame.bytes(data);
    ByteWriter next;
    next.str("TPE1").u8(0).u8(0).u8(0).u8(3).be16(0).u8(0).str("Me");
    const Tags t = ParseV2(TagWithBody(4, 0, Join({frame.data(), next.data()})));
    EXPECT_EQ(t.title, "\xc3\xbf\xc3\xa0ok");
    EXPECT_EQ(t.artist, "Me");
}

TEST(Id3v2, V23ExtendedHeaderIsSkipped) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Behind the header")};
    ByteWriter body;
    body.be32(10).be16(0x8000).be32(0).be32(0x12345678);  // size without itself, flags, padding, CRC
    body.bytes(FramesOnly(s));
    EXPECT_EQ(ParseV2(TagWithBody(3, 0x40, body.data())).title, "Behind the header");
}

TEST(Id3v2, V24ExtendedHeaderIsSkipped) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {TextFrame("TIT2", "Behind the v2.4 header")};
    ByteWriter body;
    PutSyncSafe(body, 6);  // the whole extended header, sync-safe
    body.u8(1).u8(0);
    body.bytes(FramesOnly(s));
    EXPECT_EQ(ParseV2(TagWithBody(4, 0x40, body.data())).title, "Behind the v2.4 header");
}

TEST(Id3v2, V24PlainFrameSizesAreTolerated) {
    // Some taggers wrote 32-bit sizes into v2.4 tags: 200 bytes is 0x000000C8.
    std::string title(199, 'x');
    ByteWriter body;
    body.str("TIT2").be32(200).be16(0).u8(0).str(title);
    body.str("TPE1").be32(3).be16(0).u8(0).str("Me");
    const Tags t = ParseV2(TagWithBody(4, 0, body.data()));
    EXPECT_EQ(t.title, title);
    EXPECT_EQ(t.artist, "Me");
}

TEST(Id3v2, CompressedFrameIsInflated) {
    const Bytes text = Raw("\0Squeezed Title");
    uLongf packedLength = compressBound(text.size());
    Bytes packed(packedLength);
    ASSERT_EQ(compress(packed.data(), &packedLength, text.data(), text.size()), Z_OK);
    packed.resize(packedLength);
    ByteWriter body;
    body.str("TIT2").be32(static_cast<uint32_t>(packed.size() + 4)).u8(0).u8(0x80);
    body.be32(static_cast<uint32_t>(text.size())).bytes(packed);
    body.str("TPE1").be32(3).be16(0).u8(0).str("Me");
    const Tags t = ParseV2(TagWithBody(3, 0, body.data()));
    EXPECT_EQ(t.title, "Squeezed Title");
    EXPECT_EQ(t.artist, "Me");
}

TEST(Id3v2, BrokenCompressedAndEncryptedFramesAreSkipped) {
    ByteWriter body;
    body.str("TIT2").be32(9).u8(0).u8(0x80).be32(100).str("junk!");      // not zlib
    body.str("TALB").be32(6).u8(0).u8(0x40).u8(1).bytes(Raw("\0Sec."));  // encrypted, method 1
    body.str("TPE1").be32(3).be16(0).u8(0).str("Me");
    const Tags t = ParseV2(TagWithBody(3, 0, body.data()));
    EXPECT_EQ(t.title, "");
    EXPECT_EQ(t.album, "");
    EXPECT_EQ(t.artist, "Me");
}

TEST(Id3v2, FrameClaimingMoreThanTheTagKeepsWhatIsThere) {
    Id3v2Fields s;
    s.frames = {TextFrame("TPE1", "First"), Id3Frame{"TIT2", {0, 'C', 'u', 't'}, 0x7FFFFFFF}};
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_EQ(t.artist, "First");
    EXPECT_EQ(t.title, "Cut");
}

TEST(Id3v2, TagClaimingMoreThanItHoldsReadsOnlyWhatExists) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Short")};
    s.overrideSize = true;
    s.size = 0x0FFFFFFF;  // 256 MiB
    const Bytes tag = BuildId3v2(s);
    EXPECT_EQ(Id3v2TagSize(tag.data(), tag.size()), 10u + 0x0FFFFFFFu);
    EXPECT_EQ(ParseV2(tag).title, "Short");
}

TEST(Id3v2, SizeOfHeaderWithFooter) {
    const Bytes header = Raw("ID3\x04\0\x10\0\0\x01\x01");
    EXPECT_EQ(Id3v2TagSize(header.data(), header.size()), 10u + 129u + 10u);
    EXPECT_EQ(Id3v2TagSize(Raw("ID3\x03\0\0\0\0\x80\0").data(), 10), 0u);  // not sync-safe
    EXPECT_EQ(Id3v2TagSize(Raw("ID3\x05\0\0\0\0\0\0").data(), 10), 0u);
    EXPECT_EQ(Id3v2TagSize(header.data(), 9), 0u);
}

TEST(Id3v2, EmptyFramesLeaveFieldsEmpty) {
    Id3v2Fields s;
    s.frames = {RawFrame("TIT2", {}), RawFrame("TPE1", {0}), RawFrame("TALB", {7, 'x'}), TextFrame("TRCK", "/")};
    s.padding = 64;
    const Tags t = ParseV2(BuildId3v2(s));
    EXPECT_TRUE(t.Empty());
}

TEST(Id3v1, FieldsTrimmedAndLatin1BecomesUtf8) {
    Id3v1Fields f;
    f.title = "Song   ";
    f.artist = "Bj\xf6rk";
    f.album = "Album";
    f.year = "2001";
    f.comment = "note  ";
    f.genre = 17;
    const Bytes tag = BuildId3v1(f);
    Tags t;
    ASSERT_TRUE(ParseId3v1(tag.data(), tag.size(), t));
    EXPECT_EQ(t.title, "Song");
    EXPECT_EQ(t.artist, "Björk");
    EXPECT_EQ(t.album, "Album");
    EXPECT_EQ(t.year, "2001");
    EXPECT_EQ(t.comment, "note");
    EXPECT_EQ(t.genre, "Rock");
    EXPECT_EQ(t.track, 0u);
}

TEST(Id3v1, V11TrackAndUnknownGenre) {
    Id3v1Fields f;
    f.title = "Eleven";
    f.comment = "twenty-eight characters max!";
    f.track = 11;
    f.genre = 255;
    const Bytes tag = BuildId3v1(f);
    Tags t;
    ASSERT_TRUE(ParseId3v1(tag.data(), tag.size(), t));
    EXPECT_EQ(t.track, 11u);
    EXPECT_EQ(t.comment, "twenty-eight characters max!");
    EXPECT_EQ(t.genre, "");
    Bytes other = tag;
    other[127] = 200;  // beyond the table
    Tags u;
    ASSERT_TRUE(ParseId3v1(other.data(), other.size(), u));
    EXPECT_EQ(u.genre, "");
}

TEST(Id3v1, NotATagAndTooShort) {
    Tags t;
    const Bytes tag = BuildId3v1(Id3v1Fields{});
    EXPECT_FALSE(ParseId3v1(tag.data(), 127, t));
    Bytes wrong = tag;
    wrong[0] = 'X';
    EXPECT_FALSE(ParseId3v1(wrong.data(), wrong.size(), t));
}

TEST(Id3v1, OnlyFillsWhatIsEmpty) {
    Id3v1Fields f;
    f.title = "V1 title";
    f.artist = "V1 artist";
    f.track = 4;
    const Bytes tag = BuildId3v1(f);
    Tags t;
    t.title = "V2 title";
    ASSERT_TRUE(ParseId3v1(tag.data(), tag.size(), t));
    EXPECT_EQ(t.title, "V2 title");
    EXPECT_EQ(t.artist, "V1 artist");
    EXPECT_EQ(t.track, 4u);
}

TEST(Id3Genre, TableNames) {
    EXPECT_STREQ(Id3GenreName(0), "Blues");
    EXPECT_STREQ(Id3GenreName(17), "Rock");
    EXPECT_STREQ(Id3GenreName(79), "Hard Rock");
    EXPECT_STREQ(Id3GenreName(191), "Psybient");
    EXPECT_EQ(Id3GenreName(192), nullptr);
    EXPECT_EQ(Id3GenreName(255), nullptr);
}

// --- Tags in files -------------------------------------------------------------

TEST(Id3InFiles, V2OnlyMp3HasItsTagsAndNothingMadeUp) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Only V2"), TextFrame("TPE1", "Someone")};
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio()}), "Some File Name.mp3");
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "Only V2");
    EXPECT_EQ(r.tags.artist, "Someone");
    EXPECT_EQ(r.tags.album, "");
    EXPECT_EQ(r.tags.genre, "");
}

TEST(Id3InFiles, UntaggedMp3HasNoTitle) {
    const auto r = ReadBytes(Audio(), "Title From Name.mp3");
    EXPECT_EQ(r.type, "MP3");
    EXPECT_TRUE(r.tags.Empty());
}

TEST(Id3InFiles, V2WinsOverV1FieldByField) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Long title from version two"), TextFrame("TCON", "(8)")};
    Id3v1Fields v1;
    v1.title = "Short title";
    v1.artist = "V1 Artist";
    v1.year = "1990";
    v1.track = 5;
    v1.genre = 17;
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio(), BuildId3v1(v1)}));
    EXPECT_EQ(r.tags.title, "Long title from version two");
    EXPECT_EQ(r.tags.genre, "Jazz");
    EXPECT_EQ(r.tags.artist, "V1 Artist");
    EXPECT_EQ(r.tags.year, "1990");
    EXPECT_EQ(r.tags.track, 5u);
}

TEST(Id3InFiles, V11TrackFromTrailerOnly) {
    Id3v1Fields v1;
    v1.title = "Trailer";
    v1.track = 12;
    v1.genre = 13;
    const auto r = ReadBytes(Join({Audio(), BuildId3v1(v1)}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "Trailer");
    EXPECT_EQ(r.tags.track, 12u);
    EXPECT_EQ(r.tags.genre, "Pop");
}

TEST(Id3InFiles, FirstOfSeveralTagsInFrontWins) {
    Id3v2Fields a, b;
    a.frames = {TextFrame("TIT2", "First")};
    a.padding = 20;
    b.majorVersion = 4;
    b.frames = {TextFrame("TIT2", "Second"), TextFrame("TPE1", "From the second")};
    const auto r = ReadBytes(Join({BuildId3v2(a), BuildId3v2(b), Bytes(100, 0), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "First");
    EXPECT_EQ(r.tags.artist, "From the second");
}

TEST(Id3InFiles, TagLargerThanTheHeadIsReadWhole) {
    Id3v2Fields s;
    s.frames = {RawFrame("APIC", Bytes(200000, 0x41)), TextFrame("TIT2", "After the picture")};
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "After the picture");
    EXPECT_EQ(r.duration_ms, 240u);
}

// Tags larger than 256 KiB are read frame by frame, pictures skipped.
TEST(Id3InFiles, LargeV23TagIsReadFrameByFrame) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Before"), RawFrame("APIC", Bytes(400000, 0x41)), TextFrame("TPE1", "After"),
                CommentFrame("COMM", "eng", "late comment")};
    s.padding = 1000;
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "Before");
    EXPECT_EQ(r.tags.artist, "After");
    EXPECT_EQ(r.tags.comment, "late comment");
    EXPECT_EQ(r.duration_ms, 240u);
}

TEST(Id3InFiles, LargeV24TagWithExtendedHeaderAndPlainSizes) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.frames = {RawFrame("APIC", Bytes(300000, 0x42)), Encoded("TALB", 3, Utf8("Ålbum"))};
    const Bytes frames = FramesOnly(s);
    ByteWriter body;
    PutSyncSafe(body, 6);
    body.u8(1).u8(0);
    body.bytes(frames);
    // A frame whose size was written plain, 32-bit, as some taggers do.
    body.str("TIT2").be32(200).be16(0).u8(0).str(std::string(199, 'y'));
    body.str("TPE1").be32(3).be16(0).u8(0).str("Me");
    const auto r = ReadBytes(Join({TagWithBody(4, 0x40, body.data()), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.album, "Ålbum");
    EXPECT_EQ(r.tags.title, std::string(199, 'y'));
    EXPECT_EQ(r.tags.artist, "Me");
}

TEST(Id3InFiles, LargeV22TagIsReadFrameByFrame) {
    Id3v2Fields s;
    s.majorVersion = 2;
    s.frames = {RawFrame("PIC", Bytes(300000, 0x43)), TextFrame("TT2", "Old and large")};
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio()}));
    EXPECT_EQ(r.tags.title, "Old and large");
}

TEST(Id3InFiles, LargeUnsynchronisedTagIsReadWhole) {
    Id3v2Fields s;
    s.frames = {RawFrame("APIC", Bytes(300000, 0xFF)), Encoded("TIT2", 0, Raw("\xff\xe9"))};
    const auto r = ReadBytes(Join({TagWithBody(3, 0x80, Unsynchronise(FramesOnly(s))), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "ÿé");
}

TEST(Id3InFiles, LargeTagWithLyingFrameSizeStaysInTheFile) {
    Id3v2Fields s;
    s.frames = {TextFrame("TIT2", "Kept"), RawFrame("APIC", Bytes(300000, 0x41)),
                Id3Frame{"TPE1", {0, 'x'}, 0x7FFFFFFF}};
    const auto r = ReadBytes(Join({BuildId3v2(s), Audio()}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "Kept");
    EXPECT_EQ(r.tags.artist, "x");  // the frame is cut at the tag's end
    Id3v2Fields t;
    t.frames = {TextFrame("TIT2", "Kept"), RawFrame("APIC", Bytes(300000, 0x41))};
    t.overrideSize = true;
    t.size = 0x0FFFFFFF;
    EXPECT_FALSE(ReadBytes(Join({BuildId3v2(t), Audio()})).Identified());
}

TEST(Id3InFiles, V24TagWithFooterAtTheEnd) {
    Id3v2Fields s;
    s.majorVersion = 4;
    s.flags = 0x10;
    s.frames = {TextFrame("TIT2", "Appended")};
    Bytes tag = BuildId3v2(s);
    Bytes footer(tag.begin(), tag.begin() + 10);
    footer[0] = '3', footer[1] = 'D', footer[2] = 'I';
    const auto r = ReadBytes(Join({Audio(), tag, footer}));
    EXPECT_EQ(r.type, "MP3");
    EXPECT_EQ(r.tags.title, "Appended");
    EXPECT_FALSE(r.duration_estimated);
    EXPECT_EQ(r.audio_bit_rate, 128000u);  // 10 frames of 384 bytes: the tag is not counted
}

}  // namespace
