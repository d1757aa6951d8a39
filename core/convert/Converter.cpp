#include "convert/Converter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "FileOps.h"
#include "Scan.h"
#include "convert/Ffmpeg.h"

namespace fileinfo {
namespace convert {

namespace {

// What the sync's digest is joined with while converting: files judged
// without conversion are judged again with it, and the other way round.
constexpr char kConvertDigest[] = "+convert/1";

// The error a conversion that failed gives the executor: the file fails,
// the run goes on (neither the device's nor the source's fault).
constexpr int kConversionFailed = ECANCELED;

// The library's MP4 reader takes a movie only when its first read of 4096
// bytes comes back whole: a shorter file (a clip of a second or so) would
// land, and never be identified on the device. A free box at the end, which
// every reader passes over, brings it to that length. 0, or errno.
int PadShortMovie(int fd) {
    constexpr off_t kFirstRead = 4096;
    struct stat st;
    if (fstat(fd, &st) != 0) return errno;
    if (st.st_size >= kFirstRead) return 0;
    const size_t size = std::max<size_t>(8, static_cast<size_t>(kFirstRead - st.st_size));
    std::vector<char> box(size, 0);
    for (int k = 0; k < 4; ++k) box[static_cast<size_t>(k)] = static_cast<char>(size >> (24 - 8 * k));  // big-endian
    std::memcpy(box.data() + 4, "free", 4);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = pwrite(fd, box.data() + done, size - done, st.st_size + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n < 0 ? errno : ENOSPC;
        done += static_cast<size_t>(n);
    }
    return 0;
}

std::string Keys(const std::vector<std::string>& keys) {
    std::string joined;
    for (const std::string& k : keys) joined += (joined.empty() ? "" : ", ") + k;
    return joined;
}

// Copies `from` (read from its start) into `to`.
int CopyAll(int from, int to, std::string& error) {
    std::vector<char> buffer(1 << 18);
    off_t at = 0;
    for (;;) {
        const ssize_t n = pread(from, buffer.data(), buffer.size(), at);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = std::string("reading the converted file: ") + std::strerror(errno);
            return kConversionFailed;
        }
        if (n == 0) return 0;
        const int e = WriteAll(to, buffer.data(), static_cast<size_t>(n));
        if (e != 0) {
            error = std::strerror(e);
            return e;
        }
        at += n;
    }
}

}  // namespace

struct Converter::Slot {
    size_t entry = 0;
    bool taken = false;     // a worker converts it
    bool finished = false;  // converted, or failed
    int fd = -1;            // the made file
    int error = 0;
    std::string why;
};

Converter::Converter(const Device& device, ConvertOptions options) : device_(device), options_(std::move(options)) {
    if (options_.enabled) program_ = FindProgram(options_.program);
    jobs_ = options_.jobs != 0 ? options_.jobs : std::max(1u, std::thread::hardware_concurrency());
}

Converter::~Converter() { Stop(); }

sync::Decision Converter::Decide(const ScanItem& item) const {
    sync::Decision d = sync::CopyDecider(device_)(item);
    if (!options_.enabled || d.action != sync::Action::kSkip || d.skip != sync::SkipKind::kRefused) return d;
    const ReadingVerdict verdict = device_.JudgeReading(item.reading);
    Target target;
    std::string why;
    const bool found = options_.forceTarget ? options_.forceTarget(item, target)
                                            : FindTarget(device_, item.reading, verdict.refusedBy, target, why);
    if (!found) {
        d.reason += "; no target: " + why;
        return d;
    }
    if (program_.empty()) {
        d.skip = sync::SkipKind::kNeedsConverter;
        d.reason = std::string(sync::SkipKindName(d.skip)) + " to become " + target.Words();
        return d;
    }
    d.action = sync::Action::kConvert;
    d.skip = sync::SkipKind::kNone;
    d.target = target.Text();
    d.extension = target.extension;
    d.bytes = target.EstimateBytes(item.reading.duration_ms);
    d.reason = (verdict.refusedBy.empty() ? std::string("refused") : "refused by " + Keys(verdict.refusedBy)) + "; to " +
               target.Words();
    return d;
}

int Converter::OpenScratch() const {
    // In the device's own file system: space is taken where the file
    // lands, and nothing is left behind by a killed run. Where there are no
    // unnamed files (FAT), a named one is unlinked at once.
    if (plan_ == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const int folder = open(plan_->deviceFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0) return -1;
    const int fd = sync::OpenScratchFile(folder, true);
    const int error = errno;
    close(folder);
    errno = error;
    return fd;
}

int Converter::ConvertInto(const sync::PlanEntry& entry, int out, std::string& error) const {
    Target target;
    if (!Target::Parse(entry.target, target)) {
        error = "not a conversion target: " + entry.target;
        return EINVAL;
    }
    if (program_.empty()) {
        error = "needs ffmpeg";
        return kConversionFailed;
    }
    media::Reading source;
    media::ReadMediaPath(entry.source, source);  // its tags and duration; ffmpeg reads the rest
    // One thread each: the workers are the parallelism.
    const std::vector<std::string> args = FfmpegArguments(target, entry.source, source, 1);
    const ProgramRun run = RunProgram(program_, args, out, &cancel_);
    if (run.Succeeded()) {
        if (target.container != "mp4" && target.container != "m4a") return 0;
        const int padError = PadShortMovie(out);
        if (padError != 0) error = std::string("no room to convert: ") + std::strerror(padError);
        return padError == ENOSPC ? ENOSPC : padError;
    }
    error = "ffmpeg: " + run.Failure();
    return kConversionFailed;
}

void Converter::Start(const sync::Plan& plan) {
    Stop();
    plan_ = &plan;
    cancel_ = false;
    nextSlot_ = consumed_ = 0;
    slotOfSource_.clear();
    for (size_t k = 0; k < plan.entries.size(); ++k) {
        // The brief says which entries write; only those are read back.
        const sync::PlanEntries::Brief& brief = plan.entries.brief(k);
        const bool writes = brief.action == sync::Action::kCopy || brief.action == sync::Action::kConvert ||
                            brief.action == sync::Action::kUpdate;
        if (!writes || brief.Has(sync::PlanEntries::kPlaylist)) continue;
        const sync::PlanEntry e = plan.entries[k];
        if (e.target.empty()) continue;
        slots_.push_back(std::make_unique<Slot>());
        slots_.back()->entry = k;
        slotOfSource_[e.source] = slots_.size();
    }
    const size_t workers = std::min<size_t>(jobs_, slots_.size());
    for (size_t k = 0; k < workers; ++k) workers_.emplace_back([this] { Work(); });
}

void Converter::Work() {
    for (;;) {
        Slot* slot = nullptr;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            // At most `jobs` conversions ahead of the executor.
            changed_.wait(lock, [this] {
                return cancel_ || nextSlot_ >= slots_.size() || nextSlot_ < consumed_ + jobs_;
            });
            if (cancel_ || nextSlot_ >= slots_.size()) return;
            slot = slots_[nextSlot_++].get();
            slot->taken = true;
        }
        int fd = OpenScratch();
        int error = 0;
        std::string why;
        if (fd < 0) {
            error = errno;
            why = std::string("no room to convert: ") + std::strerror(error);
        } else {
            error = ConvertInto(plan_->entries[slot->entry], fd, why);
        }
        if (error != 0 && fd >= 0) {
            close(fd);
            fd = -1;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        slot->fd = fd;
        slot->error = error;
        slot->why = why;
        slot->finished = true;
        changed_.notify_all();
    }
}

void Converter::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        cancel_ = true;
        changed_.notify_all();
    }
    for (std::thread& t : workers_) t.join();
    workers_.clear();
    for (const std::unique_ptr<Slot>& slot : slots_) {
        if (slot->fd >= 0) close(slot->fd);
    }
    slots_.clear();
    slotOfSource_.clear();
    plan_ = nullptr;
}

int Converter::Produce(const sync::PlanEntry& entry, int out, std::string& error) {
    const auto at = plan_ != nullptr ? slotOfSource_.find(entry.source) : slotOfSource_.end();
    if (at == slotOfSource_.end()) return ConvertInto(entry, out, error);  // not started ahead
    const size_t number = at->second - 1;
    Slot& slot = *slots_[number];
    int fd = -1;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        // Slots the executor passed by (a folder it could not make) are
        // dropped; this one and those after it may go on.
        for (size_t k = consumed_; k < number; ++k) {
            if (slots_[k]->finished && slots_[k]->fd >= 0) {
                close(slots_[k]->fd);
                slots_[k]->fd = -1;
            }
        }
        consumed_ = std::max(consumed_, number + 1);
        changed_.notify_all();
        changed_.wait(lock, [&] { return slot.finished || (cancel_ && !slot.taken); });
        if (!slot.finished) {
            error = "stopped";
            return kConversionFailed;
        }
        if (slot.error != 0) {
            error = slot.why;
            return slot.error == ENOSPC ? ENOSPC : kConversionFailed;
        }
        fd = slot.fd;
        slot.fd = -1;
    }
    const int result = CopyAll(fd, out, error);
    close(fd);
    return result;
}

std::string ProveMade(const Device& device, int fd, const std::string& name) {
    ScanItem item;
    LoadDescriptorInto(fd, name, item);
    if (item.status != MFI_OK || !item.hasRecord) {
        return "the converted file did not load (status " + std::to_string(item.status) + ")";
    }
    if (!item.Identified()) return "the converted file was not identified";
    const ReadingVerdict reading = device.JudgeReading(item.reading);
    const DeviceVerdict library = device.Judge(item);
    if (reading.playable && library.playable) return {};
    std::string why = "the device refuses the converted file";
    if (!reading.playable) {
        why += " (" + (reading.refusedBy.empty() ? std::string() : Keys(reading.refusedBy) + ": ") + reading.explanation + ")";
    }
    if (!library.playable) why += " [the library's filter: " + library.explanation + "]";
    return why;
}

std::string Converter::Prove(const sync::PlanEntry& entry, int fd) const {
    if (entry.target.empty() || entry.playlist) return {};  // the source's own bytes, judged when planned
    Target target;
    if (!Target::Parse(entry.target, target)) return "not a conversion target: " + entry.target;
    // A plain name of the target's type: the library picks its reader by
    // the extension, and the source's name may hold anything.
    return ProveMade(device_, fd, "converted" + target.extension);
}

void Converter::Attach(sync::SyncRequest& request) {
    if (!options_.enabled) return;  // the sync as it is without conversion
    request.decide = [this](const ScanItem& item) { return Decide(item); };
    request.decideDigest = kConvertDigest;
    request.execute.produce = [this](const sync::PlanEntry& e, int out, std::string& error) {
        return Produce(e, out, error);
    };
    request.execute.prove = [this](const sync::PlanEntry& e, int fd) { return Prove(e, fd); };
    request.running = [this](const sync::Plan& plan) { Start(plan); };
}

}  // namespace convert
}  // namespace fileinfo
