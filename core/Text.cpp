#include "Text.h"

namespace fileinfo {

std::string Latin1ToUtf8(const char* text, size_t capacity) {
    std::string out;
    out.reserve(capacity);
    for (size_t i = 0; i < capacity && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

bool Utf8ToLatin1(const std::string& value, std::string& out) {
    std::string latin1;
    for (size_t i = 0; i < value.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(value[i]);
        if (c < 0x80) {
            latin1 += static_cast<char>(c);
            continue;
        }
        const size_t extra = (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : 0;
        if (extra == 0 || i + extra >= value.size()) {
            out = value;  // not UTF-8
            return true;
        }
        unsigned long code = c & (0x3F >> extra);
        for (size_t k = 1; k <= extra; ++k) {
            const unsigned char next = static_cast<unsigned char>(value[i + k]);
            if ((next & 0xC0) != 0x80) {
                out = value;  // not UTF-8
                return true;
            }
            code = (code << 6) | (next & 0x3F);
        }
        if (code > 0xFF) return false;
        latin1 += static_cast<char>(code);
        i += extra;
    }
    out = latin1;
    return true;
}

}  // namespace fileinfo
