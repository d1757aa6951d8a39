// MPEG audio streams for test files: frame headers, frames of a given
// length, frames carrying a "Xing", "Info" or "VBRI" header, and streams of
// frames with junk and padding around them.
#ifndef FILEINFO_TESTS_MP3BUILDER_H
#define FILEINFO_TESTS_MP3BUILDER_H

#include <string>

#include "ByteWriter.h"

// Values of the 2-bit version field.
enum : unsigned { kMpeg25 = 0, kMpegReserved = 1, kMpeg2 = 2, kMpeg1 = 3 };
// Values of the 2-bit channel-mode field.
enum : unsigned { kStereo = 0, kJointStereo = 1, kDualChannel = 2, kMono = 3 };

struct Mp3Header {
    unsigned version = kMpeg1;
    unsigned layer = 3;             // 1..3; written as the field 4 - layer
    unsigned bitRateIndex = 9;      // 128 kbit/s in MPEG 1 Layer III
    unsigned sampleRateIndex = 0;   // 44100 Hz in MPEG 1
    unsigned padding = 0;
    unsigned channelMode = kJointStereo;
    // When set, written as the 2-bit layer field instead of 4 - layer.
    bool rawLayerField = false;
    unsigned layerField = 0;
};

inline uint32_t HeaderWord(const Mp3Header& h) {
    const unsigned layerField = h.rawLayerField ? h.layerField : 4 - h.layer;
    return (0x7FFu << 21) | ((h.version & 3) << 19) | ((layerField & 3) << 17) |
           (1u << 16) /* no CRC */ | ((h.bitRateIndex & 15) << 12) |
           ((h.sampleRateIndex & 3) << 10) | ((h.padding & 1) << 9) | ((h.channelMode & 3) << 6);
}

inline Bytes HeaderBytes(const Mp3Header& h) {
    ByteWriter w;
    w.be32(HeaderWord(h));
    return w.take();
}

// One frame: the header, then `body` (if any), then zeros up to `length`.
inline Bytes Mp3Frame(const Mp3Header& h, size_t length, const Bytes& body = {}) {
    ByteWriter w;
    w.be32(HeaderWord(h)).bytes(body);
    if (w.size() < length) w.fill(length - w.size());
    return w.take();
}

// `count` frames of `length` bytes, back to back.
inline Bytes Mp3Frames(const Mp3Header& h, size_t length, int count) {
    ByteWriter w;
    for (int i = 0; i < count; ++i) w.bytes(Mp3Frame(h, length));
    return w.take();
}

// Byte offset of the VBR header in a stereo MPEG 1 Layer III frame, as
// encoders place it (after the 32-byte side information).
constexpr size_t kVbrTagOffset = 36;

// A frame carrying a "Xing" or "Info" header at `offset`: tag, flags,
// frame count, byte count (both written whatever the flags say).
inline Bytes XingFrame(const Mp3Header& h, size_t length, const std::string& tag, uint32_t flags,
                       uint32_t frames, uint32_t bytes, size_t offset = kVbrTagOffset) {
    ByteWriter body;
    body.fill(offset - 4).str(tag).be32(flags).be32(frames).be32(bytes);
    return Mp3Frame(h, length, body.data());
}

// A frame carrying a "VBRI" header at `offset`: tag, version, delay,
// quality, byte count, frame count (at tag + 14).
inline Bytes VbriFrame(const Mp3Header& h, size_t length, uint32_t bytes, uint32_t frames,
                       size_t offset = kVbrTagOffset) {
    ByteWriter body;
    body.fill(offset - 4).str("VBRI").be16(1).be16(0x0240).be16(75).be32(bytes).be32(frames);
    return Mp3Frame(h, length, body.data());
}

// b grown with `value` bytes to `size` (never cut).
inline Bytes PadTo(Bytes b, size_t size, uint8_t value = 0) {
    if (b.size() < size) b.insert(b.end(), size - b.size(), value);
    return b;
}

#endif  // FILEINFO_TESTS_MP3BUILDER_H
