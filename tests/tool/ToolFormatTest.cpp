// fileinfo --format, --fields and --summary: every view read back with a
// real parser, the summary's counts against the lines of the same run.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "CapsBuilder.h"
#include "MediaFileInfo.h"
#include "TestFiles.h"
#include "ToolParse.h"
#include "ToolRun.h"

namespace {

namespace fs = std::filesystem;

std::string Example(const char* name) { return std::string(FILEINFO_EXAMPLES_DIR) + "/" + name; }
const std::string kExamples = FILEINFO_EXAMPLES_DIR;
const std::string kFixtures = FILEINFO_FIXTURES_DIR;

const std::vector<std::string> kDefaultColumns = {
    "path",     "status",      "identified", "fileType", "audioCodec", "audioFormat", "videoFormat", "durationMs",
    "bitRate",  "sampleRate",  "channelMode", "width",   "height",     "title",       "artist"};

TEST_F(Tool, CsvHasAHeaderAndOneRowPerFileWithMachineValues) {
    const ToolRun run = RunTool("--record --format csv " + kExamples);
    EXPECT_EQ(run.exitCode, 0);
    const Rows rows = CsvRows(run.out);
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[0], kDefaultColumns);
    const std::vector<std::string> chord = {Example("chord-8s.wav"), "1", "true", "WAV", "", "PCM", "", "8000",
                                            "32000", "4000", "Stero", "0", "0", "chord-8s", ""};
    EXPECT_EQ(rows[1], chord);
    // The ADTS stream keeps the record's empty fileType in machine formats.
    EXPECT_EQ(rows[4][0], Example("tone-stereo.aac"));
    EXPECT_EQ(rows[4][3], "");
    EXPECT_EQ(rows[4][2], "true");
}

TEST_F(Tool, CsvLinesEndInCrLfAndQuoteWhatNeedsIt) {
    TempDir dir;
    std::filesystem::copy_file(Example("tone-mono.wav"), dir.file("a,\"b\" c.wav"));
    const ToolRun run = RunTool("--record --format csv --fields path,title '" + dir.path().string() + "'");
    EXPECT_EQ(run.out, "path,title\r\n\"" + dir.file("a,\"\"b\"\" c.wav") + "\",\"a,\"\"b\"\" c\"\r\n");
    const Rows rows = CsvRows(run.out);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[1][0], dir.file("a,\"b\" c.wav"));
    EXPECT_EQ(rows[1][1], "a,\"b\" c");
}

TEST_F(Tool, TsvEscapesTabsAndLineBreaksAndParsesBackToTheCsvValues) {
    TempDir dir;
    std::filesystem::copy_file(Example("tone-mono.wav"), dir.file("tab\there\nnew.wav"));
    std::filesystem::copy_file(Example("chord-8s.wav"), dir.file("plain.wav"));
    const ToolRun tsv = RunTool("--record --format tsv " + dir.path().string());
    const ToolRun csv = RunTool("--record --format csv " + dir.path().string());
    EXPECT_NE(tsv.out.find("tab\\there\\nnew.wav\t"), std::string::npos) << tsv.out;
    const Rows tsvRows = TsvRows(tsv.out);
    ASSERT_EQ(tsvRows.size(), 3u);
    EXPECT_EQ(tsvRows, CsvRows(csv.out));
}

TEST_F(Tool, FieldsChooseTheColumnsOfEveryFormat) {
    const std::string args = " --fields path,durationMs,is_audio,fileType " + Example("chord-8s.wav");
    EXPECT_EQ(RunTool("--record --format csv" + args).out,
              "path,durationMs,is_audio,fileType\r\n" + Example("chord-8s.wav") + ",8000,true,WAV\r\n");
    EXPECT_EQ(RunTool("--record --format tsv" + args).out,
              "path\tdurationMs\tis_audio\tfileType\n" + Example("chord-8s.wav") + "\t8000\ttrue\tWAV\n");
    EXPECT_EQ(RunTool("--record --format json" + args).out,
              "{\"path\":\"" + Example("chord-8s.wav") + "\",\"durationMs\":8000,\"is_audio\":true,\"fileType\":\"WAV\"}\n");
    const std::string list = RunTool("--record --format list" + args).out;
    EXPECT_NE(list.find("\n  durationMs: 8000 (0:08.000)\n  fileType: \"WAV\"\n"), std::string::npos) << list;
    EXPECT_EQ(list.find("sampleRate"), std::string::npos) << list;
    const std::string table = RunTool("--record --format table" + args).out;
    EXPECT_EQ(table.substr(0, table.find('\n')), "path                                      durationMs  is_audio    fileType");
}

TEST_F(Tool, FieldsWithoutADeviceGiveNullVerdicts) {
    EXPECT_EQ(RunTool("--record --json --fields playable,refused_by " + Example("chord-8s.wav")).out,
              "{\"playable\":null,\"refused_by\":null}\n");
}

TEST_F(Tool, UnknownFieldIsAUsageErrorListingTheValidOnes) {
    TempDir dir;
    const ToolRun run = RunTool("--record --fields path,bitrate " + Example("chord-8s.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("fileinfo: --fields: no field is called \"bitrate\"; did you mean bitRate? The fields are "
                            "path, status, is_audio, is_video, has_tags, identified, playable, refused_by, "
                            "library_playable, library_refused_by, record_differs; the reading's type, aac_format, ",
                            0),
              0u)
        << run.err;
    EXPECT_NE(run.err.find("; the record's isVbr, trackNumber, "), std::string::npos);
    EXPECT_NE(run.err.find(", comment, composer (record.title and so on where a name is the reading's too)\n"),
              std::string::npos);
}

TEST_F(Tool, UnknownFormatIsAUsageError) {
    EXPECT_EQ(RunTool("--record --format xml " + Example("chord-8s.wav")).exitCode, 2);
}

TEST_F(Tool, DefaultFormatOffATerminalIsTheListing) {
    EXPECT_EQ(RunTool("--record " + Example("chord-8s.wav")).out, RunTool("--record --format list " + Example("chord-8s.wav")).out);
}

TEST_F(Tool, DefaultFormatOnATerminalIsTheTable) {
    // script gives the tool a terminal for its standard output.
    const std::string out = Shell("COLUMNS=200 script -qec '" + std::string(FILEINFO_TOOL_PATH) + " " +
                                  Example("chord-8s.wav") + "' /dev/null");
    EXPECT_EQ(out.rfind("PATH ", 0), 0u) << out;
    EXPECT_NE(out.find("chord-8s.wav"), std::string::npos) << out;
}

TEST_F(Tool, ListingLeavesOutVideoFieldsOfAudioFilesUnlessAllFields) {
    const std::string audio = RunTool("--record --format list " + Example("chord-8s.wav")).out;
    EXPECT_EQ(audio.find("  width:"), std::string::npos);
    EXPECT_EQ(audio.find("  videoFormat:"), std::string::npos);
    EXPECT_EQ(audio.find("  frameRate:"), std::string::npos);
    EXPECT_NE(audio.find("  sampleRate: 4000\n"), std::string::npos);
    const std::string all = RunTool("--record --format list --all-fields " + Example("chord-8s.wav")).out;
    EXPECT_NE(all.find("  width: 0\n"), std::string::npos);
    EXPECT_NE(all.find("  videoFormat: \"\"\n"), std::string::npos);
    const std::string movie = RunTool("--record --format list " + kFixtures + "/mp4/h264-baseline.mp4").out;
    EXPECT_NE(movie.find("  width: "), std::string::npos) << movie;
    EXPECT_NE(movie.find("  videoFormat: \"H264 Baseline@L3\"\n"), std::string::npos) << movie;
}

TEST_F(Tool, TableShowsShortReadableColumns) {
    const ToolRun run = RunTool("--record --format table " + kExamples);
    EXPECT_EQ(run.exitCode, 0);
    std::vector<std::string> lines;
    size_t start = 0, end;
    while ((end = run.out.find('\n', start)) != std::string::npos) {
        lines.push_back(run.out.substr(start, end - start));
        start = end + 1;
    }
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[0],
              "PATH                                      TYPE          CODEC             DURATION   KBIT/S     KHZ  CH      "
              "W\xC3\x97H        TITLE                     ARTIST");
    // The ADTS stream is shown as AAC; 44100 Hz as 44.1 kHz; 11025 Hz as 11.025.
    EXPECT_NE(lines[4].find("AAC           MPEG Version 4     0:00:01     64.3    44.1  Stero"), std::string::npos)
        << lines[4];
    EXPECT_NE(lines[5].find("AIFF          Audio IFF          0:00:00    352.8  11.025  Stero"), std::string::npos)
        << lines[5];
}

TEST_F(Tool, TableShowsPictureSizeOfMovies) {
    const ToolRun run = RunTool("--record --format table " + kFixtures + "/mp4/h264-baseline.mp4");
    EXPECT_NE(run.out.find("H.264LC       H264 Baseline@L3"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\xC3\x97"), run.out.rfind("\xC3\x97")) << run.out;  // the heading's and the size's
}

TEST_F(Tool, UnidentifiedFilesAreLabelledInEveryFormat) {
    TempDir dir;
    const std::string junk = dir.write("noise.mp3", Bytes(600, 0x11));
    EXPECT_EQ(RunTool("--record --json " + junk).exitCode, 0);
    EXPECT_EQ(JsonLines(RunTool("--record --json " + junk).out)[0]["identified"], false);
    EXPECT_EQ(CsvRows(RunTool("--record --format csv " + junk).out)[1][2], "false");
    EXPECT_EQ(TsvRows(RunTool("--record --format tsv " + junk).out)[1][2], "false");
    EXPECT_NE(RunTool("--record --format table " + junk).out.find("  unidentified"), std::string::npos);
    EXPECT_NE(RunTool("--record --format list " + junk).out.find("  status: 1 (success, but no reader identified the file)\n"),
              std::string::npos);
}

TEST_F(Tool, StrictCountsUnidentifiedFilesAsFailures) {
    TempDir dir;
    const std::string junk = dir.write("noise.mp3", Bytes(600, 0x11));
    EXPECT_EQ(RunTool("--record --strict " + junk).exitCode, 1);
    EXPECT_EQ(RunTool("--record --strict " + Example("chord-8s.wav")).exitCode, 0);
}

// The counts of a summary object, summed over the lines of the same run.
TEST_F(Tool, SummaryCountsEqualThePerFileLines) {
    TempDir dir;
    dir.write("notes.txt", Bytes(5, 'x'));
    dir.write(".hidden.wav", Bytes(5, 'x'));
    dir.write("noise.mp3", Bytes(600, 0x11));
    dir.write("short.wav", Bytes(4, 'x'));
    const ToolRun run = RunTool("--record --json --summary " + kExamples + " " + kFixtures + " " + dir.path().string());
    EXPECT_EQ(run.exitCode, 1);  // short.wav did not load
    std::vector<nlohmann::json> lines = JsonLines(run.out);
    ASSERT_GE(lines.size(), 2u);
    const nlohmann::json summary = lines.back()["summary"];
    lines.pop_back();
    unsigned long identified = 0, unidentified = 0, failed = 0, bytes = 0;
    std::map<std::string, unsigned long> types, durations;
    for (const nlohmann::json& line : lines) {
        ASSERT_FALSE(line.contains("summary"));
        // A name the library has no reader for (".aifc") is read by its
        // bytes alone: at worst unidentified, never failed.
        const std::string path = line["path"];
        const bool libraryName = MediaFileHasReader(path.c_str()) != 0;
        if (line["identified"] == true) {
            ++identified;
        } else if (line["status"] == 1 || !libraryName) {
            ++unidentified;
        } else {
            ++failed;
        }
        if (line["record"].is_object()) bytes += line["record"]["fileSize"].get<unsigned long>();
    }
    EXPECT_EQ(summary["loaded"], identified);
    EXPECT_EQ(summary["unidentified"], unidentified);
    EXPECT_EQ(summary["unidentified"], unidentified);
    unsigned long failedInSummary = 0;
    for (const auto& [text, n] : summary["failed"].items()) failedInSummary += n.get<unsigned long>();
    EXPECT_EQ(failedInSummary, failed);
    EXPECT_EQ(summary["failed"], nlohmann::json({{"cannot stat, or file too short", 1}}));
    // notes.txt, the example host's two sources and the Dask example; the
    // two .aifc fixtures are read by their bytes.
    EXPECT_EQ(summary["skipped"], nlohmann::json({{"extension not read", 4}, {"hidden", 1}}));
    EXPECT_EQ(summary["unreadable"], nlohmann::json::object());
    EXPECT_EQ(summary["bytes"], bytes);
    unsigned long typed = 0;
    for (const auto& [type, total] : summary["types"].items()) typed += total["files"].get<unsigned long>();
    EXPECT_EQ(typed, identified);
    EXPECT_EQ(summary["types"]["WAV"], nlohmann::json({{"files", 2}, {"duration_ms", 8000}}));
    EXPECT_TRUE(summary["seconds"].is_number());
}

TEST_F(Tool, SummaryOnlyPrintsTheSummaryAlone) {
    const ToolRun json = RunTool("--record --json --summary-only " + kExamples);
    const std::vector<nlohmann::json> lines = JsonLines(json.out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["summary"]["loaded"], 6);
    const ToolRun text = RunTool("--record --summary-only " + kExamples);
    // The example host's two sources and the Dask example are skipped.
    EXPECT_EQ(text.out.rfind("summary:\n  files:      6 loaded, 0 unidentified, 0 failed, 3 skipped, 0 unreadable\n"
                                "  skipped:    3 extension not read\n", 0),
              0u)
        << text.out;
    EXPECT_NE(text.out.find("\n  type AAC: 2 files, 0:00:02\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("\n  type WAV: 2 files, 0:00:08\n"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("\n  size:       "), std::string::npos);
    EXPECT_NE(text.out.find("\n  time:       "), std::string::npos);
}

TEST_F(Tool, SummaryOfCsvAndTsvGoesToStandardErrorSoTheRowsStayOneTable) {
    TempDir dir;
    for (const char* format : {"csv", "tsv"}) {
        const ToolRun run = RunTool(std::string("--format ") + format + " --summary " + Example("chord-8s.wav"),
                                    dir.file("err"));
        EXPECT_EQ(run.exitCode, 0);
        const std::string rowEnd = std::string(format) == "csv" ? "\r\n" : "\n";
        EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 2) << run.out;  // the heading and one row
        EXPECT_EQ(run.out.find("summary"), std::string::npos) << run.out;
        EXPECT_EQ(run.err.rfind("summary:\n  files:      1 loaded, 0 unidentified, 0 failed, 0 skipped, 0 unreadable\n", 0),
                  0u)
            << run.err;
    }
}

TEST_F(Tool, SummaryFollowsTheRowsOfTheListingAndTheTable) {
    for (const char* format : {"list", "table"}) {
        const ToolRun run = RunTool(std::string("--format ") + format + " --summary " + Example("chord-8s.wav"));
        EXPECT_NE(run.out.find("\nsummary:\n  files:      1 loaded,"), std::string::npos) << run.out;
    }
}

TEST_F(Tool, SummaryFileHoldsTheSummaryAndTheOutputOnlyTheRows) {
    TempDir dir;
    const ToolRun csv = RunTool("--format csv --summary-file " + dir.file("sum.txt") + " " + kExamples, dir.file("err"));
    EXPECT_EQ(csv.exitCode, 0);
    EXPECT_EQ(csv.err, "");
    EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 7) << csv.out;  // heading and six files
    const Bytes text = ReadAll(dir.file("sum.txt"));
    EXPECT_EQ(std::string(text.begin(), text.end())
                  .rfind("summary:\n  files:      6 loaded, 0 unidentified, 0 failed, 3 skipped, 0 unreadable\n", 0),
              0u);
    const ToolRun json = RunTool("--json --summary-only --summary-file " + dir.file("sum.json") + " " + kExamples);
    EXPECT_EQ(json.out, "");
    const Bytes line = ReadAll(dir.file("sum.json"));
    EXPECT_EQ(nlohmann::json::parse(std::string(line.begin(), line.end()))["summary"]["loaded"], 6);
    // Written under a temporary name and renamed: nothing else is left.
    size_t entries = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) entries += e.path().filename() != "err";
    EXPECT_EQ(entries, 2u);
}

TEST_F(Tool, SummaryFileThatCannotBeWrittenIsReportedAndFailsTheRun) {
    TempDir dir;
    const ToolRun run =
        RunTool("--format csv --summary-file " + dir.file("missing/sum.txt") + " " + Example("chord-8s.wav"),
                dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: " + dir.file("missing/sum.txt") + ": No such file or directory\n");
}

TEST_F(Tool, EmptyFileIsCalledAnEmptyFile) {
    TempDir dir;
    dir.write("empty.mp3", Bytes());
    const ToolRun run = RunTool("--summary " + dir.file("empty.mp3"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.out.find("\n  status: 6 (cannot stat, or file too short: empty file)\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\n  failed:     1 empty file\n"), std::string::npos) << run.out;
    EXPECT_EQ(run.err, "fileinfo: " + dir.file("empty.mp3") + ": empty file\n");
}

TEST_F(Tool, FieldInTheWrongCaseSuggestsTheRightOne) {
    TempDir dir;
    const ToolRun run = RunTool("--fields path,durationms " + Example("chord-8s.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err.rfind("fileinfo: --fields: no field is called \"durationms\"; did you mean durationMs? The fields "
                            "are path, ",
                            0),
              0u)
        << run.err;
}

// A device whose WAV entry allows at most 4000 Hz: chord-8s.wav plays,
// tone-mono.wav (8000 Hz) does not, and the others' types are not listed.
std::string SlowWavCaps(const TempDir& dir) {
    const std::string text = DeviceWith("WAV", CapsBuilder().limit("MaximumSampleRate", 4000).str());
    return dir.write("caps.plist", Bytes(text.begin(), text.end()));
}

TEST_F(Tool, SummaryWithADeviceCountsPlayableFilesAndRefusalsByKey) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir);
    const ToolRun run = RunTool("--record --json --summary-only --device " + caps + " " + kExamples);
    const nlohmann::json summary = JsonLines(run.out).at(0)["summary"];
    EXPECT_EQ(summary["playable"], 1);
    EXPECT_EQ(summary["unplayable"], 5);
    EXPECT_EQ(summary["refused_by"], nlohmann::json({{"MaximumSampleRate", 1},
                                                     {"the device lists no AAC type", 1},
                                                     {"the device lists no AIFF type", 1},
                                                     {"the device lists no MP3 type", 1},
                                                     {"the file has no file type to look up (ADTS streams carry none)", 1}}));
    const ToolRun text = RunTool("--record --summary-only --device " + caps + " " + kExamples);
    EXPECT_NE(text.out.find("\n  device:     1 playable, 5 unplayable\n  refused by: 1 MaximumSampleRate, "),
              std::string::npos)
        << text.out;
}

TEST_F(Tool, OnlyFiltersByTheVerdict) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir);
    const auto paths = [&](const std::string& only) {
        std::vector<std::string> shown;
        for (const auto& line : JsonLines(RunTool("--record --json --only " + only + " --device " + caps + " " + kExamples).out))
            shown.push_back(line["path"]);
        return shown;
    };
    EXPECT_EQ(paths("playable"), std::vector<std::string>{Example("chord-8s.wav")});
    const std::vector<std::string> unplayable = paths("unplayable");
    EXPECT_EQ(unplayable.size(), 5u);
    EXPECT_EQ(unplayable.front(), Example("chord-vbr.mp3"));
    EXPECT_EQ(RunTool("--record --only sometimes --device " + caps + " " + kExamples).exitCode, 2);
    EXPECT_EQ(RunTool("--record --only playable " + kExamples).exitCode, 2);  // needs --device
}

TEST_F(Tool, FailUnplayableExitsThreeWhenAFileIsNotPlayable) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir);
    EXPECT_EQ(RunTool("--record --fail-unplayable --device " + caps + " " + Example("tone-mono.wav")).exitCode, 3);
    EXPECT_EQ(RunTool("--record --fail-unplayable --device " + caps + " " + Example("chord-8s.wav")).exitCode, 0);
    EXPECT_EQ(RunTool("--record --device " + caps + " " + Example("tone-mono.wav")).exitCode, 0);
    // A failure to load outweighs it.
    const std::string shortWav = dir.write("short.wav", Bytes(4, 'x'));
    EXPECT_EQ(RunTool("--record --fail-unplayable --device " + caps + " " + shortWav).exitCode, 1);
}

TEST_F(Tool, CapabilityFileWithoutADictIsAUsageErrorWithTheReason) {
    TempDir dir;
    const ToolRun run = RunTool("--record --device " + Example("chord-vbr.mp3") + " " + Example("chord-8s.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "fileinfo: " + Example("chord-vbr.mp3") + ": holds no <dict>: not a capability list\n");
}

TEST_F(Tool, UnidentifiedFileIsExplainedAsSuch) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir);
    const std::string junk = dir.write("noise.mp3", Bytes(600, 0x11));
    const nlohmann::json j = JsonLines(RunTool("--record --json --explain --device " + caps + " " + junk).out).at(0);
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["explanation"], "the file was not identified");
    EXPECT_TRUE(j["refused_by"].is_null());
}

TEST_F(Tool, TableAndCsvCarryTheVerdict) {
    TempDir dir;
    const std::string caps = SlowWavCaps(dir);
    const Rows rows = CsvRows(RunTool("--record --format csv --device " + caps + " " + Example("tone-mono.wav")).out);
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0].back(), "refused_by");
    EXPECT_EQ(rows[1][rows[1].size() - 2], "false");
    EXPECT_EQ(rows[1].back(), "MaximumSampleRate");
    const std::string table = RunTool("--record --format table --explain --device " + caps + " " + Example("tone-mono.wav")).out;
    EXPECT_NE(table.find("DEVICE\n"), std::string::npos) << table;
    EXPECT_NE(table.find("  no: MaximumSampleRate\n"), std::string::npos) << table;
}

}  // namespace
