// Putting a backup back: a copy of it, with its owner, mode and times,
// renamed over the file, so that the file is either as it was or the
// backup's bytes, and the backup stays for another time.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "FileOps.h"
#include "SafeEdit.h"

namespace fileinfo {

namespace {

EditResult Outcome(EditStatus status, const std::string& reason, int error) {
    EditResult result;
    result.status = status;
    result.reason = reason;
    result.error = error;
    return result;
}

// The file a path leads to, its links followed; the path itself when it
// names nothing yet.
std::string Resolved(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return path;
    std::string target = resolved;
    free(resolved);
    return target;
}

// Holds the file at `target`, if any, locked against edits. Refusal text
// or empty.
std::string LockTarget(const std::string& target, UniqueFd& lock, int& error) {
    lock = UniqueFd(open(target.c_str(), O_RDONLY | O_CLOEXEC));
    if (!lock.valid()) return errno == ENOENT ? std::string() : (error = errno, "cannot open the file");
    struct stat st;
    if (fstat(lock.get(), &st) != 0) return error = errno, "cannot read the file's status";
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    if (st.st_nlink > 1) return "the file has hard links, and a new file in its place would part them";
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return "another edit of this file is in progress";
    return std::string();
}

}  // namespace

EditResult RestoreBackup(const std::string& backupPath, const std::string& originalPath) {
    if (PathHoldsNul(backupPath) || PathHoldsNul(originalPath)) return Outcome(EditStatus::Failed, kNulInPath, EINVAL);
    const std::string original = originalPath.empty() ? OriginalOfBackup(backupPath) : originalPath;
    if (original.empty())
        return Outcome(EditStatus::Refused, "not the name of a backup (NAME.orig.EXT or NAME.orig-N.EXT)", 0);
    UniqueFd backup(open(backupPath.c_str(), O_RDONLY | O_CLOEXEC));
    if (!backup.valid()) return Outcome(EditStatus::Failed, "cannot open the backup", errno);
    struct stat st;
    if (fstat(backup.get(), &st) != 0) return Outcome(EditStatus::Failed, "cannot read the backup's status", errno);
    if (!S_ISREG(st.st_mode)) return Outcome(EditStatus::Refused, "the backup is not a regular file", 0);

    const std::string target = Resolved(original);
    RemoveStaleTempFiles(FolderOf(target));
    UniqueFd lock;
    int error = 0;
    const std::string refusal = LockTarget(target, lock, error);
    if (!refusal.empty()) return Outcome(error != 0 ? EditStatus::Failed : EditStatus::Refused, refusal, error);

    EditTempFile copy;
    if ((error = copy.Create(target)) != 0)
        return Outcome(EditStatus::Failed, "cannot create a temporary file beside it", error);
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if (fchown(copy.fd(), st.st_uid, st.st_gid) != 0 || fchmod(copy.fd(), st.st_mode & 07777) != 0)
        return Outcome(EditStatus::Failed, "cannot give the copy the backup's owner and mode", errno);
    if ((error = CopyContents(backup.get(), copy.fd())) != 0)
        return Outcome(EditStatus::Failed, "copying the backup failed", error);
    if (futimens(copy.fd(), times) != 0 || fsync(copy.fd()) != 0)
        return Outcome(EditStatus::Failed, "syncing the copy failed", errno);
    if (!SameContents(backup.get(), copy.fd(), error))
        return Outcome(EditStatus::Failed, "the copy does not hold the backup's bytes", error != 0 ? error : EIO);
    if (rename(copy.path().c_str(), target.c_str()) != 0)
        return Outcome(EditStatus::Failed, "replacing the file failed", errno);
    copy.Keep();
    EditResult result = Outcome(EditStatus::Changed, std::string(), 0);
    result.path = target;
    result.backupPath = backupPath;
    result.touched = true;
    if ((error = SyncFolder(FolderOf(target))) != 0) {
        result.status = EditStatus::Failed;
        result.reason = "the file holds the backup's bytes, but syncing its folder failed";
        result.error = error;
    }
    return result;
}

}  // namespace fileinfo
