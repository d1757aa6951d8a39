// Reader for canonical RIFF/WAVE files: takes the first 36 bytes as one
// RIFF header followed directly by the "fmt " chunk.
#ifndef FILEINFO_WAVINFO_H
#define FILEINFO_WAVINFO_H

#include "MediaFileInfoBase.h"

// Format names by format tag: 1, 0x101, 0x102, 0x103, anything else.
FILEINFO_API extern const char* const PCM_FORMAT[5];
FILEINFO_API extern const char* const RiffTag;
FILEINFO_API extern const char* const WavTag;

class FILEINFO_API WavInfo : public MediaFileInfoBase {
public:
    // Length of the canonical header this reader looks at.
    enum { kHeaderSize = 36 };

    WavInfo();
    ~WavInfo() override;

    int LoadFile(const char* path) override;
    void Destory() override;
    // Interprets m_header and fills the record; called by LoadFile.
    int GetInfo();

    unsigned char m_header[kHeaderSize];
};

#endif  // FILEINFO_WAVINFO_H
