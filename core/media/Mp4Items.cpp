// The items of an "ilst": each item box names its tag and holds "data"
// boxes (a type, a locale, then the value). Texts are UTF-8 (type 1) or
// UTF-16 big-endian (type 2); "trkn" and "gnre" are binary numbers.
#include <algorithm>

#include "Id3.h"
#include "Mp4Walk.h"
#include "Utf8.h"

namespace fileinfo {
namespace media {

namespace {

// The most of one value that is read: enough for any text a person reads,
// and no cover picture is ever read whole.
constexpr size_t kMaxValueBytes = 64 * 1024;

enum class Item { kTitle, kArtist, kAlbum, kGenre, kGenreNumber, kYear, kTrack, kComment, kComposer };

struct ItemName {
    uint32_t type;
    Item item;
};

const ItemName kItems[] = {
    {FourCc("\xA9nam"), Item::kTitle},    {FourCc("\xA9" "ART"), Item::kArtist},
    {FourCc("\xA9" "alb"), Item::kAlbum},
    {FourCc("\xA9gen"), Item::kGenre},    {FourCc("gnre"), Item::kGenreNumber},
    {FourCc("\xA9" "day"), Item::kYear},  {FourCc("trkn"), Item::kTrack},
    {FourCc("\xA9" "cmt"), Item::kComment}, {FourCc("\xA9wrt"), Item::kComposer},
};

void AppendUtf8(uint32_t c, std::string& out) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// UTF-16 big-endian to UTF-8, up to the first NUL; a lone surrogate
// becomes U+FFFD.
std::string Utf16BigEndianToUtf8(const uint8_t* p, size_t length) {
    std::string out;
    for (size_t i = 0; i + 1 < length; i += 2) {
        uint32_t c = BigEndian16(p + i);
        if (c == 0) break;
        if (c >= 0xD800 && c < 0xDC00 && i + 3 < length) {
            const uint32_t low = BigEndian16(p + i + 2);
            if (low >= 0xDC00 && low < 0xE000) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            } else {
                c = 0xFFFD;
            }
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD;
        }
        AppendUtf8(c, out);
    }
    return out;
}

// A text value up to its first NUL, as UTF-8; empty for a value that is no text.
std::string Text(uint32_t dataType, const uint8_t* p, size_t length) {
    switch (dataType) {
        case 1:  // UTF-8
        case 4:  // UTF-8, for sorting
        case 3:  // S/JIS: taken as UTF-8, so made well-formed like it
            {
                size_t n = 0;
                while (n < length && p[n] != 0) ++n;
                return Utf8Text(p, n);
            }
        case 2:  // UTF-16 big-endian
        case 5:
            return Utf16BigEndianToUtf8(p, length);
        default:
            return "";
    }
}

void SetText(std::string& field, const std::string& text) {
    if (field.empty()) field = text;
}

void Apply(Item item, uint32_t dataType, const uint8_t* p, size_t length, Mp4Walk& walk) {
    Tags& tags = walk.reading.tags;
    switch (item) {
        case Item::kTitle: SetText(tags.title, Text(dataType, p, length)); break;
        case Item::kArtist: SetText(tags.artist, Text(dataType, p, length)); break;
        case Item::kAlbum: SetText(tags.album, Text(dataType, p, length)); break;
        case Item::kComment: SetText(tags.comment, Text(dataType, p, length)); break;
        case Item::kComposer: SetText(tags.composer, Text(dataType, p, length)); break;
        case Item::kYear: {
            const std::string date = Text(dataType, p, length);
            SetText(tags.year, FirstCharacters(date, 4));
            break;
        }
        case Item::kGenre: {
            const std::string genre = Text(dataType, p, length);
            if (!genre.empty() && !walk.genre_from_text) {
                tags.genre = genre;
                walk.genre_from_text = true;
            }
            break;
        }
        case Item::kGenreNumber:
            // ID3v1's genre number plus one.
            if (length >= 2 && tags.genre.empty()) {
                const unsigned number = BigEndian16(p);
                const char* name = number >= 1 ? Id3GenreName(number - 1) : nullptr;
                if (name != nullptr) tags.genre = name;
            }
            break;
        case Item::kTrack:
            // Two reserved bytes, the track (2), the total (2).
            if (length >= 6 && tags.track == 0 && tags.track_total == 0) {
                tags.track = BigEndian16(p + 2);
                tags.track_total = BigEndian16(p + 4);
            }
            break;
    }
}

// The first "data" box of an item: type (4: a version byte, then 24 bits),
// locale (4), value. A value that runs past its box is cut at the box.
void ReadItem(const BoxBytes& bytes, const Box& itemBox, Item item, Mp4Walk& walk) {
    BoxIterator children(bytes, itemBox.body, itemBox.end);
    Box data;
    while (children.Next(data)) {
        if (data.type != FourCc("data")) continue;
        std::vector<uint8_t> value;
        if (data.BodySize() < 8 || !bytes.ReadRange(data.body, data.end, kMaxValueBytes + 8, value) ||
            value.size() < 8) {
            return;
        }
        const uint32_t dataType = BigEndian32(value.data()) & 0xFFFFFF;
        Apply(item, dataType, value.data() + 8, value.size() - 8, walk);
        return;
    }
}

// Mac OS Roman, 0x80 to 0xFF: the text of old QuickTime user data with a
// Macintosh language code.
const uint16_t kMacRoman[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

std::string MacRomanToUtf8(const uint8_t* p, size_t length) {
    std::string out;
    for (size_t i = 0; i < length && p[i] != 0; ++i) AppendUtf8(p[i] < 0x80 ? p[i] : kMacRoman[p[i] - 0x80], out);
    return out;
}

}  // namespace

// Old QuickTime user data: a "\xA9nam"-style box straight in "udta" holds
// texts as (length (2), language (2), the text). A language below 0x400 is
// a Macintosh code and its text is Mac OS Roman; above, the text is UTF-8.
void ReadQuickTimeText(const BoxBytes& bytes, const Box& box, Mp4Walk& walk) {
    std::vector<uint8_t> body;
    if (!bytes.ReadRange(box.body, box.end, kMaxValueBytes + 4, body) || body.size() < 4) return;
    const size_t length = std::min<size_t>(BigEndian16(body.data()), body.size() - 4);
    const uint16_t language = BigEndian16(body.data() + 2);
    const uint8_t* text = body.data() + 4;
    for (const ItemName& name : kItems) {
        if (name.type != box.type) continue;
        if (language < 0x400) {
            const std::string utf8 = MacRomanToUtf8(text, length);
            Apply(name.item, 1, reinterpret_cast<const uint8_t*>(utf8.data()), utf8.size(), walk);
        } else {
            Apply(name.item, 1, text, length, walk);
        }
        return;
    }
}

void ReadItems(const BoxBytes& bytes, const Box& ilst, Mp4Walk& walk) {
    BoxIterator items(bytes, ilst.body, ilst.end);
    Box item;
    while (walk.boxes < kMaxBoxes && items.Next(item)) {
        ++walk.boxes;
        for (const ItemName& name : kItems) {
            if (name.type == item.type) {
                ReadItem(bytes, item, name.item, walk);
                break;
            }
        }
    }
}

}  // namespace media
}  // namespace fileinfo
