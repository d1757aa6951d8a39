// Loads every file listed in a text file through the MediaFileInfo facade
// and reads its duration and title: the library's side of the comparison
// with the other libraries, done the way taglib_read.cpp does it.
#include <fstream>
#include <string>

#include "MediaFileInfo.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    std::ifstream list(argv[1]);
    std::string path;
    unsigned long sink = 0;
    while (std::getline(list, path)) {
        MediaFileInfo file;
        if (file.LoadFile(path.c_str()) != MFI_OK) continue;
        if (const MediaFileInfo_st* record = file.GetFileInfo()) sink += record->durationMs + record->title[0];
    }
    return static_cast<int>(sink & 0);
}
