// Boxes of the ISO base media family and QuickTime: their headers, and the
// walk over the children of one parent. The bytes a walk reads are the file
// itself or a movie header inflated in memory; both are read only through
// bounded, positioned reads, and every box is checked against its parent.
#ifndef FILEINFO_CORE_MEDIA_MP4BOX_H
#define FILEINFO_CORE_MEDIA_MP4BOX_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "Source.h"

namespace fileinfo {
namespace media {

// A box type as its four bytes read big-endian: FourCc("moov").
constexpr uint32_t FourCc(const char (&t)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(t[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(t[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(t[2])) << 8 | static_cast<uint8_t>(t[3]);
}

// The bytes that boxes are read from.
class BoxBytes {
public:
    virtual ~BoxBytes() = default;
    virtual uint64_t Size() const = 0;
    // Exactly `length` bytes at `offset`; false past the end.
    virtual bool ReadAt(uint64_t offset, void* out, size_t length) const = 0;
    // Up to `length` bytes at `offset` (fewer at the end) into `out`.
    bool ReadUpTo(uint64_t offset, size_t length, std::vector<uint8_t>& out) const;
    // Up to `length` bytes of [offset, end) into `out`: what a box holds,
    // read whole when it is small.
    bool ReadRange(uint64_t offset, uint64_t end, size_t length, std::vector<uint8_t>& out) const;
    // The bytes [offset, offset + length) where they are already in memory,
    // so that a table can be read without a copy; null otherwise.
    virtual const uint8_t* InPlace(uint64_t offset, uint64_t length) const {
        (void)offset;
        (void)length;
        return nullptr;
    }
};

// The file, through its Source. Reads within the head the Source holds
// cost no system call; small reads elsewhere (box headers, small boxes)
// are served from a window read ahead, so that a walk over a large movie
// header reads its boxes' headers and the tables it needs, not the whole.
class FileBoxBytes : public BoxBytes {
public:
    explicit FileBoxBytes(const Source& source) : source_(source) {}
    uint64_t Size() const override { return source_.Size(); }
    bool ReadAt(uint64_t offset, void* out, size_t length) const override;

private:
    static constexpr size_t kWindowBytes = 4096;
    const Source& source_;
    mutable std::vector<uint8_t> window_;
    mutable uint64_t window_at_ = 0;
};

// A piece of the file or an inflated movie header held in memory. Offsets
// are the buffer's own.
class MemoryBoxBytes : public BoxBytes {
public:
    explicit MemoryBoxBytes(std::vector<uint8_t> bytes)
        : owned_(std::move(bytes)), data_(owned_.data()), size_(owned_.size()) {}
    // Bytes whose first `size` were read into `bytes` (not zero-filled first).
    MemoryBoxBytes(std::unique_ptr<uint8_t[]> bytes, size_t size)
        : block_(std::move(bytes)), data_(block_.get()), size_(size) {}
    uint64_t Size() const override { return size_; }
    bool ReadAt(uint64_t offset, void* out, size_t length) const override;
    const uint8_t* InPlace(uint64_t offset, uint64_t length) const override;

private:
    std::vector<uint8_t> owned_;
    std::unique_ptr<uint8_t[]> block_;
    const uint8_t* data_;
    size_t size_;
};

struct Box {
    uint32_t type = 0;
    uint64_t offset = 0;  // where the header begins
    uint64_t body = 0;    // where the body begins, after the header
    uint64_t end = 0;     // one past the last byte, within the parent

    uint64_t BodySize() const { return end - body; }
};

// The children of one parent, [begin, end), in order. A size of 0 runs to
// the parent's end, a size of 1 is followed by a 64-bit size, and a size
// that runs past the parent is cut to the parent's end (the last box of a
// cut-short file). A size smaller than its own header ends the walk.
class BoxIterator {
public:
    BoxIterator(const BoxBytes& bytes, uint64_t begin, uint64_t end);
    bool Next(Box& box);

private:
    const BoxBytes& bytes_;
    uint64_t next_;
    uint64_t end_;
};

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_MP4BOX_H
