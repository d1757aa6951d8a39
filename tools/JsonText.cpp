#include "JsonText.h"

namespace fileinfo {

namespace {

// The characters a JSON string cannot hold as they are: the quote, the
// backslash and the control characters.
bool NeedsJsonEscape(unsigned char c) { return c < 0x20 || c == '"' || c == '\\'; }

// Writes the escape of one such character at out and returns its end: the
// short forms where JSON has one, \u00xx (lower-case hex) for the other
// control characters.
char* PutJsonEscape(char* out, unsigned char c) {
    static const char kHex[] = "0123456789abcdef";
    char shortForm = 0;
    switch (c) {
        case '"': shortForm = '"'; break;
        case '\\': shortForm = '\\'; break;
        case '\b': shortForm = 'b'; break;
        case '\f': shortForm = 'f'; break;
        case '\n': shortForm = 'n'; break;
        case '\r': shortForm = 'r'; break;
        case '\t': shortForm = 't'; break;
        default: break;
    }
    *out++ = '\\';
    if (shortForm != 0) {
        *out++ = shortForm;
        return out;
    }
    *out++ = 'u';
    *out++ = '0';
    *out++ = '0';
    *out++ = kHex[c >> 4];
    *out++ = kHex[c & 0xF];
    return out;
}

// The length of the valid UTF-8 sequence at s[i], or 0 when the bytes
// there are no valid sequence. `cut` is how many bytes were looked at
// before the sequence failed (at least 1): an invalid part spans them.
size_t Utf8Sequence(const unsigned char* s, size_t n, size_t i, size_t& cut) {
    const unsigned char c = s[i];
    cut = 1;
    if (c < 0x80) return 1;
    // The continuation bytes a lead byte needs, and the range of the first
    // of them (narrower where the shortest form, the surrogates or the end
    // of Unicode rule values out).
    size_t need = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (c >= 0xC2 && c <= 0xDF) {
        need = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
        need = 2;
        if (c == 0xE0) low = 0xA0;
        if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        need = 3;
        if (c == 0xF0) low = 0x90;
        if (c == 0xF4) high = 0x8F;
    }
    size_t k = 1;  // the sequence's bytes seen so far
    for (; k <= need && i + k < n; ++k, low = 0x80, high = 0xBF) {
        if (s[i + k] < low || s[i + k] > high) break;
    }
    cut = k;
    return need != 0 && k > need ? k : 0;
}

}  // namespace

// The byte that cut an invalid part short is read again on its own.
char* PutJsonString(char* out, std::string_view text) {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    *out++ = '"';
    size_t i = 0;
    while (i < n) {
        const unsigned char c = s[i];
        if (c < 0x80) {
            if (NeedsJsonEscape(c)) {
                out = PutJsonEscape(out, c);
            } else {
                *out++ = static_cast<char>(c);
            }
            ++i;
            continue;
        }
        size_t cut = 0;
        const size_t length = Utf8Sequence(s, n, i, cut);
        if (length != 0) {
            memcpy(out, s + i, length);  // a whole sequence goes over as it is
            out += length;
            i += length;
        } else {
            out = PutLiteral(out, "\xEF\xBF\xBD");
            i += cut;
        }
    }
    *out++ = '"';
    return out;
}

// Every byte is one Latin-1 character; those of 0x80 and up take two bytes
// in UTF-8.
char* PutLatin1Escaped(char* out, const char* text, size_t capacity) {
    for (size_t i = 0; i < capacity && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            *out++ = static_cast<char>(0xC0 | (c >> 6));
            *out++ = static_cast<char>(0x80 | (c & 0x3F));
        } else if (NeedsJsonEscape(c)) {
            out = PutJsonEscape(out, c);
        } else {
            *out++ = static_cast<char>(c);
        }
    }
    return out;
}

char* PutUnsigned(char* out, unsigned long value) {
    char digits[kLongestNumber];
    char* first = digits + sizeof digits;
    do {
        *--first = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    const size_t n = static_cast<size_t>(digits + sizeof digits - first);
    memcpy(out, first, n);
    return out + n;
}

char* PutInt(char* out, int value) {
    if (value < 0) *out++ = '-';
    return PutUnsigned(out, value < 0 ? 0ul - static_cast<unsigned long>(value) : static_cast<unsigned long>(value));
}

bool IsUtf8(std::string_view text) {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0, cut = 0; i < text.size();) {
        const size_t length = Utf8Sequence(s, text.size(), i, cut);
        if (length == 0) return false;
        i += length;
    }
    return true;
}

std::string Hex(std::string_view bytes) {
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(2 * bytes.size());
    for (const char b : bytes) {
        const unsigned char c = static_cast<unsigned char>(b);
        hex += kHex[c >> 4];
        hex += kHex[c & 0xF];
    }
    return hex;
}

void AppendJsonString(std::string& out, std::string_view text) {
    const size_t start = out.size();
    out.resize(start + JsonStringBound(text.size()));
    out.resize(static_cast<size_t>(PutJsonString(&out[start], text) - out.data()));
}

void AppendJsonLatin1(std::string& out, const char* text, size_t capacity) {
    const size_t start = out.size();
    out.resize(start + 2 + kLongestEscape * capacity);
    char* end = &out[start];
    *end++ = '"';
    end = PutLatin1Escaped(end, text, capacity);
    *end++ = '"';
    out.resize(static_cast<size_t>(end - out.data()));
}

}  // namespace fileinfo
