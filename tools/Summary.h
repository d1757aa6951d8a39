// --summary: totals of a run, counted as its files go by.
#ifndef FILEINFO_TOOLS_SUMMARY_H
#define FILEINFO_TOOLS_SUMMARY_H

#include <map>
#include <ostream>
#include <string>

#include "Scan.h"
#include "Verdict.h"

namespace fileinfo {

class Summary {
public:
    // Every item of the run, whether it is shown or not.
    void Count(const ScanItem& item, const DeviceVerdict* verdict);

    // As text, for people (and after the rows of the text formats).
    void WriteText(std::ostream& out, double seconds, bool device) const;
    // As one JSON line: {"summary":{...}}.
    void WriteJson(std::ostream& out, double seconds, bool device) const;

    struct TypeTotal {
        unsigned long files = 0;
        unsigned long long durationMs = 0;
    };

    bool interrupted = false;        // Ctrl-C ended the run: the totals are of what was done
    unsigned long loaded = 0;        // loaded and identified
    unsigned long unidentified = 0;  // status 1, but no reader identified the bytes
    std::map<std::string, unsigned long> failed;      // by status text
    std::map<std::string, unsigned long> skipped;     // by reason
    std::map<std::string, unsigned long> unreadable;  // by the system's reason
    std::map<std::string, TypeTotal> types;           // identified files by type
    unsigned long long bytes = 0;                     // the loaded files' sizes
    unsigned long playable = 0;
    unsigned long unplayable = 0;
    std::map<std::string, unsigned long> refusals;  // by requirement key, or by the reason when no key refused
};

// The reason a skipped item is counted under: "extension not read",
// "extension not selected", "hidden", "special file", "link to a folder".
const char* SkipReasonText(SkipReason reason);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_SUMMARY_H
