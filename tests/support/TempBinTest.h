// A test that loads compressed movie headers, which every load inflates
// into the one file "/temp.bin". ctest runs tests in parallel processes:
// each such test holds an exclusive lock on a lock file for its length, and
// starts and ends with no "/temp.bin". Skipped where the file-system root
// is not writable.
#ifndef FILEINFO_TESTS_TEMPBINTEST_H
#define FILEINFO_TESTS_TEMPBINTEST_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>

class TempBinTest : public testing::Test {
protected:
    static constexpr const char* kTempBin = "/temp.bin";

    void SetUp() override {
        lock_ = open("/tmp/fileinfo-temp-bin.lock", O_CREAT | O_RDWR, 0666);
        ASSERT_GE(lock_, 0);
        ASSERT_EQ(flock(lock_, LOCK_EX), 0);
        remove(kTempBin);
        FILE* probe = fopen(kTempBin, "wb");
        if (probe == nullptr) GTEST_SKIP() << "the file-system root is not writable here";
        fclose(probe);
        remove(kTempBin);
    }
    void TearDown() override {
        if (lock_ < 0) return;
        remove(kTempBin);
        flock(lock_, LOCK_UN);
        close(lock_);
    }

private:
    int lock_ = -1;
};

#endif  // FILEINFO_TESTS_TEMPBINTEST_H
