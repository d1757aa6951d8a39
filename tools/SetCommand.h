// fileinfo --set and --restore: tag edits through the shared safe edit.
#ifndef FILEINFO_TOOLS_SETCOMMAND_H
#define FILEINFO_TOOLS_SETCOMMAND_H

#include <functional>
#include <string>
#include <vector>

#include "SafeEdit.h"

struct SetCommandOptions {
    std::vector<std::string> assignments;  // FIELD=VALUE, as typed
    std::vector<std::string> paths;        // files and folders; backups with `restore`
    bool restore = false;                  // put the backups in `paths` back
    bool dryRun = false;
    bool force = false;
    bool backup = true;
    fileinfo::EditWriter writer = fileinfo::EditWriter::Fields;
    bool id3v23 = false;  // the fields writer writes ID3v2.4 tags as ID3v2.3
    // Lists one file as the tool lists it (text or JSON); false when it did
    // not load. Called for every file edited, with the record read back.
    std::function<bool(const std::string& path)> listFile;
};

// The exit status of the whole run: 0 when every file was edited (or, with
// dryRun, could be), 1 when one was refused or failed, 2 on a usage error.
int RunSetCommand(const SetCommandOptions& options);

#endif  // FILEINFO_TOOLS_SETCOMMAND_H
