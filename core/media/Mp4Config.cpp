#include "Mp4Config.h"

namespace fileinfo {
namespace media {

uint32_t BitReader::Read(unsigned count) {
    uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i) {
        value <<= 1;
        if (at_ < bits_) {
            value |= (data_[at_ / 8] >> (7 - at_ % 8)) & 1u;
        } else {
            overrun = true;
        }
        ++at_;
    }
    return value;
}

bool FindChild(const std::vector<uint8_t>& entry, size_t at, size_t limit, uint32_t type, Span& found) {
    if (limit > entry.size()) limit = entry.size();
    for (unsigned seen = 0; at < limit && limit - at >= 8 && seen < 256; ++seen) {
        uint64_t size = BigEndian32(entry.data() + at);
        const uint32_t childType = BigEndian32(entry.data() + at + 4);
        if (size == 0) size = limit - at;
        if (size < 8) return false;
        const size_t childEnd = size > limit - at ? limit : at + static_cast<size_t>(size);
        if (childType == type) {
            found.body = at + 8;
            found.end = childEnd;
            return true;
        }
        at = childEnd;
    }
    return false;
}

bool FindConfig(const std::vector<uint8_t>& entry, size_t childrenAt, uint32_t type, Span& found) {
    if (FindChild(entry, childrenAt, entry.size(), type, found)) return true;
    Span wave;
    return FindChild(entry, childrenAt, entry.size(), FourCc("wave"), wave) &&
           FindChild(entry, wave.body, wave.end, type, found);
}

namespace {

// A descriptor's tag and length (1 to 4 bytes of 7 bits each); the length
// is cut to what [at, length) holds.
bool ReadDescriptor(const uint8_t* p, size_t length, size_t& at, unsigned& tag, size_t& size) {
    if (at >= length) return false;
    tag = p[at++];
    size = 0;
    for (int i = 0; i < 4; ++i) {
        if (at >= length) return false;
        const uint8_t b = p[at++];
        size = size << 7 | (b & 0x7F);
        if ((b & 0x80) == 0) break;
    }
    if (size > length - at) size = length - at;
    return true;
}

}  // namespace

// esds: version and flags, then an ES_Descriptor (tag 3) holding a
// DecoderConfigDescriptor (4: object type, stream type, buffer size, max
// and average bit rate) holding the DecoderSpecificInfo (5).
bool ReadEsds(const uint8_t* p, size_t length, DecoderConfig& out) {
    if (length < 4) return false;
    size_t at = 4;
    unsigned tag = 0;
    size_t size = 0;
    if (!ReadDescriptor(p, length, at, tag, size)) return false;
    size_t end = at + size;
    if (tag == 0x03) {
        if (size < 3) return false;
        const uint8_t flags = p[at + 2];
        at += 3;
        if (flags & 0x80) at += 2;                         // depends on an ES_ID
        if ((flags & 0x40) && at < end) at += 1u + p[at];  // a URL
        if (flags & 0x20) at += 2;                         // an OCR ES_ID
        if (at >= end || !ReadDescriptor(p, end, at, tag, size)) return false;
        end = at + size;
    }
    if (tag != 0x04 || size < 13) return false;
    out.object_type = p[at];
    at += 13;
    while (at < end) {
        if (!ReadDescriptor(p, end, at, tag, size)) break;
        if (tag == 0x05) {
            out.info = p + at;
            out.info_size = size;
            break;
        }
        at += size;
    }
    return true;
}

std::string TypeText(uint32_t type) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = static_cast<char>(type >> shift);
        text += (c >= 0x20 && c < 0x7F) ? c : '?';
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

}  // namespace media
}  // namespace fileinfo
