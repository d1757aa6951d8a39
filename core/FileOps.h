// Internal to the safe edit: descriptors, copies, syncs and the temporary
// files of an edit. Every function returns 0 or the errno of the call that
// failed.
#ifndef FILEINFO_CORE_FILEOPS_H
#define FILEINFO_CORE_FILEOPS_H

#include <sys/stat.h>

#include <cstddef>
#include <string>

namespace fileinfo {

// Paths with a NUL byte reach no system call whole (the call would act on
// the part before it): every front end refuses them with this reason and
// EINVAL.
extern const char* const kNulInPath;
bool PathHoldsNul(const std::string& path);

// A descriptor closed when it goes out of scope.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    void Reset();

private:
    int fd_ = -1;
};

// The folder part and the name part of a path without trailing slash.
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

// Copies every byte of `from` (from its start) to `to` (from its start), in
// blocks; holes of `from` stay holes where its file system shows them.
int CopyContents(int from, int to);
// True when both descriptors hold the same bytes; `error` gets a read's errno.
bool SameContents(int a, int b, int& error);
// fsync of the folder, so that a rename or a new name in it is on disk.
int SyncFolder(const std::string& folder);

// write() until all is written: 0, or errno (a zero-byte write counts as
// out of space).
int WriteAll(int fd, const char* data, size_t size);
// True when `path` names the file open on `fd` (same device and inode).
bool NamesFile(const std::string& path, int fd);

// A temporary file of an edit, ".NAME.fileinfo-XXXXXX" beside the file
// NAME, created exclusively, marked with kEditMarkAttribute and held under
// an exclusive flock for as long as it is open: a file of that name and
// mark that nobody holds locked was left by a run that died. Removed when
// dropped, unless Keep() was called (it was renamed into place).
class EditTempFile {
public:
    EditTempFile() = default;
    ~EditTempFile();
    EditTempFile(const EditTempFile&) = delete;
    EditTempFile& operator=(const EditTempFile&) = delete;

    // Creates the file beside `target`. 0 or errno.
    int Create(const std::string& target);
    int fd() const { return fd_.get(); }
    const std::string& path() const { return path_; }
    // The file is no longer ours to remove.
    void Keep() { kept_ = true; }
    // Records in the mark that the edit is about to give the original the
    // second name `backupName` (no folder); `inode` is the original's. 0 or
    // errno (ENOTSUP where the file system keeps no marks).
    int MarkBackup(const std::string& backupName, ino_t inode);
    // Takes the mark off (once renamed into place, it is the user's file).
    void Unmark();
    // Removes it now.
    void Drop();

private:
    UniqueFd fd_;
    std::string path_;
    bool kept_ = false;
};

// How many second names of the file `path` (whose status is `st`) killed
// edits left in its folder: backups named in the mark of a stale temporary
// file, still of the same inode. Nothing is removed.
int PendingBackupsOf(const std::string& path, const struct stat& st);

}  // namespace fileinfo

#endif  // FILEINFO_CORE_FILEOPS_H
