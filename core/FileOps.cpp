#include "FileOps.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "SafeEdit.h"

namespace fileinfo {

namespace {

const char kTempMark[] = ".fileinfo-";
constexpr size_t kTempRandom = 6;  // the XXXXXX of mkostemp
constexpr size_t kBlock = 1 << 16;

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

// Removes `name` in `folder` when it is a temporary file nobody holds.
bool RemoveIfStale(const std::string& folder, const std::string& name) {
    const std::string path = folder + "/" + name;
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) return false;
    struct stat st;
    if (fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    // A running edit holds its temporary file locked from creation on.
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) return false;
    // The name may have been taken by a new file since it was opened.
    if (!NamesFile(path, fd.get())) return false;
    return unlink(path.c_str()) == 0;
}

}  // namespace

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

int CopyContents(int from, int to) {
    std::vector<char> block(kBlock);
    off_t offset = 0;
    for (;;) {
        const ssize_t n = ReadAt(from, block.data(), block.size(), offset);
        if (n < 0) return errno;
        if (n == 0) return 0;
        if (const int error = WriteAll(to, block.data(), static_cast<size_t>(n))) return error;
        offset += n;
    }
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
            fd_ = std::move(fd);
            path_ = pattern;
            return 0;
        }
    }
    return EEXIST;
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

int RemoveStaleTempFiles(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (const dirent* entry = readdir(dir))
            if (IsEditTempName(entry->d_name)) names.push_back(entry->d_name);
        closedir(dir);
    }
    int removed = 0;
    for (const std::string& name : names) removed += RemoveIfStale(folder, name) ? 1 : 0;
    return removed;
}

}  // namespace fileinfo
