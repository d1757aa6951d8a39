// The helpers that TempFileSharingTest.cpp and TempFileSharingStateTest.cpp share.
#ifndef FILEINFO_TESTS_TEMPFILESHARINGTESTHELPERS_H
#define FILEINFO_TESTS_TEMPFILESHARINGTESTHELPERS_H

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

namespace TempFileSharingTestHelpers {

namespace fs = std::filesystem;

// What one load gives a host, every byte of the record included.
struct Loaded {
    int status = 0;
    int audio = 0;
    int video = 0;
    int tags = 0;
    bool hasRecord = false;
    alignas(MediaFileInfo_st) unsigned char record[sizeof(MediaFileInfo_st)] = {};

    bool operator==(const Loaded& o) const {
        return status == o.status && audio == o.audio && video == o.video && tags == o.tags &&
               hasRecord == o.hasRecord && memcmp(record, o.record, sizeof record) == 0;
    }
};

inline Loaded LoadOnce(const std::string& path) {
    MediaFileInfo facade;
    Loaded l;
    l.status = facade.LoadFile(path.c_str());
    l.audio = facade.IsAudio();
    l.video = facade.IsVideo();
    l.tags = facade.HasId3Info();
    if (const MediaFileInfo_st* r = facade.GetFileInfo()) {
        l.hasRecord = true;
        memcpy(l.record, r, sizeof l.record);
    }
    return l;
}

// Two compressed movies that differ in every field a mix-up would show.
inline Bytes CompressedAvc() {
    const Bytes video = VideoTrak(VisualEntry("avc1", 320, 240, AvcC(77, 0x40, 31, 0x67)),
                                  Stsz(0, 4, {1000, 2000, 3000, 4000}), 600, 6000);
    const Bytes sound = SoundTrak(SoundEntry("mp4a", 2, Esds({})), Stsz(0, 3, {1, 2, 3}), 44100, 441000);
    return Cat({Ftyp("qt  "), CompressedMoov(Moov({Mvhd(600, 6000), video, sound})), Filler("mdat", 5000)});
}

inline Bytes CompressedH263() {
    const Bytes video = VideoTrak(VisualEntry("s263", 176, 144), Stsz(0, 2, {500, 700}), 1000, 30000);
    const Bytes sound = SoundTrak(SoundEntry("samr", 1), Stsz(32, 1500), 8000, 240000);
    return Cat({Ftyp("qt  "), CompressedMoov(Moov({Mvhd(1000, 30000), video, sound})), Filler("mdat", 7000)});
}

class TempFileSharing : public TempBinTest {
protected:
    // Every fixture and example, and the two compressed movies.
    std::vector<std::string> Corpus() {
        std::vector<std::string> files;
        for (const char* root : {FILEINFO_FIXTURES_DIR, FILEINFO_EXAMPLES_DIR}) {
            for (const auto& e : fs::recursive_directory_iterator(root)) {
                if (e.is_regular_file()) files.push_back(e.path().string());
            }
        }
        files.push_back(dir_.write("avc.mov", CompressedAvc()));
        files.push_back(dir_.write("h263.mov", CompressedH263()));
        return files;
    }

    std::vector<Loaded> Sequential(const std::vector<std::string>& files) {
        std::vector<Loaded> expected;
        for (const std::string& f : files) expected.push_back(LoadOnce(f));
        return expected;
    }

    TempDir dir_;
};

}  // namespace TempFileSharingTestHelpers

#endif  // FILEINFO_TESTS_TEMPFILESHARINGTESTHELPERS_H
