// The record of what sync put on a device, kept in the device folder itself
// (".fileinfo-sync.db", an SQLite database), so that it travels with the
// device: one row per device file, with the source's state when it was
// written and the device file's state after.
//
// Journal: the rollback journal (journal_mode=DELETE) with
// synchronous=FULL. A commit is on the device when it returns, the device
// holds one database file between runs, and nothing needs shared memory:
// write-ahead logging would leave a log beside the database that another
// host must replay, and its shared-memory index is not safe on every file
// system a player is mounted with.
#ifndef FILEINFO_CORE_SYNC_MANIFEST_H
#define FILEINFO_CORE_SYNC_MANIFEST_H

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace fileinfo {
namespace sync {

// The names sync keeps in the device folder.
extern const char kManifestName[];  // ".fileinfo-sync.db"
extern const char kLockName[];      // ".fileinfo-sync.lock"
// True for the manifest, its journal and the lock file.
bool IsSyncOwnName(const std::string& name);

// The state of a file that decides whether it changed: any field differs.
struct FileState {
    uint64_t size = 0;
    int64_t mtimeNs = 0;
    int64_t ctimeNs = 0;
    uint64_t dev = 0;
    uint64_t ino = 0;

    static FileState Of(const struct stat& st);
    bool operator==(const FileState& o) const {
        return size == o.size && mtimeNs == o.mtimeNs && ctimeNs == o.ctimeNs && dev == o.dev && ino == o.ino;
    }
    bool operator!=(const FileState& o) const { return !(*this == o); }
};

struct ManifestRow {
    std::string devicePath;  // below the device folder, '/' between names
    std::string sourcePath;  // absolute
    FileState source;
    std::string action;      // "copy", "convert", "playlist"
    std::string target;      // what it was made as: empty for the source's own bytes
    std::string capsDigest;  // of the capability list it was judged against
    uint64_t deviceSize = 0;
    int64_t deviceMtimeNs = 0;
    // Written but not yet known to be in place: a run stopped between its
    // intent and its end. tempPath names its temporary file.
    bool pending = false;
    std::string tempPath;
};

// Whether a row's device size and time are those of its file as sync wrote
// it: a done row, or a pending one without a temporary file that keeps
// them (a file being replaced by one of another name: see Executor).
inline bool RecordsItsFile(const ManifestRow& row) {
    return !row.pending || (row.tempPath.empty() && row.deviceMtimeNs != 0);
}

// A source that was loaded, judged and skipped: judged again only when it
// or the capability list changes, so a re-sync loads none of them either.
struct SkipRow {
    std::string sourcePath;
    FileState source;
    std::string capsDigest;
    int kind = 0;  // a SkipKind
    std::string reason;
    std::string refusedBy;
    std::string libraryExplanation;
};

enum class ManifestStatus {
    kOk,
    kError,      // could not be opened or read: see the error text
    kNewer,      // of a newer schema than this program knows
    kLocked,     // another sync holds the device folder
};

// The lock of a device folder: an exclusive flock on ".fileinfo-sync.lock",
// held for the whole run, so that a second sync is refused at once.
class SyncLock {
public:
    SyncLock() = default;
    ~SyncLock();
    SyncLock(const SyncLock&) = delete;
    SyncLock& operator=(const SyncLock&) = delete;
    // kOk, kLocked, or kError with the reason.
    ManifestStatus Take(int folderFd, std::string& error);

private:
    int fd_ = -1;
};

class Manifest {
public:
    static constexpr int kSchemaVersion = 1;

    Manifest();
    ~Manifest();
    Manifest(const Manifest&) = delete;
    Manifest& operator=(const Manifest&) = delete;

    // Opens the manifest of the device folder `folder`. Writable: created
    // when missing. Read-only (a dry run): a missing manifest is an empty
    // one, and nothing is created.
    ManifestStatus Open(const std::string& folder, bool writable, std::string& error);
    bool IsOpen() const;

    // Every row, ordered by device path.
    bool Rows(std::vector<ManifestRow>& rows, std::string& error);

    // The rows are looked up one at a time rather than held, so that a
    // plan's memory does not grow with the manifest. Each row has an id
    // (its rowid) that names it for the length of a run.
    //
    // The rows of `sourcePath`, in device-path order, given to `each` until
    // it answers true. `found` tells whether one was taken.
    bool FindBySource(const std::string& sourcePath, const std::function<bool(int64_t id, ManifestRow& row)>& each,
                      std::string& error);
    // The rows whose sources lie between `first` and `last` (byte order),
    // in source then device-path order: `wanted` picks, by source, those
    // read in full and given to `each`. One pass over the source index
    // for many files, rather than one lookup each.
    bool EachInSourceRange(const std::string& first, const std::string& last,
                           const std::function<bool(const char* source, size_t size)>& wanted,
                           const std::function<void(int64_t id, ManifestRow& row)>& each, std::string& error);
    // Every row in device-path order, its id first; `wanted` picks, by id,
    // the rows read in full (the others are not).
    bool EachRow(const std::function<bool(int64_t id)>& wanted,
                 const std::function<void(int64_t id, ManifestRow& row)>& each, std::string& error);
    // Every row's device path.
    bool EachDevicePath(const std::function<void(const std::string& devicePath)>& each, std::string& error);
    // The recorded skip of `sourcePath`, when there is one.
    bool FindSkip(const std::string& sourcePath, SkipRow& row, int64_t& id, bool& found, std::string& error);
    // Every recorded skip's id and source.
    bool EachSkipSource(const std::function<void(int64_t id, const std::string& sourcePath)>& each, std::string& error);

    // A read transaction for a plan's many lookups: one shared lock and one
    // look at the journal for all of them rather than one for each. Ended
    // by EndRead, before anything is written.
    bool BeginRead(std::string& error);
    void EndRead();

    bool Begin(std::string& error);
    bool Commit(std::string& error);
    void Rollback();
    // Inserts or replaces the row of its device path.
    bool Put(const ManifestRow& row, std::string& error);
    bool Erase(const std::string& devicePath, std::string& error);

    bool SkipRows(std::vector<SkipRow>& rows, std::string& error);
    bool PutSkip(const SkipRow& row, std::string& error);
    bool EraseSkip(const std::string& sourcePath, std::string& error);

private:
    struct Db;
    std::unique_ptr<Db> db_;
};

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_MANIFEST_H
