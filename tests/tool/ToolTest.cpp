#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "ToolRun.h"

namespace {

TEST_F(Tool, JsonLineHoldsTheWholeRecordOfAnExample) {
    const std::string path = std::string(FILEINFO_EXAMPLES_DIR) + "/tone-mono.wav";
    const ToolRun run = RunTool("--json " + path);
    ASSERT_EQ(run.exitCode, 0);
    const nlohmann::json j = nlohmann::json::parse(run.out);
    EXPECT_EQ(j["path"], path);
    EXPECT_EQ(j["status"], 1);
    EXPECT_EQ(j["is_audio"], true);
    EXPECT_EQ(j["is_video"], false);
    EXPECT_EQ(j["has_tags"], false);
    const nlohmann::json& r = j["record"];
    EXPECT_EQ(r.size(), 28u);
    EXPECT_EQ(r["fileType"], "WAV");
    EXPECT_EQ(r["audioFormat"], "PCM");
    EXPECT_EQ(r["channelMode"], "Mono");
    EXPECT_EQ(r["sampleRate"], 8000);
    EXPECT_EQ(r["bitRate"], 128000);
    EXPECT_EQ(r["durationMs"], 0);  // one second rounds down to the 8-second unit
    EXPECT_EQ(r["fileSize"], 16044);
    EXPECT_EQ(r["title"], "tone-mono");
}

TEST_F(Tool, UnreadablePathExitsOne) {
    const ToolRun run = RunTool("/nonexistent/file.wav");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_F(Tool, NoArgumentsIsAUsageError) {
    const ToolRun run = RunTool("");
    EXPECT_EQ(run.exitCode, 2);
}

TEST_F(Tool, DirectoryIsWalkedInSortedOrder) {
    const ToolRun run = RunTool(std::string("--json ") + FILEINFO_EXAMPLES_DIR);
    std::vector<std::string> paths;
    size_t start = 0, end;
    while ((end = run.out.find('\n', start)) != std::string::npos) {
        paths.push_back(nlohmann::json::parse(run.out.substr(start, end - start))["path"]);
        start = end + 1;
    }
    ASSERT_GE(paths.size(), 2u);
    EXPECT_TRUE(std::is_sorted(paths.begin(), paths.end()));
}

}  // namespace

namespace {

TEST_F(Tool, LibraryWarningsGoToStandardErrorNotIntoTheJsonLines) {
    // An atom size of FFFFFFFF makes the MP4 reader's ReadWord print its
    // warning on the process's standard output.
    TempDir dir;
    ByteWriter w;
    w.be32(0xFFFFFFFFu).str("ftyp").str("qt  ").fill(4096);
    const std::string p = dir.write("warn.mp4", w.take());
    const std::string errors = dir.file("stderr.txt");
    const ToolRun run = RunTool("--json " + p, errors);
    EXPECT_EQ(run.out.find("ReadWord"), std::string::npos);
    EXPECT_NO_THROW(nlohmann::json::parse(run.out));
    const Bytes err = ReadAll(errors);
    EXPECT_NE(std::string(err.begin(), err.end()).find("ReadWord warning!"), std::string::npos);
}

}  // namespace

namespace {

TEST_F(Tool, SkippedFilesBetweenFullOnesLeaveEachLineItsOwn) {
    // A named file that no reader takes gives no line, only a message on
    // standard error; the lines around it are whole and in order.
    TempDir dir;
    const std::string unknown = dir.write("notes.xyz", Bytes(3, 'a'));
    const std::string mono = std::string(FILEINFO_EXAMPLES_DIR) + "/tone-mono.wav";
    const std::string stereo = std::string(FILEINFO_EXAMPLES_DIR) + "/chord-8s.wav";
    const ToolRun run = RunTool("--json " + mono + " " + unknown + " " + stereo + " " + unknown + " " + mono,
                                dir.file("stderr.txt"));
    EXPECT_EQ(run.exitCode, 1);
    std::vector<nlohmann::json> lines;
    size_t start = 0, end;
    while ((end = run.out.find('\n', start)) != std::string::npos) {
        lines.push_back(nlohmann::json::parse(run.out.substr(start, end - start)));
        start = end + 1;
    }
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["record"]["channelMode"], "Mono");
    EXPECT_EQ(lines[1]["record"]["channelMode"], "Stero");
    EXPECT_EQ(lines[1]["record"]["title"], "chord-8s");
    EXPECT_EQ(lines[1]["record"].size(), 28u);
    EXPECT_EQ(lines[2]["record"]["title"], "tone-mono");
    EXPECT_EQ(lines[2]["record"]["fileSize"], 16044);
    const std::string message = "fileinfo: " + unknown + ": extension .xyz is not read\n";
    EXPECT_EQ(run.err, message + message);
}

}  // namespace
