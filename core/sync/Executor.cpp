#include "sync/Executor.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>
#include <set>
#include <system_error>

#include "FileOps.h"

namespace fileinfo {
namespace sync {

const char kTempMark[] = ".fileinfo-sync-";
const char kScratchMark[] = ".fileinfo-sync-scratch-";

namespace {

constexpr size_t kTempRandom = 12;
constexpr size_t kBlock = 1 << 18;

std::string ErrorText(int error) { return std::generic_category().message(error); }

std::string FolderPart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string NamePart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Errors of the device itself rather than of one file: the run stops.
bool DeviceWide(int error) {
    return error == ENOSPC || error == EDQUOT || error == EIO || error == EROFS || error == ENODEV || error == ENXIO ||
           error == ENOTCONN || error == ESTALE;
}

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { Reset(); }
    Fd(Fd&& o) noexcept : fd_(o.fd_) { o.fd_ = -1; }
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) {
            Reset();
            fd_ = o.fd_;
            o.fd_ = -1;
        }
        return *this;
    }
    int get() const { return fd_; }
    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void Reset() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

// Opens a folder below the device folder, one name at a time, never
// following a symbolic link (a link in the device folder could lead out
// of it); makes the missing ones when `make`. -1 with errno.
int OpenFolder(int deviceFd, const std::string& folder, bool make) {
    int fd = dup(deviceFd);
    if (fd < 0 || folder.empty()) return fd;
    size_t start = 0;
    while (start <= folder.size()) {
        size_t end = folder.find('/', start);
        if (end == std::string::npos) end = folder.size();
        const std::string name = folder.substr(start, end - start);
        int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (next < 0 && errno == ENOENT && make) {
            if (mkdirat(fd, name.c_str(), 0755) == 0 || errno == EEXIST) {
                next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }
        }
        const int saved = errno;
        close(fd);
        if (next < 0) {
            // A link where a folder should be: refused, whatever it points at.
            errno = saved == ELOOP || saved == ENOTDIR ? ENOTDIR : saved;
            return -1;
        }
        fd = next;
        start = end + 1;
    }
    return fd;
}

std::string RandomName(const char* mark = kTempMark) {
    static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    static thread_local std::mt19937_64 random(std::random_device{}() ^
                                               static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::string name = mark;
    for (size_t k = 0; k < kTempRandom; ++k) name += kChars[random() % (sizeof kChars - 1)];
    return name + ".tmp";
}

// Syncs what was written on the device's file system at once; where
// syncfs is not there, `each` syncs file by file.
int SyncDevice(int deviceFd, const std::function<int()>& each) {
    if (syncfs(deviceFd) == 0) return 0;
    if (errno != ENOSYS) return errno;
    return each();
}

int SyncFile(int folderFd, const std::string& name) {
    const int fd = openat(folderFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    const int error = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    return error;
}

// Removes a file below the device folder and then its folders as long as
// they are empty.
int RemoveDeviceFile(int deviceFd, const std::string& path) {
    const Fd folder(OpenFolder(deviceFd, FolderPart(path), false));
    if (folder.get() < 0) return errno;
    if (unlinkat(folder.get(), NamePart(path).c_str(), 0) != 0 && errno != ENOENT) return errno;
    std::string parent = FolderPart(path);
    while (!parent.empty()) {
        if (unlinkat(deviceFd, parent.c_str(), AT_REMOVEDIR) != 0) break;
        parent = FolderPart(parent);
    }
    return 0;
}

int Rename(int folderFd, const std::string& from, const std::string& to, bool replace) {
    if (!replace) {
        // Never over a file sync did not put there.
        if (renameat2(folderFd, from.c_str(), folderFd, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
        if (errno != EINVAL && errno != ENOSYS) return errno;
        struct stat st;
        if (fstatat(folderFd, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
    }
    return renameat(folderFd, from.c_str(), folderFd, to.c_str()) == 0 ? 0 : errno;
}

struct InFlight {
    size_t index = 0;
    PlanEntry entry;  // read back from the plan
    Fd folder;
    Fd file;
    std::string tempName;
    ManifestRow row;
    bool created = false;  // the temporary file exists
    bool written = false;
    bool keepReplaced = false;  // the replaced file could not be removed
    int error = 0;
    std::string why;
};

class Run {
public:
    Run(const Plan& plan, Manifest& manifest, const ExecuteOptions& options, RunResult& result)
        : plan_(plan), manifest_(manifest), options_(options), result_(result) {}

    void Go() {
        deviceFd_ = Fd(open(plan_.deviceFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (deviceFd_.get() < 0) {
            DeviceFailure(plan_.deviceFolder + ": " + ErrorText(errno));
            return;
        }
        result_.results.assign(plan_.entries.size(), EntryResult::kNotRun);
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            const PlanEntries::Brief& e = plan_.entries.brief(k);
            if (Writes(e)) {
                ++progress_.filesTotal;
                progress_.bytesTotal += e.bytes;
            }
        }
        RemoveStaleTemps();
        Refresh();
        if (!result_.deviceFailed) Removes();
        if (!result_.deviceFailed) Writes();
        if (!result_.deviceFailed) RecordSkips();
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            const PlanEntries::Brief& e = plan_.entries.brief(k);
            if (e.action == Action::kSkip) {
                ++result_.skipped;
                result_.results[k] = EntryResult::kDone;
            } else if (e.action == Action::kKeep && !e.Has(PlanEntries::kRefreshRow)) {
                ++result_.done[static_cast<int>(Action::kKeep)];
                result_.results[k] = EntryResult::kDone;
            }
        }
    }

private:
    // The plan's entries are read back from its store: the passes below
    // sort them by their briefs, and read in full only those they act on.
    static bool Writes(const PlanEntries::Brief& e) {
        return e.action == Action::kCopy || e.action == Action::kConvert || e.action == Action::kUpdate;
    }

    bool Stop() const { return options_.stopRequested && options_.stopRequested(); }

    void DeviceFailure(const std::string& why) {
        if (!result_.deviceFailed) result_.deviceError = why;
        result_.deviceFailed = true;
    }

    void Fail(size_t index, const std::string& why) {
        result_.results[index] = EntryResult::kFailed;
        ++result_.failed;
        result_.failures.emplace_back(index, why);
    }

    // Temporary files of the runs that stopped before they finished: only
    // those the manifest says sync made, with sync's mark in their names.
    void RemoveStaleTemps() {
        result_.tempFilesRemoved += RemoveLeftoverScratch(deviceFd_.get());
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            if (!plan_.entries.brief(k).Has(PlanEntries::kRowPending)) continue;
            const PlanEntry e = plan_.entries[k];
            if (!e.hasRow || !e.row->pending || e.row->tempPath.empty()) continue;
            if (!SafeDevicePath(e.row->tempPath) || !IsSyncTempName(NamePart(e.row->tempPath))) continue;
            const Fd folder(OpenFolder(deviceFd_.get(), FolderPart(e.row->tempPath), false));
            if (folder.get() >= 0 && unlinkat(folder.get(), NamePart(e.row->tempPath).c_str(), 0) == 0) {
                ++result_.tempFilesRemoved;
            }
        }
    }

    bool Commit(const std::function<bool(std::string&)>& puts) {
        std::string error;
        if (manifest_.Begin(error) && puts(error) && manifest_.Commit(error)) return true;
        manifest_.Rollback();
        DeviceFailure("the manifest could not be written: " + error);
        return false;
    }

    // Rows of kept files written again: finished but unrecorded copies,
    // and files judged the same against a new capability list.
    void Refresh() {
        std::vector<size_t> refresh;
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            const PlanEntries::Brief& e = plan_.entries.brief(k);
            if (e.action == Action::kKeep && e.Has(PlanEntries::kRefreshRow)) refresh.push_back(k);
        }
        if (refresh.empty()) return;
        Commit([&](std::string& error) {
            for (const size_t k : refresh) {
                const PlanEntry e = plan_.entries[k];
                struct stat st;
                if (fstatat(deviceFd_.get(), e.devicePath.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
                ManifestRow row = RowFor(e);
                const FileState device = FileState::Of(st);
                row.deviceSize = device.size;
                row.deviceMtimeNs = device.mtimeNs;
                if (!manifest_.Put(row, error)) return false;
            }
            return true;
        });
        for (const size_t k : refresh) {
            if (result_.deviceFailed) break;
            ++result_.done[static_cast<int>(Action::kKeep)];
            result_.results[k] = EntryResult::kDone;
        }
    }

    // The judgements that skipped files, so that the next run does not load
    // them again while they stay as they are.
    void RecordSkips() {
        std::vector<size_t> put, erase;
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            const PlanEntries::Brief& e = plan_.entries.brief(k);
            if (e.Has(PlanEntries::kLoaded) && JudgedSkip(e.skip)) {
                put.push_back(k);
            } else if (e.Has(PlanEntries::kHadSkipRow) && !e.Has(PlanEntries::kSkipRecorded)) {
                erase.push_back(k);
            }
        }
        if (put.empty() && erase.empty() && plan_.staleSkips.empty()) return;
        Commit([&](std::string& error) {
            for (const size_t k : put) {
                const PlanEntry entry = plan_.entries[k];
                const PlanEntry* e = &entry;
                SkipRow row;
                row.sourcePath = e->source;
                row.source = e->sourceState;
                row.capsDigest = SkipDigest(options_.capsDigest);
                row.kind = static_cast<int>(e->skip);
                row.reason = e->reason.compare(0, 13, "now skipped: ") == 0 ? e->reason.substr(13) : e->reason;
                row.refusedBy = e->refusedBy;
                row.libraryExplanation = e->libraryExplanation;
                if (!manifest_.PutSkip(row, error)) return false;
            }
            for (const size_t k : erase) {
                if (!manifest_.EraseSkip(plan_.entries[k].source, error)) return false;
            }
            for (const std::string& source : plan_.staleSkips) {
                if (!manifest_.EraseSkip(source, error)) return false;
            }
            return true;
        });
    }

    // A replacement whose new file has no row yet: the entry's row is the
    // old file's (otherwise a stopped run had begun it, and the row is the
    // new file's).
    static bool FreshName(const PlanEntry& e) {
        return !e.replaces.empty() && e.row != nullptr && e.row->devicePath == e.replaces;
    }

    ManifestRow RowFor(const PlanEntry& e) const {
        ManifestRow row;
        row.devicePath = e.devicePath;
        row.sourcePath = e.source;
        row.source = e.sourceState;
        row.action = e.playlist ? "playlist" : e.target.empty() ? "copy" : "convert";
        row.target = e.target;
        row.capsDigest = options_.capsDigest;
        return row;
    }

    void Removes() {
        std::vector<size_t> removes;
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            if (plan_.entries.brief(k).action == Action::kRemove) removes.push_back(k);
        }
        for (size_t start = 0; start < removes.size() && !result_.deviceFailed && !Stop(); start += 256) {
            const size_t end = std::min(removes.size(), start + 256);
            std::vector<size_t> gone;
            std::vector<std::string> gonePaths;
            for (size_t k = start; k < end; ++k) {
                const PlanEntry e = plan_.entries[removes[k]];
                struct stat st;
                const bool present = fstatat(deviceFd_.get(), e.devicePath.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
                const FileState device = present ? FileState::Of(st) : FileState();
                // A file changed on the device since sync wrote it is the
                // user's now: it stays, and only its row goes. A pending row
                // without a temporary file that still records the file's
                // state is one a stopped run was replacing.
                const bool ours = present && S_ISREG(st.st_mode) && RecordsItsFile(*e.row) && device.size == e.row->deviceSize &&
                                  device.mtimeNs == e.row->deviceMtimeNs;
                if (ours) {
                    const int error = RemoveDeviceFile(deviceFd_.get(), e.devicePath);
                    if (error != 0) {
                        Fail(removes[k], ErrorText(error));
                        if (DeviceWide(error)) DeviceFailure(e.devicePath + ": " + ErrorText(error));
                        continue;
                    }
                }
                gone.push_back(removes[k]);
                gonePaths.push_back(e.devicePath);
            }
            if (!Commit([&](std::string& error) {
                    for (const std::string& path : gonePaths) {
                        if (!manifest_.Erase(path, error)) return false;
                    }
                    return true;
                })) {
                return;
            }
            for (const size_t k : gone) {
                ++result_.done[static_cast<int>(Action::kRemove)];
                result_.results[k] = EntryResult::kDone;
            }
        }
        if (Stop()) result_.interrupted = true;
    }

    void Writes() {
        std::vector<size_t> writes;
        for (size_t k = 0; k < plan_.entries.size(); ++k) {
            if (Writes(plan_.entries.brief(k))) writes.push_back(k);
        }
        size_t next = 0;
        while (next < writes.size() && !result_.deviceFailed) {
            if (Stop()) {
                result_.interrupted = true;
                return;
            }
            std::vector<size_t> batch;
            uint64_t bytes = 0;
            while (next < writes.size() && batch.size() < options_.batchFiles &&
                   (batch.empty() || bytes + plan_.entries.brief(writes[next]).bytes <= options_.batchBytes)) {
                bytes += plan_.entries.brief(writes[next]).bytes;
                batch.push_back(writes[next++]);
            }
            Batch(batch);
        }
    }

    // Puts the batch's renames and removals on the device; on a failure,
    // the device has failed and every file written in the batch with it.
    bool SyncFolders(const std::vector<InFlight>& flight) {
        const int error = SyncDevice(deviceFd_.get(), [&flight] {
            for (const InFlight& f : flight) {
                if (f.written && fsync(f.folder.get()) != 0) return errno;
            }
            return 0;
        });
        if (error == 0) return true;
        DeviceFailure("sync: " + ErrorText(error));
        for (const InFlight& f : flight) {
            if (f.written) Fail(f.index, "sync: " + ErrorText(error));
        }
        return false;
    }

    void Batch(const std::vector<size_t>& batch) {
        std::vector<InFlight> flight(batch.size());
        for (size_t k = 0; k < batch.size(); ++k) {
            InFlight& f = flight[k];
            f.entry = plan_.entries[batch[k]];
            const PlanEntry& e = f.entry;
            f.index = batch[k];
            f.tempName = RandomName();
            f.row = RowFor(e);
            f.row.pending = true;
            const std::string folder = FolderPart(e.devicePath);
            f.row.tempPath = folder.empty() ? f.tempName : folder + "/" + f.tempName;
        }
        // The intents first: whatever happens next, the manifest knows
        // which names sync may have written.
        if (!Commit([&](std::string& error) {
                for (const InFlight& f : flight) {
                    if (!manifest_.Put(f.row, error)) return false;
                    // The file it replaces may go before the batch ends:
                    // pending, its row may name a file that is gone.
                    if (FreshName(f.entry)) {
                        ManifestRow old = *f.entry.row;
                        old.pending = true;
                        old.tempPath.clear();
                        if (!manifest_.Put(old, error)) return false;
                    }
                }
                return true;
            })) {
            return;
        }
        size_t started = 0;
        for (InFlight& f : flight) {
            if (started > 0 && Stop()) {
                result_.interrupted = true;
                break;
            }
            ++started;
            Write(f);
            if (f.error != 0 && DeviceWide(f.error)) break;
        }
        const auto anyWritten = [&flight] {
            for (const InFlight& f : flight) {
                if (f.written) return true;
            }
            return false;
        };
        if (anyWritten()) {
            const int error = SyncDevice(deviceFd_.get(), [&flight] {
                for (const InFlight& f : flight) {
                    const int e = f.written ? SyncFile(f.folder.get(), f.tempName) : 0;
                    if (e != 0) return e;
                }
                return 0;
            });
            if (error != 0) {
                for (InFlight& f : flight) {
                    if (f.written) Unwrite(f, error, "sync: " + ErrorText(error));
                }
            }
        }
        for (InFlight& f : flight) {
            if (f.written) Land(f);
        }
        // Renamed but perhaps not on the device when the sync fails: the
        // rows stay pending, and the next run compares the files' bytes.
        if (anyWritten() && !SyncFolders(flight)) return;
        // The files that landed under another type's name than their old
        // ones: the old ones go now, the new ones being on the device. When
        // the sync fails, the old files' rows stay, and the next run removes
        // them.
        if (RemoveReplaced(flight) && !SyncFolders(flight)) return;
        Commit([&](std::string& error) {
            for (InFlight& f : flight) {
                const PlanEntry& e = f.entry;
                if (f.written) {
                    f.row.pending = false;
                    f.row.tempPath.clear();
                    if (!manifest_.Put(f.row, error)) return false;
                    if (FreshName(e) && f.keepReplaced && !manifest_.Put(*e.row, error)) return false;
                    if (!e.replaces.empty() && !f.keepReplaced && !manifest_.Erase(e.replaces, error)) return false;
                } else if (FreshName(e)) {
                    // Not replaced: the old file and its row stay as they were.
                    if (!manifest_.Erase(e.devicePath, error)) return false;
                    if (e.row != nullptr && !manifest_.Put(*e.row, error)) return false;
                } else if (e.hasRow && !e.row->pending) {
                    // Not replaced: the old copy is still there as it was.
                    if (!manifest_.Put(*e.row, error)) return false;
                } else {
                    struct stat st;
                    // Nothing of it is on the device (a stopped run's copy,
                    // if any, stays pending and is looked at next time).
                    if (e.hasRow && fstatat(deviceFd_.get(), e.devicePath.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0) {
                        ManifestRow row = f.row;
                        row.tempPath.clear();
                        if (!manifest_.Put(row, error)) return false;
                    } else if (!manifest_.Erase(e.devicePath, error)) {
                        return false;
                    }
                }
            }
            return true;
        });
        for (const InFlight& f : flight) {
            if (!f.written) continue;
            const PlanEntry& e = f.entry;
            if (result_.deviceFailed) {
                Fail(f.index, result_.deviceError);
                continue;
            }
            ++result_.done[static_cast<int>(e.action)];
            result_.results[f.index] = EntryResult::kDone;
        }
    }

    // Removes the old files of the written entries that replace one. The
    // rows say the old files are there until the batch's last commit: a
    // run stopped before it leaves two rows of one source, and the next
    // run keeps the new file's and removes the old file. True when there
    // was one to remove (the removals are synced, for the commit).
    bool RemoveReplaced(std::vector<InFlight>& flight) {
        bool any = false;
        for (InFlight& f : flight) {
            const PlanEntry& e = f.entry;
            if (!f.written || e.replaces.empty() || !SafeDevicePath(e.replaces)) continue;
            any = true;
            struct stat st;
            if (fstatat(deviceFd_.get(), e.replaces.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
            const FileState device = FileState::Of(st);
            // Changed on the device since sync wrote it: the user's now, so
            // it stays, and only its row goes.
            if (!S_ISREG(st.st_mode) || device.size != e.replacedBytes || device.mtimeNs != e.replacedMtimeNs) continue;
            const int error = RemoveDeviceFile(deviceFd_.get(), e.replaces);
            // The new file is in place: an old one that could not go stays
            // with its row, and the next run removes it.
            if (error != 0) f.keepReplaced = true;
        }
        return any;
    }

    // Writes one file under its temporary name, with the source's time.
    void Write(InFlight& f) {
        const PlanEntry& e = f.entry;
        progress_.current = e.devicePath;
        Report();
        f.folder = Fd(OpenFolder(deviceFd_.get(), FolderPart(e.devicePath), true));
        if (f.folder.get() < 0) {
            const int error = errno;
            return Failed(f, error, FolderPart(e.devicePath) + ": " +
                                        (error == ENOTDIR ? "not a folder (a symbolic link is not followed)" : ErrorText(error)));
        }
        f.file = Fd(openat(f.folder.get(), f.tempName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
        if (f.file.get() < 0) return Failed(f, errno, ErrorText(errno));
        f.created = true;
        std::string why;
        int error = 0;
        if (e.playlist) {
            error = WriteAll(f.file.get(), e.playlistText.data(), e.playlistText.size());
            if (error != 0) why = ErrorText(error);
        } else if (e.target.empty()) {
            error = CopySource(e, f.file.get(), why);
        } else if (options_.produce) {
            error = options_.produce(e, f.file.get(), why);
        } else {
            error = EINVAL;
            why = "nothing makes target " + e.target;
        }
        if (error == 0) {
            // The source's modification time; FAT keeps it in 2-second
            // steps, so it is given as FAT will keep it.
            timespec times[2];
            times[0].tv_sec = 0;
            times[0].tv_nsec = UTIME_OMIT;
            times[1].tv_sec = static_cast<time_t>(e.sourceState.mtimeNs / 1000000000);
            times[1].tv_nsec = static_cast<long>(e.sourceState.mtimeNs % 1000000000);
            if (plan_.fat) {
                times[1].tv_sec -= times[1].tv_sec % 2;
                times[1].tv_nsec = 0;
            }
            if (futimens(f.file.get(), times) != 0) {
                error = errno;
                why = "setting its time: " + ErrorText(error);
            }
        }
        // Closed now: a batch holds no descriptor per file but its folder's.
        if (error == 0 && close(f.file.Release()) != 0) {
            error = errno;
            why = ErrorText(error);
        }
        if (error != 0) return Failed(f, error, why);
        f.written = true;
    }

    void Failed(InFlight& f, int error, const std::string& why) {
        f.error = error;
        f.why = why;
        Unwrite(f, error, why);
        if (DeviceWide(error)) DeviceFailure(f.entry.devicePath + ": " + why);
    }

    // Drops a temporary file that will not land.
    void Unwrite(InFlight& f, int error, const std::string& why) {
        f.file.Reset();
        if (f.created) unlinkat(f.folder.get(), f.tempName.c_str(), 0);
        f.created = false;
        f.written = false;
        f.error = error;
        Fail(f.index, why);
        if (DeviceWide(error)) DeviceFailure(f.entry.devicePath + ": " + why);
    }

    // Renames a written file into place, after its proof.
    void Land(InFlight& f) {
        const PlanEntry& e = f.entry;
        struct stat st;
        if (fstatat(f.folder.get(), f.tempName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return Unwrite(f, errno, ErrorText(errno));
        if (options_.prove) {
            const Fd made(openat(f.folder.get(), f.tempName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
            const std::string refused = made.get() < 0 ? "cannot be read back: " + ErrorText(errno) : options_.prove(e, made.get());
            if (!refused.empty()) return Unwrite(f, 0, refused);
        }
        const FileState device = FileState::Of(st);
        f.row.deviceSize = device.size;
        f.row.deviceMtimeNs = device.mtimeNs;
        // Over the file of its own row only: a replacement's new name is
        // never put over a file sync did not put there.
        const int error = Rename(f.folder.get(), f.tempName, NamePart(e.devicePath),
                                 e.hasRow && e.row != nullptr && e.row->devicePath == e.devicePath);
        if (error != 0) {
            unlinkat(f.folder.get(), f.tempName.c_str(), 0);
            f.created = false;
            f.written = false;
            Fail(f.index, (error == EEXIST ? std::string("a file of the user's is in the way") : "rename: " + ErrorText(error)));
            if (DeviceWide(error)) DeviceFailure(e.devicePath + ": " + ErrorText(error));
            return;
        }
        result_.bytesWritten += device.size;
        ++progress_.filesDone;
        progress_.bytesDone += e.bytes;
        Report();
    }

    void Report() {
        if (options_.progress) options_.progress(progress_);
    }

    const Plan& plan_;
    Manifest& manifest_;
    const ExecuteOptions& options_;
    RunResult& result_;
    Fd deviceFd_;
    ExecuteProgress progress_;
};

}  // namespace

namespace {

// `name` is `mark`, kTempRandom letters or digits, and ".tmp".
bool IsMarkedName(const std::string& name, const char* mark, size_t markSize) {
    if (name.size() != markSize + kTempRandom + 4 || name.compare(0, markSize, mark) != 0) return false;
    if (name.compare(markSize + kTempRandom, 4, ".tmp") != 0) return false;
    for (size_t k = markSize; k < markSize + kTempRandom; ++k) {
        if (!isalnum(static_cast<unsigned char>(name[k]))) return false;
    }
    return true;
}

}  // namespace

bool IsSyncTempName(const std::string& name) { return IsMarkedName(name, kTempMark, sizeof kTempMark - 1); }

bool IsSyncScratchName(const std::string& name) {
    return IsMarkedName(name, kScratchMark, sizeof kScratchMark - 1);
}

int OpenScratchFile(int folderFd, bool mayName, bool unnamed) {
    if (unnamed) {
        const int fd = openat(folderFd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
        if (fd >= 0 || !mayName) return fd;
    }
    if (!mayName) {
        errno = EOPNOTSUPP;
        return -1;
    }
    for (int attempt = 0; attempt < 4; ++attempt) {
        const std::string name = RandomName(kScratchMark);
        const int fd = openat(folderFd, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd >= 0) unlinkat(folderFd, name.c_str(), 0);
        return fd;
    }
    errno = EEXIST;
    return -1;
}

size_t RemoveLeftoverScratch(int folderFd) {
    const int listFd = openat(folderFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listFd < 0) return 0;
    DIR* folder = fdopendir(listFd);
    if (folder == nullptr) {
        close(listFd);
        return 0;
    }
    size_t removed = 0;
    while (const dirent* entry = readdir(folder)) {
        const std::string name = entry->d_name;
        if (!IsSyncScratchName(name)) continue;
        struct stat st;
        if (fstatat(folderFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISREG(st.st_mode) || st.st_uid != geteuid()) continue;
        if (unlinkat(folderFd, name.c_str(), 0) == 0) ++removed;
    }
    closedir(folder);
    return removed;
}

int CopySource(const PlanEntry& entry, int out, std::string& error) {
    const Fd in(open(entry.source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (in.get() < 0) {
        const int e = errno;
        error = entry.source + ": " + ErrorText(e);
        return e == ENOSPC ? EIO : e;  // the source's failure is not the device's
    }
    struct stat st;
    if (fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
        error = entry.source + ": not a regular file";
        return EINVAL;
    }
    std::vector<char> buffer(kBlock);
    for (;;) {
        const ssize_t n = read(in.get(), buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const int e = errno;
            error = entry.source + ": " + ErrorText(e);
            return e == EIO ? EBADF : e;  // a source that cannot be read does not stop the run
        }
        if (n == 0) return 0;
        const int e = WriteAll(out, buffer.data(), static_cast<size_t>(n));
        if (e != 0) {
            error = ErrorText(e);
            return e;
        }
    }
}

RunResult Execute(const Plan& plan, Manifest& manifest, const ExecuteOptions& options) {
    RunResult result;
    const auto started = std::chrono::steady_clock::now();
    Run run(plan, manifest, options, result);
    run.Go();
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return result;
}

}  // namespace sync
}  // namespace fileinfo
