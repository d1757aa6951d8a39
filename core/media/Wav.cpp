// RIFF/WAVE and RF64: the chunks are walked from the header to the end of
// the file, reading only their 8-byte headers, the "fmt " chunk, the tag
// chunks and RF64's ds64; the sample data is never read. The duration is
// the data chunk's size over the bytes per second, so it is exact wherever
// the size is known; a data chunk of size 0xFFFFFFFF or 0 (a stream written
// without going back to set it), or one that runs past the end of the file
// (a file over 4 GiB), or one that falls short of the end by a multiple of
// 4 GiB (its size wrapped at 32 bits), is taken to run to the end of the
// file, and the duration is then an estimate.
//
// Codec names by WAVE format tag (an extensible format goes by the first
// two bytes of its sub-format GUID):
//   1 "PCM" (integer), 3 "PCM" (float), 6 "A-law", 7 "mu-law",
//   2 "MS ADPCM", 0x11 "IMA ADPCM", 0x50 "MP2", 0x55 "MP3", 0x2000 "AC-3",
//   any other "WAVE format 0x" and the tag in four hex digits.
// The bit rate of a compressed format is the header's average byte rate,
// or, where the header says 0, the data's bytes over the duration.
// bits_per_sample is given for PCM (the valid bits of an extensible format,
// else the container's) and for A-law and mu-law (8); it stays 0 for the
// compressed formats.
//
// RIFF INFO texts: INAM title, IART artist, IPRD album, IGNR genre, ICRD
// year (its first four characters when they are digits), ICMT comment,
// ITRK or IPRT track ("7" or "7/12"), IMUS composer (the key tag editors
// write a composer under). An "id3 " or "ID3 " chunk is read as an ID3v2
// tag, whose fields win over the INFO texts.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "Chunks.h"
#include "Id3.h"
#include "Readers.h"

namespace fileinfo {
namespace media {

namespace {

constexpr uint16_t kFormatPcm = 0x0001;
constexpr uint16_t kFormatMsAdpcm = 0x0002;
constexpr uint16_t kFormatFloat = 0x0003;
constexpr uint16_t kFormatALaw = 0x0006;
constexpr uint16_t kFormatMuLaw = 0x0007;
constexpr uint16_t kFormatImaAdpcm = 0x0011;
constexpr uint16_t kFormatMpeg = 0x0050;
constexpr uint16_t kFormatMp3 = 0x0055;
constexpr uint16_t kFormatAc3 = 0x2000;
constexpr uint16_t kFormatExtensible = 0xFFFE;

// RF64 writes this in every 32-bit size that ds64 holds instead.
constexpr uint32_t kSizeInDs64 = 0xFFFFFFFFu;
constexpr uint64_t kFourGiB = 1ull << 32;

// What "fmt " says.
struct Format {
    bool found = false;
    uint16_t tag = 0;  // the sub-format's for an extensible format
    uint16_t channels = 0;
    uint32_t sampleRate = 0;
    uint32_t byteRate = 0;
    uint16_t blockAlign = 0;
    uint16_t containerBits = 0;
    uint16_t validBits = 0;  // extensible formats only; 0 when not given
};

// What the walk found, for the reading to be made from at the end.
struct WavChunks {
    Format format;
    bool rf64 = false;
    bool ds64Found = false;
    uint64_t ds64DataSize = 0;
    bool dataFound = false;
    uint64_t dataSize = 0;  // the bytes of sound within the file
    bool dataSizeEstimated = false;
    bool factFound = false;
    uint32_t factFrames = 0;
    Tags infoTags;
    std::vector<uint8_t> id3;
};

void ReadFormat(const Source& source, uint64_t body, uint64_t size, Format& format) {
    uint8_t fmt[40] = {};
    if (size < 16) return;
    const size_t length = size < sizeof fmt ? static_cast<size_t>(size) : sizeof fmt;
    if (!ReadSmall(source, body, fmt, length)) return;
    format.found = true;
    format.tag = LittleEndian16(fmt);
    format.channels = LittleEndian16(fmt + 2);
    format.sampleRate = LittleEndian32(fmt + 4);
    format.byteRate = LittleEndian32(fmt + 8);
    format.blockAlign = LittleEndian16(fmt + 12);
    format.containerBits = LittleEndian16(fmt + 14);
    // WAVEFORMATEXTENSIBLE: cbSize (22), valid bits, channel mask, then the
    // sub-format GUID, whose first two bytes are the format tag it stands for.
    if (format.tag == kFormatExtensible && length >= 40 && LittleEndian16(fmt + 16) >= 22) {
        format.validBits = LittleEndian16(fmt + 18);
        format.tag = LittleEndian16(fmt + 24);
    }
}

void ReadDs64(const Source& source, uint64_t body, uint64_t size, WavChunks& found) {
    uint8_t ds64[16];
    if (size < sizeof ds64 || !ReadSmall(source, body, ds64, sizeof ds64)) return;
    found.ds64Found = true;
    found.ds64DataSize = LittleEndian64(ds64 + 8);  // after the RIFF size
}

void ReadFact(const Source& source, uint64_t body, uint64_t size, WavChunks& found) {
    uint8_t fact[4];
    if (size < sizeof fact || !ReadSmall(source, body, fact, sizeof fact)) return;
    found.factFound = true;
    found.factFrames = LittleEndian32(fact);
}

// Sets a text field only when it is still empty: the first INFO list wins.
void SetText(std::string& field, std::string value) {
    if (field.empty()) field = std::move(value);
}

void TakeInfoText(const uint8_t* id, const std::string& text, Tags& tags) {
    if (ChunkIdIs(id, "INAM")) {
        SetText(tags.title, text);
    } else if (ChunkIdIs(id, "IART")) {
        SetText(tags.artist, text);
    } else if (ChunkIdIs(id, "IPRD")) {
        SetText(tags.album, text);
    } else if (ChunkIdIs(id, "IGNR")) {
        SetText(tags.genre, text);
    } else if (ChunkIdIs(id, "ICRD")) {
        const bool fourDigits = text.size() >= 4 && std::all_of(text.begin(), text.begin() + 4, [](char c) {
                                    return c >= '0' && c <= '9';
                                });
        SetText(tags.year, fourDigits ? text.substr(0, 4) : text);
    } else if (ChunkIdIs(id, "ICMT")) {
        SetText(tags.comment, text);
    } else if (ChunkIdIs(id, "IMUS")) {
        SetText(tags.composer, text);
    } else if (ChunkIdIs(id, "ITRK") || ChunkIdIs(id, "IPRT")) {
        if (tags.track == 0) ParseTrackText(text, tags.track, tags.track_total);
    }
}

// A LIST chunk: only an INFO list holds tags. Its sub-chunks are walked
// within the bytes read, with the same tolerance for a missing pad byte.
void ReadList(const Source& source, uint64_t body, uint64_t size, Tags& tags) {
    // Other lists (cue labels, ...) can be large: the type of a list of
    // more than a few KiB is read before its body.
    constexpr uint64_t kSmallList = 4096;
    uint8_t type[4];
    if (size < 4) return;
    if (size > kSmallList && (!ReadSmall(source, body, type, sizeof type) || !ChunkIdIs(type, "INFO"))) return;
    std::vector<uint8_t> list;
    const size_t length = size < kMaxTextListBytes ? static_cast<size_t>(size) : kMaxTextListBytes;
    if (!source.ReadUpTo(body, length, list) || list.size() < 4 || !ChunkIdIs(list.data(), "INFO")) return;
    size_t at = 4;
    for (unsigned count = 0; count < kMaxChunks && list.size() - at >= 8; ++count) {
        const uint8_t* id = list.data() + at;
        const uint32_t declared = LittleEndian32(id + 4);
        const size_t left = list.size() - at - 8;
        const size_t textLength = declared < left ? declared : left;
        TakeInfoText(id, EightBitText(id + 8, textLength), tags);
        if (declared >= left) break;
        size_t next = at + 8 + declared;
        // As NextChunk: a pad byte is zero, a byte that is not begins an id.
        if ((declared & 1) != 0) {
            const bool unpadded = list.size() - next >= 8 && list[next] != 0 && PlausibleChunkId(list.data() + next);
            if (!unpadded) ++next;
        }
        at = next;
    }
}

void ReadId3Chunk(const Source& source, uint64_t body, uint64_t size, std::vector<uint8_t>& id3) {
    if (!id3.empty()) return;  // the first one
    const size_t length = size < kMaxId3ChunkBytes ? static_cast<size_t>(size) : kMaxId3ChunkBytes;
    if (!source.ReadUpTo(body, length, id3)) id3.clear();
}

// The size of the data chunk that starts its body at `body`, within the
// file: the declared one when it holds, else the bytes to the end.
void TakeData(uint64_t body, uint32_t declared, uint64_t fileSize, WavChunks& found) {
    found.dataFound = true;
    const uint64_t toEnd = fileSize - body;
    uint64_t size = declared;
    bool known = declared != kSizeInDs64 && declared != 0;
    if (found.rf64 && declared == kSizeInDs64 && found.ds64Found) {
        size = found.ds64DataSize;
        known = true;
    }
    if (declared == 0 && toEnd == 0) known = true;  // a file without sound
    // A writer that wrapped the size at 32 bits leaves it short of the end
    // of the file by a whole number of 4 GiB.
    const bool wrapped = size < toEnd && (toEnd - size) % kFourGiB == 0;
    if (!known || size > toEnd || wrapped) {
        found.dataSize = toEnd;
        found.dataSizeEstimated = true;
    } else {
        found.dataSize = size;
    }
}

void WalkChunks(const Source& source, WavChunks& found) {
    const uint64_t end = source.Size();
    uint64_t at = 12;
    for (unsigned count = 0; count < kMaxChunks && at < end && end - at >= 8; ++count) {
        uint8_t header[8];
        if (!ReadSmall(source, at, header, sizeof header)) return;
        const uint32_t declared = LittleEndian32(header + 4);
        const uint64_t body = at + 8;
        uint64_t size = declared;
        const uint64_t left = end - body;
        const uint64_t inFile = size < left ? size : left;
        if (ChunkIdIs(header, "fmt ")) {
            if (!found.format.found) ReadFormat(source, body, inFile, found.format);
        } else if (ChunkIdIs(header, "ds64")) {
            if (found.rf64 && !found.ds64Found) ReadDs64(source, body, inFile, found);
        } else if (ChunkIdIs(header, "fact")) {
            if (!found.factFound) ReadFact(source, body, inFile, found);
        } else if (ChunkIdIs(header, "LIST")) {
            ReadList(source, body, inFile, found.infoTags);
        } else if (ChunkIdIs(header, "id3 ") || ChunkIdIs(header, "ID3 ")) {
            ReadId3Chunk(source, body, inFile, found.id3);
        } else if (ChunkIdIs(header, "data") && !found.dataFound) {
            TakeData(body, declared, end, found);
            // A data chunk that runs to the end leaves nothing after it.
            if (found.dataSizeEstimated) return;
            size = found.dataSize;
        }
        const uint64_t next = NextChunk(source, body, size, end);
        if (next <= at) return;
        at = next;
    }
}

// Names the codec and fills the stream's numbers from the format.
void TakeFormat(const Format& format, Reading& reading) {
    reading.sample_rate = format.sampleRate;
    reading.channels = format.channels;
    switch (format.tag) {
        case kFormatPcm:
        case kFormatFloat:
            reading.audio_codec = "PCM";
            reading.pcm_format = format.tag == kFormatFloat ? "float" : "integer";
            reading.bits_per_sample = format.validBits != 0 && format.validBits <= format.containerBits
                                          ? format.validBits
                                          : format.containerBits;
            return;
        case kFormatALaw:
            reading.audio_codec = "A-law";
            reading.bits_per_sample = 8;
            return;
        case kFormatMuLaw:
            reading.audio_codec = "mu-law";
            reading.bits_per_sample = 8;
            return;
        case kFormatMsAdpcm: reading.audio_codec = "MS ADPCM"; return;
        case kFormatImaAdpcm: reading.audio_codec = "IMA ADPCM"; return;
        case kFormatMpeg: reading.audio_codec = "MP2"; return;
        case kFormatMp3: reading.audio_codec = "MP3"; return;
        case kFormatAc3: reading.audio_codec = "AC-3"; return;
        default: break;
    }
    static const char kHex[] = "0123456789ABCDEF";
    std::string name = "WAVE format 0x";
    for (int shift = 12; shift >= 0; shift -= 4) name.push_back(kHex[(format.tag >> shift) & 0xF]);
    reading.audio_codec = name;
}

// Whole milliseconds of `frames` at `rate` per second, without overflow.
uint64_t FramesToMs(uint64_t frames, uint32_t rate) {
    return frames / rate * 1000 + frames % rate * 1000 / rate;
}

// The duration and bit rate: PCM and G.711 from the block size, which is
// exact; compressed formats from the fact chunk's frame count when there
// is one, else from the header's average byte rate.
void TakeTiming(const WavChunks& found, Reading& reading) {
    const Format& format = found.format;
    const bool uncompressed = reading.bits_per_sample != 0;
    uint32_t blockAlign = format.blockAlign;
    if (uncompressed && blockAlign == 0) blockAlign = format.channels * ((format.containerBits + 7u) / 8u);
    if (uncompressed) {
        const uint64_t bytesPerSecond = static_cast<uint64_t>(blockAlign) * format.sampleRate;
        reading.audio_bit_rate = bytesPerSecond * 8;
        if (found.dataFound && blockAlign != 0 && format.sampleRate != 0) {
            reading.duration_ms = FramesToMs(found.dataSize / blockAlign, format.sampleRate);
            reading.duration_estimated = found.dataSizeEstimated;
        }
    } else {
        reading.audio_bit_rate = static_cast<uint64_t>(format.byteRate) * 8;
        if (found.factFound && format.sampleRate != 0 && !found.dataSizeEstimated) {
            reading.duration_ms = FramesToMs(found.factFrames, format.sampleRate);
        } else if (found.dataFound && format.byteRate != 0) {
            reading.duration_ms = FramesToMs(found.dataSize, format.byteRate);
            reading.duration_estimated = true;
        }
        // A writer that did not know the byte rate when it wrote the header
        // leaves 0: the average over the data then.
        if (reading.audio_bit_rate == 0 && found.dataFound && reading.duration_ms != 0) {
            const uint64_t bits = found.dataSize * 8;
            reading.audio_bit_rate = found.dataSize < (1ull << 50)
                                         ? bits * 1000 / reading.duration_ms
                                         : bits / reading.duration_ms * 1000;
        }
    }
    reading.bit_rate = reading.audio_bit_rate;
}

}  // namespace

bool ReadWav(const Source& source, Reading& reading) {
    const std::vector<uint8_t>& head = source.Head();
    if (head.size() < 12) return false;
    WavChunks found;
    found.rf64 = std::memcmp(head.data(), "RF64", 4) == 0;
    WalkChunks(source, found);

    reading.type = "WAV";
    reading.size = source.Size();
    if (found.format.found) {
        TakeFormat(found.format, reading);
        TakeTiming(found, reading);
    }
    reading.tags = found.infoTags;
    // ID3 fields win over the INFO texts; the INFO ones stay where the
    // ID3 tag has none.
    if (!found.id3.empty()) ParseId3v2(found.id3.data(), found.id3.size(), reading.tags);
    return true;
}

}  // namespace media
}  // namespace fileinfo
