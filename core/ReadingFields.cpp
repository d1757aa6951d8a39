#include "ReadingFields.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace fileinfo {

namespace {

ReadingValue Number(uint64_t n) {
    ReadingValue v;
    v.kind = ReadingKind::kNumber;
    v.number = n;
    return v;
}

// A tag's number: 0 is no tag.
ReadingValue TagNumber(uint64_t n) {
    ReadingValue v = Number(n);
    v.present = n != 0;
    return v;
}

ReadingValue Real(double r) {
    ReadingValue v;
    v.kind = ReadingKind::kReal;
    v.real = std::isfinite(r) && r > 0 ? r : 0;
    return v;
}

ReadingValue Flag(bool f) {
    ReadingValue v;
    v.kind = ReadingKind::kFlag;
    v.flag = f;
    return v;
}

ReadingValue Text(const std::string& t) {
    ReadingValue v;
    v.text = t;
    v.present = !t.empty();
    return v;
}

}  // namespace

#define NUMBER(f, video) {#f, ReadingKind::kNumber, false, video, [](const media::Reading& r) { return Number(r.f); }}
#define TEXT(f, video) {#f, ReadingKind::kText, false, video, [](const media::Reading& r) { return Text(r.f); }}
#define FLAG(f) {#f, ReadingKind::kFlag, false, false, [](const media::Reading& r) { return Flag(r.f); }}
#define TAG_TEXT(f) {#f, ReadingKind::kText, true, false, [](const media::Reading& r) { return Text(r.tags.f); }}
#define TAG_NUMBER(f) {#f, ReadingKind::kNumber, true, false, [](const media::Reading& r) { return TagNumber(r.tags.f); }}

const ReadingField kReadingFields[kReadingFieldCount] = {
    TEXT(type, false),
    TEXT(aac_format, false),
    TEXT(audio_codec, false),
    TEXT(pcm_format, false),
    TEXT(video_codec, true),
    NUMBER(duration_ms, false),
    FLAG(duration_estimated),
    NUMBER(sample_rate, false),
    NUMBER(channels, false),
    NUMBER(bits_per_sample, false),
    NUMBER(bit_rate, false),
    NUMBER(audio_bit_rate, false),
    FLAG(vbr),
    NUMBER(width, true),
    NUMBER(height, true),
    {"frame_rate", ReadingKind::kReal, false, true, [](const media::Reading& r) { return Real(r.frame_rate); }},
    NUMBER(video_bit_rate, true),
    NUMBER(video_peak_bit_rate, true),
    TEXT(profile, true),
    NUMBER(profile_id, true),
    NUMBER(level, true),
    NUMBER(size, false),
    TAG_TEXT(title),
    TAG_TEXT(artist),
    TAG_TEXT(album),
    TAG_TEXT(genre),
    TAG_TEXT(year),
    TAG_NUMBER(track),
    TAG_NUMBER(track_total),
    TAG_TEXT(comment),
    TAG_TEXT(composer),
};

#undef NUMBER
#undef TEXT
#undef FLAG
#undef TAG_TEXT
#undef TAG_NUMBER

const ReadingField* FindReadingField(const std::string& name) {
    for (const ReadingField& f : kReadingFields)
        if (name == f.name) return &f;
    return nullptr;
}

std::string RealText(double value) {
    char text[64];
    snprintf(text, sizeof text, "%.3f", std::isfinite(value) ? value : 0.0);
    std::string s = text;
    while (s.back() == '0') s.pop_back();
    if (s.back() == '.') s.pop_back();
    return s;
}

std::string ChannelsText(uint32_t channels) {
    if (channels == 0) return std::string();
    if (channels == 1) return "mono";
    if (channels == 2) return "stereo";
    return std::to_string(channels) + " ch";
}

std::string ReadingValueText(const ReadingValue& v) {
    if (!v.present) return std::string();
    switch (v.kind) {
        case ReadingKind::kNumber: return std::to_string(v.number);
        case ReadingKind::kReal: return RealText(v.real);
        case ReadingKind::kFlag: return v.flag ? "true" : "false";
        case ReadingKind::kText: break;
    }
    return v.text;
}

}  // namespace fileinfo
