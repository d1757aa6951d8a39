#include "ToolOutput.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace fileinfo {

ToolOutput::ToolOutput() {
    fflush(stdout);
    terminal_ = isatty(STDOUT_FILENO) != 0;
    fd_ = dup(STDOUT_FILENO);
    if (fd_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
        return;  // keep writing where we were
    }
    previous_ = std::cout.rdbuf(this);
}

ToolOutput::~ToolOutput() {
    if (fd_ < 0) return;
    sync();
    std::cout.rdbuf(previous_);
    fflush(stdout);
    dup2(fd_, STDOUT_FILENO);
    close(fd_);
}

ToolOutput::int_type ToolOutput::overflow(int_type c) {
    if (c != traits_type::eof()) {
        const char one = static_cast<char>(c);
        if (xsputn(&one, 1) != 1) return traits_type::eof();
    }
    return traits_type::not_eof(c);
}

std::streamsize ToolOutput::xsputn(const char* s, std::streamsize n) {
    std::streamsize done = 0;
    while (done < n) {
        if (used_ == sizeof buffer_ && !Flush()) return done;
        const size_t take = std::min(sizeof buffer_ - used_, static_cast<size_t>(n - done));
        memcpy(buffer_ + used_, s + done, take);
        used_ += take;
        done += static_cast<std::streamsize>(take);
    }
    // Line-buffered on a terminal: a line shows as soon as it ends.
    if (terminal_ && memchr(s, '\n', static_cast<size_t>(n)) != nullptr && !Flush()) return done;
    return n;
}

bool ToolOutput::Flush() {
    size_t done = 0;
    while (done < used_) {
        const ssize_t n = write(fd_, buffer_ + done, used_ - done);
        if (n < 0 && errno == EINTR) continue;  // a signal never cuts a line short
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    used_ = 0;
    return true;
}

}  // namespace fileinfo
