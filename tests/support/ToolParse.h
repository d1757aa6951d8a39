// Reading the tool's outputs back the way their users would: JSON lines
// with nlohmann::json, CSV with Python's csv module (a reader that knows
// nothing of this tool), TSV by its escapes.
#ifndef FILEINFO_TESTS_TOOLPARSE_H
#define FILEINFO_TESTS_TOOLPARSE_H

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "TestFiles.h"
#include "ToolRun.h"

using Rows = std::vector<std::vector<std::string>>;

inline std::vector<nlohmann::json> JsonLines(const std::string& out) {
    std::vector<nlohmann::json> lines;
    size_t start = 0, end;
    while ((end = out.find('\n', start)) != std::string::npos) {
        lines.push_back(nlohmann::json::parse(out.substr(start, end - start)));
        start = end + 1;
    }
    EXPECT_EQ(start, out.size()) << "the output ends inside a line";
    return lines;
}

// Python's csv reader, strict about quoting, turns the text into rows;
// they come back as JSON.
inline Rows CsvRows(const std::string& text) {
    TempDir dir;
    const std::string path = dir.write("out.csv", Bytes(text.begin(), text.end()));
    const std::string script =
        "import csv, json, sys\n"
        "rows = list(csv.reader(open(sys.argv[1], newline='', encoding='utf-8', errors='surrogateescape'), strict=True))\n"
        "print(json.dumps(rows, ensure_ascii=True))\n";
    const std::string scriptPath = dir.write("read.py", Bytes(script.begin(), script.end()));
    FILE* pipe = popen(("/usr/bin/python3 " + scriptPath + " " + path).c_str(), "r");
    std::string json;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) json.append(chunk, n);
    EXPECT_EQ(pclose(pipe), 0) << text;
    return nlohmann::json::parse(json).get<Rows>();
}

// Tab-separated rows; \t, \n, \r and \\ stand for themselves.
inline Rows TsvRows(const std::string& text) {
    Rows rows;
    std::vector<std::string> row(1);
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\n') {
            rows.push_back(row);
            row.assign(1, std::string());
        } else if (c == '\t') {
            row.emplace_back();
        } else if (c == '\\' && i + 1 < text.size()) {
            const char e = text[++i];
            row.back() += e == 't' ? '\t' : e == 'n' ? '\n' : e == 'r' ? '\r' : e;
        } else {
            row.back() += c;
        }
    }
    return rows;
}

// Runs a shell command line and keeps its standard output.
inline std::string Shell(const std::string& command, int* status = nullptr) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string out;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0) out.append(chunk, n);
    const int s = pclose(pipe);
    if (status != nullptr) *status = WIFEXITED(s) ? WEXITSTATUS(s) : -1;
    return out;
}

#endif  // FILEINFO_TESTS_TOOLPARSE_H
