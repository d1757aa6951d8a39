// The fields writer on every tagged fixture and example: each field alone
// and all at once. mutagen's full frame and item list before and after
// differs only in the fields set, the audio bytes are the same, ffmpeg
// decodes the same samples, and the ID3v2 version and text encodings are
// the ones the formats call for. These tests drive the writer itself; the
// edit around it (the reading's read-back, the rename) is in
// FieldsEditTest.cpp.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>
#include <set>

#include "AudioSpans.h"
#include "Child.h"
#include "EditChecks.h"
#include "TagWriter.h"
#include "TestFiles.h"

namespace {

using fileinfo::TagFormat;
using nlohmann::json;

const std::string kFixtures = FILEINFO_FIXTURES_DIR;
const std::string kExamples = FILEINFO_EXAMPLES_DIR;

struct Sample {
    const char* path;  // below the fixtures or, with "examples/", the examples
    TagFormat format;
};

std::string PathOf(const Sample& s) {
    const std::string p = s.path;
    return p.rfind("examples/", 0) == 0 ? kExamples + p.substr(8) : kFixtures + "/" + p;
}

const Sample kTagged[] = {
    {"mp3/tagged-id3v2.mp3", TagFormat::Id3},    {"mp3/tagged-eyed3.mp3", TagFormat::Id3},
    {"mp3/mono-ffmpeg.mp3", TagFormat::Id3},     {"examples/chord-vbr.mp3", TagFormat::Id3},
    {"aac/adts-44k-tagged.aac", TagFormat::Id3}, {"mp4/aac-tagged.m4a", TagFormat::Mp4},
    {"mp4/alac.m4a", TagFormat::Mp4},            {"examples/tone-tagged.m4a", TagFormat::Mp4},
};

// Each field with a value no fixture holds already.
const std::vector<std::string> kAssignments = {
    "title=New Title", "artist=New Artist", "album=New Album",    "genre=Jazz",  "year=2021",
    "comment=New note", "composer=New Composer", "lyrics=New words", "track=3/12",
};

// The ID3v2 frame (mutagen's key, or its start for frames keyed by
// description and language) and the MP4 item of each field.
const std::map<std::string, std::pair<std::string, std::string>> kKeys = {
    {"title", {"TIT2", "\xC2\xA9nam"}},    {"artist", {"TPE1", "\xC2\xA9" "ART"}},
    {"album", {"TALB", "\xC2\xA9" "alb"}}, {"genre", {"TCON", "\xC2\xA9gen"}},
    {"year", {"TDRC", "\xC2\xA9" "day"}},  {"comment", {"COMM::", "\xC2\xA9" "cmt"}},
    {"composer", {"TCOM", "\xC2\xA9wrt"}}, {"lyrics", {"USLT::", "\xC2\xA9lyr"}},
    {"track", {"TRCK", "trkn"}},
};

bool KeyOfField(const std::string& key, const std::string& field, TagFormat format) {
    const std::string& home = format == TagFormat::Mp4 ? kKeys.at(field).second : kKeys.at(field).first;
    if (key == home) return true;
    if (home.back() == ':' && key.rfind(home, 0) == 0) return true;
    return format == TagFormat::Mp4 && field == "genre" && key == "gnre";
}

std::string CopyTo(const TempDir& dir, const std::string& from, const std::string& name) {
    const std::string path = dir.file(name);
    WriteFile(path, ReadFile(from));
    return path;
}

fileinfo::TagWriteResult Write(const std::string& path, TagFormat format, const fileinfo::TagEdits& edits,
                               bool id3v23 = false) {
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    fileinfo::TagWriteOptions options;
    options.id3v23 = id3v23;
    fileinfo::TagWriteResult result = fileinfo::WriteTags(fd, path, format, edits, options);
    close(fd);
    return result;
}

// The text mutagen gives for a set value.
std::string Expected(const std::string& field, const std::string& value, TagFormat format) {
    if (format != TagFormat::Mp4) return value;
    if (field == "track") return "[(" + value.substr(0, value.find('/')) + ", " + value.substr(value.find('/') + 1) + ")]";
    return "['" + value + "']";
}

void ExpectOnlyTheseFields(const Sample& sample, const std::vector<std::string>& assignments) {
    TempDir dir;
    const std::string original = PathOf(sample);
    const std::string name = original.substr(original.rfind('/') + 1);
    const std::string path = CopyTo(dir, original, name);
    const std::string context = std::string(sample.path) + " " + json(assignments).dump();
    const fileinfo::TagWriteResult result = Write(path, sample.format, Edits(assignments));
    ASSERT_TRUE(result.written) << context << ": " << result.reason;

    const json c = CompareEdit(original, path);
    ASSERT_TRUE(c.is_object()) << context;
    EXPECT_TRUE(c["same_audio"].get<bool>()) << context;
    EXPECT_TRUE(c["same_samples"].get<bool>()) << context;
    EXPECT_EQ(c["id3v1_after"], c["id3v1_before"]) << context << ": an ID3v1 tag is kept, never added";
    for (const auto& key : c["changed_keys"]) {
        bool asked = false;
        for (const std::string& a : assignments) asked = asked || KeyOfField(key.get<std::string>(), FieldOf(a), sample.format);
        EXPECT_TRUE(asked) << context << ": " << key << " changed";
    }
    for (const std::string& a : assignments) {
        const std::string field = FieldOf(a);
        bool found = false;
        for (const auto& [key, value] : c["values"].items()) {
            if (!KeyOfField(key, field, sample.format) || key == "gnre") continue;
            found = true;
            EXPECT_EQ(value.get<std::string>(), Expected(field, ValueOf(a), sample.format)) << context << " " << key;
        }
        EXPECT_TRUE(found) << context << ": no " << field;
    }
    int error = 0;
    const int a = open(original.c_str(), O_RDONLY), b = open(path.c_str(), O_RDONLY);
    EXPECT_TRUE(fileinfo::SameAudio(a, b, sample.format, error)) << context;
    close(a);
    close(b);
}

TEST(TagWriter, EachFieldChangesOnlyItsOwnFrameOrItemAndNeverTheAudio) {
    for (const Sample& sample : kTagged)
        for (const std::string& assignment : kAssignments) ExpectOnlyTheseFields(sample, {assignment});
}

TEST(TagWriter, AllFieldsAtOnceChangeOnlyTheirFramesOrItemsAndNeverTheAudio) {
    for (const Sample& sample : kTagged) ExpectOnlyTheseFields(sample, kAssignments);
}

// Japanese, an emoji (beyond the 16-bit plane) and combining marks.
const std::string kUnicodeTitles[] = {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE6\xAD\x8C",
                                      "Tone \xF0\x9F\x8E\xB5 \xF0\x9F\x98\x80",
                                      "Cafe\xCC\x81 n\xCC\x83 a\xCC\x8A\xCC\x88"};

TEST(TagWriter, UnicodeTitlesAreUtf16InId3v23) {
    for (const std::string& title : kUnicodeTitles) {
        TempDir dir;
        const std::string original = kFixtures + "/mp3/tagged-id3v2.mp3";
        const std::string path = CopyTo(dir, original, "song.mp3");
        ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"title=" + title, "artist=" + title})).written);
        const json c = CompareEdit(original, path);
        EXPECT_EQ(c["version"], "2.3");
        EXPECT_EQ(c["values"]["TIT2"], title);
        EXPECT_EQ(c["encodings"]["TIT2"], 1);  // UTF-16 with a byte-order mark
        EXPECT_EQ(c["encodings"]["TPE1"], 1);
        EXPECT_EQ(c["changed_keys"], json({"TIT2", "TPE1"}));
        EXPECT_TRUE(c["same_audio"].get<bool>());
    }
}

TEST(TagWriter, UnicodeTitlesAreUtf8InId3v24) {
    for (const std::string& title : kUnicodeTitles) {
        TempDir dir;
        const std::string original = kFixtures + "/mp3/mono-ffmpeg.mp3";
        const std::string path = CopyTo(dir, original, "song.mp3");
        ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"title=" + title})).written);
        const json c = CompareEdit(original, path);
        EXPECT_EQ(c["version"], "2.4");
        EXPECT_EQ(c["values"]["TIT2"], title);
        EXPECT_EQ(c["encodings"]["TIT2"], 3);  // UTF-8
        EXPECT_TRUE(c["same_audio"].get<bool>());
    }
}

TEST(TagWriter, UnicodeTitlesInMp4Items) {
    for (const std::string& title : kUnicodeTitles) {
        TempDir dir;
        const std::string original = kFixtures + "/mp4/aac-tagged.m4a";
        const std::string path = CopyTo(dir, original, "song.m4a");
        ASSERT_TRUE(Write(path, TagFormat::Mp4, Edits({"title=" + title})).written);
        const json c = CompareEdit(original, path);
        EXPECT_EQ(c["values"]["\xC2\xA9nam"], "['" + title + "']");
        EXPECT_EQ(c["changed_keys"], json({"\xC2\xA9nam"}));
        EXPECT_TRUE(c["same_samples"].get<bool>());
    }
}

TEST(TagWriter, AnId3v24TagBecomesId3v23OnlyWhenAsked) {
    TempDir dir;
    const std::string original = kFixtures + "/mp3/mono-ffmpeg.mp3";
    const std::string path = CopyTo(dir, original, "song.mp3");
    ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"title=Old players"}), true).written);
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["version"], "2.3");
    EXPECT_EQ(c["encodings"]["TIT2"], 1);
    EXPECT_TRUE(c["same_audio"].get<bool>());
}

TEST(TagWriter, AnUntaggedMp3GetsAnId3v24TagAndNoId3v1Tag) {
    TempDir dir;
    const std::string original = kFixtures + "/mp3/cbr128.mp3";
    const std::string path = CopyTo(dir, original, "song.mp3");
    ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"title=First", "genre=Rock", "track=1"})).written);
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["version"], "2.4");
    EXPECT_EQ(c["values"], json({{"TIT2", "First"}, {"TCON", "Rock"}, {"TRCK", "1"}}));
    EXPECT_FALSE(c["id3v1_after"].get<bool>());
    EXPECT_TRUE(c["same_audio"].get<bool>());
    EXPECT_TRUE(c["same_samples"].get<bool>());
}

TEST(TagWriter, TheId3v1TagTakesOnlyWhatFitsIt) {
    TempDir dir;
    const std::string original = kFixtures + "/mp3/tagged-id3v2.mp3";
    const std::string path = CopyTo(dir, original, "song.mp3");
    // A title ID3v1 cannot hold (not Latin-1), an artist it can, a genre of
    // its table, a track above its byte.
    ASSERT_TRUE(Write(path, TagFormat::Id3,
                      Edits({"title=\xE6\x97\xA5\xE6\x9C\xAC", "artist=Caf\xC3\xA9", "genre=Jazz", "track=300"}))
                    .written);
    const std::string after = ReadFile(path), before = ReadFile(original);
    const std::string v1 = after.substr(after.size() - 128), v1Before = before.substr(before.size() - 128);
    EXPECT_EQ(v1.substr(0, 3), "TAG");
    EXPECT_EQ(v1.substr(3, 30), v1Before.substr(3, 30)) << "the title stays";
    EXPECT_EQ(v1.substr(33, 30), std::string("Caf\xE9") + std::string(26, '\0'));
    EXPECT_EQ(static_cast<unsigned char>(v1[127]), 8u) << "Jazz";
    EXPECT_EQ(v1[126], v1Before[126]) << "the track stays";
}

TEST(TagWriter, ATagThatStillFitsKeepsItsSizeAndTheAudioItsPlace) {
    // The fixture's frames twelve times over: its 1,990-byte tag body is
    // then padding TagLib keeps (under 1% of the file).
    TempDir dir;
    const std::string fixture = ReadFile(kFixtures + "/mp3/tagged-id3v2.mp3");
    const size_t tagEnd = 10 + 1990;
    const std::string audio = fixture.substr(tagEnd, fixture.size() - tagEnd - 128);
    std::string bytes = fixture.substr(0, tagEnd);
    for (int k = 0; k < 12; ++k) bytes += audio;
    bytes += fixture.substr(fixture.size() - 128);
    const std::string original = dir.file("long.mp3");
    WriteFile(original, bytes);
    const std::string path = CopyTo(dir, original, "song.mp3");
    ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"title=A longer title than before", "comment=Kept in place"})).written);
    const std::string after = ReadFile(path);
    ASSERT_EQ(after.size(), bytes.size());
    EXPECT_TRUE(after.compare(tagEnd, after.size() - tagEnd - 128, bytes, tagEnd, bytes.size() - tagEnd - 128) == 0);
    EXPECT_TRUE(CompareEdit(original, path)["same_samples"].get<bool>());
}

TEST(TagWriter, EmptyValuesRemoveTheirFrames) {
    TempDir dir;
    const std::string original = kFixtures + "/mp3/tagged-id3v2.mp3";
    const std::string path = CopyTo(dir, original, "song.mp3");
    ASSERT_TRUE(Write(path, TagFormat::Id3, Edits({"album=", "track=0"})).written);
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["changed_keys"], json({"TALB", "TRCK"}));
    EXPECT_FALSE(c["values"].contains("TALB"));
    EXPECT_FALSE(c["values"].contains("TRCK"));
}

TEST(TagWriter, LyricsAreReadBackForTheEdit) {
    TempDir dir;
    const std::string path = CopyTo(dir, kFixtures + "/mp4/aac-tagged.m4a", "song.m4a");
    ASSERT_TRUE(Write(path, TagFormat::Mp4, Edits({"lyrics=la la\nla"})).written);
    const int fd = open(path.c_str(), O_RDONLY);
    EXPECT_EQ(fileinfo::ReadLyrics(fd, path, TagFormat::Mp4), "la la\nla");
    close(fd);
}

TEST(TagWriter, AiffTitlesArtistsAndCommentsGoIntoTheTextChunksWhereTheFileKeepsThem) {
    TempDir dir;
    const std::string original = kFixtures + "/aiff/ffmpeg-tagged-11k.aif";
    const std::string path = CopyTo(dir, original, "tone.aif");
    const fileinfo::TagWriteResult r = Write(path, TagFormat::Aiff, Edits({"title=New"}));
    EXPECT_TRUE(r.written) << r.reason;
    const json c = CompareEdit(original, path);
    EXPECT_EQ(c["changed_keys"], json({"NAME"}));
    EXPECT_EQ(c["values"]["NAME"], "New");
    EXPECT_TRUE(c["same_audio"].get<bool>());
}

// ---- MP4: the items grow past the room there is ----

// The fixture rewritten by ffmpeg (the stream copied) with moov before
// mdat, or after it.
std::string Mp4WithMoov(const TempDir& dir, bool first) {
    const std::string original = kFixtures + "/mp4/aac-tagged.m4a";
    const std::string path = dir.file(first ? "moov-first.m4a" : "moov-last.m4a");
    const std::string command = "ffmpeg -v error -y -i '" + original + "' -c copy -map_metadata 0 " +
                                (first ? "-movflags +faststart '" : "'") + path + "'";
    EXPECT_EQ(system(command.c_str()), 0);
    return path;
}

bool MoovBeforeMdat(const std::string& bytes) { return bytes.find("moov") < bytes.find("mdat"); }

TEST(TagWriter, Mp4ItemsThatGrowPastTheFreeSpaceMoveTheMediaAndFixTheChunkOffsets) {
    for (const bool moovFirst : {true, false}) {
        TempDir dir;
        const std::string original = Mp4WithMoov(dir, moovFirst);
        ASSERT_EQ(MoovBeforeMdat(ReadFile(original)), moovFirst);
        const std::string path = CopyTo(dir, original, "song.m4a");
        // 20,000 characters of lyrics: far more than any free box holds.
        ASSERT_TRUE(Write(path, TagFormat::Mp4, Edits({"lyrics=" + std::string(20000, 'l'), "title=Grown"})).written);
        const std::string after = ReadFile(path);
        EXPECT_GT(after.size(), ReadFile(original).size() + 20000);
        EXPECT_EQ(MoovBeforeMdat(after), moovFirst);
        const json c = CompareEdit(original, path);
        EXPECT_TRUE(c["same_audio"].get<bool>()) << moovFirst;
        EXPECT_TRUE(c["same_samples"].get<bool>()) << "moov first: " << moovFirst;
        EXPECT_EQ(c["changed_keys"], json({"\xC2\xA9lyr", "\xC2\xA9nam"}));
    }
}

// ---- failures underneath TagLib ----

TEST(TagWriter, AFailedWriteIsNoticedEvenWhereTagLibIgnoresIt) {
    TempDir dir;
    const std::string path = CopyTo(dir, kFixtures + "/mp3/cbr128.mp3", "song.mp3");
    // A descriptor open for reading only: every write fails with EBADF.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const fileinfo::TagWriteResult r =
        fileinfo::WriteTags(fd, path, TagFormat::Id3, Edits({"title=x"}), fileinfo::TagWriteOptions());
    close(fd);
    EXPECT_FALSE(r.written);
    EXPECT_EQ(r.error, EBADF);
    EXPECT_EQ(r.reason, "writing the tags into a copy failed");
}

TEST(TagFormat, FollowsTheReadingsContainerType) {
    EXPECT_EQ(fileinfo::TagFormatOf("MP3", ""), TagFormat::Id3);
    EXPECT_EQ(fileinfo::TagFormatOf("AAC", "ADTS"), TagFormat::Id3);
    EXPECT_EQ(fileinfo::TagFormatOf("AAC", "ADIF"), TagFormat::None);
    EXPECT_EQ(fileinfo::TagFormatOf("M4A", ""), TagFormat::Mp4);
    EXPECT_EQ(fileinfo::TagFormatOf("WAV", ""), TagFormat::Wav);
    EXPECT_EQ(fileinfo::TagFormatOf("AIFC", ""), TagFormat::Aiff);
    EXPECT_EQ(fileinfo::TagFormatOf("", ""), TagFormat::None);
}

TEST(TagEditsForFields, TakeUnicodeAndTrackWithTotal) {
    fileinfo::TagEdits edits;
    std::string error;
    EXPECT_TRUE(edits.Add("title=\xE2\x82\xAC \xF0\x9F\x98\x80", error)) << error;
    EXPECT_EQ(edits.edits()[0].text, "\xE2\x82\xAC \xF0\x9F\x98\x80");
    EXPECT_TRUE(edits.Add("track=3/12", error)) << error;
    EXPECT_EQ(edits.edits()[1].track, 3);
    EXPECT_EQ(edits.edits()[1].trackTotal, 12);
    EXPECT_EQ(fileinfo::GivenValue(edits.edits()[1]), "3/12");
    EXPECT_TRUE(edits.Add("album=" + std::string(300, 'a'), error));
    EXPECT_EQ(edits.edits()[2].text.size(), 300u) << "no cut at 127";
    for (const char* bad : {"track=3/", "track=/3", "track=3/0", "track=3/12/1", "track=x"}) {
        EXPECT_FALSE(fileinfo::TagEdits().Add(bad, error)) << bad;
        EXPECT_NE(error.find("the track is N or N/TOTAL"), std::string::npos) << error;
    }
    for (const char* bad : {"artist=\xC3", "artist=\xC0\x80", "artist=\xED\xA0\x80"}) {
        EXPECT_FALSE(fileinfo::TagEdits().Add(bad, error)) << bad;
        EXPECT_EQ(error, "--set artist: the value is not UTF-8 text of at most 1 MiB");
    }
}

}  // namespace
