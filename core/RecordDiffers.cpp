#include "RecordDiffers.h"

#include <algorithm>
#include <cstring>

#include "Text.h"

namespace fileinfo {

namespace {

DiffValue Number(uint64_t n) {
    DiffValue v;
    v.isNumber = true;
    v.number = n;
    return v;
}

DiffValue Text(const std::string& t) {
    DiffValue v;
    v.text = t;
    v.null = t.empty();
    return v;
}

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Texts: trimmed, an absent tag being empty.
bool CompareText(const char* recordText, const std::string& readingText, RecordDifference& out) {
    out.record = Text(Latin1ToUtf8(recordText, MEDIA_TEXT_SIZE));
    out.record.null = false;  // the record always holds a text, if an empty one
    out.reading = Text(readingText);
    return Trimmed(out.record.text) != Trimmed(out.reading.text);
}

// Numbers: never when the reading does not know its own; otherwise apart
// by more than `percent` of the reading and more than `least`.
bool CompareNumber(uint64_t recordNumber, uint64_t readingNumber, uint64_t percent, uint64_t least,
                   RecordDifference& out) {
    out.record = Number(recordNumber);
    out.reading = Number(readingNumber);
    if (readingNumber == 0) return false;
    const uint64_t apart = recordNumber > readingNumber ? recordNumber - readingNumber : readingNumber - recordNumber;
    // readingNumber / 100 * percent keeps clear of overflow for 64-bit sizes.
    const uint64_t tolerance = std::max(least, readingNumber / 100 * percent + readingNumber % 100 * percent / 100);
    return apart > tolerance;
}

// The channel count a person reads in the record's channel mode.
uint64_t RecordChannels(const char* mode) {
    const std::string text = Latin1ToUtf8(mode, MEDIA_TEXT_SIZE);
    if (text == "Mono") return 1;
    if (text == "Stereo" || text == "Stero") return 2;
    return 0;
}

}  // namespace

std::string DiffValue::Shown() const {
    if (null) return "none";
    return isNumber ? std::to_string(number) : text;
}

const RecordDiffRule kRecordDiffRules[kRecordDiffRuleCount] = {
    {"title", "title", "title",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareText(r.title, m.tags.title, out);
     }},
    {"artist", "artist", "artist",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareText(r.artist, m.tags.artist, out);
     }},
    {"album", "album", "album",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareText(r.album, m.tags.album, out);
     }},
    {"durationMs", "duration_ms", "duration",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareNumber(r.durationMs, m.duration_ms, 1, 50, out);
     }},
    {"sampleRate", "sample_rate", "sample rate",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareNumber(r.sampleRate, m.sample_rate, 0, 0, out);
     }},
    {"bitRate", "bit_rate", "bit rate",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareNumber(r.bitRate, m.bit_rate, 1, 1000, out);
     }},
    {"channelMode", "channels", "channels",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         out.record = Text(Latin1ToUtf8(r.channelMode, MEDIA_TEXT_SIZE));
         out.record.null = false;
         out.reading = Number(m.channels);
         return m.channels != 0 && RecordChannels(r.channelMode) != m.channels;
     }},
    {"bitsPerSample", "bits_per_sample", "bit depth",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareNumber(r.bitsPerSample, m.bits_per_sample, 0, 0, out);
     }},
    {"fileSize", "size", "size",
     [](const MediaFileInfo_st& r, const media::Reading& m, RecordDifference& out) {
         return CompareNumber(r.fileSize, m.size, 0, 0, out);
     }},
};

bool RecordComparable(const ScanItem& item) {
    return item.outcome == Outcome::kLoaded && item.status == MFI_OK && item.hasRecord && item.readingError == 0 &&
           item.reading.Identified();
}

std::vector<RecordDifference> RecordDiffers(const ScanItem& item) {
    std::vector<RecordDifference> differences;
    if (!RecordComparable(item)) return differences;
    for (const RecordDiffRule& rule : kRecordDiffRules) {
        RecordDifference d{rule.field, rule.readingField, {}, {}};
        if (rule.compare(item.record, item.reading, d)) differences.push_back(std::move(d));
    }
    return differences;
}

std::string RecordDiffLabel(const std::string& field) {
    for (const RecordDiffRule& rule : kRecordDiffRules)
        if (field == rule.field) return rule.label;
    return field;
}

}  // namespace fileinfo
