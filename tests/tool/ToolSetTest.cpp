// fileinfo --set --writer library: tags written through the library into a
// copy that replaces the file, the original kept as NAME.orig.EXT, and the
// record printed as read back. Hosts that need exactly what the library
// writes get today's behaviour, pinned here.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <string>

#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "TestFiles.h"
#include "ToolRun.h"
#include "WavBuilder.h"

namespace fs = std::filesystem;

namespace {

std::string Fixture(const std::string& name) { return std::string(FILEINFO_FIXTURES_DIR) + "/mp3/" + name; }

// 24 CD-quality frames padded with zeros to 12288 bytes, without tags.
Bytes UntaggedMp3() { return PadTo(Mp3Frames(Mp3Header{}, 417, 24), 3 * 4096); }

// The JSON object of the read-back listing: the last line of the output
// (the library may print a warning line of its own before it).
nlohmann::json ReadBack(const ToolRun& run) {
    std::string out = run.out;
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return nlohmann::json::parse(out.substr(out.rfind('\n') == std::string::npos ? 0 : out.rfind('\n') + 1));
}

class ToolSet : public Tool {
protected:
    // Runs the tool with the library's writer, keeping its standard error.
    ToolRun Run(const std::string& arguments) {
        const bool edit = arguments.find("--set") != std::string::npos;
        return RunTool((edit ? "--writer library " : "") + arguments, dir_.file("stderr.txt"));
    }
    // An MP3 file without tags, song.mp3 in the test's folder.
    std::string WriteUntagged() { return dir_.write("song.mp3", UntaggedMp3()); }
    // A copy of an MP3 fixture in the test's folder.
    std::string CopyFixture(const std::string& name) {
        const std::string path = dir_.file(name);
        fs::copy_file(Fixture(name), path);
        return path;
    }
    // The files in the test's folder, sorted, its record of standard error aside.
    std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir_.path()))
            if (entry.path().filename() != "stderr.txt") names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    // Usage errors exit 2 before the file is read or written.
    void ExpectUsageError(const std::string& arguments, const std::string& message) {
        const std::string path = WriteUntagged();
        const ToolRun run = Run(arguments + " " + path);
        EXPECT_EQ(run.exitCode, 2) << arguments;
        EXPECT_NE(run.err.find(message), std::string::npos) << arguments << ": " << run.err;
        EXPECT_EQ(ReadAll(path), UntaggedMp3());
        EXPECT_FALSE(fs::exists(dir_.file("song.orig.mp3")));
    }
    TempDir dir_;
};

TEST_F(ToolSet, WritesIntoACopyOfATaggedMp3AndKeepsTheOriginalAsBackup) {
    const std::string path = CopyFixture("tagged-id3v2.mp3");
    const std::string backup = dir_.file("tagged-id3v2.orig.mp3");
    const ToolRun run = Run("--json --force --set title=New --set track=12 " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("fileinfo: backup of " + path + " kept as " + backup + "\n"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("fileinfo: 1 changed, 0 refused, 0 failed, 0 skipped\n"), std::string::npos) << run.err;
    EXPECT_EQ(ReadAll(backup), ReadAll(Fixture("tagged-id3v2.mp3")));

    // The tag written by id3v2 (body 1990 bytes): the title frame shrinks by
    // 7, the track frame becomes the byte 12, the genre frame "(17)" names no
    // genre and goes, an empty lyrics frame is appended (+11): the tag grows
    // by 4 and the file by 4 and one 1024-byte block.
    const nlohmann::json j = ReadBack(run);
    EXPECT_EQ(j["status"], 1);
    const nlohmann::json& r = j["record"];
    EXPECT_EQ(r["fileType"], "MP3");
    EXPECT_EQ(r["fileSize"], 26752 + 4 + 1024);
    EXPECT_EQ(ReadAll(path).size(), 26752u + 4 + 1024);
    EXPECT_EQ(r["title"], "New");
    EXPECT_EQ(r["artist"], "The Testers");
    EXPECT_EQ(r["album"], "Fixtures");
    // ID3v1 genre 40, the row the record held; no genre frame is left.
    EXPECT_EQ(r["genre"], "Alternative Rock");
    EXPECT_EQ(r["year"], "2009");  // the year frame; ID3v1 says "ade "
    // The record's "ade for tests" went into the comment frame, which reads
    // from its sixth character.
    EXPECT_EQ(r["comment"], "or tests");
    EXPECT_EQ(r["lyrics"], "");
    EXPECT_EQ(r["composer"], "");
    EXPECT_EQ(r["trackNumber"], 12);
}

TEST_F(ToolSet, NoBackupKeepsNoCopyAndListsTheFile) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--force --set title=New --set 'comment=Hello world' --no-backup " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_FALSE(fs::exists(dir_.file("song.orig.mp3")));
    EXPECT_EQ(run.err.find("backup"), std::string::npos) << run.err;
    // ID3v1 appended (128), a title frame of 14 bytes, one block more.
    EXPECT_EQ(ReadAll(path).size(), 12288u + 128 + 14 + 1024);
    EXPECT_NE(run.out.find(path + "\n  status: 1 (success)\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("  title: \"New\"\n"), std::string::npos);
    // The comment over the ID3v1 year: "Hell" and "o world".
    EXPECT_NE(run.out.find("  year: \"Hell\"\n"), std::string::npos);
    EXPECT_NE(run.out.find("  comment: \"o world\"\n"), std::string::npos);
    EXPECT_NE(run.out.find("  trackNumber: 0\n"), std::string::npos);
}

TEST_F(ToolSet, LongTextsAreCutTo127Characters) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--json --force --no-backup --set title=" + std::string(200, 'x') + " " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadBack(run)["record"]["title"], std::string(127, 'x'));
}

TEST_F(ToolSet, Utf8TextIsStoredAsLatin1) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--json --force --no-backup --set 'artist=Caf\xC3\xA9' " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadBack(run)["record"]["artist"], "Caf\xC3\xA9");
    // One byte 0xE9 in the ID3v1 artist field (offset 33).
    const Bytes file = ReadAll(path);
    EXPECT_EQ(file[file.size() - 128 + 36], 0xE9);
}

TEST_F(ToolSet, TextWithoutALatin1FormIsAUsageError) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--set 'title=\xE2\x82\xAC' " + path);  // the euro sign
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(ReadAll(path), UntaggedMp3());
}

TEST_F(ToolSet, FileThatDidNotLoadIsRefused) {
    // Sixteen bytes: every reader refuses them, yet the last one tried would
    // still write its tags.
    const std::string path = dir_.write("junk.mp3", Bytes(16, 'x'));
    const ToolRun run = Run("--set title=New " + path);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + path + ": the file did not load (status 6: cannot stat, or file too "
                           "short); the file is unchanged\n"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(ReadAll(path), Bytes(16, 'x'));
    EXPECT_EQ(run.out, "");
}

TEST_F(ToolSet, WavIsRefusedByNameWithoutACopy) {
    WavFields s;
    s.dataBytes = 4000;
    s.writeData = true;
    const Bytes wav = BuildWav(s);
    const std::string path = dir_.write("tone.wav", wav);
    const ToolRun run = Run("--set title=New " + path);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + path + ": fileinfo cannot write tags into WAV files; the file is unchanged\n"),
              std::string::npos)
        << run.err;
    EXPECT_EQ(ReadAll(path), wav);
    EXPECT_EQ(Names(), (std::vector<std::string>{"tone.wav"}));
}

TEST_F(ToolSet, AnOldBackupGetsTheNextName) {
    const std::string path = WriteUntagged();
    const std::string old = dir_.write("song.orig.mp3", Bytes{'o', 'l', 'd'});
    const ToolRun run = Run("--force --set title=New " + path);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadAll(old), (Bytes{'o', 'l', 'd'}));
    EXPECT_EQ(ReadAll(dir_.file("song.orig-2.mp3")), UntaggedMp3());
}

TEST_F(ToolSet, DryRunShowsTheDifferenceAndChangesNothing) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--dry-run --set title=New --set track=300 " + path);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    // ID3v1 (128) and a title frame (14) are added, one 1024-byte block is
    // kept twice and counts as more frames; the title was the file's name;
    // 300 keeps its low byte.
    EXPECT_EQ(run.out, path + ": would change\n"
                              "  trackNumber: \"0\" -> \"44\"\n"
                              "  fileSize: \"12288\" -> \"13454\"\n"
                              "  durationMs: \"757\" -> \"835\"\n"
                              "  title: \"song\" -> \"New\"\n"
                              "  frame TIT2 added: \"New\"\n"
                              "  track given as \"300\" reads back as \"44\" (a track is stored as one byte)\n"
                              "  more than the fields given changes: needs --force\n");
    EXPECT_NE(run.err.find("fileinfo: 1 would change, 0 refused, 0 failed, 0 skipped\n"), std::string::npos);
    EXPECT_EQ(Names(), (std::vector<std::string>{"song.mp3"}));
    EXPECT_EQ(ReadAll(path), UntaggedMp3());
}

TEST_F(ToolSet, AnEditBeyondTheFieldsGivenIsRefusedWithTheDifference) {
    const std::string path = CopyFixture("tagged-id3v2.mp3");
    const ToolRun run = Run("--set title=New " + path);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + path + ": the edit changes more than the fields given; --force writes it "
                           "anyway; the file is unchanged\n"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("  frame TCON dropped: \"(17)\"\n"), std::string::npos) << run.err;
    EXPECT_EQ(ReadAll(path), ReadAll(Fixture("tagged-id3v2.mp3")));
    EXPECT_FALSE(fs::exists(dir_.file("tagged-id3v2.orig.mp3")));
}

TEST_F(ToolSet, ReadOnlyFileIsRefusedWithTheSystemsReason) {
    const std::string path = WriteUntagged();
    fs::permissions(path, fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    const ToolRun run = Run("--force --set title=New " + path);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + path + ": the file is read-only: Permission denied; the file is "
                           "unchanged\n"),
              std::string::npos)
        << run.err;
    EXPECT_FALSE(fs::exists(dir_.file("song.orig.mp3")));
}

TEST_F(ToolSet, SeveralFilesAndFoldersAreEditedOneByOneWithASummary) {
    const std::string first = WriteUntagged();
    fs::create_directories(dir_.file("album/cd1"));
    const std::string second = dir_.write("album/cd1/b.mp3", UntaggedMp3());
    dir_.write("album/cover.jpg", Bytes{1, 2, 3});
    dir_.write("album/cd1/a.orig.mp3", UntaggedMp3());
    const std::string junk = dir_.write("album/junk.mp3", Bytes(16, 'x'));
    const ToolRun run = Run("--force --no-backup --set title=New " + first + " " + dir_.file("album"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.err.find("fileinfo: " + junk + ": the file did not load"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("fileinfo: 2 changed, 1 refused, 0 failed, 2 skipped\n  not edited: " + junk +
                           ": the file did not load (status 6: cannot stat, or file too short)\n"),
              std::string::npos)
        << run.err;
    EXPECT_NE(ReadAll(first), UntaggedMp3());
    EXPECT_NE(ReadAll(second), UntaggedMp3());
    EXPECT_EQ(ReadAll(dir_.file("album/cd1/a.orig.mp3")), UntaggedMp3());
}

TEST_F(ToolSet, RestorePutsTheOriginalBack) {
    const std::string path = CopyFixture("tagged-id3v2.mp3");
    ASSERT_EQ(Run("--force --set title=New " + path).exitCode, 0);
    const ToolRun run = Run("--restore " + dir_.file("tagged-id3v2.orig.mp3"));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadAll(path), ReadAll(Fixture("tagged-id3v2.mp3")));
}

TEST_F(ToolSet, LargestTrackComesBackThroughTheSignedTrackByte) {
    // 65535 keeps its low byte 255 in ID3v1, read as -1: 65535 in 16 bits.
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--json --force --no-backup --set track=65535 " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadBack(run)["record"]["trackNumber"], 65535);
}

TEST_F(ToolSet, TrackMayHaveLeadingZeros) {
    const std::string path = WriteUntagged();
    const ToolRun run = Run("--json --force --no-backup --set track=0000007 " + path);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadBack(run)["record"]["trackNumber"], 7);
}

TEST_F(ToolSet, UnknownFieldIsAUsageError) {
    ExpectUsageError("--set titel=New", "--set titel=New: expected FIELD=VALUE with FIELD one of title, artist, "
                                        "album, genre, year, comment, composer, lyrics, track");
}

TEST_F(ToolSet, AssignmentWithoutValueSignIsAUsageError) {
    ExpectUsageError("--set title", "expected FIELD=VALUE");
}

TEST_F(ToolSet, TrackThatIsNotANumberUpTo65535IsAUsageError) {
    for (const char* track : {"12a", "65536", "-1", "", " 7", "+7", "100000", "99999999999999999999999"}) {
        ExpectUsageError(std::string("--set 'track=") + track + "'", "the track is a decimal number from 0 to 65535");
    }
}

TEST_F(ToolSet, FieldGivenTwiceIsAUsageError) {
    ExpectUsageError("--set title=a --set title=b", "title is given more than once");
}

TEST_F(ToolSet, NoBackupWithoutSetIsAUsageError) { ExpectUsageError("--no-backup", "--no-backup requires --set"); }

TEST_F(ToolSet, DryRunWithoutSetIsAUsageError) { ExpectUsageError("--dry-run", "--dry-run requires --set"); }

TEST_F(ToolSet, RestoreTogetherWithSetIsAUsageError) { ExpectUsageError("--restore --set title=a", "excludes"); }

TEST_F(ToolSet, SetTogetherWithDeviceIsAUsageError) {
    ExpectUsageError("--device " + dir_.file("caps.plist") + " --set title=a", "excludes");
}

}  // namespace
