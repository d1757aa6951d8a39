// Carries out a plan on the device folder, so that at every moment the
// device holds only complete files under their final names, and the
// manifest says which of them sync put there.
//
// Files are written in batches: the manifest first records each file's
// intent (its row, pending, with the name of its temporary file); each file
// is written under that temporary name in its own folder, with the
// source's modification time; the batch is synced to the device; each file
// is renamed into place, the folders are synced; then the rows are
// committed as done. A run stopped anywhere leaves pending rows: the next
// run removes their temporary files, and finds by comparing bytes which
// renamed copies were complete. Removals come first, to make room.
//
// An update that replaces a file of another name (its type changed) writes
// the new file like any other; the old file's row is marked pending in the
// batch's first commit, the old file is removed once the new one is in
// place and synced, and its row goes in the batch's last commit. A run
// stopped in between leaves both rows of the source: the next one finishes
// the replacement (see Plan).
#ifndef FILEINFO_CORE_SYNC_EXECUTOR_H
#define FILEINFO_CORE_SYNC_EXECUTOR_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sync/Manifest.h"
#include "sync/Plan.h"

namespace fileinfo {
namespace sync {

// The mark in the name of every temporary file sync makes:
// ".fileinfo-sync-XXXXXXXXXXXX.tmp".
extern const char kTempMark[];
bool IsSyncTempName(const std::string& name);

// A scratch file for a sync's own working bytes (the plan's records, a
// conversion before it is copied into place) in the folder `folderFd`:
// unnamed (O_TMPFILE) where the file system has such files and `unnamed`;
// otherwise, when `mayName`, one named ".fileinfo-sync-scratch-
// XXXXXXXXXXXX.tmp" and unlinked at once (FAT has no unnamed files). -1,
// with errno, when neither can be had. Nothing outside the device folder
// is written, and a run killed between the name's making and its unlinking
// leaves a name that the next run's RemoveLeftoverScratch removes.
int OpenScratchFile(int folderFd, bool mayName, bool unnamed = true);
bool IsSyncScratchName(const std::string& name);
// Removes the scratch names left in the folder `folderFd` by killed runs:
// regular files of this user with the scratch mark. Called only with the
// device folder locked, when no other sync can be making one. How many.
size_t RemoveLeftoverScratch(int folderFd);

struct ExecuteProgress {
    size_t filesDone = 0;
    size_t filesTotal = 0;
    uint64_t bytesDone = 0;
    uint64_t bytesTotal = 0;
    std::string current;  // the device path being written
};

// Makes a device file's bytes in `out`, an empty file open for writing,
// from the entry's source. 0, or an errno with `error` in words.
using Producer = std::function<int(const PlanEntry& entry, int out, std::string& error)>;
// Checks a made file before it lands; an empty answer lands it, any other
// is why not (the file is deleted and the entry fails).
using Prover = std::function<std::string(const PlanEntry& entry, int fd)>;

// The source's own bytes, as a producer for entries without a target.
int CopySource(const PlanEntry& entry, int out, std::string& error);

struct ExecuteOptions {
    // For entries with a target other than a playlist's; null: those fail.
    Producer produce;
    Prover prove;
    // Asked between files: true stops the run after the files in flight.
    std::function<bool()> stopRequested;
    std::function<void(const ExecuteProgress&)> progress;
    std::string capsDigest;
    // A batch: each costs two syncs of the device and two commits.
    size_t batchFiles = 256;
    uint64_t batchBytes = 256u << 20;
};

enum class EntryResult : unsigned char { kNotRun, kDone, kFailed };

struct RunResult {
    size_t done[kActionCount] = {};  // by the action carried out
    size_t skipped = 0;
    size_t failed = 0;
    uint64_t bytesWritten = 0;
    double seconds = 0;
    bool interrupted = false;
    // A failure of the device itself (full, gone, read-only, the manifest
    // not written): the run stopped there.
    bool deviceFailed = false;
    std::string deviceError;
    size_t tempFilesRemoved = 0;
    std::vector<EntryResult> results;  // one per plan entry
    std::vector<std::pair<size_t, std::string>> failures;  // entry, why
};

// Carries out `plan`; the device folder must be locked (SyncLock) and the
// manifest open for writing.
RunResult Execute(const Plan& plan, Manifest& manifest, const ExecuteOptions& options);

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_EXECUTOR_H
