#include "ScanCommand.h"

#include <chrono>
#include <iostream>
#include <memory>
#include <optional>

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
    for (const std::string& warning : Warnings(item)) progress.Say(item.path + ": " + warning);
    state.failed |= item.status != MFI_OK;
}

bool Shown(const Options& o, const DeviceVerdict* verdict) {
    if (o.summaryOnly) return false;
    if (o.only == Only::kAll || verdict == nullptr) return true;
    return verdict->playable == (o.only == Only::kPlayable);
}

}  // namespace

int RunScanCommand(Options o, bool terminal, unsigned width) {
    const auto started = std::chrono::steady_clock::now();
    std::optional<Device> device;
    if (!o.devicePath.empty()) {
        Device loaded("");
        std::string error;
        if (!Device::FromFile(o.devicePath, loaded, error)) {
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
    viewOptions.width = terminal ? width : 0;
    const std::unique_ptr<View> view = MakeView(viewOptions, std::cout);

    InstallInterruptHandler();
    Progress progress(o.progress);
    Summary summary;
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
            if (item.outcome == Outcome::kLoaded) {
                if (device) verdict = device->Judge(item);
                state.failed |= o.strict && item.status == MFI_OK && !item.Identified();
                state.unplayable |= verdict && !verdict->playable;
                if (Shown(o, verdict ? &*verdict : nullptr)) {
                    const FileView file{item, verdict ? &*verdict : nullptr};
                    // On a terminal the line is written at once, where the
                    // progress line may stand.
                    if (terminal) {
                        progress.Aside([&] { view->File(file); });
                    } else {
                        view->File(file);
                    }
                }
            }
            summary.Count(item, verdict ? &*verdict : nullptr);
        }
        progress.Stop();
    }
    if (Interrupted()) {
        std::cout.flush();
        progress.Say("interrupted");
        return kExitInterrupted;
    }
    if (o.summary || o.summaryOnly) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (o.format == Format::kJson) {
            summary.WriteJson(std::cout, seconds, device.has_value());
        } else {
            summary.WriteText(std::cout, seconds, device.has_value());
        }
    }
    std::cout.flush();
    if (state.failed) return kExitFailure;
    if (o.failUnplayable && state.unplayable) return kExitUnplayable;
    return kExitOk;
}

}  // namespace fileinfo
