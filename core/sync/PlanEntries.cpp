// The plan's entries as records: in memory, or in a scratch file in the
// device folder. A record is the entry's fields one after another, numbers
// in this machine's order (the file lives only as long as the run), texts
// as a 32-bit length and their bytes; the first 4 bytes give its length.
#include "sync/Plan.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <system_error>

#include "sync/Executor.h"

namespace fileinfo {
namespace sync {

namespace {

// A field added to PlanEntry or ManifestRow must be added to its record
// below (Put and Get), or it is lost when the entry is read back.
static_assert(sizeof(void*) != 8 || sizeof(PlanEntry) == 392, "write the new PlanEntry field in its record");
static_assert(sizeof(void*) != 8 || sizeof(ManifestRow) == 256, "write the new ManifestRow field in its record");

constexpr size_t kWindow = 1 << 16;

class Writer {
public:
    explicit Writer(std::string& out) : out_(out) {}
    template <class T>
    void Number(T value) {
        out_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void Text(const std::string& text) {
        Number(static_cast<uint32_t>(text.size()));
        out_.append(text);
    }
    void State(const FileState& s) {
        Number(s.size);
        Number(s.mtimeNs);
        Number(s.ctimeNs);
        Number(s.dev);
        Number(s.ino);
    }

private:
    std::string& out_;
};

// Reads a record back, every read bounded by the record's end.
class Reader {
public:
    Reader(const char* at, size_t size) : at_(at), end_(at + size) {}
    template <class T>
    void Number(T& value) {
        if (static_cast<size_t>(end_ - at_) < sizeof value) {
            ok_ = false;
            value = T();
            return;
        }
        memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
    }
    void Text(std::string& text) {
        uint32_t size = 0;
        Number(size);
        if (static_cast<size_t>(end_ - at_) < size) {
            ok_ = false;
            text.clear();
            return;
        }
        text.assign(at_, size);
        at_ += size;
    }
    void State(FileState& s) {
        Number(s.size);
        Number(s.mtimeNs);
        Number(s.ctimeNs);
        Number(s.dev);
        Number(s.ino);
    }
    bool ok() const { return ok_; }
    void Fail() { ok_ = false; }

private:
    const char* at_;
    const char* end_;
    bool ok_ = true;
};

enum EntryBit : uint8_t {
    kBitPlaylist = 1,
    kBitLibraryPlayable = 2,
    kBitLoaded = 4,
    kBitHasRow = 8,
    kBitRefreshRow = 16,
    kBitSkipRecorded = 32,
    kBitHadSkipRow = 64,
};

void PutEntry(const PlanEntry& e, std::string& out) {
    Writer w(out);
    w.Number(uint32_t(0));  // the length, set below
    w.Number(static_cast<uint8_t>(e.action));
    w.Number(static_cast<uint8_t>(e.skip));
    const bool hasRow = e.hasRow && e.row != nullptr;
    w.Number(static_cast<uint8_t>((e.playlist ? kBitPlaylist : 0) | (e.libraryPlayable ? kBitLibraryPlayable : 0) |
                                  (e.loaded ? kBitLoaded : 0) | (e.hasRow ? kBitHasRow : 0) |
                                  (e.refreshRow ? kBitRefreshRow : 0) | (e.skipRecorded ? kBitSkipRecorded : 0) |
                                  (e.hadSkipRow ? kBitHadSkipRow : 0)));
    w.Number(static_cast<uint8_t>(hasRow ? 1 : 0));
    w.Number(e.bytes);
    w.Number(e.playlistDropped);
    w.State(e.sourceState);
    w.Text(e.source);
    w.Text(e.devicePath);
    w.Text(e.replaces);
    w.Number(e.replacedBytes);
    w.Number(e.replacedMtimeNs);
    w.Text(e.reason);
    w.Text(e.refusedBy);
    w.Text(e.target);
    w.Text(e.libraryExplanation);
    w.Text(e.playlistText);
    if (hasRow) {
        const ManifestRow& r = *e.row;
        w.Text(r.devicePath);
        w.Text(r.sourcePath);
        w.State(r.source);
        w.Text(r.action);
        w.Text(r.target);
        w.Text(r.capsDigest);
        w.Number(r.deviceSize);
        w.Number(r.deviceMtimeNs);
        w.Number(static_cast<uint8_t>(r.pending ? 1 : 0));
        w.Text(r.tempPath);
    }
}

// Every field is assigned, so that an entry read into again reuses its
// texts' memory.
bool GetEntry(const char* at, size_t size, PlanEntry& e) {
    Reader r(at, size);
    uint32_t length = 0;
    uint8_t action = 0, skip = 0, bits = 0, hasRow = 0;
    r.Number(length);
    r.Number(action);
    r.Number(skip);
    r.Number(bits);
    r.Number(hasRow);
    if (action >= kActionCount || skip >= kSkipKindCount) action = skip = 0, r.Fail();
    e.action = static_cast<Action>(action);
    e.skip = static_cast<SkipKind>(skip);
    e.playlist = (bits & kBitPlaylist) != 0;
    e.libraryPlayable = (bits & kBitLibraryPlayable) != 0;
    e.loaded = (bits & kBitLoaded) != 0;
    e.hasRow = (bits & kBitHasRow) != 0;
    e.refreshRow = (bits & kBitRefreshRow) != 0;
    e.skipRecorded = (bits & kBitSkipRecorded) != 0;
    e.hadSkipRow = (bits & kBitHadSkipRow) != 0;
    r.Number(e.bytes);
    r.Number(e.playlistDropped);
    r.State(e.sourceState);
    r.Text(e.source);
    r.Text(e.devicePath);
    r.Text(e.replaces);
    r.Number(e.replacedBytes);
    r.Number(e.replacedMtimeNs);
    r.Text(e.reason);
    r.Text(e.refusedBy);
    r.Text(e.target);
    r.Text(e.libraryExplanation);
    r.Text(e.playlistText);
    e.row = nullptr;
    if (hasRow == 0) {
        e.rowHeld.reset();
    } else {
        // The row read into before, when no other entry shares it.
        std::shared_ptr<ManifestRow> row = e.rowHeld.use_count() == 1 ? std::const_pointer_cast<ManifestRow>(e.rowHeld)
                                                                        : std::make_shared<ManifestRow>();
        r.Text(row->devicePath);
        r.Text(row->sourcePath);
        r.State(row->source);
        r.Text(row->action);
        r.Text(row->target);
        r.Text(row->capsDigest);
        r.Number(row->deviceSize);
        r.Number(row->deviceMtimeNs);
        uint8_t pending = 0;
        r.Number(pending);
        row->pending = pending != 0;
        r.Text(row->tempPath);
        e.row = row.get();
        e.rowHeld = std::move(row);
    }
    return r.ok();
}

PlanEntries::Brief BriefOf(const PlanEntry& e) {
    PlanEntries::Brief b;
    b.bytes = e.bytes;
    b.action = e.action;
    b.skip = e.skip;
    const bool pending = e.hasRow && e.row != nullptr && e.row->pending && !e.row->tempPath.empty();
    b.flags = static_cast<uint8_t>((e.hasRow ? PlanEntries::kHasRow : 0) | (pending ? PlanEntries::kRowPending : 0) |
                                   (e.refreshRow ? PlanEntries::kRefreshRow : 0) | (e.loaded ? PlanEntries::kLoaded : 0) |
                                   (e.hadSkipRow ? PlanEntries::kHadSkipRow : 0) |
                                   (e.skipRecorded ? PlanEntries::kSkipRecorded : 0) |
                                   (e.playlist ? PlanEntries::kPlaylist : 0) |
                                   (!e.replaces.empty() ? PlanEntries::kReplaces : 0));
    return b;
}

std::string ErrorText(int error) { return std::generic_category().message(error); }

}  // namespace

// The bytes of the records: a memory arena, or a scratch file with a write
// buffer and a read window.
struct PlanEntries::Store {
    int fd = -1;
    uint64_t flushed = 0;  // bytes in the file
    std::string pending;   // written after them, not yet in the file
    std::string memory;    // every record, when there is no file
    std::string window;    // a read window of the file
    uint64_t windowAt = 0;
    std::string error;
    // Reads share the window, and the converter's workers read entries
    // while the executor does: one reader at a time.
    std::mutex mutex;

    ~Store() {
        if (fd >= 0) close(fd);
    }

    uint64_t Size() const { return fd >= 0 ? flushed + pending.size() : memory.size(); }

    // Moves the file's bytes to memory: the file system refused a write.
    void ToMemory(int why) {
        memory.resize(flushed);
        uint64_t at = 0;
        while (at < flushed) {
            const ssize_t n = pread(fd, &memory[at], flushed - at, static_cast<off_t>(at));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                error = "the plan's scratch file: " + ErrorText(n < 0 ? errno : EIO) + " (after " + ErrorText(why) + ")";
                break;
            }
            at += static_cast<uint64_t>(n);
        }
        memory += pending;
        pending.clear();
        window.clear();
        close(fd);
        fd = -1;
    }

    void Flush() {
        size_t done = 0;
        while (fd >= 0 && done < pending.size()) {
            const ssize_t n = pwrite(fd, pending.data() + done, pending.size() - done, static_cast<off_t>(flushed));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                pending.erase(0, done);
                return ToMemory(n < 0 ? errno : ENOSPC);
            }
            done += static_cast<size_t>(n);
            flushed += static_cast<uint64_t>(n);
        }
        pending.clear();
    }

    // Appends the entry's record, made in place; its offset.
    uint64_t Append(const PlanEntry& entry) {
        const uint64_t at = Size();
        std::string& out = fd < 0 ? memory : pending;
        const size_t start = out.size();
        PutEntry(entry, out);
        const uint32_t length = static_cast<uint32_t>(out.size() - start);
        memcpy(&out[start], &length, sizeof length);
        if (fd >= 0 && pending.size() >= kWindow) Flush();
        return at;
    }

    // The `size` bytes at `at`, or null.
    const char* Bytes(uint64_t at, size_t size) {
        if (fd < 0) return at + size <= memory.size() ? memory.data() + at : nullptr;
        if (at + size > flushed) Flush();
        if (fd < 0) return Bytes(at, size);
        if (at >= windowAt && at + size <= windowAt + window.size()) return window.data() + (at - windowAt);
        window.resize(std::max(kWindow, size));
        size_t got = 0;
        while (got < window.size() && at + got < flushed) {
            const ssize_t n = pread(fd, &window[got], window.size() - got, static_cast<off_t>(at + got));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                error = "the plan's scratch file: " + ErrorText(n < 0 ? errno : EIO);
                break;
            }
            got += static_cast<size_t>(n);
        }
        window.resize(got);
        windowAt = at;
        return got >= size ? window.data() : nullptr;
    }
};

PlanEntries::PlanEntries() : store_(std::make_unique<Store>()) {}
PlanEntries::~PlanEntries() = default;
PlanEntries::PlanEntries(PlanEntries&& other) noexcept = default;
PlanEntries& PlanEntries::operator=(PlanEntries&& other) noexcept = default;

void PlanEntries::SpillTo(int folderFd, bool mayName, bool unnamed) {
    if (!store_) store_ = std::make_unique<Store>();
    if (store_->fd >= 0 || store_->Size() != 0) return;
    store_->fd = OpenScratchFile(folderFd, mayName, unnamed);
}

bool PlanEntries::Spilled() const { return store_ && store_->fd >= 0; }

void PlanEntries::push_back(const PlanEntry& entry) {
    std::lock_guard<std::mutex> lock(store_->mutex);
    offsets_.push_back(store_->Append(entry));
    briefs_.push_back(BriefOf(entry));
}

void PlanEntries::Replace(size_t k, const PlanEntry& entry) {
    std::lock_guard<std::mutex> lock(store_->mutex);
    offsets_[k] = store_->Append(entry);
    briefs_[k] = BriefOf(entry);
}

void PlanEntries::Read(size_t k, PlanEntry& entry) const {
    if (k >= offsets_.size()) {
        entry = PlanEntry();
        return;
    }
    std::lock_guard<std::mutex> lock(store_->mutex);
    const char* head = store_->Bytes(offsets_[k], sizeof(uint32_t));
    uint32_t length = 0;
    if (head != nullptr) memcpy(&length, head, sizeof length);
    const char* record = head != nullptr ? store_->Bytes(offsets_[k], length) : nullptr;
    if (record == nullptr || length < sizeof length || !GetEntry(record, length, entry)) {
        if (store_->error.empty()) store_->error = "the plan's scratch file: a record could not be read back";
        entry = PlanEntry();
    }
}

PlanEntry PlanEntries::operator[](size_t k) const {
    PlanEntry entry;
    Read(k, entry);
    return entry;
}

bool PlanEntries::Failed(std::string* why) const {
    if (!store_) return false;
    std::lock_guard<std::mutex> lock(store_->mutex);
    if (store_->error.empty()) return false;
    if (why != nullptr) *why = store_->error;
    return true;
}

const PlanEntry& PlanEntries::Iterator::operator*() const {
    if (!loaded_) {
        entries_->Read(k_, entry_);
        loaded_ = true;
    }
    return entry_;
}

}  // namespace sync
}  // namespace fileinfo
