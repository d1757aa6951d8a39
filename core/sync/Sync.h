// One sync, start to end, as every front end runs it: the device folder
// locked, the manifest opened, the plan made and shown, and, unless it is a
// dry run or does not fit, carried out.
#ifndef FILEINFO_CORE_SYNC_SYNC_H
#define FILEINFO_CORE_SYNC_SYNC_H

#include <functional>
#include <string>
#include <vector>

#include "Verdict.h"
#include "sync/Executor.h"
#include "sync/Plan.h"

namespace fileinfo {
namespace sync {

struct SyncRequest {
    std::vector<std::string> sources;
    std::string deviceFolder;
    const Device* device = nullptr;  // judges with CopyDecider(*device) unless `decide` is given
    Decider decide;
    PlanOptions plan;                // its capsDigest is set from the device
    bool dryRun = false;
    ExecuteOptions execute;          // its capsDigest likewise
    // Joined to the capability list's digest: what else decides what a
    // file becomes (conversion on or off), so that files judged without it
    // are judged again.
    std::string decideDigest;
    // Called with the plan just before it is carried out (not in a dry
    // run): a converter starts its work ahead of the executor here.
    std::function<void(const Plan&)> running;
};

enum class SyncStatus {
    kOk,         // planned, and carried out unless a dry run; see the run for failures
    kUsage,      // the device folder or a source is wrong
    kLocked,     // another sync holds the device folder
    kNewer,      // the manifest is of a newer schema
    kError,      // the manifest could not be used
    kNoRoom,     // the plan does not fit: nothing was written
};

struct SyncOutcome {
    SyncStatus status = SyncStatus::kOk;
    std::string error;
    Plan plan;
    bool ran = false;
    RunResult run;
};

// `planned` is called with the plan before anything is written.
SyncOutcome RunSync(const SyncRequest& request, const std::function<void(const Plan&)>& planned);

}  // namespace sync
}  // namespace fileinfo

#endif  // FILEINFO_CORE_SYNC_SYNC_H
