// The columns a user can choose with --fields: the record's 28 fields by
// their names, and the facts of a result around the record (path, status,
// the three flags, whether a reader identified the file, the device's
// verdict). One value per column and file, in its machine form; the views
// turn it into text their own way.
#ifndef FILEINFO_TOOLS_COLUMNS_H
#define FILEINFO_TOOLS_COLUMNS_H

#include <string>
#include <vector>

#include "Scan.h"
#include "Verdict.h"

namespace fileinfo {

enum class ValueKind : unsigned char { kNumber, kText, kFlag };

struct Value {
    ValueKind kind = ValueKind::kText;
    bool present = true;       // false: no value (no record, no device, no refusal)
    unsigned long number = 0;  // kNumber
    bool flag = false;         // kFlag
    std::string text;          // kText, as UTF-8 (paths: their bytes)
};

// One loaded file with the device's verdict on it, if a device was given.
struct FileView {
    const ScanItem& item;
    const DeviceVerdict* verdict;  // null without --device
};

// Every column name, in the order --help lists them.
const std::vector<std::string>& ColumnNames();
bool IsColumn(const std::string& name);

// Splits "a,b,c" and checks every name. False, with the offending name in
// `unknown`, when a name is no column.
bool ParseColumns(const std::string& list, std::vector<std::string>& columns, std::string& unknown);

// The columns of csv and tsv when none are chosen; with a device the
// verdict's two follow.
std::vector<std::string> DefaultColumns(bool device);

Value ColumnValue(const std::string& column, const FileView& file);

// The record fields that describe pictures: the listing leaves them out
// for files without video unless every field is asked for.
bool IsVideoField(const std::string& name);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_COLUMNS_H
