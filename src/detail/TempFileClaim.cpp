#include "detail/TempFileClaim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <time.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <unordered_map>

#include "MediaFileInfo.h"

namespace {

// What one reader holds: a descriptor of the file it wrote, which holds the
// lock while its load runs and, open until the file is removed, keeps the
// file's inode from being reused by another file of the same name; and
// which file that is.
struct Claim {
    int fd = -1;
    bool locked = false;
    dev_t device = 0;
    ino_t inode = 0;
};

// Keyed by reader; touched only when a compressed movie header is met.
std::mutex& ClaimsMutex() {
    static std::mutex m;
    return m;
}
std::unordered_map<const void*, Claim>& Claims() {
    static std::unordered_map<const void*, Claim> claims;
    return claims;
}

thread_local int tempFileError = 0;

// How long a load waits for another to let go of the file, and what may end
// the wait early: never without end, as a load that holds the lock may be
// stuck, or another user's program may hold it on purpose.
std::atomic<unsigned> waitMilliseconds{10000};
std::atomic<int (*)()> interruptCheck{nullptr};
constexpr long kWaitStepNanoseconds = 10 * 1000 * 1000;

// Takes the lock, trying again every few milliseconds until the bound: 0,
// or EWOULDBLOCK when the bound ran out, EINTR when the check ended it.
int LockWithinBound(int fd) {
    const unsigned bound = waitMilliseconds.load();
    unsigned waited = 0;
    for (;;) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) return 0;
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return errno;
        int (*const check)() = interruptCheck.load();
        if (check != nullptr && check() != 0) return EINTR;
        if (waited >= bound) return EWOULDBLOCK;
        const struct timespec step = {0, kWaitStepNanoseconds};
        nanosleep(&step, nullptr);
        waited += static_cast<unsigned>(kWaitStepNanoseconds / 1000000);
    }
}

FILE* Fail(int fd, int error) {
    if (fd >= 0) close(fd);
    tempFileError = error;
    errno = error;
    return nullptr;
}

// A file that may be waited for: a plain file of ours. Checked before any
// wait, so that another user's file, locked or not, never holds a load up.
int RefuseForeignKind(const struct stat& st) {
    if (!S_ISREG(st.st_mode)) return EINVAL;
    if (st.st_uid != geteuid()) return EPERM;
    return 0;
}

// A file this process may empty and later delete: a plain file of ours with
// no other name, so that no other file is reached through it. No name at
// all is fine: the load before removed it while this one waited for it.
int RefuseForeignFile(const struct stat& st) {
    if (const int refused = RefuseForeignKind(st)) return refused;
    if (st.st_nlink > 1) return EPERM;
    return 0;
}

// Whether this owner's load holds the lock already, on the file st is.
bool HoldsLockOn(const void* owner, const struct stat& st) {
    std::lock_guard<std::mutex> guard(ClaimsMutex());
    const auto it = Claims().find(owner);
    return it != Claims().end() && it->second.locked && it->second.device == st.st_dev &&
           it->second.inode == st.st_ino;
}

}  // namespace

void MediaFileSetTempFileWait(unsigned milliseconds) { waitMilliseconds.store(milliseconds); }

void MediaFileSetTempFileInterrupt(int (*interrupted)()) { interruptCheck.store(interrupted); }

int MediaFileTakeTempFileError() {
    const int error = tempFileError;
    tempFileError = 0;
    return error;
}

namespace fileinfo_detail {

FILE* OpenClaimedTempFile(const void* owner, const char* path) {
    // Never truncate before the lock is ours: another load may be walking it.
    const int fd = open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return Fail(-1, errno);
    struct stat st;
    if (fstat(fd, &st) != 0) return Fail(fd, errno);
    // A header inflated twice in one load reopens the file this load holds
    // already: locking it again through a new descriptor would wait for
    // ourselves. Any other file, the path's new one included, is locked.
    const bool relock = !HoldsLockOn(owner, st);
    if (relock) {
        if (const int refused = RefuseForeignKind(st)) return Fail(fd, refused);
        if (const int error = LockWithinBound(fd)) return Fail(fd, error);
        // Whatever happened to the file during the wait, it is judged as it
        // is now that it is ours.
        if (fstat(fd, &st) != 0) return Fail(fd, errno);
    }
    if (const int refused = RefuseForeignFile(st)) return Fail(fd, refused);
    if (ftruncate(fd, 0) != 0) return Fail(fd, errno);

    int keeper = -1;
    if (relock) {
        // A descriptor of its own holds the lock until the load is done,
        // whichever streams the walk opens and closes meanwhile.
        keeper = fcntl(fd, F_DUPFD_CLOEXEC, 0);
        if (keeper < 0) return Fail(fd, errno);
    }
    FILE* file = fdopen(fd, "w+b");
    if (file == nullptr) {
        const int error = errno;
        if (keeper >= 0) close(keeper);
        return Fail(fd, error);
    }
    std::lock_guard<std::mutex> guard(ClaimsMutex());
    Claim& claim = Claims()[owner];
    if (keeper >= 0) {
        if (claim.fd >= 0) close(claim.fd);
        claim.fd = keeper;
        claim.locked = true;
    }
    claim.device = st.st_dev;
    claim.inode = st.st_ino;
    tempFileError = 0;
    return file;
}

void ReleaseTempFileLock(const void* owner) {
    std::lock_guard<std::mutex> guard(ClaimsMutex());
    const auto it = Claims().find(owner);
    if (it == Claims().end() || !it->second.locked) return;
    flock(it->second.fd, LOCK_UN);
    it->second.locked = false;
}

void RemoveClaimedTempFile(const void* owner, const char* path) {
    Claim claim;
    {
        std::lock_guard<std::mutex> guard(ClaimsMutex());
        const auto it = Claims().find(owner);
        if (it == Claims().end()) return;
        claim = it->second;
        Claims().erase(it);
    }
    struct stat st;
    if (path != nullptr && lstat(path, &st) == 0 && st.st_dev == claim.device && st.st_ino == claim.inode) unlink(path);
    // Only now may the inode go to another file.
    if (claim.fd >= 0) close(claim.fd);
}

}  // namespace fileinfo_detail
