// fileinfo --set FIELD=VALUE... PATH: writes tags through the library,
// then shows what it reads back.
#ifndef FILEINFO_TOOLS_SETCOMMAND_H
#define FILEINFO_TOOLS_SETCOMMAND_H

#include <string>
#include <vector>

namespace fileinfo {

// Checks the assignments and the one path (usage errors: exit status 2),
// writes, and returns the exit status of the whole run. The original is
// kept in PATH.bak when `backup`; the read-back is a JSON line with `json`.
int RunSetCommand(const std::vector<std::string>& assignments, const std::vector<std::string>& paths, bool backup,
                  bool json);

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_SETCOMMAND_H
