// Nobody can hold a load of a compressed movie up for ever through
// "/temp.bin": a file of another owner or of another kind is refused before
// any wait, a wait for another load's lock is bounded, an interruption check
// ends it, and the tool ends on Ctrl-C while it waits.
//
// A load that would hang runs in a child process with an alarm, so that a
// hang fails the test instead of stalling the run.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "MediaFileInfo.h"
#include "Mp4Builder.h"
#include "TempBinTest.h"
#include "TempFileSharingTestHelpers.h"
#include "TestFiles.h"

using namespace TempFileSharingTestHelpers;

namespace {

// Runs body in a child process that the alarm ends after `seconds`; the
// child's exit status (body's return value), or -SIGNAL when it was killed.
template <class Body>
int InChild(unsigned seconds, Body body) {
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(seconds);
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// "/temp.bin" made and locked by this process through its own descriptor,
// as another load that is inflating holds it.
int HoldTempBin(uid_t owner) {
    const int held = open("/temp.bin", O_RDWR | O_CREAT | O_NOFOLLOW, 0666);
    if (held < 0) return -1;
    if (owner != geteuid() && fchown(held, owner, owner) != 0) {
        close(held);
        return -1;
    }
    flock(held, LOCK_EX);
    return held;
}

int interruptCalls = 0;
int InterruptAtOnce() {
    ++interruptCalls;
    return 1;
}

TEST_F(TempFileSharing, TempFileOfAnotherOwnerIsRefusedBeforeAnyWait) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give /temp.bin another owner";
    const int held = HoldTempBin(65534);
    ASSERT_GE(held, 0);
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    const int result = InChild(20, [&] {
        MediaFileTakeTempFileError();
        const Loaded l = LoadOnce(movie);
        return MediaFileTakeTempFileError() == EPERM && l.video == 0 ? 0 : 1;
    });
    close(held);
    EXPECT_EQ(result, 0) << "a foreign /temp.bin held the load up (killed by signal " << -result << ")";
}

TEST_F(TempFileSharing, TempFileThatIsAFifoIsRefusedBeforeAnyWait) {
    ASSERT_EQ(mkfifo("/temp.bin", 0666), 0);
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    const int result = InChild(20, [&] {
        MediaFileTakeTempFileError();
        LoadOnce(movie);
        return MediaFileTakeTempFileError() == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(TempFileSharing, WaitForAHeldTempFileEndsAtItsBoundAsIfTheFileCouldNotBeUsed) {
    const int held = HoldTempBin(geteuid());
    ASSERT_GE(held, 0);
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    MediaFileSetTempFileWait(50);
    MediaFileTakeTempFileError();
    const Loaded waited = LoadOnce(movie);
    const int error = MediaFileTakeTempFileError();
    MediaFileSetTempFileWait(10000);
    close(held);
    EXPECT_EQ(error, EWOULDBLOCK);
    // The record the library gives when the file cannot be made: the movie's
    // header is not read (as with a symbolic link at the path).
    remove("/temp.bin");
    ASSERT_EQ(symlink("/nonexistent", "/temp.bin"), 0);
    const Loaded refused = LoadOnce(movie);
    EXPECT_EQ(MediaFileTakeTempFileError(), ELOOP);
    remove("/temp.bin");
    EXPECT_EQ(waited.status, refused.status);
    EXPECT_EQ(waited.video, 0);
    EXPECT_EQ(memcmp(waited.record, refused.record, sizeof waited.record), 0);
}

TEST_F(TempFileSharing, InterruptionCheckEndsTheWaitAtOnce) {
    const int held = HoldTempBin(geteuid());
    ASSERT_GE(held, 0);
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    interruptCalls = 0;
    MediaFileSetTempFileInterrupt(&InterruptAtOnce);
    MediaFileTakeTempFileError();
    const Loaded l = LoadOnce(movie);
    const int error = MediaFileTakeTempFileError();
    MediaFileSetTempFileInterrupt(nullptr);
    close(held);
    EXPECT_EQ(error, EINTR);
    EXPECT_EQ(interruptCalls, 1);
    EXPECT_EQ(l.video, 0);
}

TEST_F(TempFileSharing, FreeTempFileIsTakenWithoutAskingTheInterruptionCheck) {
    interruptCalls = 0;
    MediaFileSetTempFileInterrupt(&InterruptAtOnce);
    const Loaded l = LoadOnce(dir_.write("avc.mov", CompressedAvc()));
    MediaFileSetTempFileInterrupt(nullptr);
    EXPECT_EQ(interruptCalls, 0);
    EXPECT_EQ(l.status, MFI_OK);
    EXPECT_EQ(reinterpret_cast<const MediaFileInfo_st*>(l.record)->width, 320);
}

TEST_F(TempFileSharing, CtrlCEndsTheToolWhileItWaitsForTheTempFile) {
    const std::string tool = FILEINFO_TOOL_PATH;
    if (tool.empty()) GTEST_SKIP() << "the fileinfo tool is not built";
    const int held = HoldTempBin(geteuid());
    ASSERT_GE(held, 0);
    const std::string movie = dir_.write("avc.mov", CompressedAvc());
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_WRONLY);
        const int err = open(dir_.file("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(null, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        alarm(60);  // the default bound is 10 s: a tool that never ends is killed
        execl(tool.c_str(), tool.c_str(), "--json", "--jobs", "2", movie.c_str(), movie.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    // Once the tool waits for the lock (its main thread then sleeps in the
    // loop), Ctrl-C reaches it.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    close(held);
    ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 130);
    // Ended by Ctrl-C, not by the wait's bound running out.
    std::ifstream in(dir_.file("err"));
    const std::string err((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(err.find(strerror(EWOULDBLOCK)), std::string::npos) << err;
}

}  // namespace
