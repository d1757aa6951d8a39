#include "Tool.h"

#include <CLI/CLI.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>

#include "Options.h"
#include "Progress.h"
#include "ScanCommand.h"
#include "SetCommand.h"
#include "SyncCommand.h"
#include "ToolOutput.h"
#include "Views.h"
#include "report/ReportCommand.h"

namespace fileinfo {

namespace {

// The terminal's width, from the saved standard output or $COLUMNS; 0 when
// neither gives one.
unsigned TerminalWidth(int fd) {
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* columns = getenv("COLUMNS");
    return columns != nullptr ? static_cast<unsigned>(atoi(columns)) : 0;
}

// Puts back the SIGINT handler a run installed, so that a host process
// (the Python interpreter) gets its own back.
class InterruptScope {
public:
    InterruptScope() = default;
    ~InterruptScope() { RestoreInterruptHandler(); }
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;
};

int RunMain(int argc, char** argv, const ToolOutput& output) {
    CLI::App app{"Shows what libFileInfo reads from media files.", "fileinfo"};
    app.footer(SubcommandHelp());
    Options options;
    DeclareOptions(app, options);
    const int parsed = ParseCommandLine(app, options, argc, argv);
    if (parsed >= 0) return parsed;
    if (!options.assignments.empty() || options.restore) {
        SetCommandOptions set;
        set.assignments = options.assignments;
        set.paths = options.paths;
        set.restore = options.restore;
        set.dryRun = options.dryRun;
        set.force = options.force;
        ParseEditWriter(options.writer, set.writer);
        set.id3v23 = options.id3v23;
        set.backup = !options.noBackup;
        const bool json = options.format == Format::kJson;
        set.listFile = [json](const std::string& path) { return ShowReadBack(std::cout, path, json); };
        return RunSetCommand(set);
    }
    return RunScanCommand(options, output.Terminal(), TerminalWidth(output.Fd()));
}

}  // namespace

const std::vector<Subcommand>& Subcommands() {
    static const std::vector<Subcommand> kSubcommands = {
        {"report", "write one self-contained HTML page about a collection", RunReportCommand},
        {"sync", "put a collection on a device and keep it in step", RunSyncCommand},
    };
    return kSubcommands;
}

std::string SubcommandHelp() {
    std::string text = "Subcommands:\n";
    for (const Subcommand& s : Subcommands()) {
        std::string name = std::string("  fileinfo ") + s.name + " ...";
        name.resize(std::max<size_t>(name.size() + 2, 30), ' ');
        text += name + s.summary + "\n";
    }
    return text + "Run 'fileinfo SUBCOMMAND --help' for a subcommand's options.";
}

int RunTool(int argc, char** argv) {
    ToolOutput output;
    InterruptScope interrupts;
    if (argc > 1) {
        for (const Subcommand& s : Subcommands()) {
            if (strcmp(argv[1], s.name) == 0) return s.run(argc - 1, argv + 1);
        }
    }
    return RunMain(argc, argv, output);
}

}  // namespace fileinfo
