// fileinfo --json: every line is exactly what a compact dump of the same
// values writes, invalid UTF-8 in byte strings included, and directories
// are walked in byte order of the names.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "CapsBuilder.h"
#include "MediaFileInfo.h"
#include "TestFiles.h"
#include "ToolRun.h"
#include "WavBuilder.h"

namespace fs = std::filesystem;
using nlohmann::ordered_json;

namespace {

// The status texts of the statuses these tests' files reach.
std::string StatusTextOf(int status) {
    switch (status) {
        case MFI_OK: return "success";
        case MFI_BAD_ARGUMENT: return "bad argument";
        case MFI_NOT_THIS_FORMAT: return "not a recognised format";
        default: ADD_FAILURE() << "no status text pinned for status " << status; return "";
    }
}

std::string Latin1AsUtf8(const char* text) {
    std::string out;
    for (size_t i = 0; i < MEDIA_TEXT_SIZE && text[i] != '\0'; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

ordered_json RecordJson(const MediaFileInfo_st& r) {
    ordered_json j = ordered_json::object();
#define NUMBER(f) j[#f] = static_cast<unsigned long>(r.f)
#define TEXT(f) j[#f] = Latin1AsUtf8(r.f)
    NUMBER(isVbr); NUMBER(trackNumber); NUMBER(level); NUMBER(profile); NUMBER(profileLevelId);
    NUMBER(bitsPerSample); NUMBER(height); NUMBER(width); NUMBER(fileSize); NUMBER(frameRate);
    NUMBER(sampleRate); NUMBER(bitRate); NUMBER(peakBitRate); NUMBER(durationMs);
    TEXT(fileType); TEXT(audioCodec); TEXT(audioFormat); TEXT(videoFormat); TEXT(spareText);
    TEXT(channelMode); TEXT(title); TEXT(artist); TEXT(album); TEXT(genre); TEXT(lyrics); TEXT(year);
    TEXT(comment); TEXT(composer);
#undef NUMBER
#undef TEXT
    return j;
}

// Whether a path is valid UTF-8: nlohmann's strict dump throws on anything else.
bool IsUtf8(const std::string& text) {
    try {
        (void)nlohmann::json(text).dump();
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::string HexOf(const std::string& bytes) {
    std::string hex;
    char two[3];
    for (const char c : bytes) {
        snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(c));
        hex += two;
    }
    return hex;
}

// The object a line shows for path: the library loads it here as well.
ordered_json Expected(const std::string& path) {
    MediaFileInfo facade;
    const int status = facade.LoadFile(path.c_str());
    ordered_json j;
    j["path"] = path;
    if (!IsUtf8(path)) j["path_bytes"] = HexOf(path);
    j["status"] = status;
    j["status_text"] = StatusTextOf(status);
    j["is_audio"] = facade.IsAudio() != 0;
    j["is_video"] = facade.IsVideo() != 0;
    j["has_tags"] = facade.HasId3Info() != 0;
    const MediaFileInfo_st* record = facade.GetFileInfo();
    // A status of 1 with neither a file type nor a stream: no reader knew the bytes.
    j["identified"] = status == MFI_OK && record != nullptr &&
                      (record->fileType[0] != '\0' || facade.IsAudio() != 0 || facade.IsVideo() != 0);
    j["record"] = record != nullptr ? RecordJson(*record) : ordered_json(nullptr);
    return j;
}

// The compact dump, each invalid UTF-8 part replaced, and a line end.
std::string DumpLine(const ordered_json& j) {
    return j.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// The lines, each with its line end.
std::vector<std::string> Lines(const std::string& out) {
    std::vector<std::string> lines;
    size_t start = 0, end;
    while ((end = out.find('\n', start)) != std::string::npos) {
        lines.push_back(out.substr(start, end + 1 - start));
        start = end + 1;
    }
    EXPECT_EQ(start, out.size()) << "the output ends inside a line";
    return lines;
}

// A short canonical WAV: enough for the reader, the title taken from the name.
Bytes SmallWav() {
    WavFields wav;
    wav.channels = 1;
    wav.sampleRate = 8000;
    wav.dataBytes = 16000;
    return BuildWav(wav);
}

std::string Example(const char* name) { return std::string(FILEINFO_EXAMPLES_DIR) + "/" + name; }

TEST_F(Tool, JsonLinesOfEveryFixtureAreTheCompactDumpOfTheirValues) {
    for (const char* dir : {FILEINFO_FIXTURES_DIR, FILEINFO_EXAMPLES_DIR}) {
        const ToolRun run = RunTool(std::string("--record --json ") + dir);
        const std::vector<std::string> lines = Lines(run.out);
        ASSERT_GE(lines.size(), 6u) << dir;
        for (const std::string& line : lines) {
            const std::string path = nlohmann::json::parse(line)["path"];
            EXPECT_EQ(line, DumpLine(Expected(path)));
        }
    }
}

TEST_F(Tool, JsonEscapesQuotesBackslashesAndControlCharacters) {
    TempDir dir;
    const std::string name = "q\"b\\s\x01\b\t\n\f\r\x1f\x7f\xe9";
    const std::string path = dir.write(name + ".wav", SmallWav());
    const ToolRun run = RunTool("--record --json " + dir.path().string());
    EXPECT_EQ(run.exitCode, 0);
    // The title is the name, read as Latin-1; the path is bytes, and a lone
    // 0xE9 is no UTF-8.
    const std::string escaped = "q\\\"b\\\\s\\u0001\\b\\t\\n\\f\\r\\u001f\x7f";
    EXPECT_NE(run.out.find("\"title\":\"" + escaped + "\xc3\xa9\","), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("/" + escaped + "\xef\xbf\xbd.wav\","), std::string::npos) << run.out;
    EXPECT_EQ(run.out, DumpLine(Expected(path)));
}

TEST_F(Tool, InvalidUtf8InAPathBecomesTheReplacementCharacterAndKeepsItsBytes) {
    TempDir dir;
    const std::string bad = dir.write("bad\xff.wav", SmallWav());
    // Cut short by the end of the path: one U+FFFD for the two bytes of an
    // unfinished three-byte sequence.
    const std::string cut = dir.write("cut\xe2\x82.wav", SmallWav());
    const ToolRun run = RunTool("--record --json '" + bad + "' '" + cut + "'");
    EXPECT_EQ(run.exitCode, 0);
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    EXPECT_EQ(lines[0].rfind("{\"path\":\"" + dir.file("bad\xef\xbf\xbd.wav") + "\",\"path_bytes\":\"" + HexOf(bad) +
                                 "\",",
                             0),
              0u)
        << lines[0];
    EXPECT_NE(lines[0].find("\"title\":\"bad\xc3\xbf\","), std::string::npos) << lines[0];
    EXPECT_EQ(lines[0], DumpLine(Expected(bad)));
    EXPECT_EQ(lines[1].rfind("{\"path\":\"" + dir.file("cut\xef\xbf\xbd.wav") + "\",", 0), 0u) << lines[1];
    EXPECT_EQ(lines[1], DumpLine(Expected(cut)));
    // The hex form gives the exact bytes back.
    EXPECT_EQ(nlohmann::json::parse(lines[1])["path_bytes"], HexOf(cut));
}

TEST_F(Tool, NamedFileWithoutAnExtensionOrWithAnotherNameOfAFormatIsRead) {
    TempDir dir;
    const std::string readme = dir.write("README", Bytes(3, 'x'));
    const std::string aiff = dir.write("song.aiff", Bytes(64, 'x'));
    const std::string notes = dir.write("notes.txt", Bytes(3, 'x'));
    const ToolRun run = RunTool("--record --json " + readme + " " + aiff + " " + notes, dir.file("stderr.txt"));
    EXPECT_EQ(run.exitCode, 1);  // notes.txt was named and not read
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    // The library gives no record for a name it has no reader for: a bad
    // argument for a bare name, not its format for ".aiff".
    EXPECT_EQ(nlohmann::json::parse(lines[0])["status"], 2);
    EXPECT_EQ(nlohmann::json::parse(lines[1])["status"], 10);
    EXPECT_EQ(run.err, "fileinfo: " + notes + ": extension .txt is not read\n");
}

// One piece of a file name: plain, escaped, valid UTF-8 of every length,
// or one of the ways UTF-8 goes wrong.
std::string NamePiece(std::mt19937& rng) {
    static const std::vector<std::string> kPieces = {
        "a", "Z", "-", ".", " ", "\"", "\\", "\x01", "\x1f", "\x7f", "\t", "\n",
        "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x8e\xb5", "\xed\x9f\xbf", "\xf4\x8f\xbf\xbf", "\xef\xbf\xbd",
        "\x80", "\xbf", "\xc0", "\xc1\xbf", "\xf5", "\xff", "\xfe",  // bytes that start nothing
        "\xc3", "\xe2\x82", "\xf0\x9f\x8e",                           // sequences cut short
        "\xe0\x80\x80", "\xe0\x9f\xbf", "\xf0\x8f\xbf\xbf",          // longer than needed
        "\xed\xa0\x80", "\xed\xbf\xbf",                               // surrogates
        "\xf4\x90\x80\x80",                                           // past U+10FFFF
    };
    std::string piece = kPieces[rng() % kPieces.size()];
    if (rng() % 4 == 0) piece += static_cast<char>(1 + rng() % 255);  // any byte but NUL
    std::replace(piece.begin(), piece.end(), '/', '_');
    return piece;
}

TEST_F(Tool, JsonOfArbitraryByteNamesIsTheReplacingDumpInByteOrder) {
    std::mt19937 rng(20240611u);
    TempDir dir;
    std::set<std::string> names;  // in byte order
    while (names.size() < 140) {
        std::string name;
        for (int k = 1 + static_cast<int>(rng() % 6); k > 0; --k) name += NamePiece(rng);
        if (names.insert(name + ".wav").second) dir.write(name + ".wav", SmallWav());
    }
    // Names may start with a dot: --hidden walks those too.
    const ToolRun run = RunTool("--record --json --hidden " + dir.path().string());
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_GT(run.out.size(), 65536u);  // more than the tool's output buffer holds
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), names.size());
    size_t k = 0;
    for (const std::string& name : names) {
        EXPECT_EQ(lines[k++], DumpLine(Expected(dir.file(name))));
    }
}

TEST_F(Tool, DirectoryEntriesAreWalkedInByteOrderOfTheirNames) {
    TempDir dir;
    for (const char* name : {"ab.wav", "aB.wav", "a.b.wav", "a-b.wav", "a b.wav", "a0.wav", "B.wav", "a/z.wav",
                             "notes.txt"}) {
        fs::create_directories((dir.path() / name).parent_path());
        dir.write(name, SmallWav());
    }
    // A link to a file is listed under its own name; links to directories
    // are passed over, and a link that leads nowhere is reported on
    // standard error and fails the run.
    fs::create_symlink(dir.file("ab.wav"), dir.file("link.wav"));
    fs::create_directory_symlink(dir.file("a"), dir.file("link-dir"));
    fs::create_symlink(dir.file("gone.wav"), dir.file("dangling.wav"));
    const ToolRun run = RunTool("--record --json " + dir.path().string(), dir.file("stderr.txt"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: " + dir.file("dangling.wav") + ": No such file or directory\n");
    std::vector<std::string> paths;
    for (const std::string& line : Lines(run.out)) paths.push_back(nlohmann::json::parse(line)["path"]);
    const std::vector<std::string> expected = {
        dir.file("B.wav"),   dir.file("a/z.wav"), dir.file("a b.wav"), dir.file("a-b.wav"), dir.file("a.b.wav"),
        dir.file("a0.wav"),  dir.file("aB.wav"),  dir.file("ab.wav"),  dir.file("link.wav"),
    };
    EXPECT_EQ(paths, expected);
    // The same order as comparing the paths themselves.
    std::vector<fs::path> asPaths(expected.begin(), expected.end());
    std::vector<fs::path> sorted = asPaths;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::find(sorted.begin(), sorted.end(), fs::path(dir.file("a/z.wav"))));
    asPaths.erase(asPaths.begin() + 1);
    EXPECT_EQ(sorted, asPaths);
}

TEST_F(Tool, DirectoryGivenWithATrailingSlashGetsNoSecondOne) {
    TempDir dir;
    const std::string path = dir.write("one.wav", SmallWav());
    const ToolRun run = RunTool("--record --json " + dir.path().string() + "/");
    EXPECT_EQ(run.out, DumpLine(Expected(path)));
}

// A device whose WAV entry allows at most 4000 Hz, written with the texts
// of the limit as given.
std::string SlowWavCaps(const TempDir& dir, const std::string& limit) {
    const std::string text = DeviceWith("WAV", CapsBuilder().limit("MaximumSampleRate", limit).str());
    return dir.write("caps.plist", Bytes(text.begin(), text.end()));
}

TEST_F(Tool, ExplainGivesEveryFileItsOwnVerdictKeys) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir, "4000");
    const std::string refused = Example("tone-mono.wav");  // 8000 Hz
    const std::string played = Example("chord-8s.wav");    // 4000 Hz
    const ToolRun run = RunTool("--record --json --explain --device " + caps + " " + refused + " " + played + " " + refused);
    EXPECT_EQ(run.exitCode, 0);
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 3u) << run.out;
    ordered_json no = Expected(refused);
    no["playable"] = false;
    no["refused_by"] = "MaximumSampleRate";
    no["explanation"] = "requirement MaximumSampleRate = \"4000\" refuses it (sampleRate 8000)";
    ordered_json yes = Expected(played);
    yes["playable"] = true;
    yes["refused_by"] = nullptr;
    yes["explanation"] = nullptr;
    EXPECT_EQ(lines[0], DumpLine(no));
    EXPECT_EQ(lines[1], DumpLine(yes));
    EXPECT_EQ(lines[2], DumpLine(no));
}

TEST_F(Tool, VerdictWithoutExplainAddsOnlyPlayable) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir, "4000");
    const ToolRun run = RunTool("--record --json --device " + caps + " " + Example("tone-mono.wav") + " " + Example("chord-8s.wav"));
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 2u) << run.out;
    ordered_json no = Expected(Example("tone-mono.wav"));
    no["playable"] = false;
    ordered_json yes = Expected(Example("chord-8s.wav"));
    yes["playable"] = true;
    EXPECT_EQ(lines[0], DumpLine(no));
    EXPECT_EQ(lines[1], DumpLine(yes));
}

TEST_F(Tool, ExplanationTextsFromTheDeviceAreEscapedAndMadeUtf8) {
    TempDir dir;
    const std::string limit = "4000\x01\"\\\xff";
    const std::string caps = SlowWavCaps(dir, limit);
    const ToolRun run = RunTool("--record --json --explain --device " + caps + " " + Example("tone-mono.wav"));
    EXPECT_EQ(run.exitCode, 0);
    ordered_json no = Expected(Example("tone-mono.wav"));
    no["playable"] = false;
    no["refused_by"] = "MaximumSampleRate";
    no["explanation"] = "requirement MaximumSampleRate = \"" + limit + "\" refuses it (sampleRate 8000)";
    EXPECT_EQ(run.out, DumpLine(no));
    EXPECT_NE(run.out.find("= \\\"4000\\u0001\\\"\\\\\xef\xbf\xbd\\\" refuses"), std::string::npos) << run.out;
}

TEST_F(Tool, ReadBackAfterSetIsTheJsonLineOfTheWrittenFile) {
    TempDir dir;
    const std::string path = dir.file("song.mp3");
    fs::copy_file(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-id3v2.mp3", path);
    const ToolRun run = RunTool("--record --json --writer library --force --no-backup --set title=Caf\xc3\xa9\\\\ " + path);
    ASSERT_EQ(run.exitCode, 0) << run.out;
    const std::vector<std::string> lines = Lines(run.out);
    ASSERT_EQ(lines.size(), 1u) << run.out;
    EXPECT_NE(lines[0].find("\"title\":\"Caf\xc3\xa9\\\\\","), std::string::npos) << lines[0];
    EXPECT_EQ(lines[0], DumpLine(Expected(path)));
}

}  // namespace
