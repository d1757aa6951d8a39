// AIFF and AIFF-C: the chunks inside the FORM (its size bounded by the
// file) are walked reading only their 8-byte headers, COMM and the tag
// chunks; the sound data is never read. COMM counts the sample frames, so
// the duration is exact: frames over the rate.
//
// Codec names by AIFF-C compression type (a plain AIFF is PCM integer):
//   NONE, twos, sowt, raw , in24, in32 "PCM" (integer);
//   fl32, FL32, fl64, FL64 "PCM" (float);
//   ulaw, ULAW "mu-law"; alaw, ALAW "A-law"; ima4 "IMA ADPCM";
//   any other by its four characters (trailing spaces dropped).
// bits_per_sample is COMM's sample size for integer PCM, 32 or 64 for
// float (what the type fixes, whatever COMM says), 8 for mu-law and A-law;
// 0 for the compressed types. The PCM bit rate counts whole bytes per
// sample, as the sound data holds them (12-bit samples take 16 bits).
//
// Texts: NAME title, AUTH artist, the first ANNO comment; "(c) " is not a
// tag field. An "ID3 " (or "id3 ") chunk is read as an ID3v2 tag, and its
// fields win over the text chunks': it is the richer tag, written by the
// tools that write tags at all, while the text chunks are left by the
// recording software.
#include <cstring>
#include <string>
#include <vector>

#include "Chunks.h"
#include "Extended80.h"
#include "Id3.h"
#include "Readers.h"

namespace fileinfo {
namespace media {

namespace {

// COMM's fixed part, and AIFF-C's compression type after it.
constexpr size_t kCommBytes = 18;
constexpr size_t kCommAifcBytes = 22;

struct Common {
    bool found = false;
    uint16_t channels = 0;
    uint32_t frames = 0;
    uint16_t sampleSize = 0;
    uint32_t sampleRate = 0;
    uint8_t compression[4] = {'N', 'O', 'N', 'E'};
};

struct AiffChunks {
    bool aifc = false;
    Common common;
    bool soundFound = false;
    uint64_t soundBytes = 0;  // SSND's sample bytes within the file
    Tags texts;
    std::vector<uint8_t> id3;
};

void ReadCommon(const Source& source, uint64_t body, uint64_t size, bool aifc, Common& common) {
    uint8_t comm[kCommAifcBytes];
    if (size < kCommBytes) return;
    const size_t length = aifc && size >= kCommAifcBytes ? kCommAifcBytes : kCommBytes;
    if (!ReadSmall(source, body, comm, length)) return;
    common.found = true;
    common.channels = BigEndian16(comm);
    common.frames = BigEndian32(comm + 2);
    common.sampleSize = BigEndian16(comm + 6);
    common.sampleRate = Extended80ToUint32(comm + 8);
    if (length == kCommAifcBytes) std::memcpy(common.compression, comm + 18, 4);
}

// SSND: an offset to the first sample and a block size, then the sound.
// Only the sound's size is used, for a COMM that counts no frames and for
// the bit rate of compressed sound.
void TakeSound(const Source& source, uint64_t body, uint64_t inFile, AiffChunks& found) {
    found.soundFound = true;
    uint8_t offset[4];
    if (inFile < 8 || !ReadSmall(source, body, offset, sizeof offset)) return;
    const uint64_t skipped = 8 + static_cast<uint64_t>(BigEndian32(offset));
    found.soundBytes = inFile > skipped ? inFile - skipped : 0;
}

void TakeText(const Source& source, uint64_t body, uint64_t size, std::string& field) {
    if (!field.empty() || size == 0) return;
    std::vector<uint8_t> text;
    const size_t length = size < kMaxTextListBytes ? static_cast<size_t>(size) : kMaxTextListBytes;
    if (!source.ReadUpTo(body, length, text)) return;
    field = EightBitText(text.data(), text.size());
}

void WalkChunks(const Source& source, uint64_t end, AiffChunks& found) {
    uint64_t at = 12;
    for (unsigned count = 0; count < kMaxChunks && at < end && end - at >= 8; ++count) {
        uint8_t header[8];
        if (!ReadSmall(source, at, header, sizeof header)) return;
        const uint64_t size = BigEndian32(header + 4);
        const uint64_t body = at + 8;
        const uint64_t left = end - body;
        const uint64_t inFile = size < left ? size : left;
        if (ChunkIdIs(header, "COMM")) {
            if (!found.common.found) ReadCommon(source, body, inFile, found.aifc, found.common);
        } else if (ChunkIdIs(header, "SSND")) {
            if (!found.soundFound) TakeSound(source, body, inFile, found);
        } else if (ChunkIdIs(header, "NAME")) {
            TakeText(source, body, inFile, found.texts.title);
        } else if (ChunkIdIs(header, "AUTH")) {
            TakeText(source, body, inFile, found.texts.artist);
        } else if (ChunkIdIs(header, "ANNO")) {
            TakeText(source, body, inFile, found.texts.comment);
        } else if (ChunkIdIs(header, "ID3 ") || ChunkIdIs(header, "id3 ")) {
            if (found.id3.empty()) {
                const size_t length =
                    inFile < kMaxId3ChunkBytes ? static_cast<size_t>(inFile) : kMaxId3ChunkBytes;
                if (!source.ReadUpTo(body, length, found.id3)) found.id3.clear();
            }
        }
        const uint64_t next = NextChunk(source, body, size, end);
        if (next <= at) return;
        at = next;
    }
}

enum class Kind { kInteger, kFloat, kG711, kIma4, kOther };

// Names the codec from the compression type; returns its kind.
Kind TakeCodec(const Common& common, Reading& reading) {
    const char* type = reinterpret_cast<const char*>(common.compression);
    auto is = [type](const char* name) { return std::memcmp(type, name, 4) == 0; };
    if (is("NONE") || is("twos") || is("sowt") || is("raw ") || is("in24") || is("in32")) {
        reading.audio_codec = "PCM";
        reading.pcm_format = "integer";
        reading.bits_per_sample = common.sampleSize;
        return Kind::kInteger;
    }
    if (is("fl32") || is("FL32") || is("fl64") || is("FL64")) {
        reading.audio_codec = "PCM";
        reading.pcm_format = "float";
        reading.bits_per_sample = type[2] == '3' ? 32 : 64;
        return Kind::kFloat;
    }
    if (is("ulaw") || is("ULAW") || is("alaw") || is("ALAW")) {
        reading.audio_codec = type[0] == 'u' || type[0] == 'U' ? "mu-law" : "A-law";
        reading.bits_per_sample = 8;
        return Kind::kG711;
    }
    if (is("ima4")) {
        reading.audio_codec = "IMA ADPCM";
        return Kind::kIma4;
    }
    reading.audio_codec = FourCcName(common.compression);
    return Kind::kOther;
}

// Whole milliseconds of `frames` at `rate` per second, without overflow.
uint64_t FramesToMs(uint64_t frames, uint64_t rate) {
    return frames / rate * 1000 + frames % rate * 1000 / rate;
}

// An ima4 packet holds 64 frames of each channel in 34 bytes.
constexpr uint32_t kIma4Frames = 64;
constexpr uint32_t kIma4Bytes = 34;

void TakeTiming(const AiffChunks& found, Kind kind, Reading& reading) {
    const Common& common = found.common;
    const uint64_t rate = common.sampleRate;
    const uint64_t channels = common.channels;
    uint64_t frames = common.frames;
    if (kind == Kind::kIma4) {
        frames *= kIma4Frames;  // COMM counts packets
        reading.audio_bit_rate = rate * channels * kIma4Bytes * 8 / kIma4Frames;
    } else if (kind != Kind::kOther) {
        const uint64_t bytesPerSample = (reading.bits_per_sample + 7u) / 8u;
        reading.audio_bit_rate = rate * channels * bytesPerSample * 8;
        // A COMM that counts no frames (a stream written without going back
        // to count them): the frames that the sound's bytes hold.
        const uint64_t frameBytes = channels * bytesPerSample;
        if (frames == 0 && found.soundBytes != 0 && frameBytes != 0) {
            frames = found.soundBytes / frameBytes;
            reading.duration_estimated = true;
        }
    }
    if (rate != 0) reading.duration_ms = FramesToMs(frames, rate);
    // Other codecs: the average over the sound's bytes.
    if (kind == Kind::kOther && reading.duration_ms != 0 && found.soundBytes != 0) {
        reading.audio_bit_rate = found.soundBytes * 8 * 1000 / reading.duration_ms;
    }
    reading.bit_rate = reading.audio_bit_rate;
}

}  // namespace

bool ReadAiff(const Source& source, Reading& reading) {
    const std::vector<uint8_t>& head = source.Head();
    if (head.size() < 12) return false;
    AiffChunks found;
    found.aifc = std::memcmp(head.data() + 8, "AIFC", 4) == 0;
    // The FORM's size bounds the walk, and the file bounds the FORM.
    const uint64_t formEnd = 8 + static_cast<uint64_t>(BigEndian32(head.data() + 4));
    const uint64_t end = formEnd < source.Size() ? formEnd : source.Size();
    WalkChunks(source, end, found);

    reading.type = found.aifc ? "AIFC" : "AIFF";
    reading.size = source.Size();
    if (found.common.found) {
        reading.sample_rate = found.common.sampleRate;
        reading.channels = found.common.channels;
        const Kind kind = TakeCodec(found.common, reading);
        TakeTiming(found, kind, reading);
    }
    reading.tags = found.texts;
    // The ID3 tag's fields win; the text chunks' stay where it has none.
    if (!found.id3.empty()) ParseId3v2(found.id3.data(), found.id3.size(), reading.tags);
    return true;
}

}  // namespace media
}  // namespace fileinfo
