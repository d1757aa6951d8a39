// The library's entry point: picks a reader by the file's extension and,
// when that reader refuses the file, tries the others in a fixed order.
#ifndef FILEINFO_MEDIAFILEINFO_H
#define FILEINFO_MEDIAFILEINFO_H

#include "MediaFileInfoBase.h"
#include "MediaFileInfoDefine.h"

// Lower-cases s in place (C locale) and returns it; a null or empty string
// gives a constant empty string.
FILEINFO_API const char* strlwr(char* s);

// Our addition to the described API: 1 when the extension of path names one
// of the library's readers (".mp3", ".M4A", ...), so that LoadFile would try
// that reader first; 0 otherwise. Reads nothing from the file system.
FILEINFO_API int MediaFileHasReader(const char* path);

// Our addition to the described API: the errno of the latest attempt on the
// calling thread to create the temporary file "/temp.bin" for a compressed
// QuickTime movie header that failed (EACCES when / is not writable, ELOOP
// for a symbolic link there, EPERM for a file of another owner or with
// other links), 0 when none failed since the last call. The call clears it.
// Such a movie loads as one whose header could not be read. A wait for
// another load's lock that ran out gives EWOULDBLOCK, one ended by the
// interruption check EINTR.
FILEINFO_API int MediaFileTakeTempFileError();

// Our addition to the described API: the longest a load waits for another
// load (of any process) to finish with "/temp.bin", in milliseconds; 10,000
// unless set. The owner and kind of the file are checked before any wait,
// so a file of another user is refused at once. For all threads.
FILEINFO_API void MediaFileSetTempFileWait(unsigned milliseconds);

// Our addition to the described API: a function a waiting load calls every
// few milliseconds; when it returns non-zero the wait ends at once, as if
// the file could not be used. Null (the default) waits out the bound. For
// all threads; the function must be safe to call from any of them.
FILEINFO_API void MediaFileSetTempFileInterrupt(int (*interrupted)());

class FILEINFO_API MediaFileInfo {
public:
    // Room for the extension with its dot and terminator.
    enum { kExtensionSize = 10 };

    MediaFileInfo();
    ~MediaFileInfo();

    int LoadFile(const char* path);
    // Tries every reader the extension did not name: MP4, WAV, AIFF, AAC, MP3.
    int LoadOtherType(const char* path);
    int HasId3Info();
    int IsVideo();
    int IsAudio();
    int SetId3Info(MediaFileInfo_st* info);
    // Borrowed: owned by the reader, valid until the next load or destruction.
    MediaFileInfo_st* GetFileInfo();

    char m_extension[kExtensionSize];
    MediaFileInfoBase* m_reader;

private:
    MediaFileInfo(const MediaFileInfo&) = delete;
    MediaFileInfo& operator=(const MediaFileInfo&) = delete;
    // Releases the reader held and makes a new one of the given row; the
    // status of its LoadFile, or `fallback` when it could not be made.
    int TryReader(const struct ReaderKind& kind, const char* path, int fallback);
};

#endif  // FILEINFO_MEDIAFILEINFO_H
