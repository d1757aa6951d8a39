#include "Utf8.h"

namespace fileinfo {
namespace media {

namespace {
constexpr uint32_t kReplacement = 0xFFFD;
}  // namespace

void AppendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | code >> 18);
        out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// UTF-8 as it should be: every ill-formed sequence (overlong, surrogate,
// above U+10FFFF, cut short) becomes one U+FFFD per maximal bad prefix.
std::string Utf8Text(const uint8_t* p, size_t n) {
    std::string out;
    out.reserve(n);
    size_t i = 0;
    while (i < n) {
        const uint8_t lead = p[i];
        if (lead < 0x80) {
            out += static_cast<char>(lead);
            ++i;
            continue;
        }
        size_t need = 0;
        uint32_t code = 0;
        uint8_t low = 0x80, high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            need = 1, code = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            need = 2, code = lead & 0x0F;
            if (lead == 0xE0) low = 0xA0;
            if (lead == 0xED) high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            need = 3, code = lead & 0x07;
            if (lead == 0xF0) low = 0x90;
            if (lead == 0xF4) high = 0x8F;
        } else {
            AppendUtf8(out, kReplacement);
            ++i;
            continue;
        }
        size_t j = 1;
        for (; j <= need; ++j) {
            if (i + j >= n) break;
            const uint8_t c = p[i + j];
            if (c < (j == 1 ? low : 0x80) || c > (j == 1 ? high : 0xBF)) break;
            code = code << 6 | (c & 0x3F);
        }
        if (j > need) {
            AppendUtf8(out, code);
            i += need + 1;
        } else {
            AppendUtf8(out, kReplacement);
            i += j;
        }
    }
    return out;
}

}  // namespace media
}  // namespace fileinfo
