// Visual sample entries: the codec, the size in pixels, and for H.264,
// H.265 and MPEG-4 Visual the profile and level, from avcC, from hvcC and
// from the visual object sequence header in esds.
#include "Mp4Config.h"

namespace fileinfo {
namespace media {

namespace {

// --- H.264 ---

// constraint_set1 on Baseline is Constrained Baseline; constraint_set3 on
// the High 10 and higher profiles is their Intra form.
std::string AvcProfileName(unsigned profile, unsigned constraints) {
    const bool set1 = (constraints & 0x40) != 0;
    const bool set3 = (constraints & 0x10) != 0;
    switch (profile) {
        case 66: return set1 ? "Constrained Baseline" : "Baseline";
        case 77: return "Main";
        case 88: return "Extended";
        case 100: return "High";
        case 110: return set3 ? "High 10 Intra" : "High 10";
        case 122: return set3 ? "High 4:2:2 Intra" : "High 4:2:2";
        case 244: return set3 ? "High 4:4:4 Intra" : "High 4:4:4 Predictive";
        case 44: return "CAVLC 4:4:4 Intra";
        default: return "";
    }
}

// avcC: version, profile_idc, the constraint flags, level_idc, ...
void ReadAvcConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 4) return;
    out.profile_id = p[1];
    out.profile = AvcProfileName(p[1], p[2]);
    out.level = p[3];
}

// --- H.265 ---

// general_profile_idc, or for 0 (none given) the lowest profile the
// compatibility flags name.
std::string HevcProfileName(unsigned profile) {
    switch (profile) {
        case 1: return "Main";
        case 2: return "Main 10";
        case 3: return "Main Still Picture";
        case 4: return "Format Range Extensions";
        case 5: return "High Throughput";
        case 6: return "Multiview Main";
        case 7: return "Scalable Main";
        case 8: return "3D Main";
        case 9: return "Screen Content Coding";
        case 10: return "Scalable Format Range Extensions";
        case 11: return "High Throughput Screen Content Coding";
        default: return "";
    }
}

// hvcC: configurationVersion, then general_profile_space (2 bits),
// general_tier_flag (1) and general_profile_idc (5), 32 compatibility
// flags (bit 31 - j for profile j), 48 bits of constraint flags, and
// general_level_idc at byte 12: 30 times the level (93 for level 3.1).
void ReadHevcConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    if (length < 13) return;
    out.level = p[12];
    if ((p[1] >> 6) != 0) return;  // a profile space of its own: the numbers mean other profiles
    unsigned profile = p[1] & 0x1F;
    if (profile == 0) {
        const uint32_t compatible = BigEndian32(p + 2);
        for (unsigned j = 1; j < 32; ++j) {
            if ((compatible & (0x80000000u >> j)) != 0) {
                profile = j;
                break;
            }
        }
    }
    out.profile_id = profile;
    out.profile = HevcProfileName(profile);
}

// --- MPEG-4 Visual ---

struct VisualProfile {
    unsigned high;  // the high nibble of profile_and_level_indication
    const char* name;
};

const VisualProfile kVisualProfiles[] = {
    {0x0, "Simple Profile"},
    {0x1, "Simple Scalable Profile"},
    {0x2, "Core Profile"},
    {0x3, "Main Profile"},
    {0x4, "N-bit Profile"},
    {0x5, "Scalable Texture Profile"},
    {0x6, "Simple Face Animation Profile"},
    {0x7, "Basic Animated Texture Profile"},
    {0x8, "Hybrid Profile"},
    {0x9, "Advanced Real Time Simple Profile"},
    {0xA, "Core Scalable Profile"},
    {0xB, "Advanced Coding Profile"},
    {0xC, "Advanced Core Profile"},
    {0xD, "Advanced Scalable Texture Profile"},
    {0xE, "Simple Studio Profile"},
    {0xF, "Advanced Simple Profile"},
};

// profile_and_level_indication: the profile in the high nibble, the level
// in the low one, with the exceptions the table of indications makes:
// 0x08 is Simple Profile level 0, 0xF7 Advanced Simple level 3b (given as
// 3), 0xE5 to 0xE8 Core Studio levels 1 to 4, and 0xF8 and above the
// Fine Granularity Scalable profile.
void ReadVisualIndication(unsigned indication, SampleEntry& out) {
    out.profile_id = indication;
    if (indication == 0 || indication == 0xFF) return;
    const unsigned high = indication >> 4;
    unsigned level = indication & 0x0F;
    std::string name = kVisualProfiles[high].name;
    if (indication == 0x08) {
        level = 0;
    } else if (indication == 0xF7) {
        level = 3;
    } else if (indication >= 0xE5 && indication <= 0xE8) {
        name = "Core Studio Profile";
        level = indication - 0xE4;
    } else if (indication >= 0xF8) {
        name = "Fine Granularity Scalable Profile";
        level = indication - 0xF8;
    }
    out.profile = name;
    out.level = level;
}

// The visual object sequence start code (00 00 01 B0) and the
// profile_and_level_indication byte after it.
void ReadVisualConfig(const uint8_t* p, size_t length, SampleEntry& out) {
    for (size_t i = 0; i + 4 < length; ++i) {
        if (p[i] == 0 && p[i + 1] == 0 && p[i + 2] == 1 && p[i + 3] == 0xB0) {
            ReadVisualIndication(p[i + 4], out);
            return;
        }
    }
}

// An esds in a visual entry: the object type names the codec.
void ReadVisualEsds(const uint8_t* p, size_t length, SampleEntry& out) {
    DecoderConfig config;
    if (!ReadEsds(p, length, config)) {
        out.codec = "MPEG-4 Visual";
        return;
    }
    const unsigned type = config.object_type;
    if (type >= 0x60 && type <= 0x65) {
        out.codec = "MPEG-2 Video";
    } else if (type == 0x6A) {
        out.codec = "MPEG-1 Video";
    } else if (type == 0x6C) {
        out.codec = "MJPEG";
    } else if (type == 0x21) {
        out.codec = "H.264";
    } else {
        out.codec = "MPEG-4 Visual";
        if (config.info != nullptr) ReadVisualConfig(config.info, config.info_size, out);
    }
}

struct VisualCodec {
    const char* type;
    const char* codec;
};

const VisualCodec kVisualCodecs[] = {
    {"avc1", "H.264"},      {"avc2", "H.264"},      {"avc3", "H.264"},        {"avc4", "H.264"},
    {"s263", "H.263"},      {"h263", "H.263"},      {"H263", "H.263"},        {"jpeg", "MJPEG"},
    {"mjpa", "MJPEG"},      {"mjpb", "MJPEG"},      {"AVDJ", "MJPEG"},        {"hvc1", "H.265"},
    {"hev1", "H.265"},      {"av01", "AV1"},        {"vp08", "VP8"},          {"vp09", "VP9"},
    {"mp1v", "MPEG-1 Video"}, {"mp2v", "MPEG-2 Video"}, {"apch", "ProRes"},   {"apcn", "ProRes"},
    {"apcs", "ProRes"},     {"apco", "ProRes"},     {"ap4h", "ProRes"},       {"ap4x", "ProRes"},
    {"SVQ1", "Sorenson Video"}, {"SVQ3", "Sorenson Video 3"}, {"cvid", "Cinepak"}, {"rle", "QuickTime RLE"},
    {"png", "PNG"},         {"dvc", "DV"},          {"dvcp", "DV"},           {"dv5p", "DV"},
};

}  // namespace

// Visual entry: 6 reserved bytes, data reference (2), 16 bytes of
// version, vendor and qualities, width (2) and height (2) at 24, then
// resolutions, frame count, compressor name and depth; children at 78.
void ReadVisualEntry(const BoxBytes& bytes, const Box& entry, SampleEntry& out) {
    std::vector<uint8_t> e;
    if (!bytes.ReadRange(entry.body, entry.end, kMaxEntryBytes, e) || e.size() < 28) return;
    out.width = BigEndian16(e.data() + 24);
    out.height = BigEndian16(e.data() + 26);
    constexpr size_t kChildrenAt = 78;
    Span config;
    if (entry.type == FourCc("mp4v") || entry.type == FourCc("encv")) {
        if (FindChild(e, kChildrenAt, e.size(), FourCc("esds"), config)) {
            ReadVisualEsds(e.data() + config.body, config.Size(), out);
        } else {
            out.codec = "MPEG-4 Visual";
        }
        return;
    }
    const std::string type = TypeText(entry.type);
    for (const VisualCodec& c : kVisualCodecs) {
        if (type == c.type) {
            out.codec = c.codec;
            break;
        }
    }
    if (out.codec.empty()) out.codec = type;  // a picture we cannot name: its entry type
    if (out.codec == "H.264" && FindChild(e, kChildrenAt, e.size(), FourCc("avcC"), config)) {
        ReadAvcConfig(e.data() + config.body, config.Size(), out);
    } else if (out.codec == "H.265" && FindChild(e, kChildrenAt, e.size(), FourCc("hvcC"), config)) {
        ReadHevcConfig(e.data() + config.body, config.Size(), out);
    }
}

}  // namespace media
}  // namespace fileinfo
