#include "FileInfo.h"

#include <cstdio>

namespace {

// The throw-away object that does the printing.
class FileInfoPriv {
public:
    void HelloWorld(const char* text) {
        fputs(text == nullptr ? "" : text, stdout);
        fputc('\n', stdout);
    }
};

}  // namespace

void FileInfo::HelloWorld(const char* text) {
    FileInfoPriv priv;
    priv.HelloWorld(text);
}
