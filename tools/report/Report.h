// fileinfo report: the collection page. The scan's items and the device's
// verdicts become one JSON document, which goes into the page's template
// whole; the page's own script draws everything from it.
#ifndef FILEINFO_TOOLS_REPORT_H
#define FILEINFO_TOOLS_REPORT_H

#include <map>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "RecordDiffers.h"
#include "Scan.h"
#include "Verdict.h"

namespace fileinfo {

struct ReportHeader {
    std::string title;
    std::vector<std::string> roots;
    std::vector<std::string> extensions;
    bool hidden = false;
    std::string generated;   // when, as an ISO 8601 UTC time
    std::string devicePath;  // empty without a device
};

// Gathers the items of a scan, in scan order, in the compact form the page
// reads: one array of values per file under a list of column names, texts
// that repeat (types, codecs, artists, reasons) kept once in a table of
// strings and given by their index, folders kept once and given by index.
class ReportData {
public:
    // device: judge every file against it; null for none. It must outlive
    // this object.
    explicit ReportData(const Device* device);

    void Add(const ScanItem& item);

    // The whole document, compact.
    std::string Json(const ReportHeader& header) const;

    size_t Files() const { return fileCount_; }

private:
    // The index of a text in the string table, adding it when new.
    size_t Intern(const std::string& text);
    // The index of a path's folder, and its name.
    size_t Folder(const std::string& path, std::string& name);
    // Where the record of the file about to be added differs from its
    // reading; `stem`: its name without the extension.
    void AddDifferences(const ScanItem& item, const std::string& stem);

    const Device* device_;
    std::vector<std::string> strings_;
    std::map<std::string, size_t, std::less<>> stringIndex_;
    std::vector<std::string> folders_;
    std::map<std::string, size_t, std::less<>> folderIndex_;
    std::string files_;    // the rows, each followed by a comma
    size_t fileCount_ = 0;
    std::string skipped_;  // likewise
    std::string errors_;
    // Where records differ, by compared field: how many files, and the first
    // kDifferFilesListed of them, each followed by a comma. The page shows
    // no more of a field than those; the count is whole.
    static constexpr size_t kDifferFilesListed = 500;
    std::string differs_[kRecordDiffRuleCount];
    size_t differCounts_[kRecordDiffRuleCount] = {};
    size_t differingFiles_ = 0;
    std::string reasons_;
    size_t lastFolder_ = static_cast<size_t>(-1);
    std::string formats_;
    std::map<std::string, size_t> formatIndex_;
    std::vector<std::string> videoTypes_;
    std::map<int, std::string> statusTexts_;
};

// A JSON text made safe to stand inside <script type="application/json">:
// '<', '>' and '&' become \u escapes, so no "</script>" or "<!--" can end
// or change the element, and so do U+2028 and U+2029 for older parsers.
// Those characters only ever occur inside JSON strings, where the escapes
// mean the same.
std::string EscapeJsonForScript(std::string_view json);

// The page: the template with its one data marker replaced by the escaped
// document. Empty when the template does not hold the marker exactly once.
std::string FillReportTemplate(std::string_view page, std::string_view json);

// The page made from the embedded template.
std::string MakeReportPage(const std::string& json);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_REPORT_H
