// Multi-byte numbers as the formats store them. Every reader takes its
// numbers through these, so each read says which byte order it expects.
// MPEG audio, ID3, MP4 and AIFF are big-endian and are read byte by byte,
// whatever the host's own order.
#ifndef FILEINFO_DETAIL_BYTEORDER_H
#define FILEINFO_DETAIL_BYTEORDER_H

#include <cstring>

namespace fileinfo_detail {

// Big-endian: the first byte is the most significant.
inline unsigned int Be16(const unsigned char* p) {
    return (static_cast<unsigned int>(p[0]) << 8) | p[1];
}

inline unsigned int Be32(const unsigned char* p) {
    return (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
           (static_cast<unsigned int>(p[2]) << 8) | p[3];
}

// Little-endian: the first byte is the least significant.
inline unsigned int Le16(const unsigned char* p) {
    return p[0] | (static_cast<unsigned int>(p[1]) << 8);
}

inline unsigned int Le32(const unsigned char* p) {
    return p[0] | (static_cast<unsigned int>(p[1]) << 8) | (static_cast<unsigned int>(p[2]) << 16) |
           (static_cast<unsigned int>(p[3]) << 24);
}

// The host's own order. Only the WAV reader reads so, and on purpose: it
// takes the RIFF header's little-endian fields as they lie in memory, as it
// always has, so that its records stay what hosts have (on a little-endian
// host this is Le16/Le32).
inline unsigned int Host16(const unsigned char* p) {
    unsigned short v;
    memcpy(&v, p, sizeof v);
    return v;
}

inline unsigned int Host32(const unsigned char* p) {
    unsigned int v;
    memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_BYTEORDER_H
