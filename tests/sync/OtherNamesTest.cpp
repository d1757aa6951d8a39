// Media files named otherwise than by an extension the library takes
// (.aiff, .aifc, .m4b, .mp2, or no extension at all): the walk reads them
// by their bytes, and their device copies take the extension the library
// reads their type by, so that the device's library loads them.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "SyncTestHelpers.h"

using namespace synctest;
using fileinfo::sync::Action;
using fileinfo::sync::SkipKind;

namespace {

const std::string kFixtures = FILEINFO_FIXTURES_DIR;

class SyncOtherNames : public ::testing::Test {
protected:
    std::string Src() const { return work_.file("music"); }
    std::string Dev() const { return work_.file("device"); }
    void SetUp() override {
        fs::create_directories(Src());
        fs::create_directories(Dev());
    }
    void Put(const std::string& fixture, const std::string& relative) { CopyInto(fixture, Src() + "/" + relative); }

    // Each source's entry, by its path relative to the collection.
    static std::map<std::string, fileinfo::sync::PlanEntry> BySource(const fileinfo::sync::Plan& plan,
                                                                     const std::string& root) {
        std::map<std::string, fileinfo::sync::PlanEntry> entries;
        for (const auto& e : plan.entries) entries.emplace(e.source.substr(root.size() + 1), e);
        return entries;
    }

    TempDir work_;
};

}  // namespace

TEST_F(SyncOtherNames, CopiesTakeTheExtensionTheLibraryReadsTheirTypeBy) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "A/one.aiff");
    Put(kFixtures + "/aiff/sox-stereo-22k.aifc", "A/two.AIFC");
    Put(kFixtures + "/mp4/aac-tagged.m4a", "A/book.m4b");
    Put(kFixtures + "/mp3/layer2.mp3", "A/three.mp2");
    Put(kFixtures + "/mp3/cbr128.mp3", "A/track");
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    // CopyLoaded copies only what the library loaded: under the source's
    // own name it would have loaded none of them.
    EXPECT_EQ(Count(out.plan, Action::kCopy), 5u);
    EXPECT_EQ(out.run.failed, 0u);
    const std::map<std::string, std::string> expected = {{"A/one.aiff", "A/one.aif"},
                                                         {"A/two.AIFC", "A/two.aif"},
                                                         {"A/book.m4b", "A/book.m4a"},
                                                         {"A/three.mp2", "A/three.mp3"},
                                                         {"A/track", "A/track.mp3"}};
    const auto entries = BySource(out.plan, Src());
    for (const auto& [source, device] : expected) {
        ASSERT_EQ(entries.count(source), 1u) << source;
        EXPECT_EQ(entries.at(source).action, Action::kCopy) << source;
        EXPECT_EQ(entries.at(source).devicePath, device) << source;
        EXPECT_TRUE(Slurp(Dev() + "/" + device) == Slurp(Src() + "/" + source)) << source;
    }
    EXPECT_EQ(DeviceFiles(Dev()),
              (std::set<std::string>{"A/one.aif", "A/two.aif", "A/book.m4a", "A/three.mp3", "A/track.mp3"}));
    EXPECT_EQ(Disagreements(Dev()), "");
    EXPECT_EQ(Rows(Dev()).size(), 5u);
}

TEST_F(SyncOtherNames, SecondSyncKeepsRenamedCopiesWithoutLoading) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "one.aiff");
    Put(kFixtures + "/mp3/cbr128.mp3", "track");
    ASSERT_EQ(SyncNow({Src()}, Dev()).run.failed, 0u);
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kKeep), 2u);
    EXPECT_EQ(Count(out.plan, Action::kCopy) + Count(out.plan, Action::kUpdate), 0u);
    EXPECT_EQ(out.plan.totals.loads, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), (std::set<std::string>{"one.aif", "track.mp3"}));
}

TEST_F(SyncOtherNames, ChangedSourceUpdatesItsRenamedCopyInPlace) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "one.aiff");
    ASSERT_EQ(SyncNow({Src()}, Dev()).run.failed, 0u);
    Put(kFixtures + "/aiff/sox-stereo-22k.aifc", "one.aiff");
    const auto out = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(out.plan, Action::kUpdate), 1u);
    ASSERT_EQ(out.plan.entries.size(), 1u);
    EXPECT_EQ(out.plan.entries[0].devicePath, "one.aif");
    EXPECT_EQ(out.plan.entries[0].replaces, "");
    EXPECT_TRUE(Slurp(Dev() + "/one.aif") == Slurp(kFixtures + "/aiff/sox-stereo-22k.aifc"));
    EXPECT_EQ(DeviceFiles(Dev()), (std::set<std::string>{"one.aif"}));
}

TEST_F(SyncOtherNames, SourceWhoseBytesChangeTypeReplacesItsCopyUnderTheNewExtension) {
    Put(kFixtures + "/mp3/cbr128.mp3", "track");
    ASSERT_EQ(SyncNow({Src()}, Dev()).run.failed, 0u);
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "track");
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.plan.entries.size(), 1u);
    EXPECT_EQ(out.plan.entries[0].action, Action::kUpdate);
    EXPECT_EQ(out.plan.entries[0].devicePath, "track.aif");
    EXPECT_EQ(out.plan.entries[0].replaces, "track.mp3");
    EXPECT_EQ(DeviceFiles(Dev()), (std::set<std::string>{"track.aif"}));
    EXPECT_EQ(Disagreements(Dev()), "");
}

TEST_F(SyncOtherNames, TwoSourcesThatMeetUnderOneDeviceNameGetDistinctNamesOnEveryRun) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "one.aif");
    Put(kFixtures + "/aiff/sox-stereo-22k.aifc", "one.aiff");
    const auto first = SyncNow({Src()}, Dev());
    ASSERT_EQ(first.run.failed, 0u);
    auto entries = BySource(first.plan, Src());
    EXPECT_EQ(entries.at("one.aif").devicePath, "one.aif");
    EXPECT_EQ(entries.at("one.aiff").devicePath, "one (2).aif");
    EXPECT_TRUE(Slurp(Dev() + "/one (2).aif") == Slurp(Src() + "/one.aiff"));
    const auto second = SyncNow({Src()}, Dev());
    EXPECT_EQ(Count(second.plan, Action::kKeep), 2u);
    entries = BySource(second.plan, Src());
    EXPECT_EQ(entries.at("one.aif").devicePath, "one.aif");
    EXPECT_EQ(entries.at("one.aiff").devicePath, "one (2).aif");
}

TEST_F(SyncOtherNames, FilesWithoutExtensionThatHoldNoMediaAreNotMediaFiles) {
    Spit(Src() + "/README", "Music from the attic.\n");
    Spit(Src() + "/noise.aiff", "FORM but no sound");
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    const auto entries = BySource(out.plan, Src());
    EXPECT_EQ(entries.at("README").action, Action::kSkip);
    EXPECT_EQ(entries.at("README").skip, SkipKind::kNotMedia);
    EXPECT_EQ(entries.at("README").reason, "not a media file: no extension");
    EXPECT_EQ(entries.at("noise.aiff").action, Action::kSkip);
    EXPECT_EQ(entries.at("noise.aiff").skip, SkipKind::kNotIdentified);
    EXPECT_EQ(entries.at("noise.aiff").reason, "not identified");
    EXPECT_TRUE(DeviceFiles(Dev()).empty());
}

TEST_F(SyncOtherNames, ExtensionListSelectsOtherNamesByTheirOwnExtension) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "one.aiff");
    Put(kFixtures + "/mp3/cbr128.mp3", "track");
    Put(kFixtures + "/mp3/cbr128.mp3", "song.mp3");
    fileinfo::sync::SyncRequest request;
    request.sources = {Src()};
    request.deviceFolder = Dev();
    request.decide = CopyLoaded;
    request.plan.capsDigest = "test";
    request.plan.extensions = {"aiff"};
    const auto out = fileinfo::sync::RunSync(request, nullptr);
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    const auto entries = BySource(out.plan, Src());
    EXPECT_EQ(entries.at("one.aiff").action, Action::kCopy);
    EXPECT_EQ(entries.at("track").reason, "not a media file: extension not selected");
    EXPECT_EQ(entries.at("song.mp3").reason, "not a media file: extension not selected");
    EXPECT_EQ(DeviceFiles(Dev()), (std::set<std::string>{"one.aif"}));
}

TEST_F(SyncOtherNames, NameTooLongForTheNewExtensionStillLoads) {
    // 253 bytes with no extension: the name under which it is loaded, and
    // its copy's, must cut the stem to take ".mp3" within 255 bytes.
    const std::string name(253, 'n');
    Put(kFixtures + "/mp3/cbr128.mp3", name);
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    ASSERT_EQ(out.plan.entries.size(), 1u);
    const auto& e = out.plan.entries[0];
    EXPECT_EQ(e.action, Action::kCopy) << e.reason;
    EXPECT_EQ(e.devicePath.size(), static_cast<size_t>(NAME_MAX));
    EXPECT_EQ(e.devicePath.substr(e.devicePath.size() - 4), ".mp3");
    EXPECT_TRUE(Slurp(Dev() + "/" + e.devicePath) == Slurp(Src() + "/" + name));
}

TEST_F(SyncOtherNames, NumberedNameAtTheLengthLimitKeepsItsNumberAndExtension) {
    // The 253-byte name without an extension becomes the 255-byte name the
    // other file already has: its numbered name is cut to fit, mark kept.
    const std::string bare(253, 'n');
    const std::string full = std::string(251, 'n') + ".mp3";
    Put(kFixtures + "/mp3/cbr128.mp3", bare);
    Put(kFixtures + "/mp3/vbr-xing.mp3", full);
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    const auto entries = BySource(out.plan, Src());
    EXPECT_EQ(entries.at(full).devicePath, full);
    EXPECT_EQ(entries.at(bare).devicePath, std::string(247, 'n') + " (2).mp3");
    EXPECT_TRUE(Slurp(Dev() + "/" + std::string(247, 'n') + " (2).mp3") == Slurp(Src() + "/" + bare));
    EXPECT_EQ(out.run.failed, 0u);
}

TEST_F(SyncOtherNames, PlaylistsPointAtTheRenamedCopies) {
    Put(kFixtures + "/aiff/sox-mono-8k.aif", "A/one.aiff");
    Put(kFixtures + "/mp3/cbr128.mp3", "A/track");
    Spit(Src() + "/A/list.m3u", "#EXTM3U\none.aiff\ntrack\n");
    const auto out = SyncNow({Src()}, Dev());
    ASSERT_EQ(out.status, fileinfo::sync::SyncStatus::kOk) << out.error;
    EXPECT_EQ(Slurp(Dev() + "/A/list.m3u"), "#EXTM3U\none.aif\ntrack.mp3\n");
}
