// The sync's tests: collections of real fixtures, the device folder's
// files, the manifest's rows, and the check that the device and the
// manifest agree. Without the readers, a test judges with CopyLoaded: every
// file the library loads is copied.
#ifndef FILEINFO_TESTS_SYNCTESTHELPERS_H
#define FILEINFO_TESTS_SYNCTESTHELPERS_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "CopyLoaded.h"
#include "MediaFileInfoDefine.h"
#include "TestFiles.h"
#include "sync/Executor.h"
#include "sync/Manifest.h"
#include "sync/Sync.h"

extern char** environ;

namespace synctest {

namespace fs = std::filesystem;

inline std::string Slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void Spit(const std::string& path, const std::string& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline void CopyInto(const std::string& from, const std::string& to) { Spit(to, Slurp(from)); }

// A small collection of real files in two albums and at the top, with
// their relative paths.
inline std::vector<std::string> MakeCollection(const std::string& root) {
    const std::string fixtures = FILEINFO_FIXTURES_DIR, examples = FILEINFO_EXAMPLES_DIR;
    const std::vector<std::pair<std::string, std::string>> files = {
        {fixtures + "/mp3/cbr128.mp3", "Album A/01 First.mp3"},
        {fixtures + "/mp3/tagged-id3v2.mp3", "Album A/02 Second.mp3"},
        {fixtures + "/mp4/aac-tagged.m4a", "Album B/01 Song.m4a"},
        {examples + "/tone-mono.wav", "Album B/02 Tone.wav"},
        {examples + "/tone-tagged.aif", "Album B/Disc 2/03 Tagged.aif"},
        {fixtures + "/mp3/vbr-xing.mp3", "Loose.mp3"},
    };
    std::vector<std::string> relative;
    for (const auto& f : files) {
        CopyInto(f.first, root + "/" + f.second);
        relative.push_back(f.second);
    }
    return relative;
}

// Regular files below the device folder, relative, without sync's own
// files and temporary files.
inline std::set<std::string> DeviceFiles(const std::string& dir) {
    std::set<std::string> files;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        if (!it->is_regular_file()) continue;
        const std::string name = it->path().filename().string();
        const std::string relative = fs::relative(it->path(), dir).string();
        if ((relative.find('/') == std::string::npos && fileinfo::sync::IsSyncOwnName(name)) ||
            fileinfo::sync::IsSyncTempName(name)) {
            continue;
        }
        files.insert(relative);
    }
    return files;
}

inline std::vector<std::string> TempFiles(const std::string& dir) {
    std::vector<std::string> temps;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        if (fileinfo::sync::IsSyncTempName(it->path().filename().string())) temps.push_back(it->path().string());
    }
    return temps;
}

inline std::vector<fileinfo::sync::ManifestRow> Rows(const std::string& dir) {
    fileinfo::sync::Manifest manifest;
    std::string error;
    std::vector<fileinfo::sync::ManifestRow> rows;
    // Opened for writing, as the next run opens it: a commit a killed run
    // left half-done is rolled back first.
    struct stat st;
    if (stat((dir + "/" + fileinfo::sync::kManifestName).c_str(), &st) != 0) return rows;
    if (manifest.Open(dir, true, error) != fileinfo::sync::ManifestStatus::kOk) return rows;
    manifest.Rows(rows, error);
    return rows;
}

inline int64_t MtimeNs(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return -1;
    return static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

// What is wrong between the device folder and its manifest; empty when
// they agree. Every file under a final name that sync put there (a row
// names it) holds its source's bytes; every row that is done names a file
// of the recorded size; no file is there that neither a row nor the user
// put there (`userFiles`).
inline std::string Disagreements(const std::string& dir, const std::set<std::string>& userFiles = {}) {
    std::string problems;
    std::map<std::string, fileinfo::sync::ManifestRow> rows;
    for (auto& row : Rows(dir)) rows[row.devicePath] = row;
    for (const std::string& file : DeviceFiles(dir)) {
        if (userFiles.count(file) != 0) continue;
        auto at = rows.find(file);
        if (at == rows.end()) {
            problems += "unrecorded file " + file + "\n";
            continue;
        }
        if (at->second.action == "copy" && Slurp(dir + "/" + file) != Slurp(at->second.sourcePath)) {
            problems += "incomplete or wrong file " + file + "\n";
        }
    }
    for (const auto& r : rows) {
        if (r.second.pending) continue;
        struct stat st;
        if (lstat((dir + "/" + r.first).c_str(), &st) != 0) {
            problems += "row without file " + r.first + "\n";
        } else if (static_cast<uint64_t>(st.st_size) != r.second.deviceSize) {
            problems += "row of another size " + r.first + "\n";
        }
    }
    return problems;
}

// One sync in this process, judged with CopyLoaded.
inline fileinfo::sync::SyncOutcome SyncNow(const std::vector<std::string>& sources, const std::string& dir,
                                           bool fatNames = false, bool keepRemoved = false, bool dryRun = false) {
    fileinfo::sync::SyncRequest request;
    request.sources = sources;
    request.deviceFolder = dir;
    request.decide = CopyLoaded;
    request.plan.jobs = 2;
    request.plan.fatNames = fatNames;
    request.plan.keepRemoved = keepRemoved;
    request.plan.capsDigest = "test";
    request.dryRun = dryRun;
    return fileinfo::sync::RunSync(request, nullptr);
}

inline size_t Count(const fileinfo::sync::Plan& plan, fileinfo::sync::Action action) {
    return plan.totals.count[static_cast<int>(action)];
}

struct ChildResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs a program to its end; `environment` entries (KEY=VALUE) are added.
inline ChildResult RunChild(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                            const std::string& folder) {
    const std::string outFile = folder + "/child-stdout.txt", errFile = folder + "/child-stderr.txt";
    ChildResult result;
    result.exitCode = WaitChild(StartChild(arguments, environment, outFile, errFile));
    result.out = Slurp(outFile);
    result.err = Slurp(errFile);
    return result;
}

// A test with a collection in "music" (MakeCollection) and an empty device
// folder "device", in a folder of its own.
class CollectionTest : public ::testing::Test {
protected:
    std::string Src() const { return work_.file("music"); }
    std::string Dev() const { return work_.file("device"); }
    void SetUp() override {
        std::filesystem::create_directories(Src());
        std::filesystem::create_directories(Dev());
        files_ = MakeCollection(Src());
    }

    TempDir work_;
    std::vector<std::string> files_;
};

}  // namespace synctest

#endif  // FILEINFO_TESTS_SYNCTESTHELPERS_H
