// Raw AAC files: ADTS frames with a chosen sampling index, channel
// configuration, ID bit and frame length, and ADIF headers laid out bit by
// bit as the format defines them.
#ifndef FILEINFO_TESTS_AACBUILDER_H
#define FILEINFO_TESTS_AACBUILDER_H

#include <string>

#include "ByteWriter.h"

struct AdtsFields {
    unsigned rateIndex = 4;      // 44100 Hz
    unsigned channelConfig = 2;  // stereo
    bool mpeg2 = false;          // the ID bit
    unsigned length = 372;       // 13-bit frame length, header included
    bool crc = false;            // protection_absent clear: two CRC bytes follow
    unsigned profile = 1;        // AAC LC
};

// The 7 header bytes (the CRC, when announced, is part of the payload).
inline Bytes AdtsHeader(const AdtsFields& s) {
    ByteWriter w;
    w.u8(0xFF);
    w.u8(0xF0 | (s.mpeg2 ? 0x08 : 0) | (s.crc ? 0 : 0x01));
    w.u8(((s.profile & 3) << 6) | ((s.rateIndex & 0x0F) << 2) | ((s.channelConfig >> 2) & 1));
    w.u8(((s.channelConfig & 3) << 6) | ((s.length >> 11) & 3));
    w.u8((s.length >> 3) & 0xFF);
    w.u8(((s.length & 7) << 5) | 0x1F);  // buffer fullness 0x7FF: variable rate
    w.u8(0xFC);                         // ... and one raw data block
    return w.take();
}

// One frame: header and zero payload up to its length (a length below 7
// gives the header alone). Zero bytes never look like a sync word.
inline Bytes AdtsFrame(const AdtsFields& s) {
    ByteWriter w;
    w.bytes(AdtsHeader(s));
    if (s.length > 7) w.fill(s.length - 7);
    return w.take();
}

inline Bytes AdtsStream(const AdtsFields& s, size_t frames) {
    ByteWriter w;
    const Bytes one = AdtsFrame(s);
    for (size_t i = 0; i < frames; ++i) w.bytes(one);
    return w.take();
}

// Writes values of up to 32 bits, most significant bit first.
class BitWriter {
public:
    BitWriter& put(uint32_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) {
            if (used_ == 0) bytes_.push_back(0);
            if ((value >> i) & 1) bytes_.back() |= static_cast<uint8_t>(0x80 >> used_);
            used_ = (used_ + 1) % 8;
        }
        return *this;
    }
    Bytes take() { return std::move(bytes_); }

private:
    Bytes bytes_;
    int used_ = 0;
};

struct AdifFields {
    bool copyrightPresent = false;
    Bytes copyrightId = Bytes(9, 0);  // 72 bits are written
    uint32_t bitRate = 128000;        // 23 bits
    unsigned samplingIndex = 4;       // in the program configuration element
    unsigned profile = 1;
};

// "ADIF", then the header fields in order, one constant-rate program
// configuration element with one stereo channel element, byte-aligned and
// padded with zeros to `total` bytes.
inline Bytes BuildAdif(const AdifFields& s, size_t total) {
    BitWriter b;
    b.put('A', 8).put('D', 8).put('I', 8).put('F', 8);
    b.put(s.copyrightPresent ? 1 : 0, 1);
    if (s.copyrightPresent) {
        for (size_t i = 0; i < 9; ++i) b.put(i < s.copyrightId.size() ? s.copyrightId[i] : 0, 8);
    }
    b.put(0, 1).put(0, 1);      // original_copy, home
    b.put(0, 1);                // bitstream_type: constant rate
    b.put(s.bitRate, 23);
    b.put(0, 4);                // one program configuration element
    b.put(0, 20);               // adif_buffer_fullness
    b.put(0, 4).put(s.profile, 2).put(s.samplingIndex, 4);  // tag, object type, sampling index
    b.put(1, 4).put(0, 4).put(0, 4).put(0, 2).put(0, 3).put(0, 4);  // one front element
    b.put(0, 1).put(0, 1).put(0, 1);  // no mixdowns
    b.put(1, 1).put(0, 4);            // front element: a channel pair, tag 0
    b.put(0, 8);                      // comment field length (after byte alignment)
    Bytes out = b.take();
    out.resize(total > out.size() ? total : out.size(), 0);
    return out;
}

#endif  // FILEINFO_TESTS_AACBUILDER_H
