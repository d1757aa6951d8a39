// The fileinfo tool as a child process the test can stop, kill and
// disturb, with environment variables of its own (the fault shim's, the
// stop hook's), and whole-file helpers for the checks after each run.
#ifndef FILEINFO_TESTS_SAFEEDIT_CHILD_H
#define FILEINFO_TESTS_SAFEEDIT_CHILD_H

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "FaultCounts.h"
#include "SafeEdit.h"

extern char** environ;

// Read in one piece: the kill test compares 50 MB files many times.
inline std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return std::string();
    std::string bytes(static_cast<size_t>(in.tellg()), '\0');
    in.seekg(0);
    in.read(&bytes[0], static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (const dirent* entry = readdir(dir))
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) names.push_back(entry->d_name);
        closedir(dir);
    }
    return names;
}

// Gives `path` the mark an edit gives its temporary files ("copy", or
// "copy INODE BACKUP" once it named a backup).
inline bool MarkAsEditCopy(const std::string& path, const std::string& value = "copy") {
    return setxattr(path.c_str(), fileinfo::kEditMarkAttribute, value.data(), value.size(), 0) == 0;
}

inline std::vector<std::string> TempFilesIn(const std::string& folder) {
    std::vector<std::string> temps;
    for (const std::string& name : NamesIn(folder))
        if (fileinfo::IsEditTempName(name)) temps.push_back(name);
    return temps;
}

inline std::vector<std::string> BackupsIn(const std::string& folder) {
    std::vector<std::string> backups;
    for (const std::string& name : NamesIn(folder))
        if (!fileinfo::OriginalOfBackup(name).empty()) backups.push_back(folder + "/" + name);
    return backups;
}

// Starts the tool with `arguments`; `environment` entries (KEY=VALUE) are
// added to the test's own. Standard output and error go to the files.
inline pid_t StartTool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                       const std::string& outFile, const std::string& errFile) {
    std::vector<std::string> args{FILEINFO_TOOL_PATH};
    args.insert(args.end(), arguments.begin(), arguments.end());
    return StartChild(args, environment, outFile, errFile);
}

// The exit status, or 128 + the signal that ended the child.
inline int WaitTool(pid_t pid) { return WaitChild(pid); }

// True when the child stopped itself (the stop hook); false when it ended.
inline bool WaitStopped(pid_t pid, int& exitStatus) {
    int status = 0;
    while (waitpid(pid, &status, WUNTRACED) < 0) {
        if (errno != EINTR) return false;
    }
    if (WIFSTOPPED(status)) return true;
    exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return false;
}

struct ToolResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs the tool to its end; its output is kept in files of `folder`.
inline ToolResult RunToolIn(const std::string& folder, const std::vector<std::string>& arguments,
                            const std::vector<std::string>& environment = {}) {
    const std::string out = folder + "/stdout.txt", err = folder + "/stderr.txt";
    ToolResult result;
    result.exitCode = WaitTool(StartTool(arguments, environment, out, err));
    result.out = ReadFile(out);
    result.err = ReadFile(err);
    return result;
}

// How often the tool calls each kind the fault shim can fail, in a clean
// edit: the faulted runs fail each call in turn.
inline std::map<std::string, long> CallCounts(const std::string& logs, const std::vector<std::string>& edit) {
    const std::string countsFile = logs + "/counts.txt";
    RunToolIn(logs, edit, {"LD_PRELOAD=" FILEINFO_FAULT_SHIM, "FILEINFO_FAULT_COUNTS=" + countsFile,
                           "ASAN_OPTIONS=verify_asan_link_order=0"});
    return ReadFaultCounts(countsFile);
}

// After a failed or killed edit of `path` in `folder`: the file is the old
// or the new one, no temporary file is left, and every backup is the old.
inline void ExpectOldOrNew(const std::string& path, const std::string& folder, const std::string& original,
                           const std::string& result, const std::string& context) {
    const std::string now = ReadFile(path);
    EXPECT_TRUE(now == original || now == result) << context << ": the file is neither old nor new (" << now.size()
                                                  << " bytes)";
    EXPECT_EQ(TempFilesIn(folder), std::vector<std::string>()) << context;
    for (const std::string& backup : BackupsIn(folder))
        EXPECT_TRUE(ReadFile(backup) == original) << context << ": " << backup << " is not the original";
}

#endif  // FILEINFO_TESTS_SAFEEDIT_CHILD_H
