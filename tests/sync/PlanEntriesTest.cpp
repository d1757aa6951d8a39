// The plan's entries kept as records, in memory or in a scratch file in the
// device folder, and the manifest's rows looked up one at a time.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "SyncTestHelpers.h"
#include "sync/Plan.h"

using namespace synctest;
using fileinfo::sync::Action;
using fileinfo::sync::ManifestRow;
using fileinfo::sync::PlanEntries;
using fileinfo::sync::PlanEntry;
using fileinfo::sync::SkipKind;

namespace {

// An entry with every field set, different for every k.
PlanEntry Sample(size_t k) {
    PlanEntry e;
    const std::string n = std::to_string(k);
    e.action = k % 2 == 0 ? Action::kUpdate : Action::kSkip;
    e.skip = k % 2 == 0 ? SkipKind::kNone : SkipKind::kRefused;
    e.source = "/music/Album " + n + "/" + std::string(k % 300, 'x') + ".mp3";
    e.devicePath = "Album " + n + "/song.mp3";
    e.replaces = k % 6 == 0 ? "Album " + n + "/song.wav" : "";
    e.replacedBytes = k % 6 == 0 ? 7000 + k : 0;
    e.reason = "reason " + n;
    e.refusedBy = "codec, rate " + n;
    e.bytes = 1000 + k;
    e.target = k % 3 == 0 ? "" : "aac 128k";
    e.playlist = k % 5 == 0;
    e.libraryPlayable = k % 7 == 0;
    e.libraryExplanation = "explained " + n;
    e.loaded = k % 11 == 0;
    e.sourceState = {k + 1, static_cast<int64_t>(k) * 3, -static_cast<int64_t>(k), k + 7, k + 9};
    e.refreshRow = k % 13 == 0;
    e.skipRecorded = k % 17 == 0;
    e.hadSkipRow = k % 19 == 0;
    e.playlistText = e.playlist ? "#EXTM3U\n../a.mp3\n" : "";
    e.playlistDropped = static_cast<uint32_t>(k % 4);
    if (k % 2 == 0) {
        auto row = std::make_shared<ManifestRow>();
        row->devicePath = e.devicePath;
        row->sourcePath = e.source;
        row->source = {k, 1, 2, 3, 4};
        row->action = "copy";
        row->target = "t" + n;
        row->capsDigest = "digest";
        row->deviceSize = 4242 + k;
        row->deviceMtimeNs = 99;
        row->pending = k % 4 == 0;
        row->tempPath = row->pending ? "Album/.fileinfo-sync-AAAAAAAAAAAA.tmp" : "";
        e.hasRow = true;
        e.row = row.get();
        e.rowHeld = row;
    }
    return e;
}

void ExpectSame(const PlanEntry& a, const PlanEntry& b, size_t k) {
    EXPECT_EQ(a.action, b.action) << k;
    EXPECT_EQ(a.skip, b.skip) << k;
    EXPECT_EQ(a.source, b.source) << k;
    EXPECT_EQ(a.devicePath, b.devicePath) << k;
    EXPECT_EQ(a.replaces, b.replaces) << k;
    EXPECT_EQ(a.replacedBytes, b.replacedBytes) << k;
    EXPECT_EQ(a.reason, b.reason) << k;
    EXPECT_EQ(a.refusedBy, b.refusedBy) << k;
    EXPECT_EQ(a.bytes, b.bytes) << k;
    EXPECT_EQ(a.target, b.target) << k;
    EXPECT_EQ(a.playlist, b.playlist) << k;
    EXPECT_EQ(a.libraryPlayable, b.libraryPlayable) << k;
    EXPECT_EQ(a.libraryExplanation, b.libraryExplanation) << k;
    EXPECT_EQ(a.loaded, b.loaded) << k;
    EXPECT_EQ(a.sourceState, b.sourceState) << k;
    EXPECT_EQ(a.refreshRow, b.refreshRow) << k;
    EXPECT_EQ(a.skipRecorded, b.skipRecorded) << k;
    EXPECT_EQ(a.hadSkipRow, b.hadSkipRow) << k;
    EXPECT_EQ(a.playlistText, b.playlistText) << k;
    EXPECT_EQ(a.playlistDropped, b.playlistDropped) << k;
    EXPECT_EQ(a.hasRow, b.hasRow) << k;
    ASSERT_EQ(a.row == nullptr, b.row == nullptr) << k;
    if (a.row == nullptr) return;
    EXPECT_EQ(a.row->devicePath, b.row->devicePath) << k;
    EXPECT_EQ(a.row->sourcePath, b.row->sourcePath) << k;
    EXPECT_EQ(a.row->source, b.row->source) << k;
    EXPECT_EQ(a.row->action, b.row->action) << k;
    EXPECT_EQ(a.row->target, b.row->target) << k;
    EXPECT_EQ(a.row->capsDigest, b.row->capsDigest) << k;
    EXPECT_EQ(a.row->deviceSize, b.row->deviceSize) << k;
    EXPECT_EQ(a.row->deviceMtimeNs, b.row->deviceMtimeNs) << k;
    EXPECT_EQ(a.row->pending, b.row->pending) << k;
    EXPECT_EQ(a.row->tempPath, b.row->tempPath) << k;
    EXPECT_EQ(b.row, b.rowHeld.get()) << k;
}

// Every entry read back, by index and by a for-range loop, as stored.
void ExpectReadBack(const PlanEntries& entries, size_t count) {
    ASSERT_EQ(entries.size(), count);
    for (size_t k = 0; k < count; ++k) ExpectSame(Sample(k), entries[k], k);
    size_t k = 0;
    for (const PlanEntry& e : entries) ExpectSame(Sample(k), e, k), ++k;
    EXPECT_EQ(k, count);
}

}  // namespace

TEST(PlanEntries, EntriesInMemoryReadBackAsTheyWereStored) {
    PlanEntries entries;
    for (size_t k = 0; k < 700; ++k) entries.push_back(Sample(k));
    EXPECT_FALSE(entries.Spilled());
    ExpectReadBack(entries, 700);
    EXPECT_FALSE(entries.Failed());
}

TEST(PlanEntries, EntriesInAScratchFileReadBackAsTheyWereStoredAndLeaveNoNameInTheFolder) {
    TempDir dir;
    const int fd = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    PlanEntries entries;
    entries.SpillTo(fd, true);
    close(fd);
    EXPECT_TRUE(entries.Spilled());
    // More than the write buffer and the read window hold.
    for (size_t k = 0; k < 3000; ++k) entries.push_back(Sample(k));
    EXPECT_TRUE(fs::is_empty(dir.file("")));
    ExpectReadBack(entries, 3000);
    EXPECT_FALSE(entries.Failed());
    // Moved, as a plan is moved out of the sync.
    PlanEntries moved = std::move(entries);
    ExpectSame(Sample(2999), moved[2999], 2999);
}

TEST(PlanEntries, WithoutUnnamedFilesTheScratchFileIsNamedAndUnlinkedAtOnce) {
    TempDir dir;
    const int fd = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    PlanEntries entries;
    entries.SpillTo(fd, true, false);
    EXPECT_TRUE(entries.Spilled());
    for (size_t k = 0; k < 1000; ++k) entries.push_back(Sample(k));
    EXPECT_TRUE(fs::is_empty(dir.file("")));
    ExpectReadBack(entries, 1000);
    // A dry run names nothing: its entries stay in memory.
    PlanEntries dry;
    dry.SpillTo(fd, false, false);
    close(fd);
    EXPECT_FALSE(dry.Spilled());
    for (size_t k = 0; k < 10; ++k) dry.push_back(Sample(k));
    ExpectReadBack(dry, 10);
}

TEST(PlanEntries, BriefSaysWhatTheExecutorSortsBy) {
    PlanEntries entries;
    for (size_t k = 0; k < 40; ++k) entries.push_back(Sample(k));
    for (size_t k = 0; k < 40; ++k) {
        const PlanEntries::Brief& b = entries.brief(k);
        const PlanEntry e = Sample(k);
        EXPECT_EQ(b.action, e.action);
        EXPECT_EQ(b.skip, e.skip);
        EXPECT_EQ(b.bytes, e.bytes);
        EXPECT_EQ(b.Has(PlanEntries::kHasRow), e.hasRow) << k;
        EXPECT_EQ(b.Has(PlanEntries::kRowPending), e.hasRow && e.row->pending) << k;
        EXPECT_EQ(b.Has(PlanEntries::kRefreshRow), e.refreshRow) << k;
        EXPECT_EQ(b.Has(PlanEntries::kLoaded), e.loaded) << k;
        EXPECT_EQ(b.Has(PlanEntries::kHadSkipRow), e.hadSkipRow) << k;
        EXPECT_EQ(b.Has(PlanEntries::kSkipRecorded), e.skipRecorded) << k;
        EXPECT_EQ(b.Has(PlanEntries::kPlaylist), e.playlist) << k;
        EXPECT_EQ(b.Has(PlanEntries::kReplaces), !e.replaces.empty()) << k;
    }
}

TEST(PlanEntries, ReplacedEntryReadsBackNewAndTheOthersAsTheyWere) {
    TempDir dir;
    const int fd = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    PlanEntries entries;
    entries.SpillTo(fd, true);
    close(fd);
    for (size_t k = 0; k < 10; ++k) entries.push_back(Sample(k));
    entries.Replace(3, Sample(8));
    ASSERT_EQ(entries.size(), 10u);
    ExpectSame(Sample(8), entries[3], 3);
    EXPECT_EQ(entries.brief(3).action, Action::kUpdate);
    for (size_t k : {0, 2, 4, 9}) ExpectSame(Sample(k), entries[k], k);
}

TEST(ManifestLookup, RowsAreFoundBySourceAndTheRestByIdInDevicePathOrder) {
    TempDir dir;
    fileinfo::sync::Manifest manifest;
    std::string error;
    ASSERT_EQ(manifest.Open(dir.file(""), true, error), fileinfo::sync::ManifestStatus::kOk) << error;
    ASSERT_TRUE(manifest.Begin(error));
    for (const char* device : {"b.mp3", "a.mp3", "c.mp3"}) {
        ManifestRow row;
        row.devicePath = device;
        row.sourcePath = std::string("/music/") + (device[0] == 'c' ? "a.mp3" : device);
        row.action = "copy";
        row.deviceSize = device[0];
        ASSERT_TRUE(manifest.Put(row, error)) << error;
    }
    ASSERT_TRUE(manifest.Commit(error));
    ASSERT_TRUE(manifest.BeginRead(error)) << error;
    // Two rows of one source: in device-path order, until one is taken.
    std::vector<std::string> seen;
    int64_t taken = 0;
    ASSERT_TRUE(manifest.FindBySource(
        "/music/a.mp3",
        [&](int64_t id, ManifestRow& row) {
            seen.push_back(row.devicePath);
            taken = id;
            return row.devicePath == "c.mp3";
        },
        error));
    EXPECT_EQ(seen, (std::vector<std::string>{"a.mp3", "c.mp3"}));
    std::vector<std::string> rest;
    ASSERT_TRUE(manifest.EachRow([&](int64_t id) { return id != taken; },
                                 [&](int64_t, ManifestRow& row) { rest.push_back(row.devicePath); }, error));
    EXPECT_EQ(rest, (std::vector<std::string>{"a.mp3", "b.mp3"}));
    manifest.EndRead();
}

TEST(ManifestLookup, ManifestWithoutTheSourceIndexGetsItOnItsFirstWritableOpen) {
    TempDir dir;
    {
        fileinfo::sync::Manifest manifest;
        std::string error;
        ASSERT_EQ(manifest.Open(dir.file(""), true, error), fileinfo::sync::ManifestStatus::kOk);
    }
    const std::string path = dir.file(fileinfo::sync::kManifestName);
    const auto indexes = [&path] {
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        sqlite3_stmt* s = nullptr;
        sqlite3_prepare_v2(db, "SELECT count(*) FROM sqlite_master WHERE name='files_by_source'", -1, &s, nullptr);
        sqlite3_step(s);
        const int n = sqlite3_column_int(s, 0);
        sqlite3_finalize(s);
        sqlite3_close(db);
        return n;
    };
    EXPECT_EQ(indexes(), 1);
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "DROP INDEX files_by_source", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    ASSERT_EQ(indexes(), 0);
    fileinfo::sync::Manifest manifest;
    std::string error;
    ASSERT_EQ(manifest.Open(dir.file(""), false, error), fileinfo::sync::ManifestStatus::kOk);
    EXPECT_EQ(indexes(), 0);  // a read-only open writes nothing
    fileinfo::sync::Manifest writable;
    ASSERT_EQ(writable.Open(dir.file(""), true, error), fileinfo::sync::ManifestStatus::kOk) << error;
    EXPECT_EQ(indexes(), 1);
}

TEST(PlanEntries, EntriesStayWholeInMemoryWhenTheScratchFileCannotGrow) {
    TempDir dir;
    const int fd = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    PlanEntries entries;
    entries.SpillTo(fd, true);
    close(fd);
    ASSERT_TRUE(entries.Spilled());
    // A file may not grow past 100 kB: the second flush of the records
    // fails part way, as on a full device.
    struct rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = before;
    small.rlim_cur = 100000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    for (size_t k = 0; k < 3000; ++k) entries.push_back(Sample(k));
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(entries.Spilled());
    ExpectReadBack(entries, 3000);
    EXPECT_FALSE(entries.Failed());
}
