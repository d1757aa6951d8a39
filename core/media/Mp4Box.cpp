#include "Mp4Box.h"

#include <cstring>

namespace fileinfo {
namespace media {

bool BoxBytes::ReadUpTo(uint64_t offset, size_t length, std::vector<uint8_t>& out) const {
    out.clear();
    const uint64_t size = Size();
    if (offset >= size) return true;
    const uint64_t left = size - offset;
    out.resize(left < length ? static_cast<size_t>(left) : length);
    if (!ReadAt(offset, out.data(), out.size())) {
        out.clear();
        return false;
    }
    return true;
}

bool BoxBytes::ReadRange(uint64_t offset, uint64_t end, size_t length, std::vector<uint8_t>& out) const {
    out.clear();
    if (offset >= end) return true;
    const uint64_t left = end - offset;
    return ReadUpTo(offset, left < length ? static_cast<size_t>(left) : length, out);
}

namespace {

// Copies [offset, offset + length) out of `bytes` when it lies within them.
bool CopyFrom(const std::vector<uint8_t>& bytes, uint64_t bytesAt, uint64_t offset, void* out, size_t length) {
    if (offset < bytesAt || offset - bytesAt > bytes.size() || length > bytes.size() - (offset - bytesAt)) {
        return false;
    }
    if (length > 0) std::memcpy(out, bytes.data() + (offset - bytesAt), length);
    return true;
}

}  // namespace

bool FileBoxBytes::ReadAt(uint64_t offset, void* out, size_t length) const {
    if (CopyFrom(source_.Head(), 0, offset, out, length)) return true;
    if (length > kWindowBytes / 2) return source_.ReadAt(offset, out, length);
    if (CopyFrom(window_, window_at_, offset, out, length)) return true;
    if (!source_.ReadUpTo(offset, kWindowBytes, window_)) return false;
    window_at_ = offset;
    return CopyFrom(window_, window_at_, offset, out, length);
}

bool MemoryBoxBytes::ReadAt(uint64_t offset, void* out, size_t length) const {
    if (offset > size_ || length > size_ - offset) return false;
    if (length > 0) std::memcpy(out, data_ + offset, length);
    return true;
}

const uint8_t* MemoryBoxBytes::InPlace(uint64_t offset, uint64_t length) const {
    if (offset > size_ || length > size_ - offset) return nullptr;
    return data_ + offset;
}

BoxIterator::BoxIterator(const BoxBytes& bytes, uint64_t begin, uint64_t end)
    : bytes_(bytes), next_(begin), end_(end < bytes.Size() ? end : bytes.Size()) {}

bool BoxIterator::Next(Box& box) {
    if (next_ >= end_ || end_ - next_ < 8) return false;
    uint8_t header[16];
    if (!bytes_.ReadAt(next_, header, 8)) return false;
    const uint64_t room = end_ - next_;
    uint64_t size = BigEndian32(header);
    uint64_t headerSize = 8;
    if (size == 1) {
        if (room < 16 || !bytes_.ReadAt(next_ + 8, header + 8, 8)) return false;
        size = BigEndian64(header + 8);
        headerSize = 16;
    } else if (size == 0) {
        size = room;
    }
    if (size < headerSize) {
        next_ = end_;  // a size that cannot hold its own header: nothing after it can be trusted
        return false;
    }
    if (size > room) size = room;
    box.type = BigEndian32(header + 4);
    box.offset = next_;
    box.body = next_ + headerSize;
    box.end = next_ + size;
    next_ = box.end;
    return true;
}

}  // namespace media
}  // namespace fileinfo
