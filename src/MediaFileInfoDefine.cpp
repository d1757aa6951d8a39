#include "MediaFileInfoDefine.h"

#include <cstddef>
#include <cstring>

MediaFileInfo_st::MediaFileInfo_st()
    : isVbr(0),
      trackNumber(0),
      level(0),
      profile(0),
      profileLevelId(0),
      bitsPerSample(0),
      height(0),
      width(0),
      sampleRate(0),
      bitRate(0),
      peakBitRate(0),
      durationMs(0) {
    // The fourteen text fields are contiguous: clear them as one block.
    std::memset(fileType, 0, sizeof(MediaFileInfo_st) - offsetof(MediaFileInfo_st, fileType));
}

const char* MediaFileStatusText(int status) {
    switch (status) {
        case MFI_UNREADABLE: return "unreadable as this format";
        case MFI_OK: return "success";
        case MFI_BAD_ARGUMENT: return "bad argument";
        case MFI_NO_MEMORY: return "out of memory";
        case MFI_OPEN_FAILED: return "cannot open";
        case MFI_SHORT_FILE: return "cannot stat, or file too short";
        case MFI_SHORT_WRITE: return "short write";
        case MFI_SEEK_FAILED: return "seek failed";
        case MFI_NOT_THIS_FORMAT: return "not a recognised format";
        default: return "unknown status";
    }
}

const char* const Mp3Tail = ".mp3";
const char* const AacTail = ".aac";
const char* const Mp4Tail = ".mp4";
const char* const TGPTail = ".3gp";
const char* const M4vTail = ".m4v";
const char* const M4aTail = ".m4a";
const char* const WavTail = ".wav";
const char* const AifTail = ".aif";
const char* const MovTail = ".mov";

const char* const CHANNEL[2] = {"Mono", "Stero"};

const char* const Mp3FileType[1] = {"MP3"};
const char* const AacFileType[1] = {"AAC"};
const char* const WavFileType[1] = {"WAV"};
const char* const AIFTYPE[1] = {"AIFF"};
const char* const AIFFORMAT[1] = {"Audio IFF"};
const char* const FormatType[8] = {"AMR",   "AMR-WB", "AAC",           "MPEG-4",
                                   "H.263", "H.264",  "AppleLossless", "Unknown"};
const char* const H264LCFileType[1] = {"H.264LC"};
