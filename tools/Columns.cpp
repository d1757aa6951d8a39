#include "Columns.h"

#include <algorithm>
#include <cstring>

#include "RecordFields.h"
#include "Text.h"

namespace fileinfo {

namespace {

// The facts around the record, before the record's own fields.
const char* const kResultColumns[] = {"path",     "status",     "is_audio", "is_video", "has_tags",
                                      "identified", "playable", "refused_by"};

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

}  // namespace

const std::vector<std::string>& ColumnNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> all(std::begin(kResultColumns), std::end(kResultColumns));
        for (const NumberField& f : kNumberFields) all.push_back(f.name);
        for (const TextField& f : kTextFields) all.push_back(f.name);
        return all;
    }();
    return names;
}

bool IsColumn(const std::string& name) {
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

std::vector<std::string> DefaultColumns(bool device) {
    std::vector<std::string> columns = {"path",       "status",      "identified", "fileType", "audioCodec",
                                        "audioFormat", "videoFormat", "durationMs", "bitRate",  "sampleRate",
                                        "channelMode", "width",       "height",     "title",    "artist"};
    if (device) {
        columns.push_back("playable");
        columns.push_back("refused_by");
    }
    return columns;
}

Value ColumnValue(const std::string& column, const FileView& file) {
    const ScanItem& item = file.item;
    if (column == "path") return Text(item.path);
    if (column == "status") return Number(static_cast<unsigned long>(item.status));
    if (column == "is_audio") return Flag(item.isAudio);
    if (column == "is_video") return Flag(item.isVideo);
    if (column == "has_tags") return Flag(item.hasTags);
    if (column == "identified") return Flag(item.Identified());
    if (column == "playable") return file.verdict ? Flag(file.verdict->playable) : Absent(ValueKind::kFlag);
    if (column == "refused_by") {
        return file.verdict && !file.verdict->refusedBy.empty() ? Text(file.verdict->refusedBy)
                                                                : Absent(ValueKind::kText);
    }
    for (const NumberField& f : kNumberFields) {
        if (column == f.name) return item.hasRecord ? Number(f.get(item.record)) : Absent(ValueKind::kNumber);
    }
    for (const TextField& f : kTextFields) {
        if (column == f.name) {
            return item.hasRecord ? Text(Latin1ToUtf8(f.get(item.record), MEDIA_TEXT_SIZE)) : Absent(ValueKind::kText);
        }
    }
    return Absent(ValueKind::kText);
}

bool IsVideoField(const std::string& name) {
    static const char* const kVideo[] = {"level",     "profile",   "profileLevelId", "height",
                                         "width",     "frameRate", "peakBitRate",    "videoFormat"};
    return std::any_of(std::begin(kVideo), std::end(kVideo), [&](const char* v) { return name == v; });
}

}  // namespace fileinfo
