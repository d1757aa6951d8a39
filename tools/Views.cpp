#include "Views.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "JsonLine.h"
#include "RecordFields.h"
#include "Text.h"

namespace fileinfo {

namespace {

std::string Kbits(unsigned long bitsPerSecond) {
    char text[48];
    snprintf(text, sizeof text, "%.1f kbit/s", bitsPerSecond / 1000.0);
    return text;
}

std::string MinutesSeconds(unsigned long ms) {
    char text[48];
    snprintf(text, sizeof text, "%lu:%02lu.%03lu", ms / 60000, (ms / 1000) % 60, ms % 1000);
    return text;
}

// A value as text in its machine form: decimal numbers, true/false, empty
// for no value.
std::string MachineText(const Value& v) {
    if (!v.present) return std::string();
    if (v.kind == ValueKind::kNumber) return std::to_string(v.number);
    if (v.kind == ValueKind::kFlag) return v.flag ? "true" : "false";
    return v.text;
}

// ---- list: today's labelled listing --------------------------------------

void WriteStatusLine(std::ostream& out, const ScanItem& item) {
    out << "  status: " << item.status << " (" << MediaFileStatusText(item.status);
    // The library calls a load it could not place a success; say so.
    if (item.status == MFI_OK && !item.Identified()) out << ", but no reader identified the file";
    out << ")\n";
}

bool Chosen(const std::vector<std::string>& columns, const char* name) {
    return columns.empty() || std::find(columns.begin(), columns.end(), name) != columns.end();
}

void WriteRecordFields(std::ostream& out, const ScanItem& item, bool allFields, const std::vector<std::string>& columns) {
    const MediaFileInfo_st& r = item.record;
    const auto shown = [&](const char* name) {
        if (!columns.empty()) return Chosen(columns, name);
        return allFields || item.isVideo || !IsVideoField(name);
    };
    for (const NumberField& f : kNumberFields) {
        if (!shown(f.name)) continue;
        const unsigned long v = f.get(r);
        out << "  " << f.name << ": " << v;
        if (strcmp(f.name, "durationMs") == 0) out << " (" << MinutesSeconds(v) << ")";
        if (strcmp(f.name, "bitRate") == 0 || strcmp(f.name, "peakBitRate") == 0) out << " (" << Kbits(v) << ")";
        out << "\n";
    }
    for (const TextField& f : kTextFields) {
        if (!shown(f.name)) continue;
        out << "  " << f.name << ": \"" << ForTerminal(Latin1ToUtf8(f.get(r), MEDIA_TEXT_SIZE)) << "\"\n";
    }
}

class ListView : public View {
public:
    ListView(const ViewOptions& options, std::ostream& out) : options_(options), out_(out) {}
    void File(const FileView& file) override {
        WriteListing(out_, file, options_.allFields, options_.explain, options_.columns);
    }

private:
    ViewOptions options_;
    std::ostream& out_;
};

// ---- json ------------------------------------------------------------------

class JsonView : public View {
public:
    JsonView(const ViewOptions& options, std::ostream& out) : options_(options), out_(out) {}
    void File(const FileView& file) override {
        if (options_.columns.empty()) {
            writer_.Write(out_, file, options_.explain);
        } else {
            writer_.WriteColumns(out_, file, options_.columns);
        }
    }

private:
    ViewOptions options_;
    std::ostream& out_;
    JsonLineWriter writer_;
};

// ---- csv and tsv -------------------------------------------------------------

// RFC 4180: a field holding a comma, a quote, a line break or a space at
// either end is quoted, its quotes doubled; lines end in CR LF.
std::string CsvField(const std::string& text) {
    const bool quote = text.find_first_of(",\"\r\n") != std::string::npos ||
                       (!text.empty() && (text.front() == ' ' || text.back() == ' '));
    if (!quote) return text;
    std::string field = "\"";
    for (const char c : text) {
        if (c == '"') field += '"';
        field += c;
    }
    return field + "\"";
}

// A tab-separated field cannot hold a tab or a line break: they are
// written \t, \n, \r, and the backslash itself \\.
std::string TsvField(const std::string& text) {
    std::string field;
    for (const char c : text) {
        switch (c) {
            case '\t': field += "\\t"; break;
            case '\n': field += "\\n"; break;
            case '\r': field += "\\r"; break;
            case '\\': field += "\\\\"; break;
            default: field += c;
        }
    }
    return field;
}

class SeparatedView : public View {
public:
    SeparatedView(const ViewOptions& options, std::ostream& out)
        : columns_(options.columns.empty() ? DefaultColumns(options.device) : options.columns),
          csv_(options.format == Format::kCsv),
          out_(out) {}
    void Begin() override {
        std::vector<std::string> header(columns_.begin(), columns_.end());
        WriteRow(header);
    }
    void File(const FileView& file) override {
        std::vector<std::string> row;
        row.reserve(columns_.size());
        for (const std::string& c : columns_) row.push_back(MachineText(ColumnValue(c, file)));
        WriteRow(row);
    }

private:
    void WriteRow(const std::vector<std::string>& row) {
        line_.clear();
        for (size_t k = 0; k < row.size(); ++k) {
            if (k != 0) line_ += csv_ ? ',' : '\t';
            line_ += csv_ ? CsvField(row[k]) : TsvField(row[k]);
        }
        line_ += csv_ ? "\r\n" : "\n";
        out_.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    }

    std::vector<std::string> columns_;
    bool csv_;
    std::ostream& out_;
    std::string line_;
};

// ---- table -------------------------------------------------------------------

// Characters, not bytes, decide the width of a UTF-8 text on the screen
// (every character taken as one column wide).
size_t Characters(const std::string& utf8) {
    size_t n = 0;
    for (const char c : utf8) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return n;
}

// The first `width` characters of a text; "…" marks a cut.
std::string KeepStart(const std::string& text, size_t width) {
    if (Characters(text) <= width) return text;
    size_t n = 0, i = 0;
    for (; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && n++ == width - 1) break;
    }
    return text.substr(0, i) + "\xE2\x80\xA6";
}

// The last `width` characters: of a long path, the file's name matters most.
std::string KeepEnd(const std::string& text, size_t width) {
    if (Characters(text) <= width) return text;
    size_t n = 0, i = text.size();
    while (i > 0 && n < width - 1) {
        --i;
        n += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    }
    return "\xE2\x80\xA6" + text.substr(i);
}

struct TableColumn {
    std::string heading;
    size_t width;       // 0: the last column, as wide as its text
    bool right = false; // numbers line up on the right
};

std::string Pad(const std::string& text, const TableColumn& c) {
    if (c.width == 0) return text;
    const std::string kept = KeepStart(text, c.width);
    const std::string fill(c.width - Characters(kept), ' ');
    return c.right ? fill + kept : kept + fill;
}

// value / unit with at most `decimals` digits after the point, trailing
// zeros dropped: 44.1, 11.025, 8.
std::string Decimal(unsigned long value, unsigned long unit, int decimals) {
    char text[48];
    snprintf(text, sizeof text, "%.*f", decimals, static_cast<double>(value) / unit);
    std::string s = text;
    while (s.find('.') != std::string::npos && (s.back() == '0' || s.back() == '.')) s.pop_back();
    return s;
}

// The short, readable cells of the table's default columns.
std::vector<std::string> ReadableCells(const FileView& file, bool explain) {
    const ScanItem& item = file.item;
    const MediaFileInfo_st& r = item.record;
    const auto text = [](const char* field) { return ForTerminal(Latin1ToUtf8(field, MEDIA_TEXT_SIZE)); };
    std::vector<std::string> cells;
    const bool loaded = item.status == MFI_OK && item.hasRecord;
    if (!loaded) {
        cells = {"failed", MediaFileStatusText(item.status), "", "", "", "", "", "", ""};
    } else if (!item.Identified()) {
        cells = {"unidentified", "", "", "", "", "", "", text(r.title), text(r.artist)};
    } else {
        std::string codec = item.isVideo && r.videoFormat[0] != '\0' ? text(r.videoFormat)
                            : r.audioCodec[0] != '\0'               ? text(r.audioCodec)
                                                                    : text(r.audioFormat);
        const std::string type = TypeLabel(item);  // the record's bytes, Latin-1 like every record text
        cells = {ForTerminal(Latin1ToUtf8(type.c_str(), type.size())),
                 codec,
                 HoursMinutesSeconds(r.durationMs),
                 r.bitRate ? Decimal(r.bitRate, 1000, 1) : "",
                 r.sampleRate ? Decimal(r.sampleRate, 1000, 3) : "",
                 text(r.channelMode),
                 item.isVideo && r.width ? std::to_string(r.width) + "\xC3\x97" + std::to_string(r.height) : "",
                 text(r.title),
                 text(r.artist)};
    }
    if (file.verdict != nullptr) {
        std::string device = file.verdict->playable ? "yes" : "no";
        if (explain && !file.verdict->playable) {
            device += ": " + (file.verdict->refusedBy.empty() ? file.verdict->explanation : file.verdict->refusedBy);
        }
        cells.push_back(ForTerminal(device));
    }
    return cells;
}

class TableView : public View {
public:
    TableView(const ViewOptions& options, std::ostream& out) : options_(options), out_(out) {
        if (options.columns.empty()) {
            columns_ = {{"PATH", 1},     {"TYPE", 12},        {"CODEC", 16},        {"DURATION", 8, true},
                        {"KBIT/S", 7, true}, {"KHZ", 6, true}, {"CH", 6},           {"W\xC3\x97H", 9},
                        {"TITLE", 24},   {"ARTIST", options.device ? size_t{20} : size_t{0}}};
            if (options.device) columns_.push_back({"DEVICE", 0});
        } else {
            for (const std::string& c : options.columns) {
                TableColumn column{c, std::max<size_t>(c.size(), 10)};
                columns_.push_back(column);
            }
            columns_.back().width = 0;
        }
        for (size_t k = 0; k < columns_.size(); ++k) {
            if (columns_[k].heading != "PATH" && columns_[k].heading != "path") continue;
            path_ = k;
            if (columns_[k].width != 0) columns_[k].width = PathWidth(options.width);
        }
    }
    void Begin() override {
        std::vector<std::string> headings;
        for (const TableColumn& c : columns_) headings.push_back(c.heading);
        WriteRow(headings);
    }
    void File(const FileView& file) override {
        std::vector<std::string> cells;
        if (options_.columns.empty()) {
            cells = ReadableCells(file, options_.explain);
            cells.insert(cells.begin(), ForTerminal(file.item.path));
        } else {
            for (const std::string& c : options_.columns) cells.push_back(ForTerminal(MachineText(ColumnValue(c, file))));
        }
        WriteRow(cells);
    }

private:
    // The path takes what the other columns leave of the terminal's width,
    // within bounds; off a terminal a fixed width keeps the output stable.
    size_t PathWidth(unsigned terminal) const {
        if (terminal == 0) return 40;
        size_t others = 0;
        for (const TableColumn& c : columns_) {
            if (c.heading != "PATH" && c.heading != "path") others += 2 + (c.width ? c.width : 12);
        }
        // A narrow terminal wraps the line rather than losing the file's name.
        return std::clamp<size_t>(terminal > others ? terminal - others : 0, 30, 60);
    }

    void WriteRow(const std::vector<std::string>& cells) {
        std::string line;
        for (size_t k = 0; k < columns_.size() && k < cells.size(); ++k) {
            if (k != 0) line += "  ";
            const bool cut = k == path_ && columns_[k].width != 0;
            line += Pad(cut ? KeepEnd(cells[k], columns_[k].width) : cells[k], columns_[k]);
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        line += '\n';
        out_.write(line.data(), static_cast<std::streamsize>(line.size()));
    }

    ViewOptions options_;
    std::ostream& out_;
    std::vector<TableColumn> columns_;
    size_t path_ = SIZE_MAX;  // the path's column, cut at its start rather than its end
};

}  // namespace

bool ParseFormat(const std::string& name, Format& format) {
    static const struct {
        const char* name;
        Format format;
    } kFormats[] = {{"list", Format::kList}, {"json", Format::kJson}, {"csv", Format::kCsv},
                    {"tsv", Format::kTsv},   {"table", Format::kTable}};
    for (const auto& f : kFormats) {
        if (name == f.name) {
            format = f.format;
            return true;
        }
    }
    return false;
}

std::unique_ptr<View> MakeView(const ViewOptions& options, std::ostream& out) {
    switch (options.format) {
        case Format::kJson: return std::make_unique<JsonView>(options, out);
        case Format::kCsv:
        case Format::kTsv: return std::make_unique<SeparatedView>(options, out);
        case Format::kTable: return std::make_unique<TableView>(options, out);
        case Format::kList: break;
    }
    return std::make_unique<ListView>(options, out);
}

std::string ForTerminal(const std::string& utf8) {
    std::string shown;
    shown.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(utf8[i]);
        unsigned code = 0x100;  // none
        if (c < 0x20 || c == 0x7F) {
            code = c;
        } else if (c == 0xC2 && i + 1 < utf8.size() && static_cast<unsigned char>(utf8[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(utf8[i + 1]) <= 0x9F) {
            code = static_cast<unsigned char>(utf8[++i]);  // U+0080..U+009F
        }
        if (c == '\\') {
            shown += "\\\\";  // so that a name holding "\x0a" does not read as one holding a line feed
        } else if (code == 0x100) {
            shown += static_cast<char>(c);
        } else {
            char escape[8];
            snprintf(escape, sizeof escape, "\\x%02x", code);
            shown += escape;
        }
    }
    return shown;
}

void WriteListing(std::ostream& out, const FileView& file, bool allFields, bool explain,
                  const std::vector<std::string>& columns) {
    const ScanItem& item = file.item;
    out << ForTerminal(item.path) << "\n";
    WriteStatusLine(out, item);
    out << "  audio: " << (item.isAudio ? "yes" : "no") << ", video: " << (item.isVideo ? "yes" : "no")
        << ", tags: " << (item.hasTags ? "yes" : "no") << "\n";
    for (const std::string& warning : Warnings(item)) out << "  warning: " << warning << "\n";
    if (!item.hasRecord) {
        out << "  (no record)\n";
    } else {
        WriteRecordFields(out, item, allFields, columns);
    }
    if (file.verdict != nullptr) {
        out << "  device: " << (file.verdict->playable ? "playable" : "not playable");
        if (explain && !file.verdict->explanation.empty()) out << ": " << ForTerminal(file.verdict->explanation);
        out << "\n";
    }
}

bool ShowReadBack(std::ostream& out, const std::string& path, bool json) {
    ScanItem item;
    item.path = path;
    LoadInto(path, item);
    const FileView file{item, nullptr};
    if (json) {
        JsonLineWriter().Write(out, file, false);
    } else {
        WriteListing(out, file, false, false, {});
    }
    return item.status == MFI_OK;
}

std::string HoursMinutesSeconds(unsigned long ms) {
    const unsigned long s = ms / 1000;
    char text[48];
    snprintf(text, sizeof text, "%lu:%02lu:%02lu", s / 3600, (s / 60) % 60, s % 60);
    return text;
}

}  // namespace fileinfo
