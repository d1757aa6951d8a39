/* A fault shim for the sync's tests, loaded with LD_PRELOAD into the
 * sync driver: makes the Nth call of one kind fail with a chosen errno, or
 * kills the process with SIGKILL at the Nth call of any kind.
 *
 *   SYNC_FAULT_CALL   write | fsync | rename  ("fsync" covers fdatasync and
 *                     syncfs; "rename" covers renameat and renameat2)
 *   SYNC_FAULT_AT     the 1-based position of the call that fails
 *   SYNC_FAULT_ERRNO  ENOSPC (the default) or EIO
 *   SYNC_KILL_AT      the 1-based position, among the calls of every kind
 *                     together, of the one before which the process dies
 *   SYNC_INTERRUPT_AT the 1-based position, among the calls of every kind
 *                     together, of the one before which SIGINT is raised
 *   SYNC_FAULT_COUNTS a file that receives, at exit, "calls N\n"
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

enum { kWrite, kFsync, kRename, kKinds };
static const char* const kNames[kKinds] = {"write", "fsync", "rename"};
static std::atomic<long> counts[kKinds];
static std::atomic<long> calls;

static int ShouldFail(int kind) {
    const long all = ++calls;
    const char* kill = getenv("SYNC_KILL_AT");
    if (kill != NULL && atol(kill) == all) raise(SIGKILL);
    const char* interrupt = getenv("SYNC_INTERRUPT_AT");
    if (interrupt != NULL && atol(interrupt) == all) raise(SIGINT);
    const long position = ++counts[kind];
    const char* call = getenv("SYNC_FAULT_CALL");
    const char* at = getenv("SYNC_FAULT_AT");
    if (call == NULL || at == NULL || strcmp(call, kNames[kind]) != 0 || atol(at) != position) return 0;
    const char* error = getenv("SYNC_FAULT_ERRNO");
    errno = error != NULL && strcmp(error, "EIO") == 0 ? EIO : ENOSPC;
    return 1;
}

static void* Next(const char* name) { return dlsym(RTLD_NEXT, name); }

ssize_t write(int fd, const void* data, size_t size) {
    static ssize_t (*real)(int, const void*, size_t);
    if (real == NULL) real = (ssize_t(*)(int, const void*, size_t))Next("write");
    if (fd > 2 && ShouldFail(kWrite)) return -1;
    return real(fd, data, size);
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

__attribute__((destructor)) static void WriteCounts(void) {
    const char* path = getenv("SYNC_FAULT_COUNTS");
    if (path == NULL) return;
    FILE* out = fopen(path, "w");
    if (out == NULL) return;
    fprintf(out, "calls %ld\n", calls.load());
    for (int k = 0; k < kKinds; ++k) fprintf(out, "%s %ld\n", kNames[k], counts[k].load());
    fclose(out);
}

}  // extern "C"
