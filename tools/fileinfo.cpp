// fileinfo: shows what libFileInfo reads from media files, for people (a
// table or a labelled listing), for spreadsheets (csv, tsv) and for scripts
// (one JSON object per line); says whether a device plays them; writes tags.
#include <CLI/CLI.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Options.h"
#include "ScanCommand.h"
#include "SetCommand.h"
#include "ToolOutput.h"
#include "Views.h"
#include "report/ReportCommand.h"

namespace {

// The terminal's width, from the saved standard output or $COLUMNS.
unsigned TerminalWidth(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* columns = getenv("COLUMNS");
    return columns != nullptr ? static_cast<unsigned>(atoi(columns)) : 0;
}

}  // namespace

int main(int argc, char** argv) {
    fileinfo::ToolOutput output;
    // fileinfo report PATH... -o FILE: the collection page.
    if (argc > 1 && strcmp(argv[1], "report") == 0) return RunReportCommand(argc - 1, argv + 1);
    CLI::App app{"Shows what libFileInfo reads from media files.", "fileinfo"};
    fileinfo::Options options;
    fileinfo::DeclareOptions(app, options);
    const int parsed = fileinfo::ParseCommandLine(app, options, argc, argv);
    if (parsed >= 0) return parsed;
    if (!options.assignments.empty() || options.restore) {
        SetCommandOptions set;
        set.assignments = options.assignments;
        set.paths = options.paths;
        set.restore = options.restore;
        set.dryRun = options.dryRun;
        set.force = options.force;
        fileinfo::ParseEditWriter(options.writer, set.writer);
        set.id3v23 = options.id3v23;
        set.backup = !options.noBackup;
        const bool json = options.format == fileinfo::Format::kJson;
        set.listFile = [json](const std::string& path) { return fileinfo::ShowReadBack(std::cout, path, json); };
        return RunSetCommand(set);
    }
    return fileinfo::RunScanCommand(options, output.Terminal(), output.Terminal() ? TerminalWidth(output.Fd()) : 0);
}
