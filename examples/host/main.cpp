// A small host in the style of the player manager the library serves: for
// each file it prints title, type and duration, and whether the device
// described by a capability file can play it.
//
//   fileinfo-host DEVICE.plist FILE...
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "JudgeInfo.h"
#include "MediaFileInfo.h"

namespace {

bool ReadText(const char* path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream all;
    all << in.rdbuf();
    text = all.str();
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s DEVICE.plist FILE...\n", argv[0]);
        return 2;
    }
    std::string capabilities;
    if (!ReadText(argv[1], capabilities)) {
        fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[1]);
        return 2;
    }

    int failures = 0;
    for (int i = 2; i < argc; ++i) {
        MediaFileInfo media;  // one facade per file; the record lives as long as it does
        if (media.LoadFile(argv[i]) != MFI_OK) {
            printf("%s: not a media file the library reads\n", argv[i]);
            ++failures;
            continue;
        }
        MediaFileInfo_st* record = media.GetFileInfo();
        FileInfoFilter device(capabilities);  // a filter judges one record
        const bool playable = device.AdjudgeFile(record) == 1;
        printf("%s: \"%s\" %s %u.%03u s %s\n", argv[i], record->title, record->fileType,
               record->durationMs / 1000, record->durationMs % 1000, playable ? "playable" : "not playable");
    }
    return failures == 0 ? 0 : 1;
}
