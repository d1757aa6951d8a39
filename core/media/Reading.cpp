#include "Reading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Readers.h"
#include "Source.h"

namespace fileinfo {
namespace media {

bool Tags::Empty() const {
    return title.empty() && artist.empty() && album.empty() && genre.empty() && year.empty() && comment.empty() &&
           composer.empty() && track == 0 && track_total == 0;
}

namespace {

bool Magic(const std::vector<uint8_t>& head, size_t at, const char* text) {
    const size_t length = std::strlen(text);
    return head.size() >= at + length && std::memcmp(head.data() + at, text, length) == 0;
}

// The box types an ISO or QuickTime file may open with.
bool OpensWithBox(const std::vector<uint8_t>& head) {
    static const char* const kFirstBoxes[] = {"ftyp", "moov", "mdat", "free", "skip", "wide", "pnot", "uuid"};
    for (const char* box : kFirstBoxes) {
        if (Magic(head, 4, box)) return true;
    }
    return false;
}

// Tries one reader on a fresh reading; keeps it only when the reader took
// the file.
bool Try(bool (*reader)(const Source&, Reading&), const Source& source, Reading& reading) {
    Reading attempt;
    attempt.size = source.Size();
    if (!reader(source, attempt)) return false;
    reading = std::move(attempt);
    return true;
}

}  // namespace

int ReadMedia(int fd, Reading& reading) {
    reading = Reading();
    struct stat st;
    if (fstat(fd, &st) != 0) return errno;
    if (!S_ISREG(st.st_mode)) return S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    const Source source(fd, static_cast<uint64_t>(st.st_size));
    reading.size = source.Size();
    const std::vector<uint8_t>& head = source.Head();
    if ((Magic(head, 0, "RIFF") || Magic(head, 0, "RF64")) && Magic(head, 8, "WAVE")) {
        if (Try(ReadWav, source, reading)) return 0;
    } else if (Magic(head, 0, "FORM") && (Magic(head, 8, "AIFF") || Magic(head, 8, "AIFC"))) {
        if (Try(ReadAiff, source, reading)) return 0;
    } else if (OpensWithBox(head)) {
        if (Try(ReadMp4, source, reading)) return 0;
    }
    // MPEG audio has no magic of its own: its reader looks for frames.
    Try(ReadMpegAudio, source, reading);
    return 0;
}

int ReadMediaPath(const std::string& path, Reading& reading) {
    reading = Reading();
    if (path.find('\0') != std::string::npos) return EINVAL;
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return errno;
    const int error = ReadMedia(fd, reading);
    close(fd);
    return error;
}

}  // namespace media
}  // namespace fileinfo
