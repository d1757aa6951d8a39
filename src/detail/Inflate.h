// The inflate step of a compressed QuickTime movie header ("cmov"): zlib
// data read from one file, inflated into another.
#ifndef FILEINFO_DETAIL_INFLATE_H
#define FILEINFO_DETAIL_INFLATE_H

#include <cstdio>

namespace fileinfo_detail {

enum class InflateResult {
    kNotStarted,  // zlib or the buffers could not be set up: nothing was read or written
    kInflated,    // the stream was inflated as far as the data went
    kFailed,      // the stream turned out damaged, or a write fell short
};

// Moves `in` by the signed difference `toData` (to the first compressed
// byte), then inflates `compressedLength` bytes from there into `out`, in
// pieces of at most 4096 bytes. Every piece written is added to *produced
// as it is written. Neither file is closed; `out` is flushed.
InflateResult InflateInto(FILE* in, FILE* out, unsigned int toData, int compressedLength, double* produced);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_INFLATE_H
