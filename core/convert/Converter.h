// The sync's conversion of what the device refuses: the decider that plans
// a `convert`, the producer that runs ffmpeg for it, and the prover that
// judges the made file before it lands.
//
// Conversions run ahead of the executor on workers of their own, each into
// an unnamed file in the device folder's file system (O_TMPFILE; memory
// where the file system has none), which the producer then copies into the
// executor's temporary file. Nothing is named but by the executor, so a
// killed run leaves no file of the converter's anywhere, and the executor's
// temporary names and proof keep every partial or refused file off the
// final names.
#ifndef FILEINFO_CORE_CONVERT_CONVERTER_H
#define FILEINFO_CORE_CONVERT_CONVERTER_H

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Verdict.h"
#include "convert/Target.h"
#include "sync/Executor.h"
#include "sync/Plan.h"
#include "sync/Sync.h"

namespace fileinfo {
namespace convert {

struct ConvertOptions {
    bool enabled = true;  // false: refused files are skipped, as without conversion
    std::string program;  // --ffmpeg; empty: "ffmpeg" on PATH
    unsigned jobs = 0;    // conversions at once; 0: one per core
    // Tests: the target every refused file is given instead of its own.
    std::function<bool(const ScanItem& item, Target& target)> forceTarget;
};

class Converter {
public:
    Converter(const Device& device, ConvertOptions options);
    ~Converter();  // stops the conversions still running
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool Enabled() const { return options_.enabled; }
    // The ffmpeg program found, or empty.
    const std::string& Program() const { return program_; }

    // Copies what the device plays; a refused file with a target becomes a
    // convert (or a skip that "needs ffmpeg" when there is none).
    sync::Decision Decide(const ScanItem& item) const;

    // Starts the conversions of `plan` (its entries with a target) ahead of
    // the executor. The plan must outlive the run.
    void Start(const sync::Plan& plan);
    // Ends them: running ones are killed, made ones dropped.
    void Stop();

    // The executor's producer and prover.
    int Produce(const sync::PlanEntry& entry, int out, std::string& error);
    std::string Prove(const sync::PlanEntry& entry, int fd) const;

    // Converts one entry into `out` (a file open for writing) in the
    // calling thread. 0, or an errno with the reason in `error`.
    int ConvertInto(const sync::PlanEntry& entry, int out, std::string& error) const;

    // Joins the converter to a sync request: its decider, digest,
    // producer, prover and start.
    void Attach(sync::SyncRequest& request);

private:
    struct Slot;
    void Work();
    int OpenScratch() const;

    const Device& device_;
    ConvertOptions options_;
    std::string program_;
    unsigned jobs_ = 1;

    const sync::Plan* plan_ = nullptr;
    std::vector<std::unique_ptr<Slot>> slots_;
    // A converted entry's source -> its slot + 1. Entries come back from the
    // plan's store as copies, so they are known by their sources, which the
    // plan gives one entry each.
    std::unordered_map<std::string, size_t> slotOfSource_;
    std::mutex mutex_;
    std::condition_variable changed_;
    size_t nextSlot_ = 0;
    size_t consumed_ = 0;  // slots before this one are taken or passed by
    std::atomic<bool> cancel_{false};
    std::vector<std::thread> workers_;
};

// The reason a made file does not land: empty when both verdicts play it.
std::string ProveMade(const Device& device, int fd, const std::string& name);

}  // namespace convert
}  // namespace fileinfo

#endif  // FILEINFO_CORE_CONVERT_CONVERTER_H
