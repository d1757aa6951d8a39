#include "ScanCommand.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>

#include "AtomicWrite.h"
#include "DeviceLists.h"
#include "JsonLine.h"
#include "PathList.h"
#include "Progress.h"
#include "Scan.h"
#include "Summary.h"
#include "Verdict.h"
#include "Views.h"

namespace fileinfo {

namespace {

// The paths to scan: those named, with each "-" replaced by the list on
// standard input, then those of --from. False after reporting a list that
// cannot be read.
bool CollectPaths(const Options& o, std::vector<std::string>& roots) {
    const auto readList = [&](const std::string& source) {
        std::string error;
        if (ReadPathList(source, o.nul, roots, error)) return true;
        std::cerr << "fileinfo: " << (source == "-" ? "standard input" : source) << ": " << error << "\n";
        return false;
    };
    for (const std::string& path : o.paths) {
        if (path != "-") {
            roots.push_back(path);
        } else if (!readList("-")) {
            return false;
        }
    }
    return o.from.empty() || readList(o.from);
}

// What the run has met so far that decides its exit status.
struct RunState {
    bool failed = false;
    bool unplayable = false;
};

// Says on standard error what the view does not show: paths that could not
// be read, named files that were not read, special files, and loads the
// system refused. Walks pass over files of other extensions, hidden ones
// and linked folders in silence; the summary counts them.
void Report(const ScanItem& item, Progress& progress, RunState& state) {
    switch (item.outcome) {
        case Outcome::kError:
            progress.Say(item.path + ": " + item.reason);
            state.failed = true;
            return;
        case Outcome::kSkipped:
            if (item.skip == SkipReason::kSpecialFile) {
                progress.Say(item.path + ": a " + item.reason + ", not a regular file: skipped");
            } else if (item.named) {
                progress.Say(item.path + ": " + item.reason);
            }
            state.failed |= item.named;
            return;
        case Outcome::kLoaded: break;
    }
    if (item.error != 0) progress.Say(item.path + ": " + item.reason);
    const std::string note = FailureNote(item);
    if (!note.empty()) progress.Say(item.path + ": " + note);
    for (const std::string& warning : Warnings(item)) progress.Say(item.path + ": " + warning);
}

// Whether nothing could read the loaded file: under --record the library's
// load failed; otherwise the reading failed too, or found nothing where the
// library's load failed.
bool Failed(const Options& o, const ScanItem& item) {
    if (o.record) return item.LoadFailed();
    return item.readingError != 0 || (!item.reading.Identified() && item.LoadFailed());
}

// Whether --strict counts the file as a failure: it loaded, but was not
// identified (by the library under --record, otherwise by the reading).
bool Unidentified(const Options& o, const ScanItem& item) {
    if (o.record) return !item.LoadFailed() && !item.Identified();
    return !Failed(o, item) && !item.reading.Identified();
}

bool Shown(const Options& o, const std::optional<bool>& playable) {
    if (o.summaryOnly) return false;
    if (o.only == Only::kAll || !playable) return true;
    return *playable == (o.only == Only::kPlayable);
}

// The summary: into --summary-file, else after the rows, except for csv
// and tsv, whose output must stay one table for its readers: there it
// goes to standard error. False when the file could not be written.
bool WriteSummary(const Options& o, const Summary& summary, double seconds, bool device) {
    std::ostringstream text;
    if (o.format == Format::kJson) {
        summary.WriteJson(text, seconds, device);
    } else {
        summary.WriteText(text, seconds, device);
    }
    if (!o.summaryFile.empty()) {
        std::string error;
        if (WriteFileAtomically(o.summaryFile, text.str(), error)) return true;
        std::cerr << "fileinfo: " << o.summaryFile << ": " << error << "\n";
        return false;
    }
    if (o.format == Format::kCsv || o.format == Format::kTsv) {
        std::cout.flush();
        std::cerr << text.str() << std::flush;
    } else {
        std::cout << text.str();
    }
    return true;
}

}  // namespace

int RunScanCommand(Options o, bool terminal, unsigned width) {
    const auto started = std::chrono::steady_clock::now();
    std::optional<Device> device;
    if (!o.devicePath.empty()) {
        Device loaded("");
        std::string error;
        if (!LoadDeviceList(o.devicePath, loaded, error)) {
            std::cerr << "fileinfo: " << o.devicePath << ": " << error << "\n";
            return kExitUsage;
        }
        device = std::move(loaded);
    }
    std::vector<std::string> roots;
    if (!CollectPaths(o, roots)) return kExitFailure;

    if (!o.formatNamed) o.format = terminal ? Format::kTable : Format::kList;
    ViewOptions viewOptions;
    viewOptions.format = o.format;
    viewOptions.columns = o.columns;
    viewOptions.allFields = o.allFields;
    viewOptions.device = device.has_value();
    viewOptions.explain = o.explain;
    viewOptions.record = o.record;
    // The record's table keeps its fixed width off a terminal; the
    // reading's fits the width of $COLUMNS there, or 80.
    viewOptions.width = o.record ? (terminal ? width : 0) : width;
    const std::unique_ptr<View> view = MakeView(viewOptions, std::cout);

    InstallInterruptHandler();
    Progress progress(o.progress);
    Summary summary(!o.record);
    RunState state;
    {
        ScanOptions scanOptions;
        scanOptions.jobs = o.jobs;
        scanOptions.extensions = o.extensions;
        scanOptions.hidden = o.hidden;
        Scan scan(std::move(roots), scanOptions);
        progress.Start(scan);
        if (!o.summaryOnly) progress.Aside([&] { view->Begin(); });
        ScanItem item;
        // An item taken after Ctrl-C may be a load the interruption cut
        // short: it is not shown.
        while (!Interrupted() && scan.Next(item) && !Interrupted()) {
            Report(item, progress, state);
            std::optional<DeviceVerdict> verdict;
            std::optional<ReadingVerdict> readingVerdict;
            if (item.outcome == Outcome::kLoaded) {
                state.failed |= Failed(o, item) || (o.strict && Unidentified(o, item));
                if (device) {
                    verdict = device->Judge(item);
                    if (!o.record) readingVerdict = device->JudgeReading(item.reading);
                }
                // The verdict that counts: on the reading, or under --record the library's.
                std::optional<bool> playable;
                if (readingVerdict) playable = readingVerdict->playable;
                else if (verdict) playable = verdict->playable;
                state.unplayable |= playable && !*playable;
                if (Shown(o, playable)) {
                    const FileView file{item, verdict ? &*verdict : nullptr, readingVerdict ? &*readingVerdict : nullptr};
                    // On a terminal the line is written at once, where the
                    // progress line may stand.
                    if (terminal) {
                        progress.Aside([&] { view->File(file); });
                    } else {
                        view->File(file);
                    }
                }
            }
            summary.Count(item, verdict ? &*verdict : nullptr, readingVerdict ? &*readingVerdict : nullptr);
        }
        progress.Stop();
    }
    summary.interrupted = Interrupted();
    if (o.summary || o.summaryOnly || !o.summaryFile.empty()) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (!WriteSummary(o, summary, seconds, device.has_value())) state.failed = true;
    }
    if (summary.interrupted) {
        std::cout.flush();
        progress.Say("interrupted");
        return kExitInterrupted;
    }
    std::cout.flush();
    if (state.failed) return kExitFailure;
    if (o.failUnplayable && state.unplayable) return kExitUnplayable;
    return kExitOk;
}

}  // namespace fileinfo
