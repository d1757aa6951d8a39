#include "Scan.h"

#include <dirent.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "FileOps.h"
#include "MediaFileInfo.h"

namespace fileinfo {

const char* SpecialFileKind(mode_t mode) {
    if (S_ISFIFO(mode)) return "FIFO";
    if (S_ISCHR(mode)) return "character device";
    if (S_ISBLK(mode)) return "block device";
    if (S_ISSOCK(mode)) return "socket";
    return "special file";
}

namespace {

// How far the walk may run ahead of the loads, and how many loaded items
// may wait for the ones before them: both bound the memory of a scan.
constexpr size_t kWalkAhead = 512;
// Loads may run this many items ahead of the output per worker: enough to
// keep every worker busy past one slow file, few enough that a writer
// slower than the loads holds little.
constexpr size_t kLoadAheadPerJob = 32;
constexpr size_t kLeastLoadAhead = 64;
// Tasks a worker takes at once: one hand-over between threads for several
// files, which for small files costs about as much as loading one.
constexpr size_t kBatch = 8;
// Tasks the walk hands over at once, at most: one hand-over for a folder's
// worth of small files.
constexpr size_t kWalkBatch = 64;

std::string ErrorText(int error) { return std::generic_category().message(error); }

// The extension after the name's last dot, lower-case; empty when none.
std::string LowerExtension(std::string_view path) {
    const size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return std::string();
    std::string extension(name.substr(dot + 1));
    for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return extension;
}

// Whether a walk reads a file: its extension is one a library reader takes
// or one of the other names of those formats, which the readings read by
// their bytes (.aiff, .m4b, .mp2, ...), or it has none at all.
bool TakesFile(const std::string& path) {
    static const char* const kOtherNames[] = {"aiff", "aifc", "wave", "bwf", "mpga", "mp2", "mp1",
                                              "m4b",  "m4r",  "qt",   "3gpp", "3g2", "adts"};
    if (MediaFileHasReader(path.c_str())) return true;
    const std::string extension = LowerExtension(path);
    if (extension.empty()) return true;
    for (const char* name : kOtherNames) {
        if (extension == name) return true;
    }
    return false;
}

// Where a process's open descriptors have names: /proc/self/fd, or /dev/fd
// on systems without /proc.
const char* DescriptorFolder() {
    static const char* const folder = access("/proc/self/fd", X_OK) == 0 ? "/proc/self/fd" : "/dev/fd";
    return folder;
}

// A folder of this process's own (mode 0700), made at its first use and
// removed at its exit; a forked child makes its own. Empty when no folder
// for temporary files is writable.
class ProcessFolder {
public:
    static std::string Get() {
        ProcessFolder& f = Instance();
        std::lock_guard<std::mutex> lock(f.mutex_);
        if (f.pid_ != getpid()) {
            f.pid_ = getpid();
            f.path_ = Make();
            f.threads_ = 0;
            if (!f.path_.empty() && !f.cleanupRegistered_) {
                f.cleanupRegistered_ = true;
                atexit(&ProcessFolder::Remove);
            }
        }
        return f.path_;
    }

    // A name for one more thread's sub-folder.
    static unsigned NextThread() {
        ProcessFolder& f = Instance();
        std::lock_guard<std::mutex> lock(f.mutex_);
        return f.threads_++;
    }

private:
    static ProcessFolder& Instance() {
        static ProcessFolder* const f = new ProcessFolder;  // never destroyed: used until the end
        return *f;
    }

    // Named after the process, so that the folders of processes that ended
    // without their exit handlers (killed, or _exit after a fork) can be
    // told and are removed by the next process that makes one.
    static std::string Make() {
        const char* env = getenv("TMPDIR");
        const std::string bases[] = {env != nullptr && env[0] == '/' ? env : "/tmp", "/tmp", "/dev/shm", "/var/tmp"};
        for (const std::string& base : bases) {
            std::string pattern = base + "/" + kPrefix + std::to_string(getpid()) + "-XXXXXX";
            if (mkdtemp(&pattern[0]) != nullptr) {
                RemoveLeftovers(base);
                return pattern;
            }
        }
        return std::string();
    }

    // Folders of this user's processes that no longer run: their links and
    // sub-folders, and they. Nothing else is touched.
    static void RemoveLeftovers(const std::string& base) {
        DIR* d = opendir(base.c_str());
        if (d == nullptr) return;
        const std::string prefix = kPrefix;
        while (const dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name.compare(0, prefix.size(), prefix) != 0) continue;
            const long pid = strtol(name.c_str() + prefix.size(), nullptr, 10);
            // Only a process that is gone for certain: not one we may not signal.
            if (pid <= 0 || kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
            const std::string folder = base + "/" + name;
            struct stat st;
            if (lstat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid()) continue;
            RemoveTree(folder);
        }
        closedir(d);
    }

    // A folder of sub-folders of links.
    static void RemoveTree(const std::string& folder) {
        if (DIR* d = opendir(folder.c_str())) {
            while (const dirent* e = readdir(d)) {
                if (strcmp(e->d_name, ".") == 0 || strcmp(e->d_name, "..") == 0) continue;
                const std::string path = folder + "/" + e->d_name;
                struct stat st;
                if (lstat(path.c_str(), &st) != 0) continue;
                if (S_ISDIR(st.st_mode)) {
                    RemoveTree(path);
                } else if (S_ISLNK(st.st_mode)) {
                    unlink(path.c_str());
                }
            }
            closedir(d);
        }
        rmdir(folder.c_str());
    }

    static constexpr const char* kPrefix = ".fileinfo-fd-";

    // At exit: the links left behind (none unless a load was cut short) and
    // every folder, if this process made them.
    static void Remove() {
        ProcessFolder& f = Instance();
        std::lock_guard<std::mutex> lock(f.mutex_);
        if (f.pid_ != getpid() || f.path_.empty()) return;
        RemoveTree(f.path_);
    }

    std::mutex mutex_;
    pid_t pid_ = 0;
    std::string path_;
    unsigned threads_ = 0;
    bool cleanupRegistered_ = false;
};

// The sub-folder of the process folder that the calling thread alone puts
// its links into, made at the thread's first load and removed when the
// thread ends (a scan's workers come and go); empty when there is none.
class ThreadFolder {
public:
    static const std::string& Get() {
        thread_local ThreadFolder folder;
        if (folder.madeBy_ != getpid()) {
            folder.madeBy_ = getpid();
            folder.path_.clear();
            const std::string process = ProcessFolder::Get();
            if (!process.empty()) {
                std::string sub = process + "/" + std::to_string(ProcessFolder::NextThread());
                if (mkdir(sub.c_str(), 0700) == 0) folder.path_ = std::move(sub);
            }
        }
        return folder.path_;
    }
    ~ThreadFolder() {
        if (!path_.empty() && madeBy_ == getpid()) rmdir(path_.c_str());
    }

private:
    pid_t madeBy_ = 0;
    std::string path_;
};

// The path the library is given for a file this load opened as fd: the
// library picks its reader by the name's extension and takes a title from
// the name, so the path must end in the file's own name; and it must lead
// to the open file, not to whatever the name means by the time the library
// opens it. So: a symbolic link of that name, in a folder of this thread's
// own, to /proc/self/fd/N. When the library would not open the file at all
// (no reader takes the extension) the path itself serves; when fd is -1 (the
// path named nothing) a name in that folder that leads nowhere, so that the
// library fails as it would on the path; when no folder can be made, the
// path itself.
class FdPath {
public:
    FdPath(const std::string& path, int fd) : path_(path) {
        if (!MediaFileHasReader(path.c_str())) return;
        const std::string& folder = ThreadFolder::Get();
        if (folder.empty()) return;
        const size_t slash = path.rfind('/');
        const std::string link = folder + "/" + (slash == std::string::npos ? path : path.substr(slash + 1));
        if (fd < 0) {
            unlink(link.c_str());
            path_ = link;
            return;
        }
        const std::string target = std::string(DescriptorFolder()) + "/" + std::to_string(fd);
        if (symlink(target.c_str(), link.c_str()) != 0) {
            // A link left by a load that was cut short.
            if (errno != EEXIST || unlink(link.c_str()) != 0 || symlink(target.c_str(), link.c_str()) != 0) return;
        }
        path_ = link;
        made_ = true;
    }
    ~FdPath() {
        if (made_) unlink(path_.c_str());
    }
    FdPath(const FdPath&) = delete;
    FdPath& operator=(const FdPath&) = delete;

    const std::string& Get() const { return path_; }

private:
    std::string path_;
    bool made_ = false;
};

// One unit of the scan's work: a path to load, or an item already decided
// (skipped, or an error) that only keeps its place in the order. Small: the
// walk may run far ahead, and a record is made only once a worker takes it.
struct Task {
    size_t sequence = 0;
    bool load = false;
    bool named = false;
    Outcome outcome = Outcome::kLoaded;
    SkipReason skip = SkipReason::kNone;
    int error = 0;
    std::string path;
    std::string reason;
};

// A finished item waiting for the ones before it.
struct Result {
    size_t sequence = 0;
    ScanItem item;
};

}  // namespace

// Every byte of the record is defined, padding included, so that records
// compare whole.
ScanItem::ScanItem() { memset(static_cast<void*>(&record), 0, sizeof record); }

bool ScanItem::Identified() const {
    return outcome == Outcome::kLoaded && status == MFI_OK && hasRecord &&
           (record.fileType[0] != '\0' || isAudio || isVideo);
}

bool ScanItem::LoadFailed() const {
    if (outcome != Outcome::kLoaded) return false;
    if (readingError != 0) return true;
    return status != MFI_OK && MediaFileHasReader(path.c_str());
}

bool WalkTakes(const std::string& path) { return TakesFile(path); }

std::string LibraryExtension(const media::Reading& reading) {
    // The reading's types, each with the one extension of the library's
    // reader for it that names it best.
    static const struct {
        const char* type;
        const char* extension;
    } kNames[] = {{"MP3", ".mp3"}, {"AAC", ".aac"}, {"WAV", ".wav"}, {"AIFF", ".aif"}, {"AIFC", ".aif"},
                  {"MP4", ".mp4"}, {"M4A", ".m4a"}, {"M4V", ".m4v"}, {"MOV", ".mov"}, {"3GP", ".3gp"}};
    for (const auto& n : kNames) {
        if (reading.type == n.type) return n.extension;
    }
    return std::string();
}

std::vector<std::string> ExtensionList(const std::string& list) {
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= list.size()) {
        size_t end = list.find(',', start);
        if (end == std::string::npos) end = list.size();
        std::string ext = list.substr(start, end - start);
        if (!ext.empty() && ext[0] == '.') ext.erase(0, 1);
        for (char& c : ext) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
        if (!ext.empty()) out.push_back(ext);
        start = end + 1;
    }
    return out;
}

std::string TypeLabel(const ScanItem& item) {
    if (!item.Identified()) return std::string();
    if (item.record.fileType[0] != '\0') return std::string(item.record.fileType, strnlen(item.record.fileType, MEDIA_TEXT_SIZE));
    // Only the AAC reader identifies a stream without naming its type.
    if (LowerExtension(item.path) == "aac") return "AAC";
    return item.isVideo ? "video" : "audio";
}

// The library's load of `libraryPath` and our readers' reading of `fd`
// (when it is not -1), into `item`.
static void LoadOpened(const std::string& libraryPath, int fd, ScanItem& item) {
    MediaFileInfo facade;
    MediaFileTakeTempFileError();  // only this load's failure counts
    item.status = facade.LoadFile(libraryPath.c_str());
    item.tempFileError = MediaFileTakeTempFileError();
    item.isAudio = facade.IsAudio() != 0;
    item.isVideo = facade.IsVideo() != 0;
    item.hasTags = facade.HasId3Info() != 0;
    const MediaFileInfo_st* record = facade.GetFileInfo();
    item.hasRecord = record != nullptr;
    if (record != nullptr) memcpy(static_cast<void*>(&item.record), record, sizeof item.record);
    if (fd >= 0) item.readingError = media::ReadMedia(fd, item.reading);
}

void LoadDescriptorInto(int fd, const std::string& name, ScanItem& item) {
    item.path = name;
    item.outcome = Outcome::kLoaded;
    FdPath libraryPath(name, fd);
    if (name.empty() || name.find('/') != std::string::npos || libraryPath.Get() == name) {
        // No link of that name leads to the descriptor: nothing is loaded.
        item.status = MFI_OPEN_FAILED;
        item.error = EINVAL;
        item.reason = "the file cannot be given to the library under a name";
        item.readingError = EINVAL;
        return;
    }
    LoadOpened(libraryPath.Get(), fd, item);
}

void LoadInto(const std::string& path, ScanItem& item) {
    item.outcome = Outcome::kLoaded;
    if (PathHoldsNul(path)) {
        // No system call could be given the whole path: nothing is loaded.
        item.status = MFI_OPEN_FAILED;
        item.error = EINVAL;
        item.reason = kNulInPath;
        item.readingError = EINVAL;
        return;
    }
    // The file is opened once, checked, and then read only through that
    // descriptor: no file swapped in after the check (a FIFO, which would
    // block the library's open) can be reached.
    int openError = 0;
    UniqueFd file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    bool readable = file.valid();
    if (!readable) {
        openError = errno;
        // Still the file itself, for its kind and for the library's account
        // of a file it cannot open (measured, but not read).
        file = UniqueFd(open(path.c_str(), O_PATH | O_CLOEXEC));
    }
    struct stat st;
    if (file.valid() && fstat(file.get(), &st) == 0 && !S_ISREG(st.st_mode)) {
        item.outcome = Outcome::kSkipped;
        item.skip = SkipReason::kSpecialFile;
        item.reason = SpecialFileKind(st.st_mode);
        return;
    }

    FdPath libraryPath(path, file.get());
    LoadOpened(libraryPath.Get(), readable ? file.get() : -1, item);
    if (!readable) item.readingError = openError;
    if (item.status == MFI_OPEN_FAILED && openError != 0) {
        // The library says only that it could not open the file: this is why.
        item.error = openError;
        item.reason = ErrorText(openError);
    }
}

std::vector<std::string> Warnings(const ScanItem& item) {
    std::vector<std::string> warnings;
    if (item.tempFileError != 0) {
        warnings.push_back(std::string("the compressed movie header could not be inflated: /temp.bin: ") +
                           std::strerror(item.tempFileError));
    }
    return warnings;
}

std::string ExtensionAdvice(const std::string& path) {
    const std::string extension = LowerExtension(path);
    if (extension.empty()) return "no extension";
    return "extension ." + extension + " is not read";
}

// The walk, one task at a time in walk order, kept as an explicit stack of
// folders so that it can stop after any task and go on later: the caller's
// thread can walk as it loads (one job), and a walk thread can hand tasks
// over in batches.
class Walk {
public:
    Walk(const std::vector<std::string>& roots, const ScanOptions& options) : roots_(roots), options_(options) {}

    // True between folders: the tasks walked so far are worth handing over
    // before the walk reads another folder.
    bool Pausing() const { return folders_.empty() || folders_.back().next >= folders_.back().entries.size(); }

    // The next task in walk order; false once the walk is over.
    bool Next(Task& task) {
        for (;;) {
            if (folders_.empty()) {
                if (nextRoot_ >= roots_.size()) return false;
                if (Root(roots_[nextRoot_++], task)) return true;
                continue;
            }
            Folder& folder = folders_.back();
            if (folder.next < folder.entries.size()) {
                const Entry& entry = folder.entries[folder.next++];
                if (EntryTask(folder.prefix + entry.name, entry, task)) return true;
                continue;
            }
            // A listing cut short by an error still reports it, after what it gave.
            const int error = folder.error;
            std::string path = std::move(folder.path);
            const bool named = folder.named;
            folders_.pop_back();
            if (error != 0) {
                Decided(task, path, named, Outcome::kError, SkipReason::kNone, error, ErrorText(error));
                return true;
            }
        }
    }

private:
    struct Entry {
        std::string name;
        unsigned char type;
    };
    struct Folder {
        std::string path;
        std::string prefix;
        bool named = false;
        int error = 0;
        std::vector<Entry> entries;
        size_t next = 0;
    };

    static void Decided(Task& task, const std::string& path, bool named, Outcome outcome, SkipReason skip, int error,
                        std::string reason) {
        task = Task();
        task.path = path;
        task.named = named;
        task.outcome = outcome;
        task.skip = skip;
        task.error = error;
        task.reason = std::move(reason);
    }

    static void Load(Task& task, const std::string& path, bool named) {
        task = Task();
        task.load = true;
        task.path = path;
        task.named = named;
    }

    bool Selected(const std::string& path) const {
        if (options_.extensions.empty()) return true;
        const std::string extension = LowerExtension(path);
        return std::find(options_.extensions.begin(), options_.extensions.end(), extension) !=
               options_.extensions.end();
    }

    // A regular file found in a walk.
    void File(const std::string& path, Task& task) const {
        if (!TakesFile(path)) {
            Decided(task, path, false, Outcome::kSkipped, SkipReason::kExtension, 0, ExtensionAdvice(path));
        } else if (!Selected(path)) {
            Decided(task, path, false, Outcome::kSkipped, SkipReason::kNotSelected, 0, "extension not selected");
        } else {
            Load(task, path, false);
        }
    }

    // Every entry of one folder, sorted by name; false when it cannot be read.
    static bool ReadFolder(const std::string& path, std::vector<Entry>& entries, int& error) {
        DIR* folder = opendir(path.c_str());
        if (folder == nullptr) {
            error = errno;
            return false;
        }
        for (;;) {
            errno = 0;
            const dirent* entry = readdir(folder);
            if (entry == nullptr) {
                error = errno;
                break;
            }
            if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
            entries.push_back({entry->d_name, entry->d_type});
        }
        closedir(folder);
        std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
        return error == 0;
    }

    // Enters a folder: its entries come next. True with a task when the
    // folder cannot be listed at all.
    bool EnterFolder(const std::string& path, bool named, Task& task) {
        Folder folder;
        if (!ReadFolder(path, folder.entries, folder.error) && folder.entries.empty()) {
            Decided(task, path, named, Outcome::kError, SkipReason::kNone, folder.error, ErrorText(folder.error));
            return true;
        }
        folder.path = path;
        folder.prefix = path.empty() || path.back() == '/' ? path : path + "/";
        folder.named = named;
        folders_.push_back(std::move(folder));
        return false;
    }

    // True with a task, false when the entry was a folder now entered.
    bool EntryTask(const std::string& path, const Entry& e, Task& task) {
        if (!options_.hidden && e.name[0] == '.') {
            Decided(task, path, false, Outcome::kSkipped, SkipReason::kHidden, 0, "hidden");
            return true;
        }
        // The listing's type spares a look-up for plain files and folders.
        if (e.type == DT_REG) {
            File(path, task);
            return true;
        }
        if (e.type == DT_DIR) return EnterFolder(path, false, task);
        struct stat st;
        if (lstat(path.c_str(), &st) != 0) {
            Decided(task, path, false, Outcome::kError, SkipReason::kNone, errno, ErrorText(errno));
            return true;
        }
        if (S_ISDIR(st.st_mode)) return EnterFolder(path, false, task);
        if (S_ISLNK(st.st_mode)) {
            if (stat(path.c_str(), &st) != 0) {
                Decided(task, path, false, Outcome::kError, SkipReason::kNone, errno, ErrorText(errno));
                return true;
            }
            if (S_ISDIR(st.st_mode)) {
                Decided(task, path, false, Outcome::kSkipped, SkipReason::kLinkedFolder, 0,
                        "symbolic link to a folder, not followed");
                return true;
            }
        }
        if (S_ISREG(st.st_mode)) {
            File(path, task);
        } else {
            Decided(task, path, false, Outcome::kSkipped, SkipReason::kSpecialFile, 0, SpecialFileKind(st.st_mode));
        }
        return true;
    }

    bool Root(const std::string& path, Task& task) {
        // The system would see only the part before the NUL (a folder met
        // again and again, walked until the stack ran out).
        if (PathHoldsNul(path)) {
            Decided(task, path, true, Outcome::kError, SkipReason::kNone, EINVAL, kNulInPath);
            return true;
        }
        struct stat st;
        if (stat(path.c_str(), &st) != 0) {
            Decided(task, path, true, Outcome::kError, SkipReason::kNone, errno, ErrorText(errno));
            return true;
        }
        if (S_ISDIR(st.st_mode)) return EnterFolder(path, true, task);
        if (!S_ISREG(st.st_mode)) {
            Decided(task, path, true, Outcome::kSkipped, SkipReason::kSpecialFile, 0, SpecialFileKind(st.st_mode));
        } else if (!TakesFile(path)) {
            Decided(task, path, true, Outcome::kSkipped, SkipReason::kExtension, 0, ExtensionAdvice(path));
        } else {
            Load(task, path, true);
        }
        return true;
    }

    const std::vector<std::string>& roots_;
    const ScanOptions& options_;
    size_t nextRoot_ = 0;
    std::vector<Folder> folders_;  // the folders being walked, innermost last
};

struct Scan::State {
    explicit State(std::vector<std::string> r, ScanOptions o)
        : roots(std::move(r)), options(std::move(o)), walk(roots, options) {}

    std::vector<std::string> roots;
    ScanOptions options;
    Walk walk;

    std::mutex mutex;
    std::condition_variable walked;   // tasks were queued, or the walk ended
    std::condition_variable taken;    // tasks were taken: room for the walk
    std::condition_variable loaded;   // results are ready, or the scan ended
    std::deque<Task> tasks;           // in sequence order
    bool inlineLoads = false;                  // one job: Next walks and loads
    size_t jobs = 1;                           // loading workers
    std::atomic<unsigned> idleWorkers{0};      // workers waiting for a task or for room
    bool walkerWaiting = false;                // the walk waits for room in tasks
    bool consumerWaiting = false;              // Next waits for its result
    size_t loadAhead = kLeastLoadAhead;        // results that may wait for Next
    std::vector<std::unique_ptr<Result>> results;  // loadAhead slots, by sequence
    std::atomic<size_t> queued{0};    // tasks the walk produced
    std::atomic<size_t> done{0};      // items handed out
    std::atomic<size_t> collected{0};  // results taken from their slots
    bool walkEnded = false;
    std::atomic<bool> cancelled{false};

    // Results already taken from the slots, not yet handed out: Next takes
    // every ready result in one turn of the lock.
    std::deque<ScanItem> ready;

    std::thread walker;
    std::vector<std::thread> workers;

    // ---- The walk thread (several jobs) ------------------------------------

    // Hands a batch of tasks over; false when the scan was cancelled.
    bool Queue(std::vector<Task>& batch) {
        std::unique_lock<std::mutex> lock(mutex);
        if (tasks.size() >= kWalkAhead) {
            walkerWaiting = true;
            taken.wait(lock, [&] { return cancelled || tasks.size() < kWalkAhead; });
            walkerWaiting = false;
        }
        if (cancelled) return false;
        size_t sequence = queued.load();
        for (Task& task : batch) {
            task.sequence = sequence++;
            tasks.push_back(std::move(task));
        }
        queued.store(sequence);
        batch.clear();
        if (idleWorkers.load() > 0) walked.notify_all();
        return true;
    }

    // Walks ahead of the loads, handing tasks over a batch at a time: a full
    // batch, or a folder's worth.
    void WalkAhead() {
        std::vector<Task> batch;
        batch.reserve(kWalkBatch);
        Task task;
        bool more = true;
        while (more && !cancelled.load()) {
            more = walk.Next(task);
            if (more) batch.push_back(std::move(task));
            const bool flush = !more || batch.size() >= kWalkBatch || walk.Pausing();
            if (flush && !batch.empty() && !Queue(batch)) return;
        }
        std::lock_guard<std::mutex> lock(mutex);
        walkEnded = true;
        walked.notify_all();
        loaded.notify_all();
    }

    // ---- The loads ---------------------------------------------------------

    // Takes the next tasks whose results have room, up to a batch: one
    // hand-over for several small files, and a share of what is queued so
    // that every worker gets some. False when there is none left or the
    // scan was cancelled.
    bool Take(std::vector<Task>& batch) {
        batch.clear();
        std::unique_lock<std::mutex> lock(mutex);
        const auto ready = [&] {
            if (cancelled) return true;
            if (tasks.empty()) return walkEnded;
            return tasks.front().sequence < collected.load() + loadAhead;
        };
        if (!ready()) {
            ++idleWorkers;
            walked.wait(lock, ready);
            --idleWorkers;
        }
        if (cancelled) return false;
        const size_t most = std::max(kBatch, std::min(kWalkBatch, (tasks.size() + jobs - 1) / jobs));
        while (!tasks.empty() && batch.size() < most && tasks.front().sequence < collected.load() + loadAhead) {
            batch.push_back(std::move(tasks.front()));
            tasks.pop_front();
        }
        if (walkerWaiting) taken.notify_one();
        return !batch.empty();
    }

    // The item a task stands for: loaded, or as the walk decided it.
    static void Perform(Task& task, ScanItem& item) {
        item.path = std::move(task.path);
        item.named = task.named;
        if (task.load) {
            LoadInto(item.path, item);
        } else {
            item.outcome = task.outcome;
            item.skip = task.skip;
            item.error = task.error;
            item.reason = std::move(task.reason);
        }
    }

    void Work() {
        std::vector<Task> batch;
        std::vector<std::unique_ptr<Result>> finished;
        while (Take(batch)) {
            finished.clear();
            for (Task& task : batch) {
                auto result = std::make_unique<Result>();
                result->sequence = task.sequence;
                Perform(task, result->item);
                finished.push_back(std::move(result));
            }
            std::lock_guard<std::mutex> lock(mutex);
            bool wanted = false;
            for (std::unique_ptr<Result>& result : finished) {
                wanted |= result->sequence == collected.load();
                results[result->sequence % loadAhead] = std::move(result);
            }
            if (wanted && consumerWaiting) loaded.notify_one();
        }
    }

    // With one job the caller walks and loads each item itself, as a plain
    // loop would: no other thread, no hand-over.
    bool NextInline(ScanItem& item) {
        Task task;
        if (cancelled.load() || !walk.Next(task)) return false;
        queued.store(queued.load() + 1);
        item = ScanItem();
        Perform(task, item);
        done.store(done.load() + 1);
        return true;
    }

    bool Next(ScanItem& item) {
        if (inlineLoads) return NextInline(item);
        if (cancelled.load() || (ready.empty() && !TakeReady())) return false;
        item = std::move(ready.front());
        ready.pop_front();
        done.store(done.load() + 1);
        return true;
    }

    // Moves every result that is next in order out of its slot, waiting for
    // the first; false once every item was handed out, or after Cancel.
    bool TakeReady() {
        std::unique_lock<std::mutex> lock(mutex);
        size_t want = collected.load();
        const auto first = [&] {
            const std::unique_ptr<Result>& slot = results[want % loadAhead];
            return cancelled || (slot && slot->sequence == want) || (walkEnded && want >= queued.load());
        };
        if (!first()) {
            consumerWaiting = true;
            loaded.wait(lock, first);
            consumerWaiting = false;
        }
        if (cancelled) return false;
        for (;;) {
            std::unique_ptr<Result>& slot = results[want % loadAhead];
            if (!slot || slot->sequence != want) break;
            ready.push_back(std::move(slot->item));
            slot.reset();
            ++want;
        }
        if (ready.empty()) return false;
        collected.store(want);
        // Workers may wait for the room this made.
        if (idleWorkers.load() > 0) walked.notify_all();
        return true;
    }

    void Stop() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            cancelled = true;
        }
        walked.notify_all();
        taken.notify_all();
        loaded.notify_all();
    }
};

Scan::Scan(std::vector<std::string> roots, ScanOptions options)
    : state_(std::make_unique<State>(std::move(roots), std::move(options))) {
    unsigned jobs = state_->options.jobs;
    if (jobs == 0) jobs = std::max(1u, std::thread::hardware_concurrency());
    state_->loadAhead = std::max(kLeastLoadAhead, kLoadAheadPerJob * jobs);
    state_->results.resize(state_->loadAhead);
    state_->inlineLoads = jobs == 1;
    state_->jobs = jobs;
    if (state_->inlineLoads) return;
    try {
        state_->workers.reserve(jobs);
        state_->walker = std::thread([s = state_.get()] { s->WalkAhead(); });
        for (unsigned k = 0; k < jobs; ++k) state_->workers.emplace_back([s = state_.get()] { s->Work(); });
    } catch (...) {
        // A thread that cannot start (too many threads, no memory for a
        // stack): the ones started are stopped and joined, and the caller
        // learns why instead of the process ending.
        state_->Stop();
        if (state_->walker.joinable()) state_->walker.join();
        for (std::thread& worker : state_->workers) worker.join();
        throw;
    }
}

Scan::~Scan() {
    state_->Stop();
    if (state_->walker.joinable()) state_->walker.join();
    for (std::thread& worker : state_->workers) worker.join();
}

bool Scan::Next(ScanItem& item) { return state_->Next(item); }

void Scan::Cancel() { state_->Stop(); }

size_t Scan::Found() const { return state_->queued.load(); }

size_t Scan::Done() const { return state_->done.load(); }

}  // namespace fileinfo
