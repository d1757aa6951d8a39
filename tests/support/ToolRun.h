// Runs the fileinfo tool as a child process and keeps what it printed.
#ifndef FILEINFO_TESTS_TOOLRUN_H
#define FILEINFO_TESTS_TOOLRUN_H

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

struct ToolRun {
    std::string out;
    int exitCode = -1;
};

// Standard error is discarded; arguments are passed to the shell as given.
inline ToolRun RunTool(const std::string& arguments) {
    ToolRun run;
    const std::string command = std::string(FILEINFO_TOOL_PATH) + " " + arguments + " 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    std::array<char, 4096> chunk;
    size_t n;
    while ((n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0) run.out.append(chunk.data(), n);
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
