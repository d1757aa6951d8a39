// A file already on the device that becomes another type (a copy that a new
// capability list makes a conversion, or a conversion whose source now plays
// as it is) is replaced in one sync: the new file lands under its own name,
// then the old one goes. Judged without the readers: every .mp3 "becomes"
// the type the test names, made of the source's own bytes.
#include <gtest/gtest.h>

#include <strings.h>
#include <sys/statvfs.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SyncTestHelpers.h"

using namespace synctest;
using fileinfo::sync::Action;

namespace {

class TypeChange : public CollectionTest {
protected:
    // A sync where every .mp3 becomes a file of type `becomes` (none: a
    // copy), as a capability list of its own (its digest) decides.
    fileinfo::sync::SyncOutcome SyncAs(const std::string& becomes, bool fat = false, bool dryRun = false,
                                       fileinfo::sync::Producer produce = nullptr) {
        fileinfo::sync::SyncRequest request;
        request.sources = {Src()};
        request.deviceFolder = Dev();
        request.decide = [becomes](const fileinfo::ScanItem& item) {
            fileinfo::sync::Decision d = CopyLoaded(item);
            const size_t dot = item.path.rfind('.');
            if (d.action == Action::kCopy && !becomes.empty() && dot != std::string::npos &&
                strcasecmp(item.path.c_str() + dot, ".mp3") == 0) {
                d.action = Action::kConvert;
                d.target = "as" + becomes;
                d.extension = becomes;
            }
            return d;
        };
        request.execute.produce = produce ? produce : [](const fileinfo::sync::PlanEntry& e, int out, std::string& error) {
            return fileinfo::sync::CopySource(e, out, error);
        };
        request.plan.jobs = 2;
        request.plan.fatNames = fat;
        request.plan.capsDigest = "test" + becomes;
        request.dryRun = dryRun;
        return fileinfo::sync::RunSync(request, nullptr);
    }

    // A copy: a for-range loop's entry lives until the next.
    static std::optional<fileinfo::sync::PlanEntry> EntryOf(const fileinfo::sync::Plan& plan, const std::string& source) {
        for (const auto& e : plan.entries) {
            if (e.source == source) return e;
        }
        return std::nullopt;
    }

    std::map<std::string, fileinfo::sync::ManifestRow> RowsByPath() const {
        std::map<std::string, fileinfo::sync::ManifestRow> rows;
        for (auto& row : Rows(Dev())) rows[row.devicePath] = row;
        return rows;
    }

    uint64_t Block() const {
        struct statvfs vfs;
        EXPECT_EQ(statvfs(Dev().c_str(), &vfs), 0);
        return vfs.f_frsize != 0 ? vfs.f_frsize : vfs.f_bsize;
    }
};

const std::set<std::string> kAsM4a = {"Album A/01 First.m4a", "Album A/02 Second.m4a", "Album B/01 Song.m4a",
                                      "Album B/02 Tone.wav",  "Album B/Disc 2/03 Tagged.aif", "Loose.m4a"};

uint64_t SizeOf(const std::string& path) { return static_cast<uint64_t>(fs::file_size(path)); }

}  // namespace

TEST_F(TypeChange, CopyThatBecomesAConversionIsReplacedInOneSync) {
    ASSERT_EQ(SyncAs("").run.done[static_cast<int>(Action::kCopy)], files_.size());
    const auto out = SyncAs(".m4a");
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    const std::string source = Src() + "/Album A/01 First.mp3";
    const auto e = EntryOf(out.plan, source);
    ASSERT_TRUE(e);
    EXPECT_EQ(e->action, Action::kUpdate);
    EXPECT_EQ(e->devicePath, "Album A/01 First.m4a");
    EXPECT_EQ(e->replaces, "Album A/01 First.mp3");
    EXPECT_EQ(e->reason, "becomes .m4a");
    EXPECT_EQ(e->target, "as.m4a");
    EXPECT_EQ(e->bytes, SizeOf(source));
    EXPECT_EQ(e->replacedBytes, SizeOf(source));
    EXPECT_EQ(Count(out.plan, Action::kUpdate), 3u);
    EXPECT_EQ(Count(out.plan, Action::kRemove), 0u);
    EXPECT_EQ(Count(out.plan, Action::kKeep), 3u);
    EXPECT_EQ(out.run.done[static_cast<int>(Action::kUpdate)], 3u);
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), kAsM4a);
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_TRUE(TempFiles(Dev()).empty());
    EXPECT_EQ(Slurp(Dev() + "/Album A/01 First.m4a"), Slurp(source));
    const auto rows = RowsByPath();
    ASSERT_EQ(rows.size(), files_.size());
    ASSERT_EQ(rows.count("Loose.m4a"), 1u);
    EXPECT_EQ(rows.at("Loose.m4a").action, "convert");
    EXPECT_EQ(rows.at("Loose.m4a").target, "as.m4a");
    EXPECT_EQ(rows.at("Loose.m4a").sourcePath, Src() + "/Loose.mp3");
    EXPECT_FALSE(rows.at("Loose.m4a").pending);
    // The next run finds everything in place.
    const auto again = SyncAs(".m4a");
    EXPECT_EQ(Count(again.plan, Action::kKeep), files_.size());
    EXPECT_EQ(again.plan.totals.loads, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), kAsM4a);
}

TEST_F(TypeChange, PlanTotalsCountTheBytesWrittenAndTheBytesTheReplacedFilesFree) {
    SyncAs("");
    const auto out = SyncAs(".m4a", false, true);
    const uint64_t block = Block();
    uint64_t bytes = 0, inBlocks = 0;
    for (const char* name : {"Album A/01 First.mp3", "Album A/02 Second.mp3", "Loose.mp3"}) {
        const uint64_t size = SizeOf(Src() + "/" + name);
        bytes += size;
        inBlocks += (size + block - 1) / block * block;
    }
    const auto& t = out.plan.totals;
    EXPECT_EQ(t.bytes[static_cast<int>(Action::kUpdate)], bytes);
    EXPECT_EQ(t.bytes[static_cast<int>(Action::kRemove)], 0u);
    EXPECT_EQ(t.needed, inBlocks);
    EXPECT_EQ(t.freed, inBlocks);
    EXPECT_TRUE(t.fits);
}

TEST_F(TypeChange, DryRunShowsTheReplacementAndWritesNothing) {
    SyncAs("");
    const auto before = RowsByPath();
    const auto out = SyncAs(".m4a", false, true);
    EXPECT_FALSE(out.ran);
    const auto e = EntryOf(out.plan, Src() + "/Loose.mp3");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->action, Action::kUpdate);
    EXPECT_EQ(e->devicePath, "Loose.m4a");
    EXPECT_EQ(e->replaces, "Loose.mp3");
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>(files_.begin(), files_.end()));
    const auto after = RowsByPath();
    ASSERT_EQ(after.size(), before.size());
    for (const auto& row : before) {
        ASSERT_EQ(after.count(row.first), 1u) << row.first;
        EXPECT_EQ(after.at(row.first).capsDigest, row.second.capsDigest) << row.first;
    }
}

TEST_F(TypeChange, ConversionWhoseSourceNowPlaysAsItIsIsReplacedByACopyInOneSync) {
    ASSERT_EQ(SyncAs(".m4a").run.done[static_cast<int>(Action::kConvert)], 3u);
    ASSERT_EQ(DeviceFiles(Dev()), kAsM4a);
    const auto out = SyncAs("");
    const auto e = EntryOf(out.plan, Src() + "/Album A/02 Second.mp3");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->action, Action::kUpdate);
    EXPECT_EQ(e->devicePath, "Album A/02 Second.mp3");
    EXPECT_EQ(e->replaces, "Album A/02 Second.m4a");
    EXPECT_EQ(e->reason, "becomes .mp3");
    EXPECT_EQ(e->target, "");
    EXPECT_EQ(out.run.done[static_cast<int>(Action::kUpdate)], 3u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>(files_.begin(), files_.end()));
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_EQ(RowsByPath().at("Loose.mp3").action, "copy");
    const auto again = SyncAs("");
    EXPECT_EQ(Count(again.plan, Action::kKeep), files_.size());
    EXPECT_EQ(again.plan.totals.loads, 0u);
}

TEST_F(TypeChange, NewNameTakenByAnotherFileGetsTheNextNumberTheSameOnTheNextRun) {
    CopyInto(Src() + "/Album B/01 Song.m4a", Src() + "/Loose.m4a");
    SyncAs("");
    // A file of the user's where the new name would go.
    Spit(Dev() + "/Album A/01 First.m4a", "mine");
    const auto out = SyncAs(".m4a");
    EXPECT_EQ(EntryOf(out.plan, Src() + "/Loose.mp3")->devicePath, "Loose (2).m4a");
    EXPECT_EQ(EntryOf(out.plan, Src() + "/Album A/01 First.mp3")->devicePath, "Album A/01 First (2).m4a");
    EXPECT_EQ(out.run.failed, 0u);
    EXPECT_EQ(Slurp(Dev() + "/Album A/01 First.m4a"), "mine");
    EXPECT_EQ(Slurp(Dev() + "/Loose.m4a"), Slurp(Src() + "/Loose.m4a"));
    EXPECT_EQ(Slurp(Dev() + "/Loose (2).m4a"), Slurp(Src() + "/Loose.mp3"));
    EXPECT_EQ(Disagreements(Dev(), {"Album A/01 First.m4a"}), "");
    const auto again = SyncAs(".m4a");
    EXPECT_EQ(Count(again.plan, Action::kKeep), files_.size() + 1);
    EXPECT_EQ(EntryOf(again.plan, Src() + "/Loose.mp3")->devicePath, "Loose (2).m4a");
    EXPECT_EQ(EntryOf(again.plan, Src() + "/Album A/01 First.mp3")->devicePath, "Album A/01 First (2).m4a");
}

TEST_F(TypeChange, NewNameIsFatSafeWithFatNames) {
    CopyInto(Src() + "/Loose.mp3", Src() + "/What: Why?.mp3");
    SyncAs("", true);
    ASSERT_TRUE(fs::exists(Dev() + "/What_ Why_.mp3"));
    const auto out = SyncAs(".m4a", true);
    const auto e = EntryOf(out.plan, Src() + "/What: Why?.mp3");
    ASSERT_TRUE(e);
    EXPECT_EQ(e->action, Action::kUpdate);
    EXPECT_EQ(e->devicePath, "What_ Why_.m4a");
    EXPECT_EQ(e->replaces, "What_ Why_.mp3");
    EXPECT_FALSE(fs::exists(Dev() + "/What_ Why_.mp3"));
    EXPECT_EQ(Slurp(Dev() + "/What_ Why_.m4a"), Slurp(Src() + "/What: Why?.mp3"));
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_EQ(Count(SyncAs(".m4a", true).plan, Action::kKeep), files_.size() + 1);
}

TEST_F(TypeChange, OldFileChangedByHandStaysAsTheUsersAndOnlyItsRowGoes) {
    SyncAs("");
    Spit(Dev() + "/Loose.mp3", "edited on the device");
    const auto out = SyncAs(".m4a");
    EXPECT_EQ(out.run.done[static_cast<int>(Action::kUpdate)], 3u);
    EXPECT_EQ(Slurp(Dev() + "/Loose.mp3"), "edited on the device");
    EXPECT_EQ(Slurp(Dev() + "/Loose.m4a"), Slurp(Src() + "/Loose.mp3"));
    EXPECT_EQ(RowsByPath().count("Loose.mp3"), 0u);
    EXPECT_EQ(Disagreements(Dev(), {"Loose.mp3"}), "");
}

TEST_F(TypeChange, ReplacementThatFailsKeepsTheOldFileAndTheNextRunCompletesIt) {
    SyncAs("");
    const auto failing = [](const fileinfo::sync::PlanEntry& e, int out, std::string& error) {
        if (e.source.find("Loose") != std::string::npos) {
            error = "no converter today";
            return EINVAL;
        }
        return fileinfo::sync::CopySource(e, out, error);
    };
    const auto out = SyncAs(".m4a", false, false, failing);
    EXPECT_EQ(out.run.failed, 1u);
    EXPECT_EQ(out.run.done[static_cast<int>(Action::kUpdate)], 2u);
    EXPECT_TRUE(fs::exists(Dev() + "/Loose.mp3"));
    EXPECT_FALSE(fs::exists(Dev() + "/Loose.m4a"));
    const auto rows = RowsByPath();
    EXPECT_EQ(rows.count("Loose.mp3"), 1u);
    EXPECT_EQ(rows.count("Loose.m4a"), 0u);
    EXPECT_EQ(Disagreements(Dev()), "");
    const auto next = SyncAs(".m4a");
    EXPECT_EQ(next.run.done[static_cast<int>(Action::kUpdate)], 1u);
    EXPECT_EQ(EntryOf(next.plan, Src() + "/Loose.mp3")->replaces, "Loose.mp3");
    EXPECT_EQ(DeviceFiles(Dev()), kAsM4a);
    EXPECT_EQ(Disagreements(Dev()), "");
}
