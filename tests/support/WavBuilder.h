// Canonical RIFF/WAVE files: RIFF header, 16-byte "fmt " chunk, "data";
// and, with WavChunkBuilder, RIFF or RF64 files chunk by chunk.
#ifndef FILEINFO_TESTS_WAVBUILDER_H
#define FILEINFO_TESTS_WAVBUILDER_H

#include <string>
#include <utility>
#include <vector>

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

// RIFF/WAVE (or RF64) files chunk by chunk: "fmt " plain or extensible,
// "data" of any declared size, LIST/INFO texts, ds64, "fact", and chunks of
// any id or declared size. Odd bodies get their pad byte unless told not to.
class WavChunkBuilder {
public:
    // riff: "RIFF" or "RF64".
    explicit WavChunkBuilder(const std::string& riff = "RIFF") { w_.fixed(riff, 4).le32(0).str("WAVE"); }

    // A chunk whose size field says `declaredSize`, followed by `data` and,
    // when `pad` and the data's length is odd, a zero pad byte.
    WavChunkBuilder& chunk(const std::string& id, uint32_t declaredSize, const Bytes& data, bool pad = true) {
        w_.fixed(id, 4).le32(declaredSize).bytes(data);
        if (pad && data.size() % 2 == 1) w_.u8(0);
        return *this;
    }
    WavChunkBuilder& chunk(const std::string& id, const Bytes& data, bool pad = true) {
        return chunk(id, static_cast<uint32_t>(data.size()), data, pad);
    }

    // A 16-byte "fmt "; blockAlign 0 means channels * bits / 8.
    WavChunkBuilder& fmt(unsigned formatTag, unsigned channels, uint32_t sampleRate, unsigned bitsPerSample,
                         unsigned blockAlign = 0) {
        const unsigned align = blockAlign != 0 ? blockAlign : channels * bitsPerSample / 8;
        ByteWriter d;
        d.le16(formatTag).le16(channels).le32(sampleRate).le32(sampleRate * align).le16(align).le16(bitsPerSample);
        return chunk("fmt ", d.take());
    }
    // A 40-byte extensible "fmt " (format tag 0xFFFE) whose sub-format GUID
    // starts with `subFormat` (1 PCM, 3 float, ...).
    WavChunkBuilder& fmtExtensible(unsigned subFormat, unsigned channels, uint32_t sampleRate,
                                   unsigned containerBits, unsigned validBits, uint32_t channelMask = 3) {
        const unsigned align = channels * containerBits / 8;
        ByteWriter d;
        d.le16(0xFFFE).le16(channels).le32(sampleRate).le32(sampleRate * align).le16(align).le16(containerBits);
        d.le16(22).le16(validBits).le32(channelMask);
        // {subFormat-0000-0010-8000-00AA00389B71}
        d.le32(subFormat).le16(0x0000).le16(0x0010);
        d.u8(0x80).u8(0x00).u8(0x00).u8(0xAA).u8(0x00).u8(0x38).u8(0x9B).u8(0x71);
        return chunk("fmt ", d.take());
    }
    // "data" whose size field says `declaredSize`, with `written` bytes.
    WavChunkBuilder& data(uint32_t declaredSize, size_t written) {
        ByteWriter d;
        d.fill(written, 0x22);
        return chunk("data", declaredSize, d.take());
    }
    WavChunkBuilder& data(uint32_t bytes) { return data(bytes, bytes); }
    // RF64's ds64: the 64-bit RIFF and data sizes and the sample count.
    WavChunkBuilder& ds64(uint64_t riffSize, uint64_t dataSize, uint64_t sampleCount) {
        ByteWriter d;
        d.le32(static_cast<uint32_t>(riffSize)).le32(static_cast<uint32_t>(riffSize >> 32));
        d.le32(static_cast<uint32_t>(dataSize)).le32(static_cast<uint32_t>(dataSize >> 32));
        d.le32(static_cast<uint32_t>(sampleCount)).le32(static_cast<uint32_t>(sampleCount >> 32));
        d.le32(0);  // no table entries
        return chunk("ds64", d.take());
    }
    WavChunkBuilder& fact(uint32_t frames) {
        ByteWriter d;
        d.le32(frames);
        return chunk("fact", d.take());
    }
    // A LIST/INFO chunk of (id, text) pairs; each text is written as given
    // (add "\0" yourself for a terminator), padded when `pad`.
    WavChunkBuilder& info(const std::vector<std::pair<std::string, std::string>>& items, bool pad = true) {
        ByteWriter d;
        d.str("INFO");
        for (const auto& item : items) {
            d.fixed(item.first, 4).le32(static_cast<uint32_t>(item.second.size())).str(item.second);
            if (pad && item.second.size() % 2 == 1) d.u8(0);
        }
        return chunk("LIST", d.take());
    }
    WavChunkBuilder& raw(size_t n, uint8_t v = 0) {
        w_.fill(n, v);
        return *this;
    }
    // Written as the RIFF size instead of the file's length - 8.
    WavChunkBuilder& riffSize(uint32_t size) {
        riffSize_ = size;
        fixedRiffSize_ = true;
        return *this;
    }

    size_t size() const { return w_.size(); }

    Bytes build() const {
        ByteWriter out = w_;
        out.patchLe32(4, fixedRiffSize_ ? riffSize_ : static_cast<uint32_t>(out.size() - 8));
        return out.take();
    }

private:
    ByteWriter w_;
    uint32_t riffSize_ = 0;
    bool fixedRiffSize_ = false;
};

#endif  // FILEINFO_TESTS_WAVBUILDER_H
