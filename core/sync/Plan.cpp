#include "sync/Plan.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "FileInfoVersion.h"
#include "FileOps.h"
#include "MediaFileInfo.h"
#include "sync/FatNames.h"
#include "sync/Playlist.h"

namespace fileinfo {
namespace sync {

namespace {

constexpr long kExfatMagic = 0x2011BAB0;

std::string ErrorText(int error) { return std::generic_category().message(error); }

std::string LowerExtension(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return std::string();
    std::string extension = name.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return extension;
}

std::string Absolute(const std::string& path) {
    char* real = realpath(path.c_str(), nullptr);
    if (real == nullptr) return std::string();
    std::string out(real);
    free(real);
    return out;
}

bool Inside(const std::string& path, const std::string& folder) {
    if (folder == "/") return true;
    return path == folder || (path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
                              path[folder.size()] == '/');
}

// A file the walk found: its source path, and its path below the device
// folder before the device's names are applied.
// A folder of the walk, open while files found in it wait for their stat:
// a stat relative to it looks up one name rather than the whole path.
struct OpenFolder {
    int fd;
    explicit OpenFolder(int f) : fd(f) {}
    ~OpenFolder() {
        if (fd >= 0) close(fd);
    }
};

struct Found {
    std::string source;
    std::shared_ptr<OpenFolder> folder;  // the source's folder, or null
    std::string relative;
    struct stat st;
    bool playlist = false;
    bool needsStat = false;  // listed as a regular file: stat after the walk
    SkipKind skip = SkipKind::kNone;
    std::string reason;
};

// Walks the sources in order, handing what it finds over in chunks of
// kChunk files, so that the walk holds no more than a chunk.
constexpr size_t kChunk = 512;
constexpr size_t kChunkFolders = 64;

class Walker {
public:
    Walker(const PlanOptions& options, std::vector<Found>& found, std::function<void()> full)
        : options_(options), found_(found), full_(std::move(full)) {}

    void Root(const std::string& given) {
        const std::string path = Absolute(given);
        struct stat st;
        if (path.empty() || stat(path.c_str(), &st) != 0) {
            Add(given, std::string(), nullptr, SkipKind::kUnreadable, ErrorText(errno));
            return;
        }
        if (S_ISDIR(st.st_mode)) {
            Folder(path, std::string());
            return;
        }
        const std::string name = path.substr(path.rfind('/') + 1);
        if (!S_ISREG(st.st_mode)) {
            Add(path, name, &st, SkipKind::kSpecial, "not a regular file");
        } else if (IsPlaylistName(path)) {
            Add(path, name, &st, SkipKind::kNone, std::string(), true);
        } else if (!WalkTakes(path)) {
            Add(path, name, &st, SkipKind::kNotMedia, ExtensionAdvice(path));
        } else {
            Add(path, name, &st, SkipKind::kNone, std::string());
        }
    }

private:
    void Add(const std::string& source, const std::string& relative, const struct stat* st, SkipKind skip,
             std::string reason, bool playlist = false, bool needsStat = false) {
        Found f;
        f.needsStat = needsStat;
        if (needsStat && folder_) {
            f.folder = folder_;
            if (folder_.get() != lastFolder_) ++chunkFolders_;
            lastFolder_ = folder_.get();
        }
        f.source = source;
        f.relative = relative;
        if (st != nullptr) {
            f.st = *st;
        } else {
            memset(&f.st, 0, sizeof f.st);
        }
        f.skip = skip;
        f.reason = std::move(reason);
        f.playlist = playlist;
        found_.push_back(std::move(f));
        if (found_.size() >= kChunk || chunkFolders_ >= kChunkFolders) {
            full_();
            chunkFolders_ = 0;
            lastFolder_ = nullptr;
        }
    }

    bool Selected(const std::string& path) const {
        if (options_.extensions.empty()) return true;
        return std::find(options_.extensions.begin(), options_.extensions.end(), LowerExtension(path)) !=
               options_.extensions.end();
    }

    void Folder(const std::string& path, const std::string& relative) {
        const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        DIR* folder = fd >= 0 ? fdopendir(fd) : nullptr;
        if (folder == nullptr) {
            if (fd >= 0) close(fd);
            Add(path, relative, nullptr, SkipKind::kUnreadable, ErrorText(errno));
            return;
        }
        std::vector<std::pair<std::string, unsigned char>> names;
        while (const dirent* entry = readdir(folder)) {
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) names.emplace_back(entry->d_name, entry->d_type);
        }
        // Kept open for the stats while there are few: with too many
        // descriptors open, the files are stated by their paths.
        const int kept = dup(dirfd(folder));
        closedir(folder);
        const std::shared_ptr<OpenFolder> held = kept >= 0 ? std::make_shared<OpenFolder>(kept) : nullptr;
        folder_ = held;
        std::sort(names.begin(), names.end());
        for (const auto& name : names) {
            const std::string child = path == "/" ? "/" + name.first : path + "/" + name.first;
            const std::string childRelative = relative.empty() ? name.first : relative + "/" + name.first;
            Entry(child, childRelative, name.first, name.second);
            folder_ = held;
        }
        folder_.reset();
    }

    void Entry(const std::string& path, const std::string& relative, const std::string& name, unsigned char type) {
        struct stat st;
        if (!options_.hidden && name[0] == '.') {
            Add(path, relative, nullptr, SkipKind::kHidden, "hidden");
            return;
        }
        if (type == DT_DIR) {
            Folder(path, relative);
            return;
        }
        if (type == DT_REG) {
            // The listing says what it is; the stat that gives its state is
            // made after the walk, on several threads.
            File(path, relative, nullptr);
            return;
        }
        if (lstat(path.c_str(), &st) != 0) {
            Add(path, relative, nullptr, SkipKind::kUnreadable, ErrorText(errno));
            return;
        }
        if (S_ISDIR(st.st_mode)) {
            Folder(path, relative);
            return;
        }
        if (S_ISLNK(st.st_mode)) {
            if (stat(path.c_str(), &st) != 0) {
                Add(path, relative, nullptr, SkipKind::kUnreadable, ErrorText(errno));
                return;
            }
            if (S_ISDIR(st.st_mode)) {
                Add(path, relative, &st, SkipKind::kSpecial, "symbolic link to a folder, not followed");
                return;
            }
        }
        if (!S_ISREG(st.st_mode)) {
            Add(path, relative, &st, SkipKind::kSpecial, "not a regular file");
            return;
        }
        File(path, relative, &st);
    }

    // `st` null: listed as a regular file, stat after the walk.
    void File(const std::string& path, const std::string& relative, const struct stat* st) {
        const bool needsStat = st == nullptr;
        if (IsPlaylistName(path)) {
            Add(path, relative, st, SkipKind::kNone, std::string(), true, needsStat);
        } else if (!WalkTakes(path)) {
            Add(path, relative, st, SkipKind::kNotMedia, ExtensionAdvice(path), false, needsStat);
        } else if (!Selected(path)) {
            Add(path, relative, st, SkipKind::kNotMedia, "extension not selected", false, needsStat);
        } else {
            Add(path, relative, st, SkipKind::kNone, std::string(), false, needsStat);
        }
    }

    const PlanOptions& options_;
    std::vector<Found>& found_;
    std::function<void()> full_;
    std::shared_ptr<OpenFolder> folder_;  // the folder being listed
    const OpenFolder* lastFolder_ = nullptr;
    size_t chunkFolders_ = 0;  // folders the chunk holds open
};

std::string FolderPart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string NamePart(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string ReplaceExtension(const std::string& name, const std::string& extension) {
    if (extension.empty()) return name;
    const size_t dot = name.rfind('.');
    return (dot == std::string::npos || dot == 0 ? name : name.substr(0, dot)) + extension;
}

// `stem` cut at a character's start where `stem` and `tail` together would
// not fit in one folder entry (NAME_MAX bytes), then `tail`.
std::string FitName(const std::string& stem, const std::string& tail) {
    const size_t room = NAME_MAX > tail.size() ? NAME_MAX - tail.size() : 0;
    if (stem.size() <= room) return stem + tail;
    size_t cut = room;
    while (cut > 0 && (static_cast<unsigned char>(stem[cut]) & 0xC0) == 0x80) --cut;
    return stem.substr(0, cut) + tail;
}

// A name's stem and its extension (with the dot; empty when the name has
// none, or only a leading dot).
std::pair<std::string, std::string> SplitExtension(const std::string& name) {
    const size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return {name, std::string()};
    return {name.substr(0, dot), name.substr(dot)};
}

// `name` with `extension` in place of its own, cut to fit one folder entry.
std::string LinkName(const std::string& name, const std::string& extension) {
    return FitName(SplitExtension(name).first, extension);
}

// A set of 64-bit hashes at 8 bytes each: a sorted run, and a short tail
// merged into it when it fills.
class HashSet {
public:
    bool Has(uint64_t hash) const {
        return std::binary_search(sorted_.begin(), sorted_.end(), hash) ||
               std::find(tail_.begin(), tail_.end(), hash) != tail_.end();
    }
    void Add(uint64_t hash) {
        if (Has(hash)) return;
        tail_.push_back(hash);
        if (tail_.size() < kTail) return;
        std::sort(tail_.begin(), tail_.end());
        const size_t middle = sorted_.size();
        sorted_.insert(sorted_.end(), tail_.begin(), tail_.end());
        std::inplace_merge(sorted_.begin(), sorted_.begin() + static_cast<std::ptrdiff_t>(middle), sorted_.end());
        tail_.clear();
    }

private:
    static constexpr size_t kTail = 256;
    std::vector<uint64_t> sorted_;
    std::vector<uint64_t> tail_;
};

// The device's names: each found file's device path, with names the file
// system takes and no two files on one name (as the file system compares
// names). Paths the manifest gave earlier are claimed first, so a file
// keeps its name from run to run; new ones take the next free number.
class Namer {
public:
    Namer(bool fat, int deviceFd) : fat_(fat), deviceFd_(deviceFd) {}

    std::string Key(const std::string& path) const { return fat_ ? FatFoldKey(path) : path; }

    void Claim(const std::string& devicePath) {
        files_.Add(Hash(Key(devicePath)));
        // Its folders are spelt as they are already.
        std::string folder = FolderPart(devicePath);
        while (!folder.empty()) {
            folders_.emplace(Key(folder), folder);
            folder = FolderPart(folder);
        }
    }

    // A new device path for `relative`, whose name becomes `extension`'s.
    std::string Assign(const std::string& relative, const std::string& extension) {
        std::string folder;
        const std::string parent = FolderPart(relative);
        size_t start = 0;
        while (start < parent.size()) {
            size_t end = parent.find('/', start);
            if (end == std::string::npos) end = parent.size();
            const std::string name = Name(parent.substr(start, end - start));
            const std::string wanted = folder.empty() ? name : folder + "/" + name;
            auto at = folders_.emplace(Key(wanted), wanted).first;
            folder = at->second;
            start = end + 1;
        }
        const std::string base = Name(ReplaceExtension(NamePart(relative), extension));
        for (unsigned n = 1;; ++n) {
            const std::string name = n == 1 ? base : (fat_ ? NumberedName(base, n) : Numbered(base, n));
            const std::string path = folder.empty() ? name : folder + "/" + name;
            const std::string key = Key(path);
            if (files_.Has(Hash(key)) || folders_.count(key) != 0 || Occupied(path)) continue;
            files_.Add(Hash(key));
            return path;
        }
    }

private:
    // A name that gained a longer extension (a file without one, or a
    // converted file) may no longer fit a folder entry: its stem is cut.
    std::string Name(const std::string& name) const {
        if (fat_) return FatName(name);
        const auto [stem, extension] = SplitExtension(name);
        return FitName(stem, extension);
    }

    static std::string Numbered(const std::string& name, unsigned n) {
        const auto [stem, extension] = SplitExtension(name);
        return FitName(stem, " (" + std::to_string(n) + ")" + extension);
    }

    // A name in the device folder that sync did not put there: the user's.
    bool Occupied(const std::string& path) const {
        struct stat st;
        return deviceFd_ >= 0 && fstatat(deviceFd_, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0;
    }

    // The names taken are held as 64-bit hashes of their keys, 8 bytes a
    // file rather than its path: two keys of one hash, never seen in
    // practice, would only give a file a numbered name.
    static uint64_t Hash(const std::string& key) { return std::hash<std::string>()(key); }

    bool fat_;
    int deviceFd_;
    HashSet files_;
    std::unordered_map<std::string, std::string> folders_;
};

// The device file's state, for a row: intact when its size and time are the
// ones recorded after it was written.
bool DeviceIntact(int deviceFd, const ManifestRow& row) {
    struct stat st;
    if (deviceFd < 0 || fstatat(deviceFd, row.devicePath.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
    const FileState state = FileState::Of(st);
    return S_ISREG(st.st_mode) && state.size == row.deviceSize && state.mtimeNs == row.deviceMtimeNs;
}

bool DeviceExists(int deviceFd, const std::string& path, uint64_t& size) {
    struct stat st;
    if (deviceFd < 0 || fstatat(deviceFd, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) return false;
    size = static_cast<uint64_t>(st.st_size);
    return true;
}

// True when the device file holds exactly `bytes`.
bool DeviceHolds(int deviceFd, const std::string& path, const std::string& bytes) {
    const int fd = openat(deviceFd, path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    std::string held;
    char buffer[1 << 16];
    bool ok = true;
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) ok = false;
        if (n <= 0) break;
        held.append(buffer, static_cast<size_t>(n));
        if (held.size() > bytes.size()) break;
    }
    close(fd);
    return ok && held == bytes;
}

// True when the device file and the source hold the same bytes: a copy a
// stopped run finished but did not record.
bool SameBytes(int deviceFd, const std::string& devicePath, const std::string& source) {
    const int a = openat(deviceFd, devicePath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    const int b = open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    bool same = a >= 0 && b >= 0;
    static constexpr size_t kBlock = 1 << 16;
    std::vector<char> x(kBlock), y(kBlock);
    off_t at = 0;
    while (same) {
        const ssize_t m = pread(a, x.data(), kBlock, at);
        const ssize_t n = pread(b, y.data(), kBlock, at);
        if (m < 0 || n < 0 || m != n) {
            same = false;
            break;
        }
        if (m == 0) break;
        same = memcmp(x.data(), y.data(), static_cast<size_t>(m)) == 0;
        at += m;
    }
    if (a >= 0) close(a);
    if (b >= 0) close(b);
    return same;
}

bool ReadSmallFile(const std::string& path, std::string& text, int& error) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        error = errno;
        return false;
    }
    char buffer[1 << 16];
    for (;;) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) error = errno;
        if (n <= 0) break;
        text.append(buffer, static_cast<size_t>(n));
        if (text.size() > kMaxPlaylistBytes) {
            error = EFBIG;
            break;
        }
    }
    close(fd);
    return error == 0;
}

uint64_t InBlocks(uint64_t bytes, uint64_t block) {
    if (block == 0) return bytes;
    return (bytes + block - 1) / block * block;
}

// Runs work(k) for every k below n on `jobs` threads, the caller's among them.
template <class Work>
void ParallelFor(size_t n, unsigned jobs, const Work& work) {
    if (jobs == 0) jobs = std::max(1u, std::thread::hardware_concurrency());
    jobs = static_cast<unsigned>(std::min<size_t>(jobs, n));
    std::atomic<size_t> next{0};
    const auto run = [&] {
        for (size_t k; (k = next.fetch_add(1)) < n;) work(k);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < jobs; ++t) threads.emplace_back(run);
    run();
    for (std::thread& t : threads) t.join();
}

// The entries of a plan whose device folder holds no scratch file (a dry
// run on FAT, which may name nothing there) go to an unnamed file in the
// folder for temporary files: memory stays flat all the same.
void SpillToTemporaryFolder(PlanEntries& entries, std::string folder) {
    if (folder.empty()) {
        const char* env = getenv("TMPDIR");
        folder = env != nullptr && env[0] == '/' ? env : "/tmp";
    }
    const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    entries.SpillTo(fd, false, true);
    close(fd);
}

// Loads `source` as the device's library will see its copy. A file whose
// extension the library takes is loaded by its own name. One named
// otherwise (.aiff, .m4b, .mp2, or no extension), which the library would
// not take, is loaded under the name its copy gets: the extension the
// library reads the type its bytes hold by. Returns that extension, or
// empty when the copy keeps the source's name.
std::string LoadAsOnDevice(const std::string& source, ScanItem& item) {
    item.path = source;
    if (MediaFileHasReader(source.c_str()) || PathHoldsNul(source)) {
        LoadInto(source, item);
        return std::string();
    }
    UniqueFd file(open(source.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st;
    media::Reading reading;
    if (!file.valid() || fstat(file.get(), &st) != 0 || !S_ISREG(st.st_mode) || media::ReadMedia(file.get(), reading) != 0) {
        LoadInto(source, item);  // its account of why the file cannot be read
        return std::string();
    }
    const std::string extension = LibraryExtension(reading);
    if (extension.empty()) {
        item.outcome = Outcome::kLoaded;
        item.status = MFI_NOT_THIS_FORMAT;
        item.reading = std::move(reading);
        return std::string();
    }
    LoadDescriptorInto(file.get(), LinkName(NamePart(source), extension), item);
    item.path = source;
    return extension;
}

// Loads every entry in `loads` on `jobs` threads and decides it.
void LoadAndDecide(std::vector<PlanEntry>& entries, const std::vector<size_t>& loads, unsigned jobs,
                   const Decider& decide, std::vector<Decision>& decisions) {
    decisions.assign(entries.size(), Decision());
    if (loads.empty()) return;
    if (jobs == 0) jobs = std::max(1u, std::thread::hardware_concurrency());
    jobs = static_cast<unsigned>(std::min<size_t>(jobs, loads.size()));
    std::atomic<size_t> next{0};
    const auto work = [&] {
        for (size_t k; (k = next.fetch_add(1)) < loads.size();) {
            const size_t index = loads[k];
            ScanItem item;
            const std::string& source = entries[index].source;
            const std::string extension = LoadAsOnDevice(source, item);
            if (item.outcome == Outcome::kLoaded && item.readingError == 0 && !item.reading.Identified() &&
                !MediaFileHasReader(source.c_str())) {
                // Another name of a media format, or none: media only by
                // its bytes, and these are none the readers know. A name
                // without an extension is most often no media file at all.
                const bool bare = LowerExtension(source).empty();
                decisions[index].skip = bare ? SkipKind::kNotMedia : SkipKind::kNotIdentified;
                decisions[index].reason = std::string(SkipKindName(decisions[index].skip)) +
                                          (bare ? ": " + ExtensionAdvice(source) : std::string());
                continue;
            }
            decisions[index] = decide(item);
            if (decisions[index].action != Action::kSkip && decisions[index].extension.empty()) {
                decisions[index].extension = extension;
            }
        }
    };
    std::vector<std::thread> threads;
    for (unsigned k = 1; k < jobs; ++k) threads.emplace_back(work);
    work();
    for (std::thread& t : threads) t.join();
}

void ApplyDecision(PlanEntry& e, const Decision& d) {
    e.libraryPlayable = d.libraryPlayable;
    e.libraryExplanation = d.libraryExplanation;
    e.refusedBy = d.refusedBy;
    e.target = d.target;
    if (d.action == Action::kSkip) {
        e.skip = d.skip;
        e.reason = d.reason;
        if (e.hasRow) {
            // Its copy is out of date and the device no longer gets one.
            e.action = Action::kRemove;
            e.bytes = e.row->deviceSize;
            e.reason = "now skipped: " + d.reason;
        } else {
            e.action = Action::kSkip;
        }
        return;
    }
    e.bytes = d.bytes;
    // A file that now becomes another type than its device copy (a copy
    // now converted, or the other way round) cannot keep the old name's
    // extension: the new file gets a name of its own (given with the new
    // files' names), and replaces the old one once it is in place.
    const std::string becomes = LowerExtension(d.extension.empty() ? e.source : "file" + d.extension);
    if (e.hasRow && becomes != LowerExtension(e.row->devicePath)) {
        e.action = Action::kUpdate;
        e.replaces = e.row->devicePath;
        e.replacedBytes = e.row->deviceSize;
        e.replacedMtimeNs = e.row->deviceMtimeNs;
        e.reason = "becomes ." + becomes;
        return;
    }
    if (e.hasRow) {
        const bool intact = e.action == Action::kKeep;  // set by the caller when the device file is intact
        if (intact && d.target == e.row->target) {
            e.action = Action::kKeep;
            e.refreshRow = true;  // judged again against a new list: record it
            e.bytes = 0;
            return;
        }
        e.action = Action::kUpdate;
        return;
    }
    e.action = d.action;
}

}  // namespace

std::string SkipDigest(const std::string& capsDigest) { return capsDigest + "/" FILEINFO_VERSION_STRING; }

bool JudgedSkip(SkipKind kind) {
    return kind == SkipKind::kNotLoaded || kind == SkipKind::kNotIdentified || kind == SkipKind::kRefused;
}

const char* ActionName(Action action) {
    switch (action) {
        case Action::kCopy: return "copy";
        case Action::kConvert: return "convert";
        case Action::kUpdate: return "update";
        case Action::kKeep: return "keep";
        case Action::kRemove: return "remove";
        case Action::kSkip: return "skip";
    }
    return "skip";
}

const char* SkipKindName(SkipKind kind) {
    switch (kind) {
        case SkipKind::kNone: return "";
        case SkipKind::kNotLoaded: return "did not load";
        case SkipKind::kNotIdentified: return "not identified";
        case SkipKind::kRefused: return "refused by the device";
        case SkipKind::kTooLarge: return "too large for the file system";
        case SkipKind::kPathTooLong: return "path too long for the file system";
        case SkipKind::kNotMedia: return "not a media file";
        case SkipKind::kHidden: return "hidden";
        case SkipKind::kSpecial: return "not a regular file";
        case SkipKind::kUnreadable: return "could not be read";
        case SkipKind::kNeedsConverter: return "needs ffmpeg";
    }
    return "";
}

Decider CopyDecider(ReadingJudge reading, LibraryJudge library) {
    return [reading = std::move(reading), library = std::move(library)](const ScanItem& item) {
        Decision d;
        const DeviceVerdict own = library(item);
        d.libraryPlayable = own.playable;
        d.libraryExplanation = own.explanation;
        if (item.outcome != Outcome::kLoaded || item.status != MFI_OK || !item.hasRecord) {
            d.skip = SkipKind::kNotLoaded;
            d.reason = std::string(SkipKindName(d.skip)) + ": " +
                       (item.reason.empty() ? MediaFileStatusText(item.status) : item.reason);
            return d;
        }
        if (!item.reading.Identified()) {
            d.skip = SkipKind::kNotIdentified;
            d.reason = SkipKindName(d.skip);
            return d;
        }
        const ReadingVerdict verdict = reading(item);
        if (!verdict.playable) {
            d.skip = SkipKind::kRefused;
            for (const std::string& key : verdict.refusedBy) d.refusedBy += (d.refusedBy.empty() ? "" : ", ") + key;
            d.reason = std::string(SkipKindName(d.skip));
            if (!d.refusedBy.empty()) d.reason += " (" + d.refusedBy + ")";
            if (!verdict.explanation.empty()) d.reason += ": " + verdict.explanation;
            return d;
        }
        d.action = Action::kCopy;
        d.bytes = item.reading.size != 0 ? item.reading.size : item.record.fileSize;
        return d;
    };
}

Decider CopyDecider(const Device& device) {
    return CopyDecider([&device](const ScanItem& item) { return device.JudgeReading(item.reading); },
                       [&device](const ScanItem& item) { return device.Judge(item); });
}

std::string CapsDigest(const std::string& caps) {
    uint64_t hash = 0xcbf29ce484222325ull;  // 64-bit FNV-1a
    for (const char c : caps) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 0x100000001b3ull;
    }
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

bool IsFatFileSystem(const std::string& folder) {
    struct statfs fs;
    if (statfs(folder.c_str(), &fs) != 0) return false;
    return fs.f_type == MSDOS_SUPER_MAGIC || static_cast<long>(fs.f_type) == kExfatMagic;
}

bool SafeDevicePath(const std::string& path) {
    if (path.empty() || path[0] == '/' || path.find('\0') != std::string::npos) return false;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        const std::string name = path.substr(start, end - start);
        if (name.empty() || name == "." || name == "..") return false;
        start = end + 1;
    }
    return true;
}

std::string CheckDeviceFolder(const std::vector<std::string>& sources, const std::string& folder, std::string& error) {
    const std::string device = Absolute(folder);
    struct stat st;
    if (device.empty() || stat(device.c_str(), &st) != 0) {
        error = folder + ": " + ErrorText(errno);
        return std::string();
    }
    if (!S_ISDIR(st.st_mode)) {
        error = folder + ": not a folder";
        return std::string();
    }
    for (const std::string& source : sources) {
        // A source named but not there is a mistake (a typo, a drive not
        // mounted), not a collection that lost its files: nothing is
        // planned, and no copy of it is removed.
        struct stat named;
        if (source.find('\0') == std::string::npos && lstat(source.c_str(), &named) != 0) {
            error = source + ": " + ErrorText(errno);
            return std::string();
        }
        const std::string s = Absolute(source);
        if (s.empty()) continue;  // reported by the walk
        if (Inside(device, s)) {
            error = folder + " lies inside the source " + source + ": sources are only read";
            return std::string();
        }
        if (Inside(s, device)) {
            error = "the source " + source + " lies inside " + folder;
            return std::string();
        }
    }
    return device;
}

namespace {

// Makes a plan chunk by chunk as the walk hands files over: each chunk's
// files are stated, looked up in the manifest, loaded and judged where
// they must be, named, and stored in the plan's entries. What stays in
// memory across chunks grows by a few bytes a file: the ids of the
// manifest's rows the files took, and the hashes of the names given.
class Planner {
public:
    Planner(const std::vector<std::string>& sources, const PlanOptions& options, const Decider& decide, Manifest& manifest,
            Plan& plan, int deviceFd)
        : sources_(sources), options_(options), decide_(decide), manifest_(manifest), plan_(plan), deviceFd_(deviceFd),
          namer_(plan.fat, deviceFd), skipDigest_(SkipDigest(options.capsDigest)) {
        // Only sources that overlap can give one file twice.
        std::vector<std::string> roots;
        for (const std::string& source : sources) {
            const std::string r = Absolute(source);
            if (r.empty()) continue;
            for (const std::string& other : roots) {
                if (Inside(r, other) || Inside(other, r)) overlapping_ = true;
            }
            roots.push_back(r);
        }
    }

    bool Walk(std::string& error) {
        std::vector<Found> found;
        found.reserve(kChunk);
        Walker walker(options_, found, [&] { Chunk(found); });
        for (const std::string& source : sources_) walker.Root(source);
        Chunk(found);
        if (!error_.empty()) error = error_;
        return error_.empty();
    }

    // Playlists, once every file they may name is decided.
    void Playlists();
    // The manifest's rows no file of this run took: their sources are gone,
    // or not among this run's files.
    bool Leftovers(std::string& error);
    void Totals();

private:
    void Chunk(std::vector<Found>& found);
    void FindRows(const std::vector<Found>& found, std::vector<std::shared_ptr<ManifestRow>>& rows,
                  std::vector<int64_t>& ids);
    // `intactFiles`: whether each entry's recorded device file is intact.
    void Decide(std::vector<PlanEntry>& entries, std::vector<std::string>& relatives, const std::vector<char>& intactFiles);
    bool PathTooLong(PlanEntry& e) const;

    // A pending copy of a stopped run that landed whole is known by its
    // bytes: its row then records the file, which sync may remove.
    void KnowLandedCopy(ManifestRow& row) const {
        struct stat st;
        if (!row.pending || RecordsItsFile(row) || !row.target.empty() || row.action == "playlist") return;
        if (fstatat(deviceFd_, row.devicePath.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) return;
        if (!SameBytes(deviceFd_, row.devicePath, row.sourcePath)) return;
        const FileState device = FileState::Of(st);
        row.pending = false;
        row.tempPath.clear();
        row.deviceSize = device.size;
        row.deviceMtimeNs = device.mtimeNs;
    }

    void ClaimRows() {
        if (claimed_) return;
        claimed_ = true;
        std::string error;
        if (!manifest_.EachDevicePath(
                [this](const std::string& path) {
                    if (SafeDevicePath(path)) namer_.Claim(path);
                },
                error) &&
            error_.empty()) {
            error_ = error;
        }
    }

    const std::vector<std::string>& sources_;
    const PlanOptions& options_;
    const Decider& decide_;
    Manifest& manifest_;
    Plan& plan_;
    int deviceFd_;
    Namer namer_;
    const std::string skipDigest_;
    bool overlapping_ = false;
    std::unordered_set<std::string> seenSources_;  // only when sources overlap
    std::vector<int64_t> rowsTaken_;   // ids of the manifest rows files took
    std::vector<int64_t> skipsTaken_;  // ids of the recorded skips files took
    std::vector<int64_t> replacedRows_;  // rows of sources another row of theirs took
    // The chunk's files' rows passed over for another of their source's.
    std::vector<std::pair<std::shared_ptr<ManifestRow>, int64_t>> replacedOf_;
    std::vector<size_t> playlists_;    // entries that are playlists
    bool claimed_ = false;
    std::string error_;
};

bool Planner::PathTooLong(PlanEntry& e) const {
    if (!plan_.fat || Utf16Units(e.devicePath) <= kFatPathUnits) return false;
    e.skip = SkipKind::kPathTooLong;
    e.reason = std::string(SkipKindName(e.skip)) + ": more than " + std::to_string(kFatPathUnits) +
               " UTF-16 units below the device folder";
    e.action = e.hasRow ? Action::kRemove : Action::kSkip;
    if (!e.hasRow) e.devicePath.clear();
    return true;
}

void Planner::Chunk(std::vector<Found>& found) {
    if (found.empty()) return;
    // The manifest's row of each file first (SQLite on this thread), so
    // that one pass on the loading threads stats both the source and the
    // device file its row names.
    std::vector<std::shared_ptr<ManifestRow>> rows(found.size());
    std::vector<int64_t> ids(found.size(), 0);
    replacedOf_.assign(found.size(), {});
    FindRows(found, rows, ids);
    std::vector<char> intact(found.size(), 0);
    ParallelFor(found.size(), options_.jobs, [&](size_t k) {
        Found& f = found[k];
        if (f.skip != SkipKind::kNone) return;
        if (f.needsStat) {
            const int stated = f.folder ? fstatat(f.folder->fd, f.source.c_str() + f.source.rfind('/') + 1, &f.st, 0)
                                        : stat(f.source.c_str(), &f.st);
            f.folder.reset();
            if (stated != 0) {
                f.skip = SkipKind::kUnreadable;
                f.reason = ErrorText(errno);
                return;
            }
        }
        // Whether the recorded device file is intact.
        if (rows[k] && RecordsItsFile(*rows[k])) intact[k] = DeviceIntact(deviceFd_, *rows[k]);
    });
    std::vector<PlanEntry> entries(found.size());
    std::vector<std::string> relatives(found.size());
    for (size_t k = 0; k < found.size(); ++k) {
        Found& f = found[k];
        PlanEntry& e = entries[k];
        e.source = std::move(f.source);
        e.playlist = f.playlist;
        e.sourceState = FileState::Of(f.st);
        relatives[k] = std::move(f.relative);
        if (f.skip != SkipKind::kNone) {
            e.skip = f.skip;
            e.reason = f.reason.empty() ? SkipKindName(f.skip) : std::string(SkipKindName(f.skip)) + ": " + f.reason;
            if (f.skip == SkipKind::kHidden) e.reason = "hidden";
            continue;
        }
        if (overlapping_ && !seenSources_.insert(e.source).second) {
            e.skip = SkipKind::kSpecial;
            e.reason = "named twice";
            continue;
        }
        if (rows[k]) {
            rowsTaken_.push_back(ids[k]);
            e.hasRow = true;
            e.devicePath = rows[k]->devicePath;
            e.row = rows[k].get();
            e.rowHeld = std::move(rows[k]);
        }
    }
    found.clear();
    Decide(entries, relatives, intact);
    for (size_t k = 0; k < entries.size(); ++k) {
        if (entries[k].playlist && entries[k].skip == SkipKind::kNone) playlists_.push_back(plan_.entries.size());
        plan_.entries.push_back(entries[k]);
    }
}

// Each file's row: of the rows of its source, the first in device-path
// order whose path is safe. A source has two rows only when a run that
// replaced its file by one of another type stopped before it finished: the
// new file's row is taken (judged against this list, or else pending), and
// the old one is left over to be removed. The chunk's sources are found in
// one pass over the source index between the least and the greatest of
// them: the walk goes folder by folder in byte order, so that range holds
// few others.
void Planner::FindRows(const std::vector<Found>& found, std::vector<std::shared_ptr<ManifestRow>>& rows,
                       std::vector<int64_t>& ids) {
    std::vector<std::pair<std::string_view, size_t>> sources;
    for (size_t k = 0; k < found.size(); ++k) {
        if (found[k].skip == SkipKind::kNone) sources.emplace_back(found[k].source, k);
    }
    if (sources.empty()) return;
    std::sort(sources.begin(), sources.end());
    size_t at = 0;  // the rows come in source order: where the last one was
    const auto find = [&](std::string_view source) {
        while (at < sources.size() && sources[at].first < source) ++at;
        return at < sources.size() && sources[at].first == source;
    };
    std::string error;
    const bool ok = manifest_.EachInSourceRange(
        std::string(sources.front().first), std::string(sources.back().first),
        [&](const char* source, size_t size) {
            if (!find(std::string_view(source, size))) return false;
            return true;
        },
        [&](int64_t id, ManifestRow& row) {
            if (!SafeDevicePath(row.devicePath)) return;
            const auto rank = [this](const ManifestRow& r) {
                return (r.capsDigest == options_.capsDigest ? 2 : 0) + (r.pending ? 1 : 0);
            };
            std::shared_ptr<ManifestRow> held;
            // A source the walk found twice is one file, decided once.
            for (size_t j = at; j < sources.size() && sources[j].first == row.sourcePath; ++j) {
                const size_t k = sources[j].second;
                if (!held) held = std::make_shared<ManifestRow>(std::move(row));
                if (rows[k]) {
                    if (rank(*held) <= rank(*rows[k])) {
                        replacedRows_.push_back(id);
                        replacedOf_[k] = {held, id};
                        continue;
                    }
                    replacedRows_.push_back(ids[k]);
                    replacedOf_[k] = {rows[k], ids[k]};
                }
                rows[k] = held;
                ids[k] = id;
            }
        },
        error);
    if (!ok && error_.empty()) error_ = error;
}

// The chunk's decisions: first those that need no load, then the loads on
// the loading threads. New files are named once they are decided, in the
// walk's order: a converted file takes its new type's extension, and a
// skipped one takes no name from a file that lands.
void Planner::Decide(std::vector<PlanEntry>& entries, std::vector<std::string>& relatives,
                     const std::vector<char>& intactFiles) {
    std::vector<size_t> loads;
    std::vector<std::string> extensions(entries.size());
    for (size_t index = 0; index < entries.size(); ++index) {
        PlanEntry& e = entries[index];
        if (e.skip != SkipKind::kNone) continue;
        if (plan_.fat && e.sourceState.size > kFatMaxFileSize) {
            e.skip = SkipKind::kTooLarge;
            e.reason = std::string(SkipKindName(e.skip)) + ": FAT holds at most 4 GiB - 1 bytes per file";
            if (e.hasRow) {
                e.action = Action::kRemove;
                e.bytes = e.row->deviceSize;
            }
            continue;
        }
        if (e.playlist) continue;  // named below, written after every media file is decided
        if (!e.hasRow) {
            SkipRow row;
            int64_t id = 0;
            bool found = false;
            std::string error;
            if (!manifest_.FindSkip(e.source, row, id, found, error) && error_.empty()) error_ = error;
            if (found) {
                skipsTaken_.push_back(id);
                e.hadSkipRow = true;
                if (row.source == e.sourceState && row.capsDigest == skipDigest_ && row.kind > 0 && row.kind < kSkipKindCount) {
                    e.action = Action::kSkip;
                    e.skip = static_cast<SkipKind>(row.kind);
                    e.reason = std::move(row.reason);
                    e.refusedBy = std::move(row.refusedBy);
                    e.libraryExplanation = std::move(row.libraryExplanation);
                    e.skipRecorded = true;
                    continue;
                }
            }
            loads.push_back(index);
            continue;
        }
        if (PathTooLong(e)) continue;
        const ManifestRow& row = *e.row;
        const bool sameSource = row.source == e.sourceState && row.capsDigest == options_.capsDigest;
        const bool intact = intactFiles[index] != 0;
        if (sameSource && intact) {
            e.action = Action::kKeep;
            e.target = row.target;
            e.libraryPlayable = true;
            e.refreshRow = row.pending;  // a replacement a stopped run began: done after all
            continue;
        }
        if (row.pending && sameSource && row.target.empty()) {
            uint64_t size = 0;
            if (DeviceExists(deviceFd_, row.devicePath, size) && size == e.sourceState.size &&
                SameBytes(deviceFd_, row.devicePath, e.source)) {
                // Written in full by a run that stopped before recording it.
                e.action = Action::kKeep;
                e.refreshRow = true;
                e.libraryPlayable = true;
                continue;
            }
        }
        if (sameSource) {
            // The source and the list are as they were: the decision holds,
            // and the device copy is missing, changed by hand, or unfinished.
            // A converted file is made again from its recorded target.
            e.action = row.target.empty() ? Action::kCopy : Action::kConvert;
            e.target = row.target;
            e.bytes = e.sourceState.size;
            e.libraryPlayable = true;
            e.reason = row.pending ? "finishing a stopped sync" : "device copy deleted or changed";
            continue;
        }
        if (row.capsDigest != options_.capsDigest && row.source == e.sourceState && intact) e.action = Action::kKeep;
        if (row.source != e.sourceState) e.reason = "source changed";
        loads.push_back(index);
    }

    std::vector<Decision> decisions;
    LoadAndDecide(entries, loads, options_.jobs, decide_, decisions);
    plan_.totals.loads += loads.size();
    for (const size_t index : loads) {
        PlanEntry& e = entries[index];
        const std::string changed = e.reason;
        e.loaded = true;
        e.reason.clear();
        ApplyDecision(e, decisions[index]);
        if (e.action == Action::kUpdate && !changed.empty()) e.reason = e.replaces.empty() ? changed : changed + ", " + e.reason;
        extensions[index] = decisions[index].extension;
    }

    // A replacement a stopped run began: the new file's row was taken, and
    // the old file goes once the new one is written again, as it would
    // have. A new file that is kept leaves the old one to the leftovers.
    for (size_t index = 0; index < entries.size(); ++index) {
        PlanEntry& e = entries[index];
        const auto& old = replacedOf_[index];
        if (!old.first || !e.hasRow || !e.replaces.empty() || e.skip != SkipKind::kNone) continue;
        if (e.action != Action::kCopy && e.action != Action::kConvert && e.action != Action::kUpdate) continue;
        if (old.first->devicePath == e.devicePath) continue;
        KnowLandedCopy(*old.first);
        e.action = Action::kUpdate;
        e.replaces = old.first->devicePath;
        e.replacedBytes = old.first->deviceSize;
        e.replacedMtimeNs = old.first->deviceMtimeNs;
        rowsTaken_.push_back(old.second);
    }

    for (size_t index = 0; index < entries.size(); ++index) {
        PlanEntry& e = entries[index];
        if (!e.replaces.empty() && e.devicePath == e.replaces) {
            ClaimRows();
            e.devicePath = namer_.Assign(relatives[index], extensions[index]);
            if (PathTooLong(e)) {
                // The old file goes, as for any file the device no longer gets.
                e.devicePath = e.replaces;
                e.bytes = e.replacedBytes;
                e.replaces.clear();
                e.replacedBytes = 0;
                e.replacedMtimeNs = 0;
            }
            continue;
        }
        if (!e.replaces.empty()) continue;
        if (e.hasRow || e.skip != SkipKind::kNone) continue;
        if (!e.playlist && e.action != Action::kCopy && e.action != Action::kConvert) continue;
        ClaimRows();
        e.devicePath = namer_.Assign(relatives[index], extensions[index]);
        PathTooLong(e);
    }
}

// Playlists: entries point at what lands on the device. The files are
// found by their sources through a sorted list of hashes, and read back.
void Planner::Playlists() {
    if (playlists_.empty()) return;
    PlanEntries& entries = plan_.entries;
    std::vector<std::pair<uint64_t, size_t>> ofSource;
    size_t index = 0;
    for (const PlanEntry& e : entries) {
        if (!e.playlist) ofSource.emplace_back(std::hash<std::string>()(e.source), index);
        ++index;
    }
    std::sort(ofSource.begin(), ofSource.end());
    std::vector<std::string> roots;
    for (const std::string& root : sources_) roots.push_back(Absolute(root));
    const auto lookup = [&](const std::string& absolute, std::string& device) {
        const uint64_t hash = std::hash<std::string>()(absolute);
        bool found = false;
        for (auto at = std::lower_bound(ofSource.begin(), ofSource.end(), std::make_pair(hash, size_t(0)));
             at != ofSource.end() && at->first == hash; ++at) {
            const PlanEntry target = entries[at->second];
            if (target.source != absolute) continue;
            found = true;
            if (target.action == Action::kSkip || target.action == Action::kRemove || target.devicePath.empty()) {
                return EntryFate::kSkipped;
            }
            device = target.devicePath;
            return EntryFate::kOnDevice;
        }
        if (!found) {
            // Outside the walk, or a file the walk left out of it.
            for (const std::string& r : roots) {
                if (!r.empty() && Inside(absolute, r) && access(absolute.c_str(), F_OK) == 0) return EntryFate::kSkipped;
            }
        }
        return EntryFate::kOutside;
    };
    for (const size_t k : playlists_) {
        PlanEntry e = entries[k];
        std::string text;
        int readError = 0;
        if (!ReadSmallFile(e.source, text, readError)) {
            e.skip = SkipKind::kUnreadable;
            e.reason = std::string(SkipKindName(e.skip)) + ": " + ErrorText(readError);
            e.action = e.hasRow ? Action::kKeep : Action::kSkip;
            if (!e.hasRow) e.devicePath.clear();
            entries.Replace(k, e);
            continue;
        }
        const PlaylistRewrite rewrite = RewritePlaylist(text, e.source, e.devicePath, lookup);
        e.playlistText = rewrite.text;
        e.playlistDropped = rewrite.skipped + rewrite.outside;
        e.target = "playlist";
        e.bytes = e.playlistText.size();
        if (e.playlistDropped != 0) {
            e.reason = std::to_string(rewrite.skipped) + " entries of skipped files and " + std::to_string(rewrite.outside) +
                       " entries outside the sources dropped";
        }
        if (!e.hasRow) {
            e.action = Action::kCopy;
        } else if (!e.row->pending && DeviceIntact(deviceFd_, *e.row) && DeviceHolds(deviceFd_, e.devicePath, e.playlistText)) {
            e.action = Action::kKeep;
            e.refreshRow = e.row->source != e.sourceState || e.row->capsDigest != options_.capsDigest;
            e.bytes = 0;
        } else {
            e.action = e.row->pending ? Action::kCopy : Action::kUpdate;
        }
        plan_.totals.playlistDropped += e.playlistDropped;
        entries.Replace(k, e);
    }
}

bool Planner::Leftovers(std::string& error) {
    std::sort(rowsTaken_.begin(), rowsTaken_.end());
    std::sort(replacedRows_.begin(), replacedRows_.end());
    const bool rowsOk = manifest_.EachRow(
        [this](int64_t id) { return !std::binary_search(rowsTaken_.begin(), rowsTaken_.end(), id); },
        [this](int64_t id, ManifestRow& row) {
            if (!SafeDevicePath(row.devicePath)) return;
            PlanEntry e;
            e.source = row.sourcePath;
            e.devicePath = row.devicePath;
            e.hasRow = true;
            e.target = row.target;
            e.playlist = row.action == "playlist";
            auto held = std::make_shared<ManifestRow>(std::move(row));
            e.row = held.get();
            struct stat st;
            const bool gone = lstat(e.source.c_str(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR);
            if (std::binary_search(replacedRows_.begin(), replacedRows_.end(), id) &&
                !std::binary_search(rowsTaken_.begin(), rowsTaken_.end(), id)) {
                // A file of a replacement a stopped run did not finish, the
                // source's other row taken: the old file, or a new one this
                // run's list no longer wants. A new copy whose landing was
                // not recorded is known by its bytes.
                e.action = Action::kRemove;
                e.reason = "a stopped replacement's other file of its source";
                KnowLandedCopy(*held);
                e.bytes = DeviceIntact(deviceFd_, *e.row) ? e.row->deviceSize : 0;
            } else if (!gone) {
                e.action = Action::kKeep;
                e.reason = "source not among this run's files";
            } else if (options_.keepRemoved) {
                e.action = Action::kKeep;
                e.reason = "source gone, kept (--keep-removed)";
            } else {
                e.action = Action::kRemove;
                e.reason = "source gone";
                e.bytes = DeviceIntact(deviceFd_, *e.row) ? e.row->deviceSize : 0;
            }
            e.rowHeld = std::move(held);
            plan_.entries.push_back(e);
        },
        error);
    if (!rowsOk) return false;
    std::vector<int64_t>().swap(rowsTaken_);
    std::sort(skipsTaken_.begin(), skipsTaken_.end());
    return manifest_.EachSkipSource(
        [this](int64_t id, const std::string& source) {
            struct stat st;
            if (!std::binary_search(skipsTaken_.begin(), skipsTaken_.end(), id) && lstat(source.c_str(), &st) != 0 &&
                (errno == ENOENT || errno == ENOTDIR)) {
                plan_.staleSkips.push_back(source);
            }
        },
        error);
}

// Totals, and the space the writes take, from the entries' briefs.
void Planner::Totals() {
    struct statvfs vfs;
    uint64_t block = 4096;
    PlanTotals& t = plan_.totals;
    if (fstatvfs(deviceFd_, &vfs) == 0) {
        block = vfs.f_frsize != 0 ? vfs.f_frsize : vfs.f_bsize;
        t.available = static_cast<uint64_t>(vfs.f_bavail) * block;
    }
    for (size_t k = 0; k < plan_.entries.size(); ++k) {
        const PlanEntries::Brief& e = plan_.entries.brief(k);
        const int a = static_cast<int>(e.action);
        ++t.count[a];
        t.bytes[a] += e.bytes;
        if (e.action == Action::kSkip) ++t.skipped[static_cast<int>(e.skip)];
        if (e.action == Action::kCopy || e.action == Action::kConvert || e.action == Action::kUpdate) {
            t.needed += InBlocks(e.bytes, block);
        } else if (e.action == Action::kRemove) {
            t.freed += InBlocks(e.bytes, block);
        }
        // A file replaced by one of another name: few, so read back.
        if (e.Has(PlanEntries::kReplaces)) t.freed += InBlocks(plan_.entries[k].replacedBytes, block);
    }
    t.fits = t.needed <= t.available + t.freed;
    t.shortBy = t.fits ? 0 : t.needed - t.available - t.freed;
}

}  // namespace

PlanStatus MakePlan(const std::vector<std::string>& sources, const std::string& deviceFolder, const PlanOptions& options,
                    const Decider& decide, Manifest& manifest, Plan& plan, std::string& error) {
    plan = Plan();
    plan.deviceFolder = CheckDeviceFolder(sources, deviceFolder, error);
    if (plan.deviceFolder.empty()) return PlanStatus::kUsage;
    plan.fat = options.fatNames || IsFatFileSystem(plan.deviceFolder);
    const int deviceFd = open(plan.deviceFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (deviceFd < 0) {
        error = deviceFolder + ": " + ErrorText(errno);
        return PlanStatus::kUsage;
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{deviceFd};
    if (!options.entriesInMemory) {
        plan.entries.SpillTo(deviceFd, options.nameScratch, options.unnamedScratch);
        if (!plan.entries.Spilled()) SpillToTemporaryFolder(plan.entries, options.temporaryFolder);
    }

    if (!manifest.BeginRead(error)) return PlanStatus::kError;
    struct ReadEnder {
        Manifest& manifest;
        ~ReadEnder() { manifest.EndRead(); }
    } ender{manifest};
    Planner planner(sources, options, decide, manifest, plan, deviceFd);
    if (!planner.Walk(error)) return PlanStatus::kError;
    planner.Playlists();
    if (!planner.Leftovers(error)) return PlanStatus::kError;
    planner.Totals();
    if (plan.entries.Failed(&error)) return PlanStatus::kError;
    return PlanStatus::kOk;
}

}  // namespace sync
}  // namespace fileinfo
