#include "convert/Ffmpeg.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace fileinfo {
namespace convert {

namespace {

constexpr size_t kStderrKept = 2048;

bool Executable(const std::string& path) {
    struct stat st;
    return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string OnPath(const std::string& name) {
    const char* path = getenv("PATH");
    const std::string folders = path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin";
    size_t start = 0;
    while (start <= folders.size()) {
        size_t end = folders.find(':', start);
        if (end == std::string::npos) end = folders.size();
        const std::string folder = end == start ? "." : folders.substr(start, end - start);
        const std::string candidate = folder + "/" + name;
        if (Executable(candidate)) return candidate;
        start = end + 1;
    }
    return {};
}

std::string Number(uint64_t n) { return std::to_string(n); }

// The encoder and the muxer's options for the sound.
void SoundArguments(const Target& t, std::vector<std::string>& a) {
    const SoundTarget& s = t.sound;
    if (s.codec == "aac") {
        a.insert(a.end(), {"-c:a", "aac", "-profile:a", "aac_low", "-b:a", Number(s.bitRate)});
    } else if (s.codec == "mp3") {
        a.insert(a.end(), {"-c:a", "libmp3lame", "-b:a", Number(s.bitRate)});
    } else {
        const bool big = t.container == "aiff";
        const char* codec = s.bitsPerSample == 24 ? (big ? "pcm_s24be" : "pcm_s24le")
                            : s.bitsPerSample == 8 ? (big ? "pcm_s8" : "pcm_u8")
                                                   : (big ? "pcm_s16be" : "pcm_s16le");
        a.insert(a.end(), {"-c:a", codec});
    }
    a.insert(a.end(), {"-ar", Number(s.sampleRate), "-ac", Number(s.channels)});
}

// The rate limit's buffer: one second of the peak rate. For MPEG-4 Visual,
// a whole number of 512 kbit (64 KiB): the library reads an mp4v track's
// peak rate from the bytes where the decoder configuration keeps the low
// half of the buffer size (in bytes) and the high half of the maximum rate,
// and a buffer of whole 64 KiB leaves there the maximum rate's high half
// alone, far below any limit, so that its filter judges the file by what
// the device lists rather than by that misreading. The reading's verdict
// still judges the real peak rate.
uint64_t BufferBits(const PictureTarget& p) {
    if (p.codec != "mpeg4") return p.peakBitRate;
    constexpr uint64_t kWhole = 8ull * 65536;
    return std::max<uint64_t>(kWhole, p.peakBitRate / kWhole * kWhole);
}

void PictureArguments(const Target& t, std::vector<std::string>& a) {
    const PictureTarget& p = t.picture;
    const std::string scale = "scale=" + Number(p.width) + ":" + Number(p.height) + ",setsar=1";
    if (p.codec == "h264") {
        const char* profile = p.profile == 100 ? "high" : p.profile == 77 ? "main" : "baseline";
        const std::string level = Number(p.level / 10) + "." + Number(p.level % 10);
        a.insert(a.end(), {"-c:v", "libx264", "-preset", "veryfast", "-profile:v", profile, "-level:v", level});
    } else {
        // Simple Profile: no B-frames, no quarter pixels, no global motion.
        a.insert(a.end(), {"-c:v", "mpeg4", "-profile:v", "0", "-level:v", Number(p.profile), "-bf", "0"});
    }
    a.insert(a.end(), {"-pix_fmt", "yuv420p", "-vf", scale, "-r", Number(p.frameRateMilli) + "/1000",
                       "-b:v", Number(p.bitRate), "-maxrate", Number(p.peakBitRate), "-bufsize", Number(BufferBits(p))});
}

const char* Muxer(const std::string& container) {
    if (container == "m4a") return "ipod";
    if (container == "mp4") return "mp4";
    if (container == "mp3") return "mp3";
    if (container == "wav") return "wav";
    return "aiff";
}

void Append(std::string& tail, const char* data, size_t size) {
    tail.append(data, size);
    if (tail.size() > 2 * kStderrKept) tail.erase(0, tail.size() - kStderrKept);
}

}  // namespace

std::string FindProgram(const std::string& given) {
    const std::string name = given.empty() ? "ffmpeg" : given;
    if (name.find('/') != std::string::npos) return Executable(name) ? name : std::string();
    return OnPath(name);
}

std::vector<std::string> FfmpegArguments(const Target& t, const std::string& source, const media::Reading& reading,
                                         unsigned threads) {
    const media::Tags& tags = reading.tags;
    std::vector<std::string> a = {"-nostdin", "-hide_banner", "-loglevel", "error", "-y"};
    if (threads != 0) a.insert(a.end(), {"-threads", Number(threads)});
    // "file:" keeps a name starting with '-' or holding ':' a file's name.
    a.insert(a.end(), {"-i", "file:" + source});
    if (t.silentSound) {
        // Silence for as long as the picture lasts (-shortest).
        a.insert(a.end(), {"-f", "lavfi", "-i",
                           "anullsrc=channel_layout=" + std::string(t.sound.channels == 1 ? "mono" : "stereo") +
                               ":sample_rate=" + Number(t.sound.sampleRate)});
    }
    if (t.hasPicture) a.insert(a.end(), {"-map", "0:v:0"});
    if (t.silentSound) {
        a.insert(a.end(), {"-map", "1:a:0", "-shortest"});
    } else if (t.hasSound) {
        a.insert(a.end(), {"-map", t.hasPicture ? "0:a:0?" : "0:a:0"});
    }
    a.insert(a.end(), {"-map_metadata", "0", "-map_chapters", "-1"});
    if (t.hasPicture) PictureArguments(t, a);
    if (t.hasSound) SoundArguments(t, a);
    // The tags as our readers read them: the source's container may name
    // them otherwise than the target's muxer does.
    const std::pair<const char*, const std::string*> texts[] = {
        {"title", &tags.title},   {"artist", &tags.artist},   {"album", &tags.album},      {"genre", &tags.genre},
        {"date", &tags.year},     {"comment", &tags.comment}, {"composer", &tags.composer}};
    for (const auto& text : texts) {
        if (!text.second->empty()) a.insert(a.end(), {"-metadata", std::string(text.first) + "=" + *text.second});
    }
    if (tags.track != 0) {
        const std::string track = Number(tags.track) + (tags.track_total != 0 ? "/" + Number(tags.track_total) : "");
        a.insert(a.end(), {"-metadata", "track=" + track});
    }
    // MP3: the library reads tags only with an ID3v1 trailer.
    if (t.container == "mp3") a.insert(a.end(), {"-id3v2_version", "3", "-write_id3v1", "1"});
    if (t.container == "aiff") a.insert(a.end(), {"-write_id3v2", "1"});
    if (reading.duration_ms != 0 && !reading.duration_estimated) {
        const std::string ms = Number(reading.duration_ms % 1000);
        a.insert(a.end(), {"-t", Number(reading.duration_ms / 1000) + "." + std::string(3 - ms.size(), '0') + ms});
    }
    if (threads != 0) a.insert(a.end(), {"-threads", Number(threads)});
    a.insert(a.end(), {"-f", Muxer(t.container), "file:/proc/self/fd/" + Number(kOutputFd)});
    return a;
}

std::string ProgramRun::Failure() const {
    if (error != 0) return std::string("could not be started: ") + std::strerror(error);
    std::string words = signal != 0 ? "killed by signal " + std::to_string(signal) : "exit status " + std::to_string(exitStatus);
    std::string tail = stderrTail;
    while (!tail.empty() && (tail.back() == '\n' || tail.back() == '\r')) tail.pop_back();
    // The last lines, in one line.
    if (tail.size() > 400) tail = tail.substr(tail.size() - 400);
    const size_t firstLine = tail.size() > 300 ? tail.find('\n') : std::string::npos;
    if (firstLine != std::string::npos) tail = tail.substr(firstLine + 1);
    for (char& c : tail) {
        if (c == '\n' || c == '\r') c = '|';
    }
    return tail.empty() ? words : words + ": " + tail;
}

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args, int output,
                      const std::atomic<bool>* cancel) {
    ProgramRun run;
    // Everything the child needs is made before the fork: between fork and
    // exec only calls that are safe in a copy of a threaded process.
    std::vector<std::string> words;
    words.push_back(program);
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);
    int errPipe[2];
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        run.error = errno;
        return run;
    }
    // Above the child's low numbers, which its dup2 calls replace.
    const auto high = [](int fd) {
        if (fd < 0 || fd > kOutputFd) return fd;
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, 10);
        close(fd);
        return moved;
    };
    errPipe[1] = high(errPipe[1]);
    const int devNull = high(open("/dev/null", O_RDWR | O_CLOEXEC));
    // Descriptors this process inherited without close-on-exec are not the
    // child's business: all above kOutputFd are closed in it.
    const long openMax = sysconf(_SC_OPEN_MAX);
    const int lastFd = openMax > 0 && openMax < 65536 ? static_cast<int>(openMax) - 1 : 65535;
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);  // the parent is already gone
        // Output first: it may sit on 0, 1 or 2, which are replaced next.
        if (output != kOutputFd && dup2(output, kOutputFd) < 0) _exit(127);
        if (output == kOutputFd) fcntl(kOutputFd, F_SETFD, 0);
        if (errPipe[1] < 0 || devNull < 0 || dup2(devNull, 0) < 0 || dup2(devNull, 1) < 0 || dup2(errPipe[1], 2) < 0) _exit(127);
        if (close_range(kOutputFd + 1, ~0u, 0) != 0) {
            for (int fd = kOutputFd + 1; fd <= lastFd; ++fd) close(fd);
        }
        execv(program.c_str(), argv.data());
        const char failed[] = "could not run the program\n";
        ssize_t ignored = write(2, failed, sizeof failed - 1);
        (void)ignored;
        _exit(127);
    }
    const int forkError = errno;
    if (errPipe[1] >= 0) close(errPipe[1]);
    if (devNull >= 0) close(devNull);
    if (pid < 0) {
        close(errPipe[0]);
        run.error = forkError;
        return run;
    }
    bool killed = false;
    char buffer[4096];
    for (;;) {
        if (cancel != nullptr && cancel->load() && !killed) {
            kill(pid, SIGKILL);
            killed = true;
        }
        pollfd p{errPipe[0], POLLIN, 0};
        const int ready = poll(&p, 1, 100);
        if (ready < 0 && errno != EINTR) break;
        if (ready <= 0) continue;
        const ssize_t n = read(errPipe[0], buffer, sizeof buffer);
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (n <= 0) break;  // the child closed its standard error: it ended
        Append(run.stderrTail, buffer, static_cast<size_t>(n));
    }
    close(errPipe[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (run.stderrTail.size() > kStderrKept) run.stderrTail.erase(0, run.stderrTail.size() - kStderrKept);
    if (WIFEXITED(status)) run.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) run.signal = WTERMSIG(status);
    return run;
}

}  // namespace convert
}  // namespace fileinfo
