// The tool's writers (JSON lines, csv, tsv, table, list) over items whose
// paths, reasons, verdicts and records hold any bytes. Every JSON line must
// parse and name the path as it is (or its bytes in hex), every csv and tsv
// row must have as many fields as the header, and the table and the list
// must hold no control character but the line end.
#include <nlohmann/json.hpp>

#include <sstream>
#include <string>
#include <vector>

#include "Columns.h"
#include "FrontEnd.h"
#include "JsonText.h"
#include "Views.h"

namespace {

using fileinfo::Format;

// RFC 4180 records: fields of each, CR LF line ends, quoted fields.
std::vector<std::vector<std::string>> ParseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row(1);
    size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '"' && row.back().empty()) {
            ++i;
            for (;;) {
                if (i >= text.size()) fuzz::Broken("csv: a quoted field does not end", text);
                if (text[i] == '"') {
                    if (i + 1 < text.size() && text[i + 1] == '"') {
                        row.back() += '"';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                row.back() += text[i++];
            }
            if (i < text.size() && text[i] != ',' && text[i] != '\r') fuzz::Broken("csv: text after a quoted field", text);
            continue;
        }
        if (text[i] == ',') {
            row.emplace_back();
            ++i;
        } else if (text[i] == '\r') {
            if (i + 1 >= text.size() || text[i + 1] != '\n') fuzz::Broken("csv: CR without LF", text);
            rows.push_back(row);
            row.assign(1, std::string());
            i += 2;
        } else if (text[i] == '\n' || text[i] == '"') {
            fuzz::Broken("csv: a line feed or quote in an unquoted field", text);
        } else {
            row.back() += text[i++];
        }
    }
    if (row.size() != 1 || !row[0].empty()) fuzz::Broken("csv: the last line has no end", text);
    return rows;
}

std::vector<std::string> Split(const std::string& text, char at) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == at) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

void CheckJson(const std::string& out, const std::vector<fileinfo::ScanItem>& items) {
    const std::vector<std::string> lines = Split(out, '\n');
    if (lines.size() != items.size() + 1 || !lines.back().empty()) fuzz::Broken("json: not one line per file", out);
    for (size_t k = 0; k < items.size(); ++k) {
        nlohmann::json j;
        try {
            j = nlohmann::json::parse(lines[k]);
        } catch (const nlohmann::json::exception& e) {
            fuzz::Broken("json: a line does not parse", lines[k] + "\n" + e.what());
        }
        if (!j.is_object()) fuzz::Broken("json: a line is no object", lines[k]);
        if (!j.contains("path")) continue;  // --fields without path
        const std::string& path = items[k].path;
        if (fileinfo::IsUtf8(path)) {
            if (j["path"] != path || j.contains("path_bytes")) fuzz::Broken("json: the path is not as it is", lines[k]);
        } else if (j.value("path_bytes", std::string()) != fileinfo::Hex(path)) {
            fuzz::Broken("json: path_bytes are not the path's bytes", lines[k]);
        }
        if (j.contains("record") && !j["record"].is_null() && j["record"].size() != 28)
            fuzz::Broken("json: the record has not 28 fields", lines[k]);
    }
}

void CheckSeparated(const std::string& out, bool csv, size_t items) {
    std::vector<std::vector<std::string>> rows;
    if (csv) {
        rows = ParseCsv(out);
    } else {
        std::vector<std::string> lines = Split(out, '\n');
        if (lines.back().empty()) lines.pop_back();
        for (const std::string& line : lines) {
            if (line.find('\r') != std::string::npos) fuzz::Broken("tsv: a carriage return in a line", line);
            rows.push_back(Split(line, '\t'));
        }
    }
    if (rows.size() != items + 1) fuzz::Broken(csv ? "csv: not one row per file" : "tsv: not one row per file", out);
    for (const auto& row : rows) {
        if (row.size() != rows[0].size()) fuzz::Broken(csv ? "csv: a row's fields differ from the header's" : "tsv: a row's fields differ from the header's", out);
    }
}

void CheckForTerminal(const std::string& out) {
    for (size_t i = 0; i < out.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(out[i]);
        if ((c < 0x20 && c != '\n') || c == 0x7F) fuzz::Broken("a control character reaches the terminal", out);
        if (c == 0xC2 && i + 1 < out.size() && static_cast<unsigned char>(out[i + 1]) >= 0x80 &&
            static_cast<unsigned char>(out[i + 1]) <= 0x9F)
            fuzz::Broken("a C1 control character reaches the terminal", out);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    fileinfo::ViewOptions options;
    options.format = static_cast<Format>(in.ConsumeIntegralInRange<int>(0, 4));
    options.allFields = in.ConsumeBool();
    options.device = in.ConsumeBool();
    options.explain = options.device && in.ConsumeBool();
    options.width = in.ConsumeBool() ? in.ConsumeIntegralInRange<unsigned>(0, 300) : 0;
    if (in.ConsumeBool()) {
        const std::vector<std::string>& names = fileinfo::ColumnNames();
        const size_t count = in.ConsumeIntegralInRange<size_t>(1, 6);
        for (size_t k = 0; k < count; ++k) options.columns.push_back(names[in.ConsumeIntegralInRange<size_t>(0, names.size() - 1)]);
    }
    const size_t count = in.ConsumeIntegralInRange<size_t>(1, 4);
    std::vector<fileinfo::ScanItem> items;
    std::vector<fileinfo::DeviceVerdict> verdicts;
    for (size_t k = 0; k < count; ++k) {
        items.push_back(fuzz::AnyItem(in));
        items.back().outcome = fileinfo::Outcome::kLoaded;  // only loads reach the views
        verdicts.push_back(fuzz::AnyVerdict(in));
    }
    std::ostringstream out;
    {
        const std::unique_ptr<fileinfo::View> view = fileinfo::MakeView(options, out);
        view->Begin();
        for (size_t k = 0; k < count; ++k) view->File({items[k], options.device ? &verdicts[k] : nullptr});
    }
    const std::string text = out.str();
    switch (options.format) {
        case Format::kJson: CheckJson(text, items); break;
        case Format::kCsv: CheckSeparated(text, true, count); break;
        case Format::kTsv: CheckSeparated(text, false, count); break;
        case Format::kTable:
        case Format::kList: CheckForTerminal(text); break;
    }
    // Shown texts read back to one text only: different texts never look alike.
    const std::string a = fuzz::AnyText(in, 16), b = fuzz::AnyText(in, 16);
    if (a != b && fileinfo::ForTerminal(a) == fileinfo::ForTerminal(b)) fuzz::Broken("two texts are shown alike", a + "\n" + b);
    return 0;
}
