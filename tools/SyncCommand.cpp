#include "SyncCommand.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "DeviceLists.h"
#include "Progress.h"
#include "convert/Converter.h"
#include "convert/Target.h"
#include "sync/Sync.h"

namespace {

using fileinfo::sync::Action;
using fileinfo::sync::Plan;
using fileinfo::sync::PlanEntry;
using fileinfo::sync::SkipKind;

std::string Bytes(uint64_t bytes) {
    static const char* const kUnits[] = {"B", "kB", "MB", "GB", "TB"};
    double value = static_cast<double>(bytes);
    int unit = 0;
    while (value >= 1000 && unit < 4) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
    return text;
}

std::string Json(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// What a file is converted to, field by field.
nlohmann::json ConversionJson(const fileinfo::convert::Target& t) {
    nlohmann::json out{{"type", t.type}, {"container", t.container}, {"extension", t.extension}, {"words", t.Words()}};
    if (t.hasSound) {
        out["audio"] = {{"codec", t.sound.codec == "aac" ? "AAC LC" : t.sound.codec == "mp3" ? "MP3" : "PCM"},
                        {"sampleRate", t.sound.sampleRate},
                        {"channels", t.sound.channels},
                        {"bitsPerSample", t.sound.bitsPerSample},
                        {"bitRate", t.sound.bitRate},
                        {"silent", t.silentSound}};
    }
    if (t.hasPicture) {
        out["video"] = {{"codec", t.picture.codec == "h264" ? "H.264" : "MPEG-4 Visual"},
                        {"width", t.picture.width},
                        {"height", t.picture.height},
                        {"frameRate", t.picture.frameRateMilli / 1000.0},
                        {"profile", t.picture.profile},
                        {"level", t.picture.level},
                        {"bitRate", t.picture.bitRate},
                        {"peakBitRate", t.picture.peakBitRate}};
    }
    return out;
}

nlohmann::json EntryJson(const PlanEntry& e) {
    nlohmann::json line;
    line["action"] = fileinfo::sync::ActionName(e.action);
    line["source"] = e.source;
    line["devicePath"] = e.devicePath.empty() ? nlohmann::json() : nlohmann::json(e.devicePath);
    line["reason"] = e.reason;
    line["bytes"] = e.bytes;
    if (!e.replaces.empty()) {
        line["replaces"] = e.replaces;
        line["replacedBytes"] = e.replacedBytes;
    }
    if (!e.refusedBy.empty()) line["refusedBy"] = e.refusedBy;
    if (e.loaded) {
        line["libraryPlayable"] = e.libraryPlayable;
        if (!e.libraryExplanation.empty()) line["libraryExplanation"] = e.libraryExplanation;
    }
    if (!e.target.empty()) line["target"] = e.target;
    if (e.playlist) line["playlistDropped"] = e.playlistDropped;
    fileinfo::convert::Target target;
    if (!e.playlist && fileinfo::convert::Target::Parse(e.target, target)) line["conversion"] = ConversionJson(target);
    return line;
}

nlohmann::json PlanJson(const Plan& plan) {
    const fileinfo::sync::PlanTotals& t = plan.totals;
    nlohmann::json out, actions, skipped;
    for (int a = 0; a < fileinfo::sync::kActionCount; ++a) {
        actions[fileinfo::sync::ActionName(static_cast<Action>(a))] = {{"files", t.count[a]}, {"bytes", t.bytes[a]}};
    }
    for (int k = 1; k < fileinfo::sync::kSkipKindCount; ++k) {
        if (t.skipped[k] != 0) skipped[fileinfo::sync::SkipKindName(static_cast<SkipKind>(k))] = t.skipped[k];
    }
    out["actions"] = actions;
    out["skipped"] = skipped.is_null() ? nlohmann::json::object() : skipped;
    out["playlistEntriesDropped"] = t.playlistDropped;
    out["neededBytes"] = t.needed;
    out["freedBytes"] = t.freed;
    out["freeBytes"] = t.available;
    out["fits"] = t.fits;
    out["shortBy"] = t.shortBy;
    out["loaded"] = t.loads;
    out["fat"] = plan.fat;
    out["deviceFolder"] = plan.deviceFolder;
    return nlohmann::json{{"plan", out}};
}

std::string SkippedWords(const size_t (&skipped)[fileinfo::sync::kSkipKindCount]) {
    std::string words;
    for (int k = 1; k < fileinfo::sync::kSkipKindCount; ++k) {
        if (skipped[k] == 0) continue;
        words += (words.empty() ? "" : ", ") + std::to_string(skipped[k]) + " " +
                 fileinfo::sync::SkipKindName(static_cast<SkipKind>(k));
    }
    return words;
}

void PrintPlanTable(const Plan& plan, const std::string& converterMissing) {
    const fileinfo::sync::PlanTotals& t = plan.totals;
    for (const PlanEntry& e : plan.entries) {
        if (e.action == Action::kKeep && e.reason.empty()) continue;
        std::string line = std::string(fileinfo::sync::ActionName(e.action));
        line.resize(8, ' ');
        std::string bytes = e.bytes != 0 ? Bytes(e.bytes) : "-";
        bytes.resize(10, ' ');
        line += bytes + (e.devicePath.empty() ? e.source : e.devicePath);
        if (!e.reason.empty()) line += "  (" + e.reason + ")";
        if (!e.replaces.empty()) line += "  (replaces " + e.replaces + ")";
        fileinfo::convert::Target target;
        if (!e.playlist && fileinfo::convert::Target::Parse(e.target, target)) {
            // A type the list does not name refuses with no key.
            line += "  (" + (e.refusedBy.empty() ? std::string("refused by the device") : "refused by " + e.refusedBy) +
                    "; to " + target.Words() + ")";
        }
        if (e.loaded && e.action == Action::kSkip && e.skip == SkipKind::kRefused) {
            line += e.libraryPlayable ? " [the library's filter: playable]" : " [the library's filter: " + e.libraryExplanation + "]";
        }
        std::cout << line << "\n";
    }
    std::cout << "plan:";
    const char* sep = " ";
    for (const Action a : {Action::kCopy, Action::kConvert, Action::kUpdate, Action::kKeep, Action::kRemove, Action::kSkip}) {
        const int k = static_cast<int>(a);
        std::cout << sep << t.count[k] << " " << fileinfo::sync::ActionName(a);
        if (t.bytes[k] != 0 && a != Action::kSkip && a != Action::kKeep) std::cout << " (" << Bytes(t.bytes[k]) << ")";
        sep = ", ";
    }
    std::cout << "\n";
    const std::string skipped = SkippedWords(t.skipped);
    if (!skipped.empty()) std::cout << "skipped: " << skipped << "\n";
    if (!converterMissing.empty() && t.skipped[static_cast<int>(SkipKind::kNeedsConverter)] != 0) {
        std::cout << "convert: " << converterMissing << "\n";
    }
    if (t.playlistDropped != 0) std::cout << "playlists: " << t.playlistDropped << " entries dropped\n";
    std::cout << "space: needs " << Bytes(t.needed) << ", frees " << Bytes(t.freed) << ", " << Bytes(t.available)
              << " free" << (plan.fat ? " (FAT names and limits)" : "") << "\n";
    if (!t.fits) std::cout << "does not fit: " << t.shortBy << " bytes (" << Bytes(t.shortBy) << ") short\n";
    std::cout << std::flush;
}

// "fileinfo: sync: 12 of 40 files, 3.1 MB of 9.0 MB: Album/Song.mp3"
class ProgressLine {
public:
    explicit ProgressLine(bool show) : show_(show) {}
    ~ProgressLine() { Clear(); }

    void Update(const fileinfo::sync::ExecuteProgress& p) {
        if (!show_) return;
        const auto now = std::chrono::steady_clock::now();
        if (drawn_ && now - last_ < std::chrono::milliseconds(100) && p.filesDone != p.filesTotal) return;
        last_ = now;
        std::string line = "fileinfo: sync: " + std::to_string(p.filesDone) + " of " + std::to_string(p.filesTotal) +
                           " files, " + Bytes(p.bytesDone) + " of " + Bytes(p.bytesTotal) + ": " + p.current;
        if (line.size() > 150) line = line.substr(0, 147) + "...";
        std::cerr << "\r\033[K" << line << std::flush;
        drawn_ = true;
    }

    void Clear() {
        if (drawn_) std::cerr << "\r\033[K" << std::flush;
        drawn_ = false;
    }

private:
    bool show_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point last_;
};

}  // namespace

int RunSyncCommand(int argc, char** argv) {
    CLI::App app{"Puts a collection on a device and keeps it in step: copies what the device plays, converts what it "
                 "would play converted, keeps what is "
                 "there unchanged, updates what changed, removes what is gone.",
                 "fileinfo sync"};
    std::vector<std::string> sources;
    std::string to, devicePath, extensions, format = "table";
    unsigned jobs = 0;
    bool hidden = false, dryRun = false, keepRemoved = false, fatNames = false, noConvert = false;
    std::string ffmpeg;
    app.add_option("sources", sources, "media files or folders (walked recursively)")->required();
    app.add_option("--to", to, "the device's mount point or a folder on it")->required();
    app.add_option("--device", devicePath, "the device's capability list: a file, or a list's name (player-caps)")->required();
    app.add_flag("-n,--dry-run", dryRun, "show the plan; write nothing");
    app.add_option("-j,--jobs", jobs, "files loaded at once (default: one per core)");
    app.add_option("--ext", extensions, "walk only files with these extensions (mp3,m4a)");
    app.add_flag("--hidden", hidden, "walk hidden files and folders too");
    app.add_flag("--keep-removed", keepRemoved, "keep device copies whose sources are gone");
    app.add_option("--format", format, "table or json (one line per file)")->check(CLI::IsMember({"table", "json"}));
    app.add_flag("--fat-names", fatNames, "names and limits of FAT even where the file system is not FAT");
    app.add_flag("--no-convert", noConvert, "skip what the device refuses instead of converting it");
    app.add_option("--ffmpeg", ffmpeg, "the ffmpeg program that converts (default: ffmpeg on PATH)");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        if (e.get_exit_code() == 0) return app.exit(e);  // --help
        std::cerr << "fileinfo: sync: " << e.what() << "\nRun 'fileinfo sync --help' for the options.\n";
        return 2;
    }
    fileinfo::Device device("");
    std::string error;
    if (!fileinfo::LoadDeviceList(devicePath, device, error)) {
        std::cerr << "fileinfo: " << devicePath << ": " << error << "\n";
        return 2;
    }
    const bool json = format == "json";
    fileinfo::sync::SyncRequest request;
    request.sources = sources;
    request.deviceFolder = to;
    request.device = &device;
    request.dryRun = dryRun;
    request.plan.jobs = jobs;
    request.plan.extensions = fileinfo::ExtensionList(extensions);
    request.plan.hidden = hidden;
    request.plan.keepRemoved = keepRemoved;
    request.plan.fatNames = fatNames;
    fileinfo::convert::ConvertOptions convertOptions;
    convertOptions.enabled = !noConvert;
    convertOptions.program = ffmpeg;
    convertOptions.jobs = jobs;
    fileinfo::convert::Converter converter(device, convertOptions);
    converter.Attach(request);
    // Said once in the plan, when a file would have been converted.
    const std::string converterMissing =
        converter.Enabled() && converter.Program().empty()
            ? (ffmpeg.empty() ? std::string("no ffmpeg on PATH") : ffmpeg + ": not an executable program") +
                  "; files the device would play converted are skipped"
            : std::string();
    fileinfo::InstallInterruptHandler();
    request.execute.stopRequested = [] { return fileinfo::Interrupted(); };
    ProgressLine progress(isatty(STDERR_FILENO) != 0);
    request.execute.progress = [&progress](const fileinfo::sync::ExecuteProgress& p) { progress.Update(p); };

    const fileinfo::sync::SyncOutcome out = fileinfo::sync::RunSync(request, [json, &converterMissing](const Plan& plan) {
        if (json) {
            for (const PlanEntry& e : plan.entries) std::cout << Json(EntryJson(e)) << "\n";
            nlohmann::json totals = PlanJson(plan);
            if (!converterMissing.empty()) totals["plan"]["converterMissing"] = converterMissing;
            std::cout << Json(totals) << "\n" << std::flush;
        } else {
            PrintPlanTable(plan, converterMissing);
        }
    });
    converter.Stop();
    progress.Clear();
    using fileinfo::sync::SyncStatus;
    switch (out.status) {
        case SyncStatus::kOk: break;
        case SyncStatus::kUsage: std::cerr << "fileinfo: sync: " << out.error << "\n"; return 2;
        case SyncStatus::kLocked:
        case SyncStatus::kNewer: std::cerr << "fileinfo: sync: " << out.error << "\n"; return kSyncExitRefused;
        case SyncStatus::kError: std::cerr << "fileinfo: sync: " << out.error << "\n"; return 1;
        case SyncStatus::kNoRoom:
            std::cerr << "fileinfo: sync: the plan does not fit: " << out.plan.totals.shortBy << " bytes short; nothing was written\n";
            return kSyncExitNoRoom;
    }
    if (!out.ran) return 0;
    const fileinfo::sync::RunResult& run = out.run;
    for (const auto& failure : run.failures) {
        const PlanEntry& e = out.plan.entries[failure.first];
        std::cerr << "fileinfo: sync: " << (e.devicePath.empty() ? e.source : e.devicePath) << ": " << failure.second << "\n";
    }
    if (run.deviceFailed) std::cerr << "fileinfo: sync: the device failed: " << run.deviceError << "; the run stopped\n";
    const auto done = [&run](Action a) { return run.done[static_cast<int>(a)]; };
    if (json) {
        nlohmann::json result{{"copied", done(Action::kCopy)},       {"converted", done(Action::kConvert)},
                              {"updated", done(Action::kUpdate)},    {"kept", done(Action::kKeep)},
                              {"removed", done(Action::kRemove)},    {"skipped", run.skipped},
                              {"failed", run.failed},                {"bytesWritten", run.bytesWritten},
                              {"seconds", run.seconds},              {"interrupted", run.interrupted},
                              {"deviceFailed", run.deviceFailed},    {"tempFilesRemoved", run.tempFilesRemoved}};
        std::cout << Json(nlohmann::json{{"result", result}}) << "\n";
    } else {
        char seconds[32];
        snprintf(seconds, sizeof seconds, "%.1f s", run.seconds);
        std::cout << "done: copied " << done(Action::kCopy) << ", converted " << done(Action::kConvert) << ", updated " << done(Action::kUpdate) << ", kept "
                  << done(Action::kKeep) << ", removed " << done(Action::kRemove) << ", skipped " << run.skipped;
        const std::string skipped = SkippedWords(out.plan.totals.skipped);
        if (!skipped.empty()) std::cout << " (" << skipped << ")";
        if (run.failed != 0) std::cout << ", failed " << run.failed;
        std::cout << "; " << Bytes(run.bytesWritten) << " written in " << seconds
                  << (run.interrupted ? "; stopped by Ctrl-C after the files in flight" : "") << "\n";
    }
    std::cout << std::flush;
    if (run.interrupted) return 130;
    return run.failed != 0 || run.deviceFailed ? 1 : 0;
}
