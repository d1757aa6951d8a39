// The plan of a sync: what becomes of every file the walk of the sources
// finds, decided before anything is written.
//
// The walk only stats. A file the manifest knows, unchanged since it was
// written and judged against the same capability list, is decided from the
// manifest alone; only new and changed files are loaded and judged, so a
// re-sync that changes nothing costs stats, not loads.
//
// What a loaded file becomes is the Decider's answer: the source's own
// bytes ("copy"), something made from it for the device ("convert", with a
// target the producer of the executor understands), or nothing ("skip").
// Everything else (keep, update, remove, names, space) is the plan's.
#ifndef FILEINFO_CORE_SYNC_PLAN_H
#define FILEINFO_CORE_SYNC_PLAN_H

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Scan.h"
#include "Verdict.h"
#include "sync/Manifest.h"

namespace fileinfo {
namespace sync {

enum class Action : unsigned char { kCopy, kConvert, kUpdate, kKeep, kRemove, kSkip };
constexpr int kActionCount = 6;
const char* ActionName(Action action);

// Why a file is skipped.
enum class SkipKind : unsigned char {
    kNone,
    kNotLoaded,      // the library did not load it
    kNotIdentified,  // loaded, but no reader recognised it
    kRefused,        // the device does not play it
    kTooLarge,       // larger than the device's file system takes
    kPathTooLong,    // its device path is longer than the file system takes
    kNotMedia,       // no reader takes its extension, or --ext left it out
    kHidden,         // a hidden file or folder, without --hidden
    kSpecial,        // a FIFO, device, socket, or a link to a folder
    kUnreadable,     // could not be reached (see the reason)
    kNeedsConverter, // the device would play it converted, and there is no converter
};
constexpr int kSkipKindCount = 11;
// In the tool's words: "did not load", "not identified", "refused by the
// device", "too large for the file system", ...
const char* SkipKindName(SkipKind kind);

// What a loaded source becomes on the device.
struct Decision {
    Action action = Action::kSkip;  // kCopy, kConvert or kSkip
    SkipKind skip = SkipKind::kNone;
    std::string reason;             // for a skip, in words
    std::string refusedBy;          // the refusing keys, ", " between them
    // Empty: the source's own bytes. Otherwise what the executor's producer
    // makes, in words it understands, recorded in the manifest: a changed
    // target makes the file an update.
    std::string target;
    std::string extension;          // the device file's, when it differs from the source's (".m4a")
    uint64_t bytes = 0;             // what it writes (an estimate when converted)
    // The library's own verdict, shown beside the one that decides.
    bool libraryPlayable = false;
    std::string libraryExplanation;
};

using Decider = std::function<Decision(const ScanItem& item)>;
using ReadingJudge = std::function<ReadingVerdict(const ScanItem& item)>;
using LibraryJudge = std::function<DeviceVerdict(const ScanItem& item)>;

// The sync's own rule: copy what the verdict on the reading says the device
// plays; skip what did not load, was not identified, or is refused. Tests
// give judges of their own.
Decider CopyDecider(ReadingJudge reading, LibraryJudge library);
// The same with a device's two verdicts. The device must outlive it.
Decider CopyDecider(const Device& device);

// A short digest of a capability list's text: rows judged against another
// list are judged again.
std::string CapsDigest(const std::string& caps);

struct PlanOptions {
    unsigned jobs = 0;                    // loading threads; 0: one per core
    std::vector<std::string> extensions;  // as ScanOptions::extensions
    bool hidden = false;
    bool keepRemoved = false;
    bool fatNames = false;  // FAT names even where the file system is not FAT
    std::string capsDigest;
    // The plan's entries in memory rather than in a scratch file in the
    // device folder (see PlanEntries).
    bool entriesInMemory = false;
    // Where the device's file system has no unnamed files: a named scratch
    // file, unlinked at once (not for a dry run, which writes nothing).
    // Where neither can be had, an unnamed file in the folder for
    // temporary files ($TMPDIR, else /tmp), and only then memory.
    bool nameScratch = true;
    // False acts as on FAT, whose folders hold no unnamed file (for tests).
    bool unnamedScratch = true;
    // The folder for temporary files; empty: $TMPDIR, else /tmp.
    std::string temporaryFolder;
};

struct PlanEntry {
    Action action = Action::kSkip;
    SkipKind skip = SkipKind::kNone;
    std::string source;      // absolute
    std::string devicePath;  // below the device folder; empty when it gets none
    // An update whose file becomes another type (a copy now converted, or
    // the other way round): the device file it replaces, under the old
    // type's name, removed once the new one is in place. devicePath is then
    // the new file's, named like a new file; row is the old file's, or the
    // new file's when a stopped run had begun the replacement.
    std::string replaces;
    uint64_t replacedBytes = 0;   // its size, as recorded
    int64_t replacedMtimeNs = 0;  // its time, as recorded: changed by hand, it stays
    std::string reason;
    std::string refusedBy;
    uint64_t bytes = 0;      // to write; for a remove, what it frees
    std::string target;
    bool playlist = false;
    bool libraryPlayable = false;
    std::string libraryExplanation;
    bool loaded = false;      // loaded to be decided
    FileState sourceState;
    // The manifest's row for the device path, when there is one: the
    // executor replaces or removes the file only then.
    bool hasRow = false;
    const ManifestRow* row = nullptr;  // in rowHeld
    // Keep: the row is written again (a finished copy a stopped run never
    // recorded, or a new capability list that decides the same).
    bool refreshRow = false;
    // Skipped as an earlier run judged it, unchanged since: not loaded.
    bool skipRecorded = false;
    // The manifest held a skip of this source (from an earlier judgement).
    bool hadSkipRow = false;
    // A playlist's rewritten text, and the entries it dropped.
    std::string playlistText;
    uint32_t playlistDropped = 0;
    // Owns *row: the plan looks rows up one at a time and holds none.
    std::shared_ptr<const ManifestRow> rowHeld;
};

// The entries of a plan, in the order they were planned. Each is kept as a
// compact record, and a plan of a device folder keeps its records in a
// scratch file there, unlinked at once, so that the plan's memory does not
// grow with its files: per entry only its brief (what the executor sorts
// entries by) and its record's place stay in memory, 24 bytes.
//
// Read as a vector: size(), entries[k] (a copy, read back), and for-range
// loops (each entry read back in turn, valid until the next).
class PlanEntries {
public:
    enum Flag : uint8_t {
        kHasRow = 1,
        kRowPending = 2,      // the row is pending with a temporary file named
        kRefreshRow = 4,
        kLoaded = 8,
        kHadSkipRow = 16,
        kSkipRecorded = 32,
        kPlaylist = 64,
        kReplaces = 128,      // an update that replaces a file of another name
    };
    struct Brief {
        uint64_t bytes = 0;
        Action action = Action::kSkip;
        SkipKind skip = SkipKind::kNone;
        uint8_t flags = 0;
        bool Has(Flag flag) const { return (flags & flag) != 0; }
    };

    PlanEntries();
    ~PlanEntries();
    PlanEntries(PlanEntries&& other) noexcept;
    PlanEntries& operator=(PlanEntries&& other) noexcept;
    PlanEntries(const PlanEntries&) = delete;
    PlanEntries& operator=(const PlanEntries&) = delete;

    // From now on the records go to a scratch file in the folder `folderFd`:
    // an unnamed one (O_TMPFILE), or where the file system has none and
    // `mayName`, one under the sync's temporary-file mark, unlinked at once.
    // Otherwise, and when the file system refuses a write to it (full), they
    // stay in memory. `unnamed` false goes to the named file at once, as on
    // a file system without unnamed files (FAT).
    void SpillTo(int folderFd, bool mayName, bool unnamed = true);
    bool Spilled() const;

    size_t size() const { return briefs_.size(); }
    bool empty() const { return briefs_.empty(); }
    void push_back(const PlanEntry& entry);
    // Entry k becomes `entry` (its record is written again).
    void Replace(size_t k, const PlanEntry& entry);
    PlanEntry operator[](size_t k) const;
    const Brief& brief(size_t k) const { return briefs_[k]; }
    // A record could not be read back (the scratch file failed): the
    // plan is not to be trusted, and says why.
    bool Failed(std::string* why = nullptr) const;

    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = PlanEntry;
        using difference_type = std::ptrdiff_t;
        using pointer = const PlanEntry*;
        using reference = const PlanEntry&;
        Iterator(const PlanEntries* entries, size_t k) : entries_(entries), k_(k) {}
        const PlanEntry& operator*() const;
        const PlanEntry* operator->() const { return &**this; }
        Iterator& operator++() {
            ++k_;
            loaded_ = false;
            return *this;
        }
        bool operator==(const Iterator& o) const { return k_ == o.k_; }
        bool operator!=(const Iterator& o) const { return k_ != o.k_; }

    private:
        const PlanEntries* entries_;
        size_t k_;
        mutable bool loaded_ = false;
        mutable PlanEntry entry_;
    };
    Iterator begin() const { return Iterator(this, 0); }
    Iterator end() const { return Iterator(this, size()); }

private:
    void Read(size_t k, PlanEntry& entry) const;

    struct Store;
    std::unique_ptr<Store> store_;
    std::vector<Brief> briefs_;
    std::vector<uint64_t> offsets_;
};

struct PlanTotals {
    size_t count[kActionCount] = {};
    uint64_t bytes[kActionCount] = {};
    size_t skipped[kSkipKindCount] = {};
    size_t playlistDropped = 0;
    uint64_t needed = 0;     // bytes the writes take, in whole blocks
    uint64_t freed = 0;      // bytes the removes free, in whole blocks
    uint64_t available = 0;  // free bytes of the device's file system
    bool fits = true;
    uint64_t shortBy = 0;
    size_t loads = 0;        // sources loaded to decide
};

struct Plan {
    std::string deviceFolder;  // absolute
    bool fat = false;          // FAT names and limits apply
    PlanEntries entries;
    PlanTotals totals;
    // Recorded skips whose sources are gone.
    std::vector<std::string> staleSkips;
};

// What a recorded skip is valid for: the capability list it was judged
// against and the version of the readers and verdicts that judged it.
std::string SkipDigest(const std::string& capsDigest);

// Whether a skip is a judgement worth recording: the file was loaded and
// judged (not loaded, not identified, refused).
bool JudgedSkip(SkipKind kind);

// Why a plan could not be made: a usage mistake (exit 2), the manifest
// refused (another sync holds it, or it is newer), or another failure.
enum class PlanStatus { kOk, kUsage, kLocked, kNewer, kError };

// Makes the plan. `manifest` is open (or empty, for a first dry run).
PlanStatus MakePlan(const std::vector<std::string>& sources, const std::string& deviceFolder, const PlanOptions& options,
                    const Decider& decide, Manifest& manifest, Plan& plan, std::string& error);

// The device folder, made absolute and checked: it exists, is a folder,
// and neither holds a source nor lies inside one; and every source named
// exists. Empty with the reason in `error` otherwise.
std::string CheckDeviceFolder(const std::vector<std::string>& sources, const std::string& folder, std::string& error);

// True when the device's file system is FAT (vfat, msdos, exFAT).
bool IsFatFileSystem(const std::string& folder);

// A device path from the manifest that stays inside the device folder: no
// empty, "." or ".." name, not absolute, no NUL.
bool SafeDevicePath(const std::string& path);

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_PLAN_H
