// fileinfo PATH...: scans files and folders, shows every file in the
// chosen view, reports what could not be read, and totals the run.
#ifndef FILEINFO_TOOLS_SCANCOMMAND_H
#define FILEINFO_TOOLS_SCANCOMMAND_H

#include "Options.h"

namespace fileinfo {

// `terminal`: standard output is a terminal. `width`: the terminal's
// columns, or $COLUMNS, 0 when neither is known. Returns the exit status.
int RunScanCommand(Options options, bool terminal, unsigned width);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_SCANCOMMAND_H
