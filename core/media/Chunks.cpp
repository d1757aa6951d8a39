#include "Chunks.h"

#include <cstdio>
#include <cstring>

namespace fileinfo {
namespace media {

bool ReadSmall(const Source& source, uint64_t offset, void* out, size_t length) {
    const std::vector<uint8_t>& head = source.Head();
    if (offset <= head.size() && length <= head.size() - offset) {
        std::memcpy(out, head.data() + offset, length);
        return true;
    }
    return source.ReadAt(offset, out, length);
}

bool PlausibleChunkId(const uint8_t* id) {
    for (int i = 0; i < 4; ++i) {
        if (id[i] < 0x20 || id[i] > 0x7E) return false;
    }
    return true;
}

uint64_t NextChunk(const Source& source, uint64_t body, uint64_t size, uint64_t end) {
    if (body > end || size > end - body) return 0;
    const uint64_t unpadded = body + size;
    if ((size & 1) == 0) return unpadded;
    const uint64_t padded = unpadded + 1;
    // At the end of the file, or of a file whose last pad byte is missing,
    // there is nothing to look for.
    if (padded + 8 > end) return padded <= end ? padded : unpadded;
    // Pad bytes are zero as written; a byte that is not, where a chunk id
    // can begin, is the first of the next chunk's id.
    uint8_t id[4];
    if (!ReadSmall(source, unpadded, id, sizeof id)) return padded;
    return id[0] != 0 && PlausibleChunkId(id) ? unpadded : padded;
}

bool ValidUtf8(const uint8_t* data, size_t length) {
    size_t i = 0;
    while (i < length) {
        const uint8_t lead = data[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        size_t extra = 0;
        uint32_t code = 0;
        uint32_t least = 0;
        if ((lead & 0xE0) == 0xC0) {
            extra = 1, code = lead & 0x1F, least = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2, code = lead & 0x0F, least = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3, code = lead & 0x07, least = 0x10000;
        } else {
            return false;
        }
        if (extra > length - i - 1) return false;
        for (size_t k = 1; k <= extra; ++k) {
            const uint8_t next = data[i + k];
            if ((next & 0xC0) != 0x80) return false;
            code = code << 6 | (next & 0x3F);
        }
        if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
        i += extra + 1;
    }
    return true;
}

std::string EightBitText(const uint8_t* data, size_t length) {
    const void* nul = std::memchr(data, 0, length);
    if (nul != nullptr) length = static_cast<size_t>(static_cast<const uint8_t*>(nul) - data);
    if (ValidUtf8(data, length)) return std::string(reinterpret_cast<const char*>(data), length);
    std::string text;
    text.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        const uint8_t c = data[i];
        if (c < 0x80) {
            text.push_back(static_cast<char>(c));
        } else {
            text.push_back(static_cast<char>(0xC0 | c >> 6));
            text.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return text;
}

namespace {

// Leading decimal digits from `at` (spaces before them skipped), at most 9.
bool Number(const std::string& text, size_t& at, uint32_t& value) {
    while (at < text.size() && text[at] == ' ') ++at;
    uint32_t result = 0;
    size_t digits = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
        if (++digits > 9) return false;
        result = result * 10 + static_cast<uint32_t>(text[at] - '0');
        ++at;
    }
    if (digits == 0) return false;
    value = result;
    return true;
}

}  // namespace

void ParseTrackText(const std::string& text, uint32_t& track, uint32_t& total) {
    size_t at = 0;
    uint32_t number = 0;
    if (!Number(text, at, number)) return;
    track = number;
    while (at < text.size() && text[at] == ' ') ++at;
    if (at < text.size() && text[at] == '/') {
        ++at;
        if (Number(text, at, number)) total = number;
    }
}

std::string FourCcName(const uint8_t* code) {
    if (PlausibleChunkId(code)) {
        std::string name(reinterpret_cast<const char*>(code), 4);
        while (!name.empty() && name.back() == ' ') name.pop_back();
        if (!name.empty()) return name;
    }
    char hex[11];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(BigEndian32(code)));
    return hex;
}

}  // namespace media
}  // namespace fileinfo
