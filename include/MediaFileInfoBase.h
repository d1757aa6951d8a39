// The abstract base of every format reader: the open file, the path, the
// result record, three flags, and the small helpers all readers share.
#ifndef FILEINFO_MEDIAFILEINFOBASE_H
#define FILEINFO_MEDIAFILEINFOBASE_H

#include <cstdio>

#include "MediaFileInfoDefine.h"

class FILEINFO_API MediaFileInfoBase {
public:
    MediaFileInfoBase();

    // Virtual slots, in this order: hosts built against the library rely on it.
    virtual ~MediaFileInfoBase();                      // calls Destory
    virtual int LoadFile(const char* path) = 0;        // a status code
    virtual int HasId3Info();                          // m_hasId3
    virtual int IsVideo();                             // m_isVideo
    virtual int IsAudio();                             // m_isAudio
    virtual void Destory();                            // frees record and path copy
    virtual int SetId3Info(MediaFileInfo_st* info);    // 0: the format stores no tags
    virtual MediaFileInfo_st* GetFileInfo();           // borrowed, lives with the reader

    // 1 when s is null or holds only blanks (character 32), else 0.
    static int IsEmptyStr(const char* s);
    // The file's name without directory and extension, in a new malloc'ed
    // string; 0 (and nothing allocated) when the last path component has no dot.
    static int GetFileName(char** out, const char* path);
    // Big-endian 32-bit read; prints "ReadWord warning!" for 0xFFFFFFFF.
    static unsigned int ReadWord(unsigned char* p);
    // 1 -> "Mono", 2 and more -> "Stero", 0 -> null.
    static const char* GetChannel(unsigned int channels);
    // Stores the low 32 bits of the file size into (*info)->fileSize.
    static int GetFileStorageInfo(MediaFileInfo_st** info, const char* path);
    // The same, for a reader that already holds the file open: asks the open
    // descriptor (no second path look-up) and falls back to the path. When
    // `size` is given it receives the whole size the descriptor told, or -1.
    static int GetFileStorageInfo(MediaFileInfo_st** info, const char* path, FILE* open,
                                  long long* size = nullptr);
    // Skips a leading ID3v2 tag: seeks to the decoded tag size (10 bytes short
    // of the tag's end, which the frame searches cope with) and refills.
    int OverleapID3V2(char** buffer);

    // Helpers every reader uses so that no format code repeats them.

    // Copies text into a 128-byte record field, cut to 127 characters and
    // always terminated. A null text leaves the field as it is.
    static void CopyField(char* field, const char* text);
    // The conversion of a double to unsigned 32 bits that the readers' bit
    // rates and durations rely on: values below 2^31 truncate toward zero,
    // values of 2^31 and more are converted by subtracting 2^31 and setting
    // the top bit; out-of-range values and NaN give what a 32-bit x86
    // conversion gives (never a trap).
    static unsigned int DoubleToUInt32(double value);
    // Moves the file by a 32-bit difference taken as signed: positions in
    // the readers are unsigned 32-bit, and a backwards move computed as an
    // unsigned difference must stay a backwards move. Returns fseek's result.
    static int SeekRelative(FILE* file, unsigned int delta);
    // Big-endian 16-bit read.
    static unsigned int ReadHalf(const unsigned char* p);
    // Big-endian 32-bit read without ReadWord's warning: for scans over
    // arbitrary bytes, where all-ones words are ordinary data.
    static unsigned int ReadBigEndian32(const unsigned char* p);
    // fopen(path, "rb") without stdio's own buffer: every reader reads in
    // blocks of its own, so each fread becomes one read of the file, with
    // no block-aligned split reads and no extra fstat behind them.
    static FILE* OpenForReading(const char* path);
    // Puts the file's name into the record's title when the title is empty.
    void ApplyTitleFallback();
    // Records are malloc'ed so that Destory can free them whatever made them.
    // A constructed record (MP3, MP4, and WAV before it clears it) has
    // fileSize and frameRate set to 0 here, so no field is ever undefined.
    static MediaFileInfo_st* NewConstructedRecord();
    // A record of 1836 zero bytes, not constructed (AAC, AIFF).
    static MediaFileInfo_st* NewZeroedRecord();

    unsigned int m_isVideo;
    unsigned int m_isAudio;
    unsigned int m_hasId3;
    char* m_filePath;
    FILE* m_file;
    unsigned int m_bufferSize;
    MediaFileInfo_st* m_fileInfo;

private:
    MediaFileInfoBase(const MediaFileInfoBase&) = delete;
    MediaFileInfoBase& operator=(const MediaFileInfoBase&) = delete;
};

#endif  // FILEINFO_MEDIAFILEINFOBASE_H
