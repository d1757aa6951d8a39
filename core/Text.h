// Record texts are 8-bit Latin-1; front ends speak UTF-8. The conversions
// both ways, in one place.
#ifndef FILEINFO_CORE_TEXT_H
#define FILEINFO_CORE_TEXT_H

#include <cstddef>
#include <string>

namespace fileinfo {

// The text of a record field (at most `capacity` bytes, up to its first NUL)
// as UTF-8: every byte is one Latin-1 character.
std::string Latin1ToUtf8(const char* text, size_t capacity);

// UTF-8 to Latin-1, the form a record holds. Bytes that are not UTF-8 are
// taken as Latin-1 already. False when a character has no Latin-1 form.
bool Utf8ToLatin1(const std::string& value, std::string& out);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_TEXT_H
