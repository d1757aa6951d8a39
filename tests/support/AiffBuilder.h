// AIFF and AIFC files chunk by chunk: FORM header, COMM with an 80-bit
// sample rate, SSND, NAME/AUTH/ANNO texts, FVER, and chunks of any id or
// declared size. Pad bytes are written only when asked for.
#ifndef FILEINFO_TESTS_AIFFBUILDER_H
#define FILEINFO_TESTS_AIFFBUILDER_H

#include <cmath>
#include <string>

#include "ByteWriter.h"

// The 10 bytes of an 80-bit extended number: sign and biased exponent,
// then the 64-bit significand with its integer bit.
inline Bytes Ext80(uint16_t signAndExponent, uint64_t mantissa) {
    ByteWriter w;
    w.be16(signAndExponent).be64(mantissa);
    return w.take();
}

// A finite double as an 80-bit number (exact: the significand is wider).
inline Bytes Ext80(double value) {
    if (value == 0.0) return Ext80(0, 0);
    const uint16_t sign = value < 0 ? 0x8000 : 0;
    int e = 0;
    const double f = std::frexp(std::fabs(value), &e);  // value = f * 2^e, f in [0.5, 1)
    const uint64_t mantissa = static_cast<uint64_t>(std::ldexp(f, 64));
    return Ext80(static_cast<uint16_t>(sign | (e - 1 + 16383)), mantissa);
}

class AiffBuilder {
public:
    // formType: "AIFF", "AIFC" or anything else to test the form check.
    explicit AiffBuilder(const std::string& formType = "AIFF") {
        w_.str("FORM").be32(0).fixed(formType, 4);
    }

    // A chunk whose size field says `declaredSize`, followed by `data`.
    AiffBuilder& chunk(const std::string& id, uint32_t declaredSize, const Bytes& data) {
        w_.fixed(id, 4).be32(declaredSize).bytes(data);
        return *this;
    }
    AiffBuilder& chunk(const std::string& id, const Bytes& data) {
        return chunk(id, static_cast<uint32_t>(data.size()), data);
    }

    // COMM: channels, sample frames, sample size, sample rate; an AIFC COMM
    // carries its compression type and name after these 18 bytes.
    AiffBuilder& comm(unsigned channels, unsigned sampleSize, const Bytes& rate80, uint32_t frames = 0,
                      const Bytes& aifcExtra = {}) {
        ByteWriter d;
        d.be16(channels).be32(frames).be16(sampleSize).bytes(rate80).bytes(aifcExtra);
        return chunk("COMM", d.take());
    }
    AiffBuilder& comm(unsigned channels, unsigned sampleSize, double rate, uint32_t frames = 0) {
        return comm(channels, sampleSize, Ext80(rate), frames);
    }

    AiffBuilder& fver(uint32_t timestamp = 0xA2805140u) {
        ByteWriter d;
        d.be32(timestamp);
        return chunk("FVER", d.take());
    }

    // NAME, AUTH or ANNO: the text without terminator or pad byte.
    AiffBuilder& text(const std::string& id, const std::string& value) {
        ByteWriter d;
        d.str(value);
        return chunk(id, d.take());
    }

    // SSND: offset, block size 0, then `written` bytes of sound data; the
    // size field says 8 + soundBytes, so a long sound needs no long file.
    AiffBuilder& ssnd(uint32_t offset, uint32_t soundBytes, size_t written) {
        ByteWriter d;
        d.be32(offset).be32(0).fill(written, 0x11);
        return chunk("SSND", 8 + soundBytes, d.take());
    }
    AiffBuilder& ssnd(uint32_t offset, uint32_t soundBytes) { return ssnd(offset, soundBytes, soundBytes); }

    // Raw bytes: a pad byte, junk between chunks, or filler at the end.
    AiffBuilder& raw(size_t n, uint8_t v = 0) {
        w_.fill(n, v);
        return *this;
    }
    AiffBuilder& rawBytes(const Bytes& b) {
        w_.bytes(b);
        return *this;
    }

    size_t size() const { return w_.size(); }

    // The file; the FORM size is patched to cover everything written.
    Bytes build() {
        ByteWriter out = w_;
        out.patchBe32(4, static_cast<uint32_t>(out.size() - 8));
        return out.take();
    }

private:
    ByteWriter w_;
};

#endif  // FILEINFO_TESTS_AIFFBUILDER_H
