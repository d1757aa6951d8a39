// The safe tag edit called directly: its checks, its difference, its names
// and its backups.
#include <gtest/gtest.h>

#include <sys/file.h>
#include <sys/stat.h>

#include "Child.h"
#include "Mp3Builder.h"
#include "SafeEdit.h"
#include "TestFiles.h"

namespace {

using fileinfo::EditStatus;

const std::string kMp3 = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-id3v2.mp3";
const std::string kM4a = std::string(FILEINFO_FIXTURES_DIR) + "/mp4/aac-tagged.m4a";

// The library's writer: these tests pin what hosts of the library get.
fileinfo::TagEdits Edits(const std::vector<std::string>& assignments) {
    fileinfo::TagEdits edits(fileinfo::EditWriter::Library);
    std::string error;
    EXPECT_TRUE(fileinfo::ParseTagEdits(assignments, edits, error)) << error;
    return edits;
}

fileinfo::EditOptions Forced() {
    fileinfo::EditOptions options;
    options.force = true;
    return options;
}

class SafeEdit : public testing::Test {
protected:
    std::string Copy(const std::string& from, const std::string& name) {
        const std::string path = dir_.file(name);
        WriteFile(path, ReadFile(from));
        return path;
    }
    TempDir dir_;
};

TEST(TagEdits, ParsesFieldsAndRejectsMistakes) {
    fileinfo::TagEdits edits(fileinfo::EditWriter::Library);
    std::string error;
    EXPECT_TRUE(edits.Add("title=Caf\xC3\xA9", error));
    EXPECT_EQ(edits.edits()[0].text, "Caf\xE9");
    EXPECT_TRUE(edits.Add("track=00300", error));
    EXPECT_EQ(edits.edits()[1].track, 300);
    EXPECT_FALSE(fileinfo::TagEdits(fileinfo::EditWriter::Library).Add("track=65536", error));
    EXPECT_EQ(error, "--set track=65536: the track is a decimal number from 0 to 65535");
    EXPECT_FALSE(edits.Add("title=again", error));
    EXPECT_EQ(error, "--set: title is given more than once");
    EXPECT_FALSE(edits.Add("titel=x", error));
    EXPECT_EQ(error,
              "--set titel=x: expected FIELD=VALUE with FIELD one of title, artist, album, genre, year, comment, "
              "composer, lyrics, track");
    EXPECT_FALSE(edits.Add("artist=\xE2\x82\xAC", error));
    EXPECT_TRUE(edits.Add("album=" + std::string(300, 'a'), error));
    EXPECT_EQ(edits.edits()[2].text, std::string(127, 'a'));
}

TEST(EditNames, BackupsKeepTheExtensionAndNameTheirOriginal) {
    EXPECT_EQ(fileinfo::BackupName("/m/song.mp3", 1), "/m/song.orig.mp3");
    EXPECT_EQ(fileinfo::BackupName("/m/song.mp3", 2), "/m/song.orig-2.mp3");
    EXPECT_EQ(fileinfo::BackupName("song", 1), "song.orig");
    EXPECT_EQ(fileinfo::OriginalOfBackup("/m/song.orig.mp3"), "/m/song.mp3");
    EXPECT_EQ(fileinfo::OriginalOfBackup("/m/song.orig-12.mp3"), "/m/song.mp3");
    EXPECT_EQ(fileinfo::OriginalOfBackup("/m/song.orig-0.mp3"), "");
    EXPECT_EQ(fileinfo::OriginalOfBackup("/m/song.mp3"), "");
    EXPECT_EQ(fileinfo::OriginalOfBackup("/m/.orig.mp3"), "");
}

TEST(EditNames, TemporaryFilesHaveOneRecognisableForm) {
    EXPECT_TRUE(fileinfo::IsEditTempName(".song.mp3.fileinfo-Ab12xZ"));
    EXPECT_FALSE(fileinfo::IsEditTempName("song.mp3.fileinfo-Ab12xZ"));
    EXPECT_FALSE(fileinfo::IsEditTempName(".song.mp3.fileinfo-Ab12x"));
    EXPECT_FALSE(fileinfo::IsEditTempName(".song.mp3.fileinfo-Ab12x!"));
    EXPECT_FALSE(fileinfo::IsEditTempName(".fileinfo-Ab12xZ"));
}

TEST_F(SafeEdit, StaleTemporaryFilesGoAndHeldOnesStay) {
    const std::string stale = dir_.file(".song.mp3.fileinfo-aaaaaa");
    const std::string held = dir_.file(".song.mp3.fileinfo-bbbbbb");
    const std::string other = dir_.file("song.mp3.fileinfo-cccccc");
    for (const std::string& p : {stale, held, other}) {
        WriteFile(p, "x");
        MarkAsEditCopy(p);
    }
    const int fd = open(held.c_str(), O_RDONLY);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    // The lock is taken from a second descriptor, as another process would.
    EXPECT_EQ(fileinfo::RemoveStaleTempFiles(dir_.path().string()), 1);
    close(fd);
    EXPECT_FALSE(std::filesystem::exists(stale));
    EXPECT_TRUE(std::filesystem::exists(held));
    EXPECT_TRUE(std::filesystem::exists(other));
}

TEST_F(SafeEdit, DryRunShowsEveryChangeAndTouchesNothing) {
    const std::string path = Copy(kMp3, "song.mp3");
    fileinfo::EditOptions options;
    options.dryRun = true;
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New", "track=300", "genre=Nope"}), options);
    ASSERT_EQ(r.status, EditStatus::WouldChange) << r.reason;
    EXPECT_EQ(ReadFile(path), ReadFile(kMp3));
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.mp3"});
    EXPECT_EQ(fileinfo::DescribeDifference(r.difference),
              "  trackNumber: \"7\" -> \"44\"\n"
              "  fileSize: \"26752\" -> \"27780\"\n"
              "  durationMs: \"2052\" -> \"2160\"\n"
              "  title: \"Chord in A\" -> \"New\"\n"
              "  genre: \"Alternative Rock\" -> \"\"\n"
              "  comment: \"ade for tests\" -> \"or tests\"\n"
              "  frame TIT2 changed: \"Chord in A\" -> \"New\"\n"
              "  frame TRCK changed: \"7\" -> \",\"\n"
              "  frame TCON dropped: \"(17)\"\n"
              "  frame COMM changed: \"ade for tests\" -> \"or tests\"\n"
              "  frame USLT added: \"\"\n"
              "  track given as \"300\" reads back as \"44\" (a track is stored as one byte)\n"
              "  genre given as \"Nope\" reads back as \"\" (not a genre of the ID3v1 table; stored as no genre)\n");
    EXPECT_TRUE(r.difference.GoesBeyond(Edits({"title=New", "track=300", "genre=Nope"})));
}

TEST_F(SafeEdit, AYearTheId3v1CommentCoversIsNamed) {
    // 24 CD-quality frames without tags: the year goes only into ID3v1,
    // where the comment is written over it.
    const Bytes frames = PadTo(Mp3Frames(Mp3Header{}, 417, 24), 3 * 4096);
    const std::string path = dir_.file("song.mp3");
    WriteFile(path, std::string(frames.begin(), frames.end()));
    fileinfo::EditOptions options;
    options.dryRun = true;
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"year=2020", "comment=Hello"}), options);
    ASSERT_EQ(r.status, EditStatus::WouldChange) << r.reason;
    ASSERT_EQ(r.difference.mismatches.size(), 2u);
    EXPECT_EQ(r.difference.mismatches[0].field, fileinfo::TagField::Year);
    EXPECT_EQ(r.difference.mismatches[0].readBack, "Hell");
    EXPECT_EQ(r.difference.mismatches[0].why, "the ID3v1 comment is written over the ID3v1 year");
    EXPECT_EQ(r.difference.mismatches[1].field, fileinfo::TagField::Comment);
    EXPECT_EQ(r.difference.mismatches[1].readBack, "o");
}

TEST_F(SafeEdit, AnEditBeyondTheFieldsGivenIsRefusedWithoutForce) {
    const std::string path = Copy(kMp3, "song.mp3");
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New"}), fileinfo::EditOptions());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "the edit changes more than the fields given; --force writes it anyway");
    EXPECT_FALSE(r.difference.empty());
    EXPECT_EQ(ReadFile(path), ReadFile(kMp3));
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.mp3"});
}

TEST_F(SafeEdit, ForcedEditRenamesTheNewFileInAndKeepsTheOriginalAsBackup) {
    const std::string path = Copy(kMp3, "song.mp3");
    chmod(path.c_str(), 0640);
    struct stat before;
    stat(path.c_str(), &before);
    WriteFile(dir_.file("song.orig.mp3"), "an older backup");
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New"}), Forced());
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason;
    EXPECT_EQ(r.backupPath, dir_.file("song.orig-2.mp3"));
    EXPECT_EQ(ReadFile(r.backupPath), ReadFile(kMp3));
    EXPECT_EQ(ReadFile(dir_.file("song.orig.mp3")), "an older backup");
    struct stat backup, now;
    stat(r.backupPath.c_str(), &backup);
    stat(path.c_str(), &now);
    EXPECT_EQ(backup.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(backup.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    EXPECT_EQ(now.st_mode & 07777, 0640u);
    EXPECT_EQ(backup.st_nlink, 1u);
    EXPECT_EQ(ReadFile(path).size(), 27780u);
}

TEST_F(SafeEdit, RestorePutsTheBackupBack) {
    const std::string path = Copy(kMp3, "song.mp3");
    const fileinfo::EditResult edit = fileinfo::EditTags(path, Edits({"title=New"}), Forced());
    ASSERT_EQ(edit.status, EditStatus::Changed);
    const fileinfo::EditResult r = fileinfo::RestoreBackup(edit.backupPath);
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason;
    EXPECT_EQ(ReadFile(path), ReadFile(kMp3));
    EXPECT_EQ(ReadFile(edit.backupPath), ReadFile(kMp3));
    EXPECT_EQ(fileinfo::RestoreBackup(path).reason, "not the name of a backup (NAME.orig.EXT or NAME.orig-N.EXT)");
}

TEST_F(SafeEdit, SymbolicLinksAreFollowedAndKept) {
    const std::string path = Copy(kMp3, "song.mp3");
    const std::string link = dir_.file("link.mp3");
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    const fileinfo::EditResult r = fileinfo::EditTags(link, Edits({"title=New"}), Forced());
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason;
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadFile(path).size(), 27780u);
    EXPECT_EQ(r.backupPath, dir_.file("song.orig.mp3"));
}

TEST_F(SafeEdit, HardLinkedFilesAreRefused) {
    const std::string path = Copy(kMp3, "song.mp3");
    ASSERT_EQ(link(path.c_str(), dir_.file("other.mp3").c_str()), 0);
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New"}), Forced());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "the file has 2 hard links, and a new file in its place would part them");
    EXPECT_EQ(ReadFile(path), ReadFile(kMp3));
}

TEST_F(SafeEdit, ReadOnlyFilesAreRefusedBeforeAnythingIsCopied) {
    const std::string path = Copy(kMp3, "song.mp3");
    chmod(path.c_str(), 0444);
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New"}), Forced());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "the file is read-only");
    EXPECT_EQ(r.error, EACCES);
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.mp3"});
}

TEST_F(SafeEdit, Mp4FilesAreRefusedByName) {
    const std::string path = Copy(kM4a, "song.m4a");
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New"}), Forced());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "fileinfo cannot write tags into MP4 files");
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.m4a"});
}

TEST_F(SafeEdit, MissingFilesFailWithTheSystemsReason) {
    const fileinfo::EditResult r = fileinfo::EditTags(dir_.file("none.mp3"), Edits({"title=New"}), Forced());
    EXPECT_EQ(r.status, EditStatus::Failed);
    EXPECT_EQ(r.error, ENOENT);
}

}  // namespace
