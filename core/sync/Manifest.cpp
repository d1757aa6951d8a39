#include "sync/Manifest.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fileinfo {
namespace sync {

const char kManifestName[] = ".fileinfo-sync.db";
const char kLockName[] = ".fileinfo-sync.lock";

bool IsSyncOwnName(const std::string& name) {
    return name == kManifestName || name == kLockName || name == std::string(kManifestName) + "-journal";
}

FileState FileState::Of(const struct stat& st) {
    FileState s;
    s.size = static_cast<uint64_t>(st.st_size);
    s.mtimeNs = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    s.ctimeNs = static_cast<int64_t>(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
    s.dev = static_cast<uint64_t>(st.st_dev);
    s.ino = static_cast<uint64_t>(st.st_ino);
    return s;
}

SyncLock::~SyncLock() {
    if (fd_ >= 0) close(fd_);
}

ManifestStatus SyncLock::Take(int folderFd, std::string& error) {
    fd_ = openat(folderFd, kLockName, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        error = std::string(kLockName) + ": " + strerror(errno);
        return ManifestStatus::kError;
    }
    if (flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const int e = errno;
        close(fd_);
        fd_ = -1;
        if (e == EWOULDBLOCK) {
            error = "another sync to this folder is running";
            return ManifestStatus::kLocked;
        }
        error = std::string(kLockName) + ": " + strerror(e);
        return ManifestStatus::kError;
    }
    return ManifestStatus::kOk;
}

namespace {

const char kCreate[] =
    "CREATE TABLE IF NOT EXISTS files("
    " device_path TEXT PRIMARY KEY NOT NULL,"
    " source_path TEXT NOT NULL,"
    " source_size INTEGER NOT NULL, source_mtime_ns INTEGER NOT NULL, source_ctime_ns INTEGER NOT NULL,"
    " source_dev INTEGER NOT NULL, source_ino INTEGER NOT NULL,"
    " action TEXT NOT NULL, target TEXT NOT NULL, caps_digest TEXT NOT NULL,"
    " device_size INTEGER NOT NULL, device_mtime_ns INTEGER NOT NULL,"
    " pending INTEGER NOT NULL, temp_path TEXT NOT NULL);"
    "CREATE TABLE IF NOT EXISTS skips("
    " source_path TEXT PRIMARY KEY NOT NULL,"
    " source_size INTEGER NOT NULL, source_mtime_ns INTEGER NOT NULL, source_ctime_ns INTEGER NOT NULL,"
    " source_dev INTEGER NOT NULL, source_ino INTEGER NOT NULL,"
    " caps_digest TEXT NOT NULL, kind INTEGER NOT NULL, reason TEXT NOT NULL, refused_by TEXT NOT NULL,"
    " library_explanation TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS files_by_source ON files(source_path, device_path)";

// The index a plan looks rows up by. A manifest made before it existed
// gets it once, on its first writable open; its schema is the same.
const char kIndexBySource[] = "CREATE INDEX IF NOT EXISTS files_by_source ON files(source_path, device_path)";

const char kCacheSize[] = "PRAGMA cache_size=-256";  // KiB

}  // namespace

struct Manifest::Db {
    sqlite3* handle = nullptr;
    sqlite3_stmt* put = nullptr;
    sqlite3_stmt* erase = nullptr;
    sqlite3_stmt* putSkip = nullptr;
    sqlite3_stmt* eraseSkip = nullptr;
    sqlite3_stmt* bySource = nullptr;
    sqlite3_stmt* skipOf = nullptr;
    sqlite3_stmt* inRange = nullptr;

    ~Db() {
        sqlite3_finalize(inRange);
        sqlite3_finalize(bySource);
        sqlite3_finalize(skipOf);
        sqlite3_finalize(put);
        sqlite3_finalize(erase);
        sqlite3_finalize(putSkip);
        sqlite3_finalize(eraseSkip);
        if (handle != nullptr) sqlite3_close(handle);
    }

    std::string Error() const { return handle != nullptr ? sqlite3_errmsg(handle) : "out of memory"; }

    bool Exec(const char* sql, std::string& error) {
        char* message = nullptr;
        if (sqlite3_exec(handle, sql, nullptr, nullptr, &message) == SQLITE_OK) return true;
        error = message != nullptr ? message : Error();
        sqlite3_free(message);
        return false;
    }
};

namespace {

bool HasIndex(sqlite3* handle) {
    sqlite3_stmt* s = nullptr;
    bool has = false;
    if (sqlite3_prepare_v2(handle, "SELECT 1 FROM sqlite_master WHERE type='index' AND name='files_by_source'", -1, &s,
                           nullptr) == SQLITE_OK) {
        has = sqlite3_step(s) == SQLITE_ROW;
    }
    sqlite3_finalize(s);
    return has;
}

}  // namespace

Manifest::Manifest() = default;
Manifest::~Manifest() = default;

bool Manifest::IsOpen() const { return db_ && db_->handle != nullptr; }

ManifestStatus Manifest::Open(const std::string& folder, bool writable, std::string& error) {
    const std::string path = folder + "/" + kManifestName;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0) {
        // Never follow a link out of the device folder.
        if (!S_ISREG(st.st_mode)) {
            error = path + ": not a regular file";
            return ManifestStatus::kError;
        }
    } else if (errno != ENOENT) {
        error = path + ": " + strerror(errno);
        return ManifestStatus::kError;
    } else if (!writable) {
        return ManifestStatus::kOk;  // an empty manifest, nothing made
    }
    if (!writable && access((path + "-journal").c_str(), F_OK) == 0) {
        // A commit a stopped run left half-done is rolled back by the next
        // run that writes; reading it as it is could show half a commit.
        error = path + ": a stopped sync left a commit to roll back; run the sync without --dry-run first";
        return ManifestStatus::kError;
    }
    db_ = std::make_unique<Db>();
    const int flags = (writable ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY) |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
    if (sqlite3_open_v2(path.c_str(), &db_->handle, flags, nullptr) != SQLITE_OK) {
        error = path + ": " + db_->Error();
        db_.reset();
        return ManifestStatus::kError;
    }
    sqlite3_busy_timeout(db_->handle, 2000);
    // A small page cache: SQLite's default (2 MB) would grow with the
    // manifest up to its size, and a plan reads the rows nearly in the
    // order they were written, so few pages are read twice.
    std::string ignored;
    db_->Exec(kCacheSize, ignored);
    sqlite3_stmt* version = nullptr;
    int schema = -1;
    if (sqlite3_prepare_v2(db_->handle, "PRAGMA user_version", -1, &version, nullptr) == SQLITE_OK &&
        sqlite3_step(version) == SQLITE_ROW) {
        schema = sqlite3_column_int(version, 0);
    }
    sqlite3_finalize(version);
    if (schema < 0) {
        error = path + ": " + db_->Error();
        db_.reset();
        return ManifestStatus::kError;
    }
    if (schema > kSchemaVersion) {
        error = path + ": the manifest's schema is version " + std::to_string(schema) + ", newer than this fileinfo knows (" +
                std::to_string(kSchemaVersion) + "); use a newer fileinfo";
        db_.reset();
        return ManifestStatus::kNewer;
    }
    if (writable) {
        // A manifest is made once; opening one writes nothing, so a sync
        // that changes nothing leaves the device as it was.
        const bool made = db_->Exec("PRAGMA journal_mode=DELETE", error) && db_->Exec("PRAGMA synchronous=FULL", error) &&
                          (schema != 0 ||
                           (db_->Exec("BEGIN IMMEDIATE", error) && db_->Exec(kCreate, error) &&
                            db_->Exec(("PRAGMA user_version=" + std::to_string(kSchemaVersion)).c_str(), error) &&
                            db_->Exec("COMMIT", error))) &&
                          (schema == 0 || HasIndex(db_->handle) || db_->Exec(kIndexBySource, error));
        if (!made ||
            sqlite3_prepare_v2(db_->handle,
                               "INSERT OR REPLACE INTO files VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12,?13,?14)", -1,
                               &db_->put, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(db_->handle, "DELETE FROM files WHERE device_path=?1", -1, &db_->erase, nullptr) !=
                SQLITE_OK ||
            sqlite3_prepare_v2(db_->handle, "INSERT OR REPLACE INTO skips VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11)", -1,
                               &db_->putSkip, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(db_->handle, "DELETE FROM skips WHERE source_path=?1", -1, &db_->eraseSkip, nullptr) !=
                SQLITE_OK) {
            if (error.empty()) error = db_->Error();
            error = path + ": " + error;
            db_.reset();
            return ManifestStatus::kError;
        }
    } else if (schema == 0) {
        db_.reset();  // made by nothing: no table yet
    }
    return ManifestStatus::kOk;
}

namespace {

std::string ColumnText(sqlite3_stmt* s, int k) {
    const unsigned char* text = sqlite3_column_text(s, k);
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text), sqlite3_column_bytes(s, k));
}

// The columns of a files row from column `at` on.
void ReadRow(sqlite3_stmt* s, int at, ManifestRow& r) {
    r.devicePath = ColumnText(s, at + 0);
    r.sourcePath = ColumnText(s, at + 1);
    r.source.size = static_cast<uint64_t>(sqlite3_column_int64(s, at + 2));
    r.source.mtimeNs = sqlite3_column_int64(s, at + 3);
    r.source.ctimeNs = sqlite3_column_int64(s, at + 4);
    r.source.dev = static_cast<uint64_t>(sqlite3_column_int64(s, at + 5));
    r.source.ino = static_cast<uint64_t>(sqlite3_column_int64(s, at + 6));
    r.action = ColumnText(s, at + 7);
    r.target = ColumnText(s, at + 8);
    r.capsDigest = ColumnText(s, at + 9);
    r.deviceSize = static_cast<uint64_t>(sqlite3_column_int64(s, at + 10));
    r.deviceMtimeNs = sqlite3_column_int64(s, at + 11);
    r.pending = sqlite3_column_int(s, at + 12) != 0;
    r.tempPath = ColumnText(s, at + 13);
}

void ReadSkip(sqlite3_stmt* s, int at, SkipRow& r) {
    r.sourcePath = ColumnText(s, at + 0);
    r.source.size = static_cast<uint64_t>(sqlite3_column_int64(s, at + 1));
    r.source.mtimeNs = sqlite3_column_int64(s, at + 2);
    r.source.ctimeNs = sqlite3_column_int64(s, at + 3);
    r.source.dev = static_cast<uint64_t>(sqlite3_column_int64(s, at + 4));
    r.source.ino = static_cast<uint64_t>(sqlite3_column_int64(s, at + 5));
    r.capsDigest = ColumnText(s, at + 6);
    r.kind = sqlite3_column_int(s, at + 7);
    r.reason = ColumnText(s, at + 8);
    r.refusedBy = ColumnText(s, at + 9);
    r.libraryExplanation = ColumnText(s, at + 10);
}

// Binds text without copying it: the statement is stepped and reset before
// the text goes.
void BindText(sqlite3_stmt* s, int k, const std::string& text) {
    sqlite3_bind_text(s, k, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}

}  // namespace

bool Manifest::Rows(std::vector<ManifestRow>& rows, std::string& error) {
    rows.clear();
    if (!IsOpen()) return true;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db_->handle, "SELECT * FROM files ORDER BY device_path", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) {
        ManifestRow r;
        ReadRow(s, 0, r);
        rows.push_back(std::move(r));
    }
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    return step == SQLITE_DONE;
}

bool Manifest::FindBySource(const std::string& sourcePath, const std::function<bool(int64_t, ManifestRow&)>& each,
                            std::string& error) {
    if (!IsOpen()) return true;
    if (db_->bySource == nullptr &&
        sqlite3_prepare_v2(db_->handle, "SELECT rowid, * FROM files WHERE source_path=?1 ORDER BY device_path", -1,
                           &db_->bySource, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    sqlite3_stmt* s = db_->bySource;
    BindText(s, 1, sourcePath);
    int step;
    bool taken = false;
    while (!taken && (step = sqlite3_step(s)) == SQLITE_ROW) {
        ManifestRow r;
        ReadRow(s, 1, r);
        taken = each(sqlite3_column_int64(s, 0), r);
    }
    const bool ok = taken || step == SQLITE_DONE;
    if (!ok) error = db_->Error();
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    return ok;
}

bool Manifest::EachInSourceRange(const std::string& first, const std::string& last,
                                 const std::function<bool(const char*, size_t)>& wanted,
                                 const std::function<void(int64_t, ManifestRow&)>& each, std::string& error) {
    if (!IsOpen()) return true;
    if (db_->inRange == nullptr &&
        sqlite3_prepare_v2(db_->handle,
                           "SELECT rowid, * FROM files WHERE source_path BETWEEN ?1 AND ?2 ORDER BY source_path, device_path",
                           -1, &db_->inRange, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    sqlite3_stmt* s = db_->inRange;
    BindText(s, 1, first);
    BindText(s, 2, last);
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) {
        const unsigned char* source = sqlite3_column_text(s, 2);
        if (source == nullptr || !wanted(reinterpret_cast<const char*>(source), sqlite3_column_bytes(s, 2))) continue;
        ManifestRow r;
        ReadRow(s, 1, r);
        each(sqlite3_column_int64(s, 0), r);
    }
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    return step == SQLITE_DONE;
}

bool Manifest::EachRow(const std::function<bool(int64_t)>& wanted, const std::function<void(int64_t, ManifestRow&)>& each,
                       std::string& error) {
    if (!IsOpen()) return true;
    // The ids first, from the device path's own index alone; then the rows
    // wanted, each by its id: a plan wants few of them.
    std::vector<int64_t> ids;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db_->handle, "SELECT rowid FROM files ORDER BY device_path", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) {
        const int64_t id = sqlite3_column_int64(s, 0);
        if (wanted(id)) ids.push_back(id);
    }
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    if (step != SQLITE_DONE) return false;
    if (ids.empty()) return true;
    if (sqlite3_prepare_v2(db_->handle, "SELECT * FROM files WHERE rowid=?1", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    for (const int64_t id : ids) {
        sqlite3_bind_int64(s, 1, id);
        step = sqlite3_step(s);
        if (step == SQLITE_ROW) {
            ManifestRow r;
            ReadRow(s, 0, r);
            each(id, r);
        } else if (step != SQLITE_DONE) {
            break;
        }
        sqlite3_reset(s);
        step = SQLITE_DONE;
    }
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    return step == SQLITE_DONE;
}

bool Manifest::EachDevicePath(const std::function<void(const std::string&)>& each, std::string& error) {
    if (!IsOpen()) return true;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db_->handle, "SELECT device_path FROM files ORDER BY device_path", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) each(ColumnText(s, 0));
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    return step == SQLITE_DONE;
}

bool Manifest::FindSkip(const std::string& sourcePath, SkipRow& row, int64_t& id, bool& found, std::string& error) {
    found = false;
    if (!IsOpen()) return true;
    if (db_->skipOf == nullptr &&
        sqlite3_prepare_v2(db_->handle, "SELECT rowid, * FROM skips WHERE source_path=?1", -1, &db_->skipOf, nullptr) !=
            SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    sqlite3_stmt* s = db_->skipOf;
    BindText(s, 1, sourcePath);
    const int step = sqlite3_step(s);
    if (step == SQLITE_ROW) {
        found = true;
        id = sqlite3_column_int64(s, 0);
        ReadSkip(s, 1, row);
    } else if (step != SQLITE_DONE) {
        error = db_->Error();
    }
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    return step == SQLITE_ROW || step == SQLITE_DONE;
}

bool Manifest::EachSkipSource(const std::function<void(int64_t, const std::string&)>& each, std::string& error) {
    if (!IsOpen()) return true;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db_->handle, "SELECT rowid, source_path FROM skips", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) each(sqlite3_column_int64(s, 0), ColumnText(s, 1));
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    return step == SQLITE_DONE;
}

bool Manifest::BeginRead(std::string& error) {
    if (!IsOpen()) return true;
    // BEGIN takes no lock until the first read.
    if (!db_->Exec("BEGIN", error)) return false;
    if (db_->Exec("SELECT 1 FROM files LIMIT 1", error)) return true;
    Rollback();
    return false;
}

void Manifest::EndRead() {
    if (IsOpen()) Rollback();
}

bool Manifest::Begin(std::string& error) { return db_->Exec("BEGIN IMMEDIATE", error); }

bool Manifest::Commit(std::string& error) {
    if (db_->Exec("COMMIT", error)) return true;
    Rollback();
    return false;
}

void Manifest::Rollback() {
    if (!sqlite3_get_autocommit(db_->handle)) {
        std::string ignored;
        db_->Exec("ROLLBACK", ignored);
    }
}

bool Manifest::Put(const ManifestRow& r, std::string& error) {
    sqlite3_stmt* s = db_->put;
    sqlite3_reset(s);
    sqlite3_bind_text(s, 1, r.devicePath.data(), static_cast<int>(r.devicePath.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 2, r.sourcePath.data(), static_cast<int>(r.sourcePath.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int64(s, 3, static_cast<sqlite3_int64>(r.source.size));
    sqlite3_bind_int64(s, 4, r.source.mtimeNs);
    sqlite3_bind_int64(s, 5, r.source.ctimeNs);
    sqlite3_bind_int64(s, 6, static_cast<sqlite3_int64>(r.source.dev));
    sqlite3_bind_int64(s, 7, static_cast<sqlite3_int64>(r.source.ino));
    sqlite3_bind_text(s, 8, r.action.data(), static_cast<int>(r.action.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 9, r.target.data(), static_cast<int>(r.target.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 10, r.capsDigest.data(), static_cast<int>(r.capsDigest.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int64(s, 11, static_cast<sqlite3_int64>(r.deviceSize));
    sqlite3_bind_int64(s, 12, r.deviceMtimeNs);
    sqlite3_bind_int(s, 13, r.pending ? 1 : 0);
    sqlite3_bind_text(s, 14, r.tempPath.data(), static_cast<int>(r.tempPath.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(s) == SQLITE_DONE) return true;
    error = db_->Error();
    return false;
}

bool Manifest::Erase(const std::string& devicePath, std::string& error) {
    sqlite3_stmt* s = db_->erase;
    sqlite3_reset(s);
    sqlite3_bind_text(s, 1, devicePath.data(), static_cast<int>(devicePath.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(s) == SQLITE_DONE) return true;
    error = db_->Error();
    return false;
}

bool Manifest::SkipRows(std::vector<SkipRow>& rows, std::string& error) {
    rows.clear();
    if (!IsOpen()) return true;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db_->handle, "SELECT * FROM skips", -1, &s, nullptr) != SQLITE_OK) {
        error = db_->Error();
        return false;
    }
    int step;
    while ((step = sqlite3_step(s)) == SQLITE_ROW) {
        SkipRow r;
        ReadSkip(s, 0, r);
        rows.push_back(std::move(r));
    }
    if (step != SQLITE_DONE) error = db_->Error();
    sqlite3_finalize(s);
    return step == SQLITE_DONE;
}

bool Manifest::PutSkip(const SkipRow& r, std::string& error) {
    sqlite3_stmt* s = db_->putSkip;
    sqlite3_reset(s);
    sqlite3_bind_text(s, 1, r.sourcePath.data(), static_cast<int>(r.sourcePath.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int64(s, 2, static_cast<sqlite3_int64>(r.source.size));
    sqlite3_bind_int64(s, 3, r.source.mtimeNs);
    sqlite3_bind_int64(s, 4, r.source.ctimeNs);
    sqlite3_bind_int64(s, 5, static_cast<sqlite3_int64>(r.source.dev));
    sqlite3_bind_int64(s, 6, static_cast<sqlite3_int64>(r.source.ino));
    sqlite3_bind_text(s, 7, r.capsDigest.data(), static_cast<int>(r.capsDigest.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int(s, 8, r.kind);
    sqlite3_bind_text(s, 9, r.reason.data(), static_cast<int>(r.reason.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 10, r.refusedBy.data(), static_cast<int>(r.refusedBy.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(s, 11, r.libraryExplanation.data(), static_cast<int>(r.libraryExplanation.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(s) == SQLITE_DONE) return true;
    error = db_->Error();
    return false;
}

bool Manifest::EraseSkip(const std::string& sourcePath, std::string& error) {
    sqlite3_stmt* s = db_->eraseSkip;
    sqlite3_reset(s);
    sqlite3_bind_text(s, 1, sourcePath.data(), static_cast<int>(sourcePath.size()), SQLITE_TRANSIENT);
    if (sqlite3_step(s) == SQLITE_DONE) return true;
    error = db_->Error();
    return false;
}

}  // namespace sync
}  // namespace fileinfo
