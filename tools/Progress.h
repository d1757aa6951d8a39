// The progress line on standard error, and the one place that writes the
// tool's messages there: a message first clears the progress line, which
// is drawn again on the next tick.
//
// A ticker thread also watches for Ctrl-C: the signal handler only sets a
// flag, and the ticker cancels the scan, so the line being written is
// finished and nothing after it starts.
#ifndef FILEINFO_TOOLS_PROGRESS_H
#define FILEINFO_TOOLS_PROGRESS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace fileinfo {

class Scan;

enum class ProgressMode : unsigned char {
    kAuto,    // only when standard error is a terminal, after about a second
    kAlways,  // from the start, wherever standard error goes
    kNever,
};

// Set by SIGINT once the handler is installed.
bool Interrupted();
void InstallInterruptHandler();
// Puts back the handler that was in place before, and forgets a Ctrl-C.
void RestoreInterruptHandler();

class Progress {
public:
    explicit Progress(ProgressMode mode);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Starts ticking for a scan; Stop ends it and clears the line.
    void Start(Scan& scan);
    void Stop();

    // One line on standard error, "fileinfo: " and the message.
    void Say(const std::string& message);

    // Runs `write`, which writes the tool's output to the same terminal,
    // with the progress line out of its way.
    template <class Write>
    void Aside(Write&& write) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (drawn_ && terminal_) Clear();
        write();
    }

private:
    void Tick();
    void Draw(bool final);
    void Clear();

    bool show_;
    bool terminal_;
    std::chrono::steady_clock::duration delay_;
    std::chrono::steady_clock::time_point started_;
    Scan* scan_ = nullptr;
    std::mutex mutex_;  // standard error and the fields below
    std::condition_variable wake_;
    bool stopping_ = false;
    bool drawn_ = false;
    std::thread ticker_;
};

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_PROGRESS_H
