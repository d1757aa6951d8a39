#include "AudioSpans.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "media/Source.h"

namespace fileinfo {

namespace {

using media::BigEndian32;
using media::BigEndian64;
using media::LittleEndian32;

constexpr size_t kBlock = 1 << 16;
// No file has this many mdat boxes or chunks; a loop over a hostile file
// ends here.
constexpr int kMaxBoxes = 1 << 16;

bool ReadExactly(int fd, uint64_t offset, uint8_t* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pread(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

// The size of an ID3v2 tag from its header (with the footer when flagged),
// or 0 when `h` is not one.
uint64_t Id3v2Size(const uint8_t* h) {
    if (memcmp(h, "ID3", 3) != 0 || h[3] == 0xFF || h[4] == 0xFF) return 0;
    if ((h[6] | h[7] | h[8] | h[9]) & 0x80) return 0;
    const uint64_t body = static_cast<uint64_t>(h[6]) << 21 | h[7] << 14 | h[8] << 7 | h[9];
    return 10 + body + ((h[5] & 0x10) != 0 ? 10 : 0);
}

int Id3FileSpans(int fd, uint64_t size, std::vector<ByteSpan>& spans) {
    uint64_t start = 0;
    uint8_t header[10];
    // Tags in front, one after another (a writer may have left two).
    for (int k = 0; k < kMaxBoxes && start + 10 <= size && ReadExactly(fd, start, header, 10); ++k) {
        const uint64_t tag = Id3v2Size(header);
        if (tag == 0 || tag > size - start) break;
        start += tag;
    }
    uint64_t end = size;
    uint8_t trailer[32];
    if (end >= start + 128 && ReadExactly(fd, end - 128, trailer, 3) && memcmp(trailer, "TAG", 3) == 0) end -= 128;
    // An APE tag before the ID3v1 trailer: its footer ends it.
    if (end >= start + 32 && ReadExactly(fd, end - 32, trailer, 32) && memcmp(trailer, "APETAGEX", 8) == 0) {
        const uint64_t items = LittleEndian32(trailer + 12);
        const bool hasHeader = (LittleEndian32(trailer + 20) & 0x80000000u) != 0;
        const uint64_t whole = items + (hasHeader ? 32 : 0);
        if (whole <= end - start) end -= whole;
    }
    spans.push_back({start, end - start});
    return 0;
}

int Mp4Spans(int fd, uint64_t size, std::vector<ByteSpan>& spans) {
    uint64_t at = 0;
    uint8_t header[16];
    for (int k = 0; k < kMaxBoxes && at + 8 <= size; ++k) {
        if (!ReadExactly(fd, at, header, 8)) return EIO;
        uint64_t box = BigEndian32(header);
        uint64_t headerSize = 8;
        if (box == 1) {
            if (at + 16 > size || !ReadExactly(fd, at + 8, header + 8, 8)) return EINVAL;
            box = BigEndian64(header + 8);
            headerSize = 16;
        } else if (box == 0) {
            box = size - at;  // to the end of the file
        }
        if (box < headerSize || box > size - at) return EINVAL;
        if (memcmp(header + 4, "mdat", 4) == 0) spans.push_back({at + headerSize, box - headerSize});
        at += box;
    }
    return 0;
}

// The first chunk `id` of a RIFF (little-endian sizes) or FORM (big-endian)
// file, whose chunks start at 12 and are padded to even sizes.
int ChunkSpan(int fd, uint64_t size, const char* id, bool bigEndian, std::vector<ByteSpan>& spans) {
    uint64_t at = 12;
    uint8_t header[8];
    for (int k = 0; k < kMaxBoxes && at + 8 <= size; ++k) {
        if (!ReadExactly(fd, at, header, 8)) return EIO;
        const uint64_t chunk = bigEndian ? BigEndian32(header + 4) : LittleEndian32(header + 4);
        const uint64_t room = size - at - 8;
        if (memcmp(header, id, 4) == 0) {
            spans.push_back({at + 8, chunk < room ? chunk : room});
            return 0;
        }
        if (chunk > room) break;
        at += 8 + chunk + (chunk & 1);
    }
    return EINVAL;
}

// Reads the bytes of `spans` in order, one block at a time.
class SpanReader {
public:
    SpanReader(int fd, const std::vector<ByteSpan>& spans) : fd_(fd), spans_(spans) {}
    // Up to `size` bytes; 0 at the end; -1 on a failed read.
    ssize_t Read(uint8_t* data, size_t size) {
        while (index_ < spans_.size() && done_ == spans_[index_].size) {
            ++index_;
            done_ = 0;
        }
        if (index_ == spans_.size()) return 0;
        const uint64_t left = spans_[index_].size - done_;
        const size_t n = left < size ? static_cast<size_t>(left) : size;
        if (!ReadExactly(fd_, spans_[index_].offset + done_, data, n)) return -1;
        done_ += n;
        return static_cast<ssize_t>(n);
    }

private:
    int fd_;
    const std::vector<ByteSpan>& spans_;
    size_t index_ = 0;
    uint64_t done_ = 0;
};

uint64_t Total(const std::vector<ByteSpan>& spans) {
    uint64_t total = 0;
    for (const ByteSpan& s : spans) total += s.size;
    return total;
}

}  // namespace

int FindAudioSpans(int fd, TagFormat format, std::vector<ByteSpan>& spans) {
    spans.clear();
    struct stat st;
    if (fstat(fd, &st) != 0) return errno;
    const uint64_t size = static_cast<uint64_t>(st.st_size);
    switch (format) {
        case TagFormat::Id3: return Id3FileSpans(fd, size, spans);
        case TagFormat::Mp4: return Mp4Spans(fd, size, spans);
        case TagFormat::Wav: return ChunkSpan(fd, size, "data", false, spans);
        case TagFormat::Aiff: return ChunkSpan(fd, size, "SSND", true, spans);
        case TagFormat::None: break;
    }
    return EINVAL;
}

bool SameAudio(int a, int b, TagFormat format, int& error) {
    std::vector<ByteSpan> first, second;
    if ((error = FindAudioSpans(a, format, first)) != 0 || (error = FindAudioSpans(b, format, second)) != 0)
        return false;
    if (Total(first) != Total(second)) return false;
    SpanReader readA(a, first), readB(b, second);
    std::vector<uint8_t> blockA(kBlock), blockB(kBlock);
    for (;;) {
        const ssize_t n = readA.Read(blockA.data(), kBlock);
        const ssize_t m = readB.Read(blockB.data(), static_cast<size_t>(n > 0 ? n : 1));
        if (n < 0 || m < 0) {
            error = EIO;
            return false;
        }
        if (n != m) return false;
        if (n == 0) return true;
        if (memcmp(blockA.data(), blockB.data(), static_cast<size_t>(n)) != 0) return false;
    }
}

}  // namespace fileinfo
