// AIFF tags kept in the NAME, AUTH and ANNO text chunks: the fields writer
// puts the title, artist and comment there (and every field into an ID3
// chunk when the file has one or a field needs one). The reading gives
// back the values asked, no other tag or chunk moves, the SSND chunk keeps
// its bytes, ffmpeg decodes the same samples, and ffprobe (whose AIFF
// reader takes the text chunks) reads the new texts. Layouts the writer
// cannot follow are refused with the file unchanged.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>
#include <set>

#include "AiffBuilder.h"
#include "AiffTextChunks.h"
#include "AudioSpans.h"
#include "Child.h"
#include "EditChecks.h"
#include "SafeEdit.h"
#include "TagWriter.h"
#include "TestFiles.h"
#include "media/Reading.h"

namespace {

using fileinfo::EditStatus;
using fileinfo::TagFormat;
using nlohmann::json;

const std::string kFixtures = FILEINFO_FIXTURES_DIR;
const std::string kExamples = FILEINFO_EXAMPLES_DIR;

// Both files hold NAME, AUTH and ANNO before COMM and SSND, no ID3 chunk.
const std::string kTextFixtures[] = {kFixtures + "/aiff/ffmpeg-tagged-11k.aif", kExamples + "/tone-tagged.aif"};

const std::vector<std::string> kAssignments = {
    "title=New Title", "artist=New Artist", "album=New Album",    "genre=Jazz",  "year=2021",
    "comment=New note", "composer=New Composer", "lyrics=New words", "track=3/12",
};

// The keys compare_edit.py may report changed for a field: its text chunk
// and its ID3v2 frame.
const std::map<std::string, std::set<std::string>> kKeysOf = {
    {"title", {"NAME", "TIT2"}}, {"artist", {"AUTH", "TPE1"}}, {"comment", {"ANNO", "COMM::eng"}},
    {"album", {"TALB"}},         {"genre", {"TCON"}},          {"year", {"TDRC"}},
    {"composer", {"TCOM"}},      {"lyrics", {"USLT::eng"}},    {"track", {"TRCK"}},
};

std::string AsString(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// ffprobe's tags of the file: NAME is "title", AUTH "author", ANNO
// "comment"; an ID3 chunk's frames by their usual names.
json Probe(const std::string& path) {
    const json j = json::parse(
        Output("ffprobe -v error -show_entries format_tags -of json '" + path + "'"), nullptr, false);
    return j.is_object() && j.contains("format") && j["format"].contains("tags") ? j["format"]["tags"] : json::object();
}

std::string Copy(const TempDir& dir, const std::string& from, const std::string& name) {
    const std::string path = dir.file(name);
    WriteFile(path, ReadFile(from));
    return path;
}

fileinfo::EditResult Edit(const std::string& path, const std::vector<std::string>& assignments, bool dryRun = false) {
    fileinfo::EditOptions options;
    options.backup = false;
    options.dryRun = dryRun;
    return fileinfo::EditTags(path, Edits(assignments), options);
}

// The text-chunk writer alone, on a file open for reading and writing.
fileinfo::TagWriteResult WriteTexts(const std::string& path, const std::vector<std::string>& assignments,
                                    bool addMissing) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const fileinfo::TagWriteResult result = fileinfo::WriteAiffTextChunks(fd, Edits(assignments), addMissing);
    close(fd);
    return result;
}

// An AIFF-C file with texts, as ffmpeg writes one: the float fixture's
// samples copied, NAME, AUTH and ANNO added.
std::string AifcWithTexts(const TempDir& dir) {
    const std::string path = dir.file("made.aifc");
    const std::string command = "ffmpeg -v error -y -i '" + kFixtures +
                                "/aiff/ffmpeg-float-16k.aifc' -c copy -metadata title=Float -metadata "
                                "author=Maker -metadata comment='Made here' '" +
                                path + "'";
    EXPECT_EQ(system(command.c_str()), 0);
    return path;
}

// The edit, and every check of it: read back as asked, nothing else moved.
void ExpectOnlyTheseFields(const std::string& original, const std::vector<std::string>& assignments) {
    TempDir dir;
    const std::string path = Copy(dir, original, "tone.aif");
    const std::string context = original + " " + json(assignments).dump();
    const fileinfo::media::Reading before = ReadingOf(path);
    const fileinfo::EditResult r = Edit(path, assignments);
    ASSERT_EQ(r.status, EditStatus::Changed) << context << ": " << r.reason << "\n"
                                             << fileinfo::DescribeDifference(r.difference);
    // The reading gives back the values asked, and nothing else moved.
    const fileinfo::media::Reading after = ReadingOf(path);
    fileinfo::media::Tags expected = before.tags;
    for (const std::string& a : assignments) Apply(expected, a);
    ExpectSameTags(after.tags, expected, context);
    ExpectSameStreams(after, before, context);

    // An independent account: only the asked fields' chunks and frames
    // changed, the chunks kept their order (an ID3 chunk may follow them),
    // the SSND bytes and the decoded samples are the same.
    const json c = CompareEdit(original, path);
    ASSERT_TRUE(c.is_object()) << context;
    EXPECT_TRUE(c["same_audio"].get<bool>()) << context;
    EXPECT_TRUE(c["same_samples"].get<bool>()) << context;
    for (const auto& key : c["changed_keys"]) {
        bool asked = false;
        for (const std::string& a : assignments) asked = asked || kKeysOf.at(FieldOf(a)).count(key.get<std::string>());
        EXPECT_TRUE(asked) << context << ": " << key << " changed";
    }
    json chunks = c["chunks_before"];
    if (c["chunks_after"].size() == chunks.size() + 1) chunks.push_back("ID3 ");
    EXPECT_EQ(c["chunks_after"], chunks) << context;
    int error = 0;
    const int a = open(original.c_str(), O_RDONLY), b = open(path.c_str(), O_RDONLY);
    EXPECT_TRUE(fileinfo::SameAudio(a, b, TagFormat::Aiff, error)) << context;
    close(a);
    close(b);

    // ffprobe reads the new title, artist and comment.
    const json probed = Probe(path);
    EXPECT_EQ(probed.value("title", ""), expected.title) << context;
    EXPECT_EQ(probed.value("author", probed.value("artist", "")), expected.artist) << context;
    EXPECT_EQ(probed.value("comment", ""), expected.comment) << context;
}

TEST(TagWriterAiffTextChunks, EachFieldAloneChangesOnlyItsOwnChunkOrFrameAndNeverTheSound) {
    for (const std::string& fixture : kTextFixtures)
        for (const std::string& a : kAssignments) ExpectOnlyTheseFields(fixture, {a});
}

TEST(TagWriterAiffTextChunks, AllFieldsAtOnceChangeOnlyTheirChunksAndFrames) {
    for (const std::string& fixture : kTextFixtures) {
        ExpectOnlyTheseFields(fixture, kAssignments);
        ExpectOnlyTheseFields(fixture, {"title=Only texts", "artist=Someone", "comment=A note"});
    }
}

TEST(TagWriterAiffTextChunks, AnAifcFileTakesEachFieldAndAllAtOnce) {
    TempDir made;
    const std::string aifc = AifcWithTexts(made);
    ASSERT_EQ(ReadingOf(aifc).type, "AIFC");
    ASSERT_EQ(ReadingOf(aifc).tags.comment, "Made here");
    for (const std::string& a : kAssignments) ExpectOnlyTheseFields(aifc, {a});
    ExpectOnlyTheseFields(aifc, kAssignments);
}

TEST(TagWriterAiffTextChunks, WithoutAnId3ChunkTheTextsAloneChangeAndTheChunksKeepTheirPlaces) {
    TempDir dir;
    const std::string original = kTextFixtures[0];
    const std::string path = Copy(dir, original, "tone.aif");
    ASSERT_EQ(Edit(path, {"title=Short", "artist=A much longer artist", "comment=Odd"}).status, EditStatus::Changed);
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["changed_keys"], json({"ANNO", "AUTH", "NAME"}));
    EXPECT_EQ(c["chunks_after"], json({"NAME", "AUTH", "ANNO", "COMM", "SSND"}));
    EXPECT_EQ(c["values"], json({{"NAME", "Short"}, {"AUTH", "A much longer artist"}, {"ANNO", "Odd"}}));
}

// Japanese, an emoji (beyond the 16-bit plane), combining marks, Latin-1.
const std::string kTitles[] = {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\xAD\x8C",
                               "Tone \xF0\x9F\x8E\xB5 \xF0\x9F\x98\x80", "Cafe\xCC\x81 n\xCC\x83 a\xCC\x8A\xCC\x88",
                               "Caf\xC3\xA9 \xC3\x80 \xC3\xBF"};

TEST(TagWriterAiffTextChunks, UnicodeAndLatin1TextsAreWrittenAsUtf8AndReadBackExactly) {
    for (const std::string& title : kTitles) {
        TempDir dir;
        const std::string path = Copy(dir, kTextFixtures[0], "tone.aif");
        const fileinfo::EditResult r = Edit(path, {"title=" + title, "comment=" + title});
        ASSERT_EQ(r.status, EditStatus::Changed) << title << ": " << r.reason;
        EXPECT_EQ(ReadingOf(path).tags.title, title);
        EXPECT_EQ(ReadingOf(path).tags.comment, title);
        // The chunk holds the UTF-8 bytes (a NUL after an odd length).
        const std::string bytes = ReadFile(path);
        const std::string padded = title + std::string(title.size() % 2, '\0');
        EXPECT_EQ(bytes.substr(12, 8 + padded.size()), std::string("NAME") + char(0) + char(0) +
                                                            char(padded.size() >> 8) + char(padded.size() & 0xFF) +
                                                            padded);
        EXPECT_EQ(Probe(path).value("title", ""), title);
        EXPECT_EQ(CompareEdit(kTextFixtures[0], path)["values"]["ANNO"], title);
    }
}

TEST(TagWriterAiffTextChunks, TheDryRunListsExactlyTheTagsThatChangeAndTouchesNothing) {
    TempDir dir;
    const std::string path = Copy(dir, kTextFixtures[0], "tone.aif");
    const fileinfo::EditResult r = Edit(path, {"title=New", "album=An album", "comment=A4 reference"}, true);
    ASSERT_EQ(r.status, EditStatus::WouldChange) << r.reason;
    EXPECT_EQ(fileinfo::DescribeDifference(r.difference),
              "  title: \"Tuning Tone\" -> \"New\"\n"
              "  album: \"\" -> \"An album\"\n");
    EXPECT_TRUE(ReadFile(path) == ReadFile(kTextFixtures[0]));
    EXPECT_EQ(NamesIn(dir.path().string()), std::vector<std::string>{"tone.aif"});
}

TEST(TagWriterAiffTextChunks, TheToolEditsAndItsDryRunPrintsTheDifference) {
    TempDir dir;
    const std::string path = Copy(dir, kTextFixtures[1], "tone.aif");
    const ToolResult dry = RunToolIn(dir.path().string(), {"--set", "artist=Lab B", "--dry-run", path});
    EXPECT_EQ(dry.exitCode, 0) << dry.err;
    EXPECT_EQ(dry.out, path + ": would change\n  artist: \"Test Lab\" -> \"Lab B\"\n");
    const ToolResult run = RunToolIn(dir.path().string(), {"--set", "artist=Lab B", "--no-backup", path});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ReadingOf(path).tags.artist, "Lab B");
}

// ---- the chunks, byte by byte ----

// A stand-in for sound: varied bytes, with a stretch of zeros (which the
// move may turn into a hole) across block boundaries.
Bytes Sound(size_t size) {
    Bytes sound(size);
    uint32_t state = 2463534242u;
    for (size_t i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        sound[i] = i >= size / 3 && i < size / 3 + (2u << 20) ? 0 : static_cast<uint8_t>(state);
    }
    return sound;
}

// An AIFF file of 16-bit stereo: `before` chunks, COMM, SSND, `after`.
struct Texts {
    std::vector<std::pair<std::string, std::string>> before, after;
};
std::string Aiff(const Texts& texts, const Bytes& sound, const std::string& form = "AIFF") {
    AiffBuilder b(form);
    auto add = [&b](const std::pair<std::string, std::string>& t) {
        b.text(t.first, t.second);
        if (t.second.size() % 2 != 0) b.raw(1);  // the pad byte
    };
    for (const auto& t : texts.before) add(t);
    b.comm(2, 16, 44100.0, static_cast<uint32_t>((sound.size() - 8) / 4));
    b.chunk("SSND", sound);
    for (const auto& t : texts.after) add(t);
    return AsString(b.build());
}

Bytes SoundChunkBody(size_t samples) {
    ByteWriter w;
    w.be32(0).be32(0).bytes(Sound(samples));
    return w.take();
}

TEST(TagWriterAiffTextChunks, AnOddTextEndsInANulThatKeepsItsChunkEvenAndOtherPadBytesStay) {
    TempDir dir;
    const Bytes sound = SoundChunkBody(64);
    const std::string path = dir.file("odd.aif");
    WriteFile(path, Aiff({{{"NAME", "Odd"}, {"AUTH", "Ann"}, {"(c) ", "1999 X"}}, {}}, sound));
    ASSERT_TRUE(WriteTexts(path, {"title=Tuned"}, true).written);
    // NAME: "Tuned" and a NUL; AUTH keeps its text and pad byte.
    EXPECT_EQ(ReadFile(path), Aiff({{{"NAME", std::string("Tuned\0", 6)}, {"AUTH", "Ann"}, {"(c) ", "1999 X"}}, {}},
                                   sound));
    ASSERT_TRUE(WriteTexts(path, {"title=Even"}, true).written);
    EXPECT_EQ(ReadFile(path), Aiff({{{"NAME", "Even"}, {"AUTH", "Ann"}, {"(c) ", "1999 X"}}, {}}, sound));
    EXPECT_EQ(ReadingOf(path).tags.title, "Even");
    EXPECT_EQ(ReadingOf(path).tags.artist, "Ann");
}

TEST(TagWriterAiffTextChunks, TextsGrowingAndShrinkingOnBothSidesOfTheSoundMoveItWhole) {
    TempDir dir;
    // More than one block of the move, and a stretch of zeros.
    const Bytes sound = SoundChunkBody(5u << 20);
    const std::string path = dir.file("big.aif");
    const std::string longText(3001, 'g');
    struct Step {
        std::vector<std::string> edit;
        Texts expected;
    };
    const std::vector<Step> steps = {
        {{"title=" + longText, "comment=c"}, {{{"NAME", longText + '\0'}}, {{"ANNO", std::string("c\0", 2)}}}},
        {{"title=t", "comment=" + longText}, {{{"NAME", std::string("t\0", 2)}}, {{"ANNO", longText + '\0'}}}},
        {{"title=" + longText + "h", "comment=" + longText + "hh"},
         {{{"NAME", longText + "h"}}, {{"ANNO", longText + "hh" + '\0'}}}},
        {{"title=Start", "comment=End"}, {{{"NAME", std::string("Start\0", 6)}}, {{"ANNO", std::string("End\0", 4)}}}},
    };
    WriteFile(path, Aiff({{{"NAME", "Start"}}, {{"ANNO", "End"}}}, sound));
    for (const Step& step : steps) {
        const fileinfo::TagWriteResult r = WriteTexts(path, step.edit, true);
        ASSERT_TRUE(r.written) << r.reason;
        EXPECT_TRUE(ReadFile(path) == Aiff(step.expected, sound)) << json(step.edit).dump().substr(0, 40);
    }
}

TEST(TagWriterAiffTextChunks, AFixtureGrownAndShrunkBackIsItsOwnBytesAgain) {
    TempDir dir;
    const std::string path = Copy(dir, kTextFixtures[0], "tone.aif");
    ASSERT_EQ(Edit(path, {"title=" + std::string(70000, 'x')}).status, EditStatus::Changed);
    EXPECT_EQ(ReadFile(path).size(), ReadFile(kTextFixtures[0]).size() + 70000 - 12);
    EXPECT_TRUE(CompareEdit(kTextFixtures[0], path)["same_samples"].get<bool>());
    // ffmpeg wrote "Tuning Tone" with a NUL: the writer's own form.
    ASSERT_EQ(Edit(path, {"title=Tuning Tone"}).status, EditStatus::Changed);
    EXPECT_TRUE(ReadFile(path) == ReadFile(kTextFixtures[0]));
}

TEST(TagWriterAiffTextChunks, AMissingTextChunkGoesAfterTheLastTextOrBeforeTheSound) {
    TempDir dir;
    const Bytes sound = SoundChunkBody(64);
    const std::string path = dir.file("t.aif");
    // After the other texts ("(c) " among them).
    WriteFile(path, Aiff({{{"NAME", "N"}, {"(c) ", "C"}}, {}}, sound));
    ASSERT_TRUE(WriteTexts(path, {"comment=Note", "artist=By"}, true).written);
    EXPECT_EQ(ReadFile(path), Aiff({{{"NAME", "N"}, {"(c) ", "C"}, {"AUTH", "By"}, {"ANNO", "Note"}}, {}}, sound));
    // After the sound, where the texts are.
    WriteFile(path, Aiff({{}, {{"AUTH", "By"}}}, sound));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, true).written);
    EXPECT_EQ(ReadFile(path), Aiff({{}, {{"AUTH", "By"}, {"NAME", "Name"}}}, sound));
    // No text chunk yet: before SSND.
    WriteFile(path, Aiff({}, sound));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, true).written);
    AiffBuilder expected;
    expected.comm(2, 16, 44100.0, 16).text("NAME", "Name").chunk("SSND", sound);
    EXPECT_EQ(ReadFile(path), AsString(expected.build()));
    // Where an ID3 chunk holds the field, none is added.
    WriteFile(path, Aiff({}, sound));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, false).written);
    EXPECT_EQ(ReadFile(path), Aiff({}, sound));
}

TEST(TagWriterAiffTextChunks, ALastChunkWithoutItsPadByteGetsItBeforeANewChunk) {
    TempDir dir;
    const std::string path = dir.file("t.aif");
    AiffBuilder b;
    b.comm(2, 16, 44100.0, 16).chunk("SSND", SoundChunkBody(64)).text("AUTH", "Odd");
    WriteFile(path, AsString(b.build()));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, true).written);
    AiffBuilder e;
    e.comm(2, 16, 44100.0, 16).chunk("SSND", SoundChunkBody(64)).text("AUTH", "Odd").raw(1).text("NAME", "Name");
    EXPECT_EQ(ReadFile(path), AsString(e.build()));
}

TEST(TagWriterAiffTextChunks, RemovingAFieldRemovesEveryChunkOfItAndSettingOneTakesTheFirst) {
    TempDir dir;
    const Bytes sound = SoundChunkBody(64);
    const std::string path = dir.file("t.aif");
    WriteFile(path, Aiff({{{"ANNO", "first"}, {"NAME", "Name"}, {"ANNO", "second"}}, {}}, sound));
    ASSERT_EQ(Edit(path, {"comment=new"}).status, EditStatus::Changed);
    EXPECT_EQ(ReadFile(path), Aiff({{{"ANNO", std::string("new\0", 4)}, {"NAME", "Name"}, {"ANNO", "second"}}, {}},
                                   sound));
    const fileinfo::EditResult r = Edit(path, {"comment="});
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(fileinfo::DescribeDifference(r.difference), "  comment: \"new\" -> \"\"\n");
    EXPECT_EQ(ReadFile(path), Aiff({{{"NAME", "Name"}}, {}}, sound));
}

// ---- with an ID3 chunk ----

// The fixture with ffmpeg's ID3 chunk (and its NAME) for the title, or an
// ID3 chunk alone for an album.
std::string WithId3(const TempDir& dir, const std::string& metadata) {
    const std::string path = dir.file("made.aif");
    const std::string command = "ffmpeg -v error -y -i '" + kFixtures + "/aiff/sox-mono-8k.aif' -c copy -write_id3v2 1 " +
                                metadata + " '" + path + "'";
    EXPECT_EQ(system(command.c_str()), 0);
    return path;
}

TEST(TagWriterAiffTextChunks, AnId3ChunkTakesTheFieldsAndTheTextChunksThereAreFollow) {
    TempDir made, dir;
    const std::string original = WithId3(made, "-metadata title=Old");
    const json chunks = CompareEdit(original, original)["chunks_after"];
    ASSERT_EQ(chunks, json({"NAME", "COMM", "SSND", "ID3 "}));
    const std::string path = Copy(dir, original, "tone.aif");
    ASSERT_EQ(Edit(path, {"title=New", "artist=Someone"}).status, EditStatus::Changed);
    json c = CompareEdit(original, path);
    EXPECT_EQ(c["changed_keys"], json({"NAME", "TIT2", "TPE1"}));
    EXPECT_EQ(c["values"]["NAME"], "New");
    EXPECT_EQ(c["chunks_after"], chunks) << "no AUTH chunk is added beside the ID3 chunk";
    // Removing the title removes it from both: the reading would fall back
    // on NAME otherwise.
    const fileinfo::EditResult r = Edit(path, {"title="});
    ASSERT_EQ(r.status, EditStatus::Changed) << r.reason << fileinfo::DescribeDifference(r.difference);
    EXPECT_EQ(ReadingOf(path).tags.title, "");
    EXPECT_EQ(CompareEdit(original, path)["chunks_after"], json({"COMM", "SSND", "ID3 "}));
}

TEST(TagWriterAiffTextChunks, AFileWithOnlyAnId3ChunkGetsNoTextChunk) {
    TempDir made, dir;
    const std::string original = WithId3(made, "-metadata album=Old");
    ASSERT_EQ(CompareEdit(original, original)["chunks_after"], json({"COMM", "SSND", "ID3 "}));
    const std::string path = Copy(dir, original, "tone.aif");
    ASSERT_EQ(Edit(path, {"title=New", "comment=Said"}).status, EditStatus::Changed);
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["changed_keys"], json({"COMM::eng", "TIT2"}));
    EXPECT_EQ(c["chunks_after"], json({"COMM", "SSND", "ID3 "}));
    EXPECT_EQ(ReadingOf(path).tags.title, "New");
    EXPECT_EQ(ReadingOf(path).tags.album, "Old");
}

// ---- layouts the writer does not follow ----

TEST(TagWriterAiffTextChunks, HostileLayoutsAreRefusedByTheWriterWithNothingWritten) {
    TempDir dir;
    const Bytes sound = SoundChunkBody(64);
    struct Case {
        const char* name;
        std::string bytes;
        const char* reason;
    };
    std::string pastEnd = Aiff({{{"NAME", "Name"}}, {}}, sound);
    pastEnd[16] = '\x7F';  // NAME's size: far past the FORM
    std::string zeroForm = Aiff({{{"NAME", "Name"}}, {}}, sound);
    zeroForm.replace(4, 4, std::string(4, '\0'));
    std::string cut = Aiff({{{"NAME", "Name"}}, {}}, sound);
    cut.resize(cut.size() - 10);  // the FORM says 10 bytes more
    AiffBuilder noPad;
    noPad.text("NAME", "Odd").comm(2, 16, 44100.0, 16).chunk("SSND", sound);
    const Case cases[] = {
        {"a chunk past the FORM's end", pastEnd, "an AIFF chunk runs past the end of its FORM"},
        {"a FORM of size 0", zeroForm, "the AIFF FORM's size is too small to hold its chunks"},
        {"a FORM past the file's end", cut, "the AIFF FORM runs past the end of the file"},
        {"an odd chunk without its pad byte", AsString(noPad.build()), "an AIFF chunk of odd size has no pad byte"},
        {"not a FORM", "RIFF" + pastEnd.substr(4), "the file is not an AIFF FORM"},
        {"too short", "FORM", "the file is too short for an AIFF FORM"},
    };
    for (const Case& c : cases) {
        const std::string path = dir.file("hostile.aif");
        WriteFile(path, c.bytes);
        const fileinfo::TagWriteResult r = WriteTexts(path, {"title=New"}, true);
        EXPECT_FALSE(r.written) << c.name;
        EXPECT_EQ(r.reason, c.reason) << c.name;
        EXPECT_EQ(r.error, 0) << c.name;
        EXPECT_TRUE(ReadFile(path) == c.bytes) << c.name;
    }
}

TEST(TagWriterAiffTextChunks, HostileLayoutsAreRefusedByTheEditWithTheFileUnchanged) {
    TempDir dir;
    const Bytes sound = SoundChunkBody(64);
    std::string pastEnd = Aiff({{{"AUTH", "By"}, {"NAME", "Name"}}, {}}, sound);
    pastEnd[26] = '\x7F';  // NAME's size: far past the FORM
    std::string zeroForm = Aiff({{{"NAME", "Name"}}, {}}, sound);
    zeroForm.replace(4, 4, std::string(4, '\0'));
    std::string cut = Aiff({{{"NAME", "Name"}}, {}}, sound);
    cut.resize(cut.size() - 10);
    AiffBuilder noPad;
    noPad.text("NAME", "Odd").comm(2, 16, 44100.0, 16).chunk("SSND", sound);
    for (const std::string& bytes : {pastEnd, zeroForm, cut, AsString(noPad.build())}) {
        const std::string path = dir.file("hostile.aif");
        WriteFile(path, bytes);
        for (const char* edit : {"title=New", "comment=New"}) {
            const fileinfo::EditResult r = Edit(path, {edit});
            EXPECT_EQ(r.status, EditStatus::Refused) << edit << ": " << r.reason;
            EXPECT_FALSE(r.reason.empty());
            EXPECT_TRUE(ReadFile(path) == bytes) << edit;
            EXPECT_EQ(NamesIn(dir.path().string()), std::vector<std::string>{"hostile.aif"}) << edit;
        }
    }
}

TEST(TagWriterAiffTextChunks, AFailedWriteIsReportedWithItsError) {
    TempDir dir;
    const std::string path = Copy(dir, kTextFixtures[0], "tone.aif");
    // Open for reading only: the first write fails with EBADF.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const fileinfo::TagWriteResult r = fileinfo::WriteAiffTextChunks(fd, Edits({"title=Longer title"}), true);
    close(fd);
    EXPECT_FALSE(r.written);
    EXPECT_EQ(r.error, EBADF);
    EXPECT_EQ(r.reason, "writing the AIFF text chunks into a copy failed");
}

}  // namespace

TEST(TagWriterAiffTextChunks, ANewChunkGoesBeforeATailTooShortToBeAChunkAndTheFileCanBeWrittenAgain) {
    TempDir dir;
    const std::string path = dir.file("t.aif");
    AiffBuilder b;
    b.comm(2, 16, 44100.0, 16).chunk("APPL", Bytes(4, 7)).raw(6, 9);
    WriteFile(path, AsString(b.build()));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, true).written);
    AiffBuilder e;
    e.comm(2, 16, 44100.0, 16).chunk("APPL", Bytes(4, 7)).text("NAME", "Name").raw(6, 9);
    const std::string written = ReadFile(path);
    EXPECT_EQ(written, AsString(e.build()));
    ASSERT_TRUE(WriteTexts(path, {"title=Name"}, true).written);
    EXPECT_EQ(ReadFile(path), written);
}
