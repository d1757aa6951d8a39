// The fileinfo command line as a function: the `fileinfo` program is one
// call of it, and the Python package's `python -m fileinfo` another, so
// both print the same bytes and end with the same status for every option.
#ifndef FILEINFO_TOOLS_TOOL_H
#define FILEINFO_TOOLS_TOOL_H

#include <string>
#include <vector>

namespace fileinfo {

// Runs `fileinfo argv[1] ...` (argv[0] names the program) and returns its
// exit status. Output goes to the process's standard output descriptor,
// messages to standard error; while it runs, descriptor 1 points at
// standard error (see ToolOutput.h) and SIGINT stops the run with status
// 130. On return, descriptor 1 and the SIGINT handler are as they were.
// Not reentrant: one run at a time in a process.
int RunTool(int argc, char** argv);

// A subcommand: `fileinfo NAME ARGS...`. One table lists them all, for
// the dispatch, --help and the tests that check the manual page and the
// shell completion name each.
struct Subcommand {
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv);  // argv[0] is the name
};
const std::vector<Subcommand>& Subcommands();

// What --help adds after the options: the subcommands, one a line.
std::string SubcommandHelp();

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_TOOL_H
