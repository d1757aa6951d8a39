#include "FileInfoVersion.h"

const char* FileInfoVersion() { return FILEINFO_VERSION_STRING; }
