// The record every reader fills, the string tables several readers share,
// and the status codes every LoadFile returns.
#ifndef FILEINFO_MEDIAFILEINFODEFINE_H
#define FILEINFO_MEDIAFILEINFODEFINE_H

// Marks the library's public API; everything else stays inside the shared
// object when it is built with hidden visibility.
#ifndef FILEINFO_API
#if defined(FILEINFO_BUILDING_LIBRARY) && defined(__GNUC__)
#define FILEINFO_API __attribute__((visibility("default")))
#else
#define FILEINFO_API
#endif
#endif

// Size of every text field of the record: 127 characters and a terminator.
enum { MEDIA_TEXT_SIZE = 128 };

// Status codes of every LoadFile (and of the tag writer).
enum MediaFileStatus : int {
    MFI_UNREADABLE = 0,        // the file could not be read as this format
    MFI_OK = 1,                // success: the record is filled
    MFI_BAD_ARGUMENT = 2,      // null path, or an over-long extension-less name
    MFI_NO_MEMORY = 3,         // the record or a buffer could not be allocated
    MFI_OPEN_FAILED = 5,       // the file could not be opened
    MFI_SHORT_FILE = 6,        // stat failed, the file is too short, or a short read
    MFI_SHORT_WRITE = 7,       // a write returned fewer bytes than asked
    MFI_SEEK_FAILED = 8,       // seeking failed
    MFI_NOT_THIS_FORMAT = 10,  // not this format, or no reader for the extension
};

// Our addition to the described API: the one text for each status code, as
// every front end shows it ("success", "cannot open", ...); "unknown status"
// for a code that is none of the above. Never null.
FILEINFO_API const char* MediaFileStatusText(int status);

// One file's properties and tags. The layout is fixed: 14 numbers, then 14
// text fields of 128 bytes; two bytes of alignment fall after `width`.
struct FILEINFO_API MediaFileInfo_st {
    // Sets isVbr, the seven 16-bit fields, sampleRate, bitRate, peakBitRate
    // and durationMs to 0 and clears every text field. fileSize and
    // frameRate are left alone on purpose: each reader writes them.
    MediaFileInfo_st();

    unsigned int isVbr;
    unsigned short trackNumber;
    unsigned short level;
    unsigned short profile;
    unsigned short profileLevelId;
    unsigned short bitsPerSample;
    unsigned short height;
    unsigned short width;
    unsigned int fileSize;
    unsigned int frameRate;
    unsigned int sampleRate;
    unsigned int bitRate;
    unsigned int peakBitRate;
    unsigned int durationMs;
    char fileType[MEDIA_TEXT_SIZE];
    char audioCodec[MEDIA_TEXT_SIZE];
    char audioFormat[MEDIA_TEXT_SIZE];
    char videoFormat[MEDIA_TEXT_SIZE];
    char spareText[MEDIA_TEXT_SIZE];
    char channelMode[MEDIA_TEXT_SIZE];
    char title[MEDIA_TEXT_SIZE];
    char artist[MEDIA_TEXT_SIZE];
    char album[MEDIA_TEXT_SIZE];
    char genre[MEDIA_TEXT_SIZE];
    char lyrics[MEDIA_TEXT_SIZE];
    char year[MEDIA_TEXT_SIZE];
    char comment[MEDIA_TEXT_SIZE];
    char composer[MEDIA_TEXT_SIZE];
};

static_assert(sizeof(MediaFileInfo_st) == 1836, "MediaFileInfo_st must keep its 1836-byte layout");

// File-name extensions the facade recognises (lower case, dot included).
FILEINFO_API extern const char* const Mp3Tail;
FILEINFO_API extern const char* const AacTail;
FILEINFO_API extern const char* const Mp4Tail;
FILEINFO_API extern const char* const TGPTail;
FILEINFO_API extern const char* const M4vTail;
FILEINFO_API extern const char* const M4aTail;
FILEINFO_API extern const char* const WavTail;
FILEINFO_API extern const char* const AifTail;
FILEINFO_API extern const char* const MovTail;

// Channel texts: row 1 is spelled "Stero" and hosts depend on that spelling.
FILEINFO_API extern const char* const CHANNEL[2];

// File-type and format names written into the record.
FILEINFO_API extern const char* const Mp3FileType[1];
FILEINFO_API extern const char* const AacFileType[1];
FILEINFO_API extern const char* const WavFileType[1];
FILEINFO_API extern const char* const AIFTYPE[1];
FILEINFO_API extern const char* const AIFFORMAT[1];
FILEINFO_API extern const char* const FormatType[8];
FILEINFO_API extern const char* const H264LCFileType[1];

#endif  // FILEINFO_MEDIAFILEINFODEFINE_H
