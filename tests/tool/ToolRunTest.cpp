// fileinfo runs: walks and the paths they pass over, errors with the
// system's reason, path lists, parallel loads in sequential order, special
// files that must not block, the progress line, Ctrl-C, and the command's
// own options.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Mp4Builder.h"
#include "TestFiles.h"
#include "ToolParse.h"
#include "ToolRun.h"

namespace fs = std::filesystem;

namespace {

std::string Example(const char* name) { return std::string(FILEINFO_EXAMPLES_DIR) + "/" + name; }
const std::string kExamples = FILEINFO_EXAMPLES_DIR;
const std::string kFixtures = FILEINFO_FIXTURES_DIR;
const std::string kTool = FILEINFO_TOOL_PATH;

std::vector<std::string> PathsOf(const std::string& out) {
    std::vector<std::string> paths;
    for (const auto& line : JsonLines(out)) paths.push_back(line["path"]);
    return paths;
}

// A folder of a few copies of the examples.
void CopyExamples(const TempDir& dir, const std::string& sub = "") {
    fs::create_directories(dir.path() / sub);
    for (const char* name : {"chord-8s.wav", "tone-mono.wav", "chord-vbr.mp3"}) {
        fs::copy_file(Example(name), dir.path() / sub / name);
    }
}

TEST_F(Tool, JobsGiveTheSameBytesAsOneJob) {
    for (const char* format : {"--json", "--format list", "--format csv", "--format table"}) {
        const std::string paths = kFixtures + " " + kExamples + " " + kFixtures;
        const ToolRun one = RunTool(std::string(format) + " --jobs 1 " + paths);
        const ToolRun four = RunTool(std::string(format) + " --jobs 4 " + paths);
        const ToolRun many = RunTool(std::string(format) + " --jobs 16 " + paths);
        EXPECT_GT(one.out.size(), 1000u) << format;
        EXPECT_EQ(one.out, four.out) << format;
        EXPECT_EQ(one.out, many.out) << format;
        EXPECT_EQ(one.exitCode, four.exitCode);
    }
}

TEST_F(Tool, JobsOfZeroIsAUsageError) {
    EXPECT_EQ(RunTool("--jobs 0 " + kExamples).exitCode, 2);
}

TEST_F(Tool, MissingPathIsReportedWithTheSystemsReason) {
    TempDir dir;
    const ToolRun run = RunTool("/nonexistent/file.wav " + Example("chord-8s.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: /nonexistent/file.wav: No such file or directory\n");
    EXPECT_EQ(run.out.rfind(Example("chord-8s.wav") + "\n", 0), 0u);  // the run goes on
}

TEST_F(Tool, SymbolicLinkLoopIsReportedAsSuch) {
    TempDir dir;
    fs::create_symlink(dir.file("b.wav"), dir.file("a.wav"));
    fs::create_symlink(dir.file("a.wav"), dir.file("b.wav"));
    const ToolRun run = RunTool(dir.file("a.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: " + dir.file("a.wav") + ": Too many levels of symbolic links\n");
}

TEST_F(Tool, NameTooLongIsReportedAsSuch) {
    TempDir dir;
    const std::string path = dir.file(std::string(300, 'n') + ".wav");
    const ToolRun run = RunTool(path, dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: " + path + ": File name too long\n");
}

// The tool as a user who may not read everything: as root, through setpriv
// as nobody.
std::string AsUser() { return geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : ""; }

TEST_F(Tool, UnreadableFolderAndFileAreReportedAsPermissionDenied) {
    TempDir dir;
    chmod(dir.path().c_str(), 0755);
    CopyExamples(dir, "locked");
    fs::copy_file(Example("chord-8s.wav"), dir.file("secret.wav"));
    chmod(dir.file("locked").c_str(), 0);
    chmod(dir.file("secret.wav").c_str(), 0);
    int status = -1;
    TempDir logs;
    chmod(logs.path().c_str(), 0777);
    const std::string out = Shell(AsUser() + kTool + " --json " + dir.path().string() + " 2>" + logs.file("err"), &status);
    chmod(dir.file("locked").c_str(), 0755);
    EXPECT_EQ(status, 1);
    const Bytes err = ReadAll(logs.file("err"));
    EXPECT_EQ(std::string(err.begin(), err.end()), "fileinfo: " + dir.file("locked") + ": Permission denied\n"
                                                   "fileinfo: " + dir.file("secret.wav") + ": Permission denied\n");
    // The file the library could not open keeps its line, with status 5.
    const std::vector<nlohmann::json> lines = JsonLines(out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0]["status"], 5);
}

TEST_F(Tool, CompressedMovieThatCannotBeInflatedIsWarnedAboutWithTheReason) {
    if (geteuid() != 0 && access("/", W_OK) == 0) GTEST_SKIP() << "this user may create /temp.bin";
    TempDir dir;
    chmod(dir.path().c_str(), 0755);
    const Bytes video = VideoTrak(VisualEntry("avc1", 320, 240, AvcC(77, 0x40, 31, 0x67)),
                                  Stsz(0, 4, {1000, 2000, 3000, 4000}), 600, 6000);
    const Bytes moov = Moov({Mvhd(600, 6000), video});
    const std::string movie = dir.write("movie.mov", Cat({Ftyp("qt  "), CompressedMoov(moov), Filler("mdat", 5000)}));
    chmod(movie.c_str(), 0644);
    int status = -1;
    const std::string out = Shell(AsUser() + kTool + " --json " + movie + " 2>" + dir.file("err"), &status);
    const Bytes err = ReadAll(dir.file("err"));
    const std::string warning = "the compressed movie header could not be inflated: /temp.bin: Permission denied";
    EXPECT_EQ(std::string(err.begin(), err.end()), "fileinfo: " + movie + ": " + warning + "\n");
    const std::vector<nlohmann::json> lines = JsonLines(out);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].value("warnings", nlohmann::json()), nlohmann::json::array({warning}));
    // The record is what the library gives; the status decides the exit.
    EXPECT_EQ(status, lines[0]["status"] == 1 ? 0 : 1);
}

TEST_F(Tool, WalkPassesOverOtherExtensionsAndHiddenNamesInSilence) {
    TempDir dir;
    TempDir logs;
    CopyExamples(dir);
    CopyExamples(dir, ".cache");
    dir.write("notes.txt", Bytes(3, 'x'));
    dir.write("cover.jpg", Bytes(3, 'x'));
    fs::copy_file(Example("tone-mono.wav"), dir.file(".hidden.wav"));
    const ToolRun run = RunTool("--json " + dir.path().string(), logs.file("err"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(PathsOf(run.out), (std::vector<std::string>{dir.file("chord-8s.wav"), dir.file("chord-vbr.mp3"),
                                                          dir.file("tone-mono.wav")}));
    const ToolRun hidden = RunTool("--json --hidden " + dir.path().string());
    EXPECT_EQ(PathsOf(hidden.out),
              (std::vector<std::string>{dir.file(".cache/chord-8s.wav"), dir.file(".cache/chord-vbr.mp3"),
                                        dir.file(".cache/tone-mono.wav"), dir.file(".hidden.wav"),
                                        dir.file("chord-8s.wav"), dir.file("chord-vbr.mp3"), dir.file("tone-mono.wav")}));
}

TEST_F(Tool, ExtLimitsAWalkToTheGivenExtensions) {
    TempDir dir;
    CopyExamples(dir);
    EXPECT_EQ(PathsOf(RunTool("--json --ext mp3 " + dir.path().string()).out),
              std::vector<std::string>{dir.file("chord-vbr.mp3")});
    EXPECT_EQ(PathsOf(RunTool("--json --ext .WAV,mp3 " + dir.path().string()).out),
              (std::vector<std::string>{dir.file("chord-8s.wav"), dir.file("chord-vbr.mp3"), dir.file("tone-mono.wav")}));
    // Files named on the command line are never filtered.
    EXPECT_EQ(PathsOf(RunTool("--json --ext mp3 " + dir.file("tone-mono.wav")).out),
              std::vector<std::string>{dir.file("tone-mono.wav")});
    const nlohmann::json summary =
        JsonLines(RunTool("--json --summary-only --ext mp3 " + dir.path().string()).out).at(0)["summary"];
    EXPECT_EQ(summary["skipped"], nlohmann::json({{"extension not selected", 2}}));
}

TEST_F(Tool, DashReadsPathsFromStandardInputOnePerLine) {
    TempDir dir;
    const std::string list = Example("chord-8s.wav") + "\n\n" + Example("tone-mono.wav") + "\n";
    dir.write("list", Bytes(list.begin(), list.end()));
    const ToolRun run = RunTool("--json " + Example("chord-vbr.mp3") + " - < " + dir.file("list"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(PathsOf(run.out), (std::vector<std::string>{Example("chord-vbr.mp3"), Example("chord-8s.wav"),
                                                          Example("tone-mono.wav")}));
}

TEST_F(Tool, FromReadsNulSeparatedPathsWithMinusZero) {
    TempDir dir;
    fs::copy_file(Example("tone-mono.wav"), dir.file("line\nbreak.wav"));
    fs::copy_file(Example("chord-8s.wav"), dir.file("plain.wav"));
    Shell("find " + dir.path().string() + " -name '*.wav' -print0 | sort -z > " + dir.file("list0"));
    const std::string out = RunTool("--json -0 --from " + dir.file("list0")).out;
    EXPECT_EQ(PathsOf(out), (std::vector<std::string>{dir.file("line\nbreak.wav"), dir.file("plain.wav")}));
}

TEST_F(Tool, UnreadableListIsReportedWithTheSystemsReason) {
    TempDir dir;
    const ToolRun run = RunTool("--from /nonexistent/list", dir.file("err"));
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "fileinfo: /nonexistent/list: No such file or directory\n");
}

TEST_F(Tool, NamedFifoIsReportedAndSkippedWithoutBlocking) {
    TempDir dir;
    ASSERT_EQ(mkfifo(dir.file("pipe.mp3").c_str(), 0600), 0);
    int status = -1;
    Shell("timeout 20 " + kTool + " " + dir.file("pipe.mp3") + " " + Example("chord-8s.wav") + " >" + dir.file("out") +
              " 2>" + dir.file("err"),
          &status);
    EXPECT_EQ(status, 1);
    const Bytes err = ReadAll(dir.file("err"));
    EXPECT_EQ(std::string(err.begin(), err.end()),
              "fileinfo: " + dir.file("pipe.mp3") + ": a FIFO, not a regular file: skipped\n");
    const Bytes out = ReadAll(dir.file("out"));
    EXPECT_EQ(std::string(out.begin(), out.end()).rfind(Example("chord-8s.wav") + "\n", 0), 0u);
}

TEST_F(Tool, FifoAndDeviceLinkInATreeAreReportedAndTheWalkGoesOn) {
    TempDir dir;
    CopyExamples(dir);
    ASSERT_EQ(mkfifo(dir.file("b-pipe.wav").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", dir.file("c-zero.mp3"));
    int status = -1;
    TempDir logs;
    Shell("timeout 20 " + kTool + " --json " + dir.path().string() + " >" + logs.file("out") + " 2>" + logs.file("err"),
          &status);
    EXPECT_EQ(status, 0);
    const Bytes err = ReadAll(logs.file("err"));
    EXPECT_EQ(std::string(err.begin(), err.end()),
              "fileinfo: " + dir.file("b-pipe.wav") + ": a FIFO, not a regular file: skipped\n"
              "fileinfo: " + dir.file("c-zero.mp3") + ": a character device, not a regular file: skipped\n");
    const Bytes out = ReadAll(logs.file("out"));
    EXPECT_EQ(PathsOf(std::string(out.begin(), out.end())).size(), 3u);
}

TEST_F(Tool, NoProgressWhenStandardErrorIsNoTerminal) {
    TempDir dir;
    const ToolRun run = RunTool("--json " + kExamples + " " + kFixtures, dir.file("err"));
    EXPECT_EQ(run.err, "");
}

TEST_F(Tool, ProgressForcedOffATerminalLeavesItsLastStateAsALine) {
    TempDir dir;
    const ToolRun run = RunTool("--progress --json " + kExamples, dir.file("err"));
    EXPECT_NE(run.err.find("fileinfo: 9 of 9 files"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.back(), '\n');
    EXPECT_EQ(run.err.find('\r'), std::string::npos);
}

TEST_F(Tool, ProgressOnATerminalIsOneLineRedrawnAndClearedAtTheEnd) {
    // script gives the tool a terminal for its standard error; the output
    // itself goes to a file.
    TempDir dir;
    const std::string screen = Shell("script -qec '" + kTool + " --progress --json " + kExamples + " >" +
                                     dir.file("out") + "' /dev/null");
    EXPECT_NE(screen.find("\rfileinfo: "), std::string::npos) << screen;
    EXPECT_NE(screen.find(" files\x1b[K"), std::string::npos) << screen;
    EXPECT_EQ(screen.substr(screen.size() - 4), "\r\x1b[K") << screen;
    const std::string quiet = Shell("script -qec '" + kTool + " --no-progress --json " + kExamples + " >" +
                                    dir.file("out") + "' /dev/null");
    EXPECT_EQ(quiet, "");
}

TEST_F(Tool, InterruptStopsAfterAWholeJsonLine) {
    TempDir dir;
    for (int k = 0; k < 400; ++k) fs::copy_file(Example("tone-mono.wav"), dir.file("f" + std::to_string(1000 + k) + ".wav"));
    // A reader that drains the pipe slowly keeps the tool writing when the
    // signal comes.
    const std::string script = "mkfifo " + dir.file("pipe") + "\n" +
                               "(exec 3<" + dir.file("pipe") + "; sleep 1; cat <&3 >" + dir.file("out") + ") &\n" +
                               kTool + " --json --jobs 2 " + dir.path().string() + " >" + dir.file("pipe") +
                               " 2>" + dir.file("err") + " &\n"
                               "tool=$!\nsleep 0.3\nkill -INT $tool\nwait $tool\necho $?\nwait\n";
    dir.write("run.sh", Bytes(script.begin(), script.end()));
    const std::string status = Shell("bash " + dir.file("run.sh"));
    EXPECT_EQ(status, "130\n");
    const Bytes out = ReadAll(dir.file("out"));
    const std::string text(out.begin(), out.end());
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), '\n');
    const size_t lines = JsonLines(text).size();
    EXPECT_GT(lines, 0u);
    EXPECT_LT(lines, 400u);
    const Bytes err = ReadAll(dir.file("err"));
    EXPECT_EQ(std::string(err.begin(), err.end()), "fileinfo: interrupted\n");
}

TEST_F(Tool, InterruptWithSummaryPrintsTheSummaryOfWhatWasDoneMarkedInterrupted) {
    TempDir dir;
    TempDir logs;  // apart: files without an extension in the tree are read
    for (int k = 0; k < 400; ++k) fs::copy_file(Example("tone-mono.wav"), dir.file("f" + std::to_string(1000 + k) + ".wav"));
    const std::string script = "mkfifo " + logs.file("pipe") + "\n" +
                               "(exec 3<" + logs.file("pipe") + "; sleep 1; cat <&3 >" + logs.file("out") + ") &\n" +
                               kTool + " --json --summary --jobs 2 " + dir.path().string() + " >" + logs.file("pipe") +
                               " 2>" + logs.file("err") + " &\n"
                               "tool=$!\nsleep 0.3\nkill -INT $tool\nwait $tool\necho $?\nwait\n";
    logs.write("run.sh", Bytes(script.begin(), script.end()));
    EXPECT_EQ(Shell("bash " + logs.file("run.sh")), "130\n");
    const Bytes out = ReadAll(logs.file("out"));
    const auto lines = JsonLines(std::string(out.begin(), out.end()));
    ASSERT_GT(lines.size(), 1u);
    const nlohmann::json summary = lines.back()["summary"];
    EXPECT_EQ(summary["interrupted"], true);
    EXPECT_EQ(summary["loaded"], lines.size() - 1);  // every file shown, and no other, is counted
    EXPECT_LT(lines.size() - 1, 400u);
    const Bytes err = ReadAll(logs.file("err"));
    EXPECT_EQ(std::string(err.begin(), err.end()), "fileinfo: interrupted\n");
}

TEST_F(Tool, VersionNamesTheToolAndTheLibrary) {
    const ToolRun run = RunTool("--version");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, "fileinfo " FILEINFO_TEST_VERSION " (libFileInfo " FILEINFO_TEST_VERSION ")\n");
}

TEST_F(Tool, UnknownOptionSuggestsTheNearestOne) {
    TempDir dir;
    const ToolRun run = RunTool("--summry " + kExamples, dir.file("err"));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "fileinfo: unknown option --summry; did you mean --summary?\n"
                       "Run with --help for more information.\n");
    const ToolRun far = RunTool("--zzzzzzzz " + kExamples, dir.file("err"));
    EXPECT_EQ(far.err, "fileinfo: unknown option --zzzzzzzz\nRun with --help for more information.\n");
}

TEST_F(Tool, EveryUsageErrorStartsWithTheToolsName) {
    TempDir dir;
    for (const char* args : {"", "--format xml x", "--explain x", "--summary --summary-only x", "--jobs two x"}) {
        const ToolRun run = RunTool(args, dir.file("err"));
        EXPECT_EQ(run.exitCode, 2) << args;
        EXPECT_EQ(run.err.rfind("fileinfo: ", 0), 0u) << args << ": " << run.err;
    }
}

TEST_F(Tool, HelpListsTheOptionsAndExitsZero) {
    const ToolRun run = RunTool("--help");
    EXPECT_EQ(run.exitCode, 0);
    for (const char* option : {"--format", "--fields", "--summary", "--jobs", "--device", "--only", "--from", "--set"}) {
        EXPECT_NE(run.out.find(option), std::string::npos) << option;
    }
}

}  // namespace
