// A compressed movie header: "cmov" holds "dcom" (the method, "zlib") and
// "cmvd" (the size once inflated, 32 bits, then the zlib stream). It is
// inflated in memory, in pieces, never past the size it declares nor past
// kMaxMovieBytes, so a lying size costs no more than the data behind it.
#include <zlib.h>

#include <algorithm>

#include "Mp4Walk.h"

namespace fileinfo {
namespace media {

namespace {

constexpr size_t kInflatePiece = 256 * 1024;

bool Inflate(const std::vector<uint8_t>& packed, uint64_t declared, std::vector<uint8_t>& plain) {
    const uint64_t limit = std::min<uint64_t>(declared, kMaxMovieBytes);
    z_stream z{};
    if (inflateInit(&z) != Z_OK) return false;
    z.next_in = const_cast<Bytef*>(packed.data());
    z.avail_in = static_cast<uInt>(packed.size());
    int status = Z_OK;
    while (status == Z_OK && plain.size() < limit) {
        const size_t before = plain.size();
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(kInflatePiece, limit - before));
        plain.resize(before + piece);
        z.next_out = plain.data() + before;
        z.avail_out = static_cast<uInt>(piece);
        status = inflate(&z, Z_NO_FLUSH);
        plain.resize(before + (piece - z.avail_out));
        if (status == Z_BUF_ERROR && z.avail_in == 0) break;  // the data ends early
    }
    inflateEnd(&z);
    return status == Z_OK || status == Z_STREAM_END || status == Z_BUF_ERROR ? !plain.empty() : false;
}

}  // namespace

bool InflateMovie(const BoxBytes& bytes, const Box& cmov, std::vector<uint8_t>& movie) {
    movie.clear();
    BoxIterator children(bytes, cmov.body, cmov.end);
    Box child;
    bool zlib = false;
    Box data{};
    while (children.Next(child)) {
        if (child.type == FourCc("dcom")) {
            uint8_t method[4];
            zlib = child.BodySize() >= 4 && bytes.ReadAt(child.body, method, 4) &&
                   BigEndian32(method) == FourCc("zlib");
        } else if (child.type == FourCc("cmvd") && data.type == 0) {
            data = child;
        }
    }
    if (!zlib || data.type == 0 || data.BodySize() < 4) return false;
    uint8_t size[4];
    if (!bytes.ReadAt(data.body, size, 4)) return false;
    const uint64_t declared = BigEndian32(size);
    // zlib never shrinks data by more than about 1000 to 1, and never grows
    // it much: more packed bytes than the limit allows are no movie header.
    const uint64_t packedSize = data.BodySize() - 4;
    if (declared == 0 || packedSize > kMaxMovieBytes) return false;
    std::vector<uint8_t> packed;
    if (!bytes.ReadRange(data.body + 4, data.end, static_cast<size_t>(packedSize), packed)) return false;
    return Inflate(packed, declared, movie);
}

}  // namespace media
}  // namespace fileinfo
