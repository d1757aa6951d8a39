// UTF-8 for the readings' texts: made well-formed from what a file holds,
// and cut by characters, not bytes (a tag cut in the middle of a character
// would no longer be UTF-8).
#ifndef FILEINFO_CORE_MEDIA_UTF8_H
#define FILEINFO_CORE_MEDIA_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace fileinfo {
namespace media {

// Appends one code point as UTF-8.
void AppendUtf8(std::string& out, uint32_t code);

// UTF-8 as it should be: every ill-formed sequence (overlong, surrogate,
// above U+10FFFF, cut short) becomes one U+FFFD per maximal bad prefix.
std::string Utf8Text(const uint8_t* p, size_t n);

// The first `count` characters of a UTF-8 text (a year's four, from a
// date); continuation bytes stay with the character they belong to.
inline std::string FirstCharacters(const std::string& text, size_t count) {
    size_t end = 0;
    for (size_t characters = 0; end < text.size() && characters < count; ++characters) {
        ++end;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) ++end;
    }
    return text.substr(0, end);
}

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_UTF8_H
