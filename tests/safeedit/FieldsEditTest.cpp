// The safe edit with the fields writer, as hosts and the tool call it: the
// reading gives back exactly the values asked, no other tag or stream field
// of the reading moves, the dry run lists the tags that change as read back,
// and an edit that would not read back as asked is refused with the file
// unchanged. No --force is needed for an ordinary edit.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdio>

#include "Child.h"
#include "EditChecks.h"
#include "SafeEdit.h"
#include "TestFiles.h"
#include "media/Reading.h"

namespace {

using fileinfo::EditStatus;

const std::string kFixtures = FILEINFO_FIXTURES_DIR;
const std::string kExamples = FILEINFO_EXAMPLES_DIR;

const char* const kTagged[] = {
    "mp3/tagged-id3v2.mp3", "mp3/tagged-eyed3.mp3", "mp3/mono-ffmpeg.mp3", "examples/chord-vbr.mp3",
    "aac/adts-44k-tagged.aac", "mp4/aac-tagged.m4a", "mp4/alac.m4a", "examples/tone-tagged.m4a",
    // Tags in NAME, AUTH and ANNO chunks only.
    "aiff/ffmpeg-tagged-11k.aif", "examples/tone-tagged.aif",
};

std::string PathOf(const std::string& p) {
    return p.rfind("examples/", 0) == 0 ? kExamples + p.substr(8) : kFixtures + "/" + p;
}

const std::vector<std::string> kAssignments = {
    "title=New Title", "artist=New Artist", "album=New Album", "genre=Jazz",   "year=2021",
    "comment=New note", "composer=New Composer", "lyrics=New words", "track=3/12",
};

class FieldsEdit : public testing::Test {
protected:
    std::string Copy(const std::string& from, const std::string& name) {
        const std::string path = dir_.file(name);
        WriteFile(path, ReadFile(from));
        return path;
    }
    void ExpectReadsBack(const std::string& fixture, const std::vector<std::string>& assignments) {
        const std::string original = PathOf(fixture);
        const std::string path = Copy(original, original.substr(original.rfind('/') + 1));
        const std::string context = fixture + " " + assignments.front() + (assignments.size() > 1 ? " ..." : "");
        const fileinfo::media::Reading before = ReadingOf(path);
        fileinfo::EditOptions options;
        options.backup = false;
        const fileinfo::EditResult r = fileinfo::EditTags(path, Edits(assignments), options);
        ASSERT_EQ(r.status, EditStatus::Changed) << context << ": " << r.reason << "\n"
                                                 << fileinfo::DescribeDifference(r.difference);
        const fileinfo::media::Reading after = ReadingOf(path);
        fileinfo::media::Tags expected = before.tags;
        for (const std::string& a : assignments) Apply(expected, a);
        ExpectSameTags(after.tags, expected, context);
        ExpectSameStreams(after, before, context);
        EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{path.substr(path.rfind('/') + 1)}) << context;
        unlink(path.c_str());
    }
    TempDir dir_;
};

TEST_F(FieldsEdit, EveryTaggedFixtureReadsBackEachFieldAsAskedAndNothingElseMoves) {
    for (const char* fixture : kTagged)
        for (const std::string& a : kAssignments) ExpectReadsBack(fixture, {a});
}

TEST_F(FieldsEdit, EveryTaggedFixtureReadsBackAllFieldsAtOnce) {
    for (const char* fixture : kTagged) ExpectReadsBack(fixture, kAssignments);
}

TEST_F(FieldsEdit, UnicodeTitlesReadBackInId3v23Id3v24AndMp4) {
    for (const char* fixture : {"mp3/tagged-id3v2.mp3", "mp3/mono-ffmpeg.mp3", "mp4/aac-tagged.m4a"}) {
        for (const char* title : {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\xAD\x8C",
                                  "Tone \xF0\x9F\x8E\xB5 \xF0\x9F\x98\x80", "Cafe\xCC\x81 n\xCC\x83"})
            ExpectReadsBack(fixture, {std::string("title=") + title});
    }
}

TEST_F(FieldsEdit, TheDryRunListsTheTagsThatChangeAsReadBackAndTouchesNothing) {
    const std::string path = Copy(kFixtures + "/mp3/tagged-id3v2.mp3", "song.mp3");
    fileinfo::EditOptions options;
    options.dryRun = true;
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=New", "track=3/12"}), options);
    ASSERT_EQ(r.status, EditStatus::WouldChange) << r.reason;
    EXPECT_EQ(fileinfo::DescribeDifference(r.difference),
              "  title: \"Chord in A\" -> \"New\"\n"
              "  track: \"7\" -> \"3/12\"\n");
    EXPECT_FALSE(r.difference.GoesBeyond(Edits({"title=New", "track=3/12"})));
    EXPECT_TRUE(ReadFile(path) == ReadFile(kFixtures + "/mp3/tagged-id3v2.mp3"));
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.mp3"});
}

TEST_F(FieldsEdit, AnOrdinaryEditNeedsNoForceAndKeepsABackup) {
    const std::string path = Copy(kFixtures + "/mp3/cbr128.mp3", "song.mp3");
    const fileinfo::EditResult r =
        fileinfo::EditTags(path, Edits({"title=First", "artist=\xC3\x89milie"}), fileinfo::EditOptions());
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(r.backupPath, dir_.file("song.orig.mp3"));
    EXPECT_EQ(ReadFile(r.backupPath), ReadFile(kFixtures + "/mp3/cbr128.mp3"));
    EXPECT_EQ(ReadingOf(path).tags.title, "First");
    EXPECT_EQ(ReadingOf(path).tags.artist, "\xC3\x89milie");
}

TEST_F(FieldsEdit, AValueThatWouldNotReadBackAsGivenIsRefusedAndTheFileUnchanged) {
    // An ID3v2.3 tag keeps a year of four digits (TYER); the rest of a date
    // goes elsewhere.
    const std::string path = Copy(kFixtures + "/mp3/tagged-id3v2.mp3", "song.mp3");
    const fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"year=2021-05-01"}), fileinfo::EditOptions());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "the edit would change more than the fields given, or not read back as given");
    ASSERT_EQ(r.difference.mismatches.size(), 1u) << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(r.difference.mismatches[0].given, "2021-05-01");
    EXPECT_TRUE(ReadFile(path) == ReadFile(kFixtures + "/mp3/tagged-id3v2.mp3"));
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"song.mp3"});
}

TEST_F(FieldsEdit, WavAndAiffWithoutTagsAreRefusedByName) {
    const std::string wav = Copy(kExamples + "/tone-mono.wav", "tone.wav");
    const fileinfo::EditResult r = fileinfo::EditTags(wav, Edits({"title=New"}), fileinfo::EditOptions());
    EXPECT_EQ(r.status, EditStatus::Refused);
    EXPECT_EQ(r.reason, "fileinfo writes tags into WAV files only where they hold tags already, and this one holds none");
    EXPECT_EQ(NamesIn(dir_.path().string()), std::vector<std::string>{"tone.wav"});
}

TEST_F(FieldsEdit, TheToolEditsWithoutForceAndPrintsTheDifferenceOfADryRun) {
    const std::string path = Copy(kFixtures + "/mp4/aac-tagged.m4a", "song.m4a");
    const ToolResult dry = RunToolIn(dir_.path().string(), {"--set", "title=\xE6\x97\xA5\xE6\x9C\xAC", "--dry-run", path});
    EXPECT_EQ(dry.exitCode, 0) << dry.err;
    EXPECT_EQ(dry.out, path + ": would change\n  title: \"Test Tone\" -> \"\xE6\x97\xA5\xE6\x9C\xAC\"\n");
    const ToolResult run = RunToolIn(dir_.path().string(), {"--set", "title=\xE6\x97\xA5\xE6\x9C\xAC", "--no-backup", path});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadingOf(path).tags.title, "\xE6\x97\xA5\xE6\x9C\xAC");
}

// An example rewritten by ffmpeg (the samples copied) with a title: a
// LIST/INFO chunk in a WAV file, an ID3 chunk in an AIFF file.
std::string Tagged(const TempDir& dir, const std::string& from, const std::string& name) {
    const std::string path = dir.file("made-" + name);
    const std::string command = "ffmpeg -v error -y -i '" + from + "' -c copy -write_id3v2 1 -metadata title=Old '" +
                                path + "'";
    EXPECT_EQ(system(command.c_str()), 0);
    return path;
}

TEST_F(FieldsEdit, WavInfoChunksTakeLatin1TextsAndRefuseOthers) {
    TempDir made;
    const std::string original = Tagged(made, kExamples + "/tone-mono.wav", "tone.wav");
    ASSERT_EQ(ReadingOf(original).tags.title, "Old");
    const std::string path = Copy(original, "tone.wav");
    fileinfo::EditOptions options;
    options.backup = false;
    fileinfo::EditResult r = fileinfo::EditTags(path, Edits({"title=Caf\xC3\xA9"}), options);
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(ReadingOf(path).tags.title, "Caf\xC3\xA9");
    const nlohmann::json c = CompareEdit(original, path);
    EXPECT_TRUE(c["same_audio"].get<bool>());
    EXPECT_TRUE(c["same_samples"].get<bool>());
    // INFO texts are 8-bit: a Japanese title cannot be written there, and
    // the edit that would not read back is refused.
    const std::string before = ReadFile(path);
    r = fileinfo::EditTags(path, Edits({"title=\xE6\x97\xA5\xE6\x9C\xAC"}), options);
    EXPECT_EQ(r.status, EditStatus::Refused);
    ASSERT_EQ(r.difference.mismatches.size(), 1u);
    EXPECT_EQ(r.difference.mismatches[0].readBack, "Caf\xC3\xA9");
    EXPECT_TRUE(ReadFile(path) == before);
}

TEST_F(FieldsEdit, AiffId3ChunksTakeUnicodeTextsAndKeepTheSamples) {
    TempDir made;
    const std::string original = Tagged(made, kFixtures + "/aiff/sox-mono-8k.aif", "tone.aif");
    ASSERT_EQ(ReadingOf(original).tags.title, "Old");
    const std::string path = Copy(original, "tone.aif");
    fileinfo::EditOptions options;
    options.backup = false;
    const fileinfo::EditResult r =
        fileinfo::EditTags(path, Edits({"title=\xE6\x97\xA5\xE6\x9C\xAC", "track=2/9"}), options);
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(ReadingOf(path).tags.title, "\xE6\x97\xA5\xE6\x9C\xAC");
    const nlohmann::json c = CompareEdit(original, path);
    // ffmpeg wrote the title into NAME too, which follows.
    EXPECT_EQ(c["changed_keys"], nlohmann::json({"NAME", "TIT2", "TRCK"}));
    EXPECT_TRUE(c["same_audio"].get<bool>());
    EXPECT_TRUE(c["same_samples"].get<bool>());
}

}  // namespace
