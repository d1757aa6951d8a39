#include "FileOps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "SafeEdit.h"

namespace fileinfo {

namespace {

const char kTempMark[] = ".fileinfo-";
// The mark's value: "copy", then " INODE NAME" once a backup is named.
const char kMarkCopy[] = "copy";
constexpr size_t kTempRandom = 6;  // the XXXXXX of mkostemp
constexpr size_t kBlock = 1 << 16;


// pread() of up to `size` bytes at `offset`; -1 with errno on failure.
ssize_t ReadAt(int fd, char* data, size_t size, off_t offset) {
    for (;;) {
        const ssize_t n = pread(fd, data, size, offset);
        if (n < 0 && errno == EINTR) continue;
        return n;
    }
}

// Full reads: short only at the end of the file.
ssize_t ReadFull(int fd, char* data, size_t size, off_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ReadAt(fd, data + done, size - done, offset + static_cast<off_t>(done));
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

bool IsTempRandomChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

// What the mark of a temporary file says.
struct Mark {
    bool ours = false;            // the file carries an edit's mark
    ino_t backupInode = 0;        // the original's inode, when a backup was named
    std::string backupName;       // that backup's name, in the same folder
};

Mark ReadMark(int fd) {
    Mark mark;
    char value[512];
    const ssize_t n = fgetxattr(fd, kEditMarkAttribute, value, sizeof value - 1);
    if (n < static_cast<ssize_t>(strlen(kMarkCopy))) return mark;
    const std::string text(value, static_cast<size_t>(n));
    if (text.compare(0, strlen(kMarkCopy), kMarkCopy) != 0) return mark;
    mark.ours = text.size() == strlen(kMarkCopy) || text[strlen(kMarkCopy)] == ' ';
    if (!mark.ours || text.size() == strlen(kMarkCopy)) return mark;
    const std::string rest = text.substr(strlen(kMarkCopy) + 1);
    const size_t space = rest.find(' ');
    if (space == std::string::npos || space == 0) return mark;
    unsigned long long inode = 0;
    for (size_t i = 0; i < space; ++i) {
        if (rest[i] < '0' || rest[i] > '9' || inode > (~0ull) / 10 - 10) return mark;
        inode = inode * 10 + static_cast<unsigned long long>(rest[i] - '0');
    }
    mark.backupInode = static_cast<ino_t>(inode);
    mark.backupName = rest.substr(space + 1);
    return mark;
}

// The file NAME that the temporary file ".NAME.fileinfo-XXXXXX" is a copy of.
std::string OriginalNameOfTemp(const std::string& temp) {
    return temp.substr(1, temp.size() - 1 - strlen(kTempMark) - kTempRandom);
}

// The backup the mark names, when it is still a second name of the original
// that the edit never replaced: same inode under both names, the backup's
// name one of the original's backup names, owned by us.
bool IsPendingBackup(const std::string& folder, const std::string& tempName, const Mark& mark, dev_t device) {
    if (mark.backupName.empty() || mark.backupName.find('/') != std::string::npos) return false;
    const std::string original = OriginalNameOfTemp(tempName);
    if (OriginalOfBackup(mark.backupName) != original) return false;
    struct stat backup, file;
    if (lstat((folder + "/" + mark.backupName).c_str(), &backup) != 0 ||
        stat((folder + "/" + original).c_str(), &file) != 0)
        return false;
    return S_ISREG(backup.st_mode) && backup.st_dev == device && file.st_dev == device &&
           backup.st_ino == mark.backupInode && file.st_ino == mark.backupInode && backup.st_uid == geteuid();
}

// Opens `name` in `folder` when it is a temporary file of a dead edit:
// ours by owner and mark, and not held by a running edit (which holds its
// temporary file locked from creation on). The lock is kept on `fd`.
bool OpenStale(const std::string& folder, const std::string& name, UniqueFd& fd, Mark& mark, struct stat& st) {
    const std::string path = folder + "/" + name;
    fd = UniqueFd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) return false;
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid()) return false;
    mark = ReadMark(fd.get());
    if (!mark.ours) return false;
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
    // The name may have been taken by a new file since it was opened.
    return NamesFile(path, fd.get());
}

// Removes `name` in `folder` when it is a stale temporary file of an edit,
// and first the backup it names if the edit never replaced the file (so
// that a death in between leaves the mark to find it by). Files removed.
int RemoveIfStale(const std::string& folder, const std::string& name) {
    UniqueFd fd;
    Mark mark;
    struct stat st;
    if (!OpenStale(folder, name, fd, mark, st)) return 0;
    int removed = 0;
    if (IsPendingBackup(folder, name, mark, st.st_dev) && unlink((folder + "/" + mark.backupName).c_str()) == 0)
        ++removed;
    return removed + (unlink((folder + "/" + name).c_str()) == 0 ? 1 : 0);
}

std::vector<std::string> TempNamesIn(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (const dirent* entry = readdir(dir))
            if (IsEditTempName(entry->d_name)) names.push_back(entry->d_name);
        closedir(dir);
    }
    return names;
}

}  // namespace

// write() until all is written; a zero-byte write counts as out of space.
int WriteAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return errno;
        if (n == 0) return ENOSPC;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return 0;
}

const char* const kNulInPath = "the path holds a NUL byte";

bool PathHoldsNul(const std::string& path) { return path.find('\0') != std::string::npos; }

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        Reset();
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

void UniqueFd::Reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
}

std::string FolderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The start of the next hole at or after `offset`, or -1 when the file
// system does not tell (then the rest is copied as data).
off_t NextHole(int fd, off_t offset) { return lseek(fd, offset, SEEK_HOLE); }

int CopyContents(int from, int to) {
    std::vector<char> block(kBlock);
    struct stat st;
    if (fstat(from, &st) != 0) return errno;
    off_t offset = 0;
    off_t hole = NextHole(from, 0);
    for (;;) {
        if (hole >= 0 && offset >= hole && offset < st.st_size) {
            // Skip the hole: the copy gets one too, by seeking past it.
            const off_t data = lseek(from, offset, SEEK_DATA);
            if (data < 0) {
                if (errno != ENXIO) return errno;
                offset = st.st_size;  // a hole to the end
            } else {
                offset = data;
            }
            if (lseek(to, offset, SEEK_SET) < 0) return errno;
            hole = offset < st.st_size ? NextHole(from, offset) : -1;
            continue;
        }
        size_t want = block.size();
        if (hole > offset && static_cast<off_t>(want) > hole - offset) want = static_cast<size_t>(hole - offset);
        const ssize_t n = ReadAt(from, block.data(), want, offset);
        if (n < 0) return errno;
        if (n == 0) break;
        if (const int error = WriteAll(to, block.data(), static_cast<size_t>(n))) return error;
        offset += n;
    }
    // A file that ends in a hole has its size from here.
    struct stat copied;
    if (fstat(to, &copied) != 0) return errno;
    if (copied.st_size < offset && ftruncate(to, offset) != 0) return errno;
    return 0;
}

bool SameContents(int a, int b, int& error) {
    error = 0;
    std::vector<char> first(kBlock), second(kBlock);
    for (off_t offset = 0;; offset += static_cast<off_t>(kBlock)) {
        const ssize_t n = ReadFull(a, first.data(), kBlock, offset);
        const ssize_t m = ReadFull(b, second.data(), kBlock, offset);
        if (n < 0 || m < 0) {
            error = errno;
            return false;
        }
        if (n != m || memcmp(first.data(), second.data(), static_cast<size_t>(n)) != 0) return false;
        if (n == 0) return true;
    }
}

int SyncFolder(const std::string& folder) {
    UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.valid()) return errno;
    return fsync(fd.get()) == 0 ? 0 : errno;
}

bool NamesFile(const std::string& path, int fd) {
    struct stat named, open;
    if (stat(path.c_str(), &named) != 0 || fstat(fd, &open) != 0) return false;
    return named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

EditTempFile::~EditTempFile() {
    if (!kept_) Drop();
}

int EditTempFile::Create(const std::string& target) {
    // A cleaner of another run may take the new name for a stale one in the
    // moment before it is locked; then it is gone and a new one is made.
    for (int attempt = 0; attempt < 8; ++attempt) {
        std::string pattern = FolderOf(target) + "/." + NameOf(target) + kTempMark + std::string(kTempRandom, 'X');
        UniqueFd fd(mkostemp(&pattern[0], O_CLOEXEC));
        if (!fd.valid()) return errno;
        if (flock(fd.get(), LOCK_EX) != 0) {
            const int error = errno;
            unlink(pattern.c_str());
            return error;
        }
        if (NamesFile(pattern, fd.get())) {
            // Unmarked where the file system keeps no marks: then no cleaner
            // will ever take it for a leftover.
            fsetxattr(fd.get(), kEditMarkAttribute, kMarkCopy, strlen(kMarkCopy), 0);
            fd_ = std::move(fd);
            path_ = pattern;
            return 0;
        }
    }
    return EEXIST;
}

int EditTempFile::MarkBackup(const std::string& backupName, ino_t inode) {
    const std::string value = std::string(kMarkCopy) + " " + std::to_string(inode) + " " + backupName;
    if (fsetxattr(fd_.get(), kEditMarkAttribute, value.data(), value.size(), 0) != 0)
        return errno == EOPNOTSUPP ? ENOTSUP : errno;
    return 0;
}

void EditTempFile::Unmark() {
    if (fd_.valid()) fremovexattr(fd_.get(), kEditMarkAttribute);
}

void EditTempFile::Drop() {
    if (fd_.valid() && NamesFile(path_, fd_.get())) unlink(path_.c_str());
    fd_.Reset();
    kept_ = true;
}

bool IsEditTempName(const std::string& name) {
    const size_t mark = name.rfind(kTempMark);
    if (name.size() < 2 || name[0] != '.' || mark == std::string::npos || mark < 2) return false;
    if (name.size() != mark + strlen(kTempMark) + kTempRandom) return false;
    for (size_t i = name.size() - kTempRandom; i < name.size(); ++i)
        if (!IsTempRandomChar(name[i])) return false;
    return true;
}

const char kEditMarkAttribute[] = "user.fileinfo.edit";

int RemoveStaleTempFiles(const std::string& folder) {
    int removed = 0;
    for (const std::string& name : TempNamesIn(folder)) removed += RemoveIfStale(folder, name);
    return removed;
}

int PendingBackupsOf(const std::string& path, const struct stat& st) {
    const std::string folder = FolderOf(path), name = NameOf(path);
    int pending = 0;
    for (const std::string& temp : TempNamesIn(folder)) {
        if (OriginalNameOfTemp(temp) != name) continue;
        UniqueFd fd;
        Mark mark;
        struct stat tempStatus;
        if (OpenStale(folder, temp, fd, mark, tempStatus) && mark.backupInode == st.st_ino &&
            IsPendingBackup(folder, temp, mark, st.st_dev))
            ++pending;
    }
    return pending;
}

}  // namespace fileinfo
