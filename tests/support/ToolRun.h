// Runs the fileinfo tool as a child process and keeps what it printed.
#ifndef FILEINFO_TESTS_TOOLRUN_H
#define FILEINFO_TESTS_TOOLRUN_H

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>

struct ToolRun {
    std::string out;
    int exitCode = -1;
    std::string err;  // only when asked for
};

// Arguments are passed to the shell as given. Standard error goes to
// `errorFile` and is kept in `err`; by default it is discarded.
inline ToolRun RunTool(const std::string& arguments, const std::string& errorFile = "/dev/null") {
    ToolRun run;
    const std::string command = std::string(FILEINFO_TOOL_PATH) + " " + arguments + " 2>" + errorFile;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    std::array<char, 4096> chunk;
    size_t n;
    while ((n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0) run.out.append(chunk.data(), n);
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (errorFile != "/dev/null") {
        std::ifstream in(errorFile, std::ios::binary);
        run.err.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    return run;
}

// Tool tests are skipped when the tool is not built.
class Tool : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(FILEINFO_TOOL_PATH).empty()) GTEST_SKIP() << "the fileinfo tool is not built";
    }
};

#endif  // FILEINFO_TESTS_TOOLRUN_H
