// The steps every reader's LoadFile shares: what an earlier load left is
// released, the path is copied, the file is opened and measured, and closed
// again at the end. The readers differ between these steps (how they make
// their record, whether a failed seek matters, when the size is taken);
// each says why where it does.
#ifndef FILEINFO_DETAIL_READERLOAD_H
#define FILEINFO_DETAIL_READERLOAD_H

#include <cstdlib>
#include <cstring>

#include "MediaFileInfoBase.h"

namespace fileinfo_detail {

// Whether the reader holds a record or a path copy from an earlier load.
inline bool HoldsEarlierLoad(const MediaFileInfoBase& reader) {
    return reader.m_fileInfo != nullptr || reader.m_filePath != nullptr;
}

// Keeps a copy of the path, in place of any copy still held.
inline void KeepPathCopy(MediaFileInfoBase& reader, const char* path) {
    free(reader.m_filePath);
    reader.m_filePath = strdup(path);
}

// Keeps a copy of the path and opens the file for reading into m_file;
// false when it will not open.
inline bool OpenForLoad(MediaFileInfoBase& reader, const char* path) {
    KeepPathCopy(reader, path);
    reader.m_file = MediaFileInfoBase::OpenForReading(path);
    return reader.m_file != nullptr;
}

// Stores the file's size into the record: asked of the open file, or of the
// path when the file is not open.
inline void MeasureFile(MediaFileInfoBase& reader, const char* path) {
    MediaFileInfoBase::GetFileStorageInfo(&reader.m_fileInfo, path, reader.m_file);
}

// Closes the file the load opened.
inline void CloseLoadedFile(MediaFileInfoBase& reader) {
    fclose(reader.m_file);
    reader.m_file = nullptr;
}

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_READERLOAD_H
