// The helpers that Mp4ReaderTest.cpp and Mp4ReaderStateTest.cpp share.
#ifndef FILEINFO_TESTS_MP4READERTESTHELPERS_H
#define FILEINFO_TESTS_MP4READERTESTHELPERS_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "Mp4Load.h"
#include "TestFiles.h"

namespace Mp4ReaderTestHelpers {

// 250 frames of 1000 bytes in 10 s of H.264 Baseline 3.0 at 320x240.
inline Bytes AvcVideo() {
    return VideoTrak(VisualEntry("avc1", 320, 240, AvcC(66, 0xC0, 30)),
                     Stsz(0, 250, std::vector<uint32_t>(250, 1000)), 600, 6000);
}

// AAC LC, stereo, 44.1 kHz, 128 kbit/s average in its descriptor.
inline Bytes AacSound() {
    return SoundTrak(SoundEntry("mp4a", 2, Esds({})), Stsz(0, 3, {1, 2, 3}), 44100, 441000);
}

inline Bytes AvMoov() { return Moov({Mvhd(600, 6000), AvcVideo(), AacSound()}); }

}  // namespace Mp4ReaderTestHelpers

#endif  // FILEINFO_TESTS_MP4READERTESTHELPERS_H
