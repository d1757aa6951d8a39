#include "Id3.h"
#include "Id3File.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Source.h"
#include "Utf8.h"

namespace fileinfo {
namespace media {

namespace {

// The genres an ID3v1 byte and an ID3v2 "(n)" reference name: the 80 of
// the original table and the extensions that taggers added after them.
const char* const kGenres[] = {
    "Blues", "Classic Rock", "Country", "Dance", "Disco", "Funk", "Grunge", "Hip-Hop", "Jazz", "Metal",
    "New Age", "Oldies", "Other", "Pop", "R&B", "Rap", "Reggae", "Rock", "Techno", "Industrial",
    "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack", "Euro-Techno", "Ambient", "Trip-Hop",
    "Vocal", "Jazz+Funk", "Fusion", "Trance", "Classical", "Instrumental", "Acid", "House", "Game",
    "Sound Clip", "Gospel", "Noise", "Alt. Rock", "Bass", "Soul", "Punk", "Space", "Meditative",
    "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic", "Darkwave", "Techno-Industrial",
    "Electronic", "Pop-Folk", "Eurodance", "Dream", "Southern Rock", "Comedy", "Cult", "Gangsta Rap",
    "Top 40", "Christian Rap", "Pop/Funk", "Jungle", "Native American", "Cabaret", "New Wave", "Psychedelic",
    "Rave", "Showtunes", "Trailer", "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz", "Polka", "Retro", "Musical",
    "Rock & Roll", "Hard Rock", "Folk", "Folk-Rock", "National Folk", "Swing", "Fast-Fusion", "Bebop",
    "Latin", "Revival", "Celtic", "Bluegrass", "Avantgarde", "Gothic Rock", "Progressive Rock",
    "Psychedelic Rock", "Symphonic Rock", "Slow Rock", "Big Band", "Chorus", "Easy Listening", "Acoustic",
    "Humour", "Speech", "Chanson", "Opera", "Chamber Music", "Sonata", "Symphony", "Booty Bass", "Primus",
    "Porn Groove", "Satire", "Slow Jam", "Club", "Tango", "Samba", "Folklore", "Ballad", "Power Ballad",
    "Rhythmic Soul", "Freestyle", "Duet", "Punk Rock", "Drum Solo", "A Cappella", "Euro-House", "Dance Hall",
    "Goa", "Drum & Bass", "Club-House", "Hardcore", "Terror", "Indie", "BritPop", "Afro-Punk", "Polsk Punk",
    "Beat", "Christian Gangsta Rap", "Heavy Metal", "Black Metal", "Crossover", "Contemporary Christian",
    "Christian Rock", "Merengue", "Salsa", "Thrash Metal", "Anime", "JPop", "Synthpop", "Abstract",
    "Art Rock", "Baroque", "Bhangra", "Big Beat", "Breakbeat", "Chillout", "Downtempo", "Dub", "EBM",
    "Eclectic", "Electro", "Electroclash", "Emo", "Experimental", "Garage", "Global", "IDM", "Illbient",
    "Industro-Goth", "Jam Band", "Krautrock", "Leftfield", "Lounge", "Math Rock", "New Romantic", "Nu-Breakz",
    "Post-Punk", "Post-Rock", "Psytrance", "Shoegaze", "Space Rock", "Trop Rock", "World Music",
    "Neoclassical", "Audiobook", "Audio Theatre", "Neue Deutsche Welle", "Podcast", "Indie Rock", "G-Funk",
    "Dubstep", "Garage Rock", "Psybient",

};
constexpr unsigned kGenreCount = sizeof(kGenres) / sizeof(kGenres[0]);

// A compressed frame of text never needs more than this once inflated; a
// frame claiming more is not read.
constexpr size_t kMaxInflatedFrame = 1 << 20;

// --- Texts -------------------------------------------------------------


constexpr uint32_t kReplacement = 0xFFFD;

std::string Latin1Text(const uint8_t* p, size_t n) {
    std::string out;
    out.reserve(n);
    for (size_t i = 0; i < n; ++i) AppendUtf8(out, p[i]);
    return out;
}


// UTF-16 in the given byte order; unpaired surrogates and an odd last byte
// become U+FFFD.
std::string Utf16Text(const uint8_t* p, size_t n, bool bigEndian) {
    std::string out;
    out.reserve(n);
    auto unit = [&](size_t at) -> uint32_t {
        return bigEndian ? BigEndian16(p + at) : LittleEndian16(p + at);
    };
    size_t i = 0;
    while (i + 1 < n) {
        const uint32_t u = unit(i);
        i += 2;
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 1 < n) {
                const uint32_t v = unit(i);
                if (v >= 0xDC00 && v <= 0xDFFF) {
                    AppendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (v - 0xDC00));
                    i += 2;
                    continue;
                }
            }
            AppendUtf8(out, kReplacement);
        } else if (u >= 0xDC00 && u <= 0xDFFF) {
            AppendUtf8(out, kReplacement);
        } else {
            AppendUtf8(out, u);
        }
    }
    if (i < n) AppendUtf8(out, kReplacement);
    return out;
}

enum Encoding : uint8_t { kLatin1 = 0, kUtf16 = 1, kUtf16BigEndian = 2, kUtf8 = 3 };

size_t UnitSize(uint8_t encoding) { return encoding == kUtf16 || encoding == kUtf16BigEndian ? 2 : 1; }

// Where the string starting at `from` ends: its terminator (one zero byte,
// or two on a two-byte boundary in UTF-16), or `n`.
size_t TextEnd(const uint8_t* p, size_t n, size_t from, uint8_t encoding) {
    if (UnitSize(encoding) == 1) {
        for (size_t i = from; i < n; ++i) {
            if (p[i] == 0) return i;
        }
        return n;
    }
    for (size_t i = from; i + 1 < n; i += 2) {
        if (p[i] == 0 && p[i + 1] == 0) return i;
    }
    return n;
}

// One string of the given encoding, without its terminator. UTF-16 with
// encoding 1 follows its byte-order mark; without one it is read as
// little-endian, the order Windows taggers write.
std::string DecodeText(const uint8_t* p, size_t n, uint8_t encoding) {
    switch (encoding) {
    case kLatin1:
        return Latin1Text(p, n);
    case kUtf16:
        if (n >= 2 && p[0] == 0xFE && p[1] == 0xFF) return Utf16Text(p + 2, n - 2, true);
        if (n >= 2 && p[0] == 0xFF && p[1] == 0xFE) return Utf16Text(p + 2, n - 2, false);
        return Utf16Text(p, n, false);
    case kUtf16BigEndian:
        return Utf16Text(p, n, true);
    default:
        return Utf8Text(p, n);
    }
}

// The values of a text frame body after its encoding byte: the strings
// between terminators (a last empty one is the writer's terminator, not a
// value).
std::vector<std::string> TextValues(const uint8_t* p, size_t n, uint8_t encoding) {
    std::vector<std::string> values;
    size_t at = 0;
    while (at < n) {
        const size_t end = TextEnd(p, n, at, encoding);
        values.push_back(DecodeText(p + at, end - at, encoding));
        at = end + UnitSize(encoding);  // every step moves on by one string and its terminator
    }
    while (!values.empty() && values.back().empty()) values.pop_back();
    return values;
}

// ID3v2.4 lets a text frame hold several values; they are shown joined by
// " / ". Earlier versions have one value, ended by the first terminator.
std::string JoinValues(const std::vector<std::string>& values, int version) {
    if (values.empty()) return std::string();
    if (version < 4) return values.front();
    std::string joined = values.front();
    for (size_t i = 1; i < values.size(); ++i) joined += " / " + values[i];
    return joined;
}

// The values of a whole text frame body, encoding byte first.
std::vector<std::string> FrameTexts(const uint8_t* p, size_t n) {
    if (n < 1 || p[0] > kUtf8) return {};
    return TextValues(p + 1, n - 1, p[0]);
}

// --- Fields --------------------------------------------------------------

std::string TrimEnd(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
    return text;
}

// "7", "07", " 3/12": the number before the slash and the one after it.
void ParseTrack(const std::string& text, uint32_t& track, uint32_t& total) {
    auto number = [&](size_t& at) -> uint32_t {
        while (at < text.size() && text[at] == ' ') ++at;
        uint64_t value = 0;
        while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
            value = value * 10 + static_cast<uint64_t>(text[at] - '0');
            if (value > 0xFFFFFFFFu) return 0;  // no track number is that long
            ++at;
        }
        return static_cast<uint32_t>(value);
    };
    size_t at = 0;
    track = number(at);
    while (at < text.size() && text[at] == ' ') ++at;
    total = 0;
    if (at < text.size() && text[at] == '/') {
        ++at;
        total = number(at);
    }
}

bool AllDigits(const std::string& text) {
    if (text.empty()) return false;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
    }
    return true;
}

std::string GenreByNumber(const std::string& digits) {
    if (digits.size() > 3) return "Unknown";
    const unsigned number = static_cast<unsigned>(std::stoul(digits));
    const char* name = Id3GenreName(number);
    return name ? name : "Unknown";
}

void AddGenre(std::vector<std::string>& genres, const std::string& genre) {
    for (const std::string& g : genres) {
        if (g == genre) return;
    }
    genres.push_back(genre);
}

// One TCON value: "Rock", "17", "(17)", "(17)Rock", "(17)(18)Eurodance",
// "(RX)", "(CR)", "((parenthesised". References become names; a text
// after them is kept unless it repeats one of them.
void ParseGenreValue(const std::string& value, std::vector<std::string>& genres) {
    if (AllDigits(value)) return AddGenre(genres, GenreByNumber(value));
    if (value == "RX") return AddGenre(genres, "Remix");
    if (value == "CR") return AddGenre(genres, "Cover");
    size_t at = 0;
    std::vector<std::string> found;
    while (at < value.size() && value[at] == '(') {
        const size_t close = value.find(')', at + 1);
        if (close == std::string::npos) break;
        const std::string ref = value.substr(at + 1, close - at - 1);
        if (AllDigits(ref)) {
            found.push_back(GenreByNumber(ref));
        } else if (ref == "RX") {
            found.push_back("Remix");
        } else if (ref == "CR") {
            found.push_back("Cover");
        } else {
            break;  // not a reference: "(" starts the text itself
        }
        at = close + 1;
    }
    std::string rest = value.substr(at);
    if (rest.compare(0, 2, "((") == 0) rest.erase(0, 1);
    if (!rest.empty()) {
        bool repeated = false;
        for (const std::string& f : found) repeated = repeated || f == rest;
        if (!repeated) found.push_back(rest);
    }
    for (const std::string& f : found) AddGenre(genres, f);
}

std::string GenreText(const std::vector<std::string>& values) {
    std::vector<std::string> genres;
    for (const std::string& v : values) {
        if (!v.empty()) ParseGenreValue(v, genres);
    }
    std::string joined;
    for (const std::string& g : genres) joined += (joined.empty() ? "" : " / ") + g;
    return joined;
}

// The comment frame: encoding, language, content descriptor, text.
struct Comment {
    std::string descriptor;
    std::string text;
};

bool ParseComment(const uint8_t* p, size_t n, int version, Comment& comment) {
    if (n < 4 || p[0] > kUtf8) return false;
    const uint8_t encoding = p[0];
    const uint8_t* body = p + 4;  // the three bytes of language are not shown
    const size_t length = n - 4;
    const size_t end = TextEnd(body, length, 0, encoding);
    comment.descriptor = DecodeText(body, end, encoding);
    const size_t textAt = end + UnitSize(encoding) < length ? end + UnitSize(encoding) : length;
    comment.text = JoinValues(TextValues(body + textAt, length - textAt, encoding), version);
    return true;
}

// The frames a reading shows, by their ID3v2.2 and later names.
enum class Field { kNone, kTitle, kArtist, kAlbum, kGenre, kYear, kTrack, kComment, kComposer };

Field FieldOf(const std::string& id) {
    static const struct {
        const char* id;
        Field field;
    } kFrames[] = {
        {"TT2", Field::kTitle},   {"TIT2", Field::kTitle},   {"TP1", Field::kArtist},  {"TPE1", Field::kArtist},
        {"TAL", Field::kAlbum},   {"TALB", Field::kAlbum},   {"TCO", Field::kGenre},   {"TCON", Field::kGenre},
        {"TYE", Field::kYear},    {"TYER", Field::kYear},    {"TDRC", Field::kYear},   {"TRK", Field::kTrack},
        {"TRCK", Field::kTrack},  {"COM", Field::kComment},  {"COMM", Field::kComment}, {"TCM", Field::kComposer},
        {"TCOM", Field::kComposer},
    };
    for (const auto& f : kFrames) {
        if (id == f.id) return f.field;
    }
    return Field::kNone;
}

// What one tag holds, gathered frame by frame: the first frame of a kind
// wins, except that a comment without a content descriptor beats one with.
struct Gathered {
    Tags tags;
    bool commentHasDescriptor = false;
};

void TakeFrame(Field field, const uint8_t* p, size_t n, int version, Gathered& g) {
    Tags& t = g.tags;
    if (field == Field::kComment) {
        Comment c;
        if (!ParseComment(p, n, version, c) || c.text.empty()) return;
        if (t.comment.empty() || (g.commentHasDescriptor && c.descriptor.empty())) {
            t.comment = c.text;
            g.commentHasDescriptor = !c.descriptor.empty();
        }
        return;
    }
    const std::vector<std::string> values = FrameTexts(p, n);
    if (values.empty()) return;
    switch (field) {
    case Field::kTitle:
        if (t.title.empty()) t.title = JoinValues(values, version);
        break;
    case Field::kArtist:
        if (t.artist.empty()) t.artist = JoinValues(values, version);
        break;
    case Field::kAlbum:
        if (t.album.empty()) t.album = JoinValues(values, version);
        break;
    case Field::kComposer:
        if (t.composer.empty()) t.composer = JoinValues(values, version);
        break;
    case Field::kGenre:
        if (t.genre.empty()) t.genre = GenreText(version < 4 ? std::vector<std::string>{values.front()} : values);
        break;
    case Field::kYear:
        if (t.year.empty()) t.year = FirstCharacters(values.front(), 4);
        break;
    case Field::kTrack:
        if (t.track == 0 && t.track_total == 0) ParseTrack(values.front(), t.track, t.track_total);
        break;
    default:
        break;
    }
}

// --- Tag structure ---------------------------------------------------------

uint32_t SyncSafe32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0] & 0x7F) << 21 | static_cast<uint32_t>(p[1] & 0x7F) << 14 |
           static_cast<uint32_t>(p[2] & 0x7F) << 7 | (p[3] & 0x7F);
}

// Undoes unsynchronisation: every 0xFF 0x00 pair loses its zero.
std::vector<uint8_t> Resynchronise(const uint8_t* p, size_t n) {
    std::vector<uint8_t> out;
    out.reserve(n);
    for (size_t i = 0; i < n; ++i) {
        out.push_back(p[i]);
        if (p[i] == 0xFF && i + 1 < n && p[i + 1] == 0x00) ++i;
    }
    return out;
}

// Inflates a zlib stream into at most `limit` bytes; false when it is not
// one or would be larger.
bool Inflate(const uint8_t* p, size_t n, size_t limit, std::vector<uint8_t>& out) {
    if (limit == 0 || limit > kMaxInflatedFrame) return false;
    out.assign(limit, 0);
    z_stream z{};
    if (inflateInit(&z) != Z_OK) return false;
    z.next_in = const_cast<Bytef*>(p);
    z.avail_in = static_cast<uInt>(n);
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    const int result = inflate(&z, Z_FINISH);
    const size_t produced = out.size() - z.avail_out;
    inflateEnd(&z);
    if (result != Z_STREAM_END && result != Z_BUF_ERROR && result != Z_OK) return false;
    out.resize(produced);
    return produced > 0;
}

bool FrameIdChar(uint8_t c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

bool ValidFrameId(const uint8_t* p, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (!FrameIdChar(p[i])) return false;
    }
    return true;
}

// In ID3v2.4, sizes are sync-safe, but some taggers wrote plain ones. The
// plain reading is taken when only it lands on the next frame or the end.
uint32_t FrameSizeV24(const uint8_t* body, size_t length, size_t at) {
    const uint32_t syncSafe = SyncSafe32(body + at + 4);
    const uint32_t plain = BigEndian32(body + at + 4);
    if (plain == syncSafe || plain < 0x80) return syncSafe;
    auto landsWell = [&](uint64_t size) {
        const uint64_t next = at + 10 + size;
        if (next == length) return true;
        if (next > length) return false;
        if (body[next] == 0) return true;  // padding
        return next + 4 <= length && ValidFrameId(body + next, 4);
    };
    if (!landsWell(syncSafe) && landsWell(plain)) return plain;
    return syncSafe;
}

// Undoes what a frame's flags did to its data (grouping, data length,
// unsynchronisation, compression) and takes it; encrypted frames are left.
void ReadFrameData(Field field, const uint8_t* p, size_t n, int version, uint8_t format, bool tagUnsynchronised,
                   Gathered& g) {
    bool compressed = false;
    bool unsynchronised = version == 4 && tagUnsynchronised;
    size_t skip = 0;
    if (version == 3) {
        if (format & 0x40) return;  // encrypted
        compressed = (format & 0x80) != 0;
        if (compressed) skip += 4;  // the inflated size
        if (format & 0x20) skip += 1;  // group id
    } else if (version == 4) {
        if (format & 0x04) return;  // encrypted
        compressed = (format & 0x08) != 0;
        unsynchronised = unsynchronised || (format & 0x02) != 0;
        if (format & 0x40) skip += 1;  // group id
        if (format & 0x01) skip += 4;  // data length indicator
    }
    if (skip >= n) return;
    p += skip;
    n -= skip;
    std::vector<uint8_t> resynchronised;
    if (unsynchronised) {
        resynchronised = Resynchronise(p, n);
        p = resynchronised.data();
        n = resynchronised.size();
    }
    std::vector<uint8_t> inflated;
    if (compressed) {
        if (!Inflate(p, n, kMaxInflatedFrame, inflated)) return;
        p = inflated.data();
        n = inflated.size();
    }
    TakeFrame(field, p, n, version, g);
}

// Walks the frames of a tag body (extended header already skipped).
void ReadFrames(const uint8_t* body, size_t length, int version, bool tagUnsynchronised, Gathered& g) {
    const size_t idLength = version == 2 ? 3 : 4;
    const size_t headerLength = version == 2 ? 6 : 10;
    size_t at = 0;
    while (at + headerLength <= length) {
        if (body[at] == 0) break;  // padding
        if (!ValidFrameId(body + at, idLength)) break;
        const std::string id(reinterpret_cast<const char*>(body + at), idLength);
        uint64_t size;
        uint8_t format = 0;
        if (version == 2) {
            size = BigEndian24(body + at + 3);
        } else if (version == 3) {
            size = BigEndian32(body + at + 4);
            format = body[at + 9];
        } else {
            size = FrameSizeV24(body, length, at);
            format = body[at + 9];
        }
        const size_t dataAt = at + headerLength;
        if (size > length - dataAt) size = length - dataAt;  // a frame cut short keeps what is there
        const Field field = FieldOf(id);
        if (field != Field::kNone && size > 0) {
            ReadFrameData(field, body + dataAt, static_cast<size_t>(size), version, format, tagUnsynchronised, g);
        }
        at = dataAt + static_cast<size_t>(size);  // moves on by at least the frame header
    }
}


// --- Tags in files ---------------------------------------------------------

// A tag this large is read frame by frame rather than whole.
constexpr uint64_t kWholeTagBytes = 256 * 1024;
// A tag read whole is read at most this far.
constexpr uint64_t kMaxTagBytes = 16u << 20;
// Frames looked at in a tag read frame by frame; a tag is not that long.
constexpr int kMaxFramesInTag = 4096;

// Bytes at an offset: from the head when it holds them, else read.
bool Fetch(const Source& source, uint64_t offset, size_t n, uint8_t* out) {
    const std::vector<uint8_t>& head = source.Head();
    if (offset <= head.size() && n <= head.size() - offset) {
        std::memcpy(out, head.data() + offset, n);
        return true;
    }
    return source.ReadAt(offset, out, n);
}

void PutFrameSize(std::vector<uint8_t>& out, int version, uint32_t size) {
    if (version == 2) {
        out.insert(out.end(), {static_cast<uint8_t>(size >> 16), static_cast<uint8_t>(size >> 8),
                               static_cast<uint8_t>(size)});
    } else if (version == 3) {
        out.insert(out.end(), {static_cast<uint8_t>(size >> 24), static_cast<uint8_t>(size >> 16),
                               static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
    } else {
        out.insert(out.end(), {static_cast<uint8_t>(size >> 21 & 0x7F), static_cast<uint8_t>(size >> 14 & 0x7F),
                               static_cast<uint8_t>(size >> 7 & 0x7F), static_cast<uint8_t>(size & 0x7F)});
    }
}

// Copies the frames a reading shows out of a large tag into a small one
// of the same version, skipping pictures and the like unread.
bool CompactTag(const Source& source, uint64_t offset, const uint8_t* header, std::vector<uint8_t>& out) {
    const int version = header[3];
    const uint64_t end = std::min<uint64_t>(offset + 10 + SyncSafe32(header + 6), source.Size());
    const size_t headerLength = version == 2 ? 6 : 10;
    const size_t idLength = version == 2 ? 3 : 4;
    uint64_t at = offset + 10;
    if (version >= 3 && (header[5] & 0x40)) {
        uint8_t size[4];
        if (!Fetch(source, at, 4, size)) return false;
        at += version == 3 ? 4 + static_cast<uint64_t>(BigEndian32(size)) : SyncSafe32(size);
    }
    out.assign(header, header + 10);
    if (version >= 3) out[5] &= static_cast<uint8_t>(~0x50);  // no extended header and no footer in the copy
    // Whether a frame of `size` bytes at `from` ends on a frame, padding or the tag's end.
    auto landsWell = [&](uint64_t from, uint64_t size) {
        const uint64_t next = from + 10 + size;
        if (next == end) return true;
        if (next > end) return false;
        uint8_t id[4] = {0, 0, 0, 0};
        const size_t n = static_cast<size_t>(std::min<uint64_t>(4, end - next));
        if (!Fetch(source, next, n, id)) return false;
        return id[0] == 0 || (n == 4 && ValidFrameId(id, 4));
    };
    for (int i = 0; i < kMaxFramesInTag && at + headerLength <= end; ++i) {
        uint8_t frame[10];
        if (!Fetch(source, at, headerLength, frame) || frame[0] == 0 || !ValidFrameId(frame, idLength)) break;
        uint64_t size;
        if (version == 2) {
            size = BigEndian24(frame + 3);
        } else if (version == 3) {
            size = BigEndian32(frame + 4);
        } else {
            size = SyncSafe32(frame + 4);
            const uint32_t plain = BigEndian32(frame + 4);
            if (plain != size && plain >= 0x80 && !landsWell(at, size) && landsWell(at, plain)) size = plain;
        }
        const uint64_t dataAt = at + headerLength;
        if (size > end - dataAt) size = end - dataAt;
        const std::string id(reinterpret_cast<const char*>(frame), idLength);
        if (FieldOf(id) != Field::kNone && size <= kMaxInflatedFrame) {
            out.insert(out.end(), frame, frame + idLength);
            PutFrameSize(out, version, static_cast<uint32_t>(size));
            if (version > 2) out.insert(out.end(), frame + 8, frame + 10);
            const size_t dataStart = out.size();
            out.resize(dataStart + static_cast<size_t>(size));
            if (!Fetch(source, dataAt, static_cast<size_t>(size), out.data() + dataStart)) return false;
        }
        at = dataAt + size;  // moves on by at least the frame header
    }
    const uint32_t bodySize = static_cast<uint32_t>(out.size() - 10);
    out[6] = bodySize >> 21 & 0x7F, out[7] = bodySize >> 14 & 0x7F, out[8] = bodySize >> 7 & 0x7F;
    out[9] = bodySize & 0x7F;
    return true;
}

}  // namespace

uint64_t Id3v2TagSize(const uint8_t* header, size_t length) {
    if (length < 10 || header[0] != 'I' || header[1] != 'D' || header[2] != '3') return 0;
    if (header[3] < 2 || header[3] > 4 || header[4] == 0xFF) return 0;
    for (int i = 6; i < 10; ++i) {
        if (header[i] & 0x80) return 0;  // sizes are sync-safe
    }
    const bool footer = header[3] == 4 && (header[5] & 0x10) != 0;
    return 10 + static_cast<uint64_t>(SyncSafe32(header + 6)) + (footer ? 10 : 0);
}

bool ParseId3v2(const uint8_t* data, size_t length, Tags& tags) {
    const uint64_t whole = Id3v2TagSize(data, length);
    if (whole == 0) return false;
    const int version = data[3];
    const uint8_t flags = data[5];
    // The body as far as it is held here: a tag may claim more than it has.
    const uint64_t claimed = SyncSafe32(data + 6);
    const size_t bodyLength = static_cast<size_t>(claimed < length - 10 ? claimed : length - 10);
    const uint8_t* body = data + 10;
    if (version == 2 && (flags & 0x40)) return true;  // ID3v2.2 compression was never defined: nothing to read

    // Before ID3v2.4, unsynchronisation covers the whole tag, extended header included.
    std::vector<uint8_t> resynchronised;
    const bool unsynchronised = (flags & 0x80) != 0;
    size_t length2 = bodyLength;
    if (unsynchronised && version < 4) {
        resynchronised = Resynchronise(body, bodyLength);
        body = resynchronised.data();
        length2 = resynchronised.size();
    }
    size_t at = 0;
    if (version >= 3 && (flags & 0x40)) {
        if (length2 < 4) return true;
        // ID3v2.3 counts the extended header without its size field; v2.4 with it, sync-safe.
        const uint64_t extended = version == 3 ? 4 + static_cast<uint64_t>(BigEndian32(body)) : SyncSafe32(body);
        if (extended > length2) return true;
        at = static_cast<size_t>(extended);
    }
    Gathered g;
    ReadFrames(body + at, length2 - at, version, unsynchronised, g);
    const Tags& found = g.tags;
    if (!found.title.empty()) tags.title = found.title;
    if (!found.artist.empty()) tags.artist = found.artist;
    if (!found.album.empty()) tags.album = found.album;
    if (!found.genre.empty()) tags.genre = found.genre;
    if (!found.year.empty()) tags.year = found.year;
    if (!found.comment.empty()) tags.comment = found.comment;
    if (!found.composer.empty()) tags.composer = found.composer;
    if (found.track != 0 || found.track_total != 0) {
        tags.track = found.track;
        tags.track_total = found.track_total;
    }
    return true;
}

bool ParseId3v1(const uint8_t* data, size_t length, Tags& tags) {
    if (length < 128 || data[0] != 'T' || data[1] != 'A' || data[2] != 'G') return false;
    // A field ends at its first NUL; the spaces some taggers pad with go too.
    auto field = [&](size_t at, size_t n) {
        size_t end = 0;
        while (end < n && data[at + end] != 0) ++end;
        return TrimEnd(Latin1Text(data + at, end));
    };
    const bool v11 = data[125] == 0 && data[126] != 0;
    if (tags.title.empty()) tags.title = field(3, 30);
    if (tags.artist.empty()) tags.artist = field(33, 30);
    if (tags.album.empty()) tags.album = field(63, 30);
    if (tags.year.empty()) tags.year = field(93, 4);
    if (tags.comment.empty()) tags.comment = field(97, v11 ? 28 : 30);
    if (v11 && tags.track == 0 && tags.track_total == 0) tags.track = data[126];
    if (tags.genre.empty()) {
        const char* genre = Id3GenreName(data[127]);
        if (genre) tags.genre = genre;
    }
    return true;
}

bool ReadId3v2At(const Source& source, uint64_t offset, uint64_t size, Tags& tags) {
    uint8_t header[10];
    if (!Fetch(source, offset, sizeof header, header) || Id3v2TagSize(header, sizeof header) == 0) return false;
    const std::vector<uint8_t>& head = source.Head();
    if (offset + size <= head.size()) return ParseId3v2(head.data() + offset, static_cast<size_t>(size), tags);
    std::vector<uint8_t> tag;
    // Unsynchronisation of the whole tag hides frame boundaries: such a tag is read whole.
    const bool wholeTagUnsynchronised = header[3] < 4 && (header[5] & 0x80);
    if (size <= kWholeTagBytes || wholeTagUnsynchronised) {
        if (!source.ReadUpTo(offset, static_cast<size_t>(std::min(size, kMaxTagBytes)), tag)) return false;
    } else if (!CompactTag(source, offset, header, tag)) {
        return false;
    }
    return ParseId3v2(tag.data(), tag.size(), tags);
}

const char* Id3GenreName(unsigned number) { return number < kGenreCount ? kGenres[number] : nullptr; }

}  // namespace media
}  // namespace fileinfo
