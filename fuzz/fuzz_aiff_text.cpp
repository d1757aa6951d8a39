// The AIFF text-chunk writer on any file: it never reads or writes out of
// bounds and always returns; a file it refuses keeps its bytes; a file it
// rewrote is one it can rewrite again, and writing the same values a
// second time changes no byte.
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "AiffTextChunks.h"
#include "FrontEnd.h"

namespace {

std::string Contents(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) abort();
    std::string bytes(static_cast<size_t>(st.st_size), '\0');
    if (!bytes.empty() && pread(fd, &bytes[0], bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) abort();
    return bytes;
}

int FileOf(const std::string& bytes) {
    const int fd = memfd_create("aiff", MFD_CLOEXEC);
    if (fd < 0) abort();
    if (!bytes.empty() && write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) abort();
    return fd;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    fileinfo::TagEdits edits;
    std::string error;
    // The choices come from the input's end, so that its start is the file
    // itself: a real AIFF file is a seed as it is.
    static const char* const kFields[] = {"title=", "artist=", "comment=", "album="};
    static const std::string kTexts[] = {"", "A", "Odd", "Even", "\xe6\x9b\xb2\xf0\x9f\x8e\xb5 e\xcc\x81",
                                         std::string(301, 'x'), std::string(70000, 'y')};
    const size_t count = in.ConsumeIntegralInRange<size_t>(0, 4);
    for (size_t k = 0; k < count; ++k) {
        const char* field = kFields[in.ConsumeIntegralInRange<size_t>(0, 3)];
        edits.Add(field + kTexts[in.ConsumeIntegralInRange<size_t>(0, 6)], error);
    }
    const bool addMissing = in.ConsumeBool();
    const std::string before = in.ConsumeRemainingBytesAsString();

    const int fd = FileOf(before);
    const fileinfo::TagWriteResult first = fileinfo::WriteAiffTextChunks(fd, edits, addMissing);
    const std::string after = Contents(fd);
    close(fd);
    if (!first.written) {
        if (after != before) fuzz::Broken("a refused file was changed", first.reason);
        return 0;
    }
    const int again = FileOf(after);
    const fileinfo::TagWriteResult second = fileinfo::WriteAiffTextChunks(again, edits, addMissing);
    const std::string twice = Contents(again);
    close(again);
    if (!second.written) fuzz::Broken("a file the writer made is one it refuses", second.reason);
    if (twice != after) fuzz::Broken("writing the same values again changed the file");
    return 0;
}
