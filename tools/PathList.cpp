#include "PathList.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace fileinfo {

bool ReadPathList(const std::string& source, bool nul, std::vector<std::string>& paths, std::string& error) {
    const bool standardInput = source == "-";
    const int fd = standardInput ? STDIN_FILENO : open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    const char separator = nul ? '\0' : '\n';
    std::string pending;
    char chunk[1 << 16];
    bool ok = true;
    for (;;) {
        const ssize_t n = read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            error = std::strerror(errno);
            ok = false;
            break;
        }
        if (n == 0) break;
        for (ssize_t k = 0; k < n; ++k) {
            if (chunk[k] != separator) {
                pending += chunk[k];
            } else if (!pending.empty()) {
                paths.push_back(std::move(pending));
                pending.clear();
            }
        }
    }
    if (!pending.empty()) paths.push_back(std::move(pending));
    if (!standardInput) close(fd);
    return ok;
}

}  // namespace fileinfo
