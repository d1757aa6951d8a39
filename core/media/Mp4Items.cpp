// The items of an "ilst": each item box names its tag and holds "data"
// boxes (a type, a locale, then the value). Texts are UTF-8 (type 1) or
// UTF-16 big-endian (type 2); "trkn" and "gnre" are binary numbers.
#include "Id3.h"
#include "Mp4Walk.h"

namespace fileinfo {
namespace media {

namespace {

// The most of one value that is read: enough for any text a person reads,
// and no cover picture is ever read whole.
constexpr size_t kMaxValueBytes = 64 * 1024;

enum class Item { kTitle, kArtist, kAlbumArtist, kAlbum, kGenre, kGenreNumber, kYear, kTrack, kComment, kComposer };

struct ItemName {
    uint32_t type;
    Item item;
};

const ItemName kItems[] = {
    {FourCc("\xA9nam"), Item::kTitle},    {FourCc("\xA9" "ART"), Item::kArtist},
    {FourCc("aART"), Item::kAlbumArtist}, {FourCc("\xA9" "alb"), Item::kAlbum},
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
        case 3:  // S/JIS: taken as it is
            {
                size_t n = 0;
                while (n < length && p[n] != 0) ++n;
                return std::string(reinterpret_cast<const char*>(p), n);
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

void Apply(Item item, uint32_t dataType, const uint8_t* p, size_t length, Mp4Walk& walk,
           std::string& albumArtist) {
    Tags& tags = walk.reading.tags;
    switch (item) {
        case Item::kTitle: SetText(tags.title, Text(dataType, p, length)); break;
        case Item::kArtist: SetText(tags.artist, Text(dataType, p, length)); break;
        case Item::kAlbumArtist: SetText(albumArtist, Text(dataType, p, length)); break;
        case Item::kAlbum: SetText(tags.album, Text(dataType, p, length)); break;
        case Item::kComment: SetText(tags.comment, Text(dataType, p, length)); break;
        case Item::kComposer: SetText(tags.composer, Text(dataType, p, length)); break;
        case Item::kYear: {
            const std::string date = Text(dataType, p, length);
            SetText(tags.year, date.substr(0, 4));
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
void ReadItem(const BoxBytes& bytes, const Box& itemBox, Item item, Mp4Walk& walk, std::string& albumArtist) {
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
        Apply(item, dataType, value.data() + 8, value.size() - 8, walk, albumArtist);
        return;
    }
}

}  // namespace

void ReadItems(const BoxBytes& bytes, const Box& ilst, Mp4Walk& walk) {
    BoxIterator items(bytes, ilst.body, ilst.end);
    Box item;
    std::string albumArtist;
    while (walk.boxes < kMaxBoxes && items.Next(item)) {
        ++walk.boxes;
        for (const ItemName& name : kItems) {
            if (name.type == item.type) {
                ReadItem(bytes, item, name.item, walk, albumArtist);
                break;
            }
        }
    }
    // The album's artist stands in for a track that names none.
    SetText(walk.reading.tags.artist, albumArtist);
}

}  // namespace media
}  // namespace fileinfo
