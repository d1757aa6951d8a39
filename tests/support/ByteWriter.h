// Byte-by-byte construction of test media: big- and little-endian writers
// and patching of sizes after the fact. Shared by every format's builder.
#ifndef FILEINFO_TESTS_BYTEWRITER_H
#define FILEINFO_TESTS_BYTEWRITER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

class ByteWriter {
public:
    ByteWriter& u8(unsigned v) { bytes_.push_back(static_cast<uint8_t>(v)); return *this; }
    ByteWriter& be16(unsigned v) { return u8(v >> 8).u8(v); }
    ByteWriter& be24(unsigned v) { return u8(v >> 16).u8(v >> 8).u8(v); }
    ByteWriter& be32(uint32_t v) { return u8(v >> 24).u8(v >> 16).u8(v >> 8).u8(v); }
    ByteWriter& be64(uint64_t v) { return be32(static_cast<uint32_t>(v >> 32)).be32(static_cast<uint32_t>(v)); }
    ByteWriter& le16(unsigned v) { return u8(v).u8(v >> 8); }
    ByteWriter& le32(uint32_t v) { return u8(v).u8(v >> 8).u8(v >> 16).u8(v >> 24); }
    // The characters of s, without a terminator.
    ByteWriter& str(const std::string& s) { bytes_.insert(bytes_.end(), s.begin(), s.end()); return *this; }
    // s cut or zero-padded to exactly n bytes.
    ByteWriter& fixed(const std::string& s, size_t n) {
        for (size_t i = 0; i < n; ++i) u8(i < s.size() ? static_cast<uint8_t>(s[i]) : 0);
        return *this;
    }
    ByteWriter& fill(size_t n, uint8_t v = 0) { bytes_.insert(bytes_.end(), n, v); return *this; }
    ByteWriter& bytes(const Bytes& b) { bytes_.insert(bytes_.end(), b.begin(), b.end()); return *this; }

    size_t size() const { return bytes_.size(); }
    // Overwrites a big-endian 32-bit value already written, e.g. a size.
    void patchBe32(size_t at, uint32_t v) {
        bytes_[at] = static_cast<uint8_t>(v >> 24);
        bytes_[at + 1] = static_cast<uint8_t>(v >> 16);
        bytes_[at + 2] = static_cast<uint8_t>(v >> 8);
        bytes_[at + 3] = static_cast<uint8_t>(v);
    }
    void patchLe32(size_t at, uint32_t v) {
        bytes_[at] = static_cast<uint8_t>(v);
        bytes_[at + 1] = static_cast<uint8_t>(v >> 8);
        bytes_[at + 2] = static_cast<uint8_t>(v >> 16);
        bytes_[at + 3] = static_cast<uint8_t>(v >> 24);
    }
    const Bytes& data() const { return bytes_; }
    Bytes take() { return std::move(bytes_); }

private:
    Bytes bytes_;
};

#endif  // FILEINFO_TESTS_BYTEWRITER_H
