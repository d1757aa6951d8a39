// MPEG audio (versions 1, 2 and 2.5, Layers I to III) and AAC (ADTS and
// ADIF) streams, which have no container: ID3v2 tags may stand in front,
// and ID3v1, APE or footed ID3v2 tags behind. The reader takes the 64 KiB
// head and the last bytes of the file; beyond them only a window where the
// stream starts after a large tag, the frames a reading shows out of such a
// tag, and 16 KiB from the middle of a stream too long to count. It never
// reads the whole file.
#include <string>
#include <vector>

#include "Id3.h"
#include "Id3File.h"
#include "Readers.h"

namespace fileinfo {
namespace media {

namespace {

constexpr size_t kWindowBytes = 64 * 1024;
// Tags in front of the stream, one after the other, looked at.
constexpr int kMaxFrontTags = 8;
// Frames that must follow one another, consistent, before bytes that are
// not at the start of the stream are believed to be one.
constexpr int kFramesWhenSearching = 4;
// Behind the stream: ID3v1, APE and ID3v2 tags with a footer, in any order.
constexpr int kMaxTailTags = 4;
// The bytes of the file's end kept at hand: an ID3v1 trailer (128), an APE
// footer (32) before it, or an ID3v2 footer (10).
constexpr size_t kTailBytes = 128 + 32;

// --- Reading bytes -----------------------------------------------------

// The file's head and tail, held; any other bytes are read when asked for.
class FileBytes {
public:
    explicit FileBytes(const Source& source) : source_(source) {
        const uint64_t size = source.Size();
        tailBase_ = size > kTailBytes ? size - kTailBytes : 0;
        if (size > source.Head().size()) source.ReadUpTo(tailBase_, kTailBytes, tail_);
    }

    // Copies `n` bytes at `offset` from what was read, reading them when
    // they were not; false past the end of the file.
    bool Copy(uint64_t offset, size_t n, uint8_t* out) const {
        const std::vector<uint8_t>& head = source_.Head();
        if (offset <= head.size() && n <= head.size() - offset) return CopyFrom(head.data() + offset, n, out);
        if (!tail_.empty() && offset >= tailBase_ && offset - tailBase_ <= tail_.size() &&
            n <= tail_.size() - (offset - tailBase_)) {
            return CopyFrom(tail_.data() + (offset - tailBase_), n, out);
        }
        return source_.ReadAt(offset, out, n);
    }

private:
    static bool CopyFrom(const uint8_t* p, size_t n, uint8_t* out) {
        for (size_t i = 0; i < n; ++i) out[i] = p[i];
        return true;
    }

    const Source& source_;
    uint64_t tailBase_ = 0;
    std::vector<uint8_t> tail_;
};

// A run of the file's bytes held in memory, starting at `base`.
struct Window {
    uint64_t base = 0;
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::vector<uint8_t> storage;

    uint64_t End() const { return base + size; }
    bool Holds(uint64_t offset, size_t n) const {
        return offset >= base && offset - base <= size && n <= size - (offset - base);
    }
    const uint8_t* At(uint64_t offset) const { return data + (offset - base); }
};

// The head when it reaches well past `offset`, else a fresh read there.
void OpenWindow(const Source& source, uint64_t offset, Window& window) {
    const std::vector<uint8_t>& head = source.Head();
    if (offset < head.size() && (head.size() - offset >= kWindowBytes / 2 || head.size() == source.Size())) {
        window.base = 0;
        window.data = head.data();
        window.size = head.size();
        return;
    }
    window.base = offset;
    source.ReadUpTo(offset, kWindowBytes, window.storage);
    window.data = window.storage.data();
    window.size = window.storage.size();
}

// Fills the fields `into` still lacks from `from`.
void FillMissing(const Tags& from, Tags& into) {
    if (into.title.empty()) into.title = from.title;
    if (into.artist.empty()) into.artist = from.artist;
    if (into.album.empty()) into.album = from.album;
    if (into.genre.empty()) into.genre = from.genre;
    if (into.year.empty()) into.year = from.year;
    if (into.comment.empty()) into.comment = from.comment;
    if (into.composer.empty()) into.composer = from.composer;
    if (into.track == 0 && into.track_total == 0) {
        into.track = from.track;
        into.track_total = from.track_total;
    }
}

// --- Frame headers -------------------------------------------------------

enum : unsigned { kVersion25 = 0, kVersion2 = 2, kVersion1 = 3 };

struct MpegHeader {
    unsigned version = 0;  // the 2-bit field: 3 MPEG 1, 2 MPEG 2, 0 MPEG 2.5
    unsigned layer = 0;    // 1..3
    uint32_t bitRate = 0;  // bit/s
    uint32_t sampleRate = 0;
    uint32_t samples = 0;  // per frame
    uint32_t length = 0;   // bytes, header included
    uint32_t channels = 0;
    bool crc = false;
};

// The 4 header bytes of an MPEG audio frame; false for a reserved value or
// the free bit rate, whose frames have no length to walk by.
bool ParseMpegHeader(const uint8_t* p, MpegHeader& h) {
    if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
    h.version = (p[1] >> 3) & 3;
    const unsigned layerField = (p[1] >> 1) & 3;
    const unsigned bitRateIndex = p[2] >> 4;
    const unsigned rateIndex = (p[2] >> 2) & 3;
    if (h.version == 1 || layerField == 0 || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3) return false;
    if ((p[3] & 3) == 2) return false;  // reserved emphasis
    h.layer = 4 - layerField;
    h.crc = (p[1] & 1) == 0;
    static const uint16_t kRates[3][15] = {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},  // MPEG 1 Layer I
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},     // MPEG 1 Layer II
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},      // MPEG 1 Layer III
    };
    static const uint16_t kRatesLowLayer1[15] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256};
    static const uint16_t kRatesLow[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    const bool mpeg1 = h.version == kVersion1;
    const uint16_t kbit = mpeg1 ? kRates[h.layer - 1][bitRateIndex]
                                : (h.layer == 1 ? kRatesLowLayer1[bitRateIndex] : kRatesLow[bitRateIndex]);
    h.bitRate = kbit * 1000u;
    static const uint32_t kSampleRates[3] = {44100, 48000, 32000};
    h.sampleRate = kSampleRates[rateIndex] >> (mpeg1 ? 0 : h.version == kVersion2 ? 1 : 2);
    const unsigned padding = (p[2] >> 1) & 1;
    if (h.layer == 1) {
        h.samples = 384;
        h.length = (12 * h.bitRate / h.sampleRate + padding) * 4;
    } else {
        h.samples = h.layer == 3 && !mpeg1 ? 576 : 1152;
        h.length = h.samples / 8 * h.bitRate / h.sampleRate + padding;
    }
    h.channels = (p[3] >> 6) == 3 ? 1 : 2;
    return true;
}

bool SameStream(const MpegHeader& a, const MpegHeader& b) {
    return a.version == b.version && a.layer == b.layer && a.sampleRate == b.sampleRate;
}

struct AdtsHeader {
    unsigned profile = 0;  // object type - 1: Main, LC, SSR, LTP
    unsigned rateIndex = 0;
    uint32_t sampleRate = 0;
    unsigned channelConfig = 0;
    bool mpeg2 = false;
    uint32_t length = 0;   // bytes, header included
    uint32_t samples = 0;  // 1024 per raw data block
};

const uint32_t kAacSampleRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                      22050, 16000, 12000, 11025, 8000,  7350};

// The 7 header bytes of an ADTS frame: a sync word whose layer bits are 00.
bool ParseAdtsHeader(const uint8_t* p, AdtsHeader& h) {
    if (p[0] != 0xFF || (p[1] & 0xF6) != 0xF0) return false;
    h.mpeg2 = (p[1] & 0x08) != 0;
    h.profile = p[2] >> 6;
    h.rateIndex = (p[2] >> 2) & 0x0F;
    if (h.rateIndex >= 13) return false;
    h.sampleRate = kAacSampleRates[h.rateIndex];
    h.channelConfig = (p[2] & 1) << 2 | p[3] >> 6;
    h.length = (p[3] & 3u) << 11 | static_cast<uint32_t>(p[4]) << 3 | p[5] >> 5;
    const uint32_t headerLength = (p[1] & 1) ? 7 : 9;
    if (h.length < headerLength) return false;
    h.samples = 1024 * ((p[6] & 3u) + 1);
    return true;
}

bool SameStream(const AdtsHeader& a, const AdtsHeader& b) {
    return a.profile == b.profile && a.rateIndex == b.rateIndex && a.channelConfig == b.channelConfig &&
           a.mpeg2 == b.mpeg2;
}

const char* AacCodec(unsigned profile) {
    static const char* const kNames[4] = {"AAC Main", "AAC LC", "AAC SSR", "AAC LTP"};
    return kNames[profile & 3];
}

uint32_t AacChannels(unsigned channelConfig) { return channelConfig == 7 ? 8 : channelConfig; }

// --- Finding the stream ---------------------------------------------------

enum class Kind { kNone, kMpeg, kAdts, kAdif };

// How many frames of one stream follow one another from `offset`, counted
// up to `wanted`, within the window and the audio; `reachedEnd` says the
// last of them ended exactly where the audio ends.
template <typename Header>
int FramesInRow(const Window& w, uint64_t offset, uint64_t audioEnd, int wanted, bool (*parse)(const uint8_t*, Header&),
                bool& reachedEnd) {
    Header first, h;
    int count = 0;
    reachedEnd = false;
    while (count < wanted && w.Holds(offset, 7) && offset < audioEnd) {
        if (!parse(w.At(offset), h) || (count > 0 && !SameStream(first, h))) break;
        if (count == 0) first = h;
        ++count;
        offset += h.length;  // every frame is at least 7 bytes long
        if (offset == audioEnd) reachedEnd = true;
    }
    return count;
}

// Does a stream of `kind` start at `offset`? Right after the tags, the
// next frame's header must agree with the first; anywhere else, a row of
// several must.
bool StreamAt(const Window& w, uint64_t offset, uint64_t audioEnd, int wanted, Kind kind) {
    bool reachedEnd = false;
    int count = 0;
    if (kind == Kind::kMpeg) {
        count = FramesInRow<MpegHeader>(w, offset, audioEnd, wanted, ParseMpegHeader, reachedEnd);
    } else {
        count = FramesInRow<AdtsHeader>(w, offset, audioEnd, wanted, ParseAdtsHeader, reachedEnd);
    }
    return count >= wanted || (count > 0 && reachedEnd && (wanted <= 2 || count >= 2));
}

Kind KindAt(const Window& w, uint64_t offset, uint64_t audioEnd, int wanted) {
    if (!w.Holds(offset, 4)) return Kind::kNone;
    const uint8_t* p = w.At(offset);
    if (p[0] == 'A' && p[1] == 'D' && p[2] == 'I' && p[3] == 'F') return wanted <= 2 ? Kind::kAdif : Kind::kNone;
    if (p[0] != 0xFF) return Kind::kNone;
    if ((p[1] & 0x06) == 0) return StreamAt(w, offset, audioEnd, wanted, Kind::kAdts) ? Kind::kAdts : Kind::kNone;
    return StreamAt(w, offset, audioEnd, wanted, Kind::kMpeg) ? Kind::kMpeg : Kind::kNone;
}

// --- What lies around the stream ------------------------------------------

struct Layout {
    uint64_t audioStart = 0;  // after the tags in front
    uint64_t audioEnd = 0;    // before the tags behind
    Tags front;               // ID3v2 in front, the first tag winning
    Tags behind;              // ID3v2 with a footer behind
    Tags trailer;             // ID3v1
};

void ReadFrontTags(const Source& source, const FileBytes& bytes, Layout& layout) {
    uint64_t at = 0;
    for (int i = 0; i < kMaxFrontTags; ++i) {
        uint8_t header[10];
        if (!bytes.Copy(at, sizeof header, header)) break;
        const uint64_t size = Id3v2TagSize(header, sizeof header);
        if (size == 0) break;
        Tags found;
        ReadId3v2At(source, at, size, found);
        FillMissing(found, layout.front);
        at += size;  // at least the 10 header bytes
    }
    layout.audioStart = at;
}

void ReadTailTags(const Source& source, const FileBytes& bytes, Layout& layout) {
    uint64_t end = source.Size();
    bool sawTrailer = false;
    for (int i = 0; i < kMaxTailTags && end > layout.audioStart; ++i) {
        uint8_t trailer[128];
        if (!sawTrailer && end >= 128 && bytes.Copy(end - 128, sizeof trailer, trailer) &&
            ParseId3v1(trailer, sizeof trailer, layout.trailer)) {
            sawTrailer = true;
            end -= 128;
            continue;
        }
        uint8_t footer[32];
        if (end >= 32 && bytes.Copy(end - 32, sizeof footer, footer) &&
            std::string(reinterpret_cast<const char*>(footer), 8) == "APETAGEX") {
            // The size counts the items and the footer; a header, when flagged, comes on top.
            const uint64_t size = LittleEndian32(footer + 12) + ((LittleEndian32(footer + 20) & 0x80000000u) ? 32u : 0u);
            if (size < 32 || size > end) break;
            end -= size;
            continue;
        }
        if (end >= 10 && bytes.Copy(end - 10, 10, footer) && footer[0] == '3' && footer[1] == 'D' && footer[2] == 'I') {
            footer[0] = 'I', footer[1] = 'D', footer[2] = '3';  // the footer repeats the header
            const uint64_t size = Id3v2TagSize(footer, 10);
            // Only ID3v2.4 has footers; the size then counts header, body and footer.
            if (size == 0 || footer[3] != 4 || !(footer[5] & 0x10) || size > end) break;
            const uint64_t start = end - size;
            ReadId3v2At(source, start, size, layout.behind);
            end = start;
            continue;
        }
        break;
    }
    layout.audioEnd = end > layout.audioStart ? end : source.Size();
}

// --- The readings -----------------------------------------------------------

uint64_t Milliseconds(uint64_t samples, uint32_t rate) { return (samples * 1000 + rate / 2) / rate; }

uint64_t BitRate(uint64_t bytes, uint64_t samples, uint32_t rate) {
    return samples == 0 ? 0 : (bytes * 8 * rate + samples / 2) / samples;
}

// A count of frames from a "Xing", "Info" or "VBRI" header in the first frame.
struct VbrHeader {
    bool found = false;
    bool variable = false;
    uint32_t frames = 0;
    uint32_t bytes = 0;  // 0 when not given
};

VbrHeader FindVbrHeader(const FileBytes& bytes, uint64_t frameAt, const MpegHeader& h) {
    VbrHeader vbr;
    uint8_t frame[64];
    const size_t sideInfo = h.version == kVersion1 ? (h.channels == 1 ? 17 : 32) : (h.channels == 1 ? 9 : 17);
    // Encoders put it after the side information, which a CRC pushes on by two.
    for (size_t at : {4 + sideInfo, 4 + sideInfo + 2}) {
        if (at + 16 > h.length || !bytes.Copy(frameAt + at, 16, frame)) continue;
        const std::string tag(reinterpret_cast<const char*>(frame), 4);
        if (tag != "Xing" && tag != "Info") continue;
        const uint32_t flags = BigEndian32(frame + 4);
        if (!(flags & 1)) return vbr;  // no frame count: no duration to take
        vbr.frames = BigEndian32(frame + 8);
        vbr.bytes = (flags & 2) ? BigEndian32(frame + 12) : 0;
        vbr.found = vbr.frames > 0;
        vbr.variable = tag == "Xing";
        return vbr;
    }
    // "VBRI" stands 32 bytes after the header, whatever the mode.
    if (36 + 18 <= h.length && bytes.Copy(frameAt + 36, 18, frame) && std::string(reinterpret_cast<const char*>(frame), 4) == "VBRI") {
        vbr.bytes = BigEndian32(frame + 10);
        vbr.frames = BigEndian32(frame + 14);
        vbr.found = vbr.frames > 0;
        vbr.variable = true;
    }
    return vbr;
}

// What a walk over one stream's frames met: the frames read whole, and
// where and why it stopped.
struct Walk {
    uint64_t end = 0;
    uint64_t bytes = 0;
    uint64_t samples = 0;
    uint32_t lowestRate = 0xFFFFFFFFu;
    uint32_t highestRate = 0;
    bool cutShort = false;  // the last frame runs past the end of the file or its tags
};

uint32_t FrameBitRate(const MpegHeader& h) { return h.bitRate; }
uint32_t FrameBitRate(const AdtsHeader&) { return 0; }

// Walks frames of the stream that `first` opened, from `at`, as far as the
// window holds them whole.
template <typename Header>
Walk WalkFrames(const Window& w, uint64_t at, uint64_t audioEnd, const Header& first,
                bool (*parse)(const uint8_t*, Header&)) {
    Walk walk;
    Header h;
    while (w.Holds(at, 7) && at < audioEnd && parse(w.At(at), h) && SameStream(first, h)) {
        if (at + h.length > audioEnd) {
            walk.cutShort = true;
            break;
        }
        if (!w.Holds(at, h.length)) break;  // only frames read whole make the average
        walk.bytes += h.length;
        walk.samples += h.samples;
        const uint32_t rate = FrameBitRate(h);
        if (rate < walk.lowestRate) walk.lowestRate = rate;
        if (rate > walk.highestRate) walk.highestRate = rate;
        at += h.length;  // at least 7 bytes
    }
    walk.end = at;
    return walk;
}

// An encoder's first frames are often smaller or larger than the rest (a
// 5-minute AAC file's first 170 frames average 2 % below the whole): a
// stream too long to walk is measured by a run of frames from its middle
// instead, when one is found there.
constexpr size_t kMiddleSampleBytes = 16 * 1024;

template <typename Header>
void SampleMiddle(const Source& source, uint64_t start, uint64_t audioEnd, const Header& first,
                  bool (*parse)(const uint8_t*, Header&), Walk& walk) {
    if (audioEnd - start < 4 * kMiddleSampleBytes) return;
    Window m;
    m.base = start + (audioEnd - start) / 2;
    if (!source.ReadUpTo(m.base, kMiddleSampleBytes, m.storage)) return;
    m.data = m.storage.data();
    m.size = m.storage.size();
    for (uint64_t at = m.base; m.Holds(at, 7); ++at) {
        Header h;
        if (*m.At(at) != 0xFF || !parse(m.At(at), h) || !SameStream(first, h)) continue;
        bool reachedEnd = false;
        if (FramesInRow<Header>(m, at, audioEnd, kFramesWhenSearching, parse, reachedEnd) < kFramesWhenSearching) {
            continue;
        }
        const Walk middle = WalkFrames(m, at, audioEnd, first, parse);
        walk.bytes = middle.bytes;
        walk.samples = middle.samples;
        if (middle.lowestRate < walk.lowestRate) walk.lowestRate = middle.lowestRate;
        if (middle.highestRate > walk.highestRate) walk.highestRate = middle.highestRate;
        return;
    }
}

void ReadMpeg(const Source& source, const FileBytes& bytes, const Window& w, const Layout& layout, uint64_t start,
              Reading& reading) {
    MpegHeader first;
    ParseMpegHeader(w.At(start), first);
    static const char* const kCodecs[3] = {"MP1", "MP2", "MP3"};
    reading.type = "MP3";
    reading.audio_codec = kCodecs[first.layer - 1];
    reading.sample_rate = first.sampleRate;
    reading.channels = first.channels;
    const uint64_t audioBytes = layout.audioEnd - start;

    const VbrHeader vbr = FindVbrHeader(bytes, start, first);
    if (vbr.found) {
        const uint64_t samples = static_cast<uint64_t>(vbr.frames) * first.samples;
        // A byte count beyond the file is not believed.
        const uint64_t streamBytes = vbr.bytes != 0 && vbr.bytes <= audioBytes ? vbr.bytes : audioBytes;
        reading.duration_ms = Milliseconds(samples, first.sampleRate);
        reading.audio_bit_rate = BitRate(streamBytes, samples, first.sampleRate);
        reading.vbr = vbr.variable;
        reading.bit_rate = reading.audio_bit_rate;
        return;
    }
    // Count the frames when the stream ends within what was read, else
    // estimate from their average rate.
    Walk walk = WalkFrames(w, start, layout.audioEnd, first, ParseMpegHeader);
    if ((walk.end == layout.audioEnd || walk.cutShort) && walk.samples > 0) {
        reading.duration_ms = Milliseconds(walk.samples, first.sampleRate);
        reading.audio_bit_rate = BitRate(audioBytes, walk.samples, first.sampleRate);
    } else {
        SampleMiddle(source, start, layout.audioEnd, first, ParseMpegHeader, walk);
        const uint64_t average = walk.samples > 0 ? BitRate(walk.bytes, walk.samples, first.sampleRate) : first.bitRate;
        reading.duration_estimated = true;
        reading.audio_bit_rate = average;
        reading.duration_ms = average == 0 ? 0 : (audioBytes * 8 * 1000 + average / 2) / average;
    }
    reading.vbr = walk.samples > 0 && walk.lowestRate != walk.highestRate;
    reading.bit_rate = reading.audio_bit_rate;
}

void ReadAdts(const Source& source, const Window& w, const Layout& layout, uint64_t start, Reading& reading) {
    AdtsHeader first;
    ParseAdtsHeader(w.At(start), first);
    reading.type = "AAC";
    reading.aac_format = "ADTS";
    reading.audio_codec = AacCodec(first.profile);
    reading.sample_rate = first.sampleRate;
    reading.channels = AacChannels(first.channelConfig);
    const uint64_t audioBytes = layout.audioEnd - start;
    Walk walk = WalkFrames(w, start, layout.audioEnd, first, ParseAdtsHeader);
    if ((walk.end == layout.audioEnd || walk.cutShort) && walk.samples > 0) {
        reading.duration_ms = Milliseconds(walk.samples, first.sampleRate);
        reading.audio_bit_rate = BitRate(audioBytes, walk.samples, first.sampleRate);
    } else {
        SampleMiddle(source, start, layout.audioEnd, first, ParseAdtsHeader, walk);
        reading.duration_estimated = true;
        if (walk.bytes > 0) {
            // As many frames again as the average frame fits into the whole.
            // In long double: bytes times samples could pass 64 bits for a file of terabytes.
            const uint64_t estimated = static_cast<uint64_t>(static_cast<long double>(audioBytes) * walk.samples /
                                                             static_cast<long double>(walk.bytes));
            reading.duration_ms = Milliseconds(estimated, first.sampleRate);
            reading.audio_bit_rate = BitRate(walk.bytes, walk.samples, first.sampleRate);
        }
    }
    reading.bit_rate = reading.audio_bit_rate;
}

// Reads bits most significant first from bytes that were read; past their
// end it gives zeros and says so.
class BitReader {
public:
    BitReader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
    uint32_t Get(int bits) {
        uint32_t value = 0;
        for (int i = 0; i < bits; ++i) {
            const size_t byte = bit_ / 8;
            const uint32_t bit = byte < n_ ? (p_[byte] >> (7 - bit_ % 8)) & 1 : 0;
            if (byte >= n_) overrun_ = true;
            value = value << 1 | bit;
            ++bit_;
        }
        return value;
    }
    bool Overrun() const { return overrun_; }

private:
    const uint8_t* p_;
    size_t n_;
    size_t bit_ = 0;
    bool overrun_ = false;
};

// The channels of a program configuration element's front, side and back
// elements (a pair counts two) and its LFE elements; the reader stands
// after the sampling index.
uint32_t ProgramChannels(BitReader& bits) {
    const uint32_t front = bits.Get(4), side = bits.Get(4), back = bits.Get(4);
    const uint32_t lfe = bits.Get(2);
    bits.Get(3);  // associated data elements
    bits.Get(4);  // coupling channel elements
    if (bits.Get(1)) bits.Get(4);  // mono mixdown
    if (bits.Get(1)) bits.Get(4);  // stereo mixdown
    if (bits.Get(1)) bits.Get(3);  // matrix mixdown
    uint32_t channels = lfe;
    for (uint32_t i = 0; i < front + side + back; ++i) {
        channels += bits.Get(1) ? 2 : 1;
        bits.Get(4);  // element tag
    }
    return channels;
}

bool ReadAdif(const Window& w, const Layout& layout, uint64_t start, Reading& reading) {
    const size_t held = static_cast<size_t>(w.End() - start);
    BitReader bits(w.At(start), held < 256 ? held : 256);
    bits.Get(32);  // "ADIF"
    if (bits.Get(1)) {
        bits.Get(32), bits.Get(32), bits.Get(8);  // copyright id
    }
    bits.Get(2);  // original_copy, home
    const bool constantRate = bits.Get(1) == 0;
    const uint32_t bitRate = bits.Get(23);
    bits.Get(4);  // program configuration elements, less one: the first one speaks for the stream
    if (constantRate) bits.Get(20);  // buffer fullness
    bits.Get(4);  // element tag
    const unsigned profile = bits.Get(2);
    const unsigned rateIndex = bits.Get(4);
    const uint32_t channels = ProgramChannels(bits);
    if (bits.Overrun() || rateIndex >= 13) return false;
    reading.type = "AAC";
    reading.aac_format = "ADIF";
    reading.audio_codec = AacCodec(profile);
    reading.sample_rate = kAacSampleRates[rateIndex];
    reading.channels = channels;
    reading.bit_rate = reading.audio_bit_rate = bitRate;
    reading.duration_estimated = true;
    const uint64_t audioBytes = layout.audioEnd - start;
    if (bitRate > 0) reading.duration_ms = (audioBytes * 8 * 1000 + bitRate / 2) / bitRate;
    return true;
}

}  // namespace

bool ReadMpegAudio(const Source& source, Reading& reading) {
    const FileBytes bytes(source);
    Layout layout;
    ReadFrontTags(source, bytes, layout);
    if (layout.audioStart >= source.Size()) return false;
    ReadTailTags(source, bytes, layout);

    Window w;
    OpenWindow(source, layout.audioStart, w);
    // Taggers may leave zeros between a tag and the stream.
    uint64_t start = layout.audioStart;
    while (w.Holds(start, 1) && *w.At(start) == 0) ++start;

    // Right at the start, the next frame must agree; anywhere further on, a row of them.
    Kind kind = KindAt(w, start, layout.audioEnd, 2);
    if (kind == Kind::kNone) {
        for (uint64_t at = start + 1; w.Holds(at, 4) && at < layout.audioEnd; ++at) {
            if (*w.At(at) != 0xFF) continue;
            kind = KindAt(w, at, layout.audioEnd, kFramesWhenSearching);
            if (kind != Kind::kNone) {
                start = at;
                break;
            }
        }
    }
    if (kind == Kind::kNone || start >= layout.audioEnd) return false;

    if (kind == Kind::kMpeg) {
        ReadMpeg(source, bytes, w, layout, start, reading);
    } else if (kind == Kind::kAdts) {
        ReadAdts(source, w, layout, start, reading);
    } else if (!ReadAdif(w, layout, start, reading)) {
        return false;
    }
    // The first ID3v2 tag wins field by field, then one behind, then ID3v1.
    reading.tags = layout.front;
    FillMissing(layout.behind, reading.tags);
    FillMissing(layout.trailer, reading.tags);
    return true;
}

}  // namespace media
}  // namespace fileinfo
