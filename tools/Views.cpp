#include "Views.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "JsonLine.h"
#include "ReadingFields.h"
#include "RecordDiffers.h"
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
    if (v.kind == ValueKind::kReal) return RealText(v.real);
    return v.text;
}

}  // namespace

std::string FailureNote(const ScanItem& item) {
    if (item.status == MFI_SHORT_FILE && item.hasRecord && item.record.fileSize == 0) return "empty file";
    return std::string();
}

namespace {

// ---- list: today's labelled listing --------------------------------------

void WriteStatusLine(std::ostream& out, const ScanItem& item) {
    out << "  status: " << item.status << " (" << MediaFileStatusText(item.status);
    // The library calls a load it could not place a success; say so.
    if (item.status == MFI_OK && !item.Identified()) out << ", but no reader identified the file";
    const std::string note = FailureNote(item);
    if (!note.empty()) out << ": " << note;
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
        if (options_.record) {
            WriteListing(out_, file, options_.allFields, options_.explain, options_.columns);
        } else {
            WriteReadingListing(out_, file, options_.allFields, options_.explain, options_.columns);
        }
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
            writer_.Write(out_, file, options_.explain, options_.record);
        } else {
            writer_.WriteColumns(out_, file, options_.columns, options_.record);
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
        : columns_(options.columns.empty() ? DefaultColumns(options.device, options.record) : options.columns),
          record_(options.record),
          csv_(options.format == Format::kCsv),
          out_(out) {}
    void Begin() override {
        std::vector<std::string> header(columns_.begin(), columns_.end());
        WriteRow(header);
    }
    void File(const FileView& file) override {
        std::vector<std::string> row;
        row.reserve(columns_.size());
        for (const std::string& c : columns_) row.push_back(MachineText(ColumnValue(c, file, record_)));
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
    bool record_;
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

class RecordTableView : public View {
public:
    RecordTableView(const ViewOptions& options, std::ostream& out) : options_(options), out_(out) {
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
            for (const std::string& c : options_.columns) {
                cells.push_back(ForTerminal(MachineText(ColumnValue(c, file, true))));
            }
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

// ---- table of the readings ------------------------------------------------------

// Decodes the character at text[i] and moves i past it; a byte that is no
// part of UTF-8 is one character of its own.
uint32_t NextCharacter(const std::string& text, size_t& i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    const size_t extra = c < 0x80 ? 0 : (c & 0xE0) == 0xC0 ? 1 : (c & 0xF0) == 0xE0 ? 2 : (c & 0xF8) == 0xF0 ? 3 : 4;
    if (extra == 0 || extra == 4 || i + extra >= text.size()) {
        ++i;
        return c;
    }
    uint32_t code = c & (0x3Fu >> extra);
    for (size_t k = 1; k <= extra; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) {
            ++i;
            return c;
        }
        code = (code << 6) | (next & 0x3Fu);
    }
    i += extra + 1;
    return code;
}

// Terminal columns of one character: combining marks and zero-width ones
// take none, East Asian wide and fullwidth forms and emoji two.
size_t CharacterWidth(uint32_t code) {
    static const struct {
        uint32_t first, last;
    } kNone[] = {{0x0300, 0x036F}, {0x200B, 0x200F}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}},
      kWide[] = {{0x1100, 0x115F},  {0x2E80, 0x303E},  {0x3041, 0x33FF},   {0x3400, 0x4DBF},
                 {0x4E00, 0x9FFF},  {0xA000, 0xA4CF},  {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},
                 {0xFE30, 0xFE4F},  {0xFF00, 0xFF60},  {0xFFE0, 0xFFE6},   {0x1F300, 0x1F64F},
                 {0x1F900, 0x1F9FF}, {0x20000, 0x3FFFD}};
    for (const auto& r : kNone)
        if (code >= r.first && code <= r.last) return 0;
    for (const auto& r : kWide)
        if (code >= r.first && code <= r.last) return 2;
    return 1;
}

// A column of the table: it never grows past its width, and the widths
// are laid out once for the terminal.
struct FitColumn {
    std::string heading;
    size_t least;       // the narrowest it is shown
    size_t wanted;      // what it is given before the path takes the rest
    int drop = 0;       // 0: always shown; else left out, lowest first, when the least widths do not fit
    bool right = false; // numbers line up on the right
    bool path = false;  // cut at its start, and takes what the others leave
    size_t width = 0;
    bool shown = true;
};

constexpr size_t kGap = 2;  // spaces between columns

// Gives each column its width in `total` terminal columns: columns are left
// out in their drop order while even their least widths do not fit; then
// every column but the path grows to its wanted width, in order; the path
// takes the rest. So a narrower terminal takes from the path first. The
// headings are cut like any cell.
void LayOut(std::vector<FitColumn>& columns, size_t total) {
    const auto used = [&] {
        size_t sum = 0, count = 0;
        for (const FitColumn& c : columns) {
            if (!c.shown) continue;
            sum += c.width;
            ++count;
        }
        return sum + (count > 0 ? (count - 1) * kGap : 0);
    };
    for (FitColumn& c : columns) c.width = c.least;
    while (used() > total) {
        FitColumn* next = nullptr;
        for (FitColumn& c : columns)
            if (c.shown && c.drop > 0 && (next == nullptr || c.drop < next->drop)) next = &c;
        if (next == nullptr) break;
        next->shown = false;
    }
    // Narrower still (under 60 columns): the path, then the texts, give up
    // their least widths too, down to a few columns each.
    constexpr size_t kNarrowest = 4;
    for (FitColumn& c : columns) {
        if (used() <= total) break;
        if (!c.shown || !(c.path || c.heading == "TITLE" || c.heading == "ARTIST")) continue;
        c.width -= std::min(used() - total, c.width - std::min(c.width, kNarrowest));
    }
    size_t spare = total > used() ? total - used() : 0;
    for (FitColumn& c : columns) {
        if (!c.shown || c.path || c.wanted <= c.width) continue;
        const size_t more = std::min(spare, c.wanted - c.width);
        c.width += more;
        spare -= more;
    }
    for (FitColumn& c : columns)
        if (c.shown && c.path) c.width += spare;
}

std::string FitCell(const std::string& text, const FitColumn& c) {
    const std::string kept = FitText(text, c.width, c.path);
    const std::string fill(c.width - std::min(c.width, DisplayWidth(kept)), ' ');
    return c.right ? fill + kept : kept + fill;
}

// The readable cells of the table's default columns, after the path: type,
// codec, duration, kbit/s, kHz, channels, W×H, title, artist, and with a
// device the verdict on the reading.
std::vector<std::string> ReadingCells(const FileView& file, bool explain) {
    const ScanItem& item = file.item;
    const media::Reading& m = item.reading;
    std::vector<std::string> cells;
    if (item.readingError != 0) {
        cells = {"", "unreadable: " + ForTerminal(std::strerror(item.readingError)), "", "", "", "", "", "", ""};
    } else if (!m.Identified() && item.LoadFailed()) {
        cells = {"", std::string("failed: ") + MediaFileStatusText(item.status), "", "", "", "", "", "", ""};
    } else if (!m.Identified()) {
        cells = {"", "unidentified", "", "", "", "", "", ForTerminal(m.tags.title), ForTerminal(m.tags.artist)};
    } else {
        const std::string codec = m.HasVideo() ? m.video_codec : m.audio_codec;
        cells = {ForTerminal(m.type),
                 ForTerminal(codec),
                 m.duration_ms ? (m.duration_estimated ? "~" : "") + HoursMinutesSeconds(m.duration_ms) : "",
                 m.bit_rate ? Decimal(m.bit_rate, 1000, m.bit_rate >= 1000000 ? 0 : 1) : "",
                 m.sample_rate ? Decimal(m.sample_rate, 1000, 3) : "",
                 ChannelsText(m.channels),
                 m.HasVideo() && m.width ? std::to_string(m.width) + "\xC3\x97" + std::to_string(m.height) : "",
                 ForTerminal(m.tags.title),
                 ForTerminal(m.tags.artist)};
    }
    if (file.readingVerdict != nullptr) {
        const ReadingVerdict& v = *file.readingVerdict;
        std::string device = v.playable ? "yes" : "no";
        if (explain && !v.playable) device += ": " + (v.refusedBy.empty() ? v.explanation : CommaJoined(v.refusedBy));
        cells.push_back(ForTerminal(device));
    }
    return cells;
}

// The table of readings: one line per file that never wraps, laid out for
// the terminal's width (80 columns when it is not known).
class ReadingTableView : public View {
public:
    ReadingTableView(const ViewOptions& options, std::ostream& out) : options_(options), out_(out) {
        if (options.columns.empty()) {
            columns_ = {{"PATH", 16, 16, 0, false, true},
                        {"TYPE", 4, 4},
                        {"CODEC", 12, 13, 5},
                        {"DURATION", 8, 8, 0, true},
                        {"KBIT/S", 6, 6, 3, true},
                        {"KHZ", 6, 6, 2, true},
                        {"CH", 6, 6, 4},
                        {"W\xC3\x97H", 9, 9, 1},
                        {"TITLE", 12, 30},
                        {"ARTIST", 10, 20}};
            if (options.device) columns_.push_back({"DEVICE", 6, options.explain ? size_t{30} : size_t{6}});
        } else {
            for (const std::string& c : options.columns) {
                const bool path = c == "path";
                const bool text = c == "title" || c == "artist" || c == "album" || c == "comment" ||
                                  c == "composer" || c == "genre" || c == "explanation" || c.find('.') != std::string::npos;
                const size_t least = std::max<size_t>(c.size(), path ? 16 : 4);
                columns_.push_back({c, least, path ? least : std::max<size_t>(least, text ? 24 : 10), 0, false, path});
            }
        }
        LayOut(columns_, options.width != 0 ? options.width : 80);
    }
    void Begin() override {
        std::vector<std::string> headings;
        for (const FitColumn& c : columns_) headings.push_back(c.heading);
        WriteRow(headings);
    }
    void File(const FileView& file) override {
        std::vector<std::string> cells;
        if (options_.columns.empty()) {
            cells = ReadingCells(file, options_.explain);
            cells.insert(cells.begin(), ForTerminal(file.item.path));
        } else {
            for (const std::string& c : options_.columns) cells.push_back(ForTerminal(MachineText(ColumnValue(c, file))));
        }
        WriteRow(cells);
    }

private:
    void WriteRow(const std::vector<std::string>& cells) {
        std::string line;
        bool first = true;
        for (size_t k = 0; k < columns_.size() && k < cells.size(); ++k) {
            if (!columns_[k].shown) continue;
            if (!first) line += std::string(kGap, ' ');
            first = false;
            line += FitCell(cells[k], columns_[k]);
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        line += '\n';
        out_.write(line.data(), static_cast<std::streamsize>(line.size()));
    }

    ViewOptions options_;
    std::ostream& out_;
    std::vector<FitColumn> columns_;
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
        case Format::kTable:
            if (options.record) return std::make_unique<RecordTableView>(options, out);
            return std::make_unique<ReadingTableView>(options, out);
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

void WriteReadingListing(std::ostream& out, const FileView& file, bool allFields, bool explain,
                         const std::vector<std::string>& columns) {
    const ScanItem& item = file.item;
    const media::Reading& m = item.reading;
    out << ForTerminal(item.path) << "\n";
    WriteStatusLine(out, item);
    for (const std::string& warning : Warnings(item)) out << "  warning: " << warning << "\n";
    if (!columns.empty()) {
        // The chosen columns alone, in their order, of the reading and the record alike.
        for (const std::string& c : columns) {
            if (c == "path") continue;
            const Value v = ColumnValue(c, file);
            const bool quoted = v.present && v.kind == ValueKind::kText;
            out << "  " << c << ": " << (quoted ? "\"" : "") << (v.present ? ForTerminal(MachineText(v)) : "none")
                << (quoted ? "\"" : "") << "\n";
        }
        return;
    }
    if (item.readingError != 0) {
        out << "  reading: the file could not be read: " << std::strerror(item.readingError) << "\n";
    } else {
        if (!m.Identified()) out << "  type: none (no reader identified the file)\n";
        for (const ReadingField& f : kReadingFields) {
            const ReadingValue v = f.get(m);
            if (!allFields && (!v.present || (f.kind == ReadingKind::kNumber && v.number == 0) ||
                               (f.kind == ReadingKind::kReal && v.real == 0) ||
                               (f.kind == ReadingKind::kFlag && !v.flag) || (f.video && !m.HasVideo()))) {
                continue;  // what the file does not hold, or is not known
            }
            out << "  " << f.name << ": ";
            if (f.kind == ReadingKind::kText) {
                out << (v.present ? "\"" + ForTerminal(v.text) + "\"" : std::string("none"));
            } else {
                out << (v.present ? ReadingValueText(v) : std::string("none"));
            }
            const std::string name = f.name;
            if (name == "duration_ms" && v.number) {
                out << " (" << MinutesSeconds(v.number) << (m.duration_estimated ? ", estimated from the size" : "")
                    << ")";
            }
            if ((name == "bit_rate" || name == "audio_bit_rate" || name.find("video_") == 0) &&
                f.kind == ReadingKind::kNumber && v.number) {
                out << " (" << Kbits(v.number) << ")";
            }
            if (name == "channels" && v.number) out << " (" << ChannelsText(static_cast<uint32_t>(v.number)) << ")";
            out << "\n";
        }
    }
    for (const RecordDifference& d : RecordDiffers(item)) {
        out << "  record differs: " << d.field << " " << (d.record.isNumber || d.record.null ? "" : "\"")
            << ForTerminal(d.record.Shown()) << (d.record.isNumber || d.record.null ? "" : "\"") << ", read "
            << (d.reading.isNumber || d.reading.null ? "" : "\"") << ForTerminal(d.reading.Shown())
            << (d.reading.isNumber || d.reading.null ? "" : "\"") << "\n";
    }
    if (file.readingVerdict != nullptr) {
        const ReadingVerdict& v = *file.readingVerdict;
        out << "  device: " << (v.playable ? "playable" : "not playable");
        if (explain && !v.explanation.empty()) out << ": " << ForTerminal(v.explanation);
        out << "\n";
    }
    if (file.verdict != nullptr) {
        out << "  library's verdict: " << (file.verdict->playable ? "playable" : "not playable");
        if (explain && !file.verdict->explanation.empty()) out << ": " << ForTerminal(file.verdict->explanation);
        out << "\n";
    }
}

size_t DisplayWidth(const std::string& utf8) {
    size_t width = 0;
    for (size_t i = 0; i < utf8.size();) width += CharacterWidth(NextCharacter(utf8, i));
    return width;
}

std::string FitText(const std::string& text, size_t width, bool keepEnd) {
    if (DisplayWidth(text) <= width) return text;
    if (width == 0) return std::string();
    const std::string ellipsis = "\xE2\x80\xA6";
    // Where each character starts, and its width.
    std::vector<std::pair<size_t, size_t>> characters;
    for (size_t i = 0; i < text.size();) {
        const size_t start = i;
        characters.emplace_back(start, CharacterWidth(NextCharacter(text, i)));
    }
    size_t room = width - 1;  // the ellipsis takes one
    if (!keepEnd) {
        // Keep the characters that fit, in order.
        size_t used = 0, k = 0;
        for (; k < characters.size() && used + characters[k].second <= room; ++k) used += characters[k].second;
        const size_t cut = k < characters.size() ? characters[k].first : text.size();
        return text.substr(0, cut) + ellipsis;
    }
    size_t used = 0, k = characters.size();
    while (k > 0 && used + characters[k - 1].second <= room) used += characters[--k].second;
    return ellipsis + text.substr(k < characters.size() ? characters[k].first : text.size());
}

bool ShowReadBack(std::ostream& out, const std::string& path, bool json) {
    ScanItem item;
    item.path = path;
    LoadInto(path, item);
    const FileView file{item, nullptr, nullptr};
    if (json) {
        JsonLineWriter().Write(out, file, false, true);
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
