// The pieces of a JSON line: strings (paths and device texts are bytes
// that need not be UTF-8; record texts are Latin-1), numbers and literals,
// written into room the caller sized beforehand with the bounds given here.
#ifndef FILEINFO_TOOLS_JSONTEXT_H
#define FILEINFO_TOOLS_JSONTEXT_H

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace fileinfo {

// The longest form one byte of a string can take in a JSON line: \u00xx.
constexpr size_t kLongestEscape = 6;
// An unsigned long has at most 20 decimal digits.
constexpr size_t kLongestNumber = 20;

// The most bytes PutJsonString writes for a text of n bytes.
inline size_t JsonStringBound(size_t n) { return 2 + kLongestEscape * n; }

template <size_t N>
char* PutLiteral(char* out, const char (&text)[N]) {
    memcpy(out, text, N - 1);
    return out + N - 1;
}

inline char* PutBytes(char* out, std::string_view bytes) {
    memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

// A byte string as a JSON string: each part that is not UTF-8 becomes one
// U+FFFD.
char* PutJsonString(char* out, std::string_view text);
// A record text (Latin-1, at most `capacity` bytes up to its NUL) as the
// inside of a JSON string, without the quotes.
char* PutLatin1Escaped(char* out, const char* text, size_t capacity);
char* PutUnsigned(char* out, unsigned long value);
char* PutInt(char* out, int value);
inline char* PutBool(char* out, bool value) { return value ? PutLiteral(out, "true") : PutLiteral(out, "false"); }
// A text that is null when empty.
inline char* PutJsonTextOrNull(char* out, const std::string& text) {
    return text.empty() ? PutLiteral(out, "null") : PutJsonString(out, text);
}

// Whether bytes are valid UTF-8 (shortest forms, no surrogates, at most
// U+10FFFF): JSON keeps such a path as it is.
bool IsUtf8(std::string_view text);
// Bytes in lower-case hex, two digits each.
std::string Hex(std::string_view bytes);

// Appending forms, for the rarer objects (chosen fields, the summary)
// where speed does not matter.
void AppendJsonString(std::string& out, std::string_view text);
void AppendJsonLatin1(std::string& out, const char* text, size_t capacity);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_JSONTEXT_H
