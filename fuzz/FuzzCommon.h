// Shared by the fuzz targets: writes the input to a scratch file of this
// process and checks the invariants every load must keep.
#ifndef FILEINFO_FUZZ_FUZZCOMMON_H
#define FILEINFO_FUZZ_FUZZCOMMON_H

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "MediaFileInfoDefine.h"

namespace fuzz {

// A scratch folder of this process, made once.
inline const std::string& ScratchDir() {
    static const std::string dir = [] {
        char pattern[] = "/tmp/fileinfo-fuzz-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (made == nullptr) abort();
        return std::string(made);
    }();
    return dir;
}

// Writes bytes to ScratchDir()/name and returns the path.
inline std::string WriteScratch(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = ScratchDir() + "/" + name;
    FILE* f = fopen(path.c_str(), "wb");
    if (f == nullptr) abort();
    if (size != 0 && fwrite(data, 1, size, f) != size) abort();
    fclose(f);
    return path;
}

// A status is defined when the library has a text of its own for it.
inline void CheckStatus(int status) {
    if (strcmp(MediaFileStatusText(status), MediaFileStatusText(-1)) != 0) return;
    fprintf(stderr, "undefined status %d\n", status);
    abort();
}

// Every text field is terminated within its 128 bytes.
inline void CheckRecord(const MediaFileInfo_st* r) {
    if (r == nullptr) return;
    const char* texts = reinterpret_cast<const char*>(r) + offsetof(MediaFileInfo_st, fileType);
    for (int field = 0; field < 14; ++field) {
        if (memchr(texts + field * MEDIA_TEXT_SIZE, 0, MEDIA_TEXT_SIZE) == nullptr) {
            fprintf(stderr, "text field %d is not terminated\n", field);
            abort();
        }
    }
}

// A record whose fields come from the input, texts always terminated.
inline MediaFileInfo_st RecordFrom(const uint8_t* data, size_t size) {
    MediaFileInfo_st r;
    unsigned char* bytes = reinterpret_cast<unsigned char*>(&r);
    for (size_t i = 0; i < sizeof r; ++i) bytes[i] = size == 0 ? 0 : data[i % size];
    char* texts = reinterpret_cast<char*>(&r) + offsetof(MediaFileInfo_st, fileType);
    for (int field = 0; field < 14; ++field) texts[field * MEDIA_TEXT_SIZE + MEDIA_TEXT_SIZE - 1] = '\0';
    return r;
}

}  // namespace fuzz

#endif  // FILEINFO_FUZZ_FUZZCOMMON_H
