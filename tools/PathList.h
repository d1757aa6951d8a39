// Paths read from a list rather than the command line: `-` or --from FILE,
// one per line, or NUL-separated with -0 as find -print0 writes them.
#ifndef FILEINFO_TOOLS_PATHLIST_H
#define FILEINFO_TOOLS_PATHLIST_H

#include <string>
#include <vector>

namespace fileinfo {

// Appends the paths listed in `source` ("-" for standard input). Empty
// entries are passed over; with lines, a CR before the line end is kept,
// as it may be part of a name. False, with the system's reason in
// `error`, when the list cannot be read.
bool ReadPathList(const std::string& source, bool nul, std::vector<std::string>& paths, std::string& error);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_PATHLIST_H
