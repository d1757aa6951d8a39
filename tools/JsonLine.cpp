#include "JsonLine.h"

#include <cassert>
#include <cstring>
#include <iterator>

#include "JsonText.h"
#include "ReadingFields.h"
#include "RecordDiffers.h"
#include "RecordFields.h"

namespace fileinfo {

namespace {

// The record's keys with their punctuation, made once: ,"name": and for the
// first number {"name": instead.
struct RecordKeys {
    std::string numbers[kNumberFieldCount];
    std::string texts[kTextFieldCount];
    size_t length = 0;  // all of them together

    RecordKeys() {
        for (size_t k = 0; k < kNumberFieldCount; ++k) numbers[k] = Key(k == 0 ? '{' : ',', kNumberFields[k].name);
        for (size_t k = 0; k < kTextFieldCount; ++k) texts[k] = Key(',', kTextFields[k].name);
    }
    std::string Key(char before, const char* name) {
        std::string key(1 + JsonStringBound(strlen(name)) + 1, '\0');
        char* end = PutJsonString(&key[1], name);
        key[0] = before;
        *end++ = ':';
        key.resize(static_cast<size_t>(end - key.data()));
        length += key.size();
        return key;
    }
};

const RecordKeys& TheRecordKeys() {
    static const RecordKeys keys;
    return keys;
}

char* PutRecordJson(char* out, const MediaFileInfo_st& r) {
    const RecordKeys& keys = TheRecordKeys();
    for (size_t k = 0; k < kNumberFieldCount; ++k) {
        out = PutBytes(out, keys.numbers[k]);
        out = PutUnsigned(out, kNumberFields[k].get(r));
    }
    for (size_t k = 0; k < kTextFieldCount; ++k) {
        out = PutBytes(out, keys.texts[k]);
        *out++ = '"';
        out = PutLatin1Escaped(out, kTextFields[k].get(r), MEDIA_TEXT_SIZE);
        *out++ = '"';
    }
    *out++ = '}';
    return out;
}

// The most bytes PutRecordJson writes.
size_t RecordJsonBound() {
    return TheRecordKeys().length + kNumberFieldCount * kLongestNumber +
           kTextFieldCount * (2 + kLongestEscape * MEDIA_TEXT_SIZE) + 1;
}

// Room for the keys, punctuation and values of a line besides the record,
// the path, the verdict's two texts and the warnings: under 200 bytes, the
// longest status text (30 characters, none escaped) included.
constexpr size_t kLineFrameBound = 512;

char* PutWarnings(char* out, const std::vector<std::string>& warnings) {
    out = PutLiteral(out, ",\"warnings\":[");
    for (size_t k = 0; k < warnings.size(); ++k) {
        if (k != 0) *out++ = ',';
        out = PutJsonString(out, warnings[k]);
    }
    *out++ = ']';
    return out;
}

void AppendReadingValue(std::string& out, const ReadingValue& v) {
    if (!v.present) {
        out += "null";
    } else if (v.kind == ReadingKind::kText) {
        AppendJsonString(out, v.text);
    } else {
        out += ReadingValueText(v);
    }
}

// "media":{...} with the tags under "tags".
void AppendMedia(std::string& out, const ScanItem& item) {
    if (item.readingError != 0) {
        out += ",\"media\":null,\"reading_error\":";
        AppendJsonString(out, std::strerror(item.readingError));
        return;
    }
    out += ",\"media\":{";
    bool first = true;
    for (const ReadingField& f : kReadingFields) {
        if (f.tag) continue;
        if (!first) out += ',';
        first = false;
        AppendJsonString(out, f.name);
        out += ':';
        AppendReadingValue(out, f.get(item.reading));
    }
    out += ",\"tags\":{";
    first = true;
    for (const ReadingField& f : kReadingFields) {
        if (!f.tag) continue;
        if (!first) out += ',';
        first = false;
        AppendJsonString(out, f.name);
        out += ':';
        AppendReadingValue(out, f.get(item.reading));
    }
    out += "}}";
}

void AppendDiffValue(std::string& out, const DiffValue& v) {
    if (v.null) {
        out += "null";
    } else if (v.isNumber) {
        out += std::to_string(v.number);
    } else {
        AppendJsonString(out, v.text);
    }
}

void AppendRecordDiffers(std::string& out, const ScanItem& item) {
    out += ",\"record_differs\":";
    if (!RecordComparable(item)) {
        out += "null";
        return;
    }
    out += '[';
    bool first = true;
    for (const RecordDifference& d : RecordDiffers(item)) {
        if (!first) out += ',';
        first = false;
        out += "{\"field\":";
        AppendJsonString(out, d.field);
        out += ",\"record\":";
        AppendDiffValue(out, d.record);
        out += ",\"reading\":";
        AppendDiffValue(out, d.reading);
        out += '}';
    }
    out += ']';
}

void AppendTextOrNull(std::string& out, const std::string& text) {
    if (text.empty()) {
        out += "null";
    } else {
        AppendJsonString(out, text);
    }
}

// The reading's keys after the record: media, record_differs, and with a
// device the top-level verdict (the reading's), "verdict" and
// "library_verdict".
void AppendReadingKeys(std::string& out, const FileView& file, bool explain) {
    out.clear();
    AppendMedia(out, file.item);
    AppendRecordDiffers(out, file.item);
    const ReadingVerdict* v = file.readingVerdict;
    if (v == nullptr) return;
    out += ",\"playable\":";
    out += v->playable ? "true" : "false";
    if (explain) {
        out += ",\"refused_by\":";
        AppendTextOrNull(out, v->refusedBy.empty() ? std::string() : v->refusedBy.front());
        out += ",\"explanation\":";
        AppendTextOrNull(out, v->explanation);
    }
    out += ",\"verdict\":{\"playable\":";
    out += v->playable ? "true" : "false";
    out += ",\"refused_by\":[";
    for (size_t k = 0; k < v->refusedBy.size(); ++k) {
        if (k != 0) out += ',';
        AppendJsonString(out, v->refusedBy[k]);
    }
    out += "],\"explanation\":";
    AppendTextOrNull(out, v->explanation);
    out += '}';
    if (file.verdict != nullptr) {
        out += ",\"library_verdict\":{\"playable\":";
        out += file.verdict->playable ? "true" : "false";
        out += ",\"refused_by\":";
        AppendTextOrNull(out, file.verdict->refusedBy);
        out += '}';
    }
}

// Writes the JSON line of one load, line end included, and returns its end.
// `tail`: the reading's keys, or null for the record's line alone.
char* PutJsonLine(char* out, const FileView& file, bool explain, const std::vector<std::string>& warnings,
                  const std::string* tail) {
    const ScanItem& item = file.item;
    out = PutLiteral(out, "{\"path\":");
    out = PutJsonString(out, item.path);
    if (!IsUtf8(item.path)) {
        // "path" had its invalid parts replaced; these are the exact bytes.
        out = PutLiteral(out, ",\"path_bytes\":\"");
        out = PutBytes(out, Hex(item.path));
        *out++ = '"';
    }
    out = PutLiteral(out, ",\"status\":");
    out = PutInt(out, item.status);
    out = PutLiteral(out, ",\"status_text\":");
    out = PutJsonString(out, MediaFileStatusText(item.status));
    out = PutLiteral(out, ",\"is_audio\":");
    out = PutBool(out, item.isAudio);
    out = PutLiteral(out, ",\"is_video\":");
    out = PutBool(out, item.isVideo);
    out = PutLiteral(out, ",\"has_tags\":");
    out = PutBool(out, item.hasTags);
    out = PutLiteral(out, ",\"identified\":");
    out = PutBool(out, item.Identified());
    out = PutLiteral(out, ",\"record\":");
    out = item.hasRecord ? PutRecordJson(out, item.record) : PutLiteral(out, "null");
    if (tail != nullptr) {
        out = PutBytes(out, *tail);
    } else if (file.verdict != nullptr) {
        out = PutLiteral(out, ",\"playable\":");
        out = PutBool(out, file.verdict->playable);
        if (explain) {
            out = PutLiteral(out, ",\"refused_by\":");
            out = PutJsonTextOrNull(out, file.verdict->refusedBy);
            out = PutLiteral(out, ",\"explanation\":");
            out = PutJsonTextOrNull(out, file.verdict->explanation);
        }
    }
    if (!warnings.empty()) out = PutWarnings(out, warnings);
    return PutLiteral(out, "}\n");
}

size_t JsonLineBound(const FileView& file, const std::vector<std::string>& warnings, const std::string* tail) {
    size_t bound = kLineFrameBound + JsonStringBound(file.item.path.size()) + 2 * file.item.path.size() +
                   RecordJsonBound() + (tail != nullptr ? tail->size() : 0);
    if (file.verdict != nullptr) {
        bound += JsonStringBound(file.verdict->refusedBy.size()) + JsonStringBound(file.verdict->explanation.size());
    }
    for (const std::string& w : warnings) bound += 1 + JsonStringBound(w.size());
    return bound;
}

void AppendValue(std::string& out, const Value& v) {
    if (!v.present) {
        out += "null";
    } else if (v.kind == ValueKind::kNumber) {
        out += std::to_string(v.number);
    } else if (v.kind == ValueKind::kFlag) {
        out += v.flag ? "true" : "false";
    } else if (v.kind == ValueKind::kReal) {
        out += RealText(v.real);
    } else {
        AppendJsonString(out, v.text);
    }
}

}  // namespace

void JsonLineWriter::Write(std::ostream& out, const FileView& file, bool explain, bool record) {
    const std::vector<std::string> warnings = Warnings(file.item);
    const std::string* tail = nullptr;
    if (!record) {
        AppendReadingKeys(tail_, file, explain);
        tail = &tail_;
    }
    const size_t bound = JsonLineBound(file, warnings, tail);
    if (line_.size() < bound) line_.resize(std::max(bound, 2 * line_.size()));
    const char* end = PutJsonLine(&line_[0], file, explain, warnings, tail);
    assert(static_cast<size_t>(end - line_.data()) <= bound);
    out.write(line_.data(), end - line_.data());
}

void JsonLineWriter::WriteColumns(std::ostream& out, const FileView& file, const std::vector<std::string>& columns,
                                  bool record) {
    line_.clear();
    line_ += '{';
    for (size_t k = 0; k < columns.size(); ++k) {
        if (k != 0) line_ += ',';
        AppendJsonString(line_, columns[k]);
        line_ += ':';
        AppendValue(line_, ColumnValue(columns[k], file, record));
        if (columns[k] == "path" && !IsUtf8(file.item.path)) line_ += ",\"path_bytes\":\"" + Hex(file.item.path) + "\"";
    }
    const std::vector<std::string> warnings = Warnings(file.item);
    if (!warnings.empty()) {
        line_ += ",\"warnings\":[";
        for (size_t k = 0; k < warnings.size(); ++k) {
            if (k != 0) line_ += ',';
            AppendJsonString(line_, warnings[k]);
        }
        line_ += ']';
    }
    line_ += "}\n";
    out.write(line_.data(), static_cast<std::streamsize>(line_.size()));
}

}  // namespace fileinfo
