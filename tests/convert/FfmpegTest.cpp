// The ffmpeg program's arguments and the run of a program with them.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "convert/Ffmpeg.h"
#include "convert/Target.h"

namespace fileinfo {
namespace convert {
namespace {

std::string Joined(const std::vector<std::string>& args) {
    std::string out;
    for (const std::string& a : args) out += (out.empty() ? "" : " ") + ("[" + a + "]");
    return out;
}

TEST(Ffmpeg, AacArgumentsNameTheSourceAsAFileMapTheSoundCarryTheTagsAndCutAtTheDuration) {
    Target t;
    ASSERT_TRUE(Target::Parse("convert/1 type=AAC container=m4a ext=.m4a audio=aac rate=44100 channels=2 arate=192000", t));
    media::Reading r;
    r.duration_ms = 2027;
    r.tags.title = "Song \"one\"";
    r.tags.artist = "-Artist";
    r.tags.year = "1999";
    r.tags.track = 3;
    r.tags.track_total = 9;
    EXPECT_EQ(Joined(FfmpegArguments(t, "-x.mp3", r, 1)),
              "[-nostdin] [-hide_banner] [-loglevel] [error] [-y] [-threads] [1] [-i] [file:-x.mp3] [-map] [0:a:0] "
              "[-map_metadata] [0] [-map_chapters] [-1] [-c:a] [aac] [-profile:a] [aac_low] [-b:a] [192000] [-ar] "
              "[44100] [-ac] [2] [-metadata] [title=Song \"one\"] [-metadata] [artist=-Artist] [-metadata] [date=1999] "
              "[-metadata] [track=3/9] [-t] [2.027] [-threads] [1] [-f] [ipod] [file:/proc/self/fd/3]");
}

TEST(Ffmpeg, Mp3ArgumentsWriteAnId3v1Trailer) {
    Target t;
    ASSERT_TRUE(Target::Parse("convert/1 type=MP3 container=mp3 ext=.mp3 audio=mp3 rate=44100 channels=2 arate=256000", t));
    const std::string args = Joined(FfmpegArguments(t, "a.flac", media::Reading()));
    EXPECT_NE(args.find("[-c:a] [libmp3lame] [-b:a] [256000]"), std::string::npos) << args;
    EXPECT_NE(args.find("[-id3v2_version] [3] [-write_id3v1] [1] [-f] [mp3]"), std::string::npos) << args;
    EXPECT_EQ(args.find("[-t]"), std::string::npos) << args;  // no duration known: not cut
}

TEST(Ffmpeg, H264ArgumentsScaleAndHoldTheRates) {
    Target t;
    ASSERT_TRUE(Target::Parse("convert/1 type=H.264 container=mp4 ext=.mp4 video=h264 size=320x180 fps=29970 profile=66 "
                              "level=30 vrate=216000 vpeak=345600 audio=aac rate=48000 channels=2 arate=128000",
                              t));
    const std::string args = Joined(FfmpegArguments(t, "/m/film.mkv", media::Reading()));
    EXPECT_NE(args.find("[-map] [0:v:0] [-map] [0:a:0?]"), std::string::npos) << args;
    EXPECT_NE(args.find("[-c:v] [libx264] [-preset] [veryfast] [-profile:v] [baseline] [-level:v] [3.0] [-pix_fmt] "
                        "[yuv420p] [-vf] [scale=320:180,setsar=1] [-r] [29970/1000] [-b:v] [216000] [-maxrate] "
                        "[345600] [-bufsize] [345600]"),
              std::string::npos)
        << args;
    EXPECT_NE(args.find("[-f] [mp4] [file:/proc/self/fd/3]"), std::string::npos) << args;
}

TEST(Ffmpeg, SilentSoundIsASecondInputMappedForAsLongAsThePicture) {
    Target t;
    ASSERT_TRUE(Target::Parse("convert/1 type=H.264 container=mp4 ext=.mp4 video=h264 size=320x240 fps=25000 profile=66 "
                              "level=30 vrate=288000 vpeak=460800 audio=aac rate=44100 channels=1 arate=64000 silence=1",
                              t));
    const std::string args = Joined(FfmpegArguments(t, "clip.mp4", media::Reading()));
    EXPECT_NE(args.find("[-i] [file:clip.mp4] [-f] [lavfi] [-i] [anullsrc=channel_layout=mono:sample_rate=44100] "
                        "[-map] [0:v:0] [-map] [1:a:0] [-shortest]"),
              std::string::npos)
        << args;
    EXPECT_NE(args.find("[-c:a] [aac] [-profile:a] [aac_low] [-b:a] [64000] [-ar] [44100] [-ac] [1]"), std::string::npos)
        << args;
}

TEST(Ffmpeg, FindProgramTakesAnExecutablePathOrANameOnPath) {
    EXPECT_EQ(FindProgram("/nonexistent"), "");
    EXPECT_EQ(FindProgram("/etc/passwd"), "");  // not executable
    EXPECT_EQ(FindProgram("/tmp"), "");         // a folder
    const std::string sh = FindProgram("sh");
    EXPECT_FALSE(sh.empty());
    EXPECT_EQ(sh.substr(sh.size() - 3), "/sh");
}

TEST(Ffmpeg, AFailedRunGivesItsExitStatusAndLastLines) {
    const ProgramRun run = RunProgram(FindProgram("sh"), {"-c", "echo one >&2; echo two >&2; exit 3"}, 1, nullptr);
    EXPECT_FALSE(run.Succeeded());
    EXPECT_EQ(run.exitStatus, 3);
    EXPECT_EQ(run.Failure(), "exit status 3: one|two");
}

TEST(Ffmpeg, TheOutputIsTheChildsDescriptor3AndTheRestIsClosed) {
    TempDir dir;
    const std::string out = dir.file("out");
    const int fd = open(out.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    // Only 0, 1, 2 and 3 are open in the child.
    const ProgramRun run = RunProgram(FindProgram("sh"), {"-c", "printf made > /proc/self/fd/3; ls /proc/self/fd >&2"}, fd, nullptr);
    ASSERT_TRUE(run.Succeeded()) << run.Failure();
    char buffer[16] = {};
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), 4);
    EXPECT_EQ(std::string(buffer), "made");
    close(fd);
    // ls's own descriptor for the folder is the one beyond 3.
    EXPECT_EQ(run.stderrTail, "0\n1\n2\n3\n4\n");
}

TEST(Ffmpeg, ACancelledRunIsKilled) {
    std::atomic<bool> cancel{true};
    const ProgramRun run = RunProgram(FindProgram("sleep"), {"30"}, 1, &cancel);
    EXPECT_EQ(run.signal, 9);
    EXPECT_EQ(run.Failure(), "killed by signal 9");
}

}  // namespace
}  // namespace convert
}  // namespace fileinfo
