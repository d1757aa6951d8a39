// What the sample-entry parsers share: a bit reader, the search for a
// configuration box inside an entry held in memory, and the MPEG-4
// descriptors of "esds".
#ifndef FILEINFO_CORE_MEDIA_MP4CONFIG_H
#define FILEINFO_CORE_MEDIA_MP4CONFIG_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Mp4Walk.h"

namespace fileinfo {
namespace media {

// The most of one sample entry that is read: configurations are small, and
// a larger entry is cut (a configuration beyond the cut is then missed).
constexpr size_t kMaxEntryBytes = 64 * 1024;

// Big-endian bits, most significant first; reads past the end give zeros
// and set `overrun`.
class BitReader {
public:
    BitReader(const uint8_t* data, size_t length) : data_(data), bits_(length * 8) {}
    uint32_t Read(unsigned count);
    size_t Left() const { return at_ < bits_ ? bits_ - at_ : 0; }
    bool overrun = false;

private:
    const uint8_t* data_;
    size_t bits_;
    size_t at_ = 0;
};

// A byte range [body, end) of an entry held in memory.
struct Span {
    size_t body = 0;
    size_t end = 0;
    size_t Size() const { return end - body; }
};

// The first child box of the given type among the boxes in [at, limit) of
// `entry`.
bool FindChild(const std::vector<uint8_t>& entry, size_t at, size_t limit, uint32_t type, Span& found);
// A configuration box among an entry's children (from `childrenAt`), or
// inside QuickTime's "wave" among them.
bool FindConfig(const std::vector<uint8_t>& entry, size_t childrenAt, uint32_t type, Span& found);

// From an "esds" body: the DecoderConfigDescriptor's object type and its
// DecoderSpecificInfo (null when absent). False when there is none.
struct DecoderConfig {
    unsigned object_type = 0;
    const uint8_t* info = nullptr;
    size_t info_size = 0;
};
bool ReadEsds(const uint8_t* p, size_t length, DecoderConfig& out);

// A box type as text, trailing spaces dropped ("raw " is "raw").
std::string TypeText(uint32_t type);

}  // namespace media
}  // namespace fileinfo

#endif  // FILEINFO_CORE_MEDIA_MP4CONFIG_H
