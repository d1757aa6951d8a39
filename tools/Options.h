// The command line: every option, its checks, and the usage errors (exit
// status 2) they give.
#ifndef FILEINFO_TOOLS_OPTIONS_H
#define FILEINFO_TOOLS_OPTIONS_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "Progress.h"
#include "Views.h"

namespace fileinfo {

// The exit statuses of the tool.
enum ExitStatus : int {
    kExitOk = 0,
    kExitFailure = 1,     // a path could not be read, a file did not load (or, with --strict, was not identified)
    kExitUsage = 2,       // a mistake on the command line, or a capability file that is no capability list
    kExitUnplayable = 3,  // with --fail-unplayable: a file the device cannot play, and no failure
    kExitInterrupted = 130,  // Ctrl-C: the run stopped after the line being written
};

enum class Only : unsigned char { kAll, kPlayable, kUnplayable };

struct Options {
    std::vector<std::string> paths;
    std::string from;        // --from FILE, or "-" for standard input
    bool nul = false;        // -0: the list is NUL-separated
    Format format = Format::kList;
    bool formatNamed = false;  // --format or --json given
    std::vector<std::string> fieldLists;  // --fields as given
    std::vector<std::string> columns;     // and checked
    bool allFields = false;
    bool record = false;  // --record: the library's record, as the tool showed it before readings
    bool summary = false;
    bool summaryOnly = false;
    std::string summaryFile;  // --summary-file FILE: the summary goes there
    std::string devicePath;
    bool explain = false;
    Only only = Only::kAll;
    bool failUnplayable = false;
    bool strict = false;
    std::vector<std::string> extensions;
    bool hidden = false;
    unsigned jobs = 0;
    ProgressMode progress = ProgressMode::kAuto;
    // --set and --restore
    std::vector<std::string> assignments;
    bool noBackup = false;
    bool dryRun = false;
    bool force = false;
    std::string writer = "fields";  // --writer: fields or library
    bool id3v23 = false;
    bool restore = false;
};

// Declares every option on `app`, which the caller may give subcommands of
// its own.
void DeclareOptions(CLI::App& app, Options& options);

// Parses the command line into `options`. Returns -1 to go on (then, when
// app.get_subcommands() is not empty, with a subcommand to run), or the
// exit status to end with (0 after --help or --version, 2 after a usage
// error, which it has reported).
int ParseCommandLine(CLI::App& app, Options& options, int argc, char** argv);

// What --version prints: "fileinfo X.Y.Z (libFileInfo X.Y.Z)".
std::string VersionText();

// The option nearest to a mistyped one, for "did you mean"; empty when
// none is near.
std::string NearestOption(const CLI::App& app, const std::string& given);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_OPTIONS_H
