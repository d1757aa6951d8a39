// Bounded reads from an open file for the readers: every read names its
// offset and length and is checked against the file's size, so a size field
// that a file lies about can never send a reader past the end or make it
// allocate what the file does not hold.
#ifndef FILEINFO_CORE_MEDIA_SOURCE_H
#define FILEINFO_CORE_MEDIA_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fileinfo {
namespace media {

class Source {
public:
    // `fd` stays the caller's; `size` is the file's size from fstat.
    Source(int fd, uint64_t size);

    uint64_t Size() const { return size_; }

    // Reads exactly `length` bytes at `offset` into `out`; false when the
    // range runs past the end of the file or the read fails.
    bool ReadAt(uint64_t offset, void* out, size_t length) const;
    // Reads up to `length` bytes at `offset` (fewer at the end of the
    // file) into `out`, which is resized to what was read.
    bool ReadUpTo(uint64_t offset, size_t length, std::vector<uint8_t>& out) const;

    // The first bytes of the file, read once (up to 64 KiB).
    const std::vector<uint8_t>& Head() const { return head_; }

private:
    int fd_;
    uint64_t size_;
    std::vector<uint8_t> head_;
};

// Byte order named at every read.
inline uint16_t BigEndian16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t BigEndian24(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[2];
}
inline uint32_t BigEndian32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
           static_cast<uint32_t>(p[2]) << 8 | p[3];
}
inline uint64_t BigEndian64(const uint8_t* p) {
    return static_cast<uint64_t>(BigEndian32(p)) << 32 | BigEndian32(p + 4);
}
inline uint16_t LittleEndian16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
inline uint32_t LittleEndian32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
inline uint64_t LittleEndian64(const uint8_t* p) {
    return static_cast<uint64_t>(LittleEndian32(p)) | static_cast<uint64_t>(LittleEndian32(p + 4)) << 32;
}

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_SOURCE_H
