#include "detail/Inflate.h"

#include <zlib.h>

#include <cstdlib>
#include <cstring>

#include "MediaFileInfoBase.h"

namespace fileinfo_detail {

namespace {

constexpr int kInflateChunk = 4096;

// Inflates what the stream holds into out, one output piece at a time,
// until a piece comes out short. False when the data is damaged or a
// write falls short.
bool DrainStream(z_stream& stream, unsigned char* output, int chunk, FILE* out, double* produced) {
    do {
        stream.next_out = output;
        stream.avail_out = static_cast<unsigned int>(chunk);
        const int z = inflate(&stream, Z_NO_FLUSH);
        if (z == Z_STREAM_ERROR || z == Z_NEED_DICT || z == Z_DATA_ERROR || z == Z_MEM_ERROR) return false;
        const size_t made = static_cast<size_t>(chunk) - stream.avail_out;
        if (made > 0 && fwrite(output, 1, made, out) != made) return false;
        *produced += static_cast<double>(made);
    } while (stream.avail_out == 0);
    return true;
}

// The read-and-inflate loop over the compressed bytes.
InflateResult Pump(z_stream& stream, FILE* in, FILE* out, int compressedLength, int chunk,
                   unsigned char* input, unsigned char* output, double* produced) {
    size_t got = fread(input, 1, static_cast<size_t>(chunk), in);
    compressedLength -= static_cast<int>(got);
    stream.next_in = input;
    stream.avail_in = static_cast<unsigned int>(chunk);  // what was asked for, not what came
    for (;;) {
        // A failed stream fails every further call alike: nothing more to gain.
        if (!DrainStream(stream, output, chunk, out, produced)) return InflateResult::kFailed;
        if (compressedLength < 1) return InflateResult::kInflated;
        memset(input, 0, static_cast<size_t>(chunk));
        if (compressedLength < chunk) chunk = compressedLength;
        got = fread(input, 1, static_cast<size_t>(chunk), in);
        // At the file's end the count would never fall: the data is all here.
        if (got == 0) return InflateResult::kInflated;
        compressedLength -= static_cast<int>(got);
        stream.next_in = input;
        stream.avail_in = static_cast<unsigned int>(chunk);
    }
}

}  // namespace

InflateResult InflateInto(FILE* in, FILE* out, unsigned int toData, int compressedLength, double* produced) {
    z_stream stream;
    memset(&stream, 0, sizeof stream);
    stream.zalloc = Z_NULL;
    stream.zfree = Z_NULL;
    stream.opaque = Z_NULL;
    stream.next_in = Z_NULL;
    stream.avail_in = 0;
    if (inflateInit(&stream) != Z_OK) return InflateResult::kNotStarted;

    const int chunk = compressedLength < kInflateChunk ? compressedLength : kInflateChunk;
    unsigned char* input = static_cast<unsigned char*>(calloc(static_cast<size_t>(chunk), 1));
    unsigned char* output = static_cast<unsigned char*>(calloc(static_cast<size_t>(chunk), 1));
    InflateResult result = InflateResult::kNotStarted;
    if (input != nullptr && output != nullptr) {
        MediaFileInfoBase::SeekRelative(in, toData);
        result = Pump(stream, in, out, compressedLength, chunk, input, output, produced);
    }
    inflateEnd(&stream);
    free(input);
    free(output);
    if (result != InflateResult::kNotStarted) fflush(out);
    return result;
}

}  // namespace fileinfo_detail
