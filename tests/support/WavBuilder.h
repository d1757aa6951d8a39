// Canonical RIFF/WAVE files: RIFF header, 16-byte "fmt " chunk, "data".
#ifndef FILEINFO_TESTS_WAVBUILDER_H
#define FILEINFO_TESTS_WAVBUILDER_H

#include "ByteWriter.h"

struct WavFields {
    unsigned formatTag = 1;
    unsigned channels = 2;
    uint32_t sampleRate = 44100;
    unsigned bitsPerSample = 16;
    uint32_t dataBytes = 0;
    // When set, written as the RIFF size instead of 36 + dataBytes.
    bool overrideRiffSize = false;
    uint32_t riffSize = 0;
    // When false only the header is written (the reader never looks further),
    // so long durations need no large files.
    bool writeData = false;
};

inline Bytes BuildWav(const WavFields& s) {
    ByteWriter w;
    const uint32_t blockAlign = s.channels * s.bitsPerSample / 8;
    w.str("RIFF").le32(s.overrideRiffSize ? s.riffSize : 36 + s.dataBytes).str("WAVE");
    w.str("fmt ").le32(16).le16(s.formatTag).le16(s.channels).le32(s.sampleRate);
    w.le32(s.sampleRate * blockAlign).le16(blockAlign).le16(s.bitsPerSample);
    w.str("data").le32(s.dataBytes);
    if (s.writeData) w.fill(s.dataBytes);
    return w.take();
}

#endif  // FILEINFO_TESTS_WAVBUILDER_H
