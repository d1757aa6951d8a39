// The one temporary file every load of a compressed movie header inflates
// into is shared by all readers of all processes. A claim makes its use
// exclusive: the reader that inflates holds an advisory lock on the file
// from its creation until its load is done with it, and later removes the
// file only if the path still names the very file it wrote.
#ifndef FILEINFO_DETAIL_TEMPFILECLAIM_H
#define FILEINFO_DETAIL_TEMPFILECLAIM_H

#include <cstdio>

namespace fileinfo_detail {

// Opens the temporary file at path for a fresh inflate by owner: created if
// missing, never through a symbolic link, never a file with other links or
// another owner; locked exclusively (waiting for another load to finish
// with it), then emptied. A reader that already holds the lock (a movie
// header inflated twice in one load) reopens the file under it. Null on
// failure, with errno set and kept for MediaFileTakeTempFileError.
FILE* OpenClaimedTempFile(const void* owner, const char* path);

// The load of owner is done with the file: the lock goes, so the next load
// may take the file; what was written stays until RemoveClaimedTempFile,
// and so does a descriptor of it.
void ReleaseTempFileLock(const void* owner);

// Removes path if it is still the file owner wrote (same device and inode),
// and forgets the claim; a null path only forgets it. Nothing happens
// without a claim.
void RemoveClaimedTempFile(const void* owner, const char* path);

}  // namespace fileinfo_detail

#endif  // FILEINFO_DETAIL_TEMPFILECLAIM_H
