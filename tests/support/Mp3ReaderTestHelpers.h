// The helpers that Mp3ReaderTest.cpp and Mp3ReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_MP3READERTESTHELPERS_H
#define FILEINFO_TESTS_MP3READERTESTHELPERS_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "Id3Info.h"
#include "Mp3Info.h"
#include "Mutation.h"
#include "TestFiles.h"

namespace Mp3ReaderTestHelpers {

// MPEG 1 Layer III, 128 kbit/s, 44100 Hz: 144000 * 128 / 44100 = 417.
constexpr size_t kCdFrame = 417;
constexpr size_t kRead = Mp3Info::kReadSize;

inline Mp3Header Cd128() { return Mp3Header{}; }

inline Mp3Header Header(unsigned version, unsigned layer, unsigned bitRateIndex, unsigned sampleRateIndex,
                        unsigned padding = 0) {
    Mp3Header h;
    h.version = version;
    h.layer = layer;
    h.bitRateIndex = bitRateIndex;
    h.sampleRateIndex = sampleRateIndex;
    h.padding = padding;
    return h;
}

inline int Load(Mp3Info& reader, const TempDir& dir, const Bytes& bytes, const std::string& name = "clip.mp3") {
    return reader.LoadFile(dir.write(name, bytes).c_str());
}

inline Bytes XingFile(const std::string& tag, uint32_t flags, uint32_t frames, uint32_t bytes, size_t size,
                      size_t offset = kVbrTagOffset) {
    ByteWriter w;
    w.bytes(XingFrame(Cd128(), kCdFrame, tag, flags, frames, bytes, offset));
    w.bytes(Mp3Frames(Cd128(), kCdFrame, 4));
    return PadTo(w.take(), size);
}

inline std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/mp3/" + name; }

}  // namespace Mp3ReaderTestHelpers

#endif  // FILEINFO_TESTS_MP3READERTESTHELPERS_H
