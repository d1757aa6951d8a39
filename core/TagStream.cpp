#include "TagStream.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace fileinfo {

namespace {

// The block the tail of a file moves in when a tag grows or shrinks: the
// edit's memory stays this size whatever the file's.
constexpr long kBlock = 1 << 20;

}  // namespace

TagStream::TagStream(int fd, const std::string& name) : fd_(fd), name_(name) {}

TagLib::FileName TagStream::name() const { return name_.c_str(); }

void TagStream::Fail(int error) {
    if (error_ == 0) error_ = error != 0 ? error : EIO;
}

bool TagStream::ReadAt(long offset, char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd_, data + done, size - done, offset + static_cast<long>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            Fail(errno);
            return false;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return done == size;
}

bool TagStream::WriteAt(long offset, const char* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pwrite(fd_, data + done, size - done, offset + static_cast<long>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            // A write that takes nothing is a full disk.
            Fail(n == 0 ? ENOSPC : errno);
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

long TagStream::length() {
    struct stat st;
    if (fstat(fd_, &st) != 0) {
        Fail(errno);
        return 0;
    }
    return static_cast<long>(st.st_size);
}

TagLib::ByteVector TagStream::readBlock(unsigned long length) {
    // Never more than the file holds: TagLib asks for sizes read from the
    // file, and a lying size must not become an allocation.
    const long size = this->length();
    const long left = position_ < size ? size - position_ : 0;
    unsigned long wanted = length < static_cast<unsigned long>(left) ? length : static_cast<unsigned long>(left);
    if (wanted > 0x7FFFFFFFul) wanted = 0x7FFFFFFFul;  // a ByteVector counts in 32 bits
    if (wanted == 0) return TagLib::ByteVector();
    TagLib::ByteVector data(static_cast<unsigned int>(wanted), '\0');
    size_t done = 0;
    while (done < wanted) {
        const ssize_t n = pread(fd_, data.data() + done, wanted - done, position_ + static_cast<long>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            Fail(errno);
            break;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    data.resize(static_cast<unsigned int>(done));
    position_ += static_cast<long>(done);
    return data;
}

void TagStream::writeBlock(const TagLib::ByteVector& data) {
    if (WriteAt(position_, data.data(), data.size())) position_ += static_cast<long>(data.size());
}

bool TagStream::MoveTail(long from, long to) {
    const long size = length();
    if (error_ != 0 || from == to || from >= size) return error_ == 0;
    std::vector<char> block(static_cast<size_t>(kBlock));
    const long tail = size - from;
    if (to > from) {
        // Growing: from the end backwards, so that no byte is written over
        // before it was moved.
        for (long done = 0; done < tail;) {
            const long n = tail - done < kBlock ? tail - done : kBlock;
            const long at = from + tail - done - n;
            if (!ReadAt(at, block.data(), static_cast<size_t>(n))) return false;
            if (!WriteAt(at + (to - from), block.data(), static_cast<size_t>(n))) return false;
            done += n;
        }
    } else {
        for (long done = 0; done < tail;) {
            const long n = tail - done < kBlock ? tail - done : kBlock;
            if (!ReadAt(from + done, block.data(), static_cast<size_t>(n))) return false;
            if (!WriteAt(to + done, block.data(), static_cast<size_t>(n))) return false;
            done += n;
        }
    }
    return true;
}

void TagStream::insert(const TagLib::ByteVector& data, unsigned long start, unsigned long replace) {
    const long at = static_cast<long>(start);
    const long size = length();
    if (error_ != 0) return;
    const long end = at + static_cast<long>(replace) < size ? at + static_cast<long>(replace) : size;
    const long newEnd = at + static_cast<long>(data.size());
    if (!MoveTail(end, newEnd)) return;
    if (newEnd < end && ftruncate(fd_, size - (end - newEnd)) != 0) {
        Fail(errno);
        return;
    }
    if (WriteAt(at, data.data(), data.size())) position_ = newEnd;
}

void TagStream::removeBlock(unsigned long start, unsigned long length) {
    const long at = static_cast<long>(start);
    const long size = this->length();
    if (error_ != 0 || at >= size) return;
    const long end = at + static_cast<long>(length) < size ? at + static_cast<long>(length) : size;
    if (!MoveTail(end, at)) return;
    if (ftruncate(fd_, size - (end - at)) != 0) Fail(errno);
}

void TagStream::seek(long offset, Position p) {
    long base = 0;
    if (p == Current) base = position_;
    if (p == End) base = length();
    const long to = base + offset;
    position_ = to < 0 ? 0 : to;
}

void TagStream::truncate(long length) {
    if (ftruncate(fd_, length < 0 ? 0 : length) != 0) Fail(errno);
}

}  // namespace fileinfo
