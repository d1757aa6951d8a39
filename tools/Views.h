// The ways the tool shows files: list (a labelled block per file), table
// (one aligned line per file, for people), csv and tsv (one row per file,
// for spreadsheets), json (one object per line, for scripts).
#ifndef FILEINFO_TOOLS_VIEWS_H
#define FILEINFO_TOOLS_VIEWS_H

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Columns.h"

namespace fileinfo {

enum class Format : unsigned char { kList, kJson, kCsv, kTsv, kTable };

// "list", "json", ...; false for a name that is no format.
bool ParseFormat(const std::string& name, Format& format);

struct ViewOptions {
    Format format = Format::kList;
    std::vector<std::string> columns;  // chosen with --fields; empty: the view's own
    bool allFields = false;            // the listing keeps video fields of audio files
    bool device = false;               // a verdict comes with every file
    bool explain = false;              // and its explanation is shown
    bool record = false;               // --record: the library's record, as before readings
    // Of the terminal, for the table. The record's table (--record) takes
    // 0 as "no terminal"; the reading's table fits any width, 80 for 0.
    unsigned width = 0;
};

class View {
public:
    virtual ~View() = default;
    // Called once before the first file (a header row, say).
    virtual void Begin() {}
    virtual void File(const FileView& file) = 0;
};

std::unique_ptr<View> MakeView(const ViewOptions& options, std::ostream& out);

// A text shown on a terminal: control characters (C0, DEL and C1, which
// a terminal may act on) become \xNN, so that no tag or file name can move
// the cursor or change the terminal's state; the backslash itself becomes
// \\, so that every shown text reads back to one text only.
std::string ForTerminal(const std::string& utf8);

// The listing of one file, as --set prints its read-back too.
void WriteListing(std::ostream& out, const FileView& file, bool allFields, bool explain,
                  const std::vector<std::string>& columns);

// Loads one file and shows it as a listing, or as a JSON line with
// `json`: what --set shows of a file it edited. False when it did not load.
bool ShowReadBack(std::ostream& out, const std::string& path, bool json);

// The listing of one file's reading: its fields, where the record differs,
// and the verdicts.
void WriteReadingListing(std::ostream& out, const FileView& file, bool allFields, bool explain,
                         const std::vector<std::string>& columns);

// How many columns a UTF-8 text takes on a terminal: East Asian wide
// characters take two, combining marks none, others one.
size_t DisplayWidth(const std::string& utf8);

// A text cut to at most `width` columns, with "…" where it was cut: its
// end (titles), or with `keepEnd` its start (paths, whose names matter).
std::string FitText(const std::string& utf8, size_t width, bool keepEnd);

// Why a file did not load, in words a person acts on, where the status
// alone misleads: "empty file" for a 0-byte file (status 6 says "cannot
// stat, or file too short"). Empty when the status says it all.
std::string FailureNote(const ScanItem& item);

// Durations for people: h:mm:ss, and m:ss.mmm in the listing.
std::string HoursMinutesSeconds(unsigned long ms);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_VIEWS_H
