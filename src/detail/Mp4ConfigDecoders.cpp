#include "detail/Mp4ConfigDecoders.h"

#include <cstdio>
#include <cstring>

#include "Mp4Info.h"

// The codec and profile vocabulary of the sample descriptions, rows exactly
// as hosts expect them.
const char* const Mp4Info::AppleLosslessAudioFormat[1] = {"Apple Lossless"};

const unsigned char Mp4Info::MpegAudioTypes[11] = {0x66, 0x67, 0x68, 0x69, 0x6B, 0xE0,
                                                   0xE1, 0xE3, 0xE4, 0xE5, 0xE6};

const unsigned char Mp4Info::MpegVideoTypes[11] = {0x60, 0x61, 0x62, 0x63, 0x64, 0x65,
                                                   0x6A, 0x6C, 0xF0, 0xF2, 0xF3};

const char* const Mp4Info::Mpeg4VideoFormat[11] = {
    "MPEG-2 Simple", "MPEG-2 Main", "MPEG-2 SNR", "MPEG-2 Spatial", "MPEG-2 High", "MPEG-2 4:2:2",
    "MPEG-1",        "JPEG",        "YUV12",      "H.263",          "H.261"};

// Row n-1 names MPEG-4 audio object type n; types 10, 11 and 18 have no name.
const char* const Mp4Info::Mpeg4AudioFormat[27] = {
    "MPEG-4 AAC main",
    "MPEG-4 AAC LC",
    "MPEG-4 AAC SSR",
    "MPEG-4 AAC LTP",
    "MPEG-4 AAC HE",
    "MPEG-4 AAC Scalable",
    "MPEG-4 TwinVQ",
    "MPEG-4 CELP",
    "MPEG-4 HVXC",
    "",
    "",
    "MPEG-4 TTSI",
    "MPEG-4 Main Synthetic",
    "MPEG-4 Wavetable Syn",
    "MPEG-4 General MIDI",
    "MPEG-4 Algo Syn and Audio FX",
    "MPEG-4 ER AAC LC",
    "",
    "MPEG-4 ER AAC LTP",
    "MPEG-4 ER AAC Scalable",
    "MPEG-4 ER TwinVQ",
    "MPEG-4 ER BSAC",
    "MPEG-4 ER ACC LD",
    "MPEG-4 ER CELP",
    "MPEG-4 ER HVXC",
    "MPEG-4 ER HILN",
    "MPEG-4 ER Parametric",
};

// In the order of their bytes. The double blanks, the "@L" without blank and
// "Efficieny" are the names hosts match on.
const Mp4Info::VideoProfile Mp4Info::VideoProfileName[58] = {
    {0x01, "MPEG-4 Simple @ L1"},
    {0x02, "MPEG-4 Simple @ L2"},
    {0x03, "MPEG-4 Simple @ L3"},
    {0x08, "MPEG-4 Simple @ L0"},
    {0x11, "MPEG-4 Simple Scalable @ L1"},
    {0x12, "MPEG-4 Simple Scalable @ L2"},
    {0x21, "MPEG-4 Core @ L1"},
    {0x22, "MPEG-4 Core @ L2"},
    {0x32, "MPEG-4 Main @ L2"},
    {0x33, "MPEG-4 Main @ L3"},
    {0x34, "MPEG-4 Main @ L4"},
    {0x42, "MPEG-4 N-bit @ L2"},
    {0x51, "MPEG-4  Scalable Texture @ L1"},
    {0x61, "MPEG-4 Simple Face Anim @ L1"},
    {0x62, "MPEG-4  Simple Face Anim @ L2"},
    {0x63, "MPEG-4  Simple FBA @ L1"},
    {0x64, "MPEG-4 Simple FBA @ L2"},
    {0x71, "MPEG-4 Basic Anim Text @ L1"},
    {0x72, "MPEG-4 Basic Anim Text @ L2"},
    {0x81, "MPEG-4 Hybrid @ L1"},
    {0x82, "MPEG-4 Hybrid @ L2"},
    {0x91, "MPEG-4 Adv RT Simple @ L1"},
    {0x92, "MPEG-4 Adv RT Simple @ L2"},
    {0x93, "MPEG-4 Adv RT Simple @ L3"},
    {0x94, "MPEG-4 Adv RT Simple @ L4"},
    {0xA1, "MPEG-4 Core Scalable @ L1"},
    {0xA2, "MPEG-4 Core Scalable @ L2"},
    {0xA3, "MPEG-4 Core Scalable @ L3"},
    {0xB1, "MPEG-4 Adv Coding Efficieny @ L1"},
    {0xB2, "MPEG-4 Adv Coding Efficieny @ L2"},
    {0xB3, "MPEG-4 Adv Coding Efficieny @ L3"},
    {0xB4, "MPEG-4 Adv Coding Efficieny @ L4"},
    {0xC1, "MPEG-4 Adv Core Profile @ L1"},
    {0xC2, "MPEG-4 Adv Core Profile @ L2"},
    {0xD1, "MPEG-4 Adv Scalable Texture @ L1"},
    {0xD2, "MPEG-4 Adv Scalable Texture @ L2"},
    {0xD3, "MPEG-4 Adv Scalable Texture @ L3"},
    {0xE1, "MPEG-4 Simple Studio @ L1"},
    {0xE2, "MPEG-4 Simple Studio @ L2"},
    {0xE3, "MPEG-4 Simple Studio @ L3"},
    {0xE4, "MPEG-4 Simple Studio @ L4"},
    {0xE5, "MPEG-4 Core Studio @ L1"},
    {0xE6, "MPEG-4 Core Studio @ L2"},
    {0xE7, "MPEG-4 Core Studio @ L3"},
    {0xE8, "MPEG-4 Core Studio @ L4"},
    {0xF0, "MPEG-4 Adv Simple@L0"},
    {0xF1, "MPEG-4 Adv Simple@L1"},
    {0xF2, "MPEG-4 Adv Simple@L2"},
    {0xF3, "MPEG-4 Adv Simple@L3"},
    {0xF4, "MPEG-4 Adv Simple@L4"},
    {0xF5, "MPEG-4 Adv Simple@L5"},
    {0xF7, "MPEG-4 Adv Simple@L3b"},
    {0xF8, "MPEG-4 FGS @ L0"},
    {0xF9, "MPEG-4 FGS @ L1"},
    {0xFA, "MPEG-4 FGS @ L2"},
    {0xFB, "MPEG-4 FGS @ L3"},
    {0xFC, "MPEG-4 FGS @ L4"},
    {0xFD, "MPEG-4 FGS @ L5"},
};

namespace fileinfo_detail {

namespace {

// objectTypeIndication values.
constexpr unsigned char kObjectTypeMovAac = 0x00;
constexpr unsigned char kObjectTypeMpeg4Audio = 0x40;
constexpr unsigned char kObjectTypeMpeg4Visual = 0x20;
// Decoder-specific length: after tag 0x05 with a one-byte length, or with
// three 0x80 continuation bytes.
constexpr unsigned int kDsiLengthShort = 14;
constexpr unsigned int kDsiLengthLong = 17;
constexpr unsigned int kMinAudioConfigLength = 2;
constexpr unsigned int kAudioObjectTypeShift = 3;
constexpr unsigned int kLastNamedAudioObjectType = 27;
// MPEG-4 visual: decoder info after the objectTypeIndication, and the
// visual object sequence start code whose next byte is the profile.
constexpr unsigned int kVisualDecoderInfoOffset = 14;
constexpr unsigned int kVisualObjectSequenceStart = 0x000001B0u;
constexpr unsigned int kStartCodeSize = 4;

// AVC decoder configuration record.
constexpr unsigned int kAvcProfileByte = 1;
constexpr unsigned int kAvcCompatibilityByte = 2;
constexpr unsigned int kAvcLevelByte = 3;
constexpr unsigned int kAvcFirstSpsByte = 8;
constexpr unsigned char kConstrainedCompatibility = 0xE0;
constexpr unsigned char kSpsNalHeader = 0x67;
// ALAC configuration: the byte taken as the sample size.
constexpr unsigned int kAlacBitDepthByte = 4;


using Base = MediaFileInfoBase;

// Whether an audio object type has a name in Mpeg4AudioFormat. 8 is
// refused although the table names it.
bool IsNamedAudioObjectType(unsigned int aot) {
    return !(aot == 0 || aot == 8 || aot == 10 || aot == 11 || aot > kLastNamedAudioObjectType);
}

const char* AvcProfileName(unsigned char profile) {
    switch (profile) {
        case 66: return "Baseline";
        case 77: return "Main";
        case 88: return "Extended";
        case 100: return "High";
        case 110: return "High 10";
        case 122: return "High 4:2:2";
        case 144: return "High 4:4:4";
        default: return "";
    }
}

void FormatAvcLevel(unsigned int level, char* text, size_t size) {
    switch (level) {
        case 10: case 20: case 30: case 40: case 50:
            snprintf(text, size, "%u", level / 10);
            break;
        case 11: case 12: case 13: case 21: case 22: case 31: case 32: case 41: case 42: case 51:
            snprintf(text, size, "%u.%u", level / 10, level % 10);
            break;
        default:
            snprintf(text, size, "unknown");
            break;
    }
}

}  // namespace

void DecodeEsdsAudio(ByteView objectType, bool longLength, MediaFileInfo_st& record) {
    const unsigned char type = objectType[0];
    const char* name = nullptr;
    if (type == kObjectTypeMovAac) {
        name = "AAC from .mov";
    } else if (type == kObjectTypeMpeg4Audio) {
        const unsigned int k = longLength ? kDsiLengthLong : kDsiLengthShort;
        if (objectType[k] < kMinAudioConfigLength) {
            name = "MPEG-4 (no GAConfig)";
        } else {
            const unsigned int aot = objectType[k + 1] >> kAudioObjectTypeShift;
            name = IsNamedAudioObjectType(aot) ? Mp4Info::Mpeg4AudioFormat[aot - 1] : "MPEG-4 Unknown Profile";
        }
    } else {
        // The MPEG-4 names by the position in the other list, as hosts know them.
        for (size_t i = 0; i < sizeof Mp4Info::MpegAudioTypes; ++i) {
            if (Mp4Info::MpegAudioTypes[i] == type) name = Mp4Info::Mpeg4AudioFormat[i];
        }
    }
    // An unnamed row leaves the field as it is.
    if (name != nullptr && name[0] != '\0') Base::CopyField(record.audioFormat, name);
}

void DecodeEsdsVideo(ByteView objectType, int iodsProfile, MediaFileInfo_st& record) {
    if (objectType[0] != kObjectTypeMpeg4Visual) {
        for (size_t i = 0; i < sizeof Mp4Info::MpegVideoTypes; ++i) {
            if (Mp4Info::MpegVideoTypes[i] == objectType[0]) {
                Base::CopyField(record.videoFormat, Mp4Info::Mpeg4VideoFormat[i]);
            }
        }
        return;
    }
    const unsigned char profileLevel = iodsProfile >= 0 ? static_cast<unsigned char>(iodsProfile)
                                                        : FindVisualProfileLevel(objectType.From(kVisualDecoderInfoOffset));
    const char* name = VisualProfileName(profileLevel);
    if (name == nullptr) {
        Base::CopyField(record.videoFormat, "MPEG-4 Unknown Profile");
        return;
    }
    Base::CopyField(record.videoFormat, name);
    const size_t length = strlen(name);
    if (length >= 3 && name[length - 2] == 'L') {
        const char last = name[length - 1];
        record.profileLevelId = static_cast<unsigned short>(last >= '0' && last <= '9' ? last - '0' : 0);
    }
}

unsigned char FindVisualProfileLevel(ByteView decoderInfo) {
    const unsigned int n = decoderInfo[0];
    for (unsigned int i = 0; i < n; ++i) {
        // The start code and the byte after it must lie in the view.
        if (1 + i + kStartCodeSize + 1 > decoderInfo.size) break;
        unsigned char* code = const_cast<unsigned char*>(decoderInfo.data + 1 + i);
        if (Base::ReadWord(code) == kVisualObjectSequenceStart) return decoderInfo[1 + i + kStartCodeSize];
    }
    return 0;
}

const char* VisualProfileName(unsigned char profileLevel) {
    const char* name = nullptr;
    for (const Mp4Info::VideoProfile& row : Mp4Info::VideoProfileName) {
        if (row.profileLevel == profileLevel) name = row.name;
    }
    return name;
}

void DecodeAvcConfig(ByteView c, MediaFileInfo_st& record) {
    const char* profile = AvcProfileName(c[kAvcProfileByte]);
    record.profile = c[kAvcProfileByte];
    const unsigned int level = c[kAvcLevelByte];
    char levelText[16];
    FormatAvcLevel(level, levelText, sizeof levelText);
    if (c[kAvcCompatibilityByte] == kConstrainedCompatibility || c[kAvcFirstSpsByte] == kSpsNalHeader) {
        Base::CopyField(record.fileType, H264LCFileType[0]);
    }
    record.level = static_cast<unsigned short>(level);
    char format[MEDIA_TEXT_SIZE];
    snprintf(format, sizeof format, "H264 %s@L%s", profile, levelText);
    Base::CopyField(record.videoFormat, format);
}

void DecodeAlacConfig(ByteView config, MediaFileInfo_st& record) {
    Base::CopyField(record.audioFormat, Mp4Info::AppleLosslessAudioFormat[0]);
    record.bitsPerSample = config[kAlacBitDepthByte];
}

}  // namespace fileinfo_detail
