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
    // `byReading`: files are counted by what the reading found (its type,
    // duration and size, the verdict on it, and where the record differs);
    // otherwise by the library's record, as before readings.
    explicit Summary(bool byReading = false) : byReading_(byReading) {}

    // Every item of the run, whether it is shown or not, with the device's
    // verdicts when one was given.
    void Count(const ScanItem& item, const DeviceVerdict* verdict, const ReadingVerdict* readingVerdict = nullptr);

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
    unsigned long unidentified = 0;  // loaded, but no reader identified the bytes
    std::map<std::string, unsigned long> failed;      // by status text
    std::map<std::string, unsigned long> skipped;     // by reason
    std::map<std::string, unsigned long> unreadable;  // by the system's reason
    std::map<std::string, TypeTotal> types;           // identified files by type
    unsigned long long bytes = 0;                     // the loaded files' sizes
    unsigned long playable = 0;
    unsigned long unplayable = 0;
    std::map<std::string, unsigned long> refusals;  // by requirement key, or by the reason when no key refused
    std::map<std::string, unsigned long> differs;   // by reading: files whose record differs, by record field

private:
    void CountReading(const ScanItem& item, const ReadingVerdict* verdict);

    bool byReading_;
};

// The reason a skipped item is counted under: "extension not read",
// "extension not selected", "hidden", "special file", "link to a folder".
const char* SkipReasonText(SkipReason reason);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_SUMMARY_H
