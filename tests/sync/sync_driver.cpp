// The sync as a child process for the fault tests, judging without the
// readers: every file the library loads is copied. It prints the plan's
// totals and the run's result as one JSON line.
//
//   sync_driver [--fat-names] [--keep-removed] [--dry-run] [--becomes .EXT] --to DIR SOURCE...
//
// --becomes .EXT: every .mp3 becomes a file of type EXT (a "conversion"
// that writes the source's bytes), as a new capability list would make it.
#include <signal.h>

#include <csignal>
#include <cstring>
#include <strings.h>
#include <iostream>
#include <string>
#include <vector>

#include "CopyLoaded.h"
#include "MediaFileInfoDefine.h"
#include "sync/Sync.h"

namespace {

volatile sig_atomic_t interrupted = 0;

void OnInterrupt(int) { interrupted = 1; }

}  // namespace

int main(int argc, char** argv) {
    signal(SIGINT, OnInterrupt);
    fileinfo::sync::SyncRequest request;
    std::string becomes;
    for (int k = 1; k < argc; ++k) {
        const std::string arg = argv[k];
        if (arg == "--fat-names") {
            request.plan.fatNames = true;
        } else if (arg == "--keep-removed") {
            request.plan.keepRemoved = true;
        } else if (arg == "--dry-run") {
            request.dryRun = true;
        } else if (arg == "--becomes" && k + 1 < argc) {
            becomes = argv[++k];
        } else if (arg == "--to" && k + 1 < argc) {
            request.deviceFolder = argv[++k];
        } else {
            request.sources.push_back(arg);
        }
    }
    request.plan.jobs = 1;
    request.plan.capsDigest = becomes.empty() ? "test" : "test" + becomes;
    request.execute.produce = [](const fileinfo::sync::PlanEntry& entry, int out, std::string& error) {
        return fileinfo::sync::CopySource(entry, out, error);
    };
    request.execute.batchFiles = 4;
    request.execute.stopRequested = [] { return interrupted != 0; };
    request.decide = [becomes](const fileinfo::ScanItem& item) {
        fileinfo::sync::Decision d = synctest::CopyLoaded(item);
        const size_t dot = item.path.rfind('.');
        if (d.action == fileinfo::sync::Action::kCopy && !becomes.empty() && dot != std::string::npos &&
            strcasecmp(item.path.c_str() + dot, ".mp3") == 0) {
            d.action = fileinfo::sync::Action::kConvert;
            d.target = "as" + becomes;
            d.extension = becomes;
        }
        return d;
    };
    const fileinfo::sync::SyncOutcome out = fileinfo::sync::RunSync(request, nullptr);
    const auto& t = out.plan.totals;
    std::cout << "{\"status\":" << static_cast<int>(out.status) << ",\"loads\":" << t.loads;
    for (int a = 0; a < fileinfo::sync::kActionCount; ++a) {
        std::cout << ",\"" << fileinfo::sync::ActionName(static_cast<fileinfo::sync::Action>(a)) << "\":" << t.count[a];
    }
    std::cout << ",\"needed\":" << t.needed << ",\"available\":" << t.available << ",\"fits\":" << (t.fits ? "true" : "false");
    std::cout << ",\"ran\":" << (out.ran ? "true" : "false") << ",\"failed\":" << out.run.failed
              << ",\"deviceFailed\":" << (out.run.deviceFailed ? "true" : "false")
              << ",\"tempFilesRemoved\":" << out.run.tempFilesRemoved
              << ",\"interrupted\":" << (out.run.interrupted ? "true" : "false") << "}\n";
    if (out.status != fileinfo::sync::SyncStatus::kOk) {
        std::cerr << out.error << "\n";
        return out.status == fileinfo::sync::SyncStatus::kUsage ? 2 : 1;
    }
    if (out.run.interrupted) return 130;
    return out.run.failed != 0 || out.run.deviceFailed ? 1 : 0;
}
