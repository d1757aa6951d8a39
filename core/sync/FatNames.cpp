#include "sync/FatNames.h"

#include <cstring>

namespace fileinfo {
namespace sync {

namespace {

// The length of the UTF-8 sequence at `at` and its code point; 0 when the
// bytes there are no well-formed sequence (overlong, surrogate, cut short).
size_t DecodeUtf8(const std::string& text, size_t at, uint32_t& point) {
    const unsigned char lead = static_cast<unsigned char>(text[at]);
    size_t length = 0;
    if (lead < 0x80) {
        point = lead;
        return 1;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        point = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        point = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        point = lead & 0x07;
    } else {
        return 0;
    }
    if (at + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[at + k]);
        if ((next & 0xC0) != 0x80) return 0;
        point = (point << 6) | (next & 0x3F);
    }
    if ((length == 3 && point < 0x800) || (length == 4 && (point < 0x10000 || point > 0x10FFFF)) ||
        (point >= 0xD800 && point <= 0xDFFF)) {
        return 0;
    }
    return length;
}

bool Refused(uint32_t point) { return point < 0x20 || point == 0x7F || (point < 0x80 && strchr("\"*:<>?\\|", static_cast<int>(point)) != nullptr); }

// The longest start of `text` within `units` UTF-16 units, cut on a
// character's boundary. `text` is well-formed UTF-8 here.
std::string CutToUnits(const std::string& text, size_t units) {
    size_t at = 0, used = 0;
    while (at < text.size()) {
        uint32_t point = 0;
        size_t length = DecodeUtf8(text, at, point);
        if (length == 0) length = 1;
        const size_t cost = point >= 0x10000 ? 2 : 1;
        if (used + cost > units) break;
        used += cost;
        at += length;
    }
    return text.substr(0, at);
}

// The extension with its dot, when the name has a short one after a stem.
size_t ExtensionAt(const std::string& name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || name.size() - dot > 16) return std::string::npos;
    return dot;
}

std::string StripTrailing(std::string name) {
    while (!name.empty() && (name.back() == '.' || name.back() == ' ')) name.pop_back();
    return name;
}

}  // namespace

size_t Utf16Units(const std::string& text) {
    size_t units = 0;
    for (size_t at = 0; at < text.size();) {
        uint32_t point = 0;
        const size_t length = DecodeUtf8(text, at, point);
        units += length != 0 && point >= 0x10000 ? 2 : 1;
        at += length == 0 ? 1 : length;
    }
    return units;
}

std::string FatName(const std::string& name) {
    std::string clean;
    clean.reserve(name.size());
    for (size_t at = 0; at < name.size();) {
        uint32_t point = 0;
        const size_t length = DecodeUtf8(name, at, point);
        if (length == 0) {
            clean += '_';
            ++at;
            continue;
        }
        if (Refused(point)) {
            clean += '_';
        } else {
            clean.append(name, at, length);
        }
        at += length;
    }
    clean = StripTrailing(clean);
    if (Utf16Units(clean) > kFatNameUnits) {
        const size_t dot = ExtensionAt(clean);
        const std::string extension = dot == std::string::npos ? std::string() : clean.substr(dot);
        const std::string stem = dot == std::string::npos ? clean : clean.substr(0, dot);
        clean = StripTrailing(CutToUnits(stem, kFatNameUnits - Utf16Units(extension))) + extension;
    }
    if (clean.empty() || clean == "." || clean == "..") clean = "_";
    return clean;
}

std::string FatFoldKey(const std::string& name) {
    std::string key;
    key.reserve(name.size());
    for (size_t at = 0; at < name.size();) {
        uint32_t point = 0;
        const size_t length = DecodeUtf8(name, at, point);
        if (length == 0) {
            key += name[at++];
            continue;
        }
        if (point >= 'A' && point <= 'Z') {
            key += static_cast<char>(point + 32);
        } else if (point >= 0xC0 && point <= 0xDE && point != 0xD7) {
            // Latin-1's capitals are 32 below their small letters.
            const uint32_t small = point + 32;
            key += static_cast<char>(0xC0 | (small >> 6));
            key += static_cast<char>(0x80 | (small & 0x3F));
        } else {
            key.append(name, at, length);
        }
        at += length;
    }
    return key;
}

std::string NumberedName(const std::string& name, unsigned n) {
    const std::string mark = " (" + std::to_string(n) + ")";
    const size_t dot = ExtensionAt(name);
    const std::string extension = dot == std::string::npos ? std::string() : name.substr(dot);
    std::string stem = dot == std::string::npos ? name : name.substr(0, dot);
    const size_t room = kFatNameUnits - Utf16Units(extension) - mark.size();
    if (Utf16Units(stem) > room) stem = CutToUnits(stem, room);
    return stem + mark + extension;
}

}  // namespace sync
}  // namespace fileinfo
