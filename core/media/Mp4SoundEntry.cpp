// Sound sample entries: the codec and its numbers, from the entry's fixed
// fields and from the configuration boxes inside it (esds with its
// AudioSpecificConfig, alac, dOps, dfLa, dac3, dec3), and the layer of
// MPEG audio from its first frame.
#include <cstring>

#include "Mp4Config.h"

namespace fileinfo {
namespace media {

namespace {

// --- AAC: AudioSpecificConfig ---

const uint32_t kAacRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};

unsigned ReadObjectType(BitReader& bits) {
    const unsigned type = bits.Read(5);
    return type == 31 ? 32 + bits.Read(6) : type;
}

uint32_t ReadSamplingRate(BitReader& bits) {
    const unsigned index = bits.Read(4);
    if (index == 15) return bits.Read(24);
    return index < 13 ? kAacRates[index] : 0;
}

const char* AacName(unsigned objectType) {
    switch (objectType) {
        case 1: return "AAC Main";
        case 2: return "AAC LC";
        case 3: return "AAC SSR";
        case 4: return "AAC LTP";
        case 5: return "HE-AAC";
        case 6: return "AAC Scalable";
        case 17: return "ER AAC LC";
        case 19: return "ER AAC LTP";
        case 20: return "ER AAC Scalable";
        case 23: return "AAC LD";
        case 29: return "HE-AACv2";
        case 32: return "MP1";
        case 33: return "MP2";
        case 34: return "MP3";
        case 39: return "AAC ELD";
        case 42: return "USAC";
        default: return "AAC";
    }
}

unsigned ChannelsOfConfiguration(unsigned configuration) {
    static const unsigned kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};
    return kChannels[configuration & 15];
}

// The GASpecificConfig of the AAC object types, so that an explicit SBR or
// PS signal after it can be found. False when it cannot be skipped (a
// program config element).
bool SkipGaConfig(BitReader& bits, unsigned objectType, unsigned channelConfiguration) {
    if (channelConfiguration == 0) return false;
    bits.Read(1);                         // frame length
    if (bits.Read(1)) bits.Read(14);      // core coder delay
    const unsigned extension = bits.Read(1);
    if (objectType == 6 || objectType == 20) bits.Read(3);  // layer
    if (extension) {
        if (objectType == 22) bits.Read(16);
        if (objectType == 17 || objectType == 19 || objectType == 20 || objectType == 23) bits.Read(3);
        bits.Read(1);
    }
    return !bits.overrun;
}

void ReadAudioSpecificConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    BitReader bits(p, length);
    unsigned objectType = ReadObjectType(bits);
    uint32_t rate = ReadSamplingRate(bits);
    const unsigned channelConfiguration = bits.Read(4);
    if (bits.overrun) return;
    uint32_t extensionRate = 0;
    bool sbr = false;
    bool ps = objectType == 29;
    if (objectType == 5 || objectType == 29) {
        // Hierarchical signalling: the extension rate, then the core type.
        sbr = true;
        extensionRate = ReadSamplingRate(bits);
        objectType = ReadObjectType(bits);
    }
    const bool gaType = objectType == 1 || objectType == 2 || objectType == 3 || objectType == 4 ||
                        objectType == 6 || objectType == 7 || objectType == 17 || objectType == 19 ||
                        objectType == 20 || objectType == 21 || objectType == 22 || objectType == 23;
    if (!sbr && gaType && SkipGaConfig(bits, objectType, channelConfiguration) && bits.Left() >= 16) {
        // Backward-compatible signalling after the core configuration.
        if (bits.Read(11) == 0x2B7 && ReadObjectType(bits) == 5) {
            if (bits.Read(1) == 1) {
                sbr = true;
                extensionRate = ReadSamplingRate(bits);
                if (bits.Left() >= 12 && bits.Read(11) == 0x548) ps = bits.Read(1) == 1;
            }
        }
        if (bits.overrun) {
            sbr = false;
            ps = false;
        }
    }
    if (objectType == 2 && sbr) {
        out.codec = ps ? "HE-AACv2" : "HE-AAC";
    } else {
        out.codec = AacName(objectType);
    }
    if (sbr && extensionRate != 0) rate = extensionRate;
    if (rate != 0) out.sample_rate = rate;
    const unsigned channels = ChannelsOfConfiguration(channelConfiguration);
    if (channels != 0) out.channels = channels;
    // Parametric stereo makes two channels of one.
    if (ps && out.channels == 1) out.channels = 2;
}

// --- Sound ---

// An esds in a sound entry: the object type names the codec.
void ReadSoundEsds(const uint8_t* p, size_t length, SampleEntry& out) {
    DecoderConfig config;
    if (!ReadEsds(p, length, config)) {
        out.codec = "AAC";
        return;
    }
    switch (config.object_type) {
        case 0x40:
            out.codec = "AAC";
            if (config.info != nullptr) ReadAudioSpecificConfig(config.info, config.info_size, out);
            return;
        case 0x66: out.codec = "AAC Main"; return;
        case 0x67: out.codec = "AAC LC"; return;
        case 0x68: out.codec = "AAC SSR"; return;
        case 0x69:
        case 0x6B:
            out.codec = "MP3";
            out.layer_from_first_frame = true;
            return;
        case 0xA5: out.codec = "AC-3"; return;
        case 0xA6: out.codec = "E-AC-3"; return;
        case 0xA9: out.codec = "DTS"; return;
        case 0xAD: out.codec = "Opus"; return;
        case 0xE1: out.codec = "QCELP"; return;
        default: out.codec = "AAC"; return;
    }
}

// ALAC's magic cookie: frame length (4), compatible version, bit depth,
// three tuning bytes, channels, max run (2), max frame bytes (4), average
// bit rate (4), sample rate (4).
void ReadAlacCookie(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 4 + 24) return;
    const uint8_t* c = p + 4;  // after version and flags
    out.bits_per_sample = c[5];
    out.channels = c[9];
    const uint32_t rate = BigEndian32(c + 20);
    if (rate != 0) out.sample_rate = rate;
}

// dOps: version, output channels, pre-skip (2), input rate (4), ...
// Opus always decodes at 48 kHz.
void ReadOpusConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length >= 2) out.channels = p[1];
    out.sample_rate = 48000;
}

// dfLa: version and flags, then FLAC metadata blocks; STREAMINFO first.
void ReadFlacConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 4 + 4 + 18 || (p[4] & 0x7F) != 0) return;
    BitReader bits(p + 8 + 10, 8);
    out.sample_rate = bits.Read(20);
    out.channels = bits.Read(3) + 1;
    out.bits_per_sample = bits.Read(5) + 1;
}

// dac3: fscod (2), bsid (5), bsmod (3), acmod (3), lfeon (1).
void ReadAc3Config(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 3) return;
    static const uint32_t kRates[3] = {48000, 44100, 32000};
    static const unsigned kModeChannels[8] = {2, 1, 2, 3, 3, 4, 4, 5};
    BitReader bits(p, length);
    const unsigned fscod = bits.Read(2);
    bits.Read(8);
    const unsigned acmod = bits.Read(3);
    const unsigned lfe = bits.Read(1);
    if (fscod < 3) out.sample_rate = kRates[fscod];
    out.channels = kModeChannels[acmod] + lfe;
}

// dec3: data rate (13), independent substreams less one (3), then for the
// first: fscod (2), bsid (5), reserved, asvc, bsmod (3), acmod (3), lfeon.
void ReadEac3Config(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 5) return;
    static const uint32_t kRates[3] = {48000, 44100, 32000};
    static const unsigned kModeChannels[8] = {2, 1, 2, 3, 3, 4, 4, 5};
    BitReader bits(p, length);
    bits.Read(16);
    const unsigned fscod = bits.Read(2);
    bits.Read(10);
    const unsigned acmod = bits.Read(3);
    const unsigned lfe = bits.Read(1);
    if (fscod < 3) out.sample_rate = kRates[fscod];
    out.channels = kModeChannels[acmod] + lfe;
}

struct PcmEntry {
    const char* type;
    unsigned bits;  // 0: from the entry's sample size
    bool floating;
};

const PcmEntry kPcmEntries[] = {
    {"sowt", 0, false}, {"twos", 0, false}, {"raw", 8, false}, {"NONE", 0, false}, {"in24", 24, false},
    {"in32", 32, false}, {"fl32", 32, true}, {"fl64", 64, true}, {"lpcm", 0, false},
};

// QuickTime's lpcm flags: bit 0 marks float samples.
void ReadPcm(const PcmEntry& pcm, unsigned entrySampleSize, uint32_t lpcmFlags, uint32_t lpcmBits,
             SampleEntry& out) {
    out.codec = "PCM";
    const bool lpcm = std::strcmp(pcm.type, "lpcm") == 0;
    const bool floating = lpcm ? (lpcmFlags & 1) != 0 : pcm.floating;
    out.pcm_format = floating ? "float" : "integer";
    out.bits_per_sample = pcm.bits != 0 ? pcm.bits : lpcm && lpcmBits != 0 ? lpcmBits : entrySampleSize;
}

struct SoundCodec {
    const char* type;
    const char* codec;
};

const SoundCodec kSoundCodecs[] = {
    {"samr", "AMR-NB"}, {"sawb", "AMR-WB"}, {"ac-3", "AC-3"},         {"ec-3", "E-AC-3"},
    {".mp3", "MP3"},    {".mp2", "MP2"},    {".mp1", "MP1"},          {"Opus", "Opus"},
    {"fLaC", "FLAC"},   {"alac", "ALAC"},   {"ulaw", "u-law"},        {"alaw", "A-law"},
    {"ima4", "IMA ADPCM"}, {"sevc", "EVRC"}, {"sqcp", "QCELP"},       {"dtsc", "DTS"},
};

}  // namespace

// Sound entry: 6 reserved bytes, data reference (2), version (2), revision
// (2), vendor (4), channels (2), sample size (2), compression id (2),
// packet size (2), rate (16.16). QuickTime version 1 adds 16 bytes;
// version 2 puts a 64-bit float rate and 32-bit channels after them.
void ReadSoundEntry(const BoxBytes& bytes, const Box& entry, SampleEntry& out) {
    std::vector<uint8_t> e;
    if (!bytes.ReadRange(entry.body, entry.end, kMaxEntryBytes, e) || e.size() < 28) return;
    const unsigned version = BigEndian16(e.data() + 8);
    size_t childrenAt = 28;
    out.channels = BigEndian16(e.data() + 16);
    const unsigned sampleSize = BigEndian16(e.data() + 18);
    out.sample_rate = BigEndian32(e.data() + 24) >> 16;
    uint32_t lpcmFlags = 0;
    uint32_t lpcmBits = 0;
    if (version == 1) {
        childrenAt = 44;
    } else if (version == 2 && e.size() >= 64) {
        childrenAt = 64;
        uint64_t rateBits = BigEndian64(e.data() + 32);
        double rate = 0;
        std::memcpy(&rate, &rateBits, sizeof rate);
        out.sample_rate = rate > 0 && rate < 4294967295.0 ? static_cast<uint32_t>(rate + 0.5) : 0;
        out.channels = BigEndian32(e.data() + 40);
        lpcmBits = BigEndian32(e.data() + 48);
        lpcmFlags = BigEndian32(e.data() + 52);
    }

    const std::string type = TypeText(entry.type);
    Span config;
    for (const PcmEntry& pcm : kPcmEntries) {
        if (type == pcm.type) {
            ReadPcm(pcm, sampleSize, lpcmFlags, lpcmBits, out);
            return;
        }
    }
    if (entry.type == FourCc("mp4a") || entry.type == FourCc("enca")) {
        if (FindConfig(e, childrenAt, FourCc("esds"), config)) {
            ReadSoundEsds(e.data() + config.body, config.Size(), out);
        } else {
            out.codec = "AAC";
        }
        return;
    }
    for (const SoundCodec& c : kSoundCodecs) {
        if (type == c.type) {
            out.codec = c.codec;
            break;
        }
    }
    if (out.codec.empty()) out.codec = type;  // a sound we cannot name: its entry type
    if (entry.type == FourCc("alac") && FindConfig(e, childrenAt, FourCc("alac"), config)) {
        ReadAlacCookie(e.data() + config.body, config.Size(), out);
    } else if (entry.type == FourCc("Opus") && FindChild(e, childrenAt, e.size(), FourCc("dOps"), config)) {
        ReadOpusConfig(e.data() + config.body, config.Size(), out);
    } else if (entry.type == FourCc("fLaC") && FindChild(e, childrenAt, e.size(), FourCc("dfLa"), config)) {
        ReadFlacConfig(e.data() + config.body, config.Size(), out);
    } else if (entry.type == FourCc("ac-3") && FindChild(e, childrenAt, e.size(), FourCc("dac3"), config)) {
        ReadAc3Config(e.data() + config.body, config.Size(), out);
    } else if (entry.type == FourCc("ec-3") && FindChild(e, childrenAt, e.size(), FourCc("dec3"), config)) {
        ReadEac3Config(e.data() + config.body, config.Size(), out);
    }
    // QuickTime's MPEG audio entries: the frames say which layer they are.
    if (entry.type == FourCc(".mp3") || entry.type == FourCc(".mp2") || entry.type == FourCc(".mp1")) {
        out.layer_from_first_frame = true;
    }
    if (entry.type == FourCc("samr")) out.sample_rate = 8000;
    if (entry.type == FourCc("sawb")) out.sample_rate = 16000;
}

// An MPEG audio frame header: 11 sync bits, the version (2), the layer (2),
// protection (1); the bit rate (4), the rate index (2), padding and
// private bits; the channel mode (2, 3 for one channel), ...
bool ReadMpegAudioHeader(const uint8_t* h, MpegAudioHeader& out) {
    if (h[0] != 0xFF || (h[1] & 0xE0) != 0xE0) return false;
    static const char* const kLayers[4] = {nullptr, "MP3", "MP2", "MP1"};
    static const uint32_t kRates[3] = {44100, 48000, 32000};
    const unsigned version = (h[1] >> 3) & 3;  // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const unsigned layer = (h[1] >> 1) & 3;
    const unsigned rateIndex = (h[2] >> 2) & 3;
    if (version == 1 || kLayers[layer] == nullptr || rateIndex == 3) return false;
    out.codec = kLayers[layer];
    out.sample_rate = kRates[rateIndex] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    out.channels = (h[3] >> 6) == 3 ? 1 : 2;
    return true;
}

}  // namespace media
}  // namespace fileinfo
