// Where the tool's output goes. The library prints its one warning
// ("ReadWord warning!") on standard output, where it would break the JSON
// lines and rows of this tool, and it may do so from any loading thread.
// So while the tool runs, the process's standard output descriptor points
// at standard error, and the tool writes its own output through std::cout
// to a descriptor saved before the switch.
//
// On a terminal every line is written as soon as it ends; into a file or a
// pipe the output is written in large blocks.
#ifndef FILEINFO_TOOLS_TOOLOUTPUT_H
#define FILEINFO_TOOLS_TOOLOUTPUT_H

#include <cstddef>
#include <streambuf>

namespace fileinfo {

class ToolOutput : public std::streambuf {
public:
    ToolOutput();
    ~ToolOutput() override;
    ToolOutput(const ToolOutput&) = delete;
    ToolOutput& operator=(const ToolOutput&) = delete;

    // Whether the real standard output is a terminal.
    bool Terminal() const { return terminal_; }
    // The descriptor the tool's output goes to.
    int Fd() const { return fd_; }

protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* s, std::streamsize n) override;
    int sync() override { return Flush() ? 0 : -1; }

private:
    bool Flush();

    int fd_ = -1;
    bool terminal_ = false;
    std::streambuf* previous_ = nullptr;
    char buffer_[1 << 16];
    size_t used_ = 0;
};

}  // namespace fileinfo

#endif  // FILEINFO_TOOLS_TOOLOUTPUT_H
