// Names for the rows of the codec-name table FormatType, so that no reader
// looks a codec up by a bare number.
#ifndef FILEINFO_DETAIL_FORMATTYPEROWS_H
#define FILEINFO_DETAIL_FORMATTYPEROWS_H

#include "MediaFileInfoDefine.h"

enum FormatTypeRow : int {
    kFormatAmr = 0,            // "AMR"
    kFormatAmrWb = 1,          // "AMR-WB"
    kFormatAac = 2,            // "AAC"
    kFormatMpeg4 = 3,          // "MPEG-4"
    kFormatH263 = 4,           // "H.263"
    kFormatH264 = 5,           // "H.264"
    kFormatAppleLossless = 6,  // "AppleLossless"
    kFormatUnknown = 7,        // "Unknown"
    kFormatTypeRows = 8,
};

static_assert(sizeof FormatType / sizeof FormatType[0] == kFormatTypeRows,
              "a name for every row of FormatType");

#endif  // FILEINFO_DETAIL_FORMATTYPEROWS_H
