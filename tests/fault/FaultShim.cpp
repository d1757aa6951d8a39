/* A fault-injection shim, loaded with LD_PRELOAD into the fileinfo tool
 * (the safe edit's tests) or the sync driver (the sync's tests): makes the
 * Nth call of one kind fail with a chosen errno, or kills or interrupts
 * the process at the Nth call of any kind.
 *
 *   FILEINFO_FAULT_CALL   write | fsync | rename | link
 *                         ("write" covers write(), pwrite() and the stdio
 *                         fwrite() of the library; "fsync" covers
 *                         fdatasync() and syncfs(); "rename" covers
 *                         renameat() and renameat2())
 *   FILEINFO_FAULT_AT     the 1-based position of the call that fails; 0 or
 *                         unset: none fails
 *   FILEINFO_FAULT_ERRNO  ENOSPC (the default), EIO or EPERM (what a file
 *                         system without hard links answers to link())
 *   FILEINFO_FAULT_WRITES files: only write() to a descriptor above 2 is a
 *                         "write" (a file's bytes; not the program's messages,
 *                         nor SQLite's pwrite() of its pages); unset: every
 *                         one above
 *   FILEINFO_FAULT_KILL_AT      the 1-based position, among the calls of
 *                         every kind together, of the one before which the
 *                         process dies of SIGKILL
 *   FILEINFO_FAULT_INTERRUPT_AT the same, for SIGINT
 *   FILEINFO_FAULT_COUNTS a file that receives, at exit, how many calls of
 *                         each kind were made: "write N\nfsync N\n..."
 */
#include <dlfcn.h>
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

extern "C" {

enum { kWrite, kFsync, kRename, kLink, kKinds };
static const char* const kNames[kKinds] = {"write", "fsync", "rename", "link"};
static std::atomic<long> counts[kKinds];
static std::atomic<long> calls;

static void Signal(const char* variable, long call, int signal) {
    const char* at = getenv(variable);
    if (at != NULL && atol(at) == call) raise(signal);
}

/* True when this call of `kind` is the one to fail; sets errno then. */
static int ShouldFail(int kind) {
    const long all = ++calls;
    Signal("FILEINFO_FAULT_KILL_AT", all, SIGKILL);
    Signal("FILEINFO_FAULT_INTERRUPT_AT", all, SIGINT);
    const long position = ++counts[kind];
    const char* call = getenv("FILEINFO_FAULT_CALL");
    const char* at = getenv("FILEINFO_FAULT_AT");
    if (call == NULL || at == NULL || strcmp(call, kNames[kind]) != 0) return 0;
    if (atol(at) != position) return 0;
    const char* error = getenv("FILEINFO_FAULT_ERRNO");
    errno = ENOSPC;
    if (error != NULL && strcmp(error, "EIO") == 0) errno = EIO;
    if (error != NULL && strcmp(error, "EPERM") == 0) errno = EPERM;
    return 1;
}

static void* Next(const char* name) { return dlsym(RTLD_NEXT, name); }

/* Whether only write() to a file counts as a write. */
static int FileWritesOnly(void) {
    const char* writes = getenv("FILEINFO_FAULT_WRITES");
    return writes != NULL && strcmp(writes, "files") == 0;
}

ssize_t write(int fd, const void* data, size_t size) {
    static ssize_t (*real)(int, const void*, size_t);
    if (real == NULL) real = (ssize_t(*)(int, const void*, size_t))Next("write");
    if ((fd > 2 || !FileWritesOnly()) && ShouldFail(kWrite)) return -1;
    return real(fd, data, size);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
    static ssize_t (*real)(int, const void*, size_t, off_t);
    if (real == NULL) real = (ssize_t(*)(int, const void*, size_t, off_t))Next("pwrite");
    if (!FileWritesOnly() && ShouldFail(kWrite)) return -1;
    return real(fd, data, size, offset);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off_t offset) {
    static ssize_t (*real)(int, const void*, size_t, off_t);
    if (real == NULL) real = (ssize_t(*)(int, const void*, size_t, off_t))Next("pwrite64");
    if (!FileWritesOnly() && ShouldFail(kWrite)) return -1;
    return real(fd, data, size, offset);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* file) {
    static size_t (*real)(const void*, size_t, size_t, FILE*);
    if (real == NULL) real = (size_t(*)(const void*, size_t, size_t, FILE*))Next("fwrite");
    if (!FileWritesOnly() && ShouldFail(kWrite)) return 0;
    return real(data, size, count, file);
}

int fsync(int fd) {
    static int (*real)(int);
    if (real == NULL) real = (int (*)(int))Next("fsync");
    if (ShouldFail(kFsync)) return -1;
    return real(fd);
}

int fdatasync(int fd) {
    static int (*real)(int);
    if (real == NULL) real = (int (*)(int))Next("fdatasync");
    if (ShouldFail(kFsync)) return -1;
    return real(fd);
}

int syncfs(int fd) {
    static int (*real)(int);
    if (real == NULL) real = (int (*)(int))Next("syncfs");
    if (ShouldFail(kFsync)) return -1;
    return real(fd);
}

int rename(const char* from, const char* to) {
    static int (*real)(const char*, const char*);
    if (real == NULL) real = (int (*)(const char*, const char*))Next("rename");
    if (ShouldFail(kRename)) return -1;
    return real(from, to);
}

int renameat(int fromDir, const char* from, int toDir, const char* to) {
    static int (*real)(int, const char*, int, const char*);
    if (real == NULL) real = (int (*)(int, const char*, int, const char*))Next("renameat");
    if (ShouldFail(kRename)) return -1;
    return real(fromDir, from, toDir, to);
}

int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
    static int (*real)(int, const char*, int, const char*, unsigned);
    if (real == NULL) real = (int (*)(int, const char*, int, const char*, unsigned))Next("renameat2");
    if (ShouldFail(kRename)) return -1;
    return real(fromDir, from, toDir, to, flags);
}

int link(const char* from, const char* to) {
    static int (*real)(const char*, const char*);
    if (real == NULL) real = (int (*)(const char*, const char*))Next("link");
    if (ShouldFail(kLink)) return -1;
    return real(from, to);
}

__attribute__((destructor)) static void WriteCounts(void) {
    const char* path = getenv("FILEINFO_FAULT_COUNTS");
    if (path == NULL) return;
    FILE* out = fopen(path, "w");
    if (out == NULL) return;
    for (int k = 0; k < kKinds; ++k) fprintf(out, "%s %ld\n", kNames[k], counts[k].load());
    fclose(out);
}

}  // extern "C"
