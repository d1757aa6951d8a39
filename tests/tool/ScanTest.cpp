// The collection scan: walk order, what is skipped and why, errors with the
// system's reason, and results in walk order whatever the number of workers.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "Scan.h"
#include "TestFiles.h"

namespace fs = std::filesystem;
using fileinfo::Outcome;
using fileinfo::Scan;
using fileinfo::ScanItem;
using fileinfo::ScanOptions;
using fileinfo::SkipReason;

namespace {

std::string Fixture(const std::string& relative) { return std::string(FILEINFO_FIXTURES_DIR) + "/" + relative; }

std::vector<ScanItem> ScanAll(const std::vector<std::string>& roots, ScanOptions options = {}) {
    Scan scan(roots, options);
    std::vector<ScanItem> items;
    ScanItem item;
    while (scan.Next(item)) items.push_back(item);
    EXPECT_EQ(scan.Done(), items.size());
    EXPECT_EQ(scan.Found(), items.size());
    return items;
}

std::vector<std::string> Paths(const std::vector<ScanItem>& items) {
    std::vector<std::string> paths;
    for (const ScanItem& item : items) paths.push_back(item.path);
    return paths;
}

// A small tree: files in sorted order, a subfolder walked in its place.
class ScanTree : public testing::Test {
protected:
    void SetUp() override {
        root_ = dir_.path().string();
        Copy("mp3/cbr128.mp3", "b.mp3");
        Copy("aac/adts-44k-stereo.aac", "a.aac");
        fs::create_directory(dir_.path() / "m");
        Copy("mp4/alac.m4a", "m/z.m4a");
        Copy("aiff/sox-mono-8k.aif", "m/y.aif");
        Copy("aiff/sox-mono-8k.aif", "c.aiff");
        dir_.write("README", Bytes{'h', 'i'});
        Copy("mp3/layer2.mp3", ".hidden.mp3");
    }
    void Copy(const std::string& fixture, const std::string& name) { fs::copy_file(Fixture(fixture), dir_.path() / name); }
    std::string At(const std::string& name) const { return root_ + "/" + name; }

    TempDir dir_;
    std::string root_;
};

TEST_F(ScanTree, WalksEachFolderInNameOrderWithSubfoldersInPlace) {
    const std::vector<ScanItem> items = ScanAll({root_});
    EXPECT_EQ(Paths(items), (std::vector<std::string>{At(".hidden.mp3"), At("README"), At("a.aac"), At("b.mp3"),
                                                      At("c.aiff"), At("m/y.aif"), At("m/z.m4a")}));
    EXPECT_EQ(items[0].skip, SkipReason::kHidden);
    // Other names of the formats, and names without an extension, are read
    // by their bytes; the library's record is what it gives for the name.
    for (size_t k : {1u, 4u}) {
        EXPECT_EQ(items[k].outcome, Outcome::kLoaded) << items[k].path;
        EXPECT_FALSE(items[k].LoadFailed()) << items[k].path;
    }
    EXPECT_EQ(items[4].status, MFI_NOT_THIS_FORMAT);
    for (size_t k : {2u, 3u, 5u, 6u}) {
        EXPECT_EQ(items[k].outcome, Outcome::kLoaded) << items[k].path;
        EXPECT_EQ(items[k].status, 1) << items[k].path;
        EXPECT_TRUE(items[k].Identified()) << items[k].path << " " << items[k].record.fileType;
        EXPECT_FALSE(items[k].named);
    }
    EXPECT_STREQ(items[3].record.fileType, "MP3");
    EXPECT_STREQ(items[6].record.fileType, "AppleLossless");
    EXPECT_STREQ(items[2].record.fileType, "");  // ADTS streams have no file type
    EXPECT_TRUE(items[2].isAudio);
}

TEST_F(ScanTree, BytesNoReaderRecognisesLoadButAreNotIdentified) {
    dir_.write("noise.mp3", Bytes(5000, 0x5A));
    const std::vector<ScanItem> items = ScanAll({At("noise.mp3")});
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].status, 1);
    EXPECT_STREQ(items[0].record.fileType, "");
    EXPECT_FALSE(items[0].Identified());
}

TEST_F(ScanTree, TypeLabelNamesAdtsStreamsAacAndLeavesUnidentifiedFilesWithout) {
    dir_.write("noise.mp3", Bytes(5000, 0x5A));
    const std::vector<ScanItem> items = ScanAll({At("a.aac"), At("b.mp3"), At("m/z.m4a"), At("noise.mp3")});
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(TypeLabel(items[0]), "AAC");
    EXPECT_EQ(TypeLabel(items[1]), "MP3");
    EXPECT_EQ(TypeLabel(items[2]), "AppleLossless");
    EXPECT_EQ(TypeLabel(items[3]), "");
}

TEST_F(ScanTree, HiddenFilesAreLoadedWhenAskedFor) {
    ScanOptions options;
    options.hidden = true;
    const std::vector<ScanItem> items = ScanAll({root_}, options);
    EXPECT_EQ(items[0].outcome, Outcome::kLoaded);
    EXPECT_STREQ(items[0].record.fileType, "MP3");
}

TEST_F(ScanTree, ExtensionsLimitTheWalkButNotNamedFiles) {
    ScanOptions options;
    options.extensions = {"mp3", "m4a"};
    const std::vector<ScanItem> items = ScanAll({root_, At("a.aac")}, options);
    ASSERT_EQ(items.size(), 8u);
    EXPECT_EQ(items[2].skip, SkipReason::kNotSelected);  // a.aac in the walk
    EXPECT_EQ(items[3].outcome, Outcome::kLoaded);       // b.mp3
    EXPECT_EQ(items[5].skip, SkipReason::kNotSelected);  // m/y.aif
    EXPECT_EQ(items[6].outcome, Outcome::kLoaded);       // m/z.m4a
    EXPECT_EQ(items[7].outcome, Outcome::kLoaded);       // a.aac, named
    EXPECT_TRUE(items[7].named);
}

TEST_F(ScanTree, EveryWorkerCountGivesTheSequentialResultsInOrder) {
    std::vector<std::string> roots;
    for (int k = 0; k < 50; ++k) roots.push_back(root_);
    ScanOptions one;
    one.jobs = 1;
    const std::vector<ScanItem> sequential = ScanAll(roots, one);
    ASSERT_EQ(sequential.size(), 350u);
    for (unsigned jobs : {2u, 3u, 8u}) {
        ScanOptions many;
        many.jobs = jobs;
        const std::vector<ScanItem> parallel = ScanAll(roots, many);
        ASSERT_EQ(parallel.size(), sequential.size());
        for (size_t k = 0; k < parallel.size(); ++k) {
            EXPECT_EQ(parallel[k].path, sequential[k].path);
            EXPECT_EQ(parallel[k].status, sequential[k].status);
            EXPECT_EQ(memcmp(&parallel[k].record, &sequential[k].record, sizeof(MediaFileInfo_st)), 0)
                << jobs << " " << parallel[k].path;
        }
    }
}

TEST_F(ScanTree, SpecialFilesAreSkippedWithoutOpeningThem) {
    const std::string fifo = At("m/pipe.mp3");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // Named, and found in the walk: neither blocks.
    const std::vector<ScanItem> items = ScanAll({fifo, root_ + "/m"});
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].skip, SkipReason::kSpecialFile);
    EXPECT_EQ(items[0].reason, "FIFO");
    EXPECT_TRUE(items[0].named);
    EXPECT_EQ(items[1].path, fifo);
    EXPECT_EQ(items[1].skip, SkipReason::kSpecialFile);
    EXPECT_FALSE(items[1].named);
}

TEST_F(ScanTree, DevicesNamedOrLinkedAreSkipped) {
    ASSERT_EQ(symlink("/dev/zero", At("zero.mp3").c_str()), 0);
    const std::vector<ScanItem> items = ScanAll({At("zero.mp3"), "/dev/null"});
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].reason, "character device");
    EXPECT_EQ(items[1].reason, "character device");
}

TEST_F(ScanTree, MissingPathsAndLinkLoopsCarryTheSystemsReason) {
    ASSERT_EQ(symlink("loop.mp3", At("loop.mp3").c_str()), 0);
    const std::vector<ScanItem> items = ScanAll({At("missing.mp3"), At("loop.mp3"), At("b.mp3/x.mp3")});
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].outcome, Outcome::kError);
    EXPECT_EQ(items[0].error, ENOENT);
    EXPECT_EQ(items[0].reason, "No such file or directory");
    EXPECT_EQ(items[1].error, ELOOP);
    EXPECT_EQ(items[1].reason, "Too many levels of symbolic links");
    EXPECT_EQ(items[2].error, ENOTDIR);
}

TEST_F(ScanTree, LinkedFoldersAreNotWalked) {
    ASSERT_EQ(symlink(root_.c_str(), At("m/up").c_str()), 0);
    const std::vector<ScanItem> items = ScanAll({root_ + "/m"});
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].path, At("m/up"));
    EXPECT_EQ(items[0].skip, SkipReason::kLinkedFolder);
}

TEST_F(ScanTree, UnreadableFolderIsAnErrorWithItsReason) {
    if (geteuid() == 0) GTEST_SKIP() << "root reads every folder";
    ASSERT_EQ(chmod((root_ + "/m").c_str(), 0), 0);
    const std::vector<ScanItem> items = ScanAll({root_ + "/m"});
    chmod((root_ + "/m").c_str(), 0755);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].error, EACCES);
    EXPECT_EQ(items[0].reason, "Permission denied");
}

TEST_F(ScanTree, CancelEndsTheScanEarly) {
    std::vector<std::string> roots(2000, root_);
    Scan scan(roots, ScanOptions{});
    ScanItem item;
    ASSERT_TRUE(scan.Next(item));
    scan.Cancel();
    EXPECT_FALSE(scan.Next(item));
    EXPECT_EQ(scan.Done(), 1u);
}

TEST(ScanAdvice, NamesTheExtensionThatIsRead) {
    EXPECT_EQ(fileinfo::ExtensionAdvice("x/notes.TXT"), "extension .txt is not read");
    EXPECT_EQ(fileinfo::ExtensionAdvice("x/cover.jpg"), "extension .jpg is not read");
}

}  // namespace
