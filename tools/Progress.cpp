#include "Progress.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>

#include "MediaFileInfo.h"
#include "Scan.h"

namespace fileinfo {

namespace {

// Set by the handler, read by the output's thread and by loading workers
// that wait for the temporary file: a lock-free atomic serves both a signal
// handler and other threads.
std::atomic<int> interrupted{0};
static_assert(std::atomic<int>::is_always_lock_free, "the interrupt flag is set from a signal handler");
// The handler in place before ours, put back by RestoreInterruptHandler.
struct sigaction previousAction {};
bool installed = false;

void OnInterrupt(int) { interrupted.store(1); }

// A load waiting for another to finish with the compressed-movie temporary
// file asks this every few milliseconds: Ctrl-C ends the wait too.
int InterruptedForLibrary() { return interrupted.load() != 0 ? 1 : 0; }

void WriteAll(const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

std::string Clock(double seconds) {
    const unsigned long s = static_cast<unsigned long>(seconds + 0.5);
    char text[32];
    if (s >= 3600) {
        snprintf(text, sizeof text, "%lu:%02lu:%02lu", s / 3600, (s / 60) % 60, s % 60);
    } else {
        snprintf(text, sizeof text, "%lu:%02lu", s / 60, s % 60);
    }
    return text;
}

constexpr auto kTick = std::chrono::milliseconds(100);

}  // namespace

bool Interrupted() { return interrupted.load() != 0; }

void InstallInterruptHandler() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (sigaction(SIGINT, &action, installed ? nullptr : &previousAction) == 0) installed = true;
    MediaFileSetTempFileInterrupt(&InterruptedForLibrary);
}

void RestoreInterruptHandler() {
    if (installed) sigaction(SIGINT, &previousAction, nullptr);
    installed = false;
    interrupted.store(0);
    MediaFileSetTempFileInterrupt(nullptr);
}

Progress::Progress(ProgressMode mode)
    : show_(mode == ProgressMode::kAlways || (mode == ProgressMode::kAuto && isatty(STDERR_FILENO))),
      terminal_(isatty(STDERR_FILENO) != 0),
      delay_(mode == ProgressMode::kAlways ? std::chrono::steady_clock::duration::zero()
                                           : std::chrono::steady_clock::duration(std::chrono::seconds(1))) {}

Progress::~Progress() { Stop(); }

void Progress::Start(Scan& scan) {
    scan_ = &scan;
    started_ = std::chrono::steady_clock::now();
    if (show_ && delay_ == std::chrono::steady_clock::duration::zero()) {
        // Forced: shown from the start, however short the run.
        std::lock_guard<std::mutex> lock(mutex_);
        Draw(false);
    }
    ticker_ = std::thread([this] { Tick(); });
}

void Progress::Stop() {
    if (!ticker_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    ticker_.join();
    std::lock_guard<std::mutex> lock(mutex_);
    // On a terminal the line goes away; in a log its last state stays,
    // even when the run ended before the first tick.
    if (terminal_) {
        if (drawn_) Clear();
    } else if (show_) {
        Draw(true);
    }
}

void Progress::Say(const std::string& message) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (drawn_ && terminal_) Clear();
    WriteAll("fileinfo: " + message + "\n");
}

void Progress::Tick() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        if (Interrupted()) scan_->Cancel();
        if (show_ && std::chrono::steady_clock::now() - started_ >= delay_) Draw(false);
        wake_.wait_for(lock, kTick);
    }
}

// "fileinfo: 1200 of 5000 files, 2400 files/s, 0:02 left"; called with the
// lock held. On a terminal the line is redrawn in place; elsewhere each
// state is a line of its own.
void Progress::Draw(bool final) {
    const size_t done = scan_->Done(), found = scan_->Found();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
    const double rate = seconds > 0 ? done / seconds : 0;
    std::string line = "fileinfo: " + std::to_string(done) + " of " + std::to_string(found) + " files";
    if (seconds >= 0.5) {
        line += ", " + std::to_string(static_cast<unsigned long>(rate)) + " files/s";
        if (rate > 0) line += ", " + Clock((found - done) / rate) + " left";
    }
    if (terminal_ && !final) {
        WriteAll("\r" + line + "\x1b[K");
    } else if (!terminal_ && (final || !drawn_)) {
        WriteAll(line + "\n");  // a log gets the first and the last state
    }
    drawn_ = true;
}

void Progress::Clear() {
    WriteAll("\r\x1b[K");
    drawn_ = false;
}

}  // namespace fileinfo
