// --json: one compact JSON object per file and line.
//
// Written by hand into one reused buffer: a long scan spends its time in
// the library, not in building documents. The form is the compact one of
// common JSON writers: no spaces, keys in a fixed order, numbers in
// decimal, strings in UTF-8 with only the quote, the backslash and the
// control characters escaped. Each line is written into room sized for its
// longest possible form first, so the writing itself never checks room.
#ifndef FILEINFO_TOOLS_JSONLINE_H
#define FILEINFO_TOOLS_JSONLINE_H

#include <ostream>
#include <string>
#include <vector>

#include "Columns.h"

namespace fileinfo {

class JsonLineWriter {
public:
    // The whole line: path (and path_bytes when the path is no UTF-8),
    // status, status_text, is_audio, is_video, has_tags, identified, record,
    // then media (the reading: null, with reading_error, when the file could
    // not be read) and record_differs (null when there is no record or no
    // identified reading to compare); with a device "playable" (the
    // reading's verdict), with `explain` "refused_by" (its first refusing
    // key) and "explanation" too, and "verdict" and "library_verdict";
    // "warnings" when there are any.
    //
    // `record`: the line of the record alone, as it was before readings:
    // no media, record_differs or verdicts, and "playable", "refused_by" and
    // "explanation" the library's.
    void Write(std::ostream& out, const FileView& file, bool explain, bool record = false);
    // Only the chosen columns, flat, in their order.
    void WriteColumns(std::ostream& out, const FileView& file, const std::vector<std::string>& columns,
                      bool record = false);

private:
    std::string line_;  // room for the longest line so far; only its start is used
    std::string tail_;  // the reading's keys of the line being written
};

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_JSONLINE_H
