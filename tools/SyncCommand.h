// fileinfo sync SOURCE... --to DIR --device CAPS: puts a collection on a
// device and keeps it in step. The work is core/sync's; this is the
// command line, the plan's and the run's words, and the progress line.
#ifndef FILEINFO_TOOLS_SYNCCOMMAND_H
#define FILEINFO_TOOLS_SYNCCOMMAND_H

// The exit statuses of fileinfo sync, beside the tool's own (0, 1, 2, 130).
enum SyncExitStatus : int {
    kSyncExitNoRoom = 4,  // the plan does not fit on the device: nothing was written
    kSyncExitRefused = 5, // another sync holds the device folder, or its manifest is newer
};

// argv[0] is "sync". Returns the exit status: 0 when the plan was carried
// out (skipped files are not failures), 1 when some file could not be
// written or removed or the device failed, 2 for a usage error, 4, 5, or
// 130 after Ctrl-C (the files in flight were finished).
int RunSyncCommand(int argc, char** argv);

#endif  // FILEINFO_TOOLS_SYNCCOMMAND_H
