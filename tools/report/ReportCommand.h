// fileinfo report PATH... -o FILE: the collection page, as a command.
#ifndef FILEINFO_TOOLS_REPORTCOMMAND_H
#define FILEINFO_TOOLS_REPORTCOMMAND_H

// argv[0] is "report". Returns the exit status: 0 when the page was
// written and every path could be reached, 1 when some path could not be
// (the page is written all the same) or the page could not be written,
// 2 for a usage error.
int RunReportCommand(int argc, char** argv);

#endif  // FILEINFO_TOOLS_REPORTCOMMAND_H
