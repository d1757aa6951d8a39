#include "sync/Sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sync/Manifest.h"

namespace fileinfo {
namespace sync {

SyncOutcome RunSync(const SyncRequest& request, const std::function<void(const Plan&)>& planned) {
    SyncOutcome out;
    const std::string folder = CheckDeviceFolder(request.sources, request.deviceFolder, out.error);
    if (folder.empty()) {
        out.status = SyncStatus::kUsage;
        return out;
    }
    PlanOptions planOptions = request.plan;
    ExecuteOptions executeOptions = request.execute;
    planOptions.nameScratch = planOptions.nameScratch && !request.dryRun;
    if (request.device != nullptr) planOptions.capsDigest = CapsDigest(request.device->Text());
    planOptions.capsDigest += request.decideDigest;
    executeOptions.capsDigest = planOptions.capsDigest;
    const Decider decide = request.decide ? request.decide : CopyDecider(*request.device);

    SyncLock lock;
    if (!request.dryRun) {
        const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) {
            out.status = SyncStatus::kUsage;
            out.error = request.deviceFolder + ": " + strerror(errno);
            return out;
        }
        const ManifestStatus locked = lock.Take(fd, out.error);
        close(fd);
        if (locked != ManifestStatus::kOk) {
            out.status = locked == ManifestStatus::kLocked ? SyncStatus::kLocked : SyncStatus::kError;
            return out;
        }
    }
    Manifest manifest;
    switch (manifest.Open(folder, !request.dryRun, out.error)) {
        case ManifestStatus::kOk: break;
        case ManifestStatus::kNewer: out.status = SyncStatus::kNewer; return out;
        case ManifestStatus::kLocked: out.status = SyncStatus::kLocked; return out;
        case ManifestStatus::kError: out.status = SyncStatus::kError; return out;
    }
    switch (MakePlan(request.sources, folder, planOptions, decide, manifest, out.plan, out.error)) {
        case PlanStatus::kOk: break;
        case PlanStatus::kUsage: out.status = SyncStatus::kUsage; return out;
        case PlanStatus::kLocked: out.status = SyncStatus::kLocked; return out;
        case PlanStatus::kNewer: out.status = SyncStatus::kNewer; return out;
        case PlanStatus::kError: out.status = SyncStatus::kError; return out;
    }
    if (planned) planned(out.plan);
    if (request.dryRun) return out;
    if (!out.plan.totals.fits) {
        out.status = SyncStatus::kNoRoom;
        out.error = "the plan needs " + std::to_string(out.plan.totals.shortBy) + " bytes more than the device has free";
        return out;
    }
    if (request.running) request.running(out.plan);
    out.run = Execute(out.plan, manifest, executeOptions);
    out.ran = true;
    return out;
}

}  // namespace sync
}  // namespace fileinfo
