// The helpers that AacReaderTest.cpp and AacReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_AACREADERTESTHELPERS_H
#define FILEINFO_TESTS_AACREADERTESTHELPERS_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "AacBuilder.h"
#include "AacInfo.h"
#include "Id3Builder.h"
#include "MediaFileInfo.h"
#include "Mutation.h"
#include "ReaderLoad.h"
#include "TestFiles.h"

namespace AacReaderTestHelpers {

constexpr size_t kBuffer = AacInfo::kBufferSize;

// A load and the reader's frame counters after it.
struct Loaded : LoadResult {
    unsigned frames;
    unsigned totalBytes;
};

inline Loaded LoadWith(AacInfo& reader, const std::string& path) {
    Loaded out;
    static_cast<LoadResult&>(out) = ::LoadWith(reader, path);
    out.frames = reader.m_frameCount;
    out.totalBytes = reader.m_totalBytes;
    return out;
}

inline Loaded Load(const Bytes& bytes, const std::string& name = "clip.aac") {
    TempDir dir;
    AacInfo reader;
    return LoadWith(reader, dir.write(name, bytes));
}

inline AdtsFields Frame(unsigned length, unsigned rateIndex = 4, unsigned channels = 2) {
    AdtsFields s;
    s.length = length;
    s.rateIndex = rateIndex;
    s.channelConfig = channels;
    return s;
}

inline std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/aac/" + name; }

// An ADIF file of `total` bytes.
inline Bytes Adif(uint32_t bitRate, size_t total, bool copyright = false, uint8_t copyrightFirstByte = 0) {
    AdifFields s;
    s.bitRate = bitRate;
    s.copyrightPresent = copyright;
    s.copyrightId[0] = copyrightFirstByte;
    return BuildAdif(s, total);
}

}  // namespace AacReaderTestHelpers

#endif  // FILEINFO_TESTS_AACREADERTESTHELPERS_H
