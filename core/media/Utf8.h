// UTF-8 texts cut by characters, not bytes: a tag cut in the middle of a
// character would no longer be UTF-8.
#ifndef FILEINFO_CORE_MEDIA_UTF8_H
#define FILEINFO_CORE_MEDIA_UTF8_H

#include <cstddef>
#include <string>

namespace fileinfo {
namespace media {

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
