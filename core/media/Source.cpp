#include "Source.h"

#include <unistd.h>

#include <cerrno>

namespace fileinfo {
namespace media {

namespace {
constexpr size_t kHeadBytes = 64 * 1024;
}

Source::Source(int fd, uint64_t size) : fd_(fd), size_(size) {
    ReadUpTo(0, kHeadBytes, head_);
}

bool Source::ReadAt(uint64_t offset, void* out, size_t length) const {
    if (offset > size_ || length > size_ - offset) return false;
    auto* bytes = static_cast<uint8_t*>(out);
    size_t done = 0;
    while (done < length) {
        const ssize_t got = pread(fd_, bytes + done, length - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

bool Source::ReadUpTo(uint64_t offset, size_t length, std::vector<uint8_t>& out) const {
    out.clear();
    if (offset >= size_) return true;
    const uint64_t left = size_ - offset;
    out.resize(left < length ? static_cast<size_t>(left) : length);
    if (!ReadAt(offset, out.data(), out.size())) {
        out.clear();
        return false;
    }
    return true;
}

}  // namespace media
}  // namespace fileinfo
