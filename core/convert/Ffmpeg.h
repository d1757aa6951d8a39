// The ffmpeg program: found, given its arguments as a list (never a shell
// line), and run with its output going to a descriptor of ours.
#ifndef FILEINFO_CORE_CONVERT_FFMPEG_H
#define FILEINFO_CORE_CONVERT_FFMPEG_H

#include <atomic>
#include <string>
#include <vector>

#include "convert/Target.h"
#include "media/Reading.h"

namespace fileinfo {
namespace convert {

// The program to run: `given` when it names an executable file (a name
// without a slash is looked up on PATH, as is "ffmpeg" when `given` is
// empty); empty when there is none.
std::string FindProgram(const std::string& given);

// The descriptor number the output file has in the child: the output is
// named "/proc/self/fd/3", so that ffmpeg can seek in it (MP4 needs to) and
// no path of ours is ever given for it.
constexpr int kOutputFd = 3;

// ffmpeg's arguments (without the program's name) converting `source` to
// `target`, with the source's tags written out, into kOutputFd. The output
// is cut at the source's duration (when known): a sound track whose header
// says it is shorter than its frames (an encoder's padding) stays as long
// as the source says it is. `threads` for the decoder and the encoder (0:
// ffmpeg's choice).
std::vector<std::string> FfmpegArguments(const Target& target, const std::string& source, const media::Reading& reading,
                                         unsigned threads = 0);

struct ProgramRun {
    int error = 0;         // errno when it could not be started
    int exitStatus = -1;   // its exit status, or -1
    int signal = 0;        // the signal that ended it, or 0
    std::string stderrTail;  // its last lines on standard error
    bool Succeeded() const { return error == 0 && signal == 0 && exitStatus == 0; }
    // "exit status 1: <its last lines>", "killed by signal 9", ...
    std::string Failure() const;
};

// Runs `program` with `args`: standard input and output are /dev/null,
// standard error is kept (its last 2 kB), `output` is the child's
// kOutputFd. The child is in a process group of its own (a Ctrl-C at the
// terminal is ours to act on) and dies with the thread that started it.
// `cancel` set: the child is killed.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& args, int output,
                      const std::atomic<bool>* cancel);

}  // namespace convert
}  // namespace fileinfo

#endif  // FILEINFO_CORE_CONVERT_FFMPEG_H
