#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

#include "CapsBuilder.h"
#include "MediaFileInfo.h"
#include "Mutation.h"
#include "TestFiles.h"
#include "ToolParse.h"
#include "ToolRun.h"

namespace {

std::string Example(const char* name) { return std::string(FILEINFO_EXAMPLES_DIR) + "/" + name; }
std::string PlayerCapsPath() { return std::string(FILEINFO_EXAMPLES_DIR) + "/../devices/player-caps.plist"; }

std::string WriteCaps(const TempDir& dir, const std::string& text) {
    return dir.write("caps.plist", Bytes(text.begin(), text.end()));
}

nlohmann::json JsonOf(const std::string& arguments) {
    const ToolRun run = RunTool("--record --json " + arguments);
    EXPECT_EQ(run.exitCode, 0) << arguments;
    return nlohmann::json::parse(run.out);
}

// A device whose WAV entry allows at most 4000 Hz.
std::string SlowWavDevice() {
    return DeviceWith("WAV", CapsBuilder().flag("Mono", true).limit("MaximumSampleRate", 4000).str());
}

TEST_F(Tool, ExamplePlayerPlaysTheExampleFiles) {
    const ToolRun run = RunTool("--record --device " + PlayerCapsPath() + " " + Example("tone-mono.wav"));
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("\n  device: playable\n"), std::string::npos) << run.out;
}

TEST_F(Tool, DeviceListIsFoundByNameFromAnyFolder) {
    // From the build tree the source tree's devices/ is searched.
    TempDir dir;
    const std::string command = "cd " + dir.path().string() + " && " + FILEINFO_TOOL_PATH;
    const std::string byName = Shell(command + " --device player-caps --json --fields playable " + Example("tone-mono.wav"));
    EXPECT_EQ(byName, "{\"playable\":true}\n");
    EXPECT_EQ(Shell(command + " --device player-caps.plist --json --fields playable " + Example("tone-mono.wav")),
              byName);
}

TEST_F(Tool, DeviceListFolderCanBeNamedInTheEnvironment) {
    TempDir dir;
    const std::string caps = SlowWavDevice();
    dir.write("slow.plist", Bytes(caps.begin(), caps.end()));
    EXPECT_EQ(Shell("FILEINFO_DEVICES=/nonexistent:" + dir.path().string() + " " + FILEINFO_TOOL_PATH +
                    " --json --fields playable --device slow " + Example("tone-mono.wav")),
              "{\"playable\":false}\n");
}

TEST_F(Tool, UnknownDeviceNameIsAUsageErrorNamingTheKnownLists) {
    TempDir dir;
    const ToolRun run = RunTool("--device no-such-player " + Example("tone-mono.wav"), dir.file("err"));
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "fileinfo: no-such-player: No such file or directory; device lists by name: player-caps\n");
}

TEST_F(Tool, JsonGainsPlayable) {
    const nlohmann::json j = JsonOf("--device " + PlayerCapsPath() + " " + Example("chord-8s.wav"));
    EXPECT_EQ(j["playable"], true);
    EXPECT_FALSE(j.contains("explanation"));
    EXPECT_FALSE(j.contains("refused_by"));
    EXPECT_EQ(j["record"]["fileType"], "WAV");
}

TEST_F(Tool, JsonSaysNotPlayableAndWhy) {
    TempDir dir;
    const std::string caps = WriteCaps(dir, SlowWavDevice());
    nlohmann::json j = JsonOf("--device " + caps + " " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_FALSE(j.contains("explanation"));
    j = JsonOf("--device " + caps + " --explain " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["refused_by"], "MaximumSampleRate");
    EXPECT_EQ(j["explanation"], "requirement MaximumSampleRate = \"4000\" refuses it (sampleRate 8000)");
    // chord-8s.wav is a 4000 Hz file: within the limit.
    j = JsonOf("--device " + caps + " --explain " + Example("chord-8s.wav"));
    EXPECT_EQ(j["playable"], true);
    EXPECT_TRUE(j["refused_by"].is_null());
    EXPECT_TRUE(j["explanation"].is_null());
}

TEST_F(Tool, ExplainNamesTheRefusingKeyInText) {
    TempDir dir;
    const std::string caps = WriteCaps(dir, SlowWavDevice());
    const ToolRun run = RunTool("--record --device " + caps + " --explain " + Example("tone-mono.wav"));
    EXPECT_EQ(run.exitCode, 0);  // the exit status reports loading only
    EXPECT_NE(run.out.find("\n  device: not playable: requirement MaximumSampleRate = \"4000\" refuses it"
                           " (sampleRate 8000)\n"),
              std::string::npos)
        << run.out;
}

TEST_F(Tool, ExplainSaysWhenTheDeviceListsNoType) {
    TempDir dir;
    const std::string caps = WriteCaps(dir, DeviceWith("MP3", ""));
    const nlohmann::json j = JsonOf("--device " + caps + " --explain " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_TRUE(j["refused_by"].is_null());
    EXPECT_EQ(j["explanation"], "the device lists no WAV type");
}

TEST_F(Tool, ExplainSaysWhenTheTypeIsNotADictionary) {
    TempDir dir;
    const std::string caps = WriteCaps(dir, "<dict>\n<key>WAV</key>\n<string>yes</string>\n</dict>\n");
    const nlohmann::json j = JsonOf("--device " + caps + " --explain " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["explanation"], "the device's WAV entry is not a dictionary");
}

TEST_F(Tool, ExplainFindsARefusalInsideANestedDictionary) {
    TempDir dir;
    const std::string caps = WriteCaps(
        dir, DeviceWith("WAV", CapsBuilder().key("Limits").dict().flag("Mono", false).end().str()));
    const nlohmann::json j = JsonOf("--device " + caps + " --explain " + Example("tone-mono.wav"));
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["refused_by"], "Mono");
    EXPECT_EQ(j["explanation"], "requirement Mono = \"false\" refuses it (channelMode \"Mono\")");
}

TEST_F(Tool, FileThatDidNotLoadIsNotPlayable) {
    TempDir dir;
    const std::string caps = WriteCaps(dir, DeviceWith("WAV", ""));
    // Sixteen bytes or fewer: too short for every reader, the lenient AIFF one included.
    const std::string junk = dir.write("junk.wav", Bytes(16, 'x'));
    const ToolRun run = RunTool("--record --json --explain --device " + caps + " " + junk);
    EXPECT_EQ(run.exitCode, 1);
    const nlohmann::json j = nlohmann::json::parse(run.out);
    EXPECT_EQ(j["playable"], false);
    EXPECT_EQ(j["explanation"], "the file did not load");
}

TEST_F(Tool, ExplainWithoutADeviceIsAUsageError) {
    EXPECT_EQ(RunTool("--record --explain " + Example("tone-mono.wav")).exitCode, 2);
}

TEST_F(Tool, UnreadableCapabilityFileIsAUsageError) {
    EXPECT_EQ(RunTool("--record --device /nonexistent/caps.plist " + Example("tone-mono.wav")).exitCode, 2);
}

TEST_F(Tool, VerdictAgreesWithTheLibraryOnCorruptedCapabilityLists) {
    MediaFileInfo facade;
    ASSERT_EQ(facade.LoadFile(Example("tone-mono.wav").c_str()), MFI_OK);
    const MediaFileInfo_st record = *facade.GetFileInfo();
    // One capability list within the file's limits and one just below them.
    const std::string seeds[2] = {
        DeviceWith("WAV", CapsBuilder().flag("Mono", true).limit("MaximumSampleRate", 8000).limit("MaximumDataRate", 128).str()),
        DeviceWith("WAV", CapsBuilder().limit("MaximumSampleRate", 7999).flag("Mono", true).limit("MaximumDataRate", 128).str())};
    TempDir dir;
    int keyRefusals = 0;
    for (uint32_t n = 0; n < 24; ++n) {
        const std::string& seed = seeds[n % 2];
        const Bytes mutated = Mutate(Bytes(seed.begin(), seed.end()), n);
        const std::string text(mutated.begin(), mutated.end());
        const std::string caps = dir.write("caps.plist", mutated);
        if (text.find("<dict>") == std::string::npos) {
            // No property list at all: refused before any file is judged.
            EXPECT_EQ(RunTool("--record --explain --device " + caps + " " + Example("tone-mono.wav")).exitCode, 2);
            continue;
        }
        const nlohmann::json j = JsonOf("--explain --device " + caps + " " + Example("tone-mono.wav"));
        SCOPED_TRACE(text);
        EXPECT_EQ(j["playable"], Judge(text, record) == 1);
        EXPECT_EQ(j["explanation"].is_null(), j["playable"] == true);
        // A refusal inside the type's dictionary is always traced to its key.
        const bool keyRefusal = j["playable"] == false && j["explanation"].get<std::string>().rfind("the ", 0) != 0;
        EXPECT_EQ(keyRefusal, !j["refused_by"].is_null());
        keyRefusals += keyRefusal;
    }
    EXPECT_GE(keyRefusals, 3);
}

}  // namespace
