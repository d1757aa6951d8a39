// MP4 / QuickTime atoms built byte by byte: nested atoms, the movie and
// track headers, sample entries with their decoder configurations, sample
// size tables, "ilst" items and zlib-compressed movie headers.
#ifndef FILEINFO_TESTS_MP4BUILDER_H
#define FILEINFO_TESTS_MP4BUILDER_H

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "ByteWriter.h"

inline Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

inline Bytes Cat(const std::vector<Bytes>& parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// An atom whose size field says `size`, whatever the payload holds.
inline Bytes AtomSized(uint32_t size, const std::string& type, const Bytes& payload = {}) {
    ByteWriter w;
    w.be32(size).fixed(type, 4).bytes(payload);
    return w.take();
}

// An atom with its true size.
inline Bytes Atom(const std::string& type, const Bytes& payload = {}) {
    return AtomSized(static_cast<uint32_t>(payload.size() + 8), type, payload);
}

// A container atom holding the given children.
inline Bytes Box(const std::string& type, std::initializer_list<Bytes> children) {
    return Atom(type, Cat(children));
}

// An atom of exactly `size` bytes (8 or more) filled with `fill`.
inline Bytes Filler(const std::string& type, uint32_t size, uint8_t fill = 0) {
    return Atom(type, Bytes(size - 8, fill));
}

// A full atom: version and flags (zero) before the payload.
inline Bytes FullAtom(const std::string& type, const Bytes& payload = {}) {
    ByteWriter w;
    w.be32(0).bytes(payload);
    return Atom(type, w.data());
}

inline Bytes Ftyp(const std::string& brand = "isom") {
    ByteWriter w;
    w.fixed(brand, 4).be32(0x200).fixed("isom", 4).fixed("mp41", 4);
    return Atom("ftyp", w.data());
}

// Version-0 movie header (108 bytes): time scale at +20, duration at +24.
inline Bytes Mvhd(uint32_t timeScale, uint32_t duration) {
    ByteWriter w;
    w.be32(0).be32(0).be32(timeScale).be32(duration).be32(0x00010000).be16(0x0100).fill(10);
    const uint32_t matrix[9] = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
    for (uint32_t m : matrix) w.be32(m);
    w.fill(24).be32(2);
    return FullAtom("mvhd", w.data());
}

// Version-0 media header (32 bytes): time scale at +20, duration at +24.
inline Bytes Mdhd(uint32_t timeScale, uint32_t duration) {
    ByteWriter w;
    w.be32(0).be32(0).be32(timeScale).be32(duration).be16(0x55C4).be16(0);
    return FullAtom("mdhd", w.data());
}

// Handler reference. MP4 style: a zero manufacturer and the name at +32.
// QuickTime style: "mhlr", manufacturer "appl" and a counted name at +32.
inline Bytes Hdlr(const std::string& handlerType, const std::string& name = "Handler",
                  bool quickTime = false) {
    ByteWriter w;
    if (quickTime) {
        w.str("mhlr").fixed(handlerType, 4).str("appl").be32(0).be32(0);
        w.u8(static_cast<unsigned>(name.size())).str(name);
    } else {
        w.be32(0).fixed(handlerType, 4).fill(12).str(name).u8(0);
    }
    return FullAtom("hdlr", w.data());
}

// Sample description with one entry.
inline Bytes Stsd(const Bytes& entry) {
    ByteWriter w;
    w.be32(1).bytes(entry);
    return FullAtom("stsd", w.data());
}

// 86-byte visual sample entry, then its children (a configuration atom).
inline Bytes VisualEntry(const std::string& type, unsigned width, unsigned height,
                         const Bytes& children = {}) {
    ByteWriter w;
    w.fill(6).be16(1).fill(16).be16(width).be16(height).be32(0x00480000).be32(0x00480000).be32(0);
    w.be16(1).fixed("", 32).be16(0x18).be16(0xFFFF).bytes(children);
    return Atom(type, w.data());
}

// Sound sample entry: version 0 (36 bytes) or QuickTime version 1 (52).
inline Bytes SoundEntry(const std::string& type, unsigned channels, const Bytes& children = {},
                        unsigned version = 0, uint32_t sampleRate = 44100) {
    ByteWriter w;
    w.fill(6).be16(1).be16(version).be16(0).be32(0).be16(channels).be16(16).be16(0).be16(0);
    w.be32(sampleRate << 16);
    if (version == 1) w.be32(1024).be32(0).be32(0).be32(2);
    w.bytes(children);
    return Atom(type, w.data());
}

// The "wave" atom of a version-1 sound entry: "frma", then the format's own atoms.
inline Bytes Wave(const std::string& format, const Bytes& inner) {
    ByteWriter frma;
    frma.fixed(format, 4);
    return Box("wave", {Atom("frma", frma.data()), inner});
}

// AudioSpecificConfig: AAC LC, 44.1 kHz, stereo. A function rather than a
// braced default, which GCC 12 takes for a read of uninitialised bytes.
inline Bytes AacLcStereo44k() {
    Bytes config(2);
    config[0] = 0x12;
    config[1] = 0x10;
    return config;
}

struct EsdsFields {
    unsigned objectType = 0x40;
    uint32_t avgBitRate = 128000;
    uint32_t maxBitRate = 160000;
    Bytes decoderInfo = AacLcStereo44k();
    bool fourByteLengths = false;       // lengths as 0x80 0x80 0x80 n
    unsigned esId = 0;
};

// An "esds" atom: ES descriptor, DecoderConfigDescriptor (objectType,
// stream type, buffer size, max and average bit rate), decoder-specific info.
inline Bytes Esds(const EsdsFields& s) {
    auto length = [&](ByteWriter& w, size_t n) {
        if (s.fourByteLengths) w.u8(0x80).u8(0x80).u8(0x80);
        w.u8(static_cast<unsigned>(n));
    };
    ByteWriter dsi;
    dsi.u8(0x05);
    length(dsi, s.decoderInfo.size());
    dsi.bytes(s.decoderInfo);
    ByteWriter dc;
    dc.u8(s.objectType).u8(0x15).be24(0).be32(s.maxBitRate).be32(s.avgBitRate).bytes(dsi.data());
    ByteWriter sl;
    sl.u8(0x06);
    length(sl, 1);
    sl.u8(0x02);
    ByteWriter es;
    es.be16(s.esId).u8(0).u8(0x04);
    length(es, dc.size());
    es.bytes(dc.data()).bytes(sl.data());
    ByteWriter w;
    w.u8(0x03);
    length(w, es.size());
    w.bytes(es.data());
    return FullAtom("esds", w.data());
}

// AVC decoder configuration record with one SPS whose first byte is given.
inline Bytes AvcC(unsigned profile, unsigned compatibility, unsigned level,
                  unsigned spsFirstByte = 0x67, const std::string& type = "avcC") {
    ByteWriter w;
    w.u8(1).u8(profile).u8(compatibility).u8(level).u8(0xFF).u8(0xE1).be16(4);
    w.u8(spsFirstByte).u8(profile).u8(compatibility).u8(level);
    w.u8(1).be16(4).u8(0x68).u8(0xCE).u8(0x3C).u8(0x80);
    return Atom(type, w.data());
}

// "alac" configuration: frame length, compatible version (the byte the
// reader takes as sample size), bit depth, tuning, channels, max run, max
// frame bytes, average bit rate, sample rate.
inline Bytes AlacConfig(unsigned compatibleVersion, uint32_t avgBitRate, unsigned bitDepth = 16) {
    ByteWriter w;
    w.be32(4096).u8(compatibleVersion).u8(bitDepth).u8(40).u8(10).u8(14).u8(2).be16(255);
    w.be32(0).be32(avgBitRate).be32(44100);
    return FullAtom("alac", w.data());
}

// Sample sizes: a constant size, or a table (sampleSize 0).
inline Bytes Stsz(uint32_t sampleSize, uint32_t count, const std::vector<uint32_t>& table = {}) {
    ByteWriter w;
    w.be32(sampleSize).be32(count);
    for (uint32_t e : table) w.be32(e);
    return FullAtom("stsz", w.data());
}

// trak / mdia (mdhd, hdlr) / minf / stbl with the given stbl children.
inline Bytes Trak(const std::string& handlerType, uint32_t timeScale, uint32_t duration,
                  const Bytes& stblChildren, const Bytes& hdlr = {}) {
    return Box("trak", {Filler("tkhd", 92),
                        Box("mdia", {Mdhd(timeScale, duration),
                                     hdlr.empty() ? Hdlr(handlerType) : hdlr,
                                     Box("minf", {Filler("dinf", 36), Atom("stbl", stblChildren)})})});
}

// One "ilst" item holding one "data" atom; type 1 marks text.
inline Bytes IlstItem(const std::string& name, const Bytes& value, uint32_t dataType = 1) {
    ByteWriter data;
    data.be32(dataType).be32(0).bytes(value);
    return Atom(name, Atom("data", data.data()));
}

inline Bytes TextItem(const std::string& name, const std::string& text) {
    return IlstItem(name, Bytes(text.begin(), text.end()));
}

// The 0xA9 ("©") item names.
inline std::string Copyright(const std::string& three) { return std::string("\xA9") + three; }

// udta / meta (full atom: hdlr, ilst).
inline Bytes Udta(const Bytes& ilstItems) {
    ByteWriter meta;
    meta.be32(0).bytes(Hdlr("mdir", "")).bytes(Atom("ilst", ilstItems));
    return Box("udta", {Atom("meta", meta.data())});
}

// A movie "moov" from its children.
inline Bytes Moov(std::initializer_list<Bytes> children) { return Box("moov", children); }

// ftyp, moov, then an "mdat" that makes the file `atLeast` bytes long.
inline Bytes FastStart(const Bytes& moov, size_t atLeast = 6000) {
    Bytes head = Cat({Ftyp(), moov});
    const size_t mdat = head.size() + 8 < atLeast ? atLeast - head.size() : 8;
    return Cat({head, Filler("mdat", static_cast<uint32_t>(mdat), 0x5A)});
}

// zlib-compressed with zlib itself.
inline Bytes Deflate(const Bytes& plain) {
    uLongf size = compressBound(static_cast<uLong>(plain.size()));
    Bytes out(size);
    if (compress2(out.data(), &size, plain.data(), static_cast<uLong>(plain.size()), 9) != Z_OK) {
        throw std::runtime_error("compress2 failed");
    }
    out.resize(size);
    return out;
}

// A compressed movie header: moov / cmov / (dcom method, cmvd with the
// uncompressed size and the data).
inline Bytes CompressedMoov(const Bytes& moov, const std::string& method = "zlib",
                            const Bytes* data = nullptr) {
    ByteWriter dcom;
    dcom.fixed(method, 4);
    ByteWriter cmvd;
    cmvd.be32(static_cast<uint32_t>(moov.size())).bytes(data != nullptr ? *data : Deflate(moov));
    return Box("moov", {Box("cmov", {Atom("dcom", dcom.data()), Atom("cmvd", cmvd.data())})});
}

// Places `atom` so that it begins at file offset `at`: a filler atom of the
// given type fills the gap after `prefix` (the gap must be 8 bytes or more).
inline Bytes PadBefore(const Bytes& prefix, size_t at, const std::string& fillerType) {
    if (at < prefix.size() + 8) throw std::runtime_error("no room for the filler atom");
    return Cat({prefix, Filler(fillerType, static_cast<uint32_t>(at - prefix.size()))});
}


// A sound track: the sample entry in its stsd, then the size table.
inline Bytes SoundTrak(const Bytes& entry, const Bytes& stsz, uint32_t timeScale = 44100,
                       uint32_t duration = 441000, const Bytes& hdlr = {}) {
    return Trak("soun", timeScale, duration, Cat({Stsd(entry), stsz}), hdlr);
}

// A video track: the sample entry in its stsd, then the size table.
inline Bytes VideoTrak(const Bytes& entry, const Bytes& stsz, uint32_t timeScale = 600,
                       uint32_t duration = 6000, const Bytes& hdlr = {}) {
    return Trak("vide", timeScale, duration, Cat({Stsd(entry), stsz}), hdlr);
}

// Object descriptor atom with one-byte lengths: the visual profile at byte 19.
inline Bytes Iods(unsigned visualProfile) {
    ByteWriter w;
    w.u8(0x10).u8(7).be16(0x004F).u8(0xFF).u8(0xFF).u8(0xFE).u8(visualProfile).u8(0xFF);
    return FullAtom("iods", w.data());
}

// ftyp with the given major brand and compatible brands.
inline Bytes FtypBrands(const std::string& major, std::initializer_list<std::string> compatible) {
    ByteWriter w;
    w.fixed(major, 4).be32(0);
    for (const std::string& brand : compatible) w.fixed(brand, 4);
    return Atom("ftyp", w.data());
}

// An atom with a 64-bit size: size field 1, the type, then the whole size.
inline Bytes LargeAtom(const std::string& type, const Bytes& payload = {}) {
    ByteWriter w;
    w.be32(1).fixed(type, 4).be64(payload.size() + 16).bytes(payload);
    return w.take();
}

// Version-1 movie and media headers: 64-bit times, time scale at +28.
inline Bytes MvhdV1(uint32_t timeScale, uint64_t duration) {
    ByteWriter w;
    w.u8(1).be24(0).be64(0).be64(0).be32(timeScale).be64(duration).be32(0x00010000).be16(0x0100).fill(10);
    const uint32_t matrix[9] = {0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
    for (uint32_t m : matrix) w.be32(m);
    w.fill(24).be32(2);
    return Atom("mvhd", w.data());
}

inline Bytes MdhdV1(uint32_t timeScale, uint64_t duration) {
    ByteWriter w;
    w.u8(1).be24(0).be64(0).be64(0).be32(timeScale).be64(duration).be16(0x55C4).be16(0);
    return Atom("mdhd", w.data());
}

// Time to sample: (sample count, duration) runs.
inline Bytes Stts(const std::vector<std::pair<uint32_t, uint32_t>>& runs) {
    ByteWriter w;
    w.be32(static_cast<uint32_t>(runs.size()));
    for (const auto& run : runs) w.be32(run.first).be32(run.second);
    return FullAtom("stts", w.data());
}

// Chunk offsets, 32-bit (stco) or 64-bit (co64).
inline Bytes Stco(const std::vector<uint64_t>& offsets, bool wide = false) {
    ByteWriter w;
    w.be32(static_cast<uint32_t>(offsets.size()));
    for (uint64_t o : offsets) {
        if (wide) {
            w.be64(o);
        } else {
            w.be32(static_cast<uint32_t>(o));
        }
    }
    return FullAtom(wide ? "co64" : "stco", w.data());
}

// Bits packed most significant first, as (value, width) pairs; the last
// byte is padded with zeros.
inline Bytes Bits(std::initializer_list<std::pair<uint32_t, unsigned>> fields) {
    Bytes out;
    unsigned used = 0;
    for (const auto& f : fields) {
        for (unsigned i = f.second; i-- > 0;) {
            if (used % 8 == 0) out.push_back(0);
            if ((f.first >> i) & 1u) out.back() = static_cast<uint8_t>(out.back() | (0x80u >> (used % 8)));
            ++used;
        }
    }
    return out;
}

// QuickTime version-2 sound entry: a 64-bit float rate, 32-bit channels,
// bits per channel and the format flags (bit 0: float samples).
inline Bytes SoundEntryV2(const std::string& type, double sampleRate, uint32_t channels, uint32_t bits,
                          uint32_t flags, const Bytes& children = {}) {
    uint64_t rateBits = 0;
    static_assert(sizeof rateBits == sizeof sampleRate, "64-bit double");
    std::memcpy(&rateBits, &sampleRate, sizeof rateBits);
    ByteWriter w;
    w.fill(6).be16(1).be16(2).be16(0).be32(0).be16(3).be16(16).be16(0xFFFE).be16(0).be32(0x00010000);
    w.be32(72).be64(rateBits).be32(channels).be32(0x7F000000).be32(bits).be32(flags);
    w.be32(channels * bits / 8).be32(1).bytes(children);
    return Atom(type, w.data());
}

// The offset of the first atom of the given type (its size field).
inline size_t OffsetOf(const Bytes& file, const std::string& type, size_t from = 0) {
    for (size_t i = from + 4; i + 4 <= file.size(); ++i) {
        if (std::equal(type.begin(), type.end(), file.begin() + static_cast<long>(i))) return i - 4;
    }
    throw std::runtime_error("atom not found: " + type);
}

#endif  // FILEINFO_TESTS_MP4BUILDER_H
