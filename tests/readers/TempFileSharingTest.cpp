// Compressed movie headers are inflated into the one temporary file
// "/temp.bin" that every load of every process shares. Loads at once, in
// threads and in processes, must each read their own movie; the file is
// never reached through a link, and only its writer removes it.
//
// Like the other compressed-movie tests, each test holds the lock file
// that keeps ctest's parallel processes from sharing "/temp.bin" with it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "MediaFileInfo.h"
#include "Mp4Builder.h"
#include "Mp4Info.h"
#include "TempBinTest.h"
#include "TestFiles.h"
#include "TempFileSharingTestHelpers.h"
#include "UnderValgrind.h"

using namespace TempFileSharingTestHelpers;

namespace {

TEST_F(TempFileSharing, CompressedMoviesLoadAloneAsExpected) {
    const Loaded avc = LoadOnce(dir_.write("avc.mov", CompressedAvc()));
    const Loaded h263 = LoadOnce(dir_.write("h263.mov", CompressedH263()));
    ASSERT_EQ(avc.status, MFI_OK);
    ASSERT_EQ(h263.status, MFI_OK);
    const auto* a = reinterpret_cast<const MediaFileInfo_st*>(avc.record);
    const auto* b = reinterpret_cast<const MediaFileInfo_st*>(h263.record);
    EXPECT_STREQ(a->fileType, "H.264LC");
    EXPECT_EQ(a->width, 320);
    EXPECT_STREQ(b->fileType, "H.263");
    EXPECT_EQ(b->width, 176);
    EXPECT_EQ(b->durationMs, 30000u);
    EXPECT_FALSE(fs::exists(kTempBin));  // each facade removed what it wrote
}

TEST_F(TempFileSharing, ThreadsLoadingAtOnceGetTheRecordsOfLoneLoads) {
    const std::vector<std::string> files = Corpus();
    const std::vector<Loaded> expected = Sequential(files);
    const int threads = 8;
    const int rounds = UnderValgrind() ? 1 : 20;
    std::atomic<int> mismatches{0};
    std::atomic<int> loads{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            for (int round = 0; round < rounds; ++round) {
                // Each thread starts elsewhere in the list, so every pair of
                // files meets.
                for (size_t k = 0; k < files.size(); ++k) {
                    const size_t i = (k + static_cast<size_t>(t) * 7 + static_cast<size_t>(round)) % files.size();
                    if (!(LoadOnce(files[i]) == expected[i])) {
                        ++mismatches;
                        ADD_FAILURE() << "differs: " << files[i];
                    }
                    ++loads;
                }
            }
        });
    }
    for (std::thread& t : pool) t.join();
    EXPECT_EQ(loads.load(), threads * rounds * static_cast<int>(files.size()));
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_FALSE(fs::exists(kTempBin));
}

TEST_F(TempFileSharing, ProcessesLoadingAtOnceGetTheRecordsOfLoneLoads) {
    const std::vector<std::string> files = Corpus();
    const std::vector<Loaded> expected = Sequential(files);
    const int processes = 4;
    const int rounds = UnderValgrind() ? 1 : 30;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int mismatches = 0;
            for (int round = 0; round < rounds; ++round) {
                for (size_t k = 0; k < files.size(); ++k) {
                    const size_t i = (k + static_cast<size_t>(p) * 5 + static_cast<size_t>(round)) % files.size();
                    if (!(LoadOnce(files[i]) == expected[i])) ++mismatches;
                }
            }
            _exit(mismatches > 100 ? 100 : mismatches);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "mismatched loads in process " << pid;
    }
}

TEST_F(TempFileSharing, SymbolicLinkAtTheTempPathIsNotFollowed) {
    const std::string target = dir_.write("precious.txt", Bytes{'k', 'e', 'e', 'p'});
    ASSERT_EQ(symlink(target.c_str(), kTempBin), 0);
    MediaFileTakeTempFileError();
    const Loaded l = LoadOnce(dir_.write("avc.mov", CompressedAvc()));
    EXPECT_EQ(MediaFileTakeTempFileError(), ELOOP);
    EXPECT_EQ(MediaFileTakeTempFileError(), 0);  // taking it clears it
    // The movie loads as one whose header could not be read: the facade
    // goes on to the other readers, and AIFF takes anything.
    EXPECT_EQ(l.video, 0);
    EXPECT_EQ(ReadAll(target), (Bytes{'k', 'e', 'e', 'p'}));
    struct stat st;
    ASSERT_EQ(lstat(kTempBin, &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
}

TEST_F(TempFileSharing, FileWithAnotherNameIsNeitherEmptiedNorRemoved) {
    const std::string other = dir_.write("other.bin", Bytes{'d', 'a', 't', 'a'});
    ASSERT_EQ(link(other.c_str(), kTempBin), 0);
    MediaFileTakeTempFileError();
    LoadOnce(dir_.write("avc.mov", CompressedAvc()));
    EXPECT_EQ(MediaFileTakeTempFileError(), EPERM);
    EXPECT_EQ(ReadAll(other), (Bytes{'d', 'a', 't', 'a'}));
    EXPECT_TRUE(fs::exists(kTempBin));
}

TEST_F(TempFileSharing, LeftoverOfAKilledLoadIsTakenOverAndRemoved) {
    {
        std::ofstream leftover(kTempBin, std::ios::binary);
        leftover << "stale inflated data";
    }
    const Loaded l = LoadOnce(dir_.write("avc.mov", CompressedAvc()));
    EXPECT_EQ(l.status, MFI_OK);
    EXPECT_EQ(reinterpret_cast<const MediaFileInfo_st*>(l.record)->width, 320);
    EXPECT_FALSE(fs::exists(kTempBin));
}

TEST_F(TempFileSharing, HeaderCompressedTwiceReopensTheFileItHoldsWithoutWaiting) {
    // The inflated "moov" is itself compressed: the second inflate empties
    // the very file the walk reads, so nothing is left to walk (10). It
    // must not wait for the lock its own load holds.
    const Bytes inner = CompressedMoov(Moov({Mvhd(600, 6000)}));
    const Bytes movie = Cat({Ftyp("qt  "), CompressedMoov(inner), Filler("mdat", 5000)});
    Mp4Info reader;
    EXPECT_EQ(reader.LoadFile(dir_.write("twice.mov", movie).c_str()), MFI_NOT_THIS_FORMAT);
    EXPECT_EQ(reader.m_useTempFile, 1u);
    reader.Destory();
    EXPECT_FALSE(fs::exists(kTempBin));
}

TEST_F(TempFileSharing, LoadWaitsWhileAnotherHoldsTheTempFile) {
    // A load elsewhere is inflating: this one waits for it, then loads.
    const int held = open(kTempBin, O_RDWR | O_CREAT, 0666);
    ASSERT_GE(held, 0);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::atomic<bool> finished{false};
    Loaded result;
    std::thread load([&] {
        result = LoadOnce(dir_.write("avc.mov", CompressedAvc()));
        finished = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(finished.load());
    flock(held, LOCK_UN);
    close(held);
    load.join();
    EXPECT_EQ(result.status, MFI_OK);
}

}  // namespace
