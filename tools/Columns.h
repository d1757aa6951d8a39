// The columns a user can choose with --fields: the facts of a result (path,
// status, the three flags, whether the library identified the file, the
// device's verdicts, where the record differs from the reading), the
// reading's fields by their names (type, duration_ms, title, ...) and the
// record's 28 fields by theirs (fileType, durationMs, ...).
//
// Where a reading's field and a record's share a name (title, artist,
// width, level, ...), the bare name is the reading's, or under --record the
// record's; "record.title" is always the record's and "media.title" always
// the reading's. playable and refused_by are the verdict on the reading, or
// under --record the library's; library_playable and library_refused_by are
// always the library's.
//
// One value per column and file, in its machine form; the views turn it
// into text their own way.
#ifndef FILEINFO_TOOLS_COLUMNS_H
#define FILEINFO_TOOLS_COLUMNS_H

#include <string>
#include <vector>

#include "Scan.h"
#include "Verdict.h"

namespace fileinfo {

enum class ValueKind : unsigned char { kNumber, kText, kFlag, kReal };

struct Value {
    ValueKind kind = ValueKind::kText;
    bool present = true;       // false: no value (no record, no device, no refusal, no tag)
    unsigned long number = 0;  // kNumber
    double real = 0;           // kReal
    bool flag = false;         // kFlag
    std::string text;          // kText, as UTF-8 (paths: their bytes)
};

// One loaded file with the device's verdicts on it, if a device was given.
struct FileView {
    const ScanItem& item;
    const DeviceVerdict* verdict;          // the library's; null without --device
    const ReadingVerdict* readingVerdict;  // on the reading; null without --device
};

// Every column name, in the order --help lists them: the result's, the
// reading's, then the record's.
const std::vector<std::string>& ColumnNames();
bool IsColumn(const std::string& name);
// The names for --help and for the message of an unknown one: "path, ...,
// record_differs; the reading's type, ..., composer; the record's isVbr,
// ..., composer (record.title and so on where a name is the reading's too)".
std::string ColumnHelp();

// Splits "a,b,c" and checks every name. False, with the offending name in
// `unknown`, when a name is no column.
bool ParseColumns(const std::string& list, std::vector<std::string>& columns, std::string& unknown);

// The columns of csv and tsv when none are chosen; with a device the
// verdict's two follow. `record`: today's columns of the record.
std::vector<std::string> DefaultColumns(bool device, bool record = false);

// The value of a column; `record` resolves shared names to the record.
Value ColumnValue(const std::string& column, const FileView& file, bool record = false);

// The record fields that describe pictures: the listing leaves them out
// for files without video unless every field is asked for.
bool IsVideoField(const std::string& name);

// The reading's refusing keys, or a list of differing record fields, as
// one text: "MaximumSampleRate,MaximumBitDepth".
std::string CommaJoined(const std::vector<std::string>& names);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_COLUMNS_H
