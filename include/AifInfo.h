// Reader for AIFF and AIFC files: walks the chunks of the FORM container
// through a 1024-byte buffer and takes COMM, SSND, NAME, AUTH and ANNO.
#ifndef FILEINFO_AIFINFO_H
#define FILEINFO_AIFINFO_H

#include "MediaFileInfoBase.h"

// An 80-bit IEEE 754 extended-precision number exactly as AIFF stores it:
// sign and 15-bit biased exponent, then the 64-bit significand with its
// integer bit explicit, both big-endian.
struct FILEINFO_API ExtFloat_st {
    unsigned char exponent[2];
    unsigned char mantissa[8];
};

static_assert(sizeof(ExtFloat_st) == 10, "ExtFloat_st must be the 10 bytes stored in the file");

class FILEINFO_API AifInfo : public MediaFileInfoBase {
public:
    enum {
        kBufferSize = 1024,  // bytes read per buffer load
        // Bytes behind the buffer that a chunk starting inside it may read
        // (its 8-byte header and the 18 COMM bytes after it), kept zeroed.
        kBufferSlack = 32,
        // What ReadHeader needs to be handed: the buffer and its slack.
        kBufferAllocation = kBufferSize + kBufferSlack,
    };

    AifInfo();
    ~AifInfo() override;

    int LoadFile(const char* path) override;
    void Destory() override;
    // Walks the chunks of the file open in m_file. `buffer` holds the
    // file's first m_bufferSize bytes and must be kBufferAllocation bytes
    // long; the walk refills it as it goes.
    int ReadHeader(unsigned char* buffer);
    // The stored extended number as a double; the sign is dropped, a NaN
    // gives 0.0.
    static double Ext2dbl(ExtFloat_st value);

    // Index in the read buffer of the chunk now examined. Deliberately not
    // reset between loads: a reader is meant to be loaded once.
    unsigned int m_chunkPos;

private:
    // What the walk gathers besides the record fields.
    struct WalkState {
        double audioBytes;
        unsigned int channels;
        unsigned int sampleSize;
    };

    // Handles the chunk at `chunk` (inside the buffer) and returns its size.
    unsigned int HandleChunk(unsigned char* chunk, const unsigned char* bufferEnd,
                             WalkState& state);
    void ReadCommon(const unsigned char* chunk, WalkState& state);
    void ReadText(char* field, const unsigned char* chunk, unsigned int size,
                  const unsigned char* bufferEnd);
    void SetDuration(const WalkState& state);
};

#endif  // FILEINFO_AIFINFO_H
