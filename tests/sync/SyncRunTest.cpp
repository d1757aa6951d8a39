// Whole syncs in this process, judged with CopyLoaded: the plan, the
// manifest, the executor and the names together.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SyncTestHelpers.h"
#include "sync/Executor.h"

using namespace synctest;
using fileinfo::sync::Action;

namespace {

class SyncRun : public CollectionTest {
protected:
    std::map<std::string, int64_t> DeviceTimes() const {
        std::map<std::string, int64_t> times;
        for (const std::string& f : DeviceFiles(Dev())) times[f] = MtimeNs(Dev() + "/" + f);
        return times;
    }
    // A copy: a for-range loop's entry lives until the next.
    std::optional<fileinfo::sync::PlanEntry> EntryOf(const fileinfo::sync::Plan& plan, const std::string& source) const {
        for (const auto& e : plan.entries) {
            if (e.source == source) return e;
        }
        return std::nullopt;
    }
};

}  // namespace

TEST_F(SyncRun, FirstSyncCopiesEveryFileByteForByteKeepingTheTree) {
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    EXPECT_EQ(Count(out.plan, Action::kCopy), 6u);
    EXPECT_EQ(out.run.done[static_cast<int>(Action::kCopy)], 6u);
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>(files_.begin(), files_.end()));
    for (const std::string& f : files_) EXPECT_EQ(Slurp(Dev() + "/" + f), Slurp(Src() + "/" + f)) << f;
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_TRUE(TempFiles(Dev()).empty());
    EXPECT_EQ(Rows(Dev()).size(), 6u);
}

TEST_F(SyncRun, PlanCountsEqualWhatTheRunDid) {
    Spit(Src() + "/notes.txt", "not media");
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk);
    for (const Action a : {Action::kCopy, Action::kUpdate, Action::kKeep, Action::kRemove}) {
        EXPECT_EQ(Count(out.plan, a), out.run.done[static_cast<int>(a)]) << fileinfo::sync::ActionName(a);
    }
    EXPECT_EQ(Count(out.plan, Action::kSkip), out.run.skipped);
    EXPECT_EQ(out.plan.totals.skipped[static_cast<int>(fileinfo::sync::SkipKind::kNotMedia)], 1u);
    uint64_t written = 0;
    for (const std::string& f : files_) written += fs::file_size(Src() + "/" + f);
    EXPECT_EQ(out.run.bytesWritten, written);
    EXPECT_EQ(out.plan.totals.bytes[static_cast<int>(Action::kCopy)], written);
}

TEST_F(SyncRun, SecondSyncThatChangesNothingKeepsEveryFileWithoutLoadingOrWriting) {
    ASSERT_EQ(SyncNow({Src()}, Dev()).run.failed, 0u);
    const auto before = DeviceTimes();
    const auto dbBefore = MtimeNs(Dev() + "/.fileinfo-sync.db");
    sleep(1);  // a write would show in the times
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kKeep), 6u);
    EXPECT_EQ(Count(out.plan, Action::kCopy) + Count(out.plan, Action::kUpdate), 0u);
    EXPECT_EQ(out.plan.totals.loads, 0u);
    EXPECT_EQ(DeviceTimes(), before);
    EXPECT_EQ(MtimeNs(Dev() + "/.fileinfo-sync.db"), dbBefore);
}

TEST_F(SyncRun, ChangedSourceIsOneUpdate) {
    SyncNow({Src()}, Dev());
    const std::string changed = Src() + "/Album A/02 Second.mp3";
    std::string bytes = Slurp(changed);
    bytes[bytes.size() - 1] ^= 1;
    Spit(changed, bytes);
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kUpdate), 1u);
    EXPECT_EQ(Count(out.plan, Action::kKeep), 5u);
    EXPECT_EQ(out.plan.totals.loads, 1u);
    EXPECT_EQ(EntryOf(out.plan, changed)->reason, "source changed");
    EXPECT_EQ(Slurp(Dev() + "/Album A/02 Second.mp3"), bytes);
    EXPECT_EQ(Disagreements(Dev()), "");
}

TEST_F(SyncRun, DeletedSourceIsOneRemoveAndItsCopyGoes) {
    SyncNow({Src()}, Dev());
    fs::remove(Src() + "/Album B/Disc 2/03 Tagged.aif");
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kRemove), 1u);
    EXPECT_EQ(Count(out.plan, Action::kKeep), 5u);
    EXPECT_FALSE(fs::exists(Dev() + "/Album B/Disc 2/03 Tagged.aif"));
    EXPECT_FALSE(fs::exists(Dev() + "/Album B/Disc 2"));  // emptied by the removal
    EXPECT_EQ(Rows(Dev()).size(), 5u);
    EXPECT_EQ(Disagreements(Dev()), "");
}

TEST_F(SyncRun, KeepRemovedLeavesTheCopyOfAGoneSource) {
    SyncNow({Src()}, Dev());
    fs::remove(Src() + "/Loose.mp3");
    const auto out = SyncNow({Src()}, Dev(), false, true);
    EXPECT_EQ(Count(out.plan, Action::kRemove), 0u);
    EXPECT_EQ(Count(out.plan, Action::kKeep), 6u);
    EXPECT_TRUE(fs::exists(Dev() + "/Loose.mp3"));
}

TEST_F(SyncRun, SourceLeftOutOfARunIsNotRemoved) {
    SyncNow({Src()}, Dev());
    const auto out = SyncNow({Src() + "/Album A"}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kRemove), 0u);
    EXPECT_EQ(DeviceFiles(Dev()).size(), 6u);
}

TEST_F(SyncRun, FileTheUserPutOnTheDeviceStaysUntouchedAndIsNotTakenOver) {
    Spit(Dev() + "/Loose.mp3", "the user's own");
    Spit(Dev() + "/Album A/cover.jpg", "art");
    const auto first = SyncNow({Src()}, Dev());
    EXPECT_EQ(first.run.failed, 0u);
    EXPECT_EQ(Slurp(Dev() + "/Loose.mp3"), "the user's own");
    EXPECT_EQ(Slurp(Dev() + "/Loose (2).mp3"), Slurp(Src() + "/Loose.mp3"));
    fs::remove(Src() + "/Loose.mp3");
    fs::remove_all(Src() + "/Album A");
    const auto second = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(second.plan, Action::kRemove), 3u);
    EXPECT_EQ(Slurp(Dev() + "/Loose.mp3"), "the user's own");
    EXPECT_EQ(Slurp(Dev() + "/Album A/cover.jpg"), "art");
    EXPECT_EQ(Disagreements(Dev(), {"Loose.mp3", "Album A/cover.jpg"}), "");
}

TEST_F(SyncRun, DeviceCopyDeletedOrChangedByHandIsCopiedAgainWithoutLoading) {
    SyncNow({Src()}, Dev());
    fs::remove(Dev() + "/Album A/01 First.mp3");
    Spit(Dev() + "/Loose.mp3", "scribbled");
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kCopy), 2u);
    EXPECT_EQ(out.plan.totals.loads, 0u);
    EXPECT_EQ(Slurp(Dev() + "/Album A/01 First.mp3"), Slurp(Src() + "/Album A/01 First.mp3"));
    EXPECT_EQ(Slurp(Dev() + "/Loose.mp3"), Slurp(Src() + "/Loose.mp3"));
    EXPECT_EQ(Disagreements(Dev()), "");
}

TEST_F(SyncRun, DryRunWritesNothingInTheDeviceFolder) {
    const auto out = SyncNow({Src()}, Dev(), false, false, true);
    EXPECT_EQ(Count(out.plan, Action::kCopy), 6u);
    EXPECT_FALSE(out.ran);
    EXPECT_TRUE(fs::is_empty(Dev()));
}

TEST_F(SyncRun, NamedFileGoesToTheDeviceFoldersTop) {
    const auto out = SyncNow({Src() + "/Album B/Disc 2/03 Tagged.aif"}, Dev());
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"03 Tagged.aif"});
}

TEST_F(SyncRun, NamesThatDifferOnlyInCaseGetDistinctNamesTheSameOnEveryRun) {
    const std::string song = Slurp(Src() + "/Loose.mp3");
    Spit(Src() + "/song.mp3", song + "a");
    Spit(Src() + "/Song.mp3", song + "b");
    SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Slurp(Dev() + "/Song.mp3"), song + "b");  // bytewise first
    EXPECT_EQ(Slurp(Dev() + "/song (2).mp3"), song + "a");
    Spit(Src() + "/SONG.mp3", song + "c");  // sorts before both
    const auto out = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Count(out.plan, Action::kCopy), 1u);
    EXPECT_EQ(Slurp(Dev() + "/Song.mp3"), song + "b");
    EXPECT_EQ(Slurp(Dev() + "/song (2).mp3"), song + "a");
    EXPECT_EQ(Slurp(Dev() + "/SONG (3).mp3"), song + "c");
    // A fresh device gets the same names from the sorted sources.
    TempDir other;
    SyncNow({Src()}, other.path().string(), true);
    EXPECT_EQ(Slurp(other.file("SONG.mp3")), song + "c");
    EXPECT_EQ(Slurp(other.file("Song (2).mp3")), song + "b");
}

TEST_F(SyncRun, FoldersThatDifferOnlyInCaseBecomeOneFolderOnFat) {
    CopyInto(Src() + "/Loose.mp3", Src() + "/album a/Other.mp3");
    SyncNow({Src()}, Dev(), true);
    EXPECT_TRUE(fs::exists(Dev() + "/Album A/Other.mp3"));
    EXPECT_FALSE(fs::exists(Dev() + "/album a"));
}

TEST_F(SyncRun, NamesWithColonOrQuestionMarkAreMadeFatSafe) {
    CopyInto(Src() + "/Loose.mp3", Src() + "/What? Now: Live.mp3");
    CopyInto(Src() + "/Loose.mp3", Src() + "/Trailing dot./x.mp3");
    const auto out = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_TRUE(fs::exists(Dev() + "/What_ Now_ Live.mp3"));
    EXPECT_TRUE(fs::exists(Dev() + "/Trailing dot/x.mp3"));
    EXPECT_EQ(Count(SyncNow({Src()}, Dev(), true).plan, Action::kKeep), 8u);
}

TEST_F(SyncRun, LongNamesAndPathsStayWithinFatLimits) {
    // 84 three-byte characters and ".mp3": 256 bytes is more than a source
    // name may hold, so 83 (253 bytes, 87 UTF-16 units) is the longest.
    std::string name;
    for (int k = 0; k < 83; ++k) name += "\xe6\x97\xa5";
    CopyInto(Src() + "/Loose.mp3", Src() + "/" + name + ".mp3");
    std::string deep = Src();
    for (int k = 0; k < 4; ++k) deep += "/" + std::string(60, 'd');
    CopyInto(Src() + "/Loose.mp3", deep + "/deep.mp3");
    const auto out = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_TRUE(fs::exists(Dev() + "/" + name + ".mp3"));
    const auto e = EntryOf(out.plan, deep + "/deep.mp3");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->action, Action::kSkip);
    EXPECT_EQ(e->skip, fileinfo::sync::SkipKind::kPathTooLong);
}

TEST_F(SyncRun, FileLargerThanFatTakesIsSkippedWithoutLoading) {
    const std::string big = Src() + "/big.mp3";
    Spit(big, "");
    ASSERT_EQ(truncate(big.c_str(), 0x100000000LL), 0);
    const auto out = SyncNow({Src()}, Dev(), true, false, true);
    const auto e = EntryOf(out.plan, big);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->skip, fileinfo::sync::SkipKind::kTooLarge);
    EXPECT_FALSE(e->loaded);
    EXPECT_EQ(out.plan.totals.loads, 6u);
}

TEST_F(SyncRun, CopiesKeepTheSourcesTimeInTwoSecondStepsOnFat) {
    const std::string source = Src() + "/Loose.mp3";
    timespec times[2] = {{0, UTIME_OMIT}, {1700000001, 987654321}};
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
    SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(MtimeNs(Dev() + "/Loose.mp3"), 1700000000LL * 1000000000);
    TempDir plain;
    SyncNow({Src()}, plain.path().string());
    EXPECT_EQ(MtimeNs(plain.file("Loose.mp3")), 1700000001LL * 1000000000 + 987654321);
}

TEST_F(SyncRun, SymbolicLinkInTheDeviceFolderIsNotFollowed) {
    TempDir outside;
    fs::create_directory_symlink(outside.path(), Dev() + "/Album A");
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(out.run.failed, 2u);
    EXPECT_TRUE(fs::is_empty(outside.path()));
    EXPECT_EQ(Disagreements(Dev()), "");
}

TEST_F(SyncRun, DeviceFolderInsideASourceOrASourceInsideItIsRefused) {
    std::string error;
    EXPECT_EQ(SyncNow({Src()}, Src() + "/Album A").status, fileinfo::sync::SyncStatus::kUsage);
    fs::create_directories(Dev() + "/in");
    EXPECT_EQ(SyncNow({Dev() + "/in"}, Dev()).status, fileinfo::sync::SyncStatus::kUsage);
    EXPECT_EQ(SyncNow({Src()}, Dev() + "/missing").status, fileinfo::sync::SyncStatus::kUsage);
}

TEST_F(SyncRun, SourceNamedButNotThereIsRefusedAndNothingOnTheDeviceChanges) {
    ASSERT_EQ(SyncNow({Src()}, Dev()).status, fileinfo::sync::SyncStatus::kOk);
    const auto before = DeviceTimes();
    const std::string missing = work_.file("Musci");
    const auto out = SyncNow({missing}, Dev());
    EXPECT_EQ(out.status, fileinfo::sync::SyncStatus::kUsage);
    EXPECT_EQ(out.error, missing + ": No such file or directory");
    EXPECT_FALSE(out.ran);
    EXPECT_EQ(DeviceTimes(), before);
    EXPECT_EQ(Rows(Dev()).size(), files_.size());
}

TEST_F(SyncRun, SecondSyncWhileOneRunsIsRefused) {
    const int fd = open(Dev().c_str(), O_RDONLY | O_DIRECTORY);
    fileinfo::sync::SyncLock lock;
    std::string error;
    ASSERT_EQ(lock.Take(fd, error), fileinfo::sync::ManifestStatus::kOk);
    close(fd);
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(out.status, fileinfo::sync::SyncStatus::kLocked);
    EXPECT_EQ(out.error, "another sync to this folder is running");
    EXPECT_EQ(DeviceFiles(Dev()).size(), 0u);
}

TEST_F(SyncRun, ManifestOfANewerSchemaIsRefused) {
    SyncNow({Src()}, Dev());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((Dev() + "/.fileinfo-sync.db").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "PRAGMA user_version=2", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(out.status, fileinfo::sync::SyncStatus::kNewer);
    EXPECT_NE(out.error.find("schema is version 2, newer than this fileinfo knows (1)"), std::string::npos) << out.error;
}

TEST_F(SyncRun, FinishedCopyAStoppedRunDidNotRecordIsKeptAndItsTempFileRemoved) {
    SyncNow({Src()}, Dev());
    // As a run killed between the rename and the commit leaves it.
    fileinfo::sync::Manifest manifest;
    std::string error;
    ASSERT_EQ(manifest.Open(Dev(), true, error), fileinfo::sync::ManifestStatus::kOk);
    std::vector<fileinfo::sync::ManifestRow> rows;
    manifest.Rows(rows, error);
    ASSERT_TRUE(manifest.Begin(error));
    rows[0].pending = true;
    rows[0].tempPath = "Album A/.fileinfo-sync-AAAAAAAAAAAA.tmp";
    rows[0].deviceSize = 0;
    manifest.Put(rows[0], error);
    ASSERT_TRUE(manifest.Commit(error));
    Spit(Dev() + "/" + rows[0].tempPath, "half");
    Spit(Dev() + "/Album A/.fileinfo-sync-BBBBBBBBBBBB.tmp", "not named by the manifest");
    const auto before = DeviceTimes();
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kKeep), 6u);
    EXPECT_EQ(out.run.tempFilesRemoved, 1u);
    EXPECT_FALSE(fs::exists(Dev() + "/" + rows[0].tempPath));
    EXPECT_TRUE(fs::exists(Dev() + "/Album A/.fileinfo-sync-BBBBBBBBBBBB.tmp"));
    EXPECT_EQ(DeviceTimes(), before);
    for (const auto& row : Rows(Dev())) EXPECT_FALSE(row.pending) << row.devicePath;
}

TEST_F(SyncRun, PlaylistEntriesPointAtTheCopiesAndSkippedOnesAreDropped) {
    Spit(Src() + "/Album A/broken.mp3", "");
    Spit(Src() + "/Lists/mix.m3u8",
         "#EXTM3U\n#EXTINF:1,First\n../Album A/01 First.mp3\n#EXTINF:1,Broken\n../Album A/broken.mp3\n" + Src() +
             "/Loose.mp3\n/etc/hostname\n");
    const auto out = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Slurp(Dev() + "/Lists/mix.m3u8"), "#EXTM3U\n#EXTINF:1,First\n../Album A/01 First.mp3\n../Loose.mp3\n");
    EXPECT_EQ(out.plan.totals.playlistDropped, 2u);
    EXPECT_EQ(Count(SyncNow({Src()}, Dev(), true).plan, Action::kKeep), 7u);
    // A file the playlist names moves to a new name: the playlist follows.
    fs::remove(Src() + "/Loose.mp3");
    const auto after = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Count(after.plan, Action::kUpdate), 1u);
    EXPECT_EQ(Slurp(Dev() + "/Lists/mix.m3u8"), "#EXTM3U\n#EXTINF:1,First\n../Album A/01 First.mp3\n");
}

TEST_F(SyncRun, SkippedFileIsJudgedOnceAndNotLoadedAgainWhileUnchanged) {
    Spit(Src() + "/Album A/broken.mp3", "");
    const auto first = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(first.plan, Action::kSkip), 1u);
    EXPECT_EQ(first.plan.totals.loads, 7u);
    const auto second = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(second.plan, Action::kSkip), 1u);
    EXPECT_EQ(second.plan.totals.loads, 0u);
    EXPECT_EQ(EntryOf(second.plan, Src() + "/Album A/broken.mp3")->reason, "did not load");
    // Once it changes, it is judged again.
    CopyInto(Src() + "/Loose.mp3", Src() + "/Album A/broken.mp3");
    const auto third = SyncNow({Src()}, Dev());
    EXPECT_EQ(third.plan.totals.loads, 1u);
    EXPECT_EQ(Count(third.plan, Action::kCopy), 1u);
}

TEST_F(SyncRun, ManifestRowsWhosePathsClimbOutOfTheDeviceFolderAreIgnored) {
    SyncNow({Src()}, Dev());
    Spit(work_.file("escape.mp3"), "outside the device folder");
    fileinfo::sync::Manifest manifest;
    std::string error;
    ASSERT_EQ(manifest.Open(Dev(), true, error), fileinfo::sync::ManifestStatus::kOk);
    std::vector<fileinfo::sync::ManifestRow> rows;
    manifest.Rows(rows, error);
    ASSERT_TRUE(manifest.Begin(error));
    fileinfo::sync::ManifestRow gone = rows[0];
    gone.devicePath = "../escape.mp3";
    gone.sourcePath = Src() + "/no longer there.mp3";
    manifest.Put(gone, error);
    fileinfo::sync::ManifestRow pending = rows[1];
    pending.devicePath = "Album A/../../escape.mp3";
    pending.sourcePath = Src() + "/Loose.mp3";
    pending.pending = true;
    pending.tempPath = "../escape.mp3";
    manifest.Put(pending, error);
    ASSERT_TRUE(manifest.Commit(error));
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_EQ(Count(out.plan, Action::kRemove), 0u);
    EXPECT_EQ(Slurp(work_.file("escape.mp3")), "outside the device folder");
    EXPECT_EQ(Slurp(Dev() + "/Loose.mp3"), Slurp(Src() + "/Loose.mp3"));
}

// More files than the plan decides at once (it walks, looks up and names
// them in chunks of 512): names, removes and playlists across chunks.
TEST_F(SyncRun, PlanOfMoreFilesThanAChunkNamesRemovesAndListsAcrossChunks) {
    const std::string song = Slurp(Src() + "/Loose.mp3");
    for (int k = 0; k < 1100; ++k) {
        char name[64];
        snprintf(name, sizeof name, "/Many/%04d.mp3", k);
        Spit(Src() + name, song);
    }
    // On FAT, "many/0000.mp3" is "Many/0000.mp3", named two chunks before
    // it: it takes a number.
    Spit(Src() + "/many/0000.mp3", song);
    Spit(Src() + "/Lists/many.m3u", "../Many/0000.mp3\n../many/0000.mp3\n../Many/1099.mp3\n");
    const auto first = SyncNow({Src()}, Dev(), true);
    ASSERT_EQ(first.status, fileinfo::sync::SyncStatus::kOk) << first.error;
    EXPECT_EQ(first.run.failed, 0u);
    EXPECT_EQ(Count(first.plan, Action::kCopy), 6u + 1101u + 1u);
    EXPECT_EQ(Slurp(Dev() + "/Lists/many.m3u"), "../Many/0000.mp3\n../Many/0000 (2).mp3\n../Many/1099.mp3\n");
    // In the walk's order, one entry a file.
    std::vector<std::string> sources;
    for (const auto& e : first.plan.entries) sources.push_back(e.source);
    ASSERT_EQ(sources.size(), 6u + 1101u + 1u);
    EXPECT_EQ(sources[7], Src() + "/Many/0000.mp3");
    EXPECT_TRUE(std::is_sorted(sources.begin() + 7, sources.begin() + 7 + 1100));
    EXPECT_EQ(sources.back(), Src() + "/many/0000.mp3");
    EXPECT_EQ(Disagreements(Dev()), "");

    const auto again = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Count(again.plan, Action::kKeep), 6u + 1101u + 1u);
    EXPECT_EQ(again.plan.totals.loads, 0u);

    fs::remove(Src() + "/Many/0001.mp3");
    fs::remove(Src() + "/Many/1098.mp3");
    const auto removed = SyncNow({Src()}, Dev(), true);
    EXPECT_EQ(Count(removed.plan, Action::kRemove), 2u);
    EXPECT_EQ(removed.run.done[static_cast<int>(Action::kRemove)], 2u);
    EXPECT_FALSE(fs::exists(Dev() + "/Many/0001.mp3"));
    EXPECT_FALSE(fs::exists(Dev() + "/Many/1098.mp3"));
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_TRUE(TempFiles(Dev()).empty());
}

TEST_F(SyncRun, DryRunWhereTheDeviceHoldsNoUnnamedFileKeepsItsEntriesInTheTemporaryFolder) {
    // As on FAT: the device folder holds no unnamed file, and a dry run
    // names nothing there.
    const std::string temporary = work_.file("tmp");
    fs::create_directories(temporary);
    fileinfo::sync::SyncRequest request;
    request.sources = {Src()};
    request.deviceFolder = Dev();
    request.decide = CopyLoaded;
    request.plan.capsDigest = "test";
    request.plan.unnamedScratch = false;
    request.plan.temporaryFolder = temporary;
    request.dryRun = true;
    const auto out = fileinfo::sync::RunSync(request, nullptr);
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    EXPECT_TRUE(out.plan.entries.Spilled());
    EXPECT_EQ(out.plan.entries.size(), 6u);
    EXPECT_EQ(out.plan.entries[0].source, Src() + "/Album A/01 First.mp3");
    EXPECT_TRUE(fs::is_empty(Dev()));
    EXPECT_TRUE(fs::is_empty(temporary));  // unnamed: nothing to leave behind
}

TEST_F(SyncRun, PlanOfADeviceFolderKeepsItsEntriesInAScratchFileThatLeavesNoTrace) {
    const auto before = fs::last_write_time(Dev());
    const auto dry = SyncNow({Src()}, Dev(), false, false, true);
    EXPECT_EQ(dry.plan.entries.size(), 6u);
    EXPECT_TRUE(fs::is_empty(Dev()));
    EXPECT_EQ(fs::last_write_time(Dev()), before);
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_TRUE(out.plan.entries.Spilled());
    EXPECT_EQ(out.plan.entries[0].source, Src() + "/Album A/01 First.mp3");
    EXPECT_TRUE(TempFiles(Dev()).empty());
}

TEST(SyncScratch, ScratchNamesCarryTheirOwnMarkApartFromTemporaryFiles) {
    using fileinfo::sync::IsSyncScratchName;
    using fileinfo::sync::IsSyncTempName;
    EXPECT_TRUE(IsSyncScratchName(".fileinfo-sync-scratch-ABCdef123456.tmp"));
    EXPECT_FALSE(IsSyncTempName(".fileinfo-sync-scratch-ABCdef123456.tmp"));
    EXPECT_FALSE(IsSyncScratchName(".fileinfo-sync-ABCdef123456.tmp"));
    EXPECT_FALSE(IsSyncScratchName(".fileinfo-sync-scratch-ABCdef12345.tmp"));
    EXPECT_FALSE(IsSyncScratchName(".fileinfo-sync-scratch-ABCdef1234567.tmp"));
    EXPECT_FALSE(IsSyncScratchName(".fileinfo-sync-scratch-ABCdef-23456.tmp"));
    EXPECT_FALSE(IsSyncScratchName(".fileinfo-sync-scratch-ABCdef123456.mp3"));
}

TEST(SyncScratch, NamedScratchFileLeavesNoNameBehind) {
    TempDir dir;
    const int folder = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    const int fd = fileinfo::sync::OpenScratchFile(folder, true, false);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, "x", 1), 1);
    EXPECT_TRUE(fs::is_empty(dir.file("")));
    close(fd);
    EXPECT_EQ(fileinfo::sync::OpenScratchFile(folder, false, false), -1);
    close(folder);
}

TEST(SyncScratch, LeftoverScratchFilesOfThisUserGoAndNothingElse) {
    TempDir dir;
    const std::string leftover = ".fileinfo-sync-scratch-AAAAAAAAAAAA.tmp";
    Spit(dir.file(leftover), "plan records");
    Spit(dir.file(".fileinfo-sync-scratch-AAAAAAAAAAA.tmp"), "one letter short");
    Spit(dir.file(".fileinfo-sync-CCCCCCCCCCCC.tmp"), "a temporary file, the manifest's business");
    Spit(dir.file("song.mp3"), "the user's");
    fs::create_directory(dir.file(".fileinfo-sync-scratch-DDDDDDDDDDDD.tmp"));
    fs::create_symlink(dir.file("song.mp3"), dir.file(".fileinfo-sync-scratch-EEEEEEEEEEEE.tmp"));
    bool foreign = false;
    if (geteuid() == 0) {
        Spit(dir.file(".fileinfo-sync-scratch-FFFFFFFFFFFF.tmp"), "another user's");
        foreign = chown(dir.file(".fileinfo-sync-scratch-FFFFFFFFFFFF.tmp").c_str(), 4321, 4321) == 0;
    }
    const int folder = open(dir.file("").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    EXPECT_EQ(fileinfo::sync::RemoveLeftoverScratch(folder), 1u);
    close(folder);
    EXPECT_FALSE(fs::exists(dir.file(leftover)));
    EXPECT_TRUE(fs::exists(dir.file(".fileinfo-sync-scratch-AAAAAAAAAAA.tmp")));
    EXPECT_TRUE(fs::exists(dir.file(".fileinfo-sync-CCCCCCCCCCCC.tmp")));
    EXPECT_EQ(Slurp(dir.file("song.mp3")), "the user's");
    EXPECT_TRUE(fs::is_directory(dir.file(".fileinfo-sync-scratch-DDDDDDDDDDDD.tmp")));
    EXPECT_TRUE(fs::is_symlink(dir.file(".fileinfo-sync-scratch-EEEEEEEEEEEE.tmp")));
    if (foreign) {
        EXPECT_TRUE(fs::exists(dir.file(".fileinfo-sync-scratch-FFFFFFFFFFFF.tmp")));
    }
}

TEST_F(SyncRun, ScratchNameLeftByAKilledRunIsRemovedByTheNextRunAndADryRunLeavesIt) {
    const std::string leftover = Dev() + "/.fileinfo-sync-scratch-AAAAAAAAAAAA.tmp";
    Spit(leftover, "plan records of a killed run");
    SyncNow({Src()}, Dev(), false, false, true);
    EXPECT_TRUE(fs::exists(leftover));
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    EXPECT_FALSE(fs::exists(leftover));
    EXPECT_EQ(out.run.tempFilesRemoved, 1u);
    EXPECT_EQ(Disagreements(Dev()), "");
}
