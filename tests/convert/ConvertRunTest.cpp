// Real conversions with the ffmpeg program, through the sync in-process and
// through the fileinfo tool: every refusal the fixtures hold becomes a file
// the device plays, proved before it lands; and what fails, is missing, is
// named in a hostile way, is run again, or is killed. Skipped where there
// is no ffmpeg.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "Scan.h"
#include "SyncTestHelpers.h"
#include "Verdict.h"
#include "convert/Converter.h"
#include "convert/Ffmpeg.h"
#include "media/Reading.h"

using namespace synctest;

namespace fileinfo {
namespace convert {
namespace {

const std::string kCaps = std::string(FILEINFO_DEVICES_DIR) + "/player-caps.plist";
const std::string kOwnFixtures = std::string(FILEINFO_FIXTURES_DIR) + "/../convert/fixtures";

Device PlayerCaps() {
    Device device("");
    std::string error;
    EXPECT_TRUE(Device::FromFile(kCaps, device, error)) << error;
    return device;
}

// Every fixture the device refuses, by the name it has in the sources.
const std::vector<std::pair<std::string, std::string>>& Refused() {
    static const std::vector<std::pair<std::string, std::string>> files = {
        {kOwnFixtures + "/pcm-96k-mono.wav", "pcm-96k-mono.wav"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/aiff/sox-stereo-44k-24bit.aif", "sox-stereo-44k-24bit.aif"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/aac/adts-48k-6ch.aac", "adts-48k-6ch.aac"},
        {kOwnFixtures + "/h264-high-1080p.mp4", "h264-high-1080p.mp4"},
        {kOwnFixtures + "/mpeg4-asp-640x480.mp4", "mpeg4-asp-640x480.mp4"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a", "alac.m4a"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/aac-main-tagged.m4a", "aac-main-tagged.m4a"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/h263-aac.3gp", "h263-aac.3gp"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/h264-aac.mov", "h264-aac.mov"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/h264-high-aac.mp4", "h264-high-aac.mp4"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp4/mp2-sound.mp4", "mp2-sound.mp4"},
        {std::string(FILEINFO_FIXTURES_DIR) + "/mp3/layer2.mp3", "layer2.mp3"},
    };
    return files;
}

bool HaveFfmpeg() { return !FindProgram("").empty(); }

// The device folder's files, but the manifest's.
std::set<std::string> DeviceFiles(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(folder)) {
        const std::string name = e.path().filename().string();
        if (e.is_regular_file() && name.rfind(".fileinfo", 0) != 0) names.insert(fs::relative(e.path(), folder).string());
    }
    return names;
}

// Temporary files the sync left, of the executor's or anyone's.
size_t TempFiles(const std::string& folder) {
    size_t count = 0;
    for (const auto& e : fs::recursive_directory_iterator(folder)) {
        if (sync::IsSyncTempName(e.path().filename().string())) ++count;
    }
    return count;
}

class ConvertRun : public ::testing::Test {
protected:
    void SetUp() override {
        if (!HaveFfmpeg()) GTEST_SKIP() << "no ffmpeg on PATH";
        fs::create_directories(Src());
        fs::create_directories(Dev());
    }
    std::string Src() const { return work_.file("music"); }
    std::string Dev() const { return work_.file("device"); }

    void AddRefused() {
        for (const auto& f : Refused()) CopyInto(f.first, Src() + "/" + f.second);
    }

    sync::SyncOutcome Sync(const Device& device, ConvertOptions options = ConvertOptions(), bool dryRun = false) {
        sync::SyncRequest request;
        request.sources = {Src()};
        request.deviceFolder = Dev();
        request.device = &device;
        request.dryRun = dryRun;
        request.plan.jobs = 2;
        if (options.jobs == 0) options.jobs = 2;
        Converter converter(device, options);
        converter.Attach(request);
        sync::SyncOutcome out = sync::RunSync(request, nullptr);
        converter.Stop();
        return out;
    }

    ChildResult Tool(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {FILEINFO_TOOL_PATH, "sync"});
        return RunChild(arguments, {}, work_.path().string());
    }

    // Starts the tool's sync to the device of `caps` with an ffmpeg that
    // writes part of its file, says so, and hangs; kills the sync with
    // SIGKILL once a conversion has begun.
    void KillSyncDuringConversion(const std::string& caps) {
        const std::string marker = work_.file("started");
        const std::string hanging = work_.file("hanging-ffmpeg");
        Spit(hanging, "#!/bin/sh\nfor last; do :; done\nprintf partial > \"${last#file:}\"\n: > '" + marker +
                          "'\nexec sleep 60\n");
        chmod(hanging.c_str(), 0755);
        const pid_t pid = StartChild({FILEINFO_TOOL_PATH, "sync", Src(), "--to", Dev(), "--device", caps, "--ffmpeg", hanging},
                                     {}, "/dev/null", "/dev/null");
        ASSERT_GE(pid, 0);
        for (int waited = 0; waited < 1000 && !fs::exists(marker); ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        const bool began = fs::exists(marker);
        kill(pid, SIGKILL);
        EXPECT_EQ(WaitChild(pid), 128 + SIGKILL);
        ASSERT_TRUE(began) << "no conversion began";
    }

    TempDir work_;
};

// Copies: a plan's entries are read back one at a time.
std::map<std::string, sync::PlanEntry> BySource(const sync::Plan& plan) {
    std::map<std::string, sync::PlanEntry> out;
    for (const sync::PlanEntry& e : plan.entries) out[fs::path(e.source).filename().string()] = e;
    return out;
}

TEST_F(ConvertRun, EveryRefusedFixtureLandsConvertedAndBothVerdictsPlayIt) {
    AddRefused();
    const Device device = PlayerCaps();
    const sync::SyncOutcome out = Sync(device);
    ASSERT_EQ(out.status, sync::SyncStatus::kOk) << out.error;
    ASSERT_TRUE(out.ran);
    for (const auto& failure : out.run.failures) ADD_FAILURE() << out.plan.entries[failure.first].source << ": " << failure.second;
    EXPECT_EQ(out.run.done[static_cast<int>(sync::Action::kConvert)], Refused().size());
    const auto entries = BySource(out.plan);
    for (const auto& f : Refused()) {
        SCOPED_TRACE(f.second);
        const auto at = entries.find(f.second);
        ASSERT_NE(at, entries.end());
        const sync::PlanEntry& e = at->second;
        ASSERT_EQ(e.action, sync::Action::kConvert) << e.reason;
        ScanItem source, made;
        LoadInto(e.source, source);
        LoadInto(Dev() + "/" + e.devicePath, made);
        EXPECT_EQ(made.status, MFI_OK);
        EXPECT_TRUE(device.JudgeReading(made.reading).playable) << device.JudgeReading(made.reading).explanation;
        EXPECT_TRUE(device.Judge(made).playable) << device.Judge(made).explanation;
        EXPECT_EQ(made.reading.tags.title, source.reading.tags.title);
        EXPECT_EQ(made.reading.tags.artist, source.reading.tags.artist);
        const double ratio = static_cast<double>(made.reading.duration_ms) / static_cast<double>(source.reading.duration_ms);
        EXPECT_NEAR(ratio, 1.0, 0.01) << made.reading.duration_ms << " ms against " << source.reading.duration_ms;
    }
    EXPECT_EQ(TempFiles(Dev()), 0u);
}

TEST_F(ConvertRun, MoviesBecomeMpeg4VisualWhenTheDeviceListsNoH264) {
    for (const char* name : {"h264-high-1080p.mp4", "mpeg4-asp-640x480.mp4"}) CopyInto(kOwnFixtures + "/" + name, Src() + "/" + name);
    std::string text = PlayerCaps().Text();
    const size_t from = text.find("<key>H.264</key>"), to = text.find("<key>MPEG-4</key>");
    ASSERT_LT(from, to);
    text.erase(from, to - from);
    const Device device(text);
    const sync::SyncOutcome out = Sync(device);
    for (const auto& failure : out.run.failures) ADD_FAILURE() << failure.second;
    ASSERT_EQ(out.run.done[static_cast<int>(sync::Action::kConvert)], 2u);
    for (const char* name : {"h264-high-1080p.mp4", "mpeg4-asp-640x480.mp4"}) {
        ScanItem made;
        LoadInto(Dev() + "/" + name, made);
        EXPECT_EQ(made.reading.video_codec, "MPEG-4 Visual") << name;
        EXPECT_EQ(made.reading.profile_id, 3u) << name;  // Simple Profile level 3
        EXPECT_EQ(made.reading.width, 320u) << name;
        EXPECT_TRUE(device.JudgeReading(made.reading).playable) << name;
        EXPECT_TRUE(device.Judge(made).playable) << name << ": " << device.Judge(made).explanation;
    }
}

TEST_F(ConvertRun, MovieWithoutSoundLandsWithTheSilentTrackBothVerdictsAskFor) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp4/h265-main.mp4", Src() + "/clip.mp4");
    const Device device = PlayerCaps();
    const sync::SyncOutcome out = Sync(device);
    for (const auto& failure : out.run.failures) ADD_FAILURE() << failure.second;
    ASSERT_EQ(out.run.done[static_cast<int>(sync::Action::kConvert)], 1u);
    ScanItem made;
    LoadInto(Dev() + "/clip.mp4", made);
    EXPECT_EQ(made.status, MFI_OK);
    EXPECT_EQ(made.reading.video_codec, "H.264");
    EXPECT_EQ(made.reading.audio_codec, "AAC LC");
    EXPECT_EQ(made.reading.channels, 1u);
    EXPECT_NEAR(static_cast<double>(made.reading.duration_ms), 1000.0, 10.0);
    EXPECT_TRUE(device.JudgeReading(made.reading).playable) << device.JudgeReading(made.reading).explanation;
    EXPECT_TRUE(device.Judge(made).playable) << device.Judge(made).explanation;
}

TEST_F(ConvertRun, ShortMovieIsPaddedToTheLengthTheLibrarysReaderTakes) {
    // A fifth of a second of Apple Lossless: its AAC file would be shorter
    // than the 4096 bytes the library's MP4 reader reads first.
    const std::string ffmpeg = FindProgram("");
    ASSERT_EQ(RunChild({ffmpeg, "-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
                        "sine=frequency=440:sample_rate=16000:duration=0.2", "-c:a", "alac", "-f", "ipod",
                        Src() + "/blip.m4a"},
                       {}, work_.path().string())
                  .exitCode,
              0);
    const Device device = PlayerCaps();
    const sync::SyncOutcome out = Sync(device);
    for (const auto& failure : out.run.failures) ADD_FAILURE() << failure.second;
    ASSERT_EQ(out.run.done[static_cast<int>(sync::Action::kConvert)], 1u);
    const std::string made = Slurp(Dev() + "/blip.m4a");
    ASSERT_EQ(made.size(), 4096u);
    // The last box is the free box that fills it.
    size_t at = 0, last = 0;
    while (at + 8 <= made.size()) {
        const uint32_t size = static_cast<uint32_t>(static_cast<unsigned char>(made[at]) << 24 |
                                                    static_cast<unsigned char>(made[at + 1]) << 16 |
                                                    static_cast<unsigned char>(made[at + 2]) << 8 |
                                                    static_cast<unsigned char>(made[at + 3]));
        if (size < 8) break;
        last = at;
        at += size;
    }
    EXPECT_EQ(at, made.size());
    EXPECT_EQ(made.substr(last + 4, 4), "free");
    ScanItem item;
    LoadInto(Dev() + "/blip.m4a", item);
    EXPECT_EQ(item.status, MFI_OK);
    EXPECT_TRUE(item.Identified());
    EXPECT_TRUE(device.Judge(item).playable) << device.Judge(item).explanation;
}

TEST_F(ConvertRun, EveryTagIsCarriedOver) {
    // ALAC with all eight tags.
    const std::string source = Src() + "/tagged.m4a";
    const std::string ffmpeg = FindProgram("");
    ASSERT_EQ(RunChild({ffmpeg, "-nostdin", "-loglevel", "error", "-i", std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a",
                        "-c:a", "copy", "-metadata", "title=T", "-metadata", "artist=A", "-metadata", "album=Al",
                        "-metadata", "genre=Rock", "-metadata", "date=1999", "-metadata", "track=3/9", "-metadata",
                        "comment=C", "-metadata", "composer=Co", "-f", "ipod", source},
                       {}, work_.path().string())
                  .exitCode,
              0);
    const sync::SyncOutcome out = Sync(PlayerCaps());
    ASSERT_EQ(out.run.done[static_cast<int>(sync::Action::kConvert)], 1u);
    media::Reading made;
    ASSERT_EQ(media::ReadMediaPath(Dev() + "/tagged.m4a", made), 0);
    EXPECT_EQ(made.tags.title, "T");
    EXPECT_EQ(made.tags.artist, "A");
    EXPECT_EQ(made.tags.album, "Al");
    EXPECT_EQ(made.tags.genre, "Rock");
    EXPECT_EQ(made.tags.year, "1999");
    EXPECT_EQ(made.tags.track, 3u);
    EXPECT_EQ(made.tags.track_total, 9u);
    EXPECT_EQ(made.tags.comment, "C");
    EXPECT_EQ(made.tags.composer, "Co");
}

TEST_F(ConvertRun, AForcedTargetTheDeviceRefusesIsReportedAndLeavesNothing) {
    CopyInto(kOwnFixtures + "/pcm-96k-mono.wav", Src() + "/tone.wav");
    ConvertOptions options;
    // 96 kHz stays 96 kHz: the device's 48 kHz limit refuses the made file.
    options.forceTarget = [](const ScanItem&, Target& t) {
        return Target::Parse("convert/1 type=WAV container=wav ext=.wav audio=pcm rate=96000 channels=1 bits=16", t);
    };
    const sync::SyncOutcome out = Sync(PlayerCaps(), options);
    ASSERT_TRUE(out.ran);
    EXPECT_EQ(out.run.failed, 1u);
    ASSERT_EQ(out.run.failures.size(), 1u);
    EXPECT_NE(out.run.failures[0].second.find("MaximumSampleRate"), std::string::npos) << out.run.failures[0].second;
    EXPECT_TRUE(DeviceFiles(Dev()).empty());
    EXPECT_EQ(TempFiles(Dev()), 0u);
}

TEST_F(ConvertRun, AFailedConversionIsReportedWithFfmpegsLinesAndTheOthersGoOn) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a", Src() + "/a.m4a");
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a", Src() + "/b.m4a");
    ConvertOptions options;
    // A sample rate the AAC encoder does not take for a.m4a alone.
    options.forceTarget = [](const ScanItem& item, Target& t) {
        const bool bad = item.path.find("/a.m4a") != std::string::npos;
        return Target::Parse(std::string("convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=") +
                                 (bad ? "1" : "16000") + " channels=1 arate=32000",
                             t);
    };
    const sync::SyncOutcome out = Sync(PlayerCaps(), options);
    ASSERT_TRUE(out.ran);
    ASSERT_EQ(out.run.failures.size(), 1u);
    EXPECT_EQ(out.run.failures[0].second.rfind("ffmpeg: exit status ", 0), 0u) << out.run.failures[0].second;
    EXPECT_GT(out.run.failures[0].second.size(), std::string("ffmpeg: exit status 1").size());
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"b.m4a"});
}

TEST_F(ConvertRun, MissingFfmpegSkipsWithTheReasonAndTheCopiesStillHappen) {
    AddRefused();
    CopyInto(std::string(FILEINFO_EXAMPLES_DIR) + "/tone-mono.wav", Src() + "/plays.wav");
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--ffmpeg", "/nonexistent"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("skipped: " + std::to_string(Refused().size()) + " needs ffmpeg\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("convert: /nonexistent: not an executable program; files the device would play converted are "
                           "skipped\n"),
              std::string::npos)
        << run.out;
    EXPECT_NE(run.out.find("(needs ffmpeg to become AAC LC 16 kHz mono 32 kbit/s in .m4a)"), std::string::npos) << run.out;
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"plays.wav"});
    // Not recorded as judged: with ffmpeg, the next run converts them.
    const ChildResult again = Tool({Src(), "--to", Dev(), "--device", kCaps, "--format", "json"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_NE(again.out.find("\"converted\":" + std::to_string(Refused().size())), std::string::npos) << again.out;
}

TEST_F(ConvertRun, NoConvertSkipsWithTheRefusingKey) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/aiff/sox-stereo-44k-24bit.aif", Src() + "/deep.aif");
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--no-convert", "--format", "json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto line = nlohmann::json::parse(run.out.substr(0, run.out.find('\n')));
    EXPECT_EQ(line["action"], "skip");
    EXPECT_EQ(line["refusedBy"], "MaximumBitDepth, MaximumDataRate");
    EXPECT_EQ(line["reason"].get<std::string>().rfind("refused by the device (MaximumBitDepth, MaximumDataRate)", 0), 0u);
    // Turned on again: judged again, and converted.
    const ChildResult on = Tool({Src(), "--to", Dev(), "--device", kCaps, "--format", "json"});
    EXPECT_NE(on.out.find("\"converted\":1"), std::string::npos) << on.out;
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"deep.aif"});
}

TEST_F(ConvertRun, PlanLinesNameTheTargetAndTheEstimate) {
    CopyInto(kOwnFixtures + "/h264-high-1080p.mp4", Src() + "/movie.mp4");
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--dry-run", "--format", "json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto line = nlohmann::json::parse(run.out.substr(0, run.out.find('\n')));
    EXPECT_EQ(line["action"], "convert");
    EXPECT_EQ(line["devicePath"], "movie.mp4");
    const auto& c = line["conversion"];
    EXPECT_EQ(c["type"], "H.264");
    EXPECT_EQ(c["video"]["codec"], "H.264");
    EXPECT_EQ(c["video"]["width"], 320);
    EXPECT_EQ(c["video"]["height"], 180);
    EXPECT_EQ(c["video"]["profile"], 66);
    EXPECT_EQ(c["video"]["level"], 30);
    EXPECT_EQ(c["audio"]["codec"], "AAC LC");
    EXPECT_EQ(c["audio"]["sampleRate"], 8000);
    EXPECT_EQ(c["audio"]["channels"], 1);
    EXPECT_EQ(c["audio"]["silent"], false);
    // (43,200 + 16,000) bit/s for 1 s, and the container's 4,096 bytes
    // and 1 %.
    EXPECT_EQ(line["bytes"], 7400 + 4096 + 74);
    const ChildResult table = Tool({Src(), "--to", Dev(), "--device", kCaps, "--dry-run"});
    EXPECT_NE(table.out.find("convert 11.6 kB   movie.mp4  (refused by Profile, Level, MaximumWidth, MaximumHeight; to "
                             "H.264 Baseline 3.0 320x180 5 fps 43 kbit/s + AAC LC 8 kHz mono 16 kbit/s in .mp4)\n"),
              std::string::npos)
        << table.out;
}

TEST_F(ConvertRun, HostileNamesAreConverted) {
    const std::string alac = std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a";
    const std::vector<std::string> names = {"-x.m4a", "-i.m4a", "it's \"quoted\".m4a", "new\nline.m4a", "a:b c.m4a",
                                            "file:x.m4a"};
    for (const std::string& name : names) CopyInto(alac, Src() + "/" + name);
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", kCaps, "--format", "json"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    std::set<std::string> expected(names.begin(), names.end());
    EXPECT_EQ(DeviceFiles(Dev()), expected);
    for (const std::string& name : names) {
        ScanItem made;
        LoadInto(Dev() + "/" + name, made);
        EXPECT_EQ(made.reading.audio_codec, "AAC LC") << name;
    }
}

TEST_F(ConvertRun, ASecondRunConvertsNothing) {
    AddRefused();
    const Device device = PlayerCaps();
    ASSERT_EQ(Sync(device).run.done[static_cast<int>(sync::Action::kConvert)], Refused().size());
    const sync::SyncOutcome again = Sync(device);
    EXPECT_EQ(again.plan.totals.count[static_cast<int>(sync::Action::kKeep)], Refused().size());
    EXPECT_EQ(again.plan.totals.loads, 0u);
    EXPECT_EQ(again.run.bytesWritten, 0u);
}

TEST_F(ConvertRun, AChangedListReconvertsExactlyTheFilesWhoseTargetChanged) {
    AddRefused();
    const Device device = PlayerCaps();
    ASSERT_EQ(Sync(device).run.done[static_cast<int>(sync::Action::kConvert)], Refused().size());
    // AAC at most 32 kHz: the 48 and 44.1 kHz sound that becomes AAC
    // changes its target; the 16 and 32 kHz sound, the movies' nested AAC
    // and the WAV and AIFF entries do not.
    std::string text = device.Text();
    const std::string aacRate = "<key>MaximumSampleRate</key>\n\t\t\t<integer>48000</integer>";
    const size_t aac = text.find("<key>AAC</key>");
    const size_t at = text.find(aacRate, aac);
    ASSERT_NE(at, std::string::npos);
    text.replace(at, aacRate.size(), "<key>MaximumSampleRate</key>\n\t\t\t<integer>32000</integer>");
    const Device changed(text);
    const sync::SyncOutcome out = Sync(changed);
    std::set<std::string> updated;
    for (const sync::PlanEntry& e : out.plan.entries) {
        if (e.action == sync::Action::kUpdate) updated.insert(e.devicePath);
        else EXPECT_EQ(e.action, sync::Action::kKeep) << e.source;
    }
    EXPECT_EQ(updated, (std::set<std::string>{"adts-48k-6ch.m4a", "layer2.m4a"}));
    EXPECT_EQ(out.run.done[static_cast<int>(sync::Action::kUpdate)], 2u);
    media::Reading made;
    ASSERT_EQ(media::ReadMediaPath(Dev() + "/layer2.m4a", made), 0);
    EXPECT_EQ(made.sample_rate, 32000u);
}

// The player's list without MP3: an MP3 becomes AAC in .m4a.
std::string WithoutMp3(const Device& device) {
    std::string text = device.Text();
    const size_t from = text.find("<key>MP3</key>"), to = text.find("<key>AAC</key>");
    EXPECT_LT(from, to);
    if (from < to && to != std::string::npos) text.erase(from, to - from);
    return text;
}

TEST_F(ConvertRun, ACopyThatBecomesAConversionOfAnotherTypeIsReplacedInOneSync) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3", Src() + "/song.mp3");
    const Device device = PlayerCaps();
    ASSERT_EQ(Sync(device).run.done[static_cast<int>(sync::Action::kCopy)], 1u);
    // The device no longer plays MP3: the song becomes AAC in .m4a, which
    // a file named .mp3 must not hold.
    const Device noMp3(WithoutMp3(device));
    const sync::SyncOutcome out = Sync(noMp3);
    ASSERT_EQ(out.plan.entries.size(), 1u);
    const sync::PlanEntry e = out.plan.entries[0];
    EXPECT_EQ(e.action, sync::Action::kUpdate);
    EXPECT_EQ(e.devicePath, "song.m4a");
    EXPECT_EQ(e.replaces, "song.mp3");
    EXPECT_EQ(e.replacedBytes, fs::file_size(Src() + "/song.mp3"));
    EXPECT_EQ(e.reason, "becomes .m4a");
    for (const auto& failure : out.run.failures) ADD_FAILURE() << failure.second;
    EXPECT_EQ(out.run.done[static_cast<int>(sync::Action::kUpdate)], 1u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.m4a"});
    media::Reading made;
    ASSERT_EQ(media::ReadMediaPath(Dev() + "/song.m4a", made), 0);
    EXPECT_EQ(made.audio_codec, "AAC LC");
    const sync::SyncOutcome again = Sync(noMp3);
    EXPECT_EQ(again.plan.totals.count[static_cast<int>(sync::Action::kKeep)], 1u);
    EXPECT_EQ(again.plan.totals.loads, 0u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.m4a"});
}

TEST_F(ConvertRun, AConversionWhoseSourceNowPlaysAsItIsIsReplacedByACopyInOneSync) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3", Src() + "/song.mp3");
    const Device device = PlayerCaps();
    const Device noMp3(WithoutMp3(device));
    ASSERT_EQ(Sync(noMp3).run.done[static_cast<int>(sync::Action::kConvert)], 1u);
    ASSERT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.m4a"});
    const uint64_t converted = fs::file_size(Dev() + "/song.m4a");
    const sync::SyncOutcome out = Sync(device);
    ASSERT_EQ(out.plan.entries.size(), 1u);
    const sync::PlanEntry e = out.plan.entries[0];
    EXPECT_EQ(e.action, sync::Action::kUpdate);
    EXPECT_EQ(e.devicePath, "song.mp3");
    EXPECT_EQ(e.replaces, "song.m4a");
    EXPECT_EQ(e.replacedBytes, converted);
    EXPECT_EQ(e.target, "");
    EXPECT_EQ(out.run.done[static_cast<int>(sync::Action::kUpdate)], 1u);
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.mp3"});
    EXPECT_TRUE(Slurp(Dev() + "/song.mp3") == Slurp(Src() + "/song.mp3"));
    EXPECT_EQ(Sync(device).plan.totals.count[static_cast<int>(sync::Action::kKeep)], 1u);
}

TEST_F(ConvertRun, ToolPlansAReplacementAsOneUpdateNamingTheFileItReplacesWithFatNames) {
    const std::string source = Src() + "/Song: Live?.mp3";
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3", source);
    const std::string noMp3 = work_.file("no-mp3.plist");
    Spit(noMp3, WithoutMp3(PlayerCaps()));
    const ChildResult first = Tool({Src(), "--to", Dev(), "--device", kCaps, "--fat-names"});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    ASSERT_EQ(DeviceFiles(Dev()), std::set<std::string>{"Song_ Live_.mp3"});
    const auto lines = [](const std::string& out) {
        std::vector<nlohmann::json> parsed;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) {
            if (!line.empty()) parsed.push_back(nlohmann::json::parse(line));
        }
        return parsed;
    };
    const ChildResult dry = Tool({Src(), "--to", Dev(), "--device", noMp3, "--fat-names", "--dry-run", "--format", "json"});
    ASSERT_EQ(dry.exitCode, 0) << dry.err;
    const auto planned = lines(dry.out);
    ASSERT_EQ(planned.size(), 2u) << dry.out;
    EXPECT_EQ(planned[0]["action"], "update");
    EXPECT_EQ(planned[0]["source"], source);
    EXPECT_EQ(planned[0]["devicePath"], "Song_ Live_.m4a");
    EXPECT_EQ(planned[0]["replaces"], "Song_ Live_.mp3");
    EXPECT_EQ(planned[0]["replacedBytes"], fs::file_size(source));
    EXPECT_EQ(planned[0]["reason"], "becomes .m4a");
    EXPECT_EQ(planned[0]["conversion"]["extension"], ".m4a");
    const auto& plan = planned[1]["plan"];
    EXPECT_EQ(plan["actions"]["update"]["files"], 1);
    EXPECT_EQ(plan["actions"]["remove"]["files"], 0);
    EXPECT_GE(plan["freedBytes"].get<uint64_t>(), fs::file_size(source));
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"Song_ Live_.mp3"});
    const ChildResult run = Tool({Src(), "--to", Dev(), "--device", noMp3, "--fat-names", "--format", "json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto done = lines(run.out);
    ASSERT_FALSE(done.empty());
    EXPECT_EQ(done.back()["result"]["updated"], 1) << run.out;
    EXPECT_EQ(done.back()["result"]["removed"], 0) << run.out;
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"Song_ Live_.m4a"});
    EXPECT_EQ(TempFiles(Dev()), 0u);
}

TEST_F(ConvertRun, SigkillDuringAReplacingConversionKeepsTheOldFileAndTheNextRunReplacesIt) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp3/cbr128.mp3", Src() + "/song.mp3");
    const std::string noMp3 = work_.file("no-mp3.plist");
    Spit(noMp3, WithoutMp3(PlayerCaps()));
    ASSERT_EQ(Tool({Src(), "--to", Dev(), "--device", kCaps}).exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(KillSyncDuringConversion(noMp3));
    // The old copy is still there, whole.
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.mp3"});
    EXPECT_TRUE(Slurp(Dev() + "/song.mp3") == Slurp(Src() + "/song.mp3"));
    const ChildResult again = Tool({Src(), "--to", Dev(), "--device", noMp3, "--format", "json"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_NE(again.out.find("\"updated\":1"), std::string::npos) << again.out;
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"song.m4a"});
    EXPECT_EQ(TempFiles(Dev()), 0u);
    const ChildResult third = Tool({Src(), "--to", Dev(), "--device", noMp3, "--format", "json"});
    EXPECT_NE(third.out.find("\"kept\":1"), std::string::npos) << third.out;
}

TEST_F(ConvertRun, SigkillDuringAConversionLeavesNoPartialFileAndTheNextRunConvertsIt) {
    CopyInto(std::string(FILEINFO_FIXTURES_DIR) + "/mp4/alac.m4a", Src() + "/slow.m4a");
    ASSERT_NO_FATAL_FAILURE(KillSyncDuringConversion(kCaps));
    EXPECT_TRUE(DeviceFiles(Dev()).empty());
    const ChildResult again = Tool({Src(), "--to", Dev(), "--device", kCaps, "--format", "json"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_NE(again.out.find("\"converted\":1"), std::string::npos) << again.out;
    EXPECT_EQ(DeviceFiles(Dev()), std::set<std::string>{"slow.m4a"});
    EXPECT_EQ(TempFiles(Dev()), 0u);
    media::Reading made;
    ASSERT_EQ(media::ReadMediaPath(Dev() + "/slow.m4a", made), 0);
    EXPECT_EQ(made.audio_codec, "AAC LC");
}

}  // namespace
}  // namespace convert
}  // namespace fileinfo
