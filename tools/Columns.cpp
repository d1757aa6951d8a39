#include "Columns.h"

#include <algorithm>
#include <cstring>

#include "ReadingFields.h"
#include "RecordDiffers.h"
#include "RecordFields.h"
#include "Text.h"

namespace fileinfo {

namespace {

// The facts around the record and the reading.
const char* const kResultColumns[] = {"path",     "status",     "is_audio",         "is_video",
                                      "has_tags", "identified", "playable",         "refused_by",
                                      "library_playable", "library_refused_by", "record_differs"};

constexpr char kRecordPrefix[] = "record.";
constexpr char kMediaPrefix[] = "media.";

Value Number(unsigned long n) {
    Value v;
    v.kind = ValueKind::kNumber;
    v.number = n;
    return v;
}

Value Flag(bool f) {
    Value v;
    v.kind = ValueKind::kFlag;
    v.flag = f;
    return v;
}

Value Text(std::string t) {
    Value v;
    v.text = std::move(t);
    return v;
}

Value Absent(ValueKind kind) {
    Value v;
    v.kind = kind;
    v.present = false;
    return v;
}

bool StartsWith(const std::string& text, const char* prefix) { return text.compare(0, strlen(prefix), prefix) == 0; }

const NumberField* FindNumberField(const std::string& name) {
    for (const NumberField& f : kNumberFields)
        if (name == f.name) return &f;
    return nullptr;
}

const TextField* FindTextField(const std::string& name) {
    for (const TextField& f : kTextFields)
        if (name == f.name) return &f;
    return nullptr;
}

bool IsRecordField(const std::string& name) { return FindNumberField(name) || FindTextField(name); }

Value RecordValue(const std::string& name, const ScanItem& item) {
    if (const NumberField* f = FindNumberField(name)) {
        return item.hasRecord ? Number(f->get(item.record)) : Absent(ValueKind::kNumber);
    }
    const TextField* f = FindTextField(name);
    return item.hasRecord ? Text(Latin1ToUtf8(f->get(item.record), MEDIA_TEXT_SIZE)) : Absent(ValueKind::kText);
}

Value MediaValue(const ReadingField& field, const ScanItem& item) {
    const ReadingValue r = field.get(item.reading);
    Value v;
    switch (r.kind) {
        case ReadingKind::kNumber: v = Number(r.number); break;
        case ReadingKind::kReal:
            v.kind = ValueKind::kReal;
            v.real = r.real;
            break;
        case ReadingKind::kFlag: v = Flag(r.flag); break;
        case ReadingKind::kText: v = Text(r.text); break;
    }
    // A file that could not be read has no reading at all.
    v.present = r.present && item.readingError == 0;
    return v;
}

std::vector<std::string> DifferingFields(const ScanItem& item) {
    std::vector<std::string> names;
    for (const RecordDifference& d : RecordDiffers(item)) names.push_back(d.field);
    return names;
}

}  // namespace

std::string CommaJoined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& n : names) text += (text.empty() ? "" : ",") + n;
    return text;
}

const std::vector<std::string>& ColumnNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all(std::begin(kResultColumns), std::end(kResultColumns));
        for (const ReadingField& f : kReadingFields) all.push_back(f.name);
        for (const NumberField& f : kNumberFields) all.push_back(f.name);
        for (const TextField& f : kTextFields) all.push_back(f.name);
        // A record field that shares its name with a reading's is listed once.
        std::vector<std::string> unique;
        for (const std::string& n : all)
            if (std::find(unique.begin(), unique.end(), n) == unique.end()) unique.push_back(n);
        return unique;
    }();
    return names;
}

std::string ColumnHelp() {
    std::string text;
    for (const char* c : kResultColumns) text += (text.empty() ? "" : ", ") + std::string(c);
    text += "; the reading's ";
    for (size_t k = 0; k < kReadingFieldCount; ++k) text += (k == 0 ? "" : ", ") + std::string(kReadingFields[k].name);
    text += "; the record's ";
    bool first = true;
    for (const NumberField& f : kNumberFields) {
        text += (first ? "" : ", ") + std::string(f.name);
        first = false;
    }
    for (const TextField& f : kTextFields) text += ", " + std::string(f.name);
    return text + " (record.title and so on where a name is the reading's too)";
}

bool IsColumn(const std::string& name) {
    if (StartsWith(name, kRecordPrefix)) return IsRecordField(name.substr(strlen(kRecordPrefix)));
    if (StartsWith(name, kMediaPrefix)) return FindReadingField(name.substr(strlen(kMediaPrefix))) != nullptr;
    const std::vector<std::string>& names = ColumnNames();
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool ParseColumns(const std::string& list, std::vector<std::string>& columns, std::string& unknown) {
    size_t start = 0;
    for (;;) {
        const size_t comma = list.find(',', start);
        const std::string name = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (!IsColumn(name)) {
            unknown = name;
            return false;
        }
        columns.push_back(name);
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

std::vector<std::string> DefaultColumns(bool device, bool record) {
    std::vector<std::string> columns;
    if (record) {
        columns = {"path",        "status",      "identified", "fileType", "audioCodec", "audioFormat",
                   "videoFormat", "durationMs",  "bitRate",    "sampleRate", "channelMode", "width",
                   "height",      "title",       "artist"};
    } else {
        columns = {"path",     "status", "identified", "type",   "audio_codec", "video_codec",
                   "duration_ms", "bit_rate", "sample_rate", "channels", "bits_per_sample", "width",
                   "height",   "title",  "artist",     "album",  "record_differs"};
    }
    if (device) {
        columns.push_back("playable");
        columns.push_back("refused_by");
    }
    return columns;
}

Value ColumnValue(const std::string& column, const FileView& file, bool record) {
    const ScanItem& item = file.item;
    if (column == "path") return Text(item.path);
    if (column == "status") return Number(static_cast<unsigned long>(item.status));
    if (column == "is_audio") return Flag(item.isAudio);
    if (column == "is_video") return Flag(item.isVideo);
    if (column == "has_tags") return Flag(item.hasTags);
    if (column == "identified") return Flag(item.Identified());
    if (column == "library_playable" || (record && column == "playable")) {
        return file.verdict ? Flag(file.verdict->playable) : Absent(ValueKind::kFlag);
    }
    if (column == "library_refused_by" || (record && column == "refused_by")) {
        return file.verdict && !file.verdict->refusedBy.empty() ? Text(file.verdict->refusedBy)
                                                                : Absent(ValueKind::kText);
    }
    if (column == "playable") return file.readingVerdict ? Flag(file.readingVerdict->playable) : Absent(ValueKind::kFlag);
    if (column == "refused_by") {
        return file.readingVerdict && !file.readingVerdict->refusedBy.empty()
                   ? Text(CommaJoined(file.readingVerdict->refusedBy))
                   : Absent(ValueKind::kText);
    }
    if (column == "record_differs") {
        return RecordComparable(item) ? Text(CommaJoined(DifferingFields(item))) : Absent(ValueKind::kText);
    }
    if (StartsWith(column, kRecordPrefix)) return RecordValue(column.substr(strlen(kRecordPrefix)), item);
    if (StartsWith(column, kMediaPrefix)) {
        const ReadingField* f = FindReadingField(column.substr(strlen(kMediaPrefix)));
        return f ? MediaValue(*f, item) : Absent(ValueKind::kText);
    }
    const ReadingField* media = FindReadingField(column);
    if (IsRecordField(column) && (record || media == nullptr)) return RecordValue(column, item);
    if (media != nullptr) return MediaValue(*media, item);
    return Absent(ValueKind::kText);
}

bool IsVideoField(const std::string& name) {
    static const char* const kVideo[] = {"level",     "profile",   "profileLevelId", "height",
                                         "width",     "frameRate", "peakBitRate",    "videoFormat"};
    return std::any_of(std::begin(kVideo), std::end(kVideo), [&](const char* v) { return name == v; });
}

}  // namespace fileinfo
