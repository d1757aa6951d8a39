// The tool shows the reading of each file by default, the library's record
// beside it in JSON, and the record alone, as before readings, under
// --record. Expected readings are the fixtures' real values (ffprobe's).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "CapsBuilder.h"
#include "Id3Builder.h"
#include "Mp3Builder.h"
#include "TestFiles.h"
#include "ToolRun.h"
#include "WavBuilder.h"

namespace {

std::string Example(const char* name) { return std::string(FILEINFO_EXAMPLES_DIR) + "/" + name; }
std::string PlayerCapsPath() { return std::string(FILEINFO_EXAMPLES_DIR) + "/../devices/player-caps.plist"; }

nlohmann::json JsonLine(const std::string& arguments) {
    const ToolRun run = RunTool("--json " + arguments);
    EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << run.out;
    return nlohmann::json::parse(run.out);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Characters of a UTF-8 line: every one of ours takes one column.
size_t Columns(const std::string& line) {
    size_t n = 0;
    for (const char c : line) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return n;
}

// The record_differs entry of a field, or null.
nlohmann::json Differs(const nlohmann::json& line, const std::string& field) {
    for (const nlohmann::json& d : line["record_differs"])
        if (d["field"] == field) return d;
    return nullptr;
}

// A 15-second WAV: 8000 Hz, mono, 8-bit. The record counts WAV durations
// in 8-second units.
std::string FifteenSecondWav(const TempDir& dir) {
    WavFields f;
    f.channels = 1;
    f.sampleRate = 8000;
    f.bitsPerSample = 8;
    f.dataBytes = 15 * 8000;
    f.writeData = true;
    return dir.write("fifteen.wav", BuildWav(f));
}

// An MP3 whose only tag is an ID3v2.4 tag, its title in UTF-8: 100 frames of MPEG 1 Layer III,
// 128 kbit/s, 44.1 kHz (417 bytes each, 1152 samples: 2612 ms).
std::string Id3v2OnlyMp3(const TempDir& dir, const std::string& name, const std::string& title) {
    Id3v2Fields tag;
    tag.majorVersion = 4;
    Bytes utf8Title = {3};  // text encoding 3: UTF-8
    utf8Title.insert(utf8Title.end(), title.begin(), title.end());
    tag.frames = {RawFrame("TIT2", utf8Title), TextFrame("TPE1", "Reading Artist")};
    return dir.write(name, Join({BuildId3v2(tag), Mp3Frames(Mp3Header{}, 417, 100)}));
}

class EnvironmentColumns {
public:
    explicit EnvironmentColumns(const char* value) { setenv("COLUMNS", value, 1); }
    ~EnvironmentColumns() { unsetenv("COLUMNS"); }
};

// ---- --record: the record's views, byte for byte as before readings ----

TEST_F(Tool, RecordOptionGivesTheRecordsListingCsvTsvAndJsonAsBeforeReadings) {
    const std::string p = Example("tone-mono.wav");
    EXPECT_EQ(RunTool("--record --format list " + p).out,
              p + "\n  status: 1 (success)\n  audio: yes, video: no, tags: no\n  isVbr: 0\n  trackNumber: 0\n"
                  "  bitsPerSample: 0\n  fileSize: 16044\n  sampleRate: 8000\n  bitRate: 128000 (128.0 kbit/s)\n"
                  "  durationMs: 0 (0:00.000)\n  fileType: \"WAV\"\n  audioCodec: \"\"\n  audioFormat: \"PCM\"\n"
                  "  spareText: \"\"\n  channelMode: \"Mono\"\n  title: \"tone-mono\"\n  artist: \"\"\n  album: \"\"\n"
                  "  genre: \"\"\n  lyrics: \"\"\n  year: \"\"\n  comment: \"\"\n  composer: \"\"\n");
    EXPECT_EQ(RunTool("--record --format csv " + p).out,
              "path,status,identified,fileType,audioCodec,audioFormat,videoFormat,durationMs,bitRate,sampleRate,"
              "channelMode,width,height,title,artist\r\n" +
                  p + ",1,true,WAV,,PCM,,0,128000,8000,Mono,0,0,tone-mono,\r\n");
    EXPECT_EQ(RunTool("--record --format tsv " + p).out,
              "path\tstatus\tidentified\tfileType\taudioCodec\taudioFormat\tvideoFormat\tdurationMs\tbitRate\t"
              "sampleRate\tchannelMode\twidth\theight\ttitle\tartist\n" +
                  p + "\t1\ttrue\tWAV\t\tPCM\t\t0\t128000\t8000\tMono\t0\t0\ttone-mono\t\n");
    EXPECT_EQ(RunTool("--record --json " + p).out,
              "{\"path\":\"" + p +
                  "\",\"status\":1,\"status_text\":\"success\",\"is_audio\":true,\"is_video\":false,"
                  "\"has_tags\":false,\"identified\":true,\"record\":{\"isVbr\":0,\"trackNumber\":0,\"level\":0,"
                  "\"profile\":0,\"profileLevelId\":0,\"bitsPerSample\":0,\"height\":0,\"width\":0,\"fileSize\":16044,"
                  "\"frameRate\":0,\"sampleRate\":8000,\"bitRate\":128000,\"peakBitRate\":0,\"durationMs\":0,"
                  "\"fileType\":\"WAV\",\"audioCodec\":\"\",\"audioFormat\":\"PCM\",\"videoFormat\":\"\","
                  "\"spareText\":\"\",\"channelMode\":\"Mono\",\"title\":\"tone-mono\",\"artist\":\"\",\"album\":\"\","
                  "\"genre\":\"\",\"lyrics\":\"\",\"year\":\"\",\"comment\":\"\",\"composer\":\"\"}}\n");
}

TEST_F(Tool, RecordOptionGivesTheRecordsTableAsBeforeReadings) {
    const std::string p = Example("tone-mono.wav");
    const std::vector<std::string> lines = Lines(RunTool("--record --format table " + p).out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              "PATH                                      TYPE          CODEC             DURATION   KBIT/S     KHZ  "
              "CH      W\xC3\x97H        TITLE                     ARTIST");
    const std::string path = p.size() > 40 ? "\xE2\x80\xA6" + p.substr(p.size() - 39) : p + std::string(40 - p.size(), ' ');
    EXPECT_EQ(lines[1], path + "  WAV           PCM                0:00:00      128       8  Mono               tone-mono");
}

TEST_F(Tool, RecordOptionJudgesWithTheLibraryAlone) {
    const nlohmann::json j = JsonLine("--record --explain --device " + PlayerCapsPath() + " " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], true);
    EXPECT_FALSE(j.contains("media"));
    EXPECT_FALSE(j.contains("verdict"));
    EXPECT_FALSE(j.contains("library_verdict"));
    EXPECT_FALSE(j.contains("record_differs"));
}

// ---- JSON: the reading beside the record ----

TEST_F(Tool, JsonLineCarriesTheReadingBesideTheUnchangedRecord) {
    const std::string p = Example("tone-mono.wav");
    const nlohmann::json j = JsonLine(p);
    const nlohmann::json record = JsonLine("--record " + p)["record"];
    EXPECT_EQ(j["record"], record);
    const nlohmann::json& m = j["media"];
    EXPECT_EQ(m["type"], "WAV");
    EXPECT_EQ(m["audio_codec"], "PCM");
    EXPECT_EQ(m["video_codec"], nullptr);
    EXPECT_EQ(m["sample_rate"], 8000);
    EXPECT_EQ(m["channels"], 1);
    EXPECT_EQ(m["bits_per_sample"], 16);
    EXPECT_EQ(m["duration_ms"], 1000);
    EXPECT_EQ(m["duration_estimated"], false);
    EXPECT_EQ(m["size"], 16044);
    EXPECT_EQ(m["tags"], nlohmann::json::parse(R"({"title":null,"artist":null,"album":null,"genre":null,
        "year":null,"track":null,"track_total":null,"comment":null,"composer":null})"));
}

TEST_F(Tool, JsonLineGivesEveryReadingKeyEvenForAnUnidentifiedFile) {
    TempDir dir;
    const std::string junk = dir.write("noise.mp3", Bytes(3000, 0x55));
    const nlohmann::json j = JsonLine(junk);
    EXPECT_EQ(j["media"]["type"], nullptr);
    EXPECT_EQ(j["media"]["size"], 3000);
    EXPECT_EQ(j["media"].size(), 23u);  // 22 stream fields and the tags
    EXPECT_EQ(j["media"]["tags"].size(), 9u);
    // Nothing to compare the record with.
    EXPECT_EQ(j["record_differs"], nullptr);
}

TEST_F(Tool, RecordDiffersOnAWavGivesTheDurationOfEightSecondUnitsBesideTheReal) {
    TempDir dir;
    const nlohmann::json j = JsonLine(FifteenSecondWav(dir));
    EXPECT_EQ(j["record"]["durationMs"], 8000);
    EXPECT_EQ(Differs(j, "durationMs"), nlohmann::json::parse(R"({"field":"durationMs","record":8000,"reading":15000})"));
    // The record's title is the file's name; the file holds none.
    EXPECT_EQ(Differs(j, "title"), nlohmann::json::parse(R"({"field":"title","record":"fifteen","reading":null})"));
    EXPECT_EQ(Differs(j, "sampleRate"), nullptr);
    EXPECT_EQ(Differs(j, "fileSize"), nullptr);
}

TEST_F(Tool, RecordDiffersOnAnExampleWavListsTitleDurationAndBitDepth) {
    const nlohmann::json j = JsonLine(Example("tone-mono.wav"));
    std::vector<std::string> fields;
    for (const nlohmann::json& d : j["record_differs"]) fields.push_back(d["field"]);
    EXPECT_EQ(fields, (std::vector<std::string>{"title", "durationMs", "bitsPerSample"}));
    EXPECT_EQ(Differs(j, "bitsPerSample"), nlohmann::json::parse(R"({"field":"bitsPerSample","record":0,"reading":16})"));
}

TEST_F(Tool, RecordDiffersOnAnId3v2OnlyMp3GivesTheFileNameBesideTheTitle) {
    TempDir dir;
    const nlohmann::json j = JsonLine(Id3v2OnlyMp3(dir, "song.mp3", "Reading Title"));
    // The library copies tags only with an ID3v1 trailer: its title is the file's name.
    EXPECT_EQ(j["record"]["title"], "song");
    EXPECT_EQ(j["media"]["tags"]["title"], "Reading Title");
    EXPECT_EQ(Differs(j, "title"), nlohmann::json::parse(R"({"field":"title","record":"song","reading":"Reading Title"})"));
    EXPECT_EQ(Differs(j, "artist"), nlohmann::json::parse(R"({"field":"artist","record":"","reading":"Reading Artist"})"));
}

TEST_F(Tool, RecordDiffersOnAnUntaggedMp3GivesTheFileNameBesideNoTitle) {
    TempDir dir;
    const std::string p = dir.write("untagged.mp3", Mp3Frames(Mp3Header{}, 417, 100));
    const nlohmann::json j = JsonLine(p);
    EXPECT_EQ(j["media"]["type"], "MP3");
    EXPECT_EQ(Differs(j, "title"), nlohmann::json::parse(R"({"field":"title","record":"untagged","reading":null})"));
}

TEST_F(Tool, JsonWithADeviceGivesTheReadingsVerdictAndTheLibrarysBeside) {
    const nlohmann::json j = JsonLine("--explain --device " + PlayerCapsPath() + " " + Example("tone-mono.wav"));
    ASSERT_TRUE(j.contains("verdict"));
    ASSERT_TRUE(j.contains("library_verdict"));
    EXPECT_EQ(j["library_verdict"], nlohmann::json::parse(R"({"playable":true,"refused_by":null})"));
    EXPECT_TRUE(j["verdict"]["refused_by"].is_array());
    // The top-level verdict is the reading's, its first refusing key as text.
    EXPECT_EQ(j["playable"], j["verdict"]["playable"]);
    EXPECT_EQ(j["refused_by"], j["verdict"]["refused_by"].empty() ? nlohmann::json() : j["verdict"]["refused_by"][0]);
    EXPECT_EQ(j["verdict"]["playable"], true);
}

// ---- --fields: the reading's names and the record's ----

TEST_F(Tool, FieldsTakeTheReadingsNamesAndTheRecords) {
    const ToolRun run =
        RunTool("--json --fields path,type,duration_ms,durationMs,fileType,title,record.title,media.size " +
                Example("tone-mono.wav"));
    ASSERT_EQ(run.exitCode, 0);
    const nlohmann::json j = nlohmann::json::parse(run.out);
    EXPECT_EQ(j.size(), 8u);
    EXPECT_EQ(j["durationMs"], 0);
    EXPECT_EQ(j["fileType"], "WAV");
    EXPECT_EQ(j["record.title"], "tone-mono");
    EXPECT_EQ(j["media.size"], 16044);
    EXPECT_EQ(j["title"], nullptr);  // the reading's: the file holds no title
    EXPECT_EQ(j["type"], "WAV");
    EXPECT_EQ(j["duration_ms"], 1000);
}

TEST_F(Tool, FieldsUnderRecordTakeTheRecordsOwnNamesFirst) {
    const ToolRun run = RunTool("--record --format csv --fields title,duration_ms " + Example("tone-mono.wav"));
    EXPECT_EQ(run.out.substr(0, run.out.find('\n')), "title,duration_ms\r");
    EXPECT_EQ(run.out.substr(run.out.find('\n') + 1, 10), "tone-mono,");
}

// ---- csv, tsv, list and table show the reading ----

TEST_F(Tool, CsvShowsTheReadingsColumnsByDefault) {
    const std::vector<std::string> lines = Lines(RunTool("--format csv " + Example("tone-mono.wav")).out);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0],
              "path,status,identified,type,audio_codec,video_codec,duration_ms,bit_rate,sample_rate,channels,"
              "bits_per_sample,width,height,title,artist,album,record_differs\r");
    EXPECT_EQ(lines[1], Example("tone-mono.wav") +
                            ",1,true,WAV,PCM,,1000,128000,8000,1,16,0,0,,,,\"title,durationMs,bitsPerSample\"\r");
}

TEST_F(Tool, ListingShowsTheReadingAndSaysWhereTheRecordDiffers) {
    const std::string out = RunTool("--format list " + Example("tone-mono.wav")).out;
    EXPECT_NE(out.find("\n  type: \"WAV\"\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  channels: 1 (mono)\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  duration_ms: 1000 (0:01.000)\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  record differs: durationMs 0, read 1000\n"), std::string::npos) << out;
    EXPECT_NE(out.find("\n  record differs: title \"tone-mono\", read none\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("channelMode"), std::string::npos) << out;
}

TEST_F(Tool, TableSaysMonoAndStereoForChannelCounts) {
    EnvironmentColumns columns("160");
    const std::vector<std::string> lines =
        Lines(RunTool("--format table " + Example("tone-mono.wav") + " " + Example("chord-8s.wav")).out);
    ASSERT_EQ(lines.size(), 3u);
    // Neither file holds a title or an artist: the channels end the line.
    EXPECT_EQ(lines[1].substr(lines[1].size() - 6), "  mono") << lines[1];
    EXPECT_EQ(lines[2].substr(lines[2].size() - 8), "  stereo") << lines[2];
    EXPECT_EQ(lines[2].find("Stero"), std::string::npos) << lines[2];
}

// A folder with a long path and files whose titles and artists are long.
struct LongNames {
    TempDir dir;
    std::string folder;
    LongNames() {
        folder = dir.file("a-folder-with-a-rather-long-name-that-goes-on-and-on");
        std::filesystem::create_directory(folder);
        TempDir unused;
        for (int k = 0; k < 3; ++k) {
            const std::string title = "A Title Far Too Long For Any Column Of The Table, Number " + std::to_string(k);
            Id3v2Fields tag;
            tag.majorVersion = 4;
            tag.frames = {TextFrame("TIT2", title), TextFrame("TPE1", "An Artist Whose Name Is Also Much Too Long")};
            const Bytes bytes = Join({BuildId3v2(tag), Mp3Frames(Mp3Header{}, 417, 20)});
            std::ofstream out(folder + "/song-with-a-long-file-name-" + std::to_string(k) + ".mp3", std::ios::binary);
            out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
    }
};

TEST_F(Tool, TableFitsEightyColumnsDroppingPictureRateColumnsAndCuttingTitles) {
    LongNames names;
    EnvironmentColumns columns("80");
    const std::vector<std::string> lines = Lines(RunTool("--format table " + names.folder).out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "PATH              TYPE  CODEC         DURATION  CH      TITLE         ARTIST");
    for (const std::string& line : lines) EXPECT_LE(Columns(line), 80u) << line;
    // The path is cut at its start, the title and artist at their ends.
    EXPECT_EQ(lines[1], "\xE2\x80\xA6" "file-name-0.mp3  MP3   MP3            0:00:00  stereo  A Title Far\xE2\x80\xA6  "
                        "An Artist\xE2\x80\xA6");
}

TEST_F(Tool, TableOfOneHundredSixtyColumnsWidensTitleArtistThenThePath) {
    LongNames names;
    EnvironmentColumns columns("160");
    const std::vector<std::string> lines = Lines(RunTool("--format table " + names.folder).out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "PATH                                      TYPE  CODEC          DURATION  KBIT/S     KHZ  CH      "
                        "W\xC3\x97H        TITLE                           ARTIST");
    for (const std::string& line : lines) EXPECT_LE(Columns(line), 160u) << line;
    EXPECT_NE(lines[1].find("  A Title Far Too Long For Any \xE2\x80\xA6  An Artist Whose Nam\xE2\x80\xA6"),
              std::string::npos)
        << lines[1];
    // The path takes the 40 columns the others leave, cut at its start.
    EXPECT_EQ(lines[1].substr(0, 42), "\xE2\x80\xA6" "and-on/song-with-a-long-file-name-0.mp3");
}

TEST_F(Tool, TableOfFortyColumnsStillNeverWraps) {
    LongNames names;
    EnvironmentColumns columns("40");
    const std::vector<std::string> lines = Lines(RunTool("--format table " + names.folder).out);
    ASSERT_EQ(lines.size(), 4u);
    for (const std::string& line : lines) EXPECT_LE(Columns(line), 40u) << line;
}

TEST_F(Tool, TableWithoutATerminalOrColumnsIsEightyWide) {
    LongNames names;
    unsetenv("COLUMNS");
    const std::vector<std::string> lines = Lines(RunTool("--format table " + names.folder).out);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "PATH              TYPE  CODEC         DURATION  CH      TITLE         ARTIST");
}

TEST_F(Tool, TableWithADeviceKeepsTheVerdictWithinTheWidth) {
    LongNames names;
    EnvironmentColumns columns("80");
    const std::vector<std::string> lines =
        Lines(RunTool("--format table --explain --device " + PlayerCapsPath() + " " + names.folder).out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].substr(lines[0].size() - 6), "DEVICE");
    for (const std::string& line : lines) EXPECT_LE(Columns(line), 80u) << line;
}

// ---- Summary: counted by the reading ----

TEST_F(Tool, SummaryCountsTypesAndDurationsByTheReading) {
    TempDir dir;
    FifteenSecondWav(dir);
    const ToolRun run = RunTool("--json --summary-only " + dir.path().string());
    const nlohmann::json s = nlohmann::json::parse(run.out)["summary"];
    EXPECT_EQ(s["types"], nlohmann::json::parse(R"({"WAV":{"files":1,"duration_ms":15000}})"));
    EXPECT_EQ(s["record_differs"]["durationMs"], 1);
    EXPECT_EQ(s["bytes"], 44 + 15 * 8000);
}

}  // namespace

namespace {

// ---- The device: the verdict on the reading, the library's beside it ----

// A device whose MP3 entry refuses sample rates above 32 kHz.
std::string SlowMp3Device(const TempDir& dir) {
    const std::string caps =
        "<plist><dict>\n<key>MP3</key>\n<dict>\n<key>MaximumSampleRate</key>\n<integer>32000</integer>\n</dict>\n"
        "</dict></plist>\n";
    return dir.write("caps.plist", Bytes(caps.begin(), caps.end()));
}

TEST_F(Tool, JsonGivesEveryRefusingKeyOfTheReadingInWordsAndTheLibrarysVerdict) {
    TempDir dir;
    const nlohmann::json j = JsonLine("--explain --device " + SlowMp3Device(dir) + " " +
                                      std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3");
    EXPECT_EQ(j["verdict"], nlohmann::json::parse(R"({"playable":false,"refused_by":["MaximumSampleRate"],
        "explanation":"sample rate 44.1 kHz is above the device's 32 kHz"})"));
    EXPECT_EQ(j["library_verdict"], nlohmann::json::parse(R"({"playable":false,"refused_by":"MaximumSampleRate"})"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["refused_by"], "MaximumSampleRate");
    EXPECT_EQ(j["explanation"], "sample rate 44.1 kHz is above the device's 32 kHz");
}

TEST_F(Tool, OnlyAndTheTableFollowTheVerdictOnTheReading) {
    TempDir dir;
    const std::string caps = SlowMp3Device(dir);
    const std::string fast = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3";      // 44.1 kHz
    const std::string slow = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-id3v2.mp3";  // 32 kHz
    const ToolRun only = RunTool("--format csv --fields path,playable,refused_by --only unplayable --device " + caps +
                                 " " + fast + " " + slow);
    EXPECT_EQ(only.out, "path,playable,refused_by\r\n" + fast + ",false,MaximumSampleRate\r\n");
    EnvironmentColumns columns("160");
    const std::vector<std::string> lines =
        Lines(RunTool("--format table --explain --device " + caps + " " + fast + " " + slow).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].substr(lines[1].size() - 21), "no: MaximumSampleRate");
    EXPECT_EQ(lines[2].substr(lines[2].size() - 3), "yes");
}

TEST_F(Tool, SummaryCountsRefusalsOfTheReadingByKey) {
    TempDir dir;
    const ToolRun run = RunTool("--json --summary-only --device " + SlowMp3Device(dir) + " " +
                                std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3");
    const nlohmann::json s = nlohmann::json::parse(run.out)["summary"];
    EXPECT_EQ(s["unplayable"], 1);
    EXPECT_EQ(s["refused_by"], nlohmann::json::parse(R"({"MaximumSampleRate":1})"));
    EXPECT_EQ(s["types"], nlohmann::json::parse(R"({"MP3":{"files":1,"duration_ms":2038}})"));
}

}  // namespace

namespace {

TEST_F(Tool, TableCountsWideCharactersAsTwoColumns) {
    TempDir dir;
    // Japanese kana and kanji: three bytes each in UTF-8, two columns each on a terminal.
    const std::string title = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x82\xBF\xE3\x82\xA4\xE3\x83\x88"
                              "\xE3\x83\xAB\xE3\x81\x8C\xE9\x95\xB7\xE3\x81\x84";
    Id3v2OnlyMp3(dir, "wide.mp3", title);
    EnvironmentColumns columns("80");
    const std::vector<std::string> lines = Lines(RunTool("--format table " + dir.path().string()).out);
    ASSERT_EQ(lines.size(), 2u);
    // Five of them fill ten of the title's twelve columns; a sixth would not leave room for "…".
    const std::string cut = title.substr(0, 15) + "\xE2\x80\xA6";
    ASSERT_NE(lines[1].find("  " + cut + "   Reading A\xE2\x80\xA6"), std::string::npos) << lines[1];
    size_t width = 0;
    for (const char c : lines[1]) {
        const unsigned char b = static_cast<unsigned char>(c);
        if ((b & 0xC0) != 0x80) width += b >= 0xE3 && b <= 0xE9 ? 2 : 1;
    }
    EXPECT_LE(width, 80u) << lines[1];
}

}  // namespace

namespace {

TEST_F(Tool, ListingOfChosenFieldsShowsTheReadingsAndTheRecordsNames) {
    const std::string p = std::string(FILEINFO_FIXTURES_DIR) + "/mp3/tagged-eyed3.mp3";
    EXPECT_EQ(RunTool("--format list --fields type,durationMs,record.title,title,album " + p).out,
              p + "\n  status: 1 (success)\n  type: \"MP3\"\n  durationMs: 2115\n  record.title: \"tagged-eyed3\"\n"
                  "  title: \"Eye Title\"\n  album: \"Eye Album\"\n");
}

}  // namespace
