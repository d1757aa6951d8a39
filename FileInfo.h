// The library's top-level class: a greeting that proves the library loads.
#ifndef FILEINFO_FILEINFO_H
#define FILEINFO_FILEINFO_H

#include "MediaFileInfoDefine.h"

class FILEINFO_API FileInfo {
public:
    // Writes text and a line end to standard output.
    static void HelloWorld(const char* text);
};

#endif  // FILEINFO_FILEINFO_H
