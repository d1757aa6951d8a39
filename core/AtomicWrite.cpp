#include "AtomicWrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fileinfo {

namespace {

bool WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& text, std::string& error) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string temp = folder + "." + name + ".XXXXXX";
    const int fd = mkstemp(&temp[0]);
    if (fd < 0) {
        error = std::strerror(errno);
        return false;
    }
    // mkstemp makes the file private; ours is as readable as any new file.
    const mode_t mask = umask(0);
    umask(mask);
    errno = 0;
    bool ok = fchmod(fd, 0666 & ~mask) == 0 && WriteAll(fd, text) && fsync(fd) == 0;
    if (!ok) error = std::strerror(errno != 0 ? errno : EIO);
    if (close(fd) != 0 && ok) {
        error = std::strerror(errno);
        ok = false;
    }
    if (ok && rename(temp.c_str(), path.c_str()) != 0) {
        error = std::strerror(errno);
        ok = false;
    }
    if (!ok) unlink(temp.c_str());
    return ok;
}

}  // namespace fileinfo
